#pragma once

#include <QString>
#include <QThread>

#include <atomic>

// Asks detector once whether a Brio Mel is connected.
class USBDetector : public QThread
{
    Q_OBJECT
public:
    USBDetector(const QString &program, QObject *parent);

    // Ends a detector that does not answer, so its thread can finish.
    void stop() { stopRequested = true; }

signals:
    void usbDetected(bool);

protected:
    void run() override;

private:
    void processread(const QByteArray &chunk);

    const QString program;
    std::atomic<bool> stopRequested{false};
};
