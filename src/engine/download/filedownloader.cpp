#include "filedownloader.h"

#include "httprequester.h"
#include "serverlist.h"

#include "app/logstream.h"
#include "app/settings.h"
#include "app/userquestions.h"
#include "firmware/version.h"

#include <QDir>
#include <QHash>
#include <QtDebug>

#include <limits>

FileDownloader::FileDownloader(QObject *parent, UserQuestions *questions, Settings *settings, Protocol protocol,
                               FirmwareDownloadOption option, const QString &presetDirectory,
                               const QString &userIdentifier)
    : QObject(parent), questions(questions), settings(settings), protocol(protocol),
      ftp(new FtpTransport(this)), http(new HttpRequester(settings, this)), option(option),
      userIdentifier(userIdentifier), presetDirectory(presetDirectory)
{
    qRegisterMetaType<ErrorTexts::errorLevel>("ErrorTexts::errorLevel");
    ftpDotTimer.setSingleShot(true);
    connect(&ftpDotTimer, &QTimer::timeout, this, &FileDownloader::timeoutConnectionFtp);
    connect(ftp, &FtpTransport::commandFinished, this, &FileDownloader::commandFinishedFtp);
    connect(ftp, &FtpTransport::timedOut, this, &FileDownloader::timeoutDownloadFtp);
    connect(ftp, &FtpTransport::progress, this, &FileDownloader::downloadProgressFtp);
    connect(ftp, &FtpTransport::fileFinished, this, &FileDownloader::fileFinishedFtp);
    httpDotTimer.setSingleShot(true);
    connect(&httpDotTimer, &QTimer::timeout, this, &FileDownloader::timeoutConnectionHttp);
    connect(http, &HttpRequester::sigCommandFinished, this, &FileDownloader::commandFinishedHttp);
    connect(http, &HttpRequester::sigDownloadProgress, this, &FileDownloader::downloadProgressHttp);
}

FileDownloader::~FileDownloader()
{
    delete selectionList;
}

QString FileDownloader::family() const
{
    return option == BrioMelLatest || option == BrioMelUnstable ? Settings::getBrioMelName()
                                                                : Settings::getTesselNINEName();
}

QList<QSaveFile *> FileDownloader::targets()
{
    switch (option) {
    case TesselNINELatest:
    case TesselNINEUnstable:
        return {&fileFirst, &fileSecond};
    case TesselNINEBootloader:
        return {&fileBootloader};
    case BrioMelLatest:
    case BrioMelUnstable:
        return {&fileBrioMel};
    }
    return {};
}

void FileDownloader::download(bool zipSearch)
{
    storeDirectory.clear();
    version.clear();
    availableNames.clear();
    selectedNames.clear();
    fileCount = 0;
    httpState = HttpIdle;
    httpDots = 0;
    useZipSearch = zipSearch;
    if (protocol == Ftp) {
        qDebug() << "Download from FTP";
        emit sigSearchLabelText(tr("Try to connect to Zelko Update Server"));
        emit sigStartedConnection();
        ftpDots = 0;
        ftpDotTimer.start(500);
        ftp->list(settings->getFtpUrl(), settings->getFtpUser(), settings->getFtpPassword(), serverFolders());
        return;
    }
    qDebug() << "Download from HTTP";
    emit sigStartedConnection();
    httpDotTimer.start(500);
    const bool brioMel = family() == Settings::getBrioMelName();
    httpState = brioMel ? ListingBrioMel : ListingTesselNINE;
    QString url;
    switch (option) {
    case TesselNINELatest:
        url = settings->getTesselNINELatestListUrl();
        break;
    case TesselNINEUnstable:
        url = settings->getTesselNINEUnstableListUrl(userIdentifier);
        break;
    case TesselNINEBootloader:
        url = settings->getTesselNINEBootloaderListUrl();
        break;
    case BrioMelLatest:
        url = settings->getBrioMelLatestListUrl();
        break;
    case BrioMelUnstable:
        url = settings->getBrioMelUnstableListUrl(userIdentifier);
        break;
    }
    http->get(QUrl(url));
}

QStringList FileDownloader::serverFolders() const
{
    QStringList folders;
    switch (option) {
    case TesselNINELatest:
        return {Settings::getTesselNINELatestFolder()};
    case TesselNINEBootloader:
        return {Settings::getTesselNINEBootloaderFolder()};
    case BrioMelLatest:
        return {Settings::getBrioMelLatestFolder()};
    case TesselNINEUnstable:
        folders << Settings::getTesselNINEUnstableFolder();
        break;
    case BrioMelUnstable:
        folders << Settings::getBrioMelUnstableFolder();
        break;
    }
    if (!userIdentifier.isEmpty())
        folders << userIdentifier;
    return folders;
}

