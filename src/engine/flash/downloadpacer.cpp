#include "downloadpacer.h"

#include <QThread>
#include <QtDebug>

#include <algorithm>

namespace {
// A stop is heard within this while.
constexpr qint64 stopCheckMs = 50;
} // namespace

DownloadPacer::DownloadPacer(int spacingMs) : spacingMs(spacingMs)
{
    clock.start();
}

bool DownloadPacer::waitForTurn(const std::atomic<bool> &stop)
{
    qint64 turn = 0;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        turn = std::max(clock.elapsed(), nextFreeMs);
        nextFreeMs = turn + spacingMs;
    }
    if (turn > clock.elapsed())
        qDebug() << "The download waits" << turn - clock.elapsed() << "ms for its turn";
    for (qint64 left = turn - clock.elapsed(); left > 0 && !stop; left = turn - clock.elapsed())
        QThread::msleep(std::min(left, stopCheckMs));
    return !stop;
}
