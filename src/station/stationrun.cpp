#include "stationrun.h"

#include "stationoutput.h"
#include "stationpackage.h"

#include "app/settings.h"
#include "firmware/fileverify.h"
#include "firmware/firmwarenames.h"
#include "flash/flashjob.h"
#include "flash/flashtexts.h"
#include "platform/platform.h"

#include <QFileInfo>

namespace {
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
            choice.error = QStringLiteral("No firmware file in directory");
            return choice;
        }
    } else if (QFileInfo::exists(path) && !isRegularFile(path)) {
        choice.error = QStringLiteral("%1 is not a regular file").arg(path);
        return choice;
    }
    Fileverify verify(path);
    const Fileverify::Result result = verify.verify(Fileverify::Device::TesselNINE);
    if (result != Fileverify::Result::FilesFound) {
        choice.error = Fileverify::resultText(result);
        return choice;
    }
    choice.files = verify.getFlashFiles();
    if (!options.bootLoader.isEmpty()) {
        if (!isBootLoaderFile(options.bootLoader)) {
            choice.error = QStringLiteral("Selected file is no boot loader\nfile or does not exist!");
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
    choice.version = FlashJob::versionOf(
        choice.files, options.bootLoader.isEmpty() ? FlashMode::Firmware : FlashMode::BootLoaderFirst, &choice.hasV);
    return choice;
}

StationRun::StationRun(Settings *settings, StationOutput *output, HistoryWriter *history, Options options,
                       QObject *parent)
    : QObject(parent), settings(settings), output(output), history(history), options(std::move(options))
{
    timeLimit.setSingleShot(true);
    connect(&timeLimit, &QTimer::timeout, this, [this] {
        const FlashError reason(FlashError::Code::TimeLimit, {}, this->options.timeoutSeconds);
        if (job) {
            job->abandon(reason);
            return;
        }
        fail(FlashTexts::error(reason));
        end(FlashOutcome::Failed);
    });
}

StationRun::~StationRun() = default;

bool StationRun::preparedChanged() const
{
    return job && job->error().code == FlashError::Code::PreparedChanged;
}

bool StationRun::leftThreadsBehind() const
{
    return checking || (job && job->leftThreadsBehind());
}

void StationRun::start()
{
    clock.start();
    // Folders of runs that were killed outright (SIGKILL, power cut) go now.
    OwnedFolder::removeAbandoned(Platform::workingRoot() + QLatin1String("/station-"));
    // From the first look at the firmware on: that look may be what hangs.
    timeLimit.start(options.timeoutSeconds * 1000);
    deadline.setRemainingTime(options.timeoutSeconds * 1000);
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
    deadline.setRemainingTime(options.timeoutSeconds * 1000);
    firmwareChosen(choice);
}

void StationRun::firmwareChosen(const FirmwareChoice &choice)
{
    checking = false;
    if (reported)
        return;
    if (!choice.error.isEmpty()) {
        fail(choice.error);
        end(FlashOutcome::Failed);
        return;
    }
    if (!prepareWorkingFolder()) {
        end(FlashOutcome::Failed);
        return;
    }
    startJob(choice);
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

void StationRun::startJob(const FirmwareChoice &choice)
{
    FlashJob::Options flash;
    flash.mode = options.bootLoader.isEmpty() ? FlashMode::Firmware : FlashMode::BootLoaderFirst;
    flash.files = choice.files;
    if (options.prepared)
        flash.prepared = options.prepared->package;
    flash.plainZips = options.zip;
    flash.pacer = options.pacer;
    flash.port = options.port;
    flash.portLockHeld = options.portLocked;
    if (seenDevice)
        flash.seen = QList<ListedDevice>{*seenDevice};
    flash.verifyReturn = true;
    flash.leaveCurrent = options.leaveCurrent;
    flash.history = history;
    flash.program = QStringLiteral("station");
    flash.recordRequired = true;
    flash.recordDeadline = deadline;
    job = new FlashJob(settings, flash, this);
    connect(job, &FlashJob::started, this, [this, choice](const ListedDevice &device) {
        port = device.port;
        before = device.version;
        output->setUnit(device.port, device.serial, output->isLabelled());
        output->start(device.port, choice.files, choice.version, device.version);
    });
    connect(job, &FlashJob::stageChanged, this, &StationRun::showStage);
    connect(job, &FlashJob::fileStarted, this, [this](const QString &stage, const QString &file, int n, int of) {
        output->file(FirmwareNames::stageLabel(stage), file, n, of);
    });
    connect(job, &FlashJob::progressed, this, [this](const FlashProgress &p) {
        output->progress(p.percent, p.shownWritten(), p.shownTotal(), p.inBytes(), p.secondsLeft);
    });
    // Nobody to ask: --port names the device, and the device restarts by itself.
    connect(job, &FlashJob::deviceChoiceRequested, job, [this] { job->chooseDevice(QString()); });
    connect(job, &FlashJob::restartRequested, job, &FlashJob::resume);
    connect(job, &FlashJob::deviceReturned, this, [this](const ListedDevice &device) {
        output->stage(QStringLiteral("The device is on port %1, %2").arg(device.port, device.name));
    });
    connect(job, &FlashJob::errorOccurred, this, [this](const FlashError &error) { fail(errorText(error)); });
    connect(job, &FlashJob::finished, this, [this](FlashOutcome outcome) {
        before = job->unit().version;
        after = job->versionAfter();
        end(outcome, job->isRecorded());
    });
    job->start();
}

void StationRun::showStage(FlashStage stage)
{
    if (stage == FlashStage::Restarting)
        output->stage(QStringLiteral("Boot loader written: waiting for the device to restart on port %1").arg(port));
    else if (stage == FlashStage::Verifying)
        output->stage(QStringLiteral("Flashed: waiting for the device on port %1 to show its version").arg(port));
    else
        output->stage(FlashTexts::stage(stage));
}

QString StationRun::errorText(const FlashError &error) const
{
    if (error.code == FlashError::Code::SeveralDevices)
        return FlashTexts::error(error) +
               QStringLiteral(": ports %1. Name the one to flash with --port.").arg(error.args.join(QLatin1String(", ")));
    return FlashTexts::errorBox(error);
}

void StationRun::stop()
{
    if (reported)
        return;
    fail(QStringLiteral("Stopped by a signal"));
    if (job)
        job->stop();
    else
        end(FlashOutcome::Stopped);
}

void StationRun::fail(const QString &text)
{
    output->error(text);
}

void StationRun::end(FlashOutcome outcome, bool isRecorded)
{
    if (reported)
        return;
    reported = true;
    ending = outcome;
    recorded = isRecorded;
    timeLimit.stop();
    ownedFolder.release();
    if (!workingFolder.isEmpty() && !Settings::removeFolder(workingFolder))
        output->error(QStringLiteral("Cannot remove the working folder %1").arg(workingFolder));
    const ExitCode code = exitCodeFor(outcome, recorded);
    if (options.beforeResult)
        options.beforeResult();
    output->result(toInt(code), outcomeWord(outcome), before, after, clock.elapsed() / 1000.0, recorded);
    emit finished(code);
}
