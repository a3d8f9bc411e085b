#pragma once

#include "app/errortexts.h"
#include "packagepreparation.h"

#include <QStringList>
#include <QThread>

#include <atomic>

class QProcess;
class Settings;

// Writes a Tessel NINE firmware to a USB stick: prepares the package as a flash does,
// then copies every .sys file of "os" and "pr" flat into a staging folder on the stick,
// each one flushed to the stick and read back, and only then moves them into the
// stick's folder. A write that fails leaves nothing of it on the stick.
class USBWriteThread : public QThread
{
    Q_OBJECT
public:
    USBWriteThread(Settings *settings, const QStringList &firmwareFiles, const QString &destination, bool skipGpg,
                   QObject *parent);
    ~USBWriteThread() override;

    // Stops a running gpg; unpacking and copying go on to their end.
    void abortByUser();
    // Ends the run as soon as it can, copying included, and leaves nothing half written:
    // for a worker that nobody will hear from again.
    void stop();

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
    bool copyToStick(const QString &staging);
    bool copyVerified(const QString &source, const QString &target);
    bool moveIntoPlace(const QString &staging, QStringList &moved);
    void tellFailure(const FlashError &error);
    void successEnding();
    void failureEnding();

    QStringList firmwareFiles;
    const QString destination;
    const bool skipGpg;
    const bool gpgAvailable;
    std::atomic<bool> finishedByUser{false};
    std::atomic<int> gpgRunning{0}; // gpg runs at work
    std::atomic<bool> stopRequested{false};
    PackagePreparation preparation;
    QStringList osFiles;
    QStringList prFiles;
};
