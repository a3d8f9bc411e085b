#pragma once

#include <QString>

// Names inside and around firmware packages.
namespace FirmwareNames {
inline const QString stageOs = QStringLiteral("os");
inline const QString stagePr = QStringLiteral("pr");
inline const QString stageBl = QStringLiteral("bl");
inline const QString signedPackageExtension = QStringLiteral(".zip.gpg");
inline const QString plainPackageExtension = QStringLiteral(".zip");
inline const QString brioMelExtension = QStringLiteral(".zkl");
inline const QString usbStickFolder = QStringLiteral(".zelko_update");
} // namespace FirmwareNames
