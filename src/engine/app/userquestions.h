#pragma once

#include <QString>
#include <QStringList>

class FileDownloader;
class QObject;

// What the engine must ask a person in the middle of a job. The window answers with its
// boxes and dialogs; a front end without a person never makes the classes that ask.
class UserQuestions
{
public:
    virtual ~UserQuestions() = default;

    // The download of this version (a FileDownloader::FirmwareDownloadOption) may start.
    virtual bool confirmDownload(const QString &version, int option) = 0;
    // The files are there already and may be replaced.
    virtual bool confirmOverwriteFiles() = 0;
    // Where the download goes; empty when the person cancelled.
    virtual QString chooseStoreFolder(const QString &caption) = 0;
    // Offers the versions of expert mode. The choice reaches the downloader's
    // receive...Select slot, a cancel its closeExpertSelectionList; the list is deleted
    // with deleteLater() when the downloader is done with it.
    virtual QObject *offerVersions(FileDownloader *downloader, const QStringList &versions,
                                   const QString &userIdentifier, const QString &title, const QString &column) = 0;
    // The program may end for the updater to replace it.
    virtual bool confirmUpgrade() = 0;
};
