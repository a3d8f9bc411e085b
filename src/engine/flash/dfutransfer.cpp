#include "dfutransfer.h"

#include "downloadpacer.h"

#include "app/logstream.h"
#include "app/settings.h"
#include "firmware/devicelisting.h"
#include "firmware/hashing.h"

#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QThread>
#include <QtDebug>

#include <algorithm>

namespace {
constexpr int lookEveryMs = 100;
constexpr qint64 stopHeardWithinMs = 50;
const QString tesselNine = QStringLiteral("-d 0x2675:0x0001");
} // namespace

bool DfuTransfer::Flags::rest(qint64 ms) const
{
    QElapsedTimer rested;
    rested.start();
    for (qint64 left = ms; left > 0 && !stop; left = ms - rested.elapsed())
        QThread::msleep(std::min(left, stopHeardWithinMs));
    return !stop;
}

DfuTransfer::DfuTransfer(const QString &dfuPath, const ListedDevice &unit, int bootLoaderRev, Flags &flags,
                         Events events)
    : dfuPath(dfuPath), port(unit.port), serial(unit.serial), bootLoaderRev(bootLoaderRev),
      lookedAfter(!port.isEmpty() && knownDfuDialect() == DfuDialect::Newer), flags(flags), events(std::move(events))
{
    qDebug() << "dfu-util detaches by the worker:" << lookedAfter << quoted(port);
}

QStringList DfuTransfer::dfuArguments(const QString &file, int bootLoaderRev)
{
    return {tesselNine, QStringLiteral("-D"), QDir::toNativeSeparators(file),
            bootLoaderRev == 1 ? QStringLiteral("-t 4096") : QStringLiteral("-t 64")};
}

void DfuTransfer::begin(const FlashPackage &package)
{
    counters = TransferCounters();
    counters.totalFileSize = package.totalSize;
    filesStarted = 0;
    filesTotal = qint32(package.files.size());
}

bool DfuTransfer::fail(const FlashError &error)
{
    lastError = error;
    return false;
}

bool DfuTransfer::transfer(const FlashPackage::File &file)
{
    current = file;
    lastError = FlashError();
    running.reset();
    counters.filePercent = 0;
    counters.currentFileSize = file.size;
    fileStarted = false;
    resetsToRuntime = false;
    parser = DfuOutputParser();
    qDebug() << "Size of currentFile " << quoted(QDir::toNativeSeparators(file.path)) << ": " << file.size << "Byte\n";
    QStringList args = dfuArguments(file.path, bootLoaderRev);
    if (lookedAfter && !readyInDfuMode())
        return false;
    if (!port.isEmpty())
        args << QStringLiteral("-p") << port;
    // Its turn first: the file is checked as late as can be.
    if (pacer) {
        const qint64 wait = pacer->takeTurn();
        if (wait > 0)
            qDebug() << "The download waits" << wait << "ms for its turn";
        if (!flags.rest(wait))
            return false;
    }
    // The file must still be the one checked and recorded: a prepared package serves many
    // units, and what lies on disk between them is not trusted.
    if (!file.sha256.isEmpty() && sha256Of(file.path) != file.sha256) {
        qDebug() << "Changed since it was checked:" << quoted(file.path);
        lastError = FlashError(FlashError::Code::PreparedChanged, {file.name});
        return false;
    }
    qDebug() << quoted(args);
    return runDfu(args) && (!lookedAfter || backAfterDownload());
}

// Runs dfu-util until it ends or the stop flag kills it. False when stopped, or when the
// tool could not start (said).
bool DfuTransfer::runAbortable(const QStringList &args, const std::function<void(const QByteArray &)> &onChunk,
                               ToolResult *result)
{
    if (flags.stop)
        return false;
    QProcess dfu;
    flags.dfuRunning = true;
    *result = runTool(dfu, dfuPath, args, onChunk, &flags.stop);
    flags.dfuRunning = false;
    if (flags.stop) {
        qDebug() << "DFU process finished by user with exit code " << result->exitCode;
        return false;
    }
    if (!result->started) {
        qWarning() << quoted(Settings::toolName(QStringLiteral("dfu-util")) + QLatin1String(" could not be started"));
        return fail(FlashError::Code::ToolNotStarted);
    }
    return true;
}

// A run of the tool whose output is read, not shown: a listing or a detach.
bool DfuTransfer::runQuiet(const QStringList &args, QByteArray *output)
{
    ToolResult result;
    return runAbortable(args, [output](const QByteArray &chunk) { *output += chunk; }, &result) && !result.crashed;
}

DfuTransfer::DeviceMode DfuTransfer::lookAtPort(bool *failed)
{
    QByteArray output;
    if (!runQuiet({QStringLiteral("-l")}, &output)) {
        *failed = true;
        return DeviceMode::Absent;
    }
    for (const ListedDevice &device : parseDeviceListing(output)) {
        if (device.port != port || !device.isTesselNine())
            continue;
        // Another unit plugged in while this one was away is never taken for it.
        if (device.serial != serial) {
            *failed = true;
            fail({FlashError::Code::WrongUnit, {port, device.serial, serial}});
            return DeviceMode::Absent;
        }
        if (device.dfuMode)
            return DeviceMode::Dfu;
        running = device;
        return DeviceMode::Runtime;
    }
    // Also a node udev has not yet opened to this user: it is waited for.
    return DeviceMode::Absent;
}

// Looks every 100 ms until the device on the port is as wanted, up to the limit.
bool DfuTransfer::waitOnPort(const std::function<bool(DeviceMode)> &arrived, bool *failed)
{
    QElapsedTimer waited;
    waited.start();
    while (!flags.stop) {
        if (arrived(lookAtPort(failed)))
            return true;
        if (*failed)
            return false;
        if (waited.elapsed() > deviceWaitLimitMs)
            return fail(FlashError::tool(DfuMark::LostDevice));
        QThread::msleep(lookEveryMs);
    }
    *failed = true;
    return false;
}

