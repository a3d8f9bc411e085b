// The "USB Cable" tab of the Tessel NINE: choose a firmware, ask the device, flash, abort.
#include "dialog.h"
#include "ui_dialog.h"

#include "dialogquestions.h"

#include "app/settings.h"
#include "app/windowflash.h"
#include "firmware/fileverify.h"
#include "firmware/firmwarechoice.h"
#include "firmware/version.h"
#include "flash/flashjob.h"
#include "flash/flashtexts.h"

void Dialog::slotLocalSearchTesselNINE()
{
    resetStatus();
    settings->createExtractFolder();
    if (!selectFirmware(this, tr("Open file"), settings, deviceMissing, options, ui->actionUseZipSearch->isChecked(),
                        usedZipSearch))
        showMsgBox(ErrorTexts::Error, tr("No firmware file in directory"));
    usedZipSearch = ui->actionUseZipSearch->isChecked();
    checkFirmware(FirmwareOrigin::CableSearch, Fileverify::Device::TesselNINE);
}

void Dialog::checkFirmware(FirmwareOrigin origin, Fileverify::Device device)
{
    const bool brioMel = device == Fileverify::Device::BrioMel;
    const QString path = brioMel ? settings->getSearchPathBrioMel() : settings->getSearchPath();
    Fileverify verify(path);
    const Fileverify::Result result = verify.verify(device);
    const QString text = Fileverify::resultText(result);
    if (brioMel) {
        ui->localStatus_tessel_briomel->setText(text);
        ui->lsearchEdit_tessel_briomel->setText(path);
    } else {
        // Both Tessel NINE tabs always show the same firmware.
        ui->localStatus_tessel_nine->setText(text);
        ui->exStatus_tessel_nine->setText(text);
        ui->lsearchEdit_tessel_nine->setText(path);
        ui->exsearchEdit_tessel_nine->setText(path);
    }
    if (result != Fileverify::Result::FilesFound) {
        rejectFirmware();
        return;
    }
    firmwareFiles = verify.getFlashFiles();
    if (brioMel)
        startUsbDetection();
    else
        checkDevice(origin);
}

void Dialog::rejectFirmware()
{
    ui->lupdateButton_tessel_nine->setEnabled(false);
    ui->usbDriveStartButton_tessel_nine->setEnabled(false);
    deviceMissing = false;
    restoreSearchButtonText();
    exitInternalAutomatic(ExitCode::Failed);
}

void Dialog::checkDevice(FirmwareOrigin origin)
{
    if (!dfuMissing) {
        if (askDevice()) {
            ui->lupdateButton_tessel_nine->setEnabled(true);
            ui->usbDriveStartButton_tessel_nine->setEnabled(true);
            restoreSearchButtonText();
            deviceMissing = false;
            return;
        }
    }
    // A USB stick needs no device.
    ui->usbDriveStartButton_tessel_nine->setEnabled(true);
    if (!dfuMissing)
        ui->statusLabel->setText(ErrorTexts::deviceNotConnected());
    ui->lsearchButton_tessel_nine->setText(tr("Connect"));
    deviceMissing = true;
    if (origin == FirmwareOrigin::CableSearch) {
        ui->lupdateButton_tessel_nine->setEnabled(false);
        showMsgBox(ErrorTexts::Error, ErrorTexts::deviceNotConnected(version->isAccessDenied()));
    }
    exitInternalAutomatic(ExitCode::Failed);
}

bool Dialog::askDevice()
{
    bool selectedHasV = false;
    const QString selected = FlashJob::versionOf(firmwareFiles, FlashMode::Firmware, &selectedHasV);
    bool found = false;
    bool currentHasV = false;
    deviceVersion = version->getDeviceVersion(&found, &currentHasV);
    bootLoaderRev = version->getBootLoaderRev();
    // A flash that was cut leaves the device waiting in DFU mode: it is there to be flashed.
    deviceInUpdateMode = !found && version->isInUpdateMode();
    if (found)
        showDeviceVersion(selected, selectedHasV, deviceVersion, currentHasV);
    else if (deviceInUpdateMode)
        ui->statusLabel->setText(tr("The device waits in update mode: an earlier flash did not end"));
    return found || deviceInUpdateMode;
}

void Dialog::showDeviceVersion(const QString &selected, bool selectedHasV, const QString &current, bool currentHasV)
{
    versionCompare = Version::compareVersions(selected, selectedHasV, current, currentHasV);
    ui->statusLabel->setText(tr("Current version   ") + Settings::getTesselNINEName() + QLatin1Char('.') + current);
}

