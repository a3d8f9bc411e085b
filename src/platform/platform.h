#pragma once

#include <QString>

namespace Platform {

// File name of an external tool on this platform ("dfu-util", "gpg", ...).
QString toolFileName(const QString &baseName);

// The folder that holds the log and the scratch folders. It is private to the user:
// nobody else can have created it or anything inside it. Computed once per process.
QString workingRoot();

// The same decision for a given base folder; workingRoot() uses the system's
// temporary folder. Falls back to a fresh private folder when the usual one is not
// safe to use, and to the usual path (left uncreated) when nothing can be created.
QString privateFolderIn(const QString &baseFolder);

} // namespace Platform

// Marks a folder hidden. On Linux a leading dot in the name does that already.
void setHiddenAttribute(const QString &path);
