#pragma once

#include "flashhistory.h"

#include <QObject>
#include <QThread>

#include <functional>

// The history written on a thread of its own: a write that waits for another writer
// never holds the caller's event loop. Each answer comes back on the main thread, to
// the context object given with the call, unless that object is gone by then.
class HistoryWriter : public QObject
{
    Q_OBJECT
public:
    explicit HistoryWriter(QObject *parent = nullptr);
    // Waits for the write under way.
    ~HistoryWriter() override;

    // Opens the history for writing, and waits for the answer: before a run starts.
    bool open(const QString &path, int busyTimeoutMs = 15000);
    bool isOpen() const { return opened; }
    // Who writes: for the records begun from now on.
    void setIdentity(const RecordIdentity &identity);
    QString path() const { return file; }
    QString error() const { return openError; }

    // written: whether it went in; why: the database's words when not.
    using Answer = std::function<void(bool written, const QString &why)>;
    // The pending record of a unit; its id is set in `unit` before `done` hears of it.
    void begin(FlashRecord *unit, QObject *context, Answer done);
    // Waits at most busyTimeoutMs for another writer.
    void finish(const FlashRecord &record, int busyTimeoutMs, QObject *context, Answer done);
    void noteUnrecorded(const FlashRecord &record, QObject *context, Answer done);
    // The same two, waiting for the answer: for a run that must end at once.
    bool finishNow(const FlashRecord &record, int busyTimeoutMs, QString *why);
    bool noteUnrecordedNow(const FlashRecord &record);

signals:
    // A record was completed: it may go to the central record.
    void completed();

private:
    // Runs on the writer's thread; the answer goes to context on the main thread.
    void write(QObject *context, std::function<bool(FlashHistory &)> work, Answer done);

    QThread thread;
    QObject *home; // lives on the thread; the history is used there only
    FlashHistory *history = nullptr;
    RecordIdentity who; // used on the thread
    QString file;
    QString openError;
    bool opened = false;
};
