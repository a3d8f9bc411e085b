#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>

#include <atomic>

// gpg's command line: check the signature, decrypt, write the plain archive to
// tempPath/extractName/outName. Logs the list.
QStringList gpgArguments(const QString &homeDir, const QString &tempPath, const QString &extractName,
                         const QString &outName, const QString &inputFile);

// Where the decrypted archives of these signed files will lie: the file name cut at
// its first ".gpg", in tempPath/ZelkoExtract. Logs the list.
QStringList decryptedFileList(const QString &tempPath, const QStringList &encrypted);

// gpg's status lines say that a signature by a key of the given ring was checked
// and found good, and that signed data was written.
bool signedByOurRing(const QByteArray &statusOutput);

enum class GpgOutcome { Done, StartFailed, OpenFailed, BadSignature };

// The fingerprint of the key that made a valid signature, from gpg's status lines.
QString signerFingerprint(const QByteArray &statusOutput);

// One run of gpg on the calling thread; its output goes to the log. `stop` kills it.
// When the signature is good, *signer gets the signing key's fingerprint.
GpgOutcome runGpg(QProcess &process, const QString &gpgPath, const QStringList &arguments,
                  const std::atomic<bool> &stop, QString *signer = nullptr);
