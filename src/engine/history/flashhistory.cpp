#include "flashhistory.h"

#include "platform/platform.h"

#include <QDir>
#include <QElapsedTimer>
#include <QThread>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSqlError>
#include <QSqlQuery>
#include <QStandardPaths>
#include <QSysInfo>
#include <QVariant>

namespace {

const char *const columns = "id, started, ended, host, user, program, port, serial, before, after, version, files, "
                            "signed, signer, tool, outcome, error, seconds";

QString isoText(const QDateTime &time)
{
    return time.isValid() ? time.toUTC().toString(Qt::ISODate) : QString();
}

QString filesText(const FlashRecord &record)
{
    QJsonArray files;
    for (const auto &file : record.files)
        files.append(QJsonObject{{"name", file.first}, {"sha256", file.second}});
    return QString::fromUtf8(QJsonDocument(files).toJson(QJsonDocument::Compact));
}

QJsonValue textOrNull(const QString &text)
{
    return text.isEmpty() ? QJsonValue(QJsonValue::Null) : QJsonValue(text);
}

// Doubled quotes, and every field quoted: names and errors come from outside. A field
// that a spreadsheet would take for a formula starts with an apostrophe.
QByteArray csvField(QString text)
{
    if (!text.isEmpty() && QStringLiteral("=+-@").contains(text.front()))
        text.prepend(QLatin1Char('\''));
    return '"' + text.replace(QLatin1Char('"'), QLatin1String("\"\"")).toUtf8() + '"';
}
} // namespace

FlashHistory::FlashHistory() : connection(QStringLiteral("history-%1").arg(quintptr(this)))
{
}

FlashHistory::~FlashHistory()
{
    if (QSqlDatabase::contains(connection)) {
        QSqlDatabase::database(connection, false).close();
        QSqlDatabase::removeDatabase(connection);
    }
}

QString FlashHistory::defaultPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QLatin1String("/morvanta/history.sqlite");
}

bool FlashHistory::open(const QString &path, int busyTimeoutMs)
{
    file = path;
    if (!QSqlDatabase::isDriverAvailable(QStringLiteral("QSQLITE"))) {
        lastError = QStringLiteral("Qt's SQLite driver is missing");
        return false;
    }
    const QString folder = QFileInfo(path).absolutePath();
    if (!QDir().mkpath(folder)) {
        lastError = QStringLiteral("Cannot make the folder %1").arg(folder);
        return false;
    }
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connection);
    db.setDatabaseName(path);
    db.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=%1").arg(busyTimeoutMs));
    if (!db.open()) {
        lastError = db.lastError().text();
        return false;
    }
    // Runs that open a new file at once meet in its first changes (journal mode, schema):
    // there SQLite may answer "locked" without waiting, so they are tried again until the timeout.
    const auto setUp = [this] {
        return exec(QStringLiteral("PRAGMA journal_mode=WAL")) &&
               exec(QStringLiteral("CREATE TABLE IF NOT EXISTS flashes (id INTEGER PRIMARY KEY, started TEXT NOT NULL, "
                                   "ended TEXT, host TEXT, user TEXT, program TEXT, process TEXT, port TEXT, "
                                   "serial TEXT, before TEXT, after TEXT, version TEXT, files TEXT, signed INTEGER, "
                                   "signer TEXT, tool TEXT, outcome TEXT NOT NULL, error TEXT, seconds REAL)")) &&
               exec(QStringLiteral("CREATE INDEX IF NOT EXISTS flashes_serial ON flashes (serial)"));
    };
    QElapsedTimer waited;
    waited.start();
    while (!setUp()) {
        if (!lastBusy || waited.elapsed() > busyTimeoutMs) {
            db.close();
            return false;
        }
        QThread::msleep(20);
    }
    markInterrupted();
    return true;
}

bool FlashHistory::isOpen() const
{
    return QSqlDatabase::contains(connection) && QSqlDatabase::database(connection, false).isOpen();
}

bool FlashHistory::exec(const QString &statement)
{
    QSqlQuery query(QSqlDatabase::database(connection, false));
    if (query.exec(statement))
        return true;
    lastError = query.lastError().text();
    // SQLITE_BUSY, SQLITE_LOCKED
    const QString code = query.lastError().nativeErrorCode();
    lastBusy = code == QLatin1String("5") || code == QLatin1String("6");
    return false;
}

void FlashHistory::markInterrupted()
{
    QSqlDatabase db = QSqlDatabase::database(connection, false);
    QSqlQuery pending(db);
    pending.prepare(QStringLiteral("SELECT id, process FROM flashes WHERE outcome = 'pending' AND host = ?"));
    pending.addBindValue(QSysInfo::machineHostName());
    if (!pending.exec())
        return;
    QList<qint64> gone;
    while (pending.next()) {
        if (!Platform::processAlive(pending.value(1).toString()))
            gone << pending.value(0).toLongLong();
    }
    for (const qint64 id : std::as_const(gone)) {
        QSqlQuery update(db);
        // Only while still pending: the process may have finished it meanwhile.
        update.prepare(QStringLiteral("UPDATE flashes SET outcome = 'interrupted', ended = ?, "
                                      "error = 'The flashing program ended before the flash did' "
                                      "WHERE id = ? AND outcome = 'pending'"));
        update.addBindValue(isoText(QDateTime::currentDateTimeUtc()));
        update.addBindValue(id);
        update.exec();
    }
}

