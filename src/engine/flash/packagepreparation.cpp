#include "packagepreparation.h"

#include "app/logstream.h"
#include "app/settings.h"
#include "firmware/gpgrun.h"
#include "firmware/hashing.h"
#include "firmware/zipextract.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QtDebug>

namespace {
// The texts of these steps, word for word the same in both workers, each in the
// catalogue under the worker that shows it.
[[maybe_unused]] const char *const sharedTexts[] = {
    QT_TRANSLATE_NOOP("DFUThread", "Calculate MD5 Hashes"),
    QT_TRANSLATE_NOOP("USBWriteThread", "Calculate MD5 Hashes"),
    QT_TRANSLATE_NOOP("DFUThread", "Error calculating MD5 Hash"),
    QT_TRANSLATE_NOOP("USBWriteThread", "Error calculating MD5 Hash"),
    QT_TRANSLATE_NOOP("DFUThread", "Extracting firmware"),
    QT_TRANSLATE_NOOP("USBWriteThread", "Extracting firmware"),
    QT_TRANSLATE_NOOP("DFUThread", "File can't be opened"),
    QT_TRANSLATE_NOOP("USBWriteThread", "File can't be opened"),
    QT_TRANSLATE_NOOP("DFUThread", "\n\nThe selected firmware file\n%1\ncan't be opened"),
    QT_TRANSLATE_NOOP("USBWriteThread", "\n\nThe selected firmware file\n%1\ncan't be opened"),
    QT_TRANSLATE_NOOP("DFUThread", "Unable to open gpg file"),
    QT_TRANSLATE_NOOP("USBWriteThread", "Unable to open gpg file"),
    QT_TRANSLATE_NOOP("DFUThread", "Invalid digital signature"),
    QT_TRANSLATE_NOOP("USBWriteThread", "Invalid digital signature"),
    QT_TRANSLATE_NOOP("DFUThread", "\n\nThe selected firmware files are corrupted or\nthis version of %1 does not match "
                                   "with these files.\nTry again and be sure that\nthe latest version of this software "
                                   "is installed"),
    QT_TRANSLATE_NOOP("USBWriteThread", "\n\nThe selected firmware files are corrupted or\nthis version of %1 does not "
                                        "match with these files.\nTry again and be sure that\nthe latest version of "
                                        "this software is installed"),
    QT_TRANSLATE_NOOP("DFUThread", "Error starting GPG, restart again"),
    QT_TRANSLATE_NOOP("USBWriteThread", "Error starting GPG, restart again"),
    QT_TRANSLATE_NOOP("DFUThread", "Failed to copy file %1"),
    QT_TRANSLATE_NOOP("USBWriteThread", "Failed to copy file %1"),
    QT_TRANSLATE_NOOP("DFUThread", "Failed to copy file\n%1\nto\n%2"),
    QT_TRANSLATE_NOOP("USBWriteThread", "Failed to copy file\n%1\nto\n%2"),
    QT_TRANSLATE_NOOP("DFUThread", "Package contains no firmware files"),
    QT_TRANSLATE_NOOP("USBWriteThread", "Package contains no firmware files"),
};
} // namespace

PackagePreparation::PackagePreparation(const char *context, Settings *settings, Report report,
                                       const std::atomic<bool> &finishedByUser)
    : context(context), temp(QFileInfo(settings->getExtractFolder()).path()), gpgFolder(settings->getGpgFolder()),
      gpgPath(settings->getGpgPath()), report(std::move(report)), finishedByUser(finishedByUser)
{
}

QString PackagePreparation::text(const char *source) const
{
    return QCoreApplication::translate(context, source);
}

QString PackagePreparation::extractFolder() const
{
    return temp + QLatin1Char('/') + Settings::getExtractFolderName();
}

QString PackagePreparation::stagePath(const QString &stage) const
{
    return QDir::toNativeSeparators(extractFolder() + QLatin1Char('/') + stage);
}

