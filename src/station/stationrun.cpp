#include "stationrun.h"

#include "stationoutput.h"

#include "app/errortexts.h"
#include "app/settings.h"
#include "firmware/devicelisting.h"
#include "firmware/fileverify.h"
#include "firmware/version.h"
#include "flash/dfuthread.h"
#include "history/flashrecorder.h"
#include "platform/platform.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>

#include <thread>

namespace {
// After a boot loader the device restarts: the first look for it comes when the
// restart dialog of the window takes its first look.
constexpr int restartMs = 8000;
// A flashed device is back in run-time mode at once, or very soon.
constexpr int backAfterFlashMs = 30000;
constexpr int lookEveryMs = 500;
// An ended run's worker kills its tool within a moment; one that does not answer by
// then is stuck in the kernel, and the run ends without it.
constexpr int workerGraceMs = 3000;

// The window's own words, in the window's translation contexts.
QString windowText(const char *context, const char *text)
{
    return QCoreApplication::translate(context, text);
}

// A FIFO or a device would hold the first read of it for ever.
bool isRegularFile(const QString &path)
{
    return QFileInfo(path).isFile();
}

} // namespace

StationRun::FirmwareChoice StationRun::chooseFirmware(const Options &options)
{
    StationRun::FirmwareChoice choice;
    QString path = options.firmware;
    if (QFileInfo(path).isDir()) {
        SearchOptions search;
        search.searchPath = path;
        path = findNewestFirmware(search, options.zip);
        if (path.isEmpty()) {
            choice.error = windowText("Dialog", "No firmware file in directory");
            return choice;
        }
    } else if (QFileInfo::exists(path) && !isRegularFile(path)) {
        choice.error = QStringLiteral("%1 is not a regular file").arg(path);
        return choice;
    }
    Fileverify verify(path);
    const int result = verify.verify(Fileverify::TesselNINE);
    if (result != Fileverify::FilesFound) {
        choice.error = Fileverify::resultText(result);
        return choice;
    }
    choice.files = verify.getFlashFiles();
    if (!options.bootLoader.isEmpty()) {
        if (!isBootLoaderFile(options.bootLoader)) {
            choice.error = windowText("WizardPageBootLoaderSelect", "Selected file is no boot loader\nfile or does not exist!");
            return choice;
        }
        choice.files.prepend(QFileInfo(options.bootLoader).absoluteFilePath());
    }
    for (const QString &file : std::as_const(choice.files)) {
        if (!isRegularFile(file)) {
            choice.error = QStringLiteral("%1 is not a regular file").arg(file);
            return choice;
        }
    }
    QString firmwareFile = choice.files.value(options.bootLoader.isEmpty() ? 0 : 1);
    choice.version = Version::fileVersion(firmwareFile, Settings::getTesselNINEName(), &choice.hasV);
    return choice;
}
StationRun::StationRun(Settings *settings, StationOutput *output, FlashHistory *history, Options options,
                       QObject *parent)
    : QObject(parent), settings(settings), output(output), options(std::move(options)), history(history)
{
    timeLimit.setSingleShot(true);
    connect(&timeLimit, &QTimer::timeout, this, [this] {
        fail(QStringLiteral("Time limit of %1 s reached").arg(this->options.timeoutSeconds));
        end(2);
    });
    devicePoll.setSingleShot(true);
    connect(&devicePoll, &QTimer::timeout, this, &StationRun::lookForDevice);
    workerGrace.setSingleShot(true);
    connect(&workerGrace, &QTimer::timeout, this, [this] {
        leftBehind = true;
        finishWhenWorkerGone();
    });
}

StationRun::~StationRun()
{
    if (worker && workerGone)
        delete worker;
}

void StationRun::start()
{
    clock.start();
    // Folders of runs that were killed outright (SIGKILL, power cut) go now.
    OwnedFolder::removeAbandoned(Platform::workingRoot() + QLatin1String("/station-"));
    // From the first look at the firmware on: that look may be what hangs.
    timeLimit.start(options.timeoutSeconds * 1000);
    checking = true;
    runOffThread<FirmwareChoice>(
        this, [options = options] { return chooseFirmware(options); },
        [this](const FirmwareChoice &choice) { firmwareChosen(choice); });
}

void StationRun::start(const FirmwareChoice &choice, const ListedDevice &device)
{
    seenDevice = device;
    clock.start();
    timeLimit.start(options.timeoutSeconds * 1000);
    firmwareChosen(choice);
}

