#include "historyschema.h"

#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

namespace {

// A version 4 UUID from SQLite's own randomness, for the records of an old file.
const char *const sqlUuid =
    "lower(hex(randomblob(4)) || '-' || hex(randomblob(2)) || '-4' || substr(hex(randomblob(2)), 2) || '-' || "
    "substr('89ab', 1 + abs(random() % 4), 1) || substr(hex(randomblob(2)), 2) || '-' || hex(randomblob(6)))";

bool run(QSqlDatabase &db, const QString &statement, QString *error, bool *busy)
{
    QSqlQuery query(db);
    if (query.exec(statement))
        return true;
    *error = query.lastError().text();
    // SQLITE_BUSY, SQLITE_LOCKED
    const QString code = query.lastError().nativeErrorCode();
    *busy = code == QLatin1String("5") || code == QLatin1String("6");
    return false;
}

bool tableExists(QSqlDatabase &db)
{
    QSqlQuery query(db);
    return query.exec(QStringLiteral("SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = 'flashes'")) &&
           query.next();
}

QStringList firstTables()
{
    return {QStringLiteral("CREATE TABLE flashes (id INTEGER PRIMARY KEY, started TEXT NOT NULL, "
                           "ended TEXT, host TEXT, user TEXT, program TEXT, process TEXT, port TEXT, "
                           "serial TEXT, before TEXT, after TEXT, version TEXT, files TEXT, signed INTEGER, "
                           "signer TEXT, tool TEXT, outcome TEXT NOT NULL, error TEXT, seconds REAL)"),
            QStringLiteral("CREATE INDEX flashes_serial ON flashes (serial)"),
            // The order they are read in, without a sort of all of them first.
            QStringLiteral("CREATE INDEX flashes_started ON flashes (started, id)")};
}

QStringList toSecond()
{
    return {QStringLiteral("ALTER TABLE flashes ADD COLUMN uuid TEXT"),
            QStringLiteral("ALTER TABLE flashes ADD COLUMN station TEXT"),
            QStringLiteral("ALTER TABLE flashes ADD COLUMN operator TEXT"),
            QStringLiteral("ALTER TABLE flashes ADD COLUMN work_order TEXT"),
            QStringLiteral("ALTER TABLE flashes ADD COLUMN sent TEXT"),
            QStringLiteral("UPDATE flashes SET uuid = %1, station = host").arg(QLatin1String(sqlUuid)),
            QStringLiteral("CREATE UNIQUE INDEX flashes_uuid ON flashes (uuid)"),
            // The outbox: what is left to send, found without a scan of every record.
            QStringLiteral("CREATE INDEX flashes_unsent ON flashes (id) WHERE sent IS NULL")};
}
} // namespace

int HistorySchema::versionOf(QSqlDatabase &db, QString *error)
{
    QSqlQuery query(db);
    if (!query.exec(QStringLiteral("PRAGMA user_version")) || !query.next()) {
        *error = query.lastError().text();
        return -1;
    }
    const int found = query.value(0).toInt();
    // The first files carried no version.
    return found == 0 && tableExists(db) ? 1 : found;
}

bool HistorySchema::setUp(QSqlDatabase &db, QString *error, bool *busy)
{
    *busy = false;
    if (!run(db, QStringLiteral("BEGIN IMMEDIATE"), error, busy))
        return false;
    const int found = versionOf(db, error);
    QStringList steps;
    if (found == 0)
        steps << firstTables();
    if (found >= 0 && found < 2)
        steps << toSecond();
    if (found < 0 || found > version) {
        if (found > version)
            *error = QStringLiteral("its schema is version %1, newer than this program knows (%2)").arg(found).arg(version);
        run(db, QStringLiteral("ROLLBACK"), error, busy);
        return false;
    }
    if (!steps.isEmpty())
        steps << QStringLiteral("PRAGMA user_version = %1").arg(version);
    for (const QString &step : std::as_const(steps)) {
        if (!run(db, step, error, busy)) {
            QString ignored;
            bool alsoIgnored = false;
            run(db, QStringLiteral("ROLLBACK"), &ignored, &alsoIgnored);
            return false;
        }
    }
    return run(db, QStringLiteral("COMMIT"), error, busy);
}

QString HistorySchema::newerText(const QString &path, int found)
{
    return QStringLiteral("The history %1 has schema version %2, newer than this program knows (%3): "
                          "use a newer program; the file is left as it is")
        .arg(path)
        .arg(found)
        .arg(version);
}
