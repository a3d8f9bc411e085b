#include "hashing.h"

#include "app/logstream.h"

#include <QFile>
#include <QFileInfo>
#include <QtDebug>

#include <openssl/evp.h>

bool calculateHashes(const QStringList &files)
{
    bool ok = true;
    for (const QString &path : files) {
        // A FIFO or a device would hold the open, or the read, for ever.
        if (!QFileInfo(path).isFile()) {
            qDebug() << "Not a regular file: " << quoted(path);
            ok = false;
            continue;
        }
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            qDebug() << "Unable to open file: " << quoted(path);
            ok = false;
            continue;
        }
        qDebug() << "File: " << quoted(path);
        // Read in pieces: the digest is the same, and memory stays flat for big packages.
        Digest md5(Digest::Kind::Md5);
        md5.add(file);
        qDebug() << "MD5 : " << quoted(md5.hex()) << "\n";
        file.close();
    }
    return ok;
}

QString sha256Of(const QString &path)
{
    QFile file(path);
    Digest sha256(Digest::Kind::Sha256);
    if (!file.open(QIODevice::ReadOnly) || !sha256.add(file))
        return {};
    return sha256.hex();
}

Digest::Digest(Kind kind) : context(EVP_MD_CTX_new())
{
    EVP_DigestInit_ex(context, kind == Kind::Md5 ? EVP_md5() : EVP_sha256(), nullptr);
}

Digest::~Digest()
{
    EVP_MD_CTX_free(context);
}

void Digest::add(const char *data, qint64 size)
{
    EVP_DigestUpdate(context, data, size_t(size));
}

bool Digest::add(QIODevice &device)
{
    QByteArray buffer(256 * 1024, Qt::Uninitialized);
    for (;;) {
        const qint64 length = device.read(buffer.data(), buffer.size());
        if (length < 0)
            return false;
        if (length == 0)
            return true;
        add(buffer.constData(), length);
    }
}

QString Digest::hex()
{
    unsigned char sum[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EVP_DigestFinal_ex(context, sum, &size);
    return QString::fromLatin1(QByteArray(reinterpret_cast<const char *>(sum), int(size)).toHex());
}
