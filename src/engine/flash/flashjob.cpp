#include "flashjob.h"

#include "flashtexts.h"
#include "flashworker.h"

#include "app/logstream.h"
#include "app/settings.h"
#include "firmware/firmwarenames.h"
#include "firmware/version.h"
#include "history/flashrecorder.h"

#include <QThread>
#include <QtDebug>

#include <algorithm>

namespace {
// The device's restart after its boot loader: time to turn it off before the first look.
constexpr int restartFirstLookMs = 8000;
constexpr int lookEveryMs = 500;
// A flashed device is back in run-time mode at once, or very soon.
constexpr int backAfterFlashMs = 30000;
// A stopped task kills its tool within a moment; one that does not end by then is stuck
// in the kernel, and the job ends without it.
constexpr int graceMs = 3000;
// A record that cannot be completed is tried again this often, each time waiting this
// long for another writer; without a deadline of the caller's, for this long.
constexpr int retryEveryMs = 500;
constexpr int busyPerTryMs = 5000;
constexpr int recordPatienceMs = 30000;

} // namespace

QString FlashJob::versionOf(const QStringList &files, FlashMode mode, bool *hasV)
{
    QString file = files.value(mode == FlashMode::BootLoaderFirst ? 1 : 0);
    return Version::fileVersion(file, Settings::getTesselNINEName(), hasV);
}

FlashJob::FlashJob(Settings *settings, Options givenOptions, QObject *parent)
    : QObject(parent), options(std::move(givenOptions)), flags(std::make_shared<DfuTransfer::Flags>())
{
    version = versionOf(options.files, options.mode, &versionHasV);
    thread = new QThread;
    worker = new FlashWorker(settings, options.bootLoaderRev, flags, options.pacer);
    worker->moveToThread(thread);
    connect(worker, &FlashWorker::stageReached, this, [this](FlashStage stage) {
        if (!isEnding())
            emit stageChanged(stage);
    });
    connect(worker, &FlashWorker::fileStarted, this, [this](const QString &stage, const QString &file, int n, int of) {
        if (!isEnding())
            emit fileStarted(stage, file, n, of);
    });
    connect(worker, &FlashWorker::progressed, this, [this](const FlashProgress &progress) {
        if (!isEnding())
            emit progressed(progress);
    });
    connect(worker, &FlashWorker::prepared, this, &FlashJob::prepared);
    connect(worker, &FlashWorker::transferred, this, &FlashJob::transferred);
    connect(worker, &FlashWorker::looked, this, &FlashJob::listed);
    connect(worker, &FlashWorker::failed, this, &FlashJob::workerFailed);
    thread->start();

    lookTimer.setSingleShot(true);
    connect(&lookTimer, &QTimer::timeout, this, &FlashJob::lookAgain);
    graceTimer.setSingleShot(true);
    connect(&graceTimer, &QTimer::timeout, this, [this] {
        leftBehind = true;
        finish();
    });
}

FlashJob::~FlashJob()
{
    if (phase != Phase::Idle && phase != Phase::Ended) {
        // The front end goes (a window closed mid-flash): the tools go with it.
        flags->stop = true;
        if (!isEnding())
            ending = FlashOutcome::Stopped;
    }
    thread->quit();
    const bool gone = thread->wait(graceMs);
    if (recorder && recorder->hasBegun()) {
        if (phase != Phase::Completing)
            recorder->setOutcome(outcomeWord(ending), after, FlashTexts::error(lastError));
        QString why;
        if (!recorder->finishNow(busyPerTryMs, &why) && !recorder->noteUnrecordedNow())
            qWarning() << quoted(FlashTexts::error({FlashError::Code::NotRecorded, {recorder->path(), why}}));
    }
    if (gone) {
        delete worker;
        delete thread;
    }
    // Else a task is stuck in the kernel: it ends by itself, or with the process.
}

void FlashJob::post(std::function<void(FlashWorker *)> task)
{
    taskRunning = true;
    QMetaObject::invokeMethod(worker, [w = worker, task = std::move(task)] { task(w); }, Qt::QueuedConnection);
}

bool FlashJob::isEnding() const
{
    return phase == Phase::Ending || phase == Phase::Completing || phase == Phase::Ended;
}

void FlashJob::taskEnded()
{
    taskRunning = false;
    if (phase == Phase::Ending)
        finish();
}

// ---- The unit ----

void FlashJob::start()
{
    if (phase != Phase::Idle)
        return;
    clock.start();
    qDebug() << "****Start Update**********************************************************************\n";
    phase = Phase::Choosing;
    if (options.seen) {
        choose(*options.seen, false);
        return;
    }
    post([](FlashWorker *w) { w->look(); });
}

void FlashJob::listed(const QList<ListedDevice> &devices, bool accessDenied)
{
    taskEnded();
    if (phase == Phase::Choosing) {
        choose(devices, accessDenied);
        return;
    }
    std::optional<ListedDevice> back;
    for (const ListedDevice &listed : devices) {
        if (listed.port != device.port || !listed.isTesselNine())
            continue;
        // Only the unit this run flashes can finish it.
        if (listed.serial != device.serial) {
            fail({FlashError::Code::WrongUnit, {device.port, listed.serial, device.serial}});
            return;
        }
        if (!listed.dfuMode)
            back = listed;
    }
    if (phase == Phase::Restarting)
        restartLook(back);
    else if (phase == Phase::Verifying)
        verifyLook(back);
}

