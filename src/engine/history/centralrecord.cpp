#include "centralrecord.h"

#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

namespace {

// Any number of stations may meet an empty database at once: one makes the tables.
const char *const schemaLock = "SELECT pg_advisory_xact_lock(7260431)";

const QStringList &schemaStatements()
{
    static const QStringList statements{
        QStringLiteral("CREATE TABLE morvanta_schema (version integer NOT NULL)"),
        QStringLiteral("INSERT INTO morvanta_schema (version) VALUES (1)"),
        QStringLiteral("CREATE TABLE flashes (id uuid PRIMARY KEY, started timestamptz NOT NULL, ended timestamptz, "
                       "station text, operator text, work_order text, host text, user_name text, program text, "
                       "port text, serial text, before text, after text, version text, files jsonb, "
                       "signed boolean, signer text, tool text, outcome text NOT NULL, error text, "
                       "seconds double precision, received timestamptz NOT NULL DEFAULT now())"),
        QStringLiteral("CREATE INDEX flashes_serial ON flashes (serial)"),
        QStringLiteral("CREATE INDEX flashes_started ON flashes (started)"),
        QStringLiteral("CREATE INDEX flashes_station ON flashes (station, started)"),
        QStringLiteral("CREATE INDEX flashes_order ON flashes (work_order)"),
        QStringLiteral(
            "CREATE VIEW flashes_per_hour AS SELECT station, date_trunc('hour', started) AS hour, "
            "count(*) FILTER (WHERE outcome = 'flashed') AS flashed, "
            "count(*) FILTER (WHERE outcome = 'recovered') AS recovered, "
            "count(*) FILTER (WHERE outcome = 'current') AS current, "
            "count(*) FILTER (WHERE outcome = 'failed') AS failed, "
            "count(*) FILTER (WHERE outcome = 'stopped') AS stopped, "
            "count(*) FILTER (WHERE outcome IN ('interrupted', 'unrecorded')) AS interrupted, "
            "count(*) AS total FROM flashes GROUP BY station, date_trunc('hour', started)")};
    return statements;
}

QString utcText(const QString &column)
{
    return QStringLiteral("to_char(%1 AT TIME ZONE 'UTC', 'YYYY-MM-DD\"T\"HH24:MI:SS\"Z\"')").arg(column);
}

QVariant textOrNull(const QString &text)
{
    return text.isEmpty() ? QVariant(QMetaType::fromType<QString>()) : QVariant(text);
}
} // namespace

CentralRecord::CentralRecord(const CentralAddress &address)
    : address(address), connection(QStringLiteral("central-%1").arg(quintptr(this)))
{
}

CentralRecord::~CentralRecord()
{
    close();
    if (QSqlDatabase::contains(connection))
        QSqlDatabase::removeDatabase(connection);
}

QSqlDatabase CentralRecord::db() const
{
    return QSqlDatabase::database(connection, false);
}

void CentralRecord::close()
{
    if (QSqlDatabase::contains(connection))
        db().close();
    schemaChecked = false;
}

bool CentralRecord::open()
{
    if (QSqlDatabase::contains(connection) && db().isOpen() && schemaChecked)
        return true;
    if (!QSqlDatabase::isDriverAvailable(QStringLiteral("QPSQL"))) {
        lastError = QStringLiteral("Qt's PostgreSQL driver is missing (libqt6sql6-psql)");
        return false;
    }
    if (!QSqlDatabase::contains(connection)) {
        QSqlDatabase made = QSqlDatabase::addDatabase(QStringLiteral("QPSQL"), connection);
        address.apply(made);
    }
    QSqlDatabase database = db();
    if (!database.isOpen() && !database.open()) {
        lastError = database.lastError().text().simplified();
        return false;
    }
    if (ensureSchema())
        return true;
    close();
    return false;
}

bool CentralRecord::exec(const QString &statement)
{
    QSqlQuery query(db());
    if (query.exec(statement))
        return true;
    lastError = query.lastError().text().simplified();
    return false;
}

bool CentralRecord::ensureSchema()
{
    QSqlDatabase database = db();
    if (!database.transaction()) {
        lastError = database.lastError().text().simplified();
        return false;
    }
    QSqlQuery found(database);
    bool ok = exec(QLatin1String(schemaLock)) &&
              found.exec(QStringLiteral("SELECT to_regclass('morvanta_schema') IS NOT NULL")) && found.next();
    int version = 0;
    if (ok && found.value(0).toBool()) {
        QSqlQuery read(database);
        ok = read.exec(QStringLiteral("SELECT max(version) FROM morvanta_schema")) && read.next();
        version = read.value(0).toInt();
        if (!ok)
            lastError = read.lastError().text().simplified();
    } else if (!ok && found.lastError().isValid()) {
        lastError = found.lastError().text().simplified();
    }
    if (ok && version > schemaVersion) {
        lastError = QStringLiteral("The central record's schema is version %1, newer than this program knows (%2): "
                                   "nothing is written to it")
                        .arg(version)
                        .arg(schemaVersion);
        ok = false;
    }
    for (int i = 0; ok && version == 0 && i < schemaStatements().size(); ++i) {
        ok = exec(schemaStatements().at(i));
        if (!ok)
            lastError = QStringLiteral("Cannot make the central record's tables: %1").arg(lastError);
    }
    if (!ok) {
        database.rollback();
        return false;
    }
    if (!database.commit()) {
        lastError = database.lastError().text().simplified();
        return false;
    }
    schemaChecked = true;
    return true;
}

