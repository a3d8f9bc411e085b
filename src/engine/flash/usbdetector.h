#pragma once

#include <QByteArray>
#include <QString>
#include <QThread>

#include <atomic>

// detector's answer in one chunk of its output: 1 a Brio Mel is connected, 0 none,
// -1 an answer that is neither.
int detectorAnswer(const QByteArray &chunk);

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
