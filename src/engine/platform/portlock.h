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

    // False when another run holds the port, or the lock cannot be had at all
    // (then error() says why).
    bool lock(const QString &port);
    QString error() const { return lastError; }

    // Where the locks live: the system's lock folder, shared by all users.
    static QString folder();

private:
    int fd = -1;
    QString lastError;
};
