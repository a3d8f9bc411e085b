#pragma once

#include <QSqlDatabase>
#include <QString>

// The local history's tables and their versions (SQLite's user_version): 1 the first
// file, 2 adds the record's UUID, the station, operator and order, and the mark of what
// the central record took.
namespace HistorySchema {
constexpr int version = 2;

// The file's version: 0 empty, -1 unreadable.
int versionOf(QSqlDatabase &db, QString *error);
// Makes or migrates the tables in one transaction, so that runs opening an old file at
// once migrate it once. busy: the failure met another writer.
bool setUp(QSqlDatabase &db, QString *error, bool *busy);
// A file newer than this program: left as it is.
QString newerText(const QString &path, int found);
} // namespace HistorySchema
