#include "firmwarechoice.h"

#include "app/settings.h"
#include "firmware/fileverify.h"

#include <QDir>
#include <QFileDialog>
#include <QFileInfo>

bool selectFirmware(QWidget *parent, const QString &caption, Settings *settings, bool deviceMissing,
                    const SearchOptions &options, bool useZipSearch, bool usedZipSearch)
{
    if (deviceMissing && useZipSearch == usedZipSearch)
        return true;
    if (options.automatic) {
        const QString found = findNewestFirmware(options, useZipSearch);
        settings->setSearchPath(found);
        return !found.isEmpty();
    }
    chooseFirmwareFile(parent, caption, settings, options, useZipSearch);
    return true;
}

void chooseFirmwareFile(QWidget *parent, const QString &caption, Settings *settings, const SearchOptions &options,
                        bool useZipSearch)
{
    QString startFolder;
    if (options.internal) {
        startFolder = options.searchPath.isEmpty() ? Settings::getNetworkFirmwareFolder() : options.searchPath;
    } else if (!settings->getSearchPath().isEmpty()) {
        startFolder = QFileInfo(settings->getSearchPath()).canonicalPath();
    }
    if (startFolder.isEmpty())
        startFolder = QDir::homePath();
    settings->setSearchPath(
        QFileDialog::getOpenFileName(parent, caption, startFolder, settings->getFirmwareFilter(useZipSearch)));
}
