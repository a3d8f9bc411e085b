#pragma once

#include "dfuoutputparser.h"
#include "flasherror.h"
#include "flashpackage.h"
#include "flashtypes.h"
#include "transferprogress.h"

#include "app/toolrun.h"
#include "firmware/devicelisting.h"

#include <QElapsedTimer>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

class DownloadPacer;

// Puts the files of a package into a Tessel NINE with dfu-util, one file per call, on
// the calling thread. The field's old tool (0.5 to 0.7) runs with the classic command
// lines and pauses. The newer one (0.9 and later) pauses 5 s after a detach and looks
// once, so with it the transfer detaches the device on its port itself, looks for it
// every 100 ms and downloads to it, and waits for it to come back.
class DfuTransfer
{
public:
    struct Events {
        std::function<void(FlashStage)> stage; // Searching
        std::function<void(const QString &stage, const QString &file, int number, int total)> fileStarted;
        std::function<void(const FlashProgress &)> progress;
    };
    // Shared with the thread that may stop the run.
    struct Flags {
        std::atomic<bool> stop{false};
        std::atomic<int> gpgRunning{0}; // gpg runs at work
        std::atomic<bool> dfuRunning{false};
        // Sleeps for ms in steps short enough to hear a stop; false when stopped.
        bool rest(qint64 ms) const;
    };

    // unit: the device as the run found it; its port (dfu-util's "-p PATH") binds every
    // call, and what comes back on that port must be it (its serial), or the file fails.
    DfuTransfer(const QString &dfuPath, const ListedDevice &unit, int bootLoaderRev, Flags &flags, Events events);

    static QStringList dfuArguments(const QString &file, int bootLoaderRev);

    // The run's files, counted from here on; the time left is measured anew.
    void begin(const FlashPackage &package);
    // After a pause the run waited through (the boot loader's restart).
    void restartClock() { remainingClock.start(); }
    // False when the file did not go in (error() says why), or when stopped (it says nothing).
    bool transfer(const FlashPackage::File &file);
    FlashError error() const { return lastError; }
    // The old tool's rhythm: a second's rest after an archive and between two files. The
    // newer one's device is looked for instead.
    bool pausesBetweenFiles() const { return !lookedAfter; }
    // The run's last file has been started.
    bool allStarted() const { return filesStarted == filesTotal; }
    // The device as last seen running on its port after a file; none with the old tool.
    std::optional<ListedDevice> runningNow() const { return running; }
    // How long the newer tool's device may take to come back after a detach or a download.
    void setDeviceWaitLimit(int ms) { deviceWaitLimitMs = ms; }
    // Shared with the other units' transfers: each download waits for its turn.
    void setPacer(std::shared_ptr<DownloadPacer> shared) { pacer = std::move(shared); }

private:
    enum class DeviceMode { Absent, Runtime, Dfu };
    bool fail(const FlashError &error);
    bool runAbortable(const QStringList &args, const std::function<void(const QByteArray &)> &onChunk,
                      ToolResult *result);
    bool runQuiet(const QStringList &args, QByteArray *output);
    bool runDfu(const QStringList &args);
    DeviceMode lookAtPort(bool *failed);
    bool waitOnPort(const std::function<bool(DeviceMode)> &arrived, bool *failed);
    bool readyInDfuMode();
    bool backAfterDownload();
    void readProgram(const QByteArray &chunk);
    void keepLastLine(const QByteArray &chunk);
    void countHashMarks(int n);

    const QString dfuPath;
    const QString port;
    const QString serial;
    const int bootLoaderRev;
    // The newer tool's device, detached and looked for by this transfer.
    const bool lookedAfter;
    Flags &flags;
    Events events;
    int deviceWaitLimitMs = 20000;
    std::shared_ptr<DownloadPacer> pacer;

    // Of the run
    TransferCounters counters;
    QElapsedTimer remainingClock;
    qint32 filesStarted = 0;
    qint32 filesTotal = 0;
    // Of the current file
    FlashPackage::File current;
    DfuOutputParser parser;
    FlashError lastError;
    bool sawOutput = false;
    bool fileStarted = false;     // the current file's download was announced
    bool resetsToRuntime = false; // the tool said it resets the device to run-time mode
    std::optional<ListedDevice> running;
    QString lastToolLine;         // shown when the tool fails without a mark
    QByteArray unfinishedToolLine; // its start, while the rest of it is still to come
};
