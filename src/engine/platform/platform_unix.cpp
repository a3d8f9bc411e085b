#include "platform.h"

#include "app/logstream.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QtDebug>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <string>
#include <sys/prctl.h>
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

QString Platform::instanceFolderPath()
{
    static const QString path =
        workingRoot() + QLatin1String("/instance-") + instanceKey(QDir(QDir::currentPath()).absolutePath());
    return path;
}

QString Platform::makePrivateFolder(const QString &prefix)
{
    QByteArray path = QFile::encodeName(prefix + QLatin1String("XXXXXX"));
    return mkdtemp(path.data()) ? QFile::decodeName(path) : QString();
}

bool Platform::isTerminal(FILE *stream)
{
    return isatty(fileno(stream));
}

QString Platform::instanceFolder()
{
    static const QString folder = [] {
        const QString path = instanceFolderPath();
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

Platform::SmallFile Platform::readSmallFile(const QString &path, qint64 maxBytes, QByteArray &content)
{
    content.clear();
    const int fd = open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0)
        return errno == ENOENT || errno == ENOTDIR ? SmallFile::Missing : SmallFile::Unreadable;
    struct stat st;
    SmallFile result = SmallFile::Read;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode))
        result = SmallFile::Unreadable;
    else if (st.st_size > maxBytes)
        result = SmallFile::TooLarge;
    // One byte more than allowed tells a file that grew, or lied about its size.
    QByteArray buffer(maxBytes + 1, Qt::Uninitialized);
    qint64 got = 0;
    while (result == SmallFile::Read && got < buffer.size()) {
        const ssize_t n = read(fd, buffer.data() + got, size_t(buffer.size() - got));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            result = SmallFile::Unreadable;
        if (n <= 0)
            break;
        got += n;
    }
    close(fd);
    if (result == SmallFile::Read && got > maxBytes)
        result = SmallFile::TooLarge;
    if (result == SmallFile::Read)
        content = buffer.left(got);
    return result;
}

QProcessEnvironment Platform::toolEnvironment()
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("LC_ALL"), QStringLiteral("C"));
    env.remove(QStringLiteral("LANGUAGE"));
    return env;
}

void Platform::makeToolProcess(QProcess &process)
{
    process.setProcessEnvironment(toolEnvironment());
    const pid_t parent = getpid();
    // After fork, before exec: only async-signal-safe calls.
    process.setChildProcessModifier([parent] {
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        // The parent may have gone between fork and prctl.
        if (getppid() != parent)
            _exit(127);
    });
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

// A field of /proc/self/mountinfo, with its octal escapes (a blank is "\040") undone.
static QString mountField(const QByteArray &field)
{
    QByteArray raw;
    for (int i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size()) {
            bool ok = false;
            const int value = field.mid(i + 1, 3).toInt(&ok, 8);
            if (ok) {
                raw += char(value);
                i += 3;
                continue;
            }
        }
        raw += field[i];
    }
    return QFile::decodeName(raw);
}

QStringList Platform::removableDrives(const QString &mountInfo, const QString &sysfsRoot)
{
    // Read from the kernel's table, not by asking each file system: a network share
    // that hangs would hold the question for minutes, and is no stick anyway.
    QFile table(mountInfo);
    if (!table.open(QIODevice::ReadOnly))
        return {};
    QStringList drives;
    for (const QByteArray &line : table.readAll().split('\n')) {
        const QList<QByteArray> fields = line.split(' ');
        const qsizetype separator = fields.indexOf("-");
        if (separator < 6 || separator + 2 >= fields.size())
            continue;
        const QString mountPoint = mountField(fields.at(4));
        const QString device = mountField(fields.at(separator + 2));
        if (device.startsWith(QLatin1String("/dev/")) && isRemovableDevice(device, sysfsRoot) &&
            !drives.contains(mountPoint))
            drives << mountPoint;
    }
    return drives;
}

void setHiddenAttribute(const QString &)
{
}

namespace {
// Field 22 of /proc/PID/stat, the start time in clock ticks since boot; the command
// name before it may hold blanks and brackets, so counting starts behind its last ")".
QString processStartTime(qint64 pid)
{
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return QString();
    const QByteArray line = stat.read(4096);
    const qsizetype close = line.lastIndexOf(')');
    if (close < 0)
        return QString();
    const QList<QByteArray> fields = line.mid(close + 2).split(' ');
    return QString::fromLatin1(fields.value(19));
}

QString bootId()
{
    QFile file(QStringLiteral("/proc/sys/kernel/random/boot_id"));
    return file.open(QIODevice::ReadOnly) ? QString::fromLatin1(file.readAll().trimmed()) : QString();
}
} // namespace

QString Platform::processIdentity()
{
    const qint64 pid = getpid();
    return QStringLiteral("%1:%2:%3").arg(bootId()).arg(pid).arg(processStartTime(pid));
}

QString Platform::userName()
{
    const passwd *entry = getpwuid(getuid());
    return entry ? QString::fromLocal8Bit(entry->pw_name) : QString::number(getuid());
}

bool Platform::processAlive(const QString &identity)
{
    const QStringList parts = identity.split(QLatin1Char(':'));
    bool ok = false;
    const qint64 pid = parts.value(1).toLongLong(&ok);
    if (parts.size() != 3 || !ok || pid <= 0 || parts.at(0) != bootId())
        return false;
    const QString started = processStartTime(pid);
    return !started.isEmpty() && started == parts.at(2);
}
