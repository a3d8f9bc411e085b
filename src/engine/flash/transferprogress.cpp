#include "transferprogress.h"

#include <algorithm>

HashMarkReport countHashMark(TransferCounters &c)
{
    if (c.filePercent < 100) {
        c.filePercent += 2;
        c.writtenSize += c.currentFileSize / 50;
    }
    qint32 w;
    qint32 t;
    if (c.writtenSize >= 1000) {
        c.useByteSize = false;
        w = c.writtenSize / 1000;
        t = c.totalFileSize / 1000;
    } else {
        c.useByteSize = true;
        w = c.writtenSize;
        t = c.totalFileSize;
    }
    // A file that grew since it was measured could outrun the total: never divide by 0.
    qint32 p = t > 0 ? qint32(qint64(w) * 100 / t) : 99;
    if (w > t)
        w = t;
    if (p > 99)
        p = 99;
    return {p, w, t, c.useByteSize};
}

int hashMarksDue(const TransferCounters &counters, int percent)
{
    return std::max(0, percent / 2 - counters.filePercent / 2);
}

bool remainingTime(qint64 elapsedMs, qint32 written, qint32 total, QString *minutes, QString *seconds)
{
    if (written <= 0)
        return false;
    const qint64 r = (elapsedMs / written) * (total - written);
    const qint64 sec = (r / 1000) % 60;
    *minutes = QString::number(r / 60000);
    *seconds = sec > 9 ? QString::number(sec) : QStringLiteral("0%1").arg(sec);
    return true;
}