bool CentralRecord::send(const QList<FlashRecord> &records)
{
    if (!open())
        return false;
    QSqlDatabase database = db();
    if (!database.transaction()) {
        lastError = database.lastError().text().simplified();
        close();
        return false;
    }
    QSqlQuery insert(database);
    bool ok = insert.prepare(QStringLiteral(
        "INSERT INTO flashes (id, started, ended, station, operator, work_order, host, user_name, program, port, "
        "serial, before, after, version, files, signed, signer, tool, outcome, error, seconds) VALUES "
        "(?::uuid, ?::timestamptz, ?::timestamptz, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?::jsonb, ?, ?, ?, ?, ?, ?) "
        "ON CONFLICT (id) DO NOTHING"));
    for (int i = 0; ok && i < records.size(); ++i) {
        const FlashRecord &record = records.at(i);
        for (const QVariant &value :
             {QVariant(record.id), QVariant(isoText(record.started)), textOrNull(isoText(record.ended)),
              textOrNull(record.station), textOrNull(record.operatorId), textOrNull(record.order),
              QVariant(record.host), QVariant(record.user), QVariant(record.program), textOrNull(record.port),
              textOrNull(record.serial), textOrNull(record.before), textOrNull(record.after),
              textOrNull(record.version), QVariant(filesJson(record)), QVariant(record.signedPackage),
              textOrNull(record.signer), textOrNull(record.tool), QVariant(record.outcome), textOrNull(record.error),
              QVariant(record.seconds)})
            insert.addBindValue(value);
        ok = insert.exec();
    }
    if (!ok) {
        lastError = insert.lastError().text().simplified();
        database.rollback();
        close(); // a lost server shows only as failed statements
        return false;
    }
    if (!database.commit()) {
        lastError = database.lastError().text().simplified();
        close();
        return false;
    }
    return true;
}

bool CentralRecord::forEach(const HistoryFilter &filter, const std::function<bool(const FlashRecord &)> &each)
{
    if (!open())
        return false;
    QString statement = QStringLiteral(
        "SELECT id::text, %1, %2, station, operator, work_order, host, user_name, program, port, serial, before, "
        "after, version, files::text, signed, signer, tool, outcome, error, seconds, %3 FROM flashes WHERE true")
                            .arg(utcText(QStringLiteral("started")), utcText(QStringLiteral("ended")),
                                 utcText(QStringLiteral("received")));
    const QList<QPair<QString, QString>> conditions{{QStringLiteral("serial"), filter.serial},
                                                    {QStringLiteral("station"), filter.station},
                                                    {QStringLiteral("work_order"), filter.order}};
    QVariantList values;
    for (const auto &condition : conditions) {
        if (!condition.second.isEmpty()) {
            statement += QStringLiteral(" AND %1 = ?").arg(condition.first);
            values << condition.second;
        }
    }
    if (filter.since.isValid()) {
        statement += QLatin1String(" AND started >= ?::timestamptz");
        values << isoText(filter.since);
    }
    QSqlQuery query(db());
    query.setForwardOnly(true);
    query.prepare(statement + QLatin1String(" ORDER BY started, id"));
    for (const QVariant &value : std::as_const(values))
        query.addBindValue(value);
    if (!query.exec()) {
        lastError = query.lastError().text().simplified();
        return false;
    }
    while (query.next()) {
        FlashRecord record;
        int column = 0;
        record.id = query.value(column++).toString();
        record.started = QDateTime::fromString(query.value(column++).toString(), Qt::ISODate);
        record.ended = QDateTime::fromString(query.value(column++).toString(), Qt::ISODate);
        for (QString *text : {&record.station, &record.operatorId, &record.order, &record.host, &record.user,
                              &record.program, &record.port, &record.serial, &record.before, &record.after,
                              &record.version})
            *text = query.value(column++).toString();
        record.files = filesFromJson(query.value(column++).toString());
        record.signedPackage = query.value(column++).toBool();
        for (QString *text : {&record.signer, &record.tool, &record.outcome, &record.error})
            *text = query.value(column++).toString();
        record.seconds = query.value(column++).toDouble();
        record.received = QDateTime::fromString(query.value(column++).toString(), Qt::ISODate);
        if (!each(record))
            break;
    }
    return true;
}
