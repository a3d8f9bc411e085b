#include "singleinstance.h"
#include "platform.h"

#include <QFile>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

SingleInstance::SingleInstance(const QString &key)
{
    lockPath = Platform::workingRoot() + QLatin1String("/instance-") + Platform::instanceKey(key) +
               QLatin1String(".lock");
}

SingleInstance::~SingleInstance()
{
    if (fd >= 0)
        close(fd);
}

bool SingleInstance::acquire()
{
    if (fd >= 0)
        return true;
    fd = open(QFile::encodeName(lockPath).constData(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0)
        return true; // no place for a lock: better to run than to lock the user out
    if (flock(fd, LOCK_EX | LOCK_NB) == 0)
        return true;
    close(fd);
    fd = -1;
    return false;
}
