#pragma once

#include <QString>

// The stage folders inside a firmware package, in flash order "bl", "os", "pr".
namespace FirmwareNames {
inline const QString stageOs = QStringLiteral("os");
inline const QString stagePr = QStringLiteral("pr");
inline const QString stageBl = QStringLiteral("bl");
} // namespace FirmwareNames
