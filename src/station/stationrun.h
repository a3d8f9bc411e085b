#pragma once

#include "firmware/devicelisting.h"
#include "flash/flashtypes.h"
#include "platform/ownedfolder.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QTimer>

#include <QCoreApplication>

#include <functional>
#include <memory>
#include <optional>
#include <thread>

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

struct FlashError;
class DownloadPacer;
class HistoryWriter;
class FlashJob;
class Settings;
class StationOutput;

struct PreparedPackage;

// One flash of morvanta-station, with nothing that waits for a person: the firmware is
// chosen, a working folder of this run's own made, and the engine's flash job run on
// it, bound to one USB port; the device must come back with the package's version.
// Everything the job says goes to the output, in the station's words.
class StationRun : public QObject
{
    Q_OBJECT
public:
    struct Options {
        QString firmware;   // one file of a pair, or a folder (its newest firmware)
        // The package checked and unpacked before, for many units (a watch's): taken as it is.
        std::shared_ptr<const PreparedPackage> prepared;
        // Shared by a watch's runs: their downloads take turns.
        std::shared_ptr<DownloadPacer> pacer;
        QString port;       // empty: the one Tessel NINE there is
        QString bootLoader; // flashed first, then the device is waited for
        bool zip = false;   // plain zip files, nothing to check with gpg
        int timeoutSeconds = 600;
        bool portLocked = false;   // the caller holds the port's lock
        bool leaveCurrent = false; // a unit that runs the package's version is left alone
        // Before the result, the last line a script reads: the run's record on its way.
        std::function<void()> beforeResult;
    };

    // The package's files and version, or why there is none.
    struct FirmwareChoice {
        QStringList files;
        QString version;
        bool hasV = false;
        QString error;
    };

    // Every flash goes into the history, when there is one.
    StationRun(Settings *settings, StationOutput *output, HistoryWriter *history, Options options,
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
    bool leftThreadsBehind() const;

    FlashOutcome outcome() const { return ending; }
    // It failed because a file of its prepared package is no longer the one checked.
    bool preparedChanged() const;

signals:
    // After the result event; outcome() tells how it ended.
    void finished(ExitCode code);

private:
    void firmwareChosen(const FirmwareChoice &choice);
    bool prepareWorkingFolder();
    void startJob(const FirmwareChoice &choice);
    void showStage(FlashStage stage);
    QString errorText(const FlashError &error) const;
    void fail(const QString &text);
    void end(FlashOutcome outcome, bool recorded = true);

    Settings *settings;
    StationOutput *output;
    HistoryWriter *history;
    const Options options;
    std::optional<ListedDevice> seenDevice;
    QString workingFolder;
    OwnedFolder ownedFolder;
    FlashJob *job = nullptr;
    QString port;
    QString before;
    QString after;
    QTimer timeLimit;
    QElapsedTimer clock;
    QDeadlineTimer deadline; // the run's time limit
    FlashOutcome ending = FlashOutcome::Failed;
    bool recorded = true;
    bool checking = false; // the firmware is being looked at
    bool reported = false;
};
