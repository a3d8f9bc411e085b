#pragma once

#include "app/errortexts.h"

#include <QStringList>

#include <atomic>
#include <functional>

class QProcess;
class Settings;

// What both firmware workers do before their own work: hash the selected files into
// the log, check and decrypt them with gpg (or copy them), unpack the archives into the
// extract folder and list the .sys files of a stage. Every step tells the user itself,
// through its worker, and returns false when the run cannot go on. Texts are the
// worker's, looked up in its own translation context.
class PackagePreparation
{
public:
    struct Report {
        std::function<void(const QString &)> status;
        std::function<void(ErrorTexts::errorLevel, const QString &)> box;
    };

    // Takes the paths from the settings now, on the thread that makes the worker.
    PackagePreparation(const char *context, Settings *settings, Report report, const std::atomic<bool> &finishedByUser);

    QString tempPath() const { return temp; }
    QString extractFolder() const;
    QString stagePath(const QString &stage) const;
    QString text(const char *source) const;

    bool hash(const QStringList &files);
    // Replaces the selected files by their checked, decrypted archives in the extract folder.
    bool decrypt(QStringList &files, QProcess &gpg, std::atomic<bool> &gpgRunning);
    // The same for plain archives, copied.
    bool copy(QStringList &files);
    // Unpacks each archive; afterEach runs after each good one (the pause, progress).
    bool unpack(const QStringList &archives, const QString &failure, const std::function<void()> &afterEach);
    bool stageList(const QString &stage, QStringList &list);
    // The fingerprints of the keys that signed the decrypted files.
    QStringList signerFingerprints() const { return signers; }
    // A warning in the log, the status line, and an Error box.
    void fail(const QString &text);

private:
    QString corruptedFilesText() const;

    const char *context;
    QString temp;
    QString gpgFolder;
    QString gpgPath;
    Report report;
    const std::atomic<bool> &finishedByUser;
    QStringList signers;
};
