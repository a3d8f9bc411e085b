#pragma once

#include "dfutransfer.h"
#include "flasherror.h"
#include "flashpackage.h"
#include "flashtypes.h"
#include "packagepreparation.h"

#include "firmware/devicelisting.h"

#include <QObject>
#include <QStringList>

#include <memory>

class Settings;

// The part of a flash job that waits on files and tools, on a thread of its own: it
// prepares the package, puts files into the device and lists the devices, one task at a
// time, each ended by its own signal or by failed(). A stop (the shared flag) kills
// the tool at work and ends the task at once, with failed() and no error.
class FlashWorker : public QObject
{
    Q_OBJECT
public:
    // Paths are taken here, on the thread that makes the job.
    FlashWorker(Settings *settings, int bootLoaderRev, std::shared_ptr<DfuTransfer::Flags> flags,
                std::shared_ptr<DownloadPacer> pacer = nullptr);
    ~FlashWorker() override;

    // Checks and unpacks the files, lists and measures the .sys files the mode flashes.
    void prepare(const QStringList &files, bool plainZips, FlashMode mode, const ListedDevice &unit);
    // The same, without a device, for many units to come: the .sys files are made read-only.
    void prepareForMany(const QStringList &files, bool plainZips, FlashMode mode);
    // Takes a package prepared before, as it is.
    void adopt(const FlashPackage &package, const ListedDevice &unit);
    // Puts these files of the prepared package into the device, in order.
    void transfer(const QList<FlashPackage::File> &files, bool afterPause);
    void look();

signals:
    void stageReached(FlashStage stage);
    void prepared(const FlashPackage &package);
    void fileStarted(const QString &stage, const QString &file, int number, int total);
    void progressed(const FlashProgress &progress);
    // After the last file: the version the device runs now, where it was seen running.
    void transferred(const QString &version);
    void looked(const QList<ListedDevice> &devices, bool accessDenied);
    void failed(const FlashError &error);

private:
    bool unpack(QStringList files, bool plainZips);
    bool listFiles(FlashMode mode, FlashPackage &package);
    bool measure(FlashPackage &package);
    void readyToTransfer(const FlashPackage &package, const ListedDevice &unit);

    std::shared_ptr<DfuTransfer::Flags> flags;
    const std::shared_ptr<DownloadPacer> pacer;
    const QString dfuPath;
    const bool gpgAvailable;
    const int bootLoaderRev;
    PackagePreparation preparation;
    std::unique_ptr<DfuTransfer> dfu;
};
