#include "retireworker.h"

#include <QList>
#include <QPointer>

namespace {
// The GUI thread's own: workers are retired and waited for there only.
QList<QPointer<QThread>> &retired()
{
    static QList<QPointer<QThread>> threads;
    return threads;
}
} // namespace

void RetiredWorkers::keep(QThread *thread)
{
    retired().removeAll(nullptr);
    retired() << thread;
}

void RetiredWorkers::waitForAll(int msecs)
{
    for (const QPointer<QThread> &thread : std::as_const(retired())) {
        if (thread)
            thread->wait(msecs);
    }
    retired().removeAll(nullptr);
}
