#pragma once

#include "app/searchoptions.h"

#include <QObject>
#include <QString>
#include <QStringList>

class QWidget;
class Settings;

// Decides from a file name what a selected firmware file is, and finds the other
// half of a Tessel NINE pair.
class Fileverify : public QObject
{
    Q_OBJECT
public:
    enum Device { TesselNINE = 0, BrioMel = 1 };
    enum Result { NotFirmwareKind = 0, FilesFound = 1, CounterPartMissing = 2, NoFirmwareFile = 3 };

    explicit Fileverify(const QString &path);

    int verify(int device);
    static QString resultText(int code);
    QStringList getFlashFiles() const { return flashFiles; }

private:
    int verifyTesselNINE();
    int verifyBrioMel();

    QString path;
    QString counterPartPath;
    QStringList flashFiles;
};

// Chooses the firmware to flash, by dialog or, in automatic mode, by folder; the
// choice is stored as the search path of settings. False: nothing was found.
bool selectFirmware(QWidget *parent, const QString &caption, Settings *settings, bool deviceMissing,
                    const SearchOptions &options, bool useZipSearch, bool usedZipSearch);

// Asks for a firmware file by dialog and stores the answer, empty or not, as the
// search path of settings.
void chooseFirmwareFile(QWidget *parent, const QString &caption, Settings *settings, const SearchOptions &options,
                        bool useZipSearch);

// A boot loader file, by its name: the family's or a "BL.zip" kind; it must exist.
bool isBootLoaderFile(const QString &path);

// The newest firmware file by name order, or an empty string.
QString findNewestFirmware(const SearchOptions &options, bool useZipSearch);
