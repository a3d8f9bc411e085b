#pragma once

#include <QObject>
#include <QThread>

#include <functional>
#include <utility>

namespace RetiredWorkers {
// Keeps a worker told to stop in sight until it has ended.
void keep(QThread *thread);
// At the owner's end: waits up to msecs for every worker still ending, so that no tool
// outlives the program.
void waitForAll(int msecs);
} // namespace RetiredWorkers

// Takes a worker away from its owner (a window). Nothing more of it reaches the owner;
// if it still runs it is asked to stop (never terminated) and deletes itself once run()
// has returned.
template <typename Worker, typename Stop>
void retireWorker(Worker *&worker, QObject *owner, Stop stop)
{
    Worker *thread = std::exchange(worker, nullptr);
    if (!thread)
        return;
    QObject::disconnect(thread, nullptr, owner, nullptr);
    QObject::connect(thread, &QThread::finished, thread, &QObject::deleteLater);
    if (!thread->isRunning()) {
        thread->deleteLater();
        return;
    }
    std::invoke(stop, thread);
    RetiredWorkers::keep(thread);
}
