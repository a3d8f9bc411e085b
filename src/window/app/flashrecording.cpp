#include "flashrecording.h"

#include "app/logstream.h"
#include "app/settings.h"
#include "firmware/version.h"
#include "flash/dfuthread.h"
#include "history/flashrecorder.h"

#include <QtDebug>

namespace {
// One history for the window's whole run, opened at its first flash. Never destroyed:
// an automatic run ends by exit(), after which Qt's SQL registry is gone; SQLite's
// file is consistent at every statement's end.
FlashHistory *windowHistory()
{
    static FlashHistory *const history = [] {
        auto *opened = new FlashHistory;
        // The window writes on its GUI thread: it waits for another writer a moment only.
        if (!opened->open(FlashHistory::defaultPath(), 1000))
            qWarning() << "No history of flashes:" << quoted(opened->error());
        return opened;
    }();
    return history->isOpen() ? history : nullptr;
}
} // namespace

FlashRecording::FlashRecording() = default;
FlashRecording::~FlashRecording() = default;

void FlashRecording::begin(DFUThread *worker, const Version &version, const QString &deviceVersion,
                           const QString &firmwareFile, bool signedPackage, bool recoveringDevice)
{
    record.reset();
    recovering = recoveringDevice;
    FlashHistory *history = windowHistory();
    if (!history)
        return;
    const ListedDevice device = version.listedTesselNine();
    QString file = firmwareFile;
    bool hasV = false;
    const QString packageVersion = Version::fileVersion(file, Settings::getTesselNINEName(), &hasV);
    record = std::make_unique<FlashRecorder>(history);
    if (!record->begin(flashUnit(QStringLiteral("window"), device.port, device.serial,
                                 recovering ? QString() : deviceVersion, packageVersion, signedPackage))) {
        qWarning() << quoted(record->error());
        record.reset();
        return;
    }
    record->follow(worker);
}

void FlashRecording::end(int exitCode, bool aborted)
{
    if (!record)
        return;
    if (!record->finish(flashOutcome(exitCode, recovering, aborted), QString(), QString()))
        qWarning() << quoted(record->error());
    record.reset();
}
