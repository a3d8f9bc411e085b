#pragma once

#include "firmware/devicelisting.h"
#include "platform/ownedfolder.h"
#include "platform/portlock.h"

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QTimer>

#include <QCoreApplication>

#include <functional>
#include <thread>
#include <optional>

// Runs work on a thread of its own (a look at a share or at the bus may hang) and hands
// its result to done on the receiver's thread, unless the receiver is gone by then.
template <typename Result>
void runOffThread(QObject *receiver, std::function<Result()> work, std::function<void(const Result &)> done)
{
    QPointer<QObject> guard(receiver);
    std::thread([guard, work = std::move(work), done = std::move(done)] {
        const Result result = work();
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [guard, done, result] {
                if (guard)
                    done(result);
            },
            Qt::QueuedConnection);
    }).detach();
}

class DFUThread;
class FlashHistory;
class FlashRecorder;
class Settings;
class StationOutput;

// One flash of morvanta-station, from the firmware to the device's new version, with
// nothing that waits for a person: the package is checked, unpacked and flashed by the
// window's own worker, in a working folder of this run's own, bound to one USB port;
// afterwards the device must come back on that port with the package's version.
class StationRun : public QObject
{
    Q_OBJECT
public:
    struct Options {
        QString firmware;   // one file of a pair, or a folder (its newest firmware)
        QString port;       // empty: the one DFU device there is
        QString bootLoader; // flashed first, then the device is waited for
        bool zip = false;   // plain zip files, nothing to check with gpg
        int timeoutSeconds = 600;
        bool portLocked = false; // the caller holds the port's lock
    };

    // The package's files and version, or why there is none.
    struct FirmwareChoice {
        QStringList files;
        QString version;
        bool hasV = false;
        QString error;
    };

    // Every flash goes into the history, when there is one.
    StationRun(Settings *settings, StationOutput *output, FlashHistory *history, Options options,
               QObject *parent = nullptr);
    ~StationRun() override;

    // Looks at the firmware (on a thread of its own: it may hang on a dead share).
    static FirmwareChoice chooseFirmware(const Options &options);

    void start();
    // The firmware was looked at and the device seen on the port already.
    void start(const FirmwareChoice &choice, const ListedDevice &device);
    // SIGINT or SIGTERM: the tool is killed and reaped, the working folder removed.
    void stop();
    // A thread of the run is still stuck in a kernel call (a dead share): the process
    // must end without waiting for it.
    bool leftThreadsBehind() const { return leftBehind; }

    QString outcome() const { return outcomeWord; }

signals:
    // After the result event; outcome() tells how it ended.
    void finished(int exitCode);

private:
    void firmwareChosen(const FirmwareChoice &choice);
    bool chooseDevice();
    bool prepareWorkingFolder();
    void startWorker();
    void workerExited(int code);
    void waitForDevice(int firstLookMs, int patienceMs, std::function<void(const ListedDevice &)> back);
    void lookForDevice();
    void devicesListed(const QList<ListedDevice> &devices);
    void deviceIsBack(const ListedDevice &device);
    void fail(const QString &text);
    void end(int exitCode);
    void finishWhenWorkerGone();

    Settings *settings;
    StationOutput *output;
    const Options options;
    QStringList files;
    QString packageVersion;
    bool packageHasV = false;
    QString port;
    QString serial;
    bool recovering = false; // the device waited in DFU mode
    std::optional<ListedDevice> seenDevice;
    QString lastError;
    QString outcomeWord;
    FlashHistory *history;
    FlashRecorder *recorder = nullptr;
    QString before;
    QString after;
    QString workingFolder;
    QPointer<DFUThread> worker;
    QTimer timeLimit;
    QTimer devicePoll;
    QTimer workerGrace; // how long an ended run waits for its worker
    PortLock portLock;
    OwnedFolder ownedFolder;
    QElapsedTimer clock;
    QElapsedTimer waited;
    int patience = 0; // how long the device may stay away, 0: up to the time limit
    std::function<void(const ListedDevice &)> onDeviceBack;
    int percent = 0;
    int remaining = -1;
    bool errorShown = false;
    int ending = -1; // the exit code once the run ends
    bool workerEnded = false; // it sent its exit code
    bool workerGone = false;  // its thread has finished
    bool reported = false;
    bool checking = false;   // the firmware is being looked at
    bool looking = false;    // a listing is under way
    bool leftBehind = false;
};
