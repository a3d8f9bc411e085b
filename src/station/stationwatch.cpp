#include "stationwatch.h"

#include "stationpackage.h"

#include "app/settings.h"
#include "flash/downloadpacer.h"
#include "platform/ownedfolder.h"
#include "platform/platform.h"
#include "platform/usbmonitor.h"

namespace {
// udev sends several events for one plug (device, interfaces) within a few milliseconds:
// one look after them. Each event starts the wait again; a script polling every 100 ms
// would be at the device sooner than a longer wait.
constexpr int settleMs = 30;
// Where udev cannot be listened to, the ports are looked at this often.
constexpr int pollMs = 2000;
// A listing that could not name every device is taken again this soon: udev opens a new
// node to us a moment after the device appears.
constexpr int relookMs = 500;
// Two downloads start at least this far apart: units that arrived together fall out of
// step, and one unit's download runs while others' devices write. Eight units that
// arrive at once all start within 1.75 s.
constexpr int downloadSpacingMs = 250;
} // namespace

StationWatch::StationWatch(Settings *settings, StationOutput *output, HistoryWriter *history, Options options,
                           QObject *parent)
    : QObject(parent), settings(settings), output(output), history(history), options(std::move(options)),
      pacer(std::make_shared<DownloadPacer>(downloadSpacingMs))
{
    lookTimer.setSingleShot(true);
    connect(&lookTimer, &QTimer::timeout, this, &StationWatch::look);
    connect(&pollTimer, &QTimer::timeout, this, &StationWatch::look);
}

StationWatch::~StationWatch() = default;

void StationWatch::start()
{
    clock.start();
    // Folders of runs that were killed outright (SIGKILL, power cut) go now.
    OwnedFolder::removeAbandoned(Platform::workingRoot() + QLatin1String("/station-"));
    for (const QString &port : options.ports) {
        auto lock = std::make_unique<PortLock>();
        if (!lock->lock(port)) {
            output->error(lock->error().isEmpty()
                              ? QStringLiteral("Port %1 is watched or flashed by another run: left to it").arg(port)
                              : QStringLiteral("Cannot lock port %1: %2").arg(port, lock->error()),
                          port);
            continue;
        }
        ports[port].lock = std::move(lock);
    }
    if (!options.ports.isEmpty() && ports.empty()) {
        ended = true;
        output->summary(counts, clock.elapsed() / 1000.0);
        emit finished(ExitCode::Failed);
        return;
    }
    monitor = new UsbMonitor(this);
    connect(monitor, &UsbMonitor::changed, this, &StationWatch::changed);
    if (!monitor->start()) {
        output->error(monitor->error() + QStringLiteral(": the ports are looked at every %1 s").arg(pollMs / 1000));
        pollTimer.start(pollMs);
    }
    // Checked and unpacked once, for every unit.
    packages = new StationPackages(options.run, this);
    connect(packages, &StationPackages::ready, this, &StationWatch::packageReady);
    connect(packages, &StationPackages::failed, this, &StationWatch::packageFailed);
    connect(packages, &StationPackages::unchanged, this, [this] {
        output->stage(QStringLiteral("The firmware is unchanged: version %1 stays in use").arg(firmware().version));
    });
    packages->look();
}

StationRun::FirmwareChoice StationWatch::firmware() const
{
    return packages && packages->current() ? packages->current()->choice : StationRun::FirmwareChoice();
}

void StationWatch::packageReady()
{
    if (ended)
        return;
    emit firmwareReady(firmware().version, firmware().files);
    stale = false;
    if (ready) {
        output->stage(QStringLiteral("Version %1 is prepared: units that arrive from now on get it").arg(firmware().version));
    } else {
        ready = true;
        output->stage(QStringLiteral("Watching %1 for Tessel NINEs to bring to version %2")
                          .arg(options.ports.isEmpty() ? QStringLiteral("every port")
                                                       : QStringLiteral("ports ") + watchedPorts().join(QLatin1String(", ")),
                               firmware().version));
    }
    look();
}

void StationWatch::packageFailed(const QString &error)
{
    if (ended)
        return;
    if (ready) {
        output->error(stale ? QStringLiteral("%1; no unit is flashed until its firmware can be prepared again")
                                  .arg(error)
                            : QStringLiteral("%1; version %2 stays in use").arg(error, firmware().version));
        return;
    }
    output->error(error);
    ended = true;
    output->summary(counts, clock.elapsed() / 1000.0);
    emit finished(ExitCode::Failed);
}

void StationWatch::reload()
{
    if (ended || stops > 0 || !packages)
        return;
    output->stage(QStringLiteral("Looking at the firmware again"));
    packages->look();
}

QStringList StationWatch::watchedPorts() const
{
    QStringList list;
    for (const auto &entry : ports)
        list << entry.first;
    return list;
}

void StationWatch::changed(const QString &port)
{
    // A device under a run of ours comes and goes as it is flashed: the run looks after
    // it, and a listing for it would only take time from the flashes.
    const auto slot = ports.find(port);
    if (slot == ports.end() || !slot->second.run)
        lookSoon();
}

void StationWatch::lookSoon()
{
    if (ready && !ended)
        lookTimer.start(settleMs);
}

