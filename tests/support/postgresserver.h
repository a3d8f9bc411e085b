#pragma once

#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace TestSupport {

// A PostgreSQL server of the test's own: Debian's postgresql-15, in a short folder,
// reached through a Unix socket there only, run as `nobody` when the test runs as root
// (initdb refuses root). One database `morvanta`, its role `tester` trusted.
class PostgresServer
{
public:
    PostgresServer();
    ~PostgresServer();
    PostgresServer(const PostgresServer &) = delete;
    PostgresServer &operator=(const PostgresServer &) = delete;

    // Why it cannot run here, or empty.
    static QString unavailable();
    bool start();
    // -m immediate: as if the server's machine went away.
    bool stop(bool immediate = false);
    QString error() const { return lastError; }
    // A libpq URI of the database through the server's socket.
    QString url(const QString &role = QStringLiteral("tester")) const;
    // The rows psql prints for one statement, fields separated by '|'; error() says whether it failed.
    QStringList query(const QString &sql, const QString &database = QStringLiteral("morvanta"));

private:
    bool run(const QString &program, const QStringList &args, QString *out = nullptr);

    QTemporaryDir folder;
    bool initialised = false;
    bool running = false;
    QString lastError;
};

} // namespace TestSupport
