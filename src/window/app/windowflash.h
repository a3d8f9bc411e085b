#pragma once

#include "flash/flashjob.h"

#include <QString>

class HistoryWriter;
class Settings;
class Version;

// What the main window and the boot loader wizard share in running a flash job.

// The history the window's flashes are recorded in, opened at a flash; none when it
// cannot be opened (a line in the log says why), and tried again at the next. With the
// key `central` in the configuration, its records go to the plant's central record as
// well, in the background: a laptop delivers them when it is back on the plant's network.
HistoryWriter *windowHistory(const Settings &settings);
// Before an automatic run ends: its record gets a few seconds to reach the central record.
// False when a call to the server still holds the sender: the process must not run its
// static destructors under it.
bool windowSendRecords(int waitMs);

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
