#pragma once

#include <QString>

// A working folder that says whether its run still lives: the run holds a lock on a
// file inside it for as long as it runs, and the kernel lets go of it when the process
// dies. So a later run can tell a folder left by a killed run from a busy one.
class OwnedFolder
{
public:
    OwnedFolder() = default;
    ~OwnedFolder();
    OwnedFolder(const OwnedFolder &) = delete;
    OwnedFolder &operator=(const OwnedFolder &) = delete;

    // A new private folder named prefix plus a unique tail, held; empty on failure.
    QString make(const QString &prefix);
    // Lets go of it (the folder stays until removed).
    void release();

    // Removes every folder named prefix plus a tail whose run has gone; one whose run
    // still lives, and anything that is a link, is left alone. Returns how many went.
    static int removeAbandoned(const QString &prefix);

private:
    int fd = -1;
};
