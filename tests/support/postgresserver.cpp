#include "postgresserver.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QSqlDatabase>

#include <pwd.h>
#include <unistd.h>

namespace TestSupport {

namespace {
const QString binDir = QStringLiteral("/usr/lib/postgresql/15/bin");
}

PostgresServer::PostgresServer() : folder(QStringLiteral("/tmp/pg-XXXXXX")) // a socket path is short
{
    if (geteuid() == 0) {
        const passwd *nobody = getpwnam("nobody");
        if (nobody && chown(QFile::encodeName(folder.path()).constData(), nobody->pw_uid, nobody->pw_gid) != 0)
            lastError = QStringLiteral("cannot give the folder to nobody");
    }
    QFile::setPermissions(folder.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadGroup |
                                             QFile::ExeGroup | QFile::ReadOther | QFile::ExeOther);
}

PostgresServer::~PostgresServer()
{
    if (running)
        stop(true);
}

QString PostgresServer::unavailable()
{
    if (!QFileInfo(binDir + QLatin1String("/initdb")).isExecutable())
        return QStringLiteral("needs Debian's postgresql-15");
    if (!QSqlDatabase::isDriverAvailable(QStringLiteral("QPSQL")))
        return QStringLiteral("needs Qt's PostgreSQL driver (libqt6sql6-psql)");
    // A root of a user namespace of its own has no other user to run the server as.
    if (geteuid() == 0 && QProcess::execute(QStringLiteral("setpriv"),
                                            {QStringLiteral("--reuid=nobody"), QStringLiteral("--regid=nogroup"),
                                             QStringLiteral("--clear-groups"), QStringLiteral("true")}) != 0)
        return QStringLiteral("needs a user other than root to run PostgreSQL as");
    return QString();
}

bool PostgresServer::run(const QString &program, const QStringList &args, QString *out)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    QStringList command{binDir + QLatin1Char('/') + program};
    command += args;
    if (geteuid() == 0 && program != QLatin1String("psql"))
        command = QStringList{QStringLiteral("--reuid=nobody"), QStringLiteral("--regid=nogroup"),
                              QStringLiteral("--clear-groups"), QStringLiteral("--")} +
                  command;
    const QString runner = geteuid() == 0 && program != QLatin1String("psql") ? QStringLiteral("setpriv") : command.takeFirst();
    process.start(runner, command);
    const bool ended = process.waitForFinished(60000);
    const QString output = QString::fromLocal8Bit(process.readAll());
    if (out)
        *out = output;
    if (!ended || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        lastError = QStringLiteral("%1: %2").arg(program, output.trimmed());
        return false;
    }
    return true;
}

bool PostgresServer::start()
{
    if (running)
        return true;
    const QString data = folder.path() + QLatin1String("/data");
    if (!initialised) {
        if (!run(QStringLiteral("initdb"), {QStringLiteral("-D"), data, QStringLiteral("-A"), QStringLiteral("trust"),
                                            QStringLiteral("-U"), QStringLiteral("tester"), QStringLiteral("--no-sync")}))
            return false;
        initialised = true;
    }
    running = run(QStringLiteral("pg_ctl"),
                  {QStringLiteral("-D"), data, QStringLiteral("-l"), folder.path() + QLatin1String("/server.log"),
                   QStringLiteral("-w"), QStringLiteral("-o"), QStringLiteral("-k %1 -h '' -F").arg(folder.path()),
                   QStringLiteral("start")});
    if (running && query(QStringLiteral("SELECT 1 FROM pg_database WHERE datname = 'morvanta'"), "postgres").isEmpty()) {
        if (lastError.isEmpty())
            query(QStringLiteral("CREATE DATABASE morvanta"), "postgres");
        running = lastError.isEmpty();
    }
    return running;
}

bool PostgresServer::stop(bool immediate)
{
    running = false;
    return run(QStringLiteral("pg_ctl"), {QStringLiteral("-D"), folder.path() + QLatin1String("/data"),
                                          QStringLiteral("-m"), immediate ? QStringLiteral("immediate") : QStringLiteral("fast"),
                                          QStringLiteral("-w"), QStringLiteral("stop")});
}

QString PostgresServer::url(const QString &role) const
{
    return QStringLiteral("postgresql://%1@/morvanta?host=%2").arg(role, folder.path());
}

QStringList PostgresServer::query(const QString &sql, const QString &database)
{
    lastError.clear();
    QString out;
    if (!run(QStringLiteral("psql"), {QStringLiteral("-h"), folder.path(), QStringLiteral("-U"), QStringLiteral("tester"),
                                      QStringLiteral("-d"), database, QStringLiteral("-v"), QStringLiteral("ON_ERROR_STOP=1"),
                                      QStringLiteral("-qAtX"), QStringLiteral("-c"), sql},
             &out))
        return {};
    return out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

} // namespace TestSupport
