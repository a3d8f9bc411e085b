#pragma once

#include "flashhistory.h"

#include <QElapsedTimer>
#include <QObject>

class DFUThread;

// How a flash ended, in the history's and the station's words: exit code 0 is "flashed"
// ("recovered" for a device that waited in DFU mode); otherwise "stopped" when stopped
// by the user or a signal, else "failed".
QString flashOutcome(int exitCode, bool recovering, bool stopped);

// The record of a unit about to be flashed, as both front ends begin it.
FlashRecord flashUnit(const QString &program, const QString &port, const QString &serial, const QString &before,
                      const QString &packageVersion, bool signedPackage);

// Keeps the history's record of one flash: begun before the worker starts, told by the
// worker what it unpacked and who signed it, completed with the outcome. Both front
// ends record through it.
class FlashRecorder : public QObject
{
    Q_OBJECT
public:
    // The history is the caller's and outlives the recorder.
    explicit FlashRecorder(FlashHistory *history, QObject *parent = nullptr);

    // A pending record of the unit; false (error() says why) when it cannot be written.
    bool begin(const FlashRecord &unit);
    // The worker's package report goes into the record.
    void follow(DFUThread *worker);
    // Completes the record; false when it cannot be written. Without an error of the
    // caller's the worker's last one goes in.
    bool finish(const QString &outcome, const QString &after, const QString &error);
    bool hasBegun() const { return record.id != 0; }
    QString error() const;

private:
    FlashHistory *history;
    FlashRecord record;
    QElapsedTimer clock;
    QString workerError;
};
