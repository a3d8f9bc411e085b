#include "platform.h"

#include "app/logstream.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStorageInfo>
#include <QtDebug>

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

QString Platform::toolFileName(const QString &baseName)
{
    return baseName;
}

static bool isPrivateFolderOfMine(const QByteArray &path)
{
    struct stat st;
    if (lstat(path.constData(), &st) != 0)
        return false;
    // A link could point anywhere; a folder of someone else's, or one others may
    // write into, could hold files planted before we came.
    if (!S_ISDIR(st.st_mode) || st.st_uid != getuid() || (st.st_mode & (S_IWGRP | S_IWOTH)))
        return false;
    if (st.st_mode & (S_IRWXG | S_IRWXO))
        chmod(path.constData(), S_IRWXU);
    return true;
}

// The first private fallback folder of ours beside the usual one, by name.
static QString firstPrivateFallback(const QString &base, const QString &prefix)
{
    const QStringList names =
        QDir(base).entryList({prefix.mid(base.size() + 1) + QLatin1String("-??????")},
                             QDir::Dirs | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    for (const QString &name : names) {
        const QString path = base + QLatin1Char('/') + name;
        if (isPrivateFolderOfMine(QFile::encodeName(path)))
            return path;
    }
    return QString();
}

QString Platform::privateFolderIn(const QString &baseFolder)
{
    const QString base = QDir::cleanPath(baseFolder);
    const QString usual = base + QLatin1String("/morvanta-") + QString::number(getuid());
    const QByteArray usualPath = QFile::encodeName(usual);
    if (mkdir(usualPath.constData(), S_IRWXU) == 0)
        return usual;
    const int mkdirError = errno;
    if (mkdirError == EEXIST && isPrivateFolderOfMine(usualPath))
        return usual;
    if (mkdirError != EEXIST)
        return usual; // nothing can be created here: the run goes on without a log

    // The same fallback at every start keeps the single-instance guard working and
    // keeps fallback folders from piling up.
    QString chosen = firstPrivateFallback(base, usual);
    if (chosen.isEmpty()) {
        QByteArray fresh = usualPath + "-XXXXXX";
        if (mkdtemp(fresh.data()) == nullptr)
            return usual;
        // Two starts at the same moment each made one: both settle on the first.
        chosen = firstPrivateFallback(base, usual);
        if (chosen != QFile::decodeName(fresh))
            rmdir(fresh.constData());
        if (chosen.isEmpty())
            return usual;
    }
    qWarning() << "Working folder" << quoted(usual) << "is not private, using" << quoted(chosen);
    return chosen;
}

QString Platform::workingRoot()
{
    static const QString root = privateFolderIn(QDir::tempPath());
    return root;
}

QString Platform::instanceKey(const QString &currentFolder)
{
    return QString::fromLatin1(QCryptographicHash::hash(currentFolder.toUtf8(), QCryptographicHash::Sha1).toHex());
}

QString Platform::instanceFolder()
{
    static const QString folder = [] {
        const QString path = workingRoot() + QLatin1String("/instance-") +
                             instanceKey(QDir(QDir::currentPath()).absolutePath());
        // Inside the private root nobody else can have put anything in its place.
        mkdir(QFile::encodeName(path).constData(), S_IRWXU);
        return path;
    }();
    return folder;
}

// Empties the open folder fd; entries are looked at without following links.
static bool removeInside(int fd)
{
    const int listFd = dup(fd);
    DIR *dir = listFd < 0 ? nullptr : fdopendir(listFd);
    if (!dir) {
        if (listFd >= 0)
            close(listFd);
        return false;
    }
    std::vector<std::string> names;
    while (const dirent *entry = readdir(dir)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    closedir(dir);

    for (const std::string &name : names) {
        struct stat st;
        if (fstatat(fd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno == ENOENT)
                continue;
            return false;
        }
        if (S_ISDIR(st.st_mode)) {
            const int sub = openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (sub < 0)
                return false;
            const bool emptied = removeInside(sub);
            close(sub);
            if (!emptied || unlinkat(fd, name.c_str(), AT_REMOVEDIR) != 0)
                return false;
        } else if (unlinkat(fd, name.c_str(), 0) != 0) {
            return false;
        }
    }
    return true;
}

bool Platform::removeTree(const QString &path)
{
    const QByteArray native = QFile::encodeName(path);
    struct stat st;
    if (lstat(native.constData(), &st) != 0)
        return errno == ENOENT;
    if (S_ISLNK(st.st_mode))
        return unlink(native.constData()) == 0;
    if (!S_ISDIR(st.st_mode))
        return false;
    const int fd = open(native.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool emptied = removeInside(fd);
    close(fd);
    return emptied && rmdir(native.constData()) == 0;
}

QProcessEnvironment Platform::toolEnvironment()
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("LC_ALL"), QStringLiteral("C"));
    env.remove(QStringLiteral("LANGUAGE"));
    return env;
}

bool Platform::flushToDevice(const QString &path)
{
    const int fd = open(QFile::encodeName(path).constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return false;
    bool ok = fsync(fd) == 0;
    // Clean pages only: after the fsync every page is clean, and all of them go.
    ok = posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED) == 0 && ok;
    return close(fd) == 0 && ok;
}

bool Platform::syncFolder(const QString &path)
{
    const int fd = open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool ok = fsync(fd) == 0;
    return close(fd) == 0 && ok;
}

bool Platform::isRemovableDevice(const QString &device, const QString &sysfsRoot)
{
    // /dev/disk/by-... and /dev/mapper/... are links to the kernel's name.
    const QString resolved = QFileInfo(device).canonicalFilePath();
    const QString name = QFileInfo(resolved.isEmpty() ? device : resolved).fileName();
    const QString block = QFileInfo(sysfsRoot + QLatin1String("/class/block/") + name).canonicalFilePath();
    if (name.isEmpty() || block.isEmpty())
        return false;
    if (block.contains(QLatin1String("/usb")))
        return true;
    // A partition has no flag of its own: its disk, the folder above, has.
    QFile flag(block + QLatin1String("/removable"));
    if (!flag.exists())
        flag.setFileName(QFileInfo(block).path() + QLatin1String("/removable"));
    return flag.open(QIODevice::ReadOnly) && flag.readAll().trimmed() == "1";
}

QStringList Platform::removableDrives()
{
    QStringList drives;
    for (const QStorageInfo &volume : QStorageInfo::mountedVolumes()) {
        const QString device = QString::fromLocal8Bit(volume.device());
        if (volume.isValid() && volume.isReady() && device.startsWith(QLatin1String("/dev/")) &&
            isRemovableDevice(device))
            drives << volume.rootPath();
    }
    return drives;
}

void setHiddenAttribute(const QString &)
{
}