void FlashJob::choose(const QList<ListedDevice> &devices, bool accessDenied)
{
    candidates.clear();
    const auto onPort = [this](const QString &port) {
        return std::any_of(candidates.cbegin(), candidates.cend(),
                           [&port](const ListedDevice &seen) { return seen.port == port; });
    };
    for (const ListedDevice &listed : devices) {
        // A device in DFU mode is listed once per alternate setting; the old tool names no
        // port at all, and finds the device itself.
        if (listed.isTesselNine() && (options.port.isEmpty() || listed.port == options.port) && !onPort(listed.port))
            candidates << listed;
    }
    if (candidates.isEmpty()) {
        FlashError error(FlashError::Code::NotConnected);
        error.accessDenied = accessDenied;
        fail(error);
        return;
    }
    if (candidates.size() == 1) {
        use(candidates.first());
        return;
    }
    phase = Phase::AwaitingChoice;
    emit deviceChoiceRequested(candidates);
}

void FlashJob::chooseDevice(const QString &port)
{
    if (phase != Phase::AwaitingChoice)
        return;
    QStringList ports;
    for (const ListedDevice &candidate : std::as_const(candidates)) {
        if (!port.isEmpty() && candidate.port == port) {
            use(candidate);
            return;
        }
        ports << candidate.port;
    }
    fail({FlashError::Code::SeveralDevices, ports});
}

void FlashJob::use(const ListedDevice &chosen)
{
    device = chosen;
    recovering = chosen.dfuMode;
    const bool current = !chosen.dfuMode && chosen.version == version && chosen.hasV == versionHasV;
    leavingCurrent = options.leaveCurrent && current;
    if (leavingCurrent)
        after = chosen.version;
    else if (!lockPort())
        return;
    if (!options.history) {
        unitRecorded();
        return;
    }
    FlashRecord unit;
    unit.program = options.program;
    unit.port = device.port;
    unit.serial = device.serial;
    unit.before = device.version;
    unit.version = version;
    unit.signedPackage = !options.plainZips;
    phase = Phase::Recording;
    recorder = std::make_unique<FlashRecorder>(options.history);
    recorder->begin(unit, this, [this](bool written, const QString &why) {
        if (phase != Phase::Recording)
            return;
        if (!written) {
            const FlashError error(FlashError::Code::NotRecorded, {recorder->path(), why});
            recorder.reset();
            if (options.recordRequired) {
                fail(error); // no unit goes unrecorded
                return;
            }
            qWarning() << quoted(FlashTexts::error(error));
        }
        unitRecorded();
    });
}

// One run per USB port, for every program on this machine.
bool FlashJob::lockPort()
{
    if (device.port.isEmpty() || options.portLockHeld)
        return true;
    portLock = std::make_unique<PortLock>();
    if (portLock->lock(device.port))
        return true;
    fail(portLock->error().isEmpty() ? FlashError(FlashError::Code::PortBusy, {device.port})
                                     : FlashError(FlashError::Code::PortLockFailed, {device.port, portLock->error()}));
    return false;
}

void FlashJob::unitRecorded()
{
    if (leavingCurrent) {
        end(FlashOutcome::Current);
        return;
    }
    emit started(device);
    if (isEnding())
        return;
    phase = Phase::Preparing;
    if (options.prepared) {
        post([package = *options.prepared, unit = device](FlashWorker *w) { w->adopt(package, unit); });
        return;
    }
    post([files = options.files, plain = options.plainZips, mode = options.mode, unit = device](FlashWorker *w) {
        w->prepare(files, plain, mode, unit);
    });
}

// ---- The files ----

void FlashJob::prepared(const FlashPackage &prepared)
{
    taskEnded();
    if (phase != Phase::Preparing)
        return;
    package = prepared;
    if (recorder)
        recorder->setPackage(package);
    phase = Phase::Transferring;
    bootLoaderLeg = options.mode != FlashMode::Firmware;
    const QList<FlashPackage::File> files =
        bootLoaderLeg ? package.stageFiles(FirmwareNames::stageBl) : package.files;
    post([files](FlashWorker *w) { w->transfer(files, false); });
}

void FlashJob::transferred(const QString &versionNow)
{
    taskEnded();
    if (phase != Phase::Transferring)
        return;
    after = versionNow;
    if (bootLoaderLeg && options.mode == FlashMode::BootLoaderFirst) {
        phase = Phase::Restarting;
        restartAnswered = false;
        lastSeen.reset();
        emit stageChanged(FlashStage::Restarting);
        lookTimer.start(restartFirstLookMs);
        emit restartRequested();
        return;
    }
    allWritten();
}

void FlashJob::workerFailed(const FlashError &error)
{
    taskEnded();
    if (phase == Phase::Preparing || phase == Phase::Transferring)
        fail(error.isSet() ? error : FlashError(FlashError::Code::Incomplete));
}

