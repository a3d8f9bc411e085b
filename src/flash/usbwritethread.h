#pragma once

#include "app/errortexts.h"
#include "packagepreparation.h"

#include <QStringList>
#include <QThread>

#include <atomic>

class QProcess;
class Settings;

// Writes a Tessel NINE firmware to a USB stick: prepares the package as a flash does,
// then copies every .sys file of "os" and "pr" flat into the stick's folder, each one
// flushed to the stick and read back before the folder takes its name.
class USBWriteThread : public QThread
{
    Q_OBJECT
public:
    USBWriteThread(Settings *settings, const QStringList &firmwareFiles, const QString &destination, bool skipGpg,
                   QObject *parent);
    ~USBWriteThread() override;

    // Stops a running gpg; unpacking and copying go on to their end.
    void abortByUser();

signals:
    void updateStatus(QString);
    void msgboxErrorSignal(ErrorTexts::errorLevel, QString);
    void sigenableAbort();
    void sigdisableAbort();
    void updateWriteUSBProgress(int);
    void exitCode(int err);

protected:
    void run() override;

private:
    bool unpack();
    bool writeSysFiles();
    bool copyVerified(const QString &source, const QString &target);
    void successEnding();
    void failureEnding();

    QStringList firmwareFiles;
    const QString destination;
    const bool skipGpg;
    const bool gpgAvailable;
    std::atomic<bool> finishedByUser{false};
    std::atomic<bool> gpgRunning{false};
    PackagePreparation preparation;
    QStringList osFiles;
    QStringList prFiles;
};
