#pragma once

#include "app/errortexts.h"
#include "ftptransport.h"

#include <QObject>
#include <QPointer>
#include <QSaveFile>
#include <QStringList>
#include <QTimer>

class HttpRequester;
class Settings;
class UserQuestions;

// Fetches one firmware version from the update server into a folder the user picks:
// lists a server folder, decides whether a usable version is there, asks, and fetches.
// The files arrive under temporary names and take their own only when all are whole.
// One object serves one download.
class FileDownloader : public QObject
{
    Q_OBJECT
public:
    enum FirmwareDownloadOption {
        TesselNINELatest = 0,
        TesselNINEUnstable = 1,
        TesselNINEBootloader = 2,
        BrioMelLatest = 3,
        BrioMelUnstable = 4
    };
    Q_ENUM(FirmwareDownloadOption)
    enum Protocol { Ftp = 0, Http = 1 };
    Q_ENUM(Protocol)
    // The phases of an HTTP run, in the order they come.
    enum HttpState {
        HttpIdle = 0,
        ListingTesselNINE = 1,
        FetchingFirstTesselNINE = 2,
        FetchingSecondTesselNINE = 3,
        FetchingBootLoader = 4,
        ListingBrioMel = 5,
        FetchingBrioMel = 6
    };

    // The questions of a download (go ahead, where to, overwrite, which version) go to
    // `questions`, which must outlive the downloader.
    FileDownloader(QObject *parent, UserQuestions *questions, Settings *settings, Protocol protocol,
                   FirmwareDownloadOption option, const QString &presetDirectory, const QString &userIdentifier);
    ~FileDownloader() override;

    FirmwareDownloadOption getOption() const { return option; }

    void download(bool useZipSearch);
    // Stops everything; what was being written is dropped, what was there stays.
    void abortAll();
    void closeSelectionList();

signals:
    void sigSearchLabelText(QString text);
    void sigSearchLabelText();
    void sigStoreDirectory(QString directory);
    void sigStartedDownload();
    void sigAbortDownload();
    void sigAbortDownload(QString text);
    void sigFileLabel(QString text);
    void sigStatusLabel(QString text);
    void sigProgress(int done, int total);
    void sigFinished(QStringList files, QString storeDirectory, FileDownloader::FirmwareDownloadOption option);
    void sigStartedConnection();
    void sigMsgBox(ErrorTexts::errorLevel level, QString text);

public slots:
    void timeoutDownloadFtp();
    void timeoutConnectionFtp();
    void commandFinishedFtp(FtpTransport::Command command, bool err);
    void downloadProgressFtp(qint64 done, qint64 total);
    void fileFinishedFtp(int index);
    void timeoutConnectionHttp();
    void commandFinishedHttp(bool err, const QString &errMessage);
    void downloadProgressHttp(qint64 done, qint64 total);
    void receiveTesselNINEUnstableSelect(const QString &preName);
    void receiveBrioMelUnstableSelect(const QString &preName);
    void closeExpertSelectionList();

private:
    void listAvailableFiles(const QString &name);
    void endOfListing();
    void offerVersions();
    void startFetch();
    void fetchChosenVersion(const QString &preName);
    bool prepareLocalFiles();
    void fetchHttp();
    void finish();
    void errorStep(const QString &text);
    void emitFileLabel(int index);

    QString family() const;
    QStringList serverFolders() const;
    void progress(qint64 done, qint64 total, int file);
    bool isUnstable() const { return option == TesselNINEUnstable || option == BrioMelUnstable; }
    // The files of this option, in fetch order.
    QList<QSaveFile *> targets();

    UserQuestions *questions;
    Settings *settings;
    QPointer<QObject> selectionList;
    Protocol protocol;
    bool useZipSearch = false;
    FtpTransport *ftp;
    QTimer ftpDotTimer;
    int ftpDots = 0;
    int ftpFilesDone = 0;
    HttpRequester *http;
    HttpState httpState = HttpIdle;
    QTimer httpDotTimer;
    int httpDots = 0;
    FirmwareDownloadOption option;
    QString userIdentifier;
    QString storeDirectory;
    QString presetDirectory;
    QString version;
    QSaveFile fileFirst;
    QSaveFile fileSecond;
    QSaveFile fileBootloader;
    QSaveFile fileBrioMel;
    QStringList availableNames;
    QStringList selectedNames;
    int fileCount = 0;
    int fetching = 0; // index in selectedNames of the file in transfer
};
