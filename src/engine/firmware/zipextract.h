#pragma once

#include <QHash>
#include <QString>

struct zip_file;

// Unpacks an archive into outDir (which exists) and deletes the archive when every
// entry was written. Entries that would land outside outDir are failed entries.
// sha256s: each written file's SHA-256 (hex), by its clean path.
bool unzipFile(const QString &archive, const QString &outDir, QHash<QString, QString> *sha256s = nullptr);

// What was written of an entry.
struct EntryDigests {
    quint32 crc = 0;
    quint64 size = 0;
    QString sha256; // hex
};

// Copies one open entry of `size` bytes to path through the caller's buffer; digests: what
// went out, summed on the way.
bool writeZipEntry(zip_file *file, unsigned size, const QString &path, char *buffer, int bufferSize,
                   EntryDigests *digests = nullptr);
