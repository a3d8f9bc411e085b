#pragma once

#include <QByteArray>
#include <QCoreApplication>
#include <QList>
#include <QString>

// What one chunk of dfu-util's output asks of the worker, in the order of the marks.
struct DfuEvent {
    enum Kind { Status, Error, StartingDownload, HashMarks };
    Kind kind;
    QString text; // Status and Error
    int count = 0; // HashMarks
};

struct DfuChunk {
    QList<DfuEvent> events;
    QByteArray logText; // the chunk without hash marks; empty when nothing else was in it
};

// The marks of dfu-util's output. Each chunk is searched on its own, for every mark,
// in a fixed order: a mark torn across two chunks is not seen.
class DfuOutputParser
{
    Q_DECLARE_TR_FUNCTIONS(DFUThread)
public:
    static DfuChunk parse(const QByteArray &chunk);
};
