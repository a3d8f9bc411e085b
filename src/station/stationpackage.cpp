#include "stationpackage.h"

#include "app/settings.h"
#include "app/toolrun.h"
#include "flash/flashtexts.h"
#include "flash/flashworker.h"
#include "platform/platform.h"

#include <QThread>

#include <utility>

namespace {
QList<QPair<qint64, QDateTime>> looksOf(const QStringList &files)
{
    QList<QPair<qint64, QDateTime>> looks;
    for (const QString &file : files) {
        const QFileInfo info(file);
        looks << qMakePair(info.size(), info.lastModified());
    }
    return looks;
}
} // namespace

PreparedPackage::~PreparedPackage()
{
    owned.release();
    if (!folder.isEmpty())
        Settings::removeFolder(folder);
}

StationPackages::StationPackages(const StationRun::Options &run, QObject *parent) : QObject(parent), run(run)
{
}

StationPackages::~StationPackages()
{
    if (flags)
        flags->stop = true;
    dropWorker();
}

// The worker goes on its own thread, then the thread and the worker's settings.
void StationPackages::dropWorker()
{
    if (thread) {
        QMetaObject::invokeMethod(worker, [this] { delete worker; }, Qt::BlockingQueuedConnection);
        worker = nullptr;
        thread->quit();
        thread->wait();
        delete std::exchange(thread, nullptr);
    }
    delete std::exchange(settings, nullptr);
}

void StationPackages::look(bool again)
{
    if (busy) {
        pending = true;
        pendingAgain = pendingAgain || again;
        return;
    }
    busy = true;
    // The path may be a share that hangs: looked at off the event loop.
    runOffThread<StationRun::FirmwareChoice>(
        this, [options = run] { return StationRun::chooseFirmware(options); },
        [this, again](const StationRun::FirmwareChoice &choice) { chosen(choice, again); });
}

void StationPackages::chosen(const StationRun::FirmwareChoice &choice, bool again)
{
    if (!choice.error.isEmpty()) {
        endPreparation(choice.error);
        return;
    }
    if (inUse && !again && inUse->choice.files == choice.files && inUse->looks == looksOf(choice.files)) {
        busy = false;
        emit unchanged();
        next();
        return;
    }
    preparing = std::make_unique<PreparedPackage>();
    preparing->choice = choice;
    preparing->looks = looksOf(choice.files);
    // Beside the runs' folders: a watch killed outright leaves it to the next run to remove.
    preparing->folder = preparing->owned.make(Platform::workingRoot() + QLatin1String("/station-"));
    settings = new Settings(static_cast<QObject *>(nullptr));
    if (preparing->folder.isEmpty() || !settings->useWorkingFolder(preparing->folder)) {
        endPreparation(QStringLiteral("Cannot make a folder for the firmware in %1").arg(Platform::workingRoot()));
        return;
    }
    flags = std::make_shared<DfuTransfer::Flags>();
    thread = new QThread;
    thread->setObjectName(QStringLiteral("package"));
    worker = new FlashWorker(settings, 0, flags);
    worker->moveToThread(thread);
    connect(worker, &FlashWorker::prepared, this, &StationPackages::prepared);
    connect(worker, &FlashWorker::failed, this,
            [this](const FlashError &error) { endPreparation(FlashTexts::errorBox(error)); });
    thread->start();
    QMetaObject::invokeMethod(worker, [worker = worker, files = choice.files, zip = run.zip] {
        worker->prepareForMany(files, zip, FlashMode::Firmware);
    });
}

void StationPackages::prepared(const FlashPackage &package)
{
    preparing->package = package;
    endPreparation(QString());
}

// The worker and its thread go; the package stays in use, or its folder goes.
void StationPackages::endPreparation(const QString &error)
{
    dropWorker();
    busy = false;
    if (error.isEmpty()) {
        inUse = std::shared_ptr<const PreparedPackage>(preparing.release());
        emit ready(inUse);
    } else {
        preparing.reset();
        emit failed(error);
    }
    next();
}

void StationPackages::next()
{
    if (!pending)
        return;
    pending = false;
    const bool again = pendingAgain;
    pendingAgain = false;
    look(again);
}