void StationRun::firmwareChosen(const FirmwareChoice &choice)
{
    checking = false;
    if (ending >= 0)
        return;
    if (!choice.error.isEmpty()) {
        fail(choice.error);
        end(2);
        return;
    }
    files = choice.files;
    packageVersion = choice.version;
    packageHasV = choice.hasV;
    if (!chooseDevice()) {
        end(2);
        return;
    }
    output->setUnit(port, serial, output->isLabelled());
    output->start(port, files, packageVersion, before);
    if (history) {
        recorder = new FlashRecorder(history, this);
        if (!recorder->begin(flashUnit(QStringLiteral("station"), port, serial, before, packageVersion, !options.zip))) {
            // No unit goes unrecorded.
            fail(recorder->error());
            end(2);
            return;
        }
    }
    if (!prepareWorkingFolder()) {
        end(2);
        return;
    }
    startWorker();
}

void StationRun::stop()
{
    if (ending >= 0)
        return;
    fail(QStringLiteral("Stopped by a signal"));
    end(1);
}

bool StationRun::chooseDevice()
{
    bool accessDenied = false;
    // A device just seen by the caller needs no second listing.
    const QList<ListedDevice> devices = seenDevice ? QList<ListedDevice>{*seenDevice}
                                                   : listDfuDevices(*settings, &accessDenied);
    const ListedDevice *chosen = nullptr;
    if (!options.port.isEmpty()) {
        for (const ListedDevice &device : devices) {
            if (device.port == options.port && device.isTesselNine())
                chosen = &device;
        }
    } else if (devices.size() > 1) {
        QStringList ports;
        for (const ListedDevice &device : devices)
            ports << device.port;
        fail(windowText("DFUThread", "More than one DFU capable USB device found") +
             QStringLiteral(": ports %1. Name the one to flash with --port.").arg(ports.join(QLatin1String(", "))));
        return false;
    } else if (devices.size() == 1 && devices.first().isTesselNine()) {
        chosen = &devices.first();
    }
    if (!chosen) {
        fail(ErrorTexts::deviceNotConnected(accessDenied));
        return false;
    }
    if (!options.portLocked && !portLock.lock(chosen->port)) {
        fail(portLock.error().isEmpty()
                 ? QStringLiteral("Another run is flashing the device on port %1").arg(chosen->port)
                 : QStringLiteral("Cannot lock port %1: %2").arg(chosen->port, portLock.error()));
        return false;
    }
    port = chosen->port;
    serial = chosen->serial;
    before = chosen->version;
    recovering = chosen->dfuMode;
    return true;
}

bool StationRun::prepareWorkingFolder()
{
    workingFolder = ownedFolder.make(Platform::workingRoot() + QLatin1String("/station-"));
    if (workingFolder.isEmpty()) {
        fail(QStringLiteral("Cannot make a working folder in %1").arg(Platform::workingRoot()));
        return false;
    }
    if (!settings->useWorkingFolder(workingFolder)) {
        fail(QStringLiteral("Cannot prepare the working folder %1").arg(workingFolder));
        return false;
    }
    return true;
}

void StationRun::startWorker()
{
    const bool bootLoader = !options.bootLoader.isEmpty();
    // Revision 0: the newer tool knows none, and a boot loader run takes the small size.
    worker = new DFUThread(settings, bootLoader ? 1 : 0, files, 0, options.zip, false, nullptr);
    worker->bindToPort(port);
    worker->setTransferStatusShown(false); // a transfer comes as its file event
    connect(worker, &DFUThread::updateStatus, this, [this](const QString &status) { output->stage(status); });
    connect(worker, &DFUThread::transferStarted, this, [this](const QString &stage, const QString &file, int n, int of) {
        remaining = -1;
        output->file(stage, file, n, of);
    });
    connect(worker, &DFUThread::updateProgress, this, [this](int value) { percent = value; });
    connect(worker, &DFUThread::timeRemaining, this, [this](const QString &min, const QString &sec) {
        remaining = min.toInt() * 60 + sec.toInt();
    });
    connect(worker, &DFUThread::updateWrittenStatus, this, [this](long written, long total, bool bytes) {
        output->progress(percent, written, total, bytes, remaining);
    });
    connect(worker, &DFUThread::errorOutputSignal, this,
            [this](const QString &text) { fail(ErrorTexts::flashingFailed(text)); });
    connect(worker, &DFUThread::msgboxErrorSignal, this, [this](ErrorTexts::errorLevel level, const QString &text) {
        if (level == ErrorTexts::Error)
            fail(text);
    });
    connect(worker, &DFUThread::breakFlashing, this, [this] {
        output->stage(QStringLiteral("Boot loader written: waiting for the device to restart on port %1").arg(port));
        waitForDevice(restartMs, 0, [this](const ListedDevice &) { worker->continueFlashing(); });
    });
    connect(worker, &DFUThread::exitCode, this, &StationRun::workerExited);
    if (recorder)
        recorder->follow(worker);
    // The last of the worker's signals: whatever it said before comes before the result.
    connect(worker, &QThread::finished, this, [this] {
        workerGone = true;
        finishWhenWorkerGone();
    });
    worker->start(QThread::InheritPriority);
}

