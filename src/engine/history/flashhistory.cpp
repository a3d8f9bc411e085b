#include "flashhistory.h"

#include "platform/platform.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QElapsedTimer>
#include <QThread>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSqlError>
#include <QSqlQuery>
#include <QStandardPaths>
#include <QUrl>
#include <QSysInfo>
#include <QVariant>

namespace {

const char *const columns = "id, started, ended, host, user, program, port, serial, before, after, version, files, "
                            "signed, signer, tool, outcome, error, seconds, process";

const char *const interruptedText = "The flashing program ended before it recorded the flash's end";

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
// A journal's records of this machine by id: what they would have said.
QHash<qint64, FlashRecord> readJournal(const QString &path)
{
    QHash<qint64, FlashRecord> noted;
    QFile journalFile(path);
    // Small by nature; a large one is no journal of ours.
    if (!journalFile.open(QIODevice::ReadOnly) || journalFile.size() > (1 << 20))
        return noted;
    for (const QByteArray &line : journalFile.readAll().split('\n')) {
        const QJsonObject object = QJsonDocument::fromJson(line).object();
        if (object.value(QLatin1String("host")).toString() != QSysInfo::machineHostName())
            continue;
        FlashRecord record;
        record.id = object.value(QLatin1String("id")).toInteger();
        record.ended = QDateTime::fromString(object.value(QLatin1String("ended")).toString(), Qt::ISODate);
        record.after = object.value(QLatin1String("after")).toString();
        record.error = object.value(QLatin1String("error")).toString();
        record.seconds = object.value(QLatin1String("seconds")).toDouble();
        if (record.id > 0)
            noted.insert(record.id, record);
    }
    return noted;
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
        return exec(QStringLiteral("PRAGMA journal_mode=WAL")) && exec(QStringLiteral("PRAGMA synchronous=FULL")) &&
               exec(QStringLiteral("CREATE TABLE IF NOT EXISTS flashes (id INTEGER PRIMARY KEY, started TEXT NOT NULL, "
                                   "ended TEXT, host TEXT, user TEXT, program TEXT, process TEXT, port TEXT, "
                                   "serial TEXT, before TEXT, after TEXT, version TEXT, files TEXT, signed INTEGER, "
                                   "signer TEXT, tool TEXT, outcome TEXT NOT NULL, error TEXT, seconds REAL)")) &&
               exec(QStringLiteral("CREATE INDEX IF NOT EXISTS flashes_serial ON flashes (serial)")) &&
               // The order they are read in, without a sort of all of them first.
               exec(QStringLiteral("CREATE INDEX IF NOT EXISTS flashes_started ON flashes (started, id)"));
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
    applyJournal();
    markInterrupted();
    return true;
}

bool FlashHistory::openForReading(const QString &path)
{
    file = path;
    if (!QSqlDatabase::isDriverAvailable(QStringLiteral("QSQLITE"))) {
        lastError = QStringLiteral("Qt's SQLite driver is missing");
        return false;
    }
    if (!QFileInfo(path).isFile()) {
        lastError = QStringLiteral("There is no history at %1").arg(path);
        return false;
    }
    const QString url = QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()).toString(QUrl::FullyEncoded);
    // While its writer runs, the write-ahead log is read through its index; when it is
    // stopped, both are gone and a reader that may not make them reads the file as it lies.
    for (const QString &mode : {QStringLiteral("?mode=ro"), QStringLiteral("?mode=ro&immutable=1")}) {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connection);
        db.setDatabaseName(url + mode);
        db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_URI;QSQLITE_OPEN_READONLY;QSQLITE_BUSY_TIMEOUT=5000"));
        if (db.open() && exec(QStringLiteral("SELECT count(*) FROM flashes")))
            return true;
        lastError = db.lastError().text().isEmpty() ? lastError : db.lastError().text();
        db.close();
        if (QFileInfo::exists(path + QLatin1String("-wal")))
            break;
    }
    lastError = QStringLiteral("Cannot read the history %1: %2").arg(path, lastError);
    return false;
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
                                      "error = ? WHERE id = ? AND outcome = 'pending'"));
        update.addBindValue(isoText(QDateTime::currentDateTimeUtc()));
        update.addBindValue(QLatin1String(interruptedText));
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

