#pragma once

#include "app/errortexts.h"
#include "download/filedownloader.h"
#include "ui/windowquestions.h"

#include <QStringList>
#include <QWizardPage>

namespace Ui {
class WizardPageBootStrapDownload;
}
class Settings;

// Fetches the released boot loader and then, into the same folder, the released
// firmware, and hands both to the flash page.
class WizardPageBootLoaderDownload : public QWizardPage
{
    Q_OBJECT
public:
    WizardPageBootLoaderDownload(Settings *settings, FileDownloader::Protocol protocol, bool useZipSearch,
                                 QWidget *parent);
    ~WizardPageBootLoaderDownload() override;

    void initializePage() override;
    bool isComplete() const override;

signals:
    void sendDownloadedFiles(QString bootloaderFile, QStringList firmwareFiles);

public slots:
    void Download();
    void startedDownload();
    void disableButtons();
    void abortDownload();
    void abortDownload(const QString &errorMsg);
    void finishedDownload(const QStringList &fwfiles, const QString &storeDir,
                          FileDownloader::FirmwareDownloadOption mode);
    void showMsgBox(ErrorTexts::errorLevel level, const QString &text);
    void setNetSearchText(const QString &text);
    void setDefaultNetSearchText();
    void updateFileLabel(const QString &filename);
    void setProgressBar(int done, int max);
    void setDirectoryPath(const QString &path);

private:
    void startDownload(FileDownloader::FirmwareDownloadOption option, const QString &storeDirectory);
    void disposeDownloader(bool abort);
    void setWizardButtonsEnabled(bool enabled);

    Ui::WizardPageBootStrapDownload *ui;
    WindowQuestions questions{this};
    Settings *settings;
    FileDownloader *downloader = nullptr;
    QString bootLoaderFile;
    QStringList firmwareFiles;
    FileDownloader::Protocol protocol;
    bool downloading = false;
    bool useZipSearch;
};
