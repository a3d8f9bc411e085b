#pragma once

#include "flashhistory.h"

#include <QElapsedTimer>

struct FlashPackage;

// Keeps the history's record of one flash: begun when the unit is chosen, told what
// was unpacked for it and who signed it, completed with the outcome.
class FlashRecorder
{
public:
    // The history is the caller's and outlives the recorder.
    explicit FlashRecorder(FlashHistory *history);

    // A pending record of the unit; false when it cannot be written (why() says why).
    bool begin(const FlashRecord &unit);
    void setPackage(const FlashPackage &package);
    // Completes the record; false when it cannot be written.
    bool finish(const QString &outcome, const QString &after, const QString &error);
    bool hasBegun() const { return record.id != 0; }
    QString path() const { return history->path(); }
    QString why() const { return history->error(); }

private:
    FlashHistory *history;
    FlashRecord record;
    QElapsedTimer clock;
};
