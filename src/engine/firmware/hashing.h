#pragma once

#include <QIODevice>
#include <QStringList>

// Writes the MD5 digest of every file to the log. False if a file could not be opened;
// the other files are still hashed.
bool calculateHashes(const QStringList &files);

// The file's SHA-256 in hex; empty when it cannot be read.
QString sha256Of(const QString &path);

// A digest summed piece by piece, by OpenSSL (with the processor's SHA instructions where
// it has them: several times Qt's own speed on a package of hundreds of megabytes).
class Digest
{
public:
    enum class Kind { Md5, Sha256 };
    explicit Digest(Kind kind);
    ~Digest();
    Digest(const Digest &) = delete;
    Digest &operator=(const Digest &) = delete;
    void add(const char *data, qint64 size);
    // Reads the device to its end; false on a read error.
    bool add(QIODevice &device);
    QString hex(); // ends the digest

private:
    struct evp_md_ctx_st *context;
};
