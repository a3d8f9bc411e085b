#include "flashrecorder.h"

#include "firmware/devicelisting.h"
#include "flash/flashpackage.h"

FlashRecorder::FlashRecorder(HistoryWriter *writer) : writer(writer)
{
}

void FlashRecorder::begin(const FlashRecord &unit, QObject *context, HistoryWriter::Answer done)
{
    record = unit;
    record.started = QDateTime::currentDateTimeUtc();
    if (record.tool.isEmpty())
        record.tool = knownDfuVersion();
    clock.start();
    writer->begin(&record, context, std::move(done));
}

void FlashRecorder::setPackage(const FlashPackage &package)
{
    record.files.clear();
    for (const FlashPackage::File &file : package.files)
        record.files << qMakePair(file.name, file.sha256);
    record.signer = package.signers.join(QLatin1Char(' '));
    if (record.tool.isEmpty())
        record.tool = knownDfuVersion();
}

void FlashRecorder::setOutcome(const QString &outcome, const QString &after, const QString &error)
{
    record.outcome = outcome;
    record.after = after;
    record.error = error;
    record.ended = QDateTime::currentDateTimeUtc();
    record.seconds = clock.elapsed() / 1000.0;
}

void FlashRecorder::finish(int busyTimeoutMs, QObject *context, HistoryWriter::Answer done)
{
    writer->finish(record, busyTimeoutMs, context, std::move(done));
}

void FlashRecorder::noteUnrecorded(QObject *context, HistoryWriter::Answer done)
{
    writer->noteUnrecorded(record, context, std::move(done));
}

bool FlashRecorder::finishNow(int busyTimeoutMs, QString *why)
{
    return writer->finishNow(record, busyTimeoutMs, why);
}

bool FlashRecorder::noteUnrecordedNow()
{
    return writer->noteUnrecordedNow(record);
}
