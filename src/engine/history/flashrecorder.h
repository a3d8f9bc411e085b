#pragma once

#include "historywriter.h"

#include <QElapsedTimer>

struct FlashPackage;

// Keeps the history's record of one flash: begun when the unit is chosen, told what
// was unpacked for it and who signed it, completed with the outcome. Every write goes
// through the history's writer; its answer comes to the context object.
class FlashRecorder
{
public:
    // The writer is the caller's and outlives the recorder.
    explicit FlashRecorder(HistoryWriter *writer);

    void begin(const FlashRecord &unit, QObject *context, HistoryWriter::Answer done);
    void setPackage(const FlashPackage &package);
    void setOutcome(const QString &outcome, const QString &after, const QString &error);
    // Completes the record with the outcome set; may be asked again when it failed.
    void finish(int busyTimeoutMs, QObject *context, HistoryWriter::Answer done);
    // What it would have said goes into the history's journal instead.
    void noteUnrecorded(QObject *context, HistoryWriter::Answer done);
    // The same two at once, for a run that must end now.
    bool finishNow(int busyTimeoutMs, QString *why);
    bool noteUnrecordedNow();
    bool hasBegun() const { return record.row != 0; }
    QString path() const { return writer->path(); }

private:
    HistoryWriter *writer;
    FlashRecord record;
    QElapsedTimer clock;
};
