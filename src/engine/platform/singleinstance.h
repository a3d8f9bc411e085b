#pragma once

#include <QString>

// Keeps a second instance from starting in the same current folder. The lock is
// held by the kernel for the life of the process, so a crashed instance leaves
// nothing behind that would lock users out.
class SingleInstance
{
public:
    explicit SingleInstance(const QString &key);
    ~SingleInstance();
    SingleInstance(const SingleInstance &) = delete;
    SingleInstance &operator=(const SingleInstance &) = delete;

    // False when another instance holds the key.
    bool acquire();

private:
    QString lockPath;
    int fd = -1;
};
