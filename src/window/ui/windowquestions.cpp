#include "windowquestions.h"

#include "dialogquestions.h"
#include "download/filedownloader.h"
#include "download/myselectionlist.h"

#include <QDir>
#include <QFileDialog>

bool WindowQuestions::confirmDownload(const QString &version, int option)
{
    return DialogQuestions::questionDownload(version, option);
}

bool WindowQuestions::confirmOverwriteFiles()
{
    return DialogQuestions::questionOverwriteFiles();
}

QString WindowQuestions::chooseStoreFolder(const QString &caption)
{
    return QFileDialog::getExistingDirectory(parent, caption, QDir::homePath(), QFileDialog::ShowDirsOnly);
}

QObject *WindowQuestions::offerVersions(FileDownloader *downloader, const QStringList &versions,
                                        const QString &userIdentifier, const QString &title, const QString &column)
{
    auto *list = new MySelectionList(versions, userIdentifier, title, column, nullptr);
    QObject::connect(list, &MySelectionList::sendSelectEvent, downloader,
                     downloader->getOption() == FileDownloader::TesselNINEUnstable
                         ? &FileDownloader::receiveTesselNINEUnstableSelect
                         : &FileDownloader::receiveBrioMelUnstableSelect);
    QObject::connect(list, &MySelectionList::sendCancelEvent, downloader, &FileDownloader::closeExpertSelectionList);
    list->setVisible(true);
    return list;
}

bool WindowQuestions::confirmUpgrade()
{
    return DialogQuestions::questionUpgrade();
}
