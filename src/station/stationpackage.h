#pragma once

#include "stationrun.h"

#include "flash/dfutransfer.h"
#include "flash/flasherror.h"
#include "flash/flashpackage.h"
#include "platform/ownedfolder.h"

#include <QFileInfo>
#include <QObject>

#include <memory>

class FlashWorker;
class QThread;
class Settings;

// A package checked and unpacked once for many units, in a folder of the station's own
// with read-only files. The runs that flash from it share it; its folder goes with the
// last of them.
struct PreparedPackage {
    StationRun::FirmwareChoice choice;
    FlashPackage package;
    QString folder;
    // What the chosen files looked like when they were prepared: a new package is another.
    QList<QPair<qint64, QDateTime>> looks;
    OwnedFolder owned;

    PreparedPackage() = default;
    PreparedPackage(const PreparedPackage &) = delete;
    PreparedPackage &operator=(const PreparedPackage &) = delete;
    ~PreparedPackage();
};

// The package a watch gives each unit: prepared when the watch starts, again when its
// firmware path shows another one (a reload) or a prepared file was found changed.
// Runs under way keep the package they started with.
class StationPackages : public QObject
{
    Q_OBJECT
public:
    explicit StationPackages(const StationRun::Options &run, QObject *parent = nullptr);
    ~StationPackages() override;

    // Looks at the firmware path off the event loop and prepares what is there, unless it
    // is the package in use and `again` is not asked for. One look at a time; a look asked
    // for meanwhile follows it.
    void look(bool again = false);
    std::shared_ptr<const PreparedPackage> current() const { return inUse; }
    bool isBusy() const { return busy; }

signals:
    // A new package is in use.
    void ready(const std::shared_ptr<const PreparedPackage> &package);
    // The look found the package in use.
    void unchanged();
    // The firmware there could not be taken; the package in use (if any) stays.
    void failed(const QString &error);

private:
    void chosen(const StationRun::FirmwareChoice &choice, bool again);
    void prepared(const FlashPackage &package);
    void endPreparation(const QString &error);
    void dropWorker();
    void next();

    const StationRun::Options run;
    std::shared_ptr<const PreparedPackage> inUse;
    std::unique_ptr<PreparedPackage> preparing;
    Settings *settings = nullptr;
    QThread *thread = nullptr;
    FlashWorker *worker = nullptr;
    std::shared_ptr<DfuTransfer::Flags> flags;
    bool busy = false;
    bool pending = false;
    bool pendingAgain = false;
};
