#include "transferprogress.h"

#include <algorithm>

FlashProgress countHashMark(TransferCounters &c)
{
    if (c.filePercent < 100) {
        c.filePercent += 2;
        c.writtenSize += c.currentFileSize / 50;
    }
    FlashProgress progress;
    progress.written = c.writtenSize;
    progress.total = c.totalFileSize;
    const qint32 w = progress.inBytes() ? c.writtenSize : c.writtenSize / 1000;
    const qint32 t = progress.shownTotal();
    // A file that grew since it was measured could outrun the total: never divide by 0.
    progress.percent = std::min<qint32>(t > 0 ? qint32(qint64(w) * 100 / t) : 99, 99);
    return progress;
}

int hashMarksDue(const TransferCounters &counters, int percent)
{
    return std::max(0, percent / 2 - counters.filePercent / 2);
}

int remainingSeconds(qint64 elapsedMs, qint32 written, qint32 total)
{
    if (written <= 0)
        return -1;
    return int((elapsedMs / written) * (total - written) / 1000);
}