void FlashJob::allWritten()
{
    qDebug() << "Flashing completed";
    emit stageChanged(FlashStage::Written);
    if (phase != Phase::Transferring)
        return;
    if (!options.verifyReturn) {
        end(recovering ? FlashOutcome::Recovered : FlashOutcome::Flashed);
        return;
    }
    phase = Phase::Verifying;
    emit stageChanged(FlashStage::Verifying);
    if (phase != Phase::Verifying)
        return;
    clock.restart();
    lookAgain();
}

// ---- The device's restart and return ----

void FlashJob::lookAgain()
{
    if (!taskRunning && (phase == Phase::Restarting || phase == Phase::Verifying))
        post([](FlashWorker *w) { w->look(); });
}

void FlashJob::resume()
{
    if (phase != Phase::Restarting || restartAnswered)
        return;
    restartAnswered = true;
    // A device seen at the last look goes on now; else the next look that sees it.
    if (lastSeen && !taskRunning)
        restartLook(lastSeen);
}

void FlashJob::restartLook(const std::optional<ListedDevice> &back)
{
    lastSeen = back;
    emit restartLooked(back.has_value());
    if (phase != Phase::Restarting)
        return;
    if (!back || !restartAnswered) {
        lookTimer.start(lookEveryMs);
        return;
    }
    lookTimer.stop();
    emit deviceReturned(*back);
    if (phase != Phase::Restarting)
        return;
    phase = Phase::Transferring;
    bootLoaderLeg = false;
    const QList<FlashPackage::File> files =
        package.stageFiles(FirmwareNames::stageOs) + package.stageFiles(FirmwareNames::stagePr);
    post([files](FlashWorker *w) { w->transfer(files, true); });
}

void FlashJob::verifyLook(const std::optional<ListedDevice> &back)
{
    if (!back) {
        if (clock.elapsed() > backAfterFlashMs)
            fail({FlashError::Code::DeviceNotBack, {device.port}});
        else
            lookTimer.start(lookEveryMs);
        return;
    }
    after = back->version;
    emit deviceReturned(*back);
    if (phase != Phase::Verifying)
        return;
    if (after == version && back->hasV == versionHasV)
        end(recovering ? FlashOutcome::Recovered : FlashOutcome::Flashed);
    else
        fail({FlashError::Code::WrongVersion, {device.port, after, version}});
}

// ---- The ending, once ----

void FlashJob::stop()
{
    // Only the record is left: it is tried no more, and kept for the next run.
    if (phase == Phase::Completing) {
        recordDeadline.setRemainingTime(0);
        return;
    }
    if (flags->gpgRunning)
        qDebug() << "kill gpg";
    if (flags->dfuRunning)
        qDebug() << "kill dfu";
    end(FlashOutcome::Stopped);
}

void FlashJob::abandon(const FlashError &reason)
{
    fail(reason);
}

void FlashJob::fail(const FlashError &error)
{
    if (!beginEnding(FlashOutcome::Failed))
        return;
    lastError = error;
    emit errorOccurred(error);
    settle();
}

void FlashJob::end(FlashOutcome outcome)
{
    if (beginEnding(outcome))
        settle();
}

bool FlashJob::beginEnding(FlashOutcome outcome)
{
    if (phase == Phase::Idle || isEnding())
        return false;
    phase = Phase::Ending;
    ending = outcome;
    lookTimer.stop();
    return true;
}

// Once the worker's task has ended (killed, if it still ran), or after the grace.
void FlashJob::settle()
{
    if (phase != Phase::Ending)
        return;
    if (!taskRunning) {
        finish();
        return;
    }
    flags->stop = true;
    graceTimer.start(graceMs);
}

void FlashJob::finish()
{
    if (phase != Phase::Ending)
        return;
    graceTimer.stop();
    portLock.reset();
    if (!recorder || !recorder->hasBegun()) {
        done();
        return;
    }
    phase = Phase::Completing;
    recorder->setOutcome(outcomeWord(ending), after, FlashTexts::error(lastError));
    // Retried until the deadline: a record is never given up while there is time.
    recordDeadline = options.recordDeadline.isForever() ? QDeadlineTimer(recordPatienceMs) : options.recordDeadline;
    completeRecord();
}

void FlashJob::completeRecord()
{
    const int busyMs = int(qBound(qint64(100), recordDeadline.remainingTime(), qint64(busyPerTryMs)));
    recorder->finish(busyMs, this, [this](bool written, const QString &why) {
        if (written) {
            done();
        } else if (!recordDeadline.hasExpired()) {
            QTimer::singleShot(retryEveryMs, this, &FlashJob::completeRecord);
        } else {
            // What it would have said goes beside the history, for the next run to apply.
            const FlashError error(FlashError::Code::NotRecorded, {recorder->path(), why});
            recorder->noteUnrecorded(this, [this, error](bool, const QString &) {
                recorded = false;
                qWarning() << quoted(FlashTexts::error(error));
                emit errorOccurred(error);
                done();
            });
        }
    });
}

void FlashJob::done()
{
    phase = Phase::Ended;
    recorder.reset();
    emit finished(ending);
}
