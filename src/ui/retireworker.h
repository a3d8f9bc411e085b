#pragma once

#include <QObject>
#include <QThread>

#include <functional>
#include <utility>

// Takes a worker out of the window. Nothing more of it reaches the window; if it still
// runs it is asked to stop (never terminated) and deletes itself once run() has
// returned. Returns the worker while it is still running, else null.
template <typename Worker, typename Stop>
Worker *retireWorker(Worker *&worker, QObject *window, Stop stop)
{
    Worker *thread = std::exchange(worker, nullptr);
    if (!thread)
        return nullptr;
    QObject::disconnect(thread, nullptr, window, nullptr);
    QObject::connect(thread, &QThread::finished, thread, &QObject::deleteLater);
    if (!thread->isRunning()) {
        thread->deleteLater();
        return nullptr;
    }
    std::invoke(stop, thread);
    return thread;
}