void FileDownloader::timeoutConnectionHttp()
{
    ++httpDots;
    emit sigSearchLabelText(tr("Try to connect to Zelko Update Server") + QLatin1String(" (HTTP)") +
                            QString(httpDots, QLatin1Char('.')));
    httpDotTimer.start(500);
}

void FileDownloader::commandFinishedHttp(bool err, const QString &errMessage)
{
    httpDotTimer.stop();
    if (err) {
        errorStep(errMessage);
        return;
    }
    switch (httpState) {
    case ListingTesselNINE:
    case ListingBrioMel:
        emit sigSearchLabelText(tr("Connected to Zelko Update Server"));
        for (const QString &name : parseFileList(http->getData(), family(), useZipSearch))
            listAvailableFiles(name);
        endOfListing();
        break;
    case FetchingFirstTesselNINE:
        qDebug() << "Download successful" << quoted(fileFirst.fileName());
        httpState = FetchingSecondTesselNINE;
        fetching = 1;
        fetchHttp();
        break;
    case FetchingSecondTesselNINE:
    case FetchingBootLoader:
    case FetchingBrioMel:
        qDebug() << "Download successful " << quoted(targets().last()->fileName());
        finish();
        break;
    default:
        break;
    }
}

void FileDownloader::listAvailableFiles(const QString &name)
{
    if (isUnstable()) {
        availableNames << name;
        return;
    }
    selectedNames << name;
    QString file = name;
    bool hasV = false;
    version = Version::fileVersion(file, family(), &hasV);
    ++fileCount;
}

void FileDownloader::endOfListing()
{
    if (isUnstable()) {
        offerVersions();
        return;
    }
    const int wanted = option == TesselNINELatest ? 2 : 1;
    if (fileCount > wanted) {
        errorStep(tr("Server is currently on update!\nTry again later!"));
        return;
    }
    if (fileCount < wanted) {
        errorStep(tr("No versions are available\nto download!"));
        return;
    }
    httpState = option == TesselNINELatest       ? FetchingFirstTesselNINE
                : option == TesselNINEBootloader ? FetchingBootLoader
                                                 : FetchingBrioMel;
    startFetch();
}

void FileDownloader::offerVersions()
{
    QStringList offered;
    if (option == TesselNINEUnstable) {
        // A version is a pair: one with its OS file alone, or with more, is not offered.
        QHash<QString, int> count;
        QStringList order;
        for (auto it = availableNames.crbegin(); it != availableNames.crend(); ++it) {
            const QString preName = Version::filePreName(*it, family());
            if (!count.contains(preName))
                order << preName;
            ++count[preName];
        }
        for (const QString &preName : order) {
            if (count.value(preName) == 2)
                offered << preName;
        }
    } else {
        for (auto it = availableNames.crbegin(); it != availableNames.crend(); ++it)
            offered << Version::filePreName(*it, family());
    }
    if (offered.isEmpty()) {
        emit sigMsgBox(ErrorTexts::Error, tr("No versions are available\nin expert mode!"));
        delete selectionList;
        selectionList = nullptr;
        emit sigAbortDownload();
        return;
    }
    selectionList = questions->offerVersions(this, offered, userIdentifier, tr("Select version to download"),
                                             tr("Firmware version"));
}

void FileDownloader::receiveTesselNINEUnstableSelect(const QString &preName)
{
    fetchChosenVersion(preName);
}

void FileDownloader::receiveBrioMelUnstableSelect(const QString &preName)
{
    fetchChosenVersion(preName);
}

// The files of the version picked from the list, then on to their download.
void FileDownloader::fetchChosenVersion(const QString &preName)
{
    closeSelectionList();
    selectedNames.clear();
    for (const QString &name : std::as_const(availableNames)) {
        if (name.contains(preName))
            selectedNames << name;
    }
    QString first = selectedNames.value(0);
    bool hasV = false;
    version = Version::fileVersion(first, family(), &hasV);
    httpState = option == TesselNINEUnstable ? FetchingFirstTesselNINE : FetchingBrioMel;
    startFetch();
}

void FileDownloader::closeExpertSelectionList()
{
    closeSelectionList();
    emit sigAbortDownload();
}

void FileDownloader::closeSelectionList()
{
    if (selectionList) {
        selectionList->disconnect(this);
        selectionList->deleteLater();
        selectionList = nullptr;
    }
}

