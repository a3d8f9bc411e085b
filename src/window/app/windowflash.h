#pragma once

#include "flash/flashjob.h"

#include <QString>

class HistoryWriter;
class Settings;
class Version;

// What the main window and the boot loader wizard share in running a flash job.

// The history the window's flashes are recorded in, opened at a flash; none when it
// cannot be opened (a line in the log says why), and tried again at the next.
HistoryWriter *windowHistory();

// A flash of the window: of the device its last look found, recorded in its history.
FlashJob::Options windowFlashOptions(const Settings &settings, const Version &version, const QStringList &files,
                                     bool zipSearch);

struct FlashErrorDisplay {
    QString status; // the status line's new text; empty: it stays
    QString box;    // the text of an ERROR box; empty: no box
};
// A package's error goes to the status line and into a box of its own; the device's
// and the tool's into the log and inside "Flashing not completed"; a history that
// cannot be written into the log alone. Writes the log line, returns what to show.
FlashErrorDisplay windowFlashError(const FlashError &error);
