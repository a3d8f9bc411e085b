#include "historywriter.h"

#include <QCoreApplication>
#include <QPointer>

HistoryWriter::HistoryWriter(QObject *parent) : QObject(parent), home(new QObject)
{
    home->moveToThread(&thread);
    thread.start();
}

HistoryWriter::~HistoryWriter()
{
    // After every write already asked for: the history goes on its own thread.
    QMetaObject::invokeMethod(home, [this] { delete history; }, Qt::BlockingQueuedConnection);
    thread.quit();
    thread.wait();
    delete home;
}

bool HistoryWriter::open(const QString &path, int busyTimeoutMs)
{
    file = path;
    QMetaObject::invokeMethod(
        home,
        [this, busyTimeoutMs] {
            delete history;
            history = new FlashHistory;
            history->setIdentity(who);
            opened = history->open(file, busyTimeoutMs);
            openError = history->error();
        },
        Qt::BlockingQueuedConnection);
    return opened;
}

void HistoryWriter::setIdentity(const RecordIdentity &identity)
{
    QMetaObject::invokeMethod(home, [this, identity] {
        who = identity;
        if (history)
            history->setIdentity(identity);
    });
}

void HistoryWriter::write(QObject *context, std::function<bool(FlashHistory &)> work, Answer done)
{
    QPointer<QObject> guard(context);
    QMetaObject::invokeMethod(
        home,
        [this, guard, work = std::move(work), done = std::move(done)] {
            const bool written = history && history->isOpen() && work(*history);
            const QString why = history ? history->error() : QString();
            QMetaObject::invokeMethod(
                QCoreApplication::instance(),
                [guard, done, written, why] {
                    if (guard)
                        done(written, why);
                },
                Qt::QueuedConnection);
        },
        Qt::QueuedConnection);
}

void HistoryWriter::begin(FlashRecord *unit, QObject *context, Answer done)
{
    // The record travels to the writer and back: the caller's copy takes its id and the
    // fields the history fills in.
    auto record = std::make_shared<FlashRecord>(*unit);
    write(
        context, [record](FlashHistory &h) { return h.begin(*record) != 0; },
        [record, unit, done = std::move(done)](bool written, const QString &why) {
            if (written)
                *unit = *record;
            done(written, why);
        });
}

void HistoryWriter::finish(const FlashRecord &record, int busyTimeoutMs, QObject *context, Answer done)
{
    write(
        context, [record, busyTimeoutMs](FlashHistory &h) { return h.finish(record, busyTimeoutMs); },
        [this, done = std::move(done)](bool written, const QString &why) {
            if (written)
                emit completed();
            done(written, why);
        });
}

void HistoryWriter::noteUnrecorded(const FlashRecord &record, QObject *context, Answer done)
{
    write(
        context, [record](FlashHistory &h) { return h.noteUnrecorded(record); }, std::move(done));
}

bool HistoryWriter::finishNow(const FlashRecord &record, int busyTimeoutMs, QString *why)
{
    bool written = false;
    QMetaObject::invokeMethod(
        home,
        [&] {
            written = history && history->isOpen() && history->finish(record, busyTimeoutMs);
            *why = history ? history->error() : QString();
        },
        Qt::BlockingQueuedConnection);
    if (written)
        emit completed();
    return written;
}

bool HistoryWriter::noteUnrecordedNow(const FlashRecord &record)
{
    bool written = false;
    QMetaObject::invokeMethod(
        home, [&] { written = history && history->noteUnrecorded(record); }, Qt::BlockingQueuedConnection);
    return written;
}
