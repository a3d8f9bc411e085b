#pragma once

#include "flasherror.h"

#include <QByteArray>
#include <QList>

// What one chunk of dfu-util's output tells, in the order of the marks.
struct DfuEvent {
    enum Kind { Searching, Error, StartingDownload, HashMarks, Percent };
    Kind kind;
    FlashError error; // Error: a ToolMark
    int count = 0;    // HashMarks; Percent: of the current file, 0 to 100
};

struct DfuChunk {
    QList<DfuEvent> events;
    QByteArray logText; // the chunk without hash marks; empty when nothing else was in it
};

// The marks of one transfer's dfu-util output. Each chunk is searched on its own, for
// every mark, in a fixed order: a mark torn across two chunks is not seen.
//
// dfu-util 0.9 and later word some lines differently and draw a progress bar
// ("Download\t[=====    ]  36%        12345 bytes") in place of hash marks. Their
// lines are searched after the old marks and only add what the old ones did not
// already say in the same chunk, so the old tool's output reads exactly as before.
// The newer tool also tells over several lines what the old one said in one mark: that
// a block failed (" failed!" behind the bar, then the device's dfuERROR state with its
// status), and that the file went whole into the device ("Download done.", "Done!").
// One parser serves one transfer and remembers those.
class DfuOutputParser
{
public:
    DfuChunk parse(const QByteArray &chunk);
    // The newer tool said the file was written and manifested. Its exit code may still
    // be 74: the final reset of a device that comes back as a new one fails.
    bool downloadConfirmed() const { return downloadDone && done; }

private:
    bool progressBar = false;
    bool blockFailed = false;
    bool downloadDone = false;
    bool done = false;
};
