#pragma once

#include "app/searchoptions.h"

#include <QObject>
#include <QString>
#include <QStringList>


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

// A boot loader file, by its name: the family's or a "BL.zip" kind; it must exist.
bool isBootLoaderFile(const QString &path);

// The newest firmware file by name order, or an empty string.
QString findNewestFirmware(const SearchOptions &options, bool useZipSearch);
