#pragma once

#include "app/exitcode.h"

#include <QMetaType>
#include <QString>
#include <QtGlobal>

// Which files of a package go onto the device.
enum class FlashMode {
    Firmware,        // "os", then "pr"
    BootLoaderFirst, // "bl", the device restarts, then "os" and "pr"
    BootLoaderOnly,  // "bl" alone
};

// Where a flash has got to. The files themselves are told one by one (FlashJob::fileStarted).
enum class FlashStage {
    Hashing,    // the selected files' hashes go into the log
    Extracting, // checked and decrypted (or copied)
    Listing,    // the .sys files of each stage
    Sizing,     // their sizes
    Searching,  // the device is looked for before a file
    Restarting, // the boot loader is in: the device restarts before the firmware
    Written,    // every file is in the device
    Verifying,  // the device must come back with the package's version
};

enum class FlashOutcome {
    Flashed,   // written (and verified, where asked)
    Recovered, // the same, for a device found waiting in DFU mode
    Current,   // it ran the package's version already: left alone
    Failed,
    Stopped,   // by the user or a signal
};

// The history's and the station's word for an outcome.
QString outcomeWord(FlashOutcome outcome);
// A good flash whose record could not be completed has a code of its own.
ExitCode exitCodeFor(FlashOutcome outcome, bool recorded = true);
inline bool isSuccess(FlashOutcome outcome)
{
    return outcome == FlashOutcome::Flashed || outcome == FlashOutcome::Recovered || outcome == FlashOutcome::Current;
}

// A run's progress, in the 32-bit figures the displays are built on.
struct FlashProgress {
    qint32 percent = 0; // of the whole run, at most 99 while files go
    qint32 written = 0; // bytes counted as written in the run
    qint32 total = 0;   // bytes of the whole run
    int secondsLeft = -1; // at the pace so far; -1 before anything was written

    // Up to the first thousand bytes in bytes, then in units of 1000 bytes.
    bool inBytes() const { return written < 1000; }
    qint32 shownTotal() const { return inBytes() ? total : total / 1000; }
    qint32 shownWritten() const { return qMin(inBytes() ? written : written / 1000, shownTotal()); }
};

Q_DECLARE_METATYPE(FlashMode)
Q_DECLARE_METATYPE(FlashStage)
Q_DECLARE_METATYPE(FlashOutcome)
Q_DECLARE_METATYPE(FlashProgress)
