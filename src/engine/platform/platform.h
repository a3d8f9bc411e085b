#pragma once

#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <cstdio>

namespace Platform {

// File name of an external tool on this platform ("dfu-util", "gpg", ...).
QString toolFileName(const QString &baseName);

// The folder private to the user that holds every instance's folder and lock: nobody
// else can have created it or anything inside it. Computed once per process.
QString workingRoot();

// The same decision for a given base folder; workingRoot() uses the system's
// temporary folder. When the usual folder is not safe to use, a private fallback
// beside it is used instead, the same one at every start. When nothing can be
// created, the usual path is returned uncreated.
QString privateFolderIn(const QString &baseFolder);

// Key of an instance: instances started from the same folder share it.
QString instanceKey(const QString &currentFolder);

// This instance's own folder inside the working root, keyed by the current folder as
// the single-instance guard is: the log and the scratch folders live there, so
// instances started from different folders never touch each other's files. Made on the
// first call.
QString instanceFolder();
// Its path alone: nothing is made.
QString instanceFolderPath();

// A new folder only this user can enter, named prefix plus a unique tail; empty on failure.
QString makePrivateFolder(const QString &prefix);
// The stream goes to a terminal (and not to a file or a pipe).
bool isTerminal(FILE *stream);

// Deletes a folder tree without ever following a symbolic link: a link inside is
// removed as a link, and so is a link given as the folder itself. A path that does
// not exist counts as removed; a plain file given as the folder is refused.
bool removeTree(const QString &path);

enum class SmallFile { Read, Missing, Unreadable, TooLarge };
// Reads a small file that someone else keeps, perhaps on a network share: at most
// maxBytes of it, and only a plain file (a FIFO or a device could keep a read waiting
// for ever). Whoever calls it must be ready to wait: a share that hangs holds any open().
SmallFile readSmallFile(const QString &path, qint64 maxBytes, QByteArray &content);

// Environment for a tool whose messages the program reads: fixed C locale, so the
// texts it looks for do not depend on the user's language.
QProcessEnvironment toolEnvironment();
// A tool runs in a process group of its own, so that a signal to the program's group (a
// terminal's Ctrl-C, a supervisor's stop) reaches the program alone and it decides what
// becomes of the tool; and it dies with the thread that started it, however that ends.
void makeToolProcess(QProcess &process);

// Writes a file's data through to its device and drops the cached copy, so that the
// next read comes from the device itself.
bool flushToDevice(const QString &path);
// Writes a folder's entries through to its device.
bool syncFolder(const QString &path);

// Mounted file systems on removable or USB block devices, by mount path, from the
// kernel's mount table.
QStringList removableDrives(const QString &mountInfo = QStringLiteral("/proc/self/mountinfo"),
                            const QString &sysfsRoot = QStringLiteral("/sys"));
// Whether a block device (such as "/dev/sdb1") is removable or on USB, by sysfs.
bool isRemovableDevice(const QString &device, const QString &sysfsRoot = QStringLiteral("/sys"));

// Names this process for as long as it lives, across machines' restarts and reused
// process ids: its boot, its id and its start time.
QString processIdentity();
// Whether the process so named still runs on this machine.
bool processAlive(const QString &identity);
// The login name of the user this process runs as (a service has no $USER).
QString userName();

} // namespace Platform

// Marks a folder hidden. On Linux a leading dot in the name does that already.
void setHiddenAttribute(const QString &path);
