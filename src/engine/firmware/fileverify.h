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
    enum class Device { TesselNINE, BrioMel };
    enum class Result { NotFirmwareKind, FilesFound, CounterPartMissing, NoFirmwareFile };
    Q_ENUM(Device)
    Q_ENUM(Result)

    explicit Fileverify(const QString &path);

    Result verify(Device device);
    static QString resultText(Result result);
    QStringList getFlashFiles() const { return flashFiles; }

private:
    Result verifyTesselNINE();
    Result verifyBrioMel();

    QString path;
    QString counterPartPath;
    QStringList flashFiles;
};

// A boot loader file, by its name: the family's or a "BL.zip" kind; it must exist.
bool isBootLoaderFile(const QString &path);

// The newest firmware file by name order, or an empty string.
QString findNewestFirmware(const SearchOptions &options, bool useZipSearch);
