#include "flashrecorder.h"

#include "firmware/devicelisting.h"
#include "flash/flashpackage.h"

FlashRecorder::FlashRecorder(FlashHistory *history) : history(history)
{
}

bool FlashRecorder::begin(const FlashRecord &unit)
{
    record = unit;
    record.started = QDateTime::currentDateTimeUtc();
    if (record.tool.isEmpty())
        record.tool = knownDfuVersion();
    clock.start();
    return history->begin(record) != 0;
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

bool FlashRecorder::finish(const QString &outcome, const QString &after, const QString &error)
{
    if (!hasBegun())
        return false;
    record.outcome = outcome;
    record.after = after;
    record.error = error;
    record.ended = QDateTime::currentDateTimeUtc();
    record.seconds = clock.elapsed() / 1000.0;
    const bool written = history->finish(record);
    record.id = 0;
    return written;
}
