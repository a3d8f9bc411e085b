#pragma once

#include <QElapsedTimer>

#include <mutex>

// Units flashed side by side that arrive together download in step: all of them load the
// PC and the bus at the same moments, then all of them wait at once while their devices
// write what they got. Shared by their transfers, a pacer lets no two downloads start
// closer together than its spacing, so that one unit's download overlaps another's
// writing. A download that has the bus to itself starts at once.
class DownloadPacer
{
public:
    explicit DownloadPacer(int spacingMs);

    // Takes the next free start: how many ms from now the download is to wait for it.
    qint64 takeTurn();

private:
    const int spacingMs;
    std::mutex mutex;
    QElapsedTimer clock;
    qint64 nextFreeMs = 0; // on clock
};
