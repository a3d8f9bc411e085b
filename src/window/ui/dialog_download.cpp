// The "Download from server" tabs: fetch the released firmware, or in expert mode a
// chosen version, and hand it to the firmware check so it is ready to flash.
#include "dialog.h"
#include "ui_dialog.h"

#include "dialogquestions.h"

#include "app/settings.h"
#include "download/expertsettings.h"
#include "download/filedownloader.h"

void Dialog::slotDownloadTesselNINE()
{
    slotDownload(ui->expertMode_tessel_nine->isChecked());
}

void Dialog::slotDownloadBrioMel()
{
    slotDownload(ui->expertMode_tessel_briomel->isChecked());
}

void Dialog::slotDownload(bool expert)
{
    // Progress goes to the hidden bar; the labels carry the news.
    ui->progressBar->hide();
    if (downloading) {
        if (DialogQuestions::questionAbortDownload() && downloading) {
            abortNetSearch();
            resetStatus();
        }
        return;
    }
    resetStatus();
    QString userIdentifier;
    if (expert) {
        ExpertSettings expertSettings(nullptr);
        expertSettings.setWindowTitle(tr("Use Expert Mode"));
        expertSettings.setModal(true);
        if (expertSettings.exec() != QDialog::Accepted)
            return;
        userIdentifier = expertSettings.getUserIdentifier();
    }
    startDownload(userIdentifier);
}

void Dialog::startDownload(const QString &userIdentifier)
{
    if (jobRunning())
        return;
    jobStarts();
    disposeDownloader(false);
    const auto protocol = ui->actionHTTPDownload->isChecked() ? FileDownloader::Http : FileDownloader::Ftp;
    FileDownloader::FirmwareDownloadOption option;
    if (ui->tab_devices->currentWidget() == ui->tessel_nine)
        option = ui->expertMode_tessel_nine->isChecked() ? FileDownloader::TesselNINEUnstable
                                                         : FileDownloader::TesselNINELatest;
    else if (ui->tab_devices->currentWidget() == ui->tessel_briomel)
        option = ui->expertMode_tessel_briomel->isChecked() ? FileDownloader::BrioMelUnstable
                                                            : FileDownloader::BrioMelLatest;
    else
        return;
    const bool unstable = option == FileDownloader::TesselNINEUnstable || option == FileDownloader::BrioMelUnstable;
    downloader = new FileDownloader(this, &questions, settings, protocol, option, QString(),
                                    unstable ? userIdentifier : QString());
    connect(downloader, &FileDownloader::sigStartedConnection, this, &Dialog::initializedDownload);
    connect(downloader, &FileDownloader::sigStartedDownload, this, &Dialog::startedDownload);
    connect(downloader, &FileDownloader::sigFinished, this, &Dialog::finishedDownload);
    connect(downloader, qOverload<>(&FileDownloader::sigAbortDownload), this, qOverload<>(&Dialog::abortNetSearch));
    connect(downloader, qOverload<QString>(&FileDownloader::sigAbortDownload), this,
            qOverload<const QString &>(&Dialog::abortNetSearch));
    connect(downloader, qOverload<QString>(&FileDownloader::sigSearchLabelText), this, &Dialog::setNetSearchText);
    connect(downloader, qOverload<>(&FileDownloader::sigSearchLabelText), this, &Dialog::setDefaultNetSearchText);
    connect(downloader, &FileDownloader::sigStatusLabel, this, &Dialog::updateStatus);
    connect(downloader, &FileDownloader::sigProgress, this, &Dialog::setProgressBar);
    connect(downloader, &FileDownloader::sigMsgBox, this, &Dialog::showMsgBox);
    downloader->download(ui->actionUseZipSearch->isChecked());
}

void Dialog::finishedDownload(const QStringList &fwfiles, const QString &, FileDownloader::FirmwareDownloadOption option)
{
    firmwareFiles = fwfiles;
    disposeDownloader(false);
    showMsgBox(ErrorTexts::Info, tr("Download completed!"));
    resetDownloadControls();
    const bool brioMel = option == FileDownloader::BrioMelLatest || option == FileDownloader::BrioMelUnstable;
    checkFirmware(FirmwareOrigin::Download, brioMel ? Fileverify::Device::BrioMel : Fileverify::Device::TesselNINE);
}

void Dialog::disposeDownloader(bool abort)
{
    if (downloader) {
        downloader->disconnect(this);
        if (abort)
            downloader->abortAll();
        downloader->deleteLater();
        downloader = nullptr;
    }
}

void Dialog::abortNetSearch()
{
    disposeDownloader(true);
    resetDownloadControls();
    ui->progressBar->setValue(0);
}

void Dialog::abortNetSearch(const QString &text)
{
    abortNetSearch();
    showMsgBox(ErrorTexts::Error, text);
}

void Dialog::initializedDownload()
{
    resetStatus();
    for (QAbstractButton *control : std::initializer_list<QAbstractButton *>{
             ui->nsearchButton_tessel_nine, ui->nsearchButton_tessel_briomel, ui->expertMode_tessel_nine,
             ui->expertMode_tessel_briomel})
        control->setEnabled(false);
    disableTab();
    if (!dfuMissing)
        setBootLoaderActionEnabled(false);
}

void Dialog::startedDownload()
{
    downloading = true;
    for (QPushButton *button : {ui->nsearchButton_tessel_nine, ui->nsearchButton_tessel_briomel}) {
        button->setText(tr("Abort"));
        button->setEnabled(true);
    }
    disableTab();
    if (!dfuMissing)
        setBootLoaderActionEnabled(false);
}

void Dialog::resetDownloadControls()
{
    setDefaultNetSearchText();
    for (QPushButton *button : {ui->nsearchButton_tessel_nine, ui->nsearchButton_tessel_briomel}) {
        button->setText(tr("Search..."));
        button->setEnabled(true);
    }
    ui->expertMode_tessel_nine->setEnabled(true);
    ui->expertMode_tessel_briomel->setEnabled(true);
    downloading = false;
    enableTabs();
    if (!dfuMissing)
        setBootLoaderActionEnabled(true);
}
