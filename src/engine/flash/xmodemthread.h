#pragma once

#include "app/errortexts.h"

#include <QString>
#include <QThread>

#include <atomic>

// Flashes a Brio Mel: runs xmodem-util on one .zkl file and turns its records into
// progress, status and one of two endings.
class XMODEMthread : public QThread
{
    Q_OBJECT
public:
    XMODEMthread(const QString &program, const QString &firmwarePath, QObject *parent);

public slots:
    // Ends the tool; safe from any thread.
    void killXmodem();

signals:
    void sigenableAbort();
    void sigdisableAbort();
    void updateStatus(QString);
    void sigProgress(int done, int max);
    void msgboxErrorSignal(ErrorTexts::errorLevel, QString);
    void externalProcessesFinished();
    void flashFinished();
    void resetWrittenStatus();
    void updateFileLabel(QString);
    void visibilityRemaining(bool);

protected:
    void run() override;

private:
    void readxmodem(const QByteArray &chunk);
    void failureEnding(int status);
    void successEnding();

    const QString program;
    const QString firmwarePath;
    std::atomic<bool> killRequested{false};
    bool ended = false; // the tool's verdict is in: what it still prints changes nothing
    std::atomic<bool> toolRunning{false};
};
