// The "USB Drive" tab of the Tessel NINE: choose a firmware, choose a removable drive,
// prepare its folder and write the firmware there for the device to pick up.
#include "dialog.h"
#include "ui_dialog.h"

#include "dialogquestions.h"
#include "flash/retireworker.h"

#include "app/settings.h"
#include "download/myselectionlist.h"
#include "firmware/fileverify.h"
#include "firmware/firmwarechoice.h"
#include "flash/usbwritethread.h"
#include "platform/platform.h"

#include <QDir>

namespace {
const QString stickFolderName = QStringLiteral(".zelko_update");
} // namespace

void Dialog::setRemovableDriveSource(std::function<QStringList()> source)
{
    removableDrives = std::move(source);
}

void Dialog::slotUSBExtractSearchTesselNINE()
{
    resetStatus();
    settings->createExtractFolder();
    ui->usbDriveStartButton_tessel_nine->setEnabled(false);
    chooseFirmwareFile(this, tr("Open file"), settings, options, ui->actionUseZipSearch->isChecked());
    usedZipSearch = ui->actionUseZipSearch->isChecked();
    checkFirmware(FirmwareOrigin::UsbDrive, Fileverify::Device::TesselNINE);
}

void Dialog::slotUSBWriteTesselNINE()
{
    if (usbWriting) {
        // The run may end while the question is open: then there is nothing to abort.
        if (!DialogQuestions::questionAbortUsbWrite() || !usbWriting)
            return;
        ui->statusLabel->setText(ErrorTexts::processWillBeAborted());
        ui->usbDriveStartButton_tessel_nine->setEnabled(false);
        if (usbWriteThread && usbWriteThread->isRunning())
            usbWriteThread->abortByUser();
        return;
    }
    if (jobRunning())
        return;
    disposeUsbWriteThread();
    resetStatus();
    settings->createExtractFolder();
    const QStringList drives = removableDrives();
    if (drives.isEmpty()) {
        showMsgBox(ErrorTexts::Warning, tr("No USB mass storage detected!\nPlease insert a USB Stick where the "
                                           "firmware can be extracted to."));
        return;
    }
    NoExtractDestination();
    driveList = new MySelectionList(drives, QString(), tr("Please select destination USB drive"), tr("USB drives"),
                                    nullptr);
    connect(driveList, &MySelectionList::sendSelectEvent, this, &Dialog::ExtractToDestination);
    connect(driveList, &MySelectionList::sendCancelEvent, this, &Dialog::NoExtractDestination);
    driveList->setVisible(true);
}

void Dialog::NoExtractDestination()
{
    if (driveList) {
        driveList->disconnect(this);
        driveList->deleteLater();
        driveList = nullptr;
    }
}

void Dialog::ExtractToDestination(const QString &outdir)
{
    NoExtractDestination();
    // A list left open while another job started: its pick comes too late.
    if (jobRunning())
        return;
    const QDir folder(QDir::toNativeSeparators(outdir + QLatin1Char('/') + stickFolderName));
    const QString path = folder.absolutePath();
    if (folder.exists() && !DialogQuestions::questionOverwriteFolder(path))
        return;
    // A stick is anyone's: a link found there is removed as a link, never followed.
    if (!Settings::removeFolder(path)) {
        ui->statusLabel->setText(tr("Unable to remove destination directory!"));
        return;
    }
    if (!QDir().mkpath(path)) {
        ui->statusLabel->setText(tr("Unable to create destination directory!"));
        return;
    }
    setHiddenAttribute(path);
    disposeUsbWriteThread();
    ui->progressBar->setMaximum(100);
    usbWriteThread = new USBWriteThread(settings, firmwareFiles, path, usedZipSearch, nullptr);
    connect(usbWriteThread, &USBWriteThread::updateStatus, this, &Dialog::updateStatus);
    connect(usbWriteThread, &USBWriteThread::msgboxErrorSignal, this, &Dialog::showMsgBox);
    connect(usbWriteThread, &USBWriteThread::sigenableAbort, this, &Dialog::extractEnableAbort);
    connect(usbWriteThread, &USBWriteThread::sigdisableAbort, this, &Dialog::extractDisableAbort);
    connect(usbWriteThread, &USBWriteThread::updateWriteUSBProgress, this, &Dialog::setDFUProgress);
    connect(usbWriteThread, &USBWriteThread::exitCode, this,
            [this](int code) { exitDfuInternalAutomaticOK(code == 0 ? ExitCode::Success : ExitCode::Failed); });
    usbWriteThread->start(QThread::InheritPriority);
}

void Dialog::disposeUsbWriteThread()
{
    retireWorker(usbWriteThread, this, &USBWriteThread::stop);
}

void Dialog::extractEnableAbort()
{
    usbWriting = true;
    ui->usbDriveStartButton_tessel_nine->setText(tr("Abort"));
    ui->exsearchButton_tessel_nine->setEnabled(false);
    disableTab();
    if (!dfuMissing)
        setBootLoaderActionEnabled(false);
}

void Dialog::extractDisableAbort()
{
    usbWriting = false;
    // After a confirmed abort it stays disabled until a firmware is chosen again.
    ui->usbDriveStartButton_tessel_nine->setText(tr("Start"));
    ui->exsearchButton_tessel_nine->setEnabled(true);
    enableTabs();
    if (!dfuMissing)
        setBootLoaderActionEnabled(true);
}
