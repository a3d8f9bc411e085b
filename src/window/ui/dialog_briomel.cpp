// The "USB Cable" tab of the Brio Mel: choose a .zkl file, ask detector, flash by XMODEM.
#include "dialog.h"
#include "ui_dialog.h"

#include "dialogquestions.h"
#include "flash/retireworker.h"

#include "app/settings.h"
#include "firmware/fileverify.h"
#include "flash/usbdetector.h"
#include "flash/xmodemthread.h"

#include <QDir>
#include <QFileDialog>
#include <QFileInfo>

void Dialog::slotLocalSearchBrioMel()
{
    resetStatus();
    settings->createExtractFolder();
    ui->usbDriveStartButton_tessel_nine->setEnabled(false);
    const QString last = settings->getSearchPathBrioMel();
    const QString startFolder = last.isEmpty() ? QDir::homePath() : QFileInfo(last).canonicalPath();
    const QString chosen = QFileDialog::getOpenFileName(this, QStringLiteral("Open File"),
                                                        startFolder.isEmpty() ? QDir::homePath() : startFolder,
                                                        QStringLiteral("Zelko Firmware (*.zkl)"));
    if (!chosen.isEmpty()) {
        settings->setSearchPathBrioMel(chosen);
        startUsbDetection();
    } else {
        ui->lupdateButton_tessel_briomel->setEnabled(false);
    }
    Fileverify verify(chosen);
    const Fileverify::Result result = verify.verify(Fileverify::Device::BrioMel);
    ui->localStatus_tessel_briomel->setText(Fileverify::resultText(result));
    ui->lsearchEdit_tessel_briomel->setText(chosen);
    if (result == Fileverify::Result::FilesFound)
        firmwareFiles = verify.getFlashFiles();
    else
        rejectFirmware();
}

void Dialog::startUsbDetection()
{
    disposeUsbDetector();
    usbDetector = new USBDetector(settings->getDetectorPath(), nullptr);
    connect(usbDetector, &USBDetector::usbDetected, this, &Dialog::setBrioMelDetected);
    usbDetector->start(QThread::InheritPriority);
}

void Dialog::setBrioMelDetected(bool detected)
{
    // One answer per check: the detector goes before the box can let another in.
    disposeUsbDetector();
    ui->lupdateButton_tessel_briomel->setEnabled(detected);
    if (!detected)
        showMsgBox(ErrorTexts::Error, ErrorTexts::deviceNotConnected());
}

void Dialog::disposeUsbDetector()
{
    // A detector that hangs is stopped; it is never destroyed while it runs.
    retireWorker(usbDetector, this, &USBDetector::stop);
}

void Dialog::slotUpdateBrioMel()
{
    if (xmodemThread && xmodemThread->isRunning()) {
        // The run may end while the question is open: then there is nothing to abort.
        if (!DialogQuestions::questionAbortFlash() || !xmodemThread || !xmodemThread->isRunning())
            return;
        ui->statusLabel->setText(ErrorTexts::processWillBeAborted());
        ui->lupdateButton_tessel_briomel->setEnabled(false);
        xmodemThread->killXmodem();
        return;
    }
    if (jobRunning())
        return;
    jobStarts();
    disposeXmodemThread();
    resetStatus();
    xmodemThread = new XMODEMthread(settings->getXmodemUtilPath(), ui->lsearchEdit_tessel_briomel->text(), nullptr);
    ui->progressBar->show();
    connect(xmodemThread, &XMODEMthread::externalProcessesFinished, this, &Dialog::userAbortXmodem);
    // The worker waits while its box is open, so what follows a box comes after it,
    // as it does for a technician reading it.
    connect(xmodemThread, &XMODEMthread::msgboxErrorSignal, this, &Dialog::showMsgBox, Qt::BlockingQueuedConnection);
    connect(xmodemThread, &XMODEMthread::updateStatus, this, &Dialog::updateStatus);
    connect(xmodemThread, &XMODEMthread::sigenableAbort, this, &Dialog::lenableAbort);
    connect(xmodemThread, &XMODEMthread::sigdisableAbort, this, &Dialog::ldisableAbort);
    connect(xmodemThread, &XMODEMthread::sigProgress, this, &Dialog::setProgressBar);
    connect(xmodemThread, &XMODEMthread::flashFinished, this, &Dialog::abortXmodem);
    xmodemThread->start(QThread::InheritPriority);
}

void Dialog::disposeXmodemThread()
{
    retireWorker(xmodemThread, this, &XMODEMthread::killXmodem);
}

void Dialog::abortXmodem()
{
    disposeXmodemThread();
    resetStatus();
    ldisableAbort();
    setProgressBar(0, 100);
    ui->lupdateButton_tessel_briomel->setEnabled(true);
}

void Dialog::userAbortXmodem()
{
    disposeXmodemThread();
    finishAborted();
    setProgressBar(0, 100);
    ui->lupdateButton_tessel_briomel->setEnabled(true);
}