void FileDownloader::startFetch()
{
    // Two files of a Tessel NINE version, one otherwise, in the order the list gave them.
    if (selectedNames.size() < targets().size()) {
        errorStep(tr("No versions are available\nto download!"));
        return;
    }
    if (!questions->confirmDownload(version, option) || !prepareLocalFiles()) {
        emit sigAbortDownload();
        return;
    }
    emit sigStartedDownload();
    fetching = 0;
    ftpFilesDone = 0;
    if (protocol == Http) {
        fetchHttp();
        return;
    }
    QList<QFileDevice *> files;
    for (QSaveFile *file : targets())
        files << file;
    ftp->fetch(selectedNames, files);
}

bool FileDownloader::prepareLocalFiles()
{
    storeDirectory.clear();
    if (!presetDirectory.isEmpty() && QFileInfo(presetDirectory).isDir()) {
        storeDirectory = presetDirectory;
    } else {
        storeDirectory = questions->chooseStoreFolder(tr("Select Directory for storing files"));
        if (storeDirectory.isEmpty()) {
            storeDirectory = QDir::homePath();
            return false;
        }
    }
    emit sigStoreDirectory(storeDirectory);

    const QList<QSaveFile *> files = targets();
    bool allThere = true;
    for (int i = 0; i < files.size(); ++i) {
        const QString path = QDir::toNativeSeparators(storeDirectory + QLatin1Char('/') + selectedNames.at(i));
        files[i]->setFileName(path);
        allThere = allThere && QFileInfo::exists(path);
    }
    if (option == BrioMelLatest || option == BrioMelUnstable)
        settings->setSearchPathBrioMel(files.first()->fileName());
    else
        settings->setSearchPath(files.first()->fileName());
    if (allThere && !questions->confirmOverwriteFiles()) {
        for (QSaveFile *file : files)
            file->setFileName(QString());
        return false;
    }
    for (QSaveFile *file : files) {
        // The download lives under a temporary name beside its target until it is whole.
        if (!file->open(QIODevice::WriteOnly)) {
            emit sigMsgBox(ErrorTexts::Error, tr("Cannot open ") + file->fileName() + tr("\n for writing: ") +
                                                  file->errorString());
            return false;
        }
    }
    return true;
}

void FileDownloader::fetchHttp()
{
    QString base;
    switch (option) {
    case TesselNINELatest:
        base = Settings::getTesselNINELatestFileUrl();
        break;
    case TesselNINEUnstable:
        base = Settings::getTesselNINEUnstableFileUrl(userIdentifier);
        break;
    case TesselNINEBootloader:
        base = Settings::getTesselNINEBootloaderFileUrl();
        break;
    case BrioMelLatest:
        base = Settings::getBrioMelLatestFileUrl();
        break;
    case BrioMelUnstable:
        base = Settings::getBrioMelUnstableFileUrl(userIdentifier);
        break;
    }
    http->get(QUrl(base + selectedNames.at(fetching)), targets().at(fetching));
}

void FileDownloader::downloadProgressHttp(qint64 done, qint64 total)
{
    if (httpState == HttpIdle || httpState == ListingTesselNINE || httpState == ListingBrioMel)
        return;
    progress(done, total, fetching);
}

void FileDownloader::progress(qint64 done, qint64 total, int file)
{
    // The bar counts in ints: a file beyond 2 GiB is shown in KiB.
    const int shift = total > std::numeric_limits<int>::max() ? 10 : 0;
    emit sigProgress(int(done >> shift), int(total >> shift));
    emit sigStatusLabel(storeDirectory);
    emitFileLabel(file);
}

void FileDownloader::emitFileLabel(int index)
{
    const int count = int(targets().size());
    emit sigFileLabel(QStringLiteral("Download  (%1/%2)    ").arg(index + 1).arg(count) + selectedNames.value(index));
}

void FileDownloader::finish()
{
    httpDotTimer.stop();
    ftpDotTimer.stop();
    http->abort();
    ftp->abort();
    QStringList names;
    for (QSaveFile *file : targets()) {
        // Only now does each file take its name: a failed run never leaves one behind.
        if (!file->commit()) {
            errorStep(tr("Cannot open ") + file->fileName() + tr("\n for writing: ") + file->errorString());
            return;
        }
        names << file->fileName();
    }
    emit sigFinished(names, storeDirectory, option);
}

void FileDownloader::errorStep(const QString &text)
{
    qWarning() << quoted(text);
    emit sigSearchLabelText();
    emit sigAbortDownload(text);
}

void FileDownloader::abortAll()
{
    httpDotTimer.stop();
    ftpDotTimer.stop();
    http->abort();
    ftp->abort();
    for (QSaveFile *file : {&fileFirst, &fileSecond, &fileBootloader, &fileBrioMel}) {
        if (file->isOpen()) {
            file->cancelWriting();
            file->commit(); // refused after the cancel: the temporary file goes, the target stays
        }
    }
}
