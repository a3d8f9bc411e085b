#pragma once

#include <QElapsedTimer>

#include <atomic>
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

    // Takes the next free start and waits for it. False when the stop flag rose meanwhile.
    bool waitForTurn(const std::atomic<bool> &stop);
    int spacing() const { return spacingMs; }

private:
    const int spacingMs;
    std::mutex mutex;
    QElapsedTimer clock;
    qint64 nextFreeMs = 0; // on clock
};
