#include "portlock.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
// A port comes from the tool's output: only its plain characters make the name.
QString lockName(const QString &port)
{
    QString name = QStringLiteral("morvanta-port-");
    for (const QChar c : port)
        name += (c.isLetterOrNumber() && c.unicode() < 128) || c == QLatin1Char('-') || c == QLatin1Char('.')
                    ? QString(c)
                    : QStringLiteral("_%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
    return name + QLatin1String(".lock");
}
} // namespace

PortLock::~PortLock()
{
    if (fd >= 0)
        close(fd);
}

QString PortLock::folder()
{
    // /run/lock is every user's and sticky: nobody removes another's lock file.
    const QString system = QStringLiteral("/run/lock");
    return QFileInfo(system).isWritable() ? system : QStringLiteral("/tmp");
}

bool PortLock::lock(const QString &port)
{
    const QByteArray path = QFile::encodeName(folder() + QLatin1Char('/') + lockName(port));
    // Another user's lock file in a sticky folder opens without O_CREAT only; a
    // link planted in its place is not followed.
    int lockFd = open(path.constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (lockFd < 0 && errno == ENOENT) {
        lockFd = open(path.constData(), O_RDONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
        if (lockFd < 0 && errno == EEXIST)
            lockFd = open(path.constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    }
    if (lockFd < 0) {
        lastError = QStringLiteral("%1: %2").arg(QFile::decodeName(path), QString::fromLocal8Bit(strerror(errno)));
        return false;
    }
    if (flock(lockFd, LOCK_EX | LOCK_NB) != 0) {
        lastError = errno == EWOULDBLOCK ? QString()
                                         : QStringLiteral("%1: %2").arg(QFile::decodeName(path),
                                                                        QString::fromLocal8Bit(strerror(errno)));
        close(lockFd);
        return false;
    }
    if (fd >= 0)
        close(fd);
    fd = lockFd;
    return true;
}
