#include "packagepreparation.h"

#include "flashtexts.h"

#include "app/logstream.h"
#include "app/settings.h"
#include "firmware/gpgrun.h"
#include "firmware/hashing.h"
#include "firmware/zipextract.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QtDebug>

PackagePreparation::PackagePreparation(Settings *settings, const std::atomic<bool> &stop)
    : temp(QFileInfo(settings->getExtractFolder()).path()), gpgFolder(settings->getGpgFolder()),
      gpgPath(settings->getGpgPath()), stop(stop)
{
}

QString PackagePreparation::extractFolder() const
{
    return temp + QLatin1Char('/') + Settings::getExtractFolderName();
}

QString PackagePreparation::stagePath(const QString &stage) const
{
    return QDir::toNativeSeparators(extractFolder() + QLatin1Char('/') + stage);
}

bool PackagePreparation::fail(const FlashError &error)
{
    lastError = error;
    qWarning() << quoted(FlashTexts::error(error));
    return false;
}

bool PackagePreparation::hash(const QStringList &files)
{
    return calculateHashes(files) || fail(FlashError::Code::HashFailed);
}

bool PackagePreparation::decrypt(QStringList &files, QProcess &gpg, std::atomic<bool> &gpgRunning)
{
    const QStringList selected = files;
    files = decryptedFileList(temp, selected);
    for (int i = 0; i < selected.size(); ++i) {
        const QString input = QDir::toNativeSeparators(selected.at(i));
        if (!QFileInfo::exists(input)) {
            if (!stop)
                fail({FlashError::Code::FileUnreadable, {input}});
            return false;
        }
        const QStringList arguments = gpgArguments(gpgFolder, temp, Settings::getExtractFolderName(),
                                                   QFileInfo(files.at(i)).fileName(), input);
        gpgRunning = true;
        QString signer;
        const GpgOutcome outcome = runGpg(gpg, gpgPath, arguments, stop, &signer);
        gpgRunning = false;
        if (outcome == GpgOutcome::Done) {
            if (!signers.contains(signer))
                signers << signer;
            continue;
        }
        if (outcome == GpgOutcome::StartFailed)
            return fail(FlashError::Code::GpgNotStarted);
        // gpg killed by a stop says nothing.
        if (!stop)
            fail(outcome == GpgOutcome::OpenFailed ? FlashError::Code::GpgOpenFailed
                                                   : FlashError::Code::SignatureInvalid);
        return false;
    }
    return true;
}

bool PackagePreparation::copy(QStringList &files)
{
    const QStringList selected = files;
    files.clear();
    for (const QString &path : selected) {
        const QString target =
            QFileInfo(extractFolder() + QLatin1Char('/') + QFileInfo(path).fileName()).absoluteFilePath();
        const QString source = QFileInfo(path).absoluteFilePath();
        if (QFileInfo::exists(target)) {
            qDebug() << quoted(QLatin1String("File ") + target + QLatin1String(" already exists - No copying"));
        } else {
            qDebug() << quoted(QLatin1String("Copy file ") + source + QLatin1String(" to ") + target);
            if (!QFile::copy(source, target))
                return fail({FlashError::Code::CopyFailed, {source, target}});
        }
        files << target;
    }
    qDebug() << quoted(files);
    return true;
}

bool PackagePreparation::unpack(const QStringList &archives, const std::function<void()> &afterEach)
{
    if (archives.isEmpty())
        return fail(FlashError::Code::ExtractionFailed);
    for (const QString &archive : archives) {
        if (!unzipFile(archive, extractFolder() + QLatin1Char('/'), &sha256s))
            return fail(FlashError::Code::ExtractionFailed);
        afterEach();
    }
    return true;
}

QString PackagePreparation::sha256Of(const QString &path) const
{
    const QString known = sha256s.value(QDir::cleanPath(path));
    return known.isEmpty() ? ::sha256Of(path) : known;
}

bool PackagePreparation::stageList(const QString &stage, QStringList &list)
{
    QDir folder(stagePath(stage));
    folder.setNameFilters({QStringLiteral("*.sys")});
    // Files only: a folder that calls itself .sys is no firmware.
    list = folder.exists() ? folder.entryList(QDir::Files) : QStringList();
    return !list.isEmpty() || fail(FlashError::Code::NoFirmwareFiles);
}
