#pragma once

#include "dfutransfer.h"
#include "flasherror.h"
#include "flashpackage.h"
#include "flashtypes.h"

#include "firmware/devicelisting.h"
#include "platform/portlock.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QObject>
#include <QStringList>
#include <QTimer>

#include <memory>
#include <optional>

class DownloadPacer;
class HistoryWriter;
class FlashRecorder;
class FlashWorker;
class QThread;
class Settings;

// One Tessel NINE's flash from the first look to the verified unit and its record: the
// device is chosen and its port locked, the package checked and unpacked, the boot
// loader written and the device's restart waited for, every file put in (detach, wait,
// download), the device's return checked, and the history told. Front ends only show
// its numbers and answer its requests; it ends once, with finished().
class FlashJob : public QObject
{
    Q_OBJECT
public:
    struct Options {
        FlashMode mode = FlashMode::Firmware;
        QStringList files;       // the selected package: [boot loader,] the pair
        // The same package checked and unpacked before (a watch's, for many units): the
        // job takes it as it is.
        std::optional<FlashPackage> prepared;
        bool plainZips = false;  // nothing to check with gpg
        // Shared by units flashed side by side (a watch's): their downloads take turns.
        std::shared_ptr<DownloadPacer> pacer;
        int bootLoaderRev = 0;   // picks the transfer size
        QString port;            // only the device on this port; empty: the one there is
        // One run per USB port for every program on the machine: the job takes the port's
        // lock, unless its caller holds it already (a watch).
        bool portLockHeld = false;
        // A listing taken a moment ago, to choose from; without one the job lists.
        std::optional<QList<ListedDevice>> seen;
        bool verifyReturn = false; // the device must come back with the package's version
        bool leaveCurrent = false; // a device that runs that version already is left alone
        HistoryWriter *history = nullptr; // the caller's; none: no record
        QString program;                  // for the record: "window" or "station"
        bool recordRequired = false;      // a unit that cannot be recorded is not flashed
        // Until when the record of the outcome is tried again (a run's time limit); by
        // default a while after the flash has ended.
        QDeadlineTimer recordDeadline{QDeadlineTimer::Forever};
    };

    FlashJob(Settings *settings, Options options, QObject *parent = nullptr);
    // The version a package brings: its firmware's, or its boot loader's when that is all.
    static QString versionOf(const QStringList &files, FlashMode mode, bool *hasV);
    // A job still under way is stopped: its tools are killed and waited for a moment,
    // and its record says so.
    ~FlashJob() override;

    void start();
    // Ends the run as soon as its tool is killed; finished(Stopped).
    void stop();
    // Ends the run as failed, for a reason of the front end's own (a time limit).
    void abandon(const FlashError &reason);
    // The answer to restartRequested: go on once the device is back.
    void resume();
    // The answer to deviceChoiceRequested; an empty port refuses.
    void chooseDevice(const QString &port);

    ListedDevice unit() const { return device; }
    QString packageVersion() const { return version; }
    QString versionAfter() const { return after; }
    FlashOutcome outcome() const { return ending; }
    // The record of the outcome went in (or there is no history to keep it).
    bool isRecorded() const { return recorded; }
    // Why it failed; nothing for any other outcome.
    FlashError error() const { return lastError; }
    bool isEnded() const { return phase == Phase::Ended; }
    // A task of the job is stuck in a kernel call (a dead share): the process must end
    // without waiting for it.
    bool leftThreadsBehind() const { return leftBehind; }

signals:
    // The device is chosen and the run holds it: from here on it can be stopped.
    void started(const ListedDevice &device);
    void stageChanged(FlashStage stage);
    void fileStarted(const QString &stage, const QString &file, int number, int total);
    void progressed(const FlashProgress &progress);
    void deviceChoiceRequested(const QList<ListedDevice> &devices);
    // The boot loader is in: the device is to restart; answered by resume() or stop().
    void restartRequested();
    // While it restarts: whether the device is back on its port, at each look.
    void restartLooked(bool present);
    void deviceReturned(const ListedDevice &device);
    // What went wrong; before finished(Failed), or a record not written after a flash.
    void errorOccurred(const FlashError &error);
    void finished(FlashOutcome outcome);

private:
    enum class Phase {
        Idle,
        Choosing,
        AwaitingChoice,
        Recording, // the unit's record begins
        Preparing,
        Transferring,
        Restarting,
        Verifying,
        Ending,     // the tools stop
        Completing, // the record of the outcome
        Ended
    };

    // The run is over but for its tools and its record: nothing more is told of it.
    bool isEnding() const;
    void post(std::function<void(FlashWorker *)> task);
    void taskEnded();
    void listed(const QList<ListedDevice> &devices, bool accessDenied);
    void choose(const QList<ListedDevice> &devices, bool accessDenied);
    void use(const ListedDevice &chosen);
    bool lockPort();
    void unitRecorded();
    void prepared(const FlashPackage &package);
    void transferred(const QString &versionNow);
    void workerFailed(const FlashError &error);
    void lookAgain();
    void restartLook(const std::optional<ListedDevice> &back);
    void verifyLook(const std::optional<ListedDevice> &back);
    void allWritten();
    void fail(const FlashError &error);
    void end(FlashOutcome outcome);
    bool beginEnding(FlashOutcome outcome);
    void settle();
    void finish();
    void completeRecord();
    void done();

    const Options options;
    std::shared_ptr<DfuTransfer::Flags> flags;
    QThread *thread = nullptr;
    FlashWorker *worker = nullptr;
    bool taskRunning = false;
    Phase phase = Phase::Idle;
    FlashOutcome ending = FlashOutcome::Failed;
    FlashError lastError;
    QString version;
    bool versionHasV = false;
    ListedDevice device;
    QList<ListedDevice> candidates;
    bool recovering = false;
    bool leavingCurrent = false;
    bool recorded = true;
    QDeadlineTimer recordDeadline;
    FlashPackage package;
    bool bootLoaderLeg = false;
    bool restartAnswered = false;
    std::optional<ListedDevice> lastSeen;
    QString after;
    std::unique_ptr<PortLock> portLock; // held from the choice to the end
    std::unique_ptr<FlashRecorder> recorder;
    QTimer lookTimer;
    QTimer graceTimer;
    QElapsedTimer clock;
    bool leftBehind = false;
};
