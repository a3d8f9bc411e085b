#include "platform.h"

#include "app/logstream.h"

#include <QDir>
#include <QFile>
#include <QtDebug>

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

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

QString Platform::privateFolderIn(const QString &baseFolder)
{
    const QString usual = QDir::cleanPath(baseFolder) + QLatin1String("/morvanta-") + QString::number(getuid());
    const QByteArray usualPath = QFile::encodeName(usual);
    if (mkdir(usualPath.constData(), S_IRWXU) == 0)
        return usual;
    const int mkdirError = errno;
    if (mkdirError == EEXIST && isPrivateFolderOfMine(usualPath))
        return usual;
    if (mkdirError != EEXIST)
        return usual; // nothing can be created here: the run goes on without a log

    QByteArray fresh = usualPath + "-XXXXXX";
    if (mkdtemp(fresh.data()) == nullptr)
        return usual;
    qWarning() << "Working folder" << quoted(usual) << "is not private, using" << quoted(QFile::decodeName(fresh));
    return QFile::decodeName(fresh);
}

QString Platform::workingRoot()
{
    static const QString root = privateFolderIn(QDir::tempPath());
    return root;
}

void setHiddenAttribute(const QString &)
{
}
