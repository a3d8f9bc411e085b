#include "portlock.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <pwd.h>
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

// Lock files are made by this user's runs, by root's, or by the service's user.
bool expectedOwner(uid_t uid)
{
    if (uid == geteuid() || uid == 0)
        return true;
    const passwd *service = getpwnam("morvanta");
    return service && service->pw_uid == uid;
}

QString systemError(const QByteArray &path)
{
    return QStringLiteral("%1: %2").arg(QFile::decodeName(path), QString::fromLocal8Bit(strerror(errno)));
}
} // namespace

PortLock::~PortLock()
{
    if (fd < 0)
        return;
    // Still held: nobody else can be using the file now. One of ours goes, so that
    // no file of another user stays in everyone's way.
    struct stat file = {};
    if (!lockedPath.isEmpty() && fstat(fd, &file) == 0 && file.st_uid == geteuid())
        unlink(lockedPath.constData());
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
    // A file removed by the run that held it between our open and our lock: once more.
    for (int attempt = 0; attempt < 8; ++attempt) {
        bool retry = false;
        if (lockOnce(path, &retry))
            return true;
        if (!retry)
            return false;
    }
    lastError = QStringLiteral("%1 keeps changing").arg(QFile::decodeName(path));
    return false;
}

bool PortLock::lockOnce(const QByteArray &path, bool *retry)
{
    // Without blocking, and without following a link: a FIFO planted in its place must
    // not hold the open, a link must not lead elsewhere. Another user's file in a sticky
    // folder opens without O_CREAT only.
    const int flags = O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;
    int lockFd = open(path.constData(), flags);
    if (lockFd < 0 && errno == ENOENT) {
        lockFd = open(path.constData(), flags | O_CREAT | O_EXCL, 0644);
        if (lockFd < 0 && errno == EEXIST)
            lockFd = open(path.constData(), flags);
    }
    if (lockFd < 0) {
        lastError = errno == ELOOP ? QStringLiteral("%1 is a symbolic link, not a lock file").arg(QFile::decodeName(path))
                                   : systemError(path);
        return false;
    }
    struct stat file = {};
    if (fstat(lockFd, &file) != 0 || !S_ISREG(file.st_mode) || !expectedOwner(file.st_uid)) {
        lastError = !S_ISREG(file.st_mode)
                        ? QStringLiteral("%1 is no lock file: something else stands at its path").arg(QFile::decodeName(path))
                        : QStringLiteral("%1 belongs to another user (%2): remove it if no run of theirs flashes there")
                              .arg(QFile::decodeName(path))
                              .arg(file.st_uid);
        close(lockFd);
        return false;
    }
    if (flock(lockFd, LOCK_EX | LOCK_NB) != 0) {
        lastError = errno == EWOULDBLOCK ? QString() : systemError(path);
        close(lockFd);
        return false;
    }
    // Locked: is it still the file at the path, or one its holder removed meanwhile?
    struct stat current = {};
    if (stat(path.constData(), &current) != 0 || current.st_ino != file.st_ino || current.st_dev != file.st_dev) {
        close(lockFd);
        *retry = true;
        return false;
    }
    if (fd >= 0)
        close(fd);
    fd = lockFd;
    lockedPath = path;
    return true;
}
