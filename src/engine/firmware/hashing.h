#pragma once

#include <QStringList>

// Writes the MD5 digest of every file to the log. False if a file could not be opened;
// the other files are still hashed.
bool calculateHashes(const QStringList &files);

// The file's SHA-256 in hex; empty when it cannot be read.
QString sha256Of(const QString &path);
