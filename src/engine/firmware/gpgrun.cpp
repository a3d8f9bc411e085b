#include "gpgrun.h"

#include "app/logstream.h"
#include "app/settings.h"
#include "app/toolrun.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QtDebug>

QStringList gpgArguments(const QString &homeDir, const QString &tempPath, const QString &extractName,
                         const QString &outName, const QString &inputFile)
{
    const QStringList arguments{QStringLiteral("--batch"),
                                QStringLiteral("--yes"),
                                QStringLiteral("--homedir"),
                                homeDir,
                                QStringLiteral("--always-trust"),
                                // Machine-readable verdicts: the exit code alone also
                                // passes data stored without any signature.
                                QStringLiteral("--status-fd"),
                                QStringLiteral("1"),
                                QStringLiteral("-o"),
                                QDir::fromNativeSeparators(tempPath + QLatin1Char('/') + extractName +
                                                           QLatin1Char('/') + outName),
                                inputFile};
    qDebug() << "GPG Arguments " << quoted(arguments);
    return arguments;
}

QStringList decryptedFileList(const QString &tempPath, const QStringList &encrypted)
{
    QStringList files;
    for (const QString &path : encrypted) {
        QString name = QFileInfo(path).fileName();
        const int cut = name.indexOf(QLatin1String(".gpg"));
        if (cut >= 0)
            name.truncate(cut);
        files << tempPath + QLatin1Char('/') + Settings::getExtractFolderName() + QLatin1Char('/') + name;
    }
    qDebug() << quoted(files);
    return files;
}

bool signedByOurRing(const QByteArray &output)
{
    bool plaintext = false;
    bool good = false;
    bool valid = false;
    static const QList<QByteArray> refusals{"BADSIG",    "ERRSIG",     "EXPSIG",      "EXPKEYSIG",
                                             "REVKEYSIG", "NO_PUBKEY",  "BADMDC",      "DECRYPTION_FAILED",
                                             "FAILURE",   "BADARMOR",   "NODATA",      "UNEXPECTED"};
    for (const QByteArray &line : output.split('\n')) {
        if (!line.startsWith("[GNUPG:] "))
            continue;
        const QByteArray keyword = line.mid(9).split(' ').value(0).trimmed();
        if (refusals.contains(keyword))
            return false;
        plaintext = plaintext || keyword == "PLAINTEXT";
        good = good || keyword == "GOODSIG";
        valid = valid || keyword == "VALIDSIG";
    }
    // GOODSIG without PLAINTEXT is a detached signature: nothing of ours was unpacked.
    return plaintext && good && valid;
}

QString signerFingerprint(const QByteArray &output)
{
    // A fingerprint is hex (40 digits for v4 keys, 64 for v5): nothing else goes into a record.
    static const QRegularExpression hex(QStringLiteral("^[0-9A-F]{40,64}$"));
    for (const QByteArray &line : output.split('\n')) {
        if (!line.startsWith("[GNUPG:] VALIDSIG "))
            continue;
        const QString fingerprint = QString::fromLatin1(line.mid(18).split(' ').value(0).trimmed());
        return hex.match(fingerprint).hasMatch() ? fingerprint : QString();
    }
    return QString();
}

GpgOutcome runGpg(QProcess &process, const QString &gpgPath, const QStringList &arguments,
                  const std::atomic<bool> &stop, QString *signer)
{
    bool openError = false;
    bool overflow = false;
    QByteArray output;
    const ToolResult result = runTool(
        process, gpgPath, arguments,
        [&openError, &overflow, &output](const QByteArray &chunk) {
            qDebug() << "GPG Output " << quoted(chunk);
            // A few lines for a sound file; a hostile one cannot make us hoard.
            overflow = overflow || output.size() + chunk.size() > (1 << 20);
            if (!overflow)
                output += chunk;
            if (QString::fromLocal8Bit(chunk).contains(QLatin1String("can't open")))
                openError = true;
        },
        &stop, 3000);
    // A full disk is no bad signature, whatever the user is told: the log says which.
    for (const char *mark : {"No space left on device", "write error", "error writing", "error flushing"}) {
        if (output.contains(mark)) {
            qWarning() << "GPG could not write the checked archive:" << quoted(QString::fromLatin1(mark));
            break;
        }
    }
    const bool good = result.succeeded() && !openError && !overflow && signedByOurRing(output);
    // gpg writes the content before it has checked the signature: nothing of a failed
    // run may stay behind to be mistaken for a checked archive.
    if (!good) {
        const int target = int(arguments.indexOf(QStringLiteral("-o"))) + 1;
        if (target > 0 && target < arguments.size())
            QFile::remove(arguments.at(target));
    }
    if (!result.started)
        return GpgOutcome::StartFailed;
    if (openError)
        return GpgOutcome::OpenFailed;
    if (!good)
        return GpgOutcome::BadSignature;
    if (signer)
        *signer = signerFingerprint(output);
    return GpgOutcome::Done;
}
