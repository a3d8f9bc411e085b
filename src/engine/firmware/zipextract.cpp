#include "zipextract.h"

#include "app/logstream.h"
#include "hashing.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QtDebug>

#include <cerrno>
#include <limits>
#include <zip.h>
#include <zlib.h>

namespace {
// One buffer for all entries of an archive, so memory does not grow with entry sizes.
constexpr int bufferSize = 65535;

// An entry name's parts, whichever separator the archive used.
QStringList nameParts(const QString &name)
{
    return QString(name).replace(QLatin1Char('\\'), QLatin1Char('/')).split(QLatin1Char('/'));
}

// An entry name that cannot leave the target folder: relative, no "..", no drive.
bool isContainedName(const QString &name)
{
    if (name.startsWith(QLatin1Char('/')) || name.startsWith(QLatin1Char('\\')) ||
        (name.size() > 1 && name.at(1) == QLatin1Char(':')))
        return false;
    return !nameParts(name).contains(QLatin1String(".."));
}

// A link already in the target folder would carry an entry anywhere: an entry whose
// path meets one, on the way or at its end, is not written.
bool meetsLink(const QString &outDir, const QString &name)
{
    QString path = outDir;
    for (const QString &part : nameParts(name)) {
        if (part.isEmpty())
            continue;
        path += QLatin1Char('/') + part;
        if (QFileInfo(path).isSymLink())
            return true;
    }
    return false;
}

// What was written is the entry: its size and CRC are the archive's.
bool matchesEntry(const QString &path, const zip_stat_t &stat, const EntryDigests &written)
{
    const bool sizeOk = !(stat.valid & ZIP_STAT_SIZE) || written.size == stat.size;
    const bool crcOk = !(stat.valid & ZIP_STAT_CRC) || written.crc == stat.crc;
    if (!sizeOk || !crcOk)
        qDebug() << quoted(QStringLiteral("Unpacked file differs from the archive: [%1] %2 of %3 bytes")
                               .arg(path)
                               .arg(written.size)
                               .arg(stat.size));
    return sizeOk && crcOk;
}
} // namespace

bool writeZipEntry(zip_file *file, unsigned size, const QString &path, char *buffer, int bufferSize,
                   EntryDigests *digests)
{
    if (file == nullptr || buffer == nullptr || bufferSize == 0) {
        qDebug() << "zip file, buffer or buffer size is 0";
        return false;
    }
    // Unbuffered: a full disk shows at the write that meets it, not later.
    QFile out(path);
    if (!out.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        qDebug() << quoted(QStringLiteral("Cannot open file: [%1]").arg(path));
        return false;
    }
    // Summed as the bytes go out: the file is not read a second time.
    Digest sha256(Digest::Kind::Sha256);
    uLong crc = crc32(0L, Z_NULL, 0);
    quint64 done = 0;
    while (done < size) {
        const zip_int64_t length = zip_fread(file, buffer, zip_uint64_t(bufferSize));
        if (length < 0) {
            qDebug() << "zip_fread length is less than 0";
            return false;
        }
        if (length == 0) {
            // A damaged archive: the entry ends before its size.
            qDebug() << "zip_fread returned no data before the end of the entry";
            return false;
        }
        if (out.write(buffer, length) != length) {
            qDebug() << quoted(QStringLiteral("Cannot write file: [%1] %2").arg(path, out.errorString()));
            return false;
        }
        if (digests) {
            crc = crc32(crc, reinterpret_cast<const Bytef *>(buffer), uInt(length));
            sha256.add(buffer, length);
        }
        done += quint64(length);
    }
    out.close();
    if (out.error() != QFileDevice::NoError) {
        qDebug() << quoted(QStringLiteral("Cannot close file: [%1] %2").arg(path, out.errorString()));
        return false;
    }
    if (digests)
        *digests = {quint32(crc), done, sha256.hex()};
    return true;
}

bool unzipFile(const QString &archive, const QString &outDir, QHash<QString, QString> *sha256s)
{
    const QByteArray archivePath = QFile::encodeName(archive);
    zip_stat_t stat;
    zip_stat_init(&stat);
    QByteArray buffer(bufferSize, '\0');

    int error = 0;
    zip_t *zip = zip_open(archivePath.constData(), 0, &error);
    if (zip == nullptr) {
        zip_error_to_str(buffer.data(), zip_uint64_t(bufferSize), error, errno);
        qDebug() << quoted(QStringLiteral("zip_open failed: [%1]").arg(QString::fromLocal8Bit(buffer.constData())));
        return false;
    }

    bool ok = true;
    bool createdParents = false;
    const zip_int64_t entries = zip_get_num_entries(zip, 0);
    for (zip_int64_t i = 0; i < entries; ++i) {
        if (zip_stat_index(zip, zip_uint64_t(i), 0, &stat) != 0) {
            qDebug() << "zip_stat_index failed";
            continue;
        }
        const QString name = QString::fromLocal8Bit(stat.name);
        const QString nativeName = QDir::toNativeSeparators(name);
        if (name.isEmpty()) {
            qDebug() << "Zip name length is 0";
            ok = false;
            continue;
        }
        qDebug() << quoted(QStringLiteral("Unzip [%1]").arg(name));
        if (name.endsWith(QLatin1Char('/')) && name.size() < 2) {
            qDebug() << "Zip name length is less than 2";
            ok = false;
            continue;
        }
        if (!isContainedName(name)) {
            qDebug() << quoted(QStringLiteral("Zip entry leaves the target folder: [%1]").arg(name));
            ok = false;
            continue;
        }
        if (meetsLink(outDir, name)) {
            qDebug() << quoted(QStringLiteral("Zip entry meets a link in the target folder: [%1]").arg(name));
            ok = false;
            continue;
        }

        if (name.endsWith(QLatin1Char('/'))) {
            const QString folder = outDir + QDir::separator() + nativeName;
            if (!QDir().mkpath(folder)) {
                qDebug() << quoted(QStringLiteral("Cannot create directory: [%1]").arg(folder));
                ok = false;
            }
            continue;
        }

        zip_file_t *entry = zip_fopen_index(zip, zip_uint64_t(i), 0);
        if (entry == nullptr) {
            qDebug() << "zip_fopen_index failed";
            ok = false;
            continue;
        }
        if (name.contains(QLatin1Char('/'))) {
            const QString folder = QFileInfo(outDir + QDir::separator() + nativeName).path();
            if (!QFileInfo::exists(folder)) {
                createdParents = true;
                if (!QDir().mkpath(folder)) {
                    qDebug() << quoted(QStringLiteral("Cannot create directory: [%1]").arg(folder));
                    ok = false;
                }
            }
        }
        const QString target = outDir + QDir::separator() + nativeName;
        // An entry too large to count in an unsigned would be cut short when written.
        EntryDigests digests;
        const bool written = stat.size <= std::numeric_limits<unsigned>::max() &&
                             writeZipEntry(entry, unsigned(stat.size), target, buffer.data(), bufferSize, &digests);
        zip_fclose(entry);
        if (written && sha256s)
            sha256s->insert(QDir::cleanPath(target), digests.sha256);
        if (!written || !matchesEntry(target, stat, digests)) {
            if (sha256s)
                sha256s->remove(QDir::cleanPath(target));
            // Half a file must not be taken for a firmware by the steps after this one.
            QFile::remove(target);
            ok = false;
        }
    }
    zip_close(zip);

    if (ok)
        QFile::remove(archive);
    if (createdParents)
        qDebug() << "Zip package contains no seperate directory entries";
    return ok;
}
