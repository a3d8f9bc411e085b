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
#include <QThread>
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

bool PackagePreparation::decryptOne(const QString &input, const QString &output, QProcess &gpg,
                                    std::atomic<int> &gpgRunning, QString *signer, FlashError *error)
{
    if (!QFileInfo::exists(input)) {
        if (!stop)
            *error = {FlashError::Code::FileUnreadable, {input}};
        return false;
    }
    const QStringList arguments =
        gpgArguments(gpgFolder, temp, Settings::getExtractFolderName(), QFileInfo(output).fileName(), input);
    ++gpgRunning;
    const GpgOutcome outcome = runGpg(gpg, gpgPath, arguments, stop, signer);
    --gpgRunning;
    if (outcome == GpgOutcome::Done)
        return true;
    if (outcome == GpgOutcome::StartFailed)
        *error = FlashError::Code::GpgNotStarted;
    else if (!stop) // gpg killed by a stop says nothing
        *error = outcome == GpgOutcome::OpenFailed ? FlashError::Code::GpgOpenFailed : FlashError::Code::SignatureInvalid;
    return false;
}

bool PackagePreparation::decrypt(QStringList &files, QProcess &gpg, std::atomic<int> &gpgRunning)
{
    const QStringList selected = files;
    files = decryptedFileList(temp, selected);
    for (int i = 0; i < selected.size(); ++i) {
        QString signer;
        FlashError error;
        if (!decryptOne(QDir::toNativeSeparators(selected.at(i)), files.at(i), gpg, gpgRunning, &signer, &error))
            return error.code == FlashError::Code::None ? false : fail(error);
        if (!signers.contains(signer))
            signers << signer;
    }
    return true;
}

bool PackagePreparation::copyOne(const QString &path, QString *target, FlashError *error)
{
    *target = QFileInfo(extractFolder() + QLatin1Char('/') + QFileInfo(path).fileName()).absoluteFilePath();
    const QString source = QFileInfo(path).absoluteFilePath();
    if (QFileInfo::exists(*target)) {
        qDebug() << quoted(QLatin1String("File ") + *target + QLatin1String(" already exists - No copying"));
        return true;
    }
    qDebug() << quoted(QLatin1String("Copy file ") + source + QLatin1String(" to ") + *target);
    if (QFile::copy(source, *target))
        return true;
    *error = {FlashError::Code::CopyFailed, {source, *target}};
    return false;
}

bool PackagePreparation::copy(QStringList &files)
{
    const QStringList selected = files;
    files.clear();
    for (const QString &path : selected) {
        QString target;
        FlashError error;
        if (!copyOne(path, &target, &error))
            return fail(error);
        files << target;
    }
    qDebug() << quoted(files);
    return true;
}

bool PackagePreparation::prepareAll(const QStringList &files, bool checkSignatures, std::atomic<int> &gpgRunning)
{
    // A FIFO or a device would hold gpg's open for ever: only regular files go further.
    for (const QString &path : files) {
        if (!QFileInfo(path).isFile()) {
            qDebug() << "Not a regular file: " << quoted(path);
            return fail(FlashError::Code::HashFailed);
        }
    }
    if (files.isEmpty())
        return fail(FlashError::Code::ExtractionFailed);
    struct Part {
        QString archive;
        QString signer;
        FlashError error;
        bool checked = false;
        bool unpacked = false;
        QHash<QString, QString> sums;
    };
    QList<Part> parts(files.size());
    const QStringList decrypted = checkSignatures ? decryptedFileList(temp, files) : QStringList();
    bool hashed = false;
    QList<QThread *> threads{QThread::create([&hashed, &files] { hashed = calculateHashes(files); })};
    for (int i = 0; i < files.size(); ++i) {
        threads << QThread::create([this, &parts, &gpgRunning, i, &files, &decrypted, checkSignatures] {
            Part &part = parts[i];
            if (checkSignatures) {
                QProcess gpg;
                part.archive = decrypted.at(i);
                part.checked = decryptOne(QDir::toNativeSeparators(files.at(i)), part.archive, gpg, gpgRunning,
                                          &part.signer, &part.error);
            } else {
                part.checked = copyOne(files.at(i), &part.archive, &part.error);
            }
            part.unpacked =
                part.checked && !stop && unzipFile(part.archive, extractFolder() + QLatin1Char('/'), &part.sums);
        });
    }
    for (QThread *thread : std::as_const(threads))
        thread->start();
    for (QThread *thread : std::as_const(threads)) {
        thread->wait();
        delete thread;
    }
    if (!hashed)
        return fail(FlashError::Code::HashFailed);
    for (const Part &part : std::as_const(parts)) {
        if (!part.checked)
            return part.error.code == FlashError::Code::None ? false : fail(part.error);
    }
    for (const Part &part : std::as_const(parts)) {
        if (!part.unpacked)
            return stop ? false : fail(FlashError::Code::ExtractionFailed);
        // Unpacked side by side: a file that two archives both hold was written by both at once.
        for (auto it = part.sums.cbegin(); it != part.sums.cend(); ++it) {
            if (sha256s.contains(it.key())) {
                qDebug() << "In more than one archive:" << quoted(it.key());
                return fail(FlashError::Code::ExtractionFailed);
            }
        }
        if (checkSignatures && !signers.contains(part.signer))
            signers << part.signer;
        sha256s.insert(part.sums);
    }
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
