#include "ownedfolder.h"

#include "platform.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
const char ownerFile[] = ".owner";
// A folder without its owner file yet may be one being made this moment.
constexpr int youngSeconds = 60;
} // namespace

OwnedFolder::~OwnedFolder()
{
    release();
}

void OwnedFolder::release()
{
    if (fd >= 0)
        close(fd);
    fd = -1;
}

QString OwnedFolder::make(const QString &prefix)
{
    release();
    // A cleaner of another run may hold the new owner file for a moment: try again.
    for (int attempt = 0; attempt < 3; ++attempt) {
        const QString folder = Platform::makePrivateFolder(prefix);
        if (folder.isEmpty())
            return QString();
        const QByteArray owner = QFile::encodeName(folder + QLatin1Char('/') + QLatin1String(ownerFile));
        fd = open(owner.constData(), O_RDONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) == 0)
            return folder;
        release();
        Platform::removeTree(folder);
    }
    return QString();
}

int OwnedFolder::removeAbandoned(const QString &prefix)
{
    const QFileInfo pattern(prefix);
    const QDir parent = pattern.dir();
    int removed = 0;
    const QStringList names = parent.entryList({pattern.fileName() + QLatin1Char('*')},
                                               QDir::Dirs | QDir::NoSymLinks | QDir::Hidden | QDir::NoDotAndDotDot);
    for (const QString &name : names) {
        const QString folder = parent.filePath(name);
        const QByteArray owner = QFile::encodeName(folder + QLatin1Char('/') + QLatin1String(ownerFile));
        const int ownerFd = open(owner.constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
        bool abandoned = false;
        if (ownerFd >= 0) {
            abandoned = flock(ownerFd, LOCK_EX | LOCK_NB) == 0;
            close(ownerFd); // lets go of it again
        } else {
            abandoned = QFileInfo(folder).lastModified().secsTo(QDateTime::currentDateTime()) > youngSeconds;
        }
        if (abandoned && Platform::removeTree(folder))
            ++removed;
    }
    return removed;
}
