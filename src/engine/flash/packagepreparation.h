#pragma once

#include "flasherror.h"

#include <QHash>
#include <QStringList>

#include <atomic>
#include <functional>

class QProcess;
class Settings;

// What a flash and a USB stick do before their own work: hash the selected files into
// the log, check and decrypt them with gpg (or copy them), unpack the archives into the
// extract folder and list the .sys files of a stage. A step that fails returns false and
// says why in error(); one cut short by the stop flag says nothing.
class PackagePreparation
{
public:
    // Takes the paths from the settings now, on the thread that makes the worker.
    PackagePreparation(Settings *settings, const std::atomic<bool> &stop);

    QString tempPath() const { return temp; }
    QString extractFolder() const;
    QString stagePath(const QString &stage) const;

    bool hash(const QStringList &files);
    // Replaces the selected files by their checked, decrypted archives in the extract folder.
    bool decrypt(QStringList &files, QProcess &gpg, std::atomic<int> &gpgRunning);
    // The same for plain archives, copied.
    bool copy(QStringList &files);
    // Unpacks each archive; afterEach runs after each good one (the pause, progress).
    bool unpack(const QStringList &archives, const std::function<void()> &afterEach);
    // All of it for a flash at once: the MD5s into the log while each selected file is
    // checked (or copied) and unpacked on a thread of its own, so that the two cores and
    // gpg work side by side. What fails is said in the order of the steps above.
    bool prepareAll(const QStringList &files, bool checkSignatures, std::atomic<int> &gpgRunning);
    bool stageList(const QString &stage, QStringList &list);
    // A file's SHA-256: as it was summed when it was unpacked, or read now.
    QString sha256Of(const QString &path) const;
    // The fingerprints of the keys that signed the decrypted files.
    QStringList signerFingerprints() const { return signers; }

    // Why the last step failed; nothing when it was stopped.
    FlashError error() const { return lastError; }
    // Fails with this error, which goes into the log.
    bool fail(const FlashError &error);

private:
    // One signed file checked and decrypted to output; its signer into *signer.
    bool decryptOne(const QString &input, const QString &output, QProcess &gpg, std::atomic<int> &gpgRunning,
                    QString *signer, FlashError *error);
    bool copyOne(const QString &path, QString *target, FlashError *error);

    QString temp;
    QString gpgFolder;
    QString gpgPath;
    const std::atomic<bool> &stop;
    QStringList signers;
    QHash<QString, QString> sha256s; // of the files unpacked, by clean path
    FlashError lastError;
};
