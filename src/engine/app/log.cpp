#include "log.h"

#include <QFile>
#include <QMutex>
#include <QTextStream>

namespace {
// Written on the GUI thread before any worker exists, read by the handler on any thread.
QString logFolder;
QString logFile;
} // namespace

void Log::setFolder(const QString &folder)
{
    logFolder = folder;
}

QString Log::folder()
{
    return logFolder;
}

void Log::setFile(const QString &path)
{
    logFile = path;
}

QString Log::filePath()
{
    return logFile.isEmpty() ? logFolder + QLatin1String("/logfile.txt") : logFile;
}

void clearLogFile()
{
    if (QFile::exists(Log::filePath()))
        QFile::remove(Log::filePath());
}

namespace {
QMutex writing;
bool ended = false; // the verdict is written: nothing follows it
} // namespace

static void writeLine(QtMsgType type, const QString &message);

void Log::endWith(const QString &message)
{
    const QMutexLocker lock(&writing);
    if (ended)
        return;
    writeLine(QtDebugMsg, message);
    ended = true;
}

void logMessageHandler(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    const QMutexLocker lock(&writing);
    if (!ended)
        writeLine(type, message);
}

// Under the lock.
static void writeLine(QtMsgType type, const QString &message)
{
    QFile file(Log::filePath());
    if (!file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text))
        return;
    switch (type) {
    case QtDebugMsg:
    case QtWarningMsg:
    case QtCriticalMsg:
    case QtFatalMsg: {
        // Qt 6 drops the blank that follows the last item of a statement; the log
        // keeps it, as its readers expect.
        QTextStream stream(&file);
        stream << message << ' ' << '\n';
        break;
    }
    default:
        break;
    }
    file.close();
}
