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
        if (!opened->open(FlashHistory::defaultPath()))
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
    FlashRecord unit;
    unit.program = QStringLiteral("window");
    const ListedDevice device = version.listedTesselNine();
    unit.port = device.port;
    unit.serial = device.serial;
    unit.before = recovering ? QString() : deviceVersion;
    QString file = firmwareFile;
    bool hasV = false;
    unit.version = Version::fileVersion(file, Settings::getTesselNINEName(), &hasV);
    unit.signedPackage = signedPackage;
    record = std::make_unique<FlashRecorder>(history);
    if (!record->begin(unit)) {
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
    const QString outcome = exitCode == 0 ? (recovering ? QStringLiteral("recovered") : QStringLiteral("flashed"))
                            : aborted     ? QStringLiteral("stopped")
                                          : QStringLiteral("failed");
    if (!record->finish(outcome, QString(), QString()))
        qWarning() << quoted(record->error());
    record.reset();
}