bool DfuTransfer::readyInDfuMode()
{
    bool failed = false;
    events.stage(FlashStage::Searching);
    const DeviceMode mode = lookAtPort(&failed);
    if (failed)
        return false;
    if (mode == DeviceMode::Runtime) {
        QByteArray output;
        const QStringList detach{QStringLiteral("-p"), port, tesselNine, QStringLiteral("-e")};
        qDebug() << quoted(detach);
        if (!runQuiet(detach, &output))
            return false;
        qDebug() << quoted(output);
        for (const DfuEvent &event : DfuOutputParser().parse(output).events) {
            if (event.kind == DfuEvent::Error)
                return fail(event.error);
        }
    }
    return mode == DeviceMode::Dfu || waitOnPort([](DeviceMode m) { return m == DeviceMode::Dfu; }, &failed);
}

// The device runs again; or, manifestation-tolerant, it stays in DFU mode for the next
// file. One that the tool reset may show in DFU mode for a moment on its way back.
bool DfuTransfer::backAfterDownload()
{
    bool failed = false;
    const bool toRuntime = resetsToRuntime;
    return waitOnPort([toRuntime](DeviceMode m) { return m == DeviceMode::Runtime || (!toRuntime && m == DeviceMode::Dfu); },
                      &failed);
}

bool DfuTransfer::runDfu(const QStringList &args)
{
    sawOutput = false;
    lastToolLine.clear();
    unfinishedToolLine.clear();
    ToolResult result;
    if (!runAbortable(args, [this](const QByteArray &chunk) { readProgram(chunk); }, &result))
        return false;
    if (!sawOutput) {
        // Success needs the tool's word for it, not just an exit code.
        qWarning() << "dfu-util ended without any output";
        return fail(FlashError::Code::ToolSilent);
    }
    if (lastError.isSet())
        return false;
    // The newer tool's word that the file is in the device counts whatever its exit
    // code: the final reset of a device that comes back as a new one makes it 74.
    if (result.succeeded() || (!result.crashed && parser.downloadConfirmed()))
        return true;
    // Killed, crashed, or a message we do not know: still a failed flash, which an
    // unattended run must hear of, with what the tool said last.
    const QStringList last = lastToolLine.isEmpty() ? QStringList() : QStringList{lastToolLine};
    return fail(result.crashed ? FlashError(FlashError::Code::ToolKilled, last)
                               : FlashError(FlashError::Code::ToolExitCode, last, result.exitCode));
}

void DfuTransfer::keepLastLine(const QByteArray &chunk)
{
    // Progress bars redraw with carriage returns: each piece counts as a line. A line may
    // come in several chunks (the tool writes its name and its message apart).
    QByteArray text = unfinishedToolLine + chunk;
    text.replace('\r', '\n');
    unfinishedToolLine = text.mid(text.lastIndexOf('\n') + 1).right(400);
    const QList<QByteArray> lines = text.split('\n');
    for (auto line = lines.crbegin(); line != lines.crend(); ++line) {
        QByteArray words = line->trimmed();
        // The newer tool's progress bar is no message.
        if (words.startsWith("Download\t[") || words.startsWith("Download ["))
            continue;
        // A message that interrupts the old tool's bar ("Starting download: [####") is
        // what the tool said, not the bar.
        const qsizetype bar = words.lastIndexOf("[#");
        if (bar >= 0) {
            qsizetype end = bar + 1;
            while (end < words.size() && words.at(end) == '#')
                ++end;
            if (end < words.size() && words.at(end) != ']')
                words = words.mid(end).trimmed();
        }
        const QString shown = QString::fromLocal8Bit(words).left(200);
        if (!shown.isEmpty()) {
            lastToolLine = withVisibleControls(shown);
            return;
        }
    }
}

void DfuTransfer::readProgram(const QByteArray &chunk)
{
    sawOutput = true;
    // The tool resets a device that is not manifestation-tolerant back to run-time mode.
    resetsToRuntime = resetsToRuntime || chunk.contains("switch back to runtime");
    keepLastLine(chunk);
    const DfuChunk parsed = parser.parse(chunk);
    for (const DfuEvent &event : parsed.events) {
        switch (event.kind) {
        case DfuEvent::Searching:
            events.stage(FlashStage::Searching);
            break;
        case DfuEvent::Error:
            // The first error of a file is its verdict; later ones only repeat it.
            if (!lastError.isSet())
                lastError = event.error;
            break;
        case DfuEvent::StartingDownload:
            // Newer tools announce a download in other words; one file counts once.
            if (fileStarted)
                break;
            fileStarted = true;
            ++filesStarted;
            events.fileStarted(current.stage, current.name, filesStarted, filesTotal);
            break;
        case DfuEvent::HashMarks:
            countHashMarks(event.count);
            break;
        case DfuEvent::Percent:
            // A bar's percent of the file stands for the marks the old tool would have printed.
            countHashMarks(hashMarksDue(counters, event.count));
            break;
        }
    }
    if (!parsed.logText.isEmpty())
        qDebug() << quoted(parsed.logText);
}

void DfuTransfer::countHashMarks(int n)
{
    if (n > 0 && counters.writtenSize == 0)
        remainingClock.start();
    for (int i = 0; i < n; ++i) {
        FlashProgress progress = countHashMark(counters);
        progress.secondsLeft =
            remainingSeconds(remainingClock.elapsed(), progress.shownWritten(), progress.shownTotal());
        events.progress(progress);
    }
}