qint64 FlashHistory::begin(FlashRecord &record)
{
    record.host = QSysInfo::machineHostName();
    record.user = Platform::userName();
    record.outcome = QStringLiteral("pending");
    if (!record.started.isValid())
        record.started = QDateTime::currentDateTimeUtc();
    QSqlQuery query(QSqlDatabase::database(connection, false));
    query.prepare(QStringLiteral("INSERT INTO flashes (started, host, user, program, process, port, serial, before, "
                                 "version, files, signed, signer, tool, outcome) "
                                 "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"));
    for (const QVariant &value :
         {QVariant(isoText(record.started)), QVariant(record.host), QVariant(record.user), QVariant(record.program),
          QVariant(Platform::processIdentity()), QVariant(record.port), QVariant(record.serial),
          QVariant(record.before), QVariant(record.version), QVariant(filesText(record)),
          QVariant(record.signedPackage ? 1 : 0), QVariant(record.signer), QVariant(record.tool),
          QVariant(record.outcome)})
        query.addBindValue(value);
    if (!query.exec()) {
        lastError = query.lastError().text();
        return 0;
    }
    record.id = query.lastInsertId().toLongLong();
    return record.id;
}

bool FlashHistory::finish(const FlashRecord &record)
{
    QSqlQuery query(QSqlDatabase::database(connection, false));
    query.prepare(QStringLiteral("UPDATE flashes SET ended = ?, serial = ?, before = ?, after = ?, files = ?, "
                                 "signer = ?, tool = ?, outcome = ?, error = ?, seconds = ? WHERE id = ?"));
    for (const QVariant &value :
         {QVariant(isoText(record.ended.isValid() ? record.ended : QDateTime::currentDateTimeUtc())),
          QVariant(record.serial), QVariant(record.before), QVariant(record.after), QVariant(filesText(record)),
          QVariant(record.signer), QVariant(record.tool), QVariant(record.outcome), QVariant(record.error),
          QVariant(qRound(record.seconds * 10) / 10.0), QVariant(record.id)})
        query.addBindValue(value);
    if (!query.exec() || query.numRowsAffected() != 1) {
        lastError = query.lastError().text();
        return false;
    }
    return true;
}

QList<FlashRecord> FlashHistory::records(const QString &serial, const QDateTime &since)
{
    QString statement = QStringLiteral("SELECT %1 FROM flashes WHERE 1").arg(QLatin1String(columns));
    if (!serial.isEmpty())
        statement += QLatin1String(" AND serial = :serial");
    if (since.isValid())
        statement += QLatin1String(" AND started >= :since");
    QSqlQuery query(QSqlDatabase::database(connection, false));
    query.prepare(statement + QLatin1String(" ORDER BY started, id"));
    if (!serial.isEmpty())
        query.bindValue(QStringLiteral(":serial"), serial);
    if (since.isValid())
        query.bindValue(QStringLiteral(":since"), isoText(since));
    QList<FlashRecord> list;
    if (!query.exec()) {
        lastError = query.lastError().text();
        return list;
    }
    while (query.next()) {
        FlashRecord record;
        int column = 0;
        record.id = query.value(column++).toLongLong();
        record.started = QDateTime::fromString(query.value(column++).toString(), Qt::ISODate);
        record.ended = QDateTime::fromString(query.value(column++).toString(), Qt::ISODate);
        for (QString *text : {&record.host, &record.user, &record.program, &record.port, &record.serial,
                              &record.before, &record.after, &record.version})
            *text = query.value(column++).toString();
        for (const QJsonValue &file : QJsonDocument::fromJson(query.value(column++).toString().toUtf8()).array())
            record.files << qMakePair(file[QLatin1String("name")].toString(), file[QLatin1String("sha256")].toString());
        record.signedPackage = query.value(column++).toInt() != 0;
        for (QString *text : {&record.signer, &record.tool, &record.outcome, &record.error})
            *text = query.value(column++).toString();
        record.seconds = query.value(column++).toDouble();
        list << record;
    }
    return list;
}

QByteArray historyJson(const FlashRecord &record)
{
    QJsonArray files;
    for (const auto &file : record.files)
        files.append(QJsonObject{{"name", file.first}, {"sha256", file.second}});
    const QJsonObject object{{"id", record.id},
                             {"started", isoText(record.started)},
                             {"ended", textOrNull(isoText(record.ended))},
                             {"host", record.host},
                             {"user", record.user},
                             {"program", record.program},
                             {"port", textOrNull(record.port)},
                             {"serial", textOrNull(record.serial)},
                             {"before", textOrNull(record.before)},
                             {"after", textOrNull(record.after)},
                             {"version", textOrNull(record.version)},
                             {"files", files},
                             {"signed", record.signedPackage},
                             {"signer", textOrNull(record.signer)},
                             {"tool", textOrNull(record.tool)},
                             {"outcome", record.outcome},
                             {"error", textOrNull(record.error)},
                             {"seconds", record.seconds}};
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QByteArray historyCsvHeader()
{
    return "started,ended,host,user,program,port,serial,before,after,version,files,signed,signer,tool,outcome,"
           "error,seconds";
}

QByteArray historyCsv(const FlashRecord &record)
{
    QStringList files;
    for (const auto &file : record.files)
        files << file.first + QLatin1Char(':') + file.second;
    QByteArrayList fields;
    for (const QString &text :
         {isoText(record.started), isoText(record.ended), record.host, record.user, record.program, record.port,
          record.serial, record.before, record.after, record.version, files.join(QLatin1Char(' '))})
        fields << csvField(text);
    fields << (record.signedPackage ? "yes" : "no");
    for (const QString &text : {record.signer, record.tool, record.outcome, record.error})
        fields << csvField(text);
    fields << QByteArray::number(record.seconds, 'f', 1);
    return fields.join(',');
}
