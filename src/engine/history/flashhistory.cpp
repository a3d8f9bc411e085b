#include "flashhistory.h"

#include "historyschema.h"
#include "platform/platform.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QElapsedTimer>
#include <QThread>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSqlError>
#include <QSqlQuery>
#include <QStandardPaths>
#include <QUrl>
#include <QUuid>
#include <QSysInfo>
#include <QVariant>

namespace {

const char *const columns = "id, started, ended, host, user, program, port, serial, before, after, version, files, "
                            "signed, signer, tool, outcome, error, seconds, process";

const char *const interruptedText = "The flashing program ended before it recorded the flash's end";

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
        record.row = object.value(QLatin1String("id")).toInteger();
        record.ended = QDateTime::fromString(object.value(QLatin1String("ended")).toString(), Qt::ISODate);
        record.after = object.value(QLatin1String("after")).toString();
        record.error = object.value(QLatin1String("error")).toString();
        record.seconds = object.value(QLatin1String("seconds")).toDouble();
        if (record.row > 0)
            noted.insert(record.row, record);
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
    // A newer file is refused before anything is written to it, the journal mode too.
    schema = HistorySchema::versionOf(db, &lastError);
    if (schema > HistorySchema::version) {
        lastError = HistorySchema::newerText(path, schema);
        db.close();
        return false;
    }
    // Runs that open a new file at once meet in its first changes (journal mode, schema):
    // there SQLite may answer "locked" without waiting, so they are tried again until the timeout.
    const auto setUp = [this, &db] {
        return exec(QStringLiteral("PRAGMA journal_mode=WAL")) && exec(QStringLiteral("PRAGMA synchronous=FULL")) &&
               HistorySchema::setUp(db, &lastError, &lastBusy);
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
    schema = HistorySchema::version;
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
        if (db.open() && exec(QStringLiteral("SELECT count(*) FROM flashes"))) {
            schema = HistorySchema::versionOf(db, &lastError);
            if (schema <= HistorySchema::version)
                return true;
            lastError = HistorySchema::newerText(path, schema);
            db.close();
            return false;
        }
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
    record.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    record.station = writer.station.isEmpty() ? QSysInfo::machineHostName() : writer.station;
    record.operatorId = writer.operatorId;
    record.order = writer.order;
    record.host = QSysInfo::machineHostName();
    record.user = Platform::userName();
    record.outcome = QStringLiteral("pending");
    if (!record.started.isValid())
        record.started = QDateTime::currentDateTimeUtc();
    QSqlQuery query(QSqlDatabase::database(connection, false));
    query.prepare(QStringLiteral("INSERT INTO flashes (uuid, started, station, operator, work_order, host, user, "
                                 "program, process, port, serial, before, version, files, signed, signer, tool, "
                                 "outcome) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"));
    for (const QVariant &value :
         {QVariant(record.id), QVariant(isoText(record.started)), QVariant(record.station),
          QVariant(record.operatorId), QVariant(record.order), QVariant(record.host), QVariant(record.user),
          QVariant(record.program), QVariant(Platform::processIdentity()), QVariant(record.port),
          QVariant(record.serial), QVariant(record.before), QVariant(record.version), QVariant(filesJson(record)),
          QVariant(record.signedPackage ? 1 : 0), QVariant(record.signer), QVariant(record.tool),
          QVariant(record.outcome)})
        query.addBindValue(value);
    if (!query.exec()) {
        lastError = query.lastError().text();
        return 0;
    }
    record.row = query.lastInsertId().toLongLong();
    return record.row;
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
          QVariant(record.serial), QVariant(record.before), QVariant(record.after), QVariant(filesJson(record)),
          QVariant(record.signer), QVariant(record.tool), QVariant(record.outcome), QVariant(record.error),
          QVariant(qRound(record.seconds * 10) / 10.0), QVariant(record.row)})
        query.addBindValue(value);
    if (!query.exec() || query.numRowsAffected() != 1) {
        lastError = query.lastError().text();
        return false;
    }
    return true;
}

bool FlashHistory::select(QSqlQuery &query, const QString &what, const HistoryFilter &filter, bool ordered)
{
    QString statement = QStringLiteral("SELECT %1 FROM flashes WHERE 1").arg(what);
    // In a first-version file the station is the host, and no record has an order.
    const QList<QPair<QString, QString>> conditions{
        {QStringLiteral("serial"), filter.serial},
        {schema >= 2 ? QStringLiteral("station") : QStringLiteral("host"), filter.station},
        {schema >= 2 ? QStringLiteral("work_order") : QStringLiteral("NULL"), filter.order}};
    for (const auto &condition : conditions) {
        if (!condition.second.isEmpty())
            statement += QStringLiteral(" AND %1 = :%2").arg(condition.first, condition.first.toLower());
    }
    if (filter.since.isValid())
        statement += QLatin1String(" AND started >= :since");
    if (filter.afterStarted.isValid())
        statement += filter.newestFirst ? QLatin1String(" AND (started, id) < (:afterStarted, :afterRow)")
                                        : QLatin1String(" AND (started, id) > (:afterStarted, :afterRow)");
    if (ordered) {
        statement += filter.newestFirst ? QLatin1String(" ORDER BY started DESC, id DESC")
                                        : QLatin1String(" ORDER BY started, id");
        if (filter.limit > 0)
            statement += QStringLiteral(" LIMIT %1").arg(filter.limit);
    }
    // Row by row: a year of records is never held at once.
    query.setForwardOnly(true);
    query.prepare(statement);
    for (const auto &condition : conditions) {
        if (!condition.second.isEmpty())
            query.bindValue(QLatin1Char(':') + condition.first.toLower(), condition.second);
    }
    if (filter.since.isValid())
        query.bindValue(QStringLiteral(":since"), isoText(filter.since));
    if (filter.afterStarted.isValid()) {
        query.bindValue(QStringLiteral(":afterStarted"), isoText(filter.afterStarted));
        query.bindValue(QStringLiteral(":afterRow"), filter.afterRow);
    }
    if (!query.exec()) {
        lastError = query.lastError().text();
        return false;
    }
    return true;
}

