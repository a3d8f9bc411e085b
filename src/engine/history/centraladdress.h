#pragma once

#include <QList>
#include <QPair>
#include <QSqlDatabase>
#include <QString>

// Where the plant's central record is: a libpq connection URI
// (postgresql://[user@][host][:port]/dbname[?param=value&...]), checked before any use.
// Passwords come from libpq's password file only: a command line is every user's to read.
class CentralAddress
{
public:
    enum class Problem { None, NotAUri, Password };

    CentralAddress() = default;
    // Empty text: no central record.
    static CentralAddress parse(const QString &text, Problem *problem, QString *why);

    bool isSet() const { return !uri.isEmpty(); }
    QString text() const { return uri; }
    // The connection's parameters, with time-outs that keep a dead network path from
    // holding anything longer than a few seconds, unless the URI sets its own.
    void apply(QSqlDatabase &db) const;

private:
    QString uri;
    QString host;
    int port = -1;
    QString user;
    QString database;
    QList<QPair<QString, QString>> parameters;
};
