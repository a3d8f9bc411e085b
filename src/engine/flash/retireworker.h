#pragma once

#include <QObject>
#include <QThread>

#include <functional>
#include <utility>

// Takes a worker away from its owner (a window, a station run). Nothing more of it
// reaches the owner; if it still runs it is asked to stop (never terminated) and
// deletes itself once run() has returned. Returns the worker while it still runs.
template <typename Worker, typename Stop>
Worker *retireWorker(Worker *&worker, QObject *owner, Stop stop)
{
    Worker *thread = std::exchange(worker, nullptr);
    if (!thread)
        return nullptr;
    QObject::disconnect(thread, nullptr, owner, nullptr);
    QObject::connect(thread, &QThread::finished, thread, &QObject::deleteLater);
    if (!thread->isRunning()) {
        thread->deleteLater();
        return nullptr;
    }
    std::invoke(stop, thread);
    return thread;
}

// A worker told to stop may still be leaving the extract folder. While it runs, this
// arranges `start` for when it has finished (once, however often it is asked) and
// returns true; the owner never waits for it.
inline bool deferUntilGone(QThread *retired, QObject *context, bool &pending, std::function<void()> start)
{
    if (!retired || !retired->isRunning())
        return false;
    if (!pending) {
        pending = true;
        QObject::connect(retired, &QThread::finished, context, [&pending, start = std::move(start)] {
            pending = false;
            start();
        }, Qt::SingleShotConnection);
    }
    return true;
}