void PackagePreparation::fail(const QString &message)
{
    qWarning() << quoted(message);
    report.status(message);
    report.box(ErrorTexts::Error, message);
}

bool PackagePreparation::hash(const QStringList &files)
{
    report.status(text("Calculate MD5 Hashes"));
    if (calculateHashes(files))
        return true;
    const QString message = text("Error calculating MD5 Hash");
    qWarning() << quoted(message);
    report.box(ErrorTexts::Error, message);
    report.status(message);
    return false;
}

QString PackagePreparation::corruptedFilesText() const
{
    return text("\n\nThe selected firmware files are corrupted or\nthis version of %1 does not match with these "
                "files.\nTry again and be sure that\nthe latest version of this software is installed")
        .arg(QStringLiteral("Morvanta"));
}

bool PackagePreparation::decrypt(QStringList &files, QProcess &gpg, std::atomic<bool> &gpgRunning)
{
    report.status(text("Extracting firmware"));
    const QStringList selected = files;
    files = decryptedFileList(temp, selected);
    for (int i = 0; i < selected.size(); ++i) {
        const QString input = QDir::toNativeSeparators(selected.at(i));
        if (!QFileInfo::exists(input)) {
            if (!finishedByUser) {
                const QString message = text("File can't be opened");
                qWarning() << quoted(message);
                report.status(message);
                report.box(ErrorTexts::Error,
                           message + text("\n\nThe selected firmware file\n%1\ncan't be opened").arg(input));
            }
            return false;
        }
        const QStringList arguments = gpgArguments(gpgFolder, temp, Settings::getExtractFolderName(),
                                                   QFileInfo(files.at(i)).fileName(), input);
        gpgRunning = true;
        QString signer;
        const GpgOutcome outcome = runGpg(gpg, gpgPath, arguments, finishedByUser, &signer);
        gpgRunning = false;
        if (outcome == GpgOutcome::Done) {
            if (!signers.contains(signer))
                signers << signer;
            continue;
        }
        if (outcome == GpgOutcome::StartFailed) {
            const QString message = text("Error starting GPG, restart again");
            qWarning() << quoted(message);
            report.box(ErrorTexts::Error, message);
            report.status(message);
        } else if (!finishedByUser) {
            // After the user's abort these three reports stay silent: gpg was killed.
            const QString message =
                text(outcome == GpgOutcome::OpenFailed ? "Unable to open gpg file" : "Invalid digital signature");
            qWarning() << quoted(message);
            report.status(message);
            report.box(ErrorTexts::Error, message + corruptedFilesText());
        }
        return false;
    }
    return true;
}

bool PackagePreparation::copy(QStringList &files)
{
    report.status(text("Extracting firmware"));
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
            if (!QFile::copy(source, target)) {
                const QString message = text("Failed to copy file %1").arg(source);
                qWarning() << quoted(message);
                report.status(message);
                report.box(ErrorTexts::Error, text("Failed to copy file\n%1\nto\n%2").arg(source, target));
                return false;
            }
        }
        files << target;
    }
    qDebug() << quoted(files);
    return true;
}

bool PackagePreparation::unpack(const QStringList &archives, const QString &failure,
                                const std::function<void()> &afterEach)
{
    if (archives.isEmpty()) {
        fail(failure);
        return false;
    }
    for (const QString &archive : archives) {
        if (!unzipFile(archive, extractFolder() + QLatin1Char('/'))) {
            fail(failure);
            return false;
        }
        afterEach();
    }
    return true;
}

bool PackagePreparation::stageList(const QString &stage, QStringList &list)
{
    QDir folder(stagePath(stage));
    folder.setNameFilters({QStringLiteral("*.sys")});
    // Files only: a folder that calls itself .sys is no firmware.
    list = folder.exists() ? folder.entryList(QDir::Files) : QStringList();
    if (list.isEmpty()) {
        fail(text("Package contains no firmware files"));
        return false;
    }
    return true;
}
