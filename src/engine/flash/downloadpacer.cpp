#include "downloadpacer.h"

#include <algorithm>

DownloadPacer::DownloadPacer(int spacingMs) : spacingMs(spacingMs)
{
    clock.start();
}

qint64 DownloadPacer::takeTurn()
{
    const std::lock_guard<std::mutex> lock(mutex);
    const qint64 now = clock.elapsed();
    const qint64 turn = std::max(now, nextFreeMs);
    nextFreeMs = turn + spacingMs;
    return turn - now;
}