void StationWatch::look()
{
    if (!ready || ended)
        return;
    bool accessDenied = false;
    bool complete = false;
    QHash<QString, ListedDevice> seen;
    for (const ListedDevice &device : listDfuDevices(*settings, &accessDenied, &complete)) {
        if (device.isTesselNine() && !device.port.isEmpty())
            seen.insert(device.port, device);
    }
    // A device that a failed listing, or a node udev has not yet opened to us, leaves out
    // may still be there: taken for gone, a failed unit would be flashed again without being
    // plugged in, and a skipped one counted twice. Only a whole listing tells who left.
    const bool whole = complete && !accessDenied;
    if (!whole)
        lookTimer.start(relookMs);
    for (auto &[port, slot] : ports) {
        // A port under a run of ours is the run's: its device comes and goes as it is flashed.
        if (!slot.run && (seen.contains(port) ? seen.value(port).serial != slot.serial : whole))
            slot.present = false;
    }
    for (auto it = skippedPorts.begin(); it != skippedPorts.end();)
        it = seen.contains(*it) || !whole ? std::next(it) : skippedPorts.erase(it);
    for (const ListedDevice &device : std::as_const(seen)) {
        if (!options.ports.isEmpty() && !ports.count(device.port)) {
            if (!skippedPorts.contains(device.port)) {
                skippedPorts.insert(device.port);
                ++counts.skipped;
                output->skipped(device.port, device.serial,
                                options.ports.contains(device.port) ? QStringLiteral("another run watches the port")
                                                                    : QStringLiteral("port not watched"));
            }
            continue;
        }
        Port &slot = ports[device.port];
        if (slot.run || slot.present)
            continue;
        slot.present = true;
        slot.serial = device.serial;
        arrived(device);
    }
}

void StationWatch::arrived(const ListedDevice &device)
{
    // A package found changed is prepared again first: the unit waits for it.
    if (stale) {
        ports[device.port].present = false;
        if (!packages->isBusy())
            packages->look(true);
        return;
    }
    output->device(device, true);
    const StationRun::FirmwareChoice firmware = this->firmware();
    const bool current = !device.dfuMode && device.version == firmware.version && device.hasV == firmware.hasV;
    if (current && done.contains(device.serial))
        return; // flashed by this watch, back after its own reset
    if (stops > 0)
        return;
    Port &slot = ports[device.port];
    slot.output = std::make_unique<StationOutput>(options.json);
    slot.output->setListener(output->eventListener());
    slot.output->setSigned(!options.run.zip);
    slot.output->setUnit(device.port, device.serial, true);
    startRun(device, slot);
}

void StationWatch::startRun(const ListedDevice &device, Port &slot)
{
    if (!slot.lock) {
        auto lock = std::make_unique<PortLock>();
        if (!lock->lock(device.port)) {
            ++counts.skipped;
            output->skipped(device.port, device.serial, QStringLiteral("another run holds the port"));
            return;
        }
        slot.lock = std::move(lock);
    }
    StationRun::Options run = options.run;
    run.prepared = packages->current();
    run.pacer = pacer;
    run.port = device.port;
    run.portLocked = true;
    run.leaveCurrent = true;
    // Each run its own settings, for its own working folder; they go with the run.
    auto *own = new Settings(static_cast<QObject *>(nullptr));
    slot.run = new StationRun(own, slot.output.get(), history, run, this);
    own->setParent(slot.run);
    const QString port = device.port;
    connect(slot.run, &StationRun::finished, this, [this, port] { runEnded(port); });
    slot.run->start(run.prepared->choice, device);
}

void StationWatch::runEnded(const QString &port)
{
    Port &slot = ports[port];
    const FlashOutcome outcome = slot.run->outcome();
    // Never flashed from a file that changed: the package is prepared again.
    if (slot.run->preparedChanged() && !stale) {
        stale = true;
        packages->look(true);
    }
    slot.run->deleteLater();
    slot.run = nullptr;
    switch (outcome) {
    case FlashOutcome::Flashed:
        ++counts.flashed;
        break;
    case FlashOutcome::Recovered:
        ++counts.recovered;
        break;
    case FlashOutcome::Current:
        ++counts.current;
        break;
    case FlashOutcome::Stopped:
        ++counts.stopped;
        break;
    case FlashOutcome::Failed:
        ++counts.failed;
        break;
    }
    if (isSuccess(outcome))
        done.insert(slot.serial);
    // Watched on every port: the port is free again for other runs.
    if (options.ports.isEmpty())
        slot.lock.reset();
    finishIfDone();
    lookSoon();
}

void StationWatch::stop()
{
    ++stops;
    if (ended)
        return;
    if (stops == 1) {
        output->stage(QStringLiteral("Stopping: no new flash starts; the running ones end (a second signal stops them)"));
    } else {
        for (auto &entry : ports) {
            if (entry.second.run)
                entry.second.run->stop();
        }
    }
    finishIfDone();
}

void StationWatch::finishIfDone()
{
    if (ended || stops == 0)
        return;
    for (const auto &entry : ports) {
        if (entry.second.run)
            return;
    }
    ended = true;
    lookTimer.stop();
    pollTimer.stop();
    output->summary(counts, clock.elapsed() / 1000.0);
    // Units that failed are no failure of the watch: a service stopped cleanly is not "failed".
    const ExitCode code = counts.stopped > 0  ? ExitCode::Stopped
                          : counts.failed > 0 ? ExitCode::UnitsFailed
                                              : ExitCode::Success;
    emit finished(code);
}
