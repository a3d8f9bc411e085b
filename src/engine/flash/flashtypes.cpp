#include "flashtypes.h"

QString outcomeWord(FlashOutcome outcome)
{
    switch (outcome) {
    case FlashOutcome::Flashed:
        return QStringLiteral("flashed");
    case FlashOutcome::Recovered:
        return QStringLiteral("recovered");
    case FlashOutcome::Current:
        return QStringLiteral("current");
    case FlashOutcome::Stopped:
        return QStringLiteral("stopped");
    case FlashOutcome::Failed:
        break;
    }
    return QStringLiteral("failed");
}

ExitCode exitCodeFor(FlashOutcome outcome, bool recorded)
{
    if (isSuccess(outcome))
        return recorded ? ExitCode::Success : ExitCode::NotRecorded;
    return outcome == FlashOutcome::Stopped ? ExitCode::Stopped : ExitCode::Failed;
}