bool FlashHistory::forEach(const HistoryFilter &filter, const std::function<bool(const FlashRecord &)> &each)
{
    // A file of the first version is read as it is: the new fields are empty.
    const QString added = schema >= 2 ? QStringLiteral("uuid, station, operator, work_order, sent")
                                      : QStringLiteral("NULL, host, NULL, NULL, NULL");
    QSqlQuery query(QSqlDatabase::database(connection, false));
    if (!select(query, QStringLiteral("%1, %2").arg(QLatin1String(columns), added), filter, true))
        return false;
    return read(query, each);
}

qint64 FlashHistory::count(const HistoryFilter &filter)
{
    QSqlQuery query(QSqlDatabase::database(connection, false));
    if (!select(query, QStringLiteral("count(*)"), filter, false) || !query.next())
        return -1;
    return query.value(0).toLongLong();
}

bool FlashHistory::read(QSqlQuery &query, const std::function<bool(const FlashRecord &)> &each)
{
    const QHash<qint64, FlashRecord> unrecorded = journal();
    while (query.next()) {
        FlashRecord record;
        int column = 0;
        record.row = query.value(column++).toLongLong();
        record.started = QDateTime::fromString(query.value(column++).toString(), Qt::ISODate);
        record.ended = QDateTime::fromString(query.value(column++).toString(), Qt::ISODate);
        for (QString *text : {&record.host, &record.user, &record.program, &record.port, &record.serial,
                              &record.before, &record.after, &record.version})
            *text = query.value(column++).toString();
        record.files = filesFromJson(query.value(column++).toString());
        record.signedPackage = query.value(column++).toInt() != 0;
        for (QString *text : {&record.signer, &record.tool, &record.outcome, &record.error})
            *text = query.value(column++).toString();
        record.seconds = query.value(column++).toDouble();
        const QString process = query.value(column++).toString();
        for (QString *text : {&record.id, &record.station, &record.operatorId, &record.order})
            *text = query.value(column++).toString();
        record.sent = QDateTime::fromString(query.value(column++).toString(), Qt::ISODate);
        // Shown as the next writer will mark them: a reader changes nothing.
        if (record.outcome == QLatin1String("pending") && unrecorded.contains(record.row)) {
            const FlashRecord &noted = unrecorded[record.row];
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

QList<FlashRecord> FlashHistory::records(const HistoryFilter &filter)
{
    QList<FlashRecord> list;
    forEach(filter, [&list](const FlashRecord &record) {
        list << record;
        return true;
    });
    return list;
}

// Pending ones wait: the central record takes a record once, when it is whole.
bool FlashHistory::unsent(int limit, QList<FlashRecord> *records)
{
    QSqlQuery query(QSqlDatabase::database(connection, false));
    query.setForwardOnly(true);
    query.prepare(QStringLiteral("SELECT %1, uuid, station, operator, work_order, sent FROM flashes "
                                 "WHERE sent IS NULL AND outcome <> 'pending' ORDER BY id LIMIT %2")
                      .arg(QLatin1String(columns))
                      .arg(limit));
    if (!query.exec()) {
        lastError = query.lastError().text();
        return false;
    }
    records->clear();
    return read(query, [records](const FlashRecord &record) {
        *records << record;
        return true;
    });
}

int FlashHistory::unsentCount()
{
    QSqlQuery query(QSqlDatabase::database(connection, false));
    if (!query.exec(QStringLiteral("SELECT count(*) FROM flashes WHERE sent IS NULL AND outcome <> 'pending'")) ||
        !query.next()) {
        lastError = query.lastError().text();
        return -1;
    }
    return query.value(0).toInt();
}

bool FlashHistory::markSent(const QList<qint64> &rows)
{
    QStringList list;
    for (const qint64 row : rows)
        list << QString::number(row);
    QSqlQuery query(QSqlDatabase::database(connection, false));
    if (!query.exec(QStringLiteral("UPDATE flashes SET sent = '%1' WHERE id IN (%2)")
                        .arg(isoText(QDateTime::currentDateTimeUtc()), list.join(QLatin1Char(','))))) {
        lastError = query.lastError().text();
        return false;
    }
    return true;
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
    const QJsonObject line{{"id", record.row},
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
                                      QVariant(record.seconds), QVariant(record.row)})
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

