#include "flashworker.h"

#include "app/logstream.h"
#include "app/settings.h"
#include "firmware/firmwarenames.h"
#include "firmware/hashing.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>
#include <QThread>
#include <QtDebug>

#include <limits>

FlashWorker::FlashWorker(Settings *settings, int bootLoaderRev, std::shared_ptr<DfuTransfer::Flags> flags,
                         std::shared_ptr<DownloadPacer> pacer)
    : flags(std::move(flags)), pacer(std::move(pacer)), dfuPath(settings->getDfuUtilPath()), gpgAvailable(settings->isGpgAvailable()),
      bootLoaderRev(bootLoaderRev), preparation(settings, this->flags->stop)
{
}

FlashWorker::~FlashWorker() = default;

void FlashWorker::prepare(const QStringList &files, bool plainZips, FlashMode mode, const ListedDevice &unit)
{
    FlashPackage package;
    if (!unpack(files, plainZips) || !listFiles(mode, package) || !measure(package)) {
        emit failed(preparation.error());
        return;
    }
    package.signers = preparation.signerFingerprints();
    readyToTransfer(package, unit);
}

void FlashWorker::prepareForMany(const QStringList &files, bool plainZips, FlashMode mode)
{
    FlashPackage package;
    if (!unpack(files, plainZips) || !listFiles(mode, package) || !measure(package)) {
        emit failed(preparation.error());
        return;
    }
    package.signers = preparation.signerFingerprints();
    // Read by every unit's transfer, written by nobody.
    for (const FlashPackage::File &file : std::as_const(package.files))
        QFile::setPermissions(file.path, QFile::ReadOwner);
    emit prepared(package);
}

void FlashWorker::adopt(const FlashPackage &package, const ListedDevice &unit)
{
    // Many units share it: all of it must still be what was checked before a first byte
    // goes, so that no unit gets half a package.
    for (const FlashPackage::File &file : package.files) {
        if (sha256Of(file.path) != file.sha256) {
            qDebug() << "Changed since it was checked:" << quoted(file.path);
            emit failed(FlashError(FlashError::Code::PreparedChanged, {file.name}));
            return;
        }
    }
    readyToTransfer(package, unit);
}

void FlashWorker::readyToTransfer(const FlashPackage &package, const ListedDevice &unit)
{
    dfu = std::make_unique<DfuTransfer>(
        dfuPath, unit, bootLoaderRev, *flags,
        DfuTransfer::Events{[this](FlashStage stage) { emit stageReached(stage); },
                            [this](const QString &stage, const QString &file, int number, int total) {
                                emit fileStarted(stage, file, number, total);
                            },
                            [this](const FlashProgress &progress) { emit progressed(progress); }});
    dfu->setPacer(pacer);
    dfu->begin(package);
    emit prepared(package);
}

bool FlashWorker::unpack(QStringList files, bool plainZips)
{
    emit stageReached(FlashStage::Hashing);
    emit stageReached(FlashStage::Extracting);
    if (!preparation.prepareAll(files, gpgAvailable && !plainZips, flags->gpgRunning))
        return false;
    // The old tool's rhythm, a second after each archive; the newer one's path has no fixed pause.
    if (knownDfuDialect() != DfuDialect::Newer) {
        flags->rest(1000 * files.size());
    }
    return true;
}

bool FlashWorker::listFiles(FlashMode mode, FlashPackage &package)
{
    emit stageReached(FlashStage::Listing);
    QStringList stages{FirmwareNames::stageBl, FirmwareNames::stageOs, FirmwareNames::stagePr};
    if (mode == FlashMode::Firmware)
        stages.removeFirst();
    else if (mode == FlashMode::BootLoaderOnly)
        stages = QStringList{FirmwareNames::stageBl};
    for (const QString &stage : std::as_const(stages)) {
        QStringList names;
        if (!preparation.stageList(stage, names))
            return false;
        for (const QString &name : std::as_const(names))
            package.files << FlashPackage::File{stage, name, preparation.stagePath(stage) + QLatin1Char('/') + name, 0, {}};
    }
    return true;
}

// Sizes for the progress, and what is about to go onto the device for the record: each
// file's SHA-256 as it lies unpacked.
bool FlashWorker::measure(FlashPackage &package)
{
    emit stageReached(FlashStage::Sizing);
    qint64 total = 0;
    for (FlashPackage::File &file : package.files) {
        const qint64 size = QFileInfo(file.path).size();
        qDebug() << "Size of file " << quoted(file.path) << ": " << size << "Byte";
        if (size == 0)
            return preparation.fail(FlashError::Code::ZeroSizedFile);
        total += size;
        // Sizes and progress are 32-bit throughout.
        if (total > std::numeric_limits<qint32>::max())
            return preparation.fail(FlashError::Code::PackageTooLarge);
        file.size = qint32(size);
    }
    package.totalSize = qint32(total);
    qDebug() << "Total file size: " << package.totalSize << "Byte\n";
    for (FlashPackage::File &file : package.files) {
        file.sha256 = preparation.sha256Of(file.path);
        if (file.sha256.isEmpty())
            return preparation.fail({FlashError::Code::FileUnreadable, {file.path}});
    }
    return true;
}

void FlashWorker::transfer(const QList<FlashPackage::File> &files, bool afterPause)
{
    if (afterPause)
        dfu->restartClock();
    for (const FlashPackage::File &file : files) {
        if (!dfu->transfer(file)) {
            emit failed(dfu->error());
            return;
        }
        if (!dfu->allStarted() && dfu->pausesBetweenFiles())
            flags->rest(1000);
    }
    emit transferred(dfu->runningNow() ? dfu->runningNow()->version : QString());
}

void FlashWorker::look()
{
    bool accessDenied = false;
    const QList<ListedDevice> devices = listDfuDevices(dfuPath, &accessDenied);
    emit looked(devices, accessDenied);
}
