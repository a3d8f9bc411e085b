// FileDownloader's side of the FTP transport: its commands' outcomes become the
// download's steps, its listing the versions on offer.
#include "filedownloader.h"

#include "serverlist.h"

#include "app/logstream.h"
#include "app/settings.h"

#include <QtDebug>

void FileDownloader::timeoutConnectionFtp()
{
    ++ftpDots;
    emit sigSearchLabelText(tr("Try to connect to Zelko Update Server") + QLatin1String(" (FTP)") +
                            QString(ftpDots, QLatin1Char('.')));
    ftpDotTimer.start(500);
}

void FileDownloader::timeoutDownloadFtp()
{
    ftpDotTimer.stop();
    qWarning() << quoted(QStringLiteral("Internet connection timeout!\nReconnect to internet and restart again"));
    emit sigAbortDownload(tr("Internet connection timeout!\nReconnect to internet and restart process"));
}

void FileDownloader::commandFinishedFtp(FtpTransport::Command command, bool err)
{
    switch (command) {
    case FtpTransport::Connect:
        ftpDotTimer.stop();
        if (err)
            errorStep(tr("Unable to connect to server"));
        else
            emit sigSearchLabelText(tr("Connected to Zelko Update Server"));
        break;
    case FtpTransport::Login:
        if (err)
            errorStep(tr("Unable to login server"));
        else
            emit sigSearchLabelText(tr("Login to Zelko Update Server successful"));
        break;
    case FtpTransport::ChangeFolder:
        if (err)
            errorStep(tr("Connected but\nunable to locate folder"));
        break;
    case FtpTransport::ChangeUserFolder:
        if (err)
            errorStep(tr("Invalid User identifier"));
        break;
    case FtpTransport::List:
    case FtpTransport::Fetch:
        if (err) {
            errorStep(tr("Connected but\nunable to get files"));
            break;
        }
        if (command == FtpTransport::List) {
            const QString filter = family() == Settings::getBrioMelName() ? QStringLiteral("BRIO_MEL*.zkl")
                                                                          : settings->getTesselNINENameFilter(useZipSearch);
            for (const QString &name : parseFtpNameList(ftp->listing(), filter))
                listAvailableFiles(name);
            endOfListing();
        }
        break;
    }
}

void FileDownloader::downloadProgressFtp(qint64 done, qint64 total)
{
    progress(done, total, ftpFilesDone);
}

void FileDownloader::fileFinishedFtp(int)
{
    if (++ftpFilesDone == targets().size())
        finish();
}
