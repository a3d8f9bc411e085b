#include "hashing.h"

#include "app/logstream.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>
#include <QtDebug>

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
        QCryptographicHash hash(QCryptographicHash::Md5);
        hash.addData(&file);
        qDebug() << "MD5 : " << quoted(QString::fromLatin1(hash.result().toHex())) << "\n";
        file.close();
    }
    return ok;
}

QString sha256Of(const QString &path)
{
    QFile file(path);
    QCryptographicHash sha256(QCryptographicHash::Sha256);
    if (!file.open(QIODevice::ReadOnly) || !sha256.addData(&file))
        return {};
    return QString::fromLatin1(sha256.result().toHex());
}