void Dialog::slotUpdateTesselNINE()
{
    if (flashing) {
        // The run may end while the question is open: then there is nothing to abort.
        if (!DialogQuestions::questionAbortFlash() || !flashing)
            return;
        ui->statusLabel->setText(ErrorTexts::processWillBeAborted());
        ui->lupdateButton_tessel_nine->setEnabled(false);
    }
    startOrAbortFlash();
}

void Dialog::startOrAbortFlash()
{
    if (flashJob)
        flashJob->stop();
    else if (!jobRunning())
        startFlash();
}

void Dialog::startFlash()
{
    ui->progressBar->show();
    if (!recheckDevice())
        return;
    if (!(deviceInUpdateMode ? DialogQuestions::questionRecoverDevice(options.automatic)
                             : DialogQuestions::questionFlash(options.automatic, versionCompare)))
        return;
    setDefaultNetSearchText();
    startFlashJob();
}

bool Dialog::recheckDevice()
{
    resetStatus();
    if (askDevice()) {
        restoreSearchButtonText();
        deviceMissing = false;
        return true;
    }
    ui->statusLabel->setText(ErrorTexts::deviceNotConnected());
    ui->lsearchButton_tessel_nine->setText(tr("Connect"));
    ui->lupdateButton_tessel_nine->setEnabled(false);
    deviceMissing = true;
    showMsgBox(ErrorTexts::Error, ErrorTexts::deviceNotConnected(version->isAccessDenied()));
    return false;
}

void Dialog::startFlashJob()
{
    resetStatus();
    jobStarts();
    settings->createExtractFolder();
    ui->progressBar->setMaximum(100);
    // The device the question was about.
    FlashJob::Options flash = windowFlashOptions(*settings, *version, firmwareFiles, usedZipSearch);
    flash.bootLoaderRev = bootLoaderRev;
    flashJob = new FlashJob(settings, flash, this);
    // Queued, as a worker's signals are: a box opened for one lets the next one in.
    constexpr auto queued = Qt::QueuedConnection;
    connect(flashJob, &FlashJob::started, this, &Dialog::lenableAbort, queued);
    connect(flashJob, &FlashJob::stageChanged, this, [this](FlashStage stage) {
        if (const QString text = FlashTexts::stage(stage); !text.isEmpty())
            updateStatus(text);
    }, queued);
    connect(flashJob, &FlashJob::fileStarted, this, [this](const QString &stage, const QString &, int n, int of) {
        updateStatus(FlashTexts::transfer(stage, n, of));
    }, queued);
    connect(flashJob, &FlashJob::progressed, this, [this](const FlashProgress &progress) {
        setTotalProgress(progress.percent);
        updateWrittenStatus(progress.shownWritten(), progress.shownTotal(), progress.inBytes());
    }, queued);
    // Several devices: the user leaves the one to flash, as the welcome box asks.
    connect(flashJob, &FlashJob::deviceChoiceRequested, flashJob, [job = flashJob] { job->chooseDevice(QString()); });
    connect(flashJob, &FlashJob::errorOccurred, this, &Dialog::flashError, queued);
    connect(flashJob, &FlashJob::finished, this, &Dialog::flashEnded, queued);
    flashJob->start();
}

void Dialog::flashError(const FlashError &error)
{
    const FlashErrorDisplay shown = windowFlashError(error);
    if (!shown.status.isEmpty())
        updateStatus(shown.status);
    if (!shown.box.isEmpty())
        showMsgBox(ErrorTexts::Error, shown.box);
}

void Dialog::flashEnded(FlashOutcome outcome)
{
    FlashJob *job = std::exchange(flashJob, nullptr);
    if (!job)
        return;
    job->deleteLater();
    switch (outcome) {
    case FlashOutcome::Flashed:
    case FlashOutcome::Recovered:
    case FlashOutcome::Current:
        ldisableAbort();
        setTotalProgress(100);
        // An unattended run ends while the box is still open; flashed, but not recorded, with 3.
        QMetaObject::invokeMethod(
            this, [this, code = exitCodeFor(outcome, job->isRecorded())] { exitInternalAutomatic(code); },
            Qt::QueuedConnection);
        showMsgBox(ErrorTexts::Info, FlashTexts::completedBox());
        break;
    case FlashOutcome::Failed:
        ldisableAbort();
        if (!job->error().isPackageError())
            showAbortedStatus();
        break;
    case FlashOutcome::Stopped:
        Version::listDevices(settings);
        showMsgBox(ErrorTexts::Error, ErrorTexts::flashingNotCompleted());
        finishAborted();
        ui->lupdateButton_tessel_nine->setEnabled(true);
        break;
    }
}

void Dialog::finishAborted()
{
    resetStatus();
    showAbortedStatus();
    settings->createExtractFolder();
    ldisableAbort();
    exitInternalAutomatic(ExitCode::Stopped);
}
