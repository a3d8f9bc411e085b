#pragma once

#include "flashtypes.h"

#include <QtGlobal>

// The counters of one DFU run, in the 32-bit arithmetic the displays are built on.
struct TransferCounters {
    qint32 filePercent = 0;     // of the current file, 2 per hash mark
    qint32 currentFileSize = 0; // bytes
    qint32 totalFileSize = 0;   // bytes of the whole run
    qint32 writtenSize = 0;     // bytes counted as written in the run
};

// One hash mark: one fiftieth of the current file, and the run's progress after it.
FlashProgress countHashMark(TransferCounters &counters);

// The hash marks a progress bar's percent of the file stands for, beyond those already
// counted: one for every two percent.
int hashMarksDue(const TransferCounters &counters, int percent);

// Seconds left at the pace so far, in the amounts shown; -1 when nothing was written yet.
int remainingSeconds(qint64 elapsedMs, qint32 written, qint32 total);
