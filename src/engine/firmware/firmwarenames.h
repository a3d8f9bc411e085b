#pragma once

#include <QString>

// The stage folders inside a firmware package, in flash order "bl", "os", "pr".
namespace FirmwareNames {
inline const QString stageOs = QStringLiteral("os");
inline const QString stagePr = QStringLiteral("pr");
inline const QString stageBl = QStringLiteral("bl");

// How a stage is numbered to the user and the station's caller: "#0", "#1", "#2".
inline QString stageLabel(const QString &stage)
{
    return stage == stageBl ? QStringLiteral("#0") : stage == stageOs ? QStringLiteral("#1") : QStringLiteral("#2");
}
} // namespace FirmwareNames
