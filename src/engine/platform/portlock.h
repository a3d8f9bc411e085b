#pragma once

#include <QString>

// One run per USB port: a lock that every user's runs on this machine see, held from
// the choice of the device to the end of the run and let go by the kernel when the
// process dies, however it dies.
class PortLock
{
public:
    PortLock() = default;
    ~PortLock();
    PortLock(const PortLock &) = delete;
    PortLock &operator=(const PortLock &) = delete;

    // False when another run holds the port, or the lock cannot be had at all (then
    // error() says why). Never waits: the lock folder is every user's, and whatever
    // someone put at the lock's path is refused at once unless it is a lock file of ours.
    bool lock(const QString &port);
    QString error() const { return lastError; }

    // Where the locks live: the system's lock folder, shared by all users.
    static QString folder();

private:
    bool lockOnce(const QByteArray &path, bool *retry);

    int fd = -1;
    QByteArray lockedPath; // removed when let go, if it is this user's
    QString lastError;
};
