#pragma once

#include <QString>
#include <QtGlobal>

// The log of the latest run: one file, opened and closed for every message so that
// it can be read at any time and survives a crash.
namespace Log {
void setFolder(const QString &folder);
QString folder();
QString filePath();
} // namespace Log

void clearLogFile();
void logMessageHandler(QtMsgType type, const QMessageLogContext &context, const QString &message);
