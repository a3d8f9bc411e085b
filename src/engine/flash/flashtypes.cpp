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

ExitCode exitCodeFor(FlashOutcome outcome)
{
    if (isSuccess(outcome))
        return ExitCode::Success;
    return outcome == FlashOutcome::Stopped ? ExitCode::Stopped : ExitCode::Failed;
}
