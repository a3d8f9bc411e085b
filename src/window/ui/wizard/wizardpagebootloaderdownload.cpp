#include "wizardpagebootloaderdownload.h"
#include "ui_wizardpagebootloaderdownload.h"

#include "ui/dialogquestions.h"

#include <QAbstractButton>
#include <QDir>
#include <QWizard>

WizardPageBootLoaderDownload::WizardPageBootLoaderDownload(Settings *settings, FileDownloader::Protocol protocol,
                                                           bool useZipSearch, QWidget *parent)
    : QWizardPage(parent), ui(new Ui::WizardPageBootStrapDownload), settings(settings), protocol(protocol),
      useZipSearch(useZipSearch)
{
    ui->setupUi(this);
    connect(ui->buttonDownload, &QPushButton::clicked, this, &WizardPageBootLoaderDownload::Download);
}

WizardPageBootLoaderDownload::~WizardPageBootLoaderDownload()
{
    disposeDownloader(true);
    delete ui;
}

void WizardPageBootLoaderDownload::initializePage()
{
    disposeDownloader(false);
    ui->progressDownload->setValue(0);
    ui->fileLabel->clear();
    setDefaultNetSearchText();
    downloading = false;
    bootLoaderFile.clear();
    firmwareFiles.clear();
}

bool WizardPageBootLoaderDownload::isComplete() const
{
    // Next comes by hand, when a download has ended one way or the other.
    return false;
}

void WizardPageBootLoaderDownload::disposeDownloader(bool abort)
{
    if (!downloader)
        return;
    downloader->disconnect(this);
    if (abort)
        downloader->abortAll();
    downloader->deleteLater();
    downloader = nullptr;
}

void WizardPageBootLoaderDownload::setWizardButtonsEnabled(bool enabled)
{
    for (QWizard::WizardButton which : {QWizard::NextButton, QWizard::BackButton, QWizard::CancelButton})
        wizard()->button(which)->setEnabled(enabled);
}

void WizardPageBootLoaderDownload::Download()
{
    if (downloading) {
        // The download may end while the question is open: then there is nothing to abort.
        if (DialogQuestions::questionAbortDownload() && downloading)
            abortDownload();
        return;
    }
    startDownload(FileDownloader::TesselNINEBootloader, QString());
}

void WizardPageBootLoaderDownload::startDownload(FileDownloader::FirmwareDownloadOption option,
                                                 const QString &storeDirectory)
{
    ui->buttonDownload->setEnabled(false);
    downloader = new FileDownloader(this, &questions, settings, protocol, option, storeDirectory, QString());
    connect(downloader, &FileDownloader::sigStartedConnection, this, &WizardPageBootLoaderDownload::disableButtons);
    connect(downloader, &FileDownloader::sigStartedDownload, this, &WizardPageBootLoaderDownload::startedDownload);
    connect(downloader, &FileDownloader::sigFinished, this, &WizardPageBootLoaderDownload::finishedDownload);
    connect(downloader, qOverload<>(&FileDownloader::sigAbortDownload), this,
            qOverload<>(&WizardPageBootLoaderDownload::abortDownload));
    connect(downloader, qOverload<QString>(&FileDownloader::sigAbortDownload), this,
            qOverload<const QString &>(&WizardPageBootLoaderDownload::abortDownload));
    connect(downloader, qOverload<QString>(&FileDownloader::sigSearchLabelText), this,
            &WizardPageBootLoaderDownload::setNetSearchText);
    connect(downloader, qOverload<>(&FileDownloader::sigSearchLabelText), this,
            &WizardPageBootLoaderDownload::setDefaultNetSearchText);
    connect(downloader, &FileDownloader::sigFileLabel, this, &WizardPageBootLoaderDownload::updateFileLabel);
    connect(downloader, &FileDownloader::sigProgress, this, &WizardPageBootLoaderDownload::setProgressBar);
    connect(downloader, &FileDownloader::sigMsgBox, this, &WizardPageBootLoaderDownload::showMsgBox);
    connect(downloader, &FileDownloader::sigStoreDirectory, this, &WizardPageBootLoaderDownload::setDirectoryPath);
    downloader->download(useZipSearch);
}

void WizardPageBootLoaderDownload::finishedDownload(const QStringList &fwfiles, const QString &storeDir,
                                                    FileDownloader::FirmwareDownloadOption mode)
{
    disposeDownloader(false);
    if (mode == FileDownloader::TesselNINEBootloader) {
        // Then the firmware that goes with it, into the same folder without asking again.
        bootLoaderFile = fwfiles.value(0);
        startDownload(FileDownloader::TesselNINELatest, storeDir);
        return;
    }
    for (const QString &file : fwfiles)
        firmwareFiles << QDir::toNativeSeparators(file);
    emit sendDownloadedFiles(QDir::toNativeSeparators(bootLoaderFile), firmwareFiles);
    downloading = false;
    ui->buttonDownload->setEnabled(true);
    ui->buttonDownload->setText(tr("Download"));
    showMsgBox(ErrorTexts::Info, tr("Download completed!"));
    setWizardButtonsEnabled(true);
}

void WizardPageBootLoaderDownload::disableButtons()
{
    setWizardButtonsEnabled(false);
}

void WizardPageBootLoaderDownload::startedDownload()
{
    ui->progressDownload->setValue(0);
    ui->fileLabel->clear();
    setDefaultNetSearchText();
    downloading = true;
    ui->buttonDownload->setText(tr("Abort"));
    ui->buttonDownload->setEnabled(true);
}

void WizardPageBootLoaderDownload::abortDownload()
{
    downloading = false;
    disposeDownloader(true);
    ui->buttonDownload->setEnabled(true);
    ui->buttonDownload->setText(tr("Download"));
    setWizardButtonsEnabled(true);
    setDefaultNetSearchText();
    ui->line_directory->clear();
    ui->progressDownload->setValue(0);
    ui->fileLabel->clear();
}

void WizardPageBootLoaderDownload::abortDownload(const QString &errorMsg)
{
    abortDownload();
    showMsgBox(ErrorTexts::Error, errorMsg);
}

void WizardPageBootLoaderDownload::showMsgBox(ErrorTexts::errorLevel level, const QString &text)
{
    ErrorTexts::execMessageBox(level, text);
}

void WizardPageBootLoaderDownload::setNetSearchText(const QString &text)
{
    ui->nSearchLabel->setText(text);
}

void WizardPageBootLoaderDownload::setDefaultNetSearchText()
{
    ui->nSearchLabel->setText(tr("Search for latest boot loader at Zelko Update Server"));
}

void WizardPageBootLoaderDownload::updateFileLabel(const QString &filename)
{
    ui->fileLabel->setText(filename);
}

void WizardPageBootLoaderDownload::setProgressBar(int done, int max)
{
    ui->progressDownload->setMaximum(max);
    ui->progressDownload->setValue(done);
}

void WizardPageBootLoaderDownload::setDirectoryPath(const QString &path)
{
    ui->line_directory->setText(QDir::toNativeSeparators(path));
}