bool FlashHistory::finish(const FlashRecord &record, int busyTimeoutMs)
{
    if (busyTimeoutMs > 0)
        exec(QStringLiteral("PRAGMA busy_timeout=%1").arg(busyTimeoutMs));
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

bool FlashHistory::forEach(const QString &serial, const QDateTime &since,
                           const std::function<bool(const FlashRecord &)> &each)
{
    QString statement = QStringLiteral("SELECT %1 FROM flashes WHERE 1").arg(QLatin1String(columns));
    if (!serial.isEmpty())
        statement += QLatin1String(" AND serial = :serial");
    if (since.isValid())
        statement += QLatin1String(" AND started >= :since");
    QSqlQuery query(QSqlDatabase::database(connection, false));
    // Row by row: a year of records is never held at once.
    query.setForwardOnly(true);
    query.prepare(statement + QLatin1String(" ORDER BY started, id"));
    if (!serial.isEmpty())
        query.bindValue(QStringLiteral(":serial"), serial);
    if (since.isValid())
        query.bindValue(QStringLiteral(":since"), isoText(since));
    if (!query.exec()) {
        lastError = query.lastError().text();
        return false;
    }
    const QHash<qint64, FlashRecord> unrecorded = journal();
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
        const QString process = query.value(column++).toString();
        // Shown as the next writer will mark them: a reader changes nothing.
        if (record.outcome == QLatin1String("pending") && unrecorded.contains(record.id)) {
            const FlashRecord &noted = unrecorded[record.id];
            record.outcome = QStringLiteral("unrecorded");
            record.ended = noted.ended;
            record.after = noted.after;
            record.error = noted.error;
            record.seconds = noted.seconds;
        } else if (record.outcome == QLatin1String("pending") && record.host == QSysInfo::machineHostName() &&
                   !Platform::processAlive(process)) {
            record.outcome = QStringLiteral("interrupted");
            record.error = QLatin1String(interruptedText);
        }
        if (!each(record))
            break;
    }
    return true;
}

QList<FlashRecord> FlashHistory::records(const QString &serial, const QDateTime &since)
{
    QList<FlashRecord> list;
    forEach(serial, since, [&list](const FlashRecord &record) {
        list << record;
        return true;
    });
    return list;
}

// One line a record: {"id", "host", "ended", "after", "error", "seconds"}, the error
// already saying what the outcome was.
bool FlashHistory::noteUnrecorded(const FlashRecord &record)
{
    QFile journalFile(journalPath());
    if (!journalFile.open(QIODevice::WriteOnly | QIODevice::Append))
        return false;
    const QString error = QStringLiteral("%1, but the record could not be completed at the flash's end%2")
                              .arg(record.outcome, record.error.isEmpty() ? QString() : QLatin1String(": ") + record.error);
    const QJsonObject line{{"id", record.id},
                           {"host", QSysInfo::machineHostName()},
                           {"ended", isoText(record.ended.isValid() ? record.ended : QDateTime::currentDateTimeUtc())},
                           {"after", record.after},
                           {"error", error},
                           {"seconds", record.seconds}};
    const QByteArray text = QJsonDocument(line).toJson(QJsonDocument::Compact) + '\n';
    return journalFile.write(text) == text.size() && journalFile.flush();
}

QHash<qint64, FlashRecord> FlashHistory::journal() const
{
    return readJournal(journalPath());
}

// The journal is taken away first, so that a line another run adds meanwhile starts a
// new one and is not lost.
void FlashHistory::applyJournal()
{
    const QString taken =
        journalPath() + QLatin1String(".applying-") + QString::number(QCoreApplication::applicationPid());
    if (!QFileInfo::exists(journalPath()) || !QFile::rename(journalPath(), taken))
        return;
    bool applied = true;
    for (const FlashRecord &record : readJournal(taken)) {
        QSqlQuery update(QSqlDatabase::database(connection, false));
        update.prepare(QStringLiteral("UPDATE flashes SET outcome = 'unrecorded', ended = ?, after = ?, error = ?, "
                                      "seconds = ? WHERE id = ? AND outcome = 'pending'"));
        for (const QVariant &value : {QVariant(isoText(record.ended)), QVariant(record.after), QVariant(record.error),
                                      QVariant(record.seconds), QVariant(record.id)})
            update.addBindValue(value);
        applied = update.exec() && applied;
    }
    // Not applied: the lines go back, for the next opening.
    QFile takenFile(taken);
    QFile journalFile(journalPath());
    if (!applied && takenFile.open(QIODevice::ReadOnly) && journalFile.open(QIODevice::WriteOnly | QIODevice::Append))
        journalFile.write(takenFile.readAll());
    QFile::remove(taken);
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