void StationRun::workerExited(int code)
{
    workerEnded = true;
    if (ending >= 0)
        return;
    if (code != 0) {
        if (!errorShown)
            fail(ErrorTexts::flashingNotCompleted());
        end(2);
        return;
    }
    output->stage(QStringLiteral("Flashed: waiting for the device on port %1 to show its version").arg(port));
    waitForDevice(0, backAfterFlashMs, [this](const ListedDevice &device) {
        after = device.version;
        if (after == packageVersion && device.hasV == packageHasV) {
            end(0);
            return;
        }
        fail(QStringLiteral("The device on port %1 runs %2, not %3").arg(port, after, packageVersion));
        end(2);
    });
}

void StationRun::waitForDevice(int firstLookMs, int patienceMs, std::function<void(const ListedDevice &)> back)
{
    onDeviceBack = std::move(back);
    patience = patienceMs;
    waited.start();
    devicePoll.start(firstLookMs);
}

// The listing runs on a thread of its own: runs that share a process (watch) must not
// wait for each other's looks.
void StationRun::lookForDevice()
{
    if (ending >= 0 || looking)
        return;
    looking = true;
    runOffThread<QList<ListedDevice>>(
        this,
        [dfuUtil = settings->getDfuUtilPath()] {
            bool accessDenied = false;
            return listDfuDevices(dfuUtil, &accessDenied);
        },
        [this](const QList<ListedDevice> &devices) { devicesListed(devices); });
}

void StationRun::devicesListed(const QList<ListedDevice> &devices)
{
    looking = false;
    if (ending >= 0) {
        finishWhenWorkerGone();
        return;
    }
    for (const ListedDevice &device : devices) {
        if (device.port == port && device.isTesselNine() && !device.dfuMode) {
            deviceIsBack(device);
            return;
        }
    }
    if (patience > 0 && waited.elapsed() > patience) {
        fail(QStringLiteral("The device did not come back on port %1").arg(port));
        end(2);
        return;
    }
    devicePoll.start(lookEveryMs);
}

void StationRun::deviceIsBack(const ListedDevice &device)
{
    output->stage(QStringLiteral("The device is on port %1, %2").arg(port, device.name));
    const auto back = std::exchange(onDeviceBack, nullptr);
    if (back)
        back(device);
}

void StationRun::fail(const QString &text)
{
    errorShown = true;
    lastError = text;
    output->error(text);
}

void StationRun::end(int exitCode)
{
    if (ending >= 0)
        return;
    ending = exitCode;
    timeLimit.stop();
    devicePoll.stop();
    if (worker && !workerEnded) {
        // Killed and reaped: the worker kills its tools and waits for them.
        worker->abortFlashing();
        worker->abortByUser();
    }
    // A look at the firmware still under way may never return.
    leftBehind = checking;
    if (worker && !workerGone)
        workerGrace.start(workerGraceMs);
    finishWhenWorkerGone();
}

void StationRun::finishWhenWorkerGone()
{
    if (ending < 0 || reported || (worker && !workerGone && !leftBehind) || looking)
        return;
    workerGrace.stop();
    reported = true;
    ownedFolder.release();
    if (!workingFolder.isEmpty() && !Settings::removeFolder(workingFolder))
        output->error(QStringLiteral("Cannot remove the working folder %1").arg(workingFolder));
    outcomeWord = flashOutcome(ending, recovering, ending == 1);
    if (recorder && recorder->hasBegun() && !recorder->finish(outcomeWord, after, lastError))
        output->error(recorder->error());
    output->result(ending, outcomeWord, before, after, clock.elapsed() / 1000.0);
    emit finished(ending);
}
