#pragma once

#include <QString>
#include <QtGlobal>

// The log of the latest run: one file, opened and closed for every message so that
// it can be read at any time and survives a crash.
namespace Log {
void setFolder(const QString &folder);
// A log of another name than logfile.txt (a console run's, named by its caller).
void setFile(const QString &path);
QString folder();
QString filePath();
// Writes the run's verdict as the log's last line: a thread that outlives it (a check on
// a share that hangs) writes nothing after it.
void endWith(const QString &message);
} // namespace Log

void clearLogFile();
void logMessageHandler(QtMsgType type, const QMessageLogContext &context, const QString &message);
