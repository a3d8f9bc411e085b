#include "fileverify.h"

#include "app/logstream.h"
#include "app/settings.h"

#include <QDir>
#include <QFileInfo>
#include <QtDebug>

Fileverify::Fileverify(const QString &path) : path(path)
{
}

Fileverify::Result Fileverify::verify(Device device)
{
    return device == Device::BrioMel ? verifyBrioMel() : verifyTesselNINE();
}

Fileverify::Result Fileverify::verifyTesselNINE()
{
    if (path.contains(QLatin1String("OS.zip")))
        counterPartPath = QString(path).replace(QLatin1String("OS.zip"), QLatin1String("PR.zip"));
    else if (path.contains(QLatin1String("PR.zip")))
        counterPartPath = QString(path).replace(QLatin1String("PR.zip"), QLatin1String("OS.zip"));
    else
        return Result::NotFirmwareKind;

    qDebug() << "Selected flash files";
    qDebug() << "OS file" << quoted(path);
    qDebug() << "PR file" << quoted(counterPartPath);
    flashFiles << path << counterPartPath;

    const QString family = Settings::getTesselNINEName();
    if (!path.contains(family) || !counterPartPath.contains(family))
        return Result::NoFirmwareFile;
    const int existing = int(QFileInfo::exists(path)) + int(QFileInfo::exists(counterPartPath));
    return existing == 2 ? Result::FilesFound : existing == 1 ? Result::CounterPartMissing : Result::NoFirmwareFile;
}

Fileverify::Result Fileverify::verifyBrioMel()
{
    qDebug() << "Selected flash files";
    qDebug() << "ZKL file" << quoted(path);
    if (!path.contains(QLatin1String(".zkl")))
        return Result::NotFirmwareKind;
    if (path.contains(Settings::getBrioMelName()) && QFileInfo::exists(path)) {
        flashFiles << path;
        return Result::FilesFound;
    }
    return Result::NoFirmwareFile;
}

QString Fileverify::resultText(Result result)
{
    switch (result) {
    case Result::NotFirmwareKind:
        return tr("Firmware files not found");
    case Result::FilesFound:
        return tr("Files found");
    case Result::CounterPartMissing:
        return tr("Firmware counter part file not found");
    case Result::NoFirmwareFile:
        return tr("The selected file is no firmware file");
    }
    return QString();
}

bool isBootLoaderFile(const QString &path)
{
    return QFileInfo(path).isFile() && (path.contains(QLatin1String("Tessel_NINE")) || path.contains(QLatin1String("BL.zip")));
}

QString findNewestFirmware(const SearchOptions &options, bool useZipSearch)
{
    if (!options.useFile.isEmpty())
        return options.useFile;
    QString folder = options.searchPath;
    if (folder.isEmpty())
        folder = options.debug ? Settings::getNetworkDebugFolder() : Settings::getNetworkFirmwareFolder();

    QStringList mustHave;
    QStringList mustNotHave;
    if (options.debug && useZipSearch) {
        mustHave = {"_D.", ".zip"};
        mustNotHave = {".zip.gpg", ".md5", "BL.zip"};
    } else if (options.debug) {
        mustHave = {"_D.", ".zip.gpg"};
        mustNotHave = {".md5", "BL.zip"};
    } else if (useZipSearch) {
        mustHave = {".zip"};
        mustNotHave = {".zip.gpg", "md5", "BL.zip"};
    } else {
        mustHave = {".zip.gpg"};
        mustNotHave = {".md5", "BL.zip"};
    }

    const QStringList entries = QDir(folder).entryList();
    for (auto it = entries.crbegin(); it != entries.crend(); ++it) {
        const QString &name = *it;
        const auto contains = [&name](const QString &part) { return name.contains(part); };
        if (!std::all_of(mustHave.begin(), mustHave.end(), contains) ||
            std::any_of(mustNotHave.begin(), mustNotHave.end(), contains))
            continue;
        const QFileInfo info(folder + QLatin1Char('/') + name);
        if (info.isSymLink() && QFileInfo(info.symLinkTarget()).isFile())
            return info.symLinkTarget();
        if (info.isFile() && !info.isSymLink())
            return info.absoluteFilePath();
    }
    return QString();
}
