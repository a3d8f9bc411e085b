#pragma once

#include <QString>

struct zip_file;

// Unpacks an archive into outDir (which exists) and deletes the archive when every
// entry was written. Entries that would land outside outDir are failed entries.
bool unzipFile(const QString &archive, const QString &outDir);

// Copies one open entry of `size` bytes to path through the caller's buffer.
bool writeZipEntry(zip_file *file, unsigned size, const QString &path, char *buffer, int bufferSize);
