#pragma once

#include <QString>

// Boxes main shows before any window or translator exists; their texts stay English.
void showHelpBox(const QString &text);
void showParameterError(const QString &text);
[[noreturn]] void showInstallationCorrupted();
[[noreturn]] void showAlreadyRunning();
