// The "USB Cable" tab of the Tessel NINE: choose a firmware, ask the device, flash, abort.
#include "dialog.h"
#include "ui_dialog.h"

#include "dialogquestions.h"
#include "flash/retireworker.h"

#include "app/settings.h"
#include "firmware/fileverify.h"
#include "firmware/firmwarechoice.h"
#include "firmware/version.h"
#include "flash/dfuthread.h"

void Dialog::slotLocalSearchTesselNINE()
{
    resetStatus();
    settings->createExtractFolder();
    if (!selectFirmware(this, tr("Open file"), settings, deviceMissing, options, ui->actionUseZipSearch->isChecked(),
                        usedZipSearch))
        showMsgBox(ErrorTexts::Error, tr("No firmware file in directory"));
    usedZipSearch = ui->actionUseZipSearch->isChecked();
    checkFirmware(0, 0);
}

void Dialog::checkFirmware(int origin, int device)
{
    const QString path = device == 1 ? settings->getSearchPathBrioMel() : settings->getSearchPath();
    Fileverify verify(path);
    const int result = verify.verify(device);
    const QString text = Fileverify::resultText(result);
    if (device == 1) {
        ui->localStatus_tessel_briomel->setText(text);
        ui->lsearchEdit_tessel_briomel->setText(path);
    } else {
        // Both Tessel NINE tabs always show the same firmware.
        ui->localStatus_tessel_nine->setText(text);
        ui->exStatus_tessel_nine->setText(text);
        ui->lsearchEdit_tessel_nine->setText(path);
        ui->exsearchEdit_tessel_nine->setText(path);
    }
    if (result != Fileverify::FilesFound) {
        rejectFirmware();
        return;
    }
    firmwareFiles = verify.getFlashFiles();
    checkDevice(origin, device);
}

void Dialog::rejectFirmware()
{
    ui->lupdateButton_tessel_nine->setEnabled(false);
    ui->usbDriveStartButton_tessel_nine->setEnabled(false);
    deviceMissing = false;
    restoreSearchButtonText();
    exitInternalAutomatic(2);
}

void Dialog::checkDevice(int origin, int device)
{
    if (device == 1) {
        startUsbDetection();
        return;
    }

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
    if (origin == 0) {
        ui->lupdateButton_tessel_nine->setEnabled(false);
        showMsgBox(ErrorTexts::Error, ErrorTexts::deviceNotConnected(version->isAccessDenied()));
    }
    exitInternalAutomatic(2);
}

bool Dialog::askDevice()
{
    QString file = firmwareFiles.value(0);
    bool selectedHasV = false;
    const QString selected = Version::fileVersion(file, Settings::getTesselNINEName(), &selectedHasV);
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
    if (dfuThread && dfuThread->isRunning()) {
        flashAborted = true;
        dfuThread->abortByUser();
    }
    else if (!jobRunning())
        startFlash();
}

void Dialog::startFlash()
{
    disposeDfuThread();
    ui->progressBar->show();
    if (!recheckDevice())
        return;
    if (!(deviceInUpdateMode ? DialogQuestions::questionRecoverDevice(options.automatic)
                             : DialogQuestions::questionFlash(options.automatic, versionCompare)))
        return;
    setDefaultNetSearchText();
    startDfuWorker();
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

void Dialog::startDfuWorker()
{
    resetStatus();
    if (deferUntilGone(retiredDfuThread, this, startPending, [this] { startDfuWorker(); }))
        return;
    jobStarts();
    settings->createExtractFolder();
    ui->progressBar->setMaximum(100);
    disposeDfuThread();
    dfuThread = new DFUThread(settings, 0, firmwareFiles, bootLoaderRev, usedZipSearch, false, nullptr);
    connect(dfuThread, &DFUThread::updateProgress, this, &Dialog::setTotalProgress);
    connect(dfuThread, &DFUThread::updateDFUProgress, this, &Dialog::setDFUProgress);
    connect(dfuThread, &DFUThread::updateStatus, this, &Dialog::updateStatus);
    connect(dfuThread, &DFUThread::updateWrittenStatus, this, &Dialog::updateWrittenStatus);
    connect(dfuThread, &DFUThread::msgboxErrorSignal, this, &Dialog::showMsgBox);
    connect(dfuThread, &DFUThread::errorOutputSignal, this, &Dialog::errorOutputSlot);
    connect(dfuThread, &DFUThread::exitCode, this, &Dialog::exitDfuInternalAutomaticOK);
    connect(dfuThread, &DFUThread::sigenableAbort, this, &Dialog::lenableAbort);
    connect(dfuThread, &DFUThread::sigdisableAbort, this, &Dialog::ldisableAbort);
    connect(dfuThread, &DFUThread::externalProcessesFinished, this, &Dialog::externProcessesFinished);
    flashAborted = false;
    recording.begin(dfuThread, *version, deviceVersion, firmwareFiles.value(0),
                    settings->isGpgAvailable() && !usedZipSearch, deviceInUpdateMode);
    connect(dfuThread, &DFUThread::exitCode, this, [this](int code) { recording.end(code, flashAborted); });
    dfuThread->start(QThread::InheritPriority);
}

void Dialog::disposeDfuThread()
{
    if (DFUThread *stillRunning = retireWorker(dfuThread, this, &DFUThread::abortByUser)) {
        retiredDfuThread = stillRunning;
        keepRetiring(stillRunning);
    }
}

void Dialog::externProcessesFinished()
{
    Version::listDevices(settings);
    if (flashing)
        flashNotCompleted();
    else
        startFlash();
}

void Dialog::flashNotCompleted()
{
    disposeDfuThread();
    showMsgBox(ErrorTexts::Error, ErrorTexts::flashingNotCompleted());
    finishAborted();
    ui->lupdateButton_tessel_nine->setEnabled(true);
}

void Dialog::finishAborted()
{
    resetStatus();
    showAbortedStatus();
    settings->createExtractFolder();
    ldisableAbort();
    exitInternalAutomatic(1);
}
