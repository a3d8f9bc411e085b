#include "dfuthread.h"

#include "dfuoutputparser.h"

#include "app/logstream.h"
#include "app/settings.h"
#include "app/toolrun.h"
#include "firmware/devicelisting.h"
#include "firmware/firmwarenames.h"

#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QScopeGuard>
#include <QtDebug>

#include <limits>

DFUThread::DFUThread(Settings *settings, int flashMode, const QStringList &firmwareFiles, int bootLoaderRev,
                     bool skipGpg, bool bootLoaderOnly, QObject *parent)
    : QThread(parent), flashMode(flashMode), bootLoaderRev(bootLoaderRev), skipGpg(skipGpg),
      bootLoaderOnly(bootLoaderOnly), gpgAvailable(settings->isGpgAvailable()),
      // Paths are taken here, on the GUI thread, so the worker never reads the settings object.
      preparation("DFUThread", settings,
                  {[this](const QString &text) { emit updateStatus(text); },
                   [this](ErrorTexts::errorLevel level, const QString &text) {
                       emit msgboxErrorSignal(level, text);
                   }},
                  finishedByUser),
      tempPath(preparation.tempPath()), firmwareFiles(firmwareFiles)
{
    qRegisterMetaType<ErrorTexts::errorLevel>("ErrorTexts::errorLevel");
    dfuPath = settings->getDfuUtilPath();
    qDebug() << "****Start Update**********************************************************************\n";
}

DFUThread::~DFUThread()
{
    qDebug() << "Delete DFUThread and external processes";
}

QStringList DFUThread::dfuArguments(const QString &tempPath, const QString &extractName, const QString &ext,
                                    const QString &file, int bootLoaderRev)
{
    return {QStringLiteral("-d 0x2675:0x0001"), QStringLiteral("-D"),
            QDir::toNativeSeparators(tempPath + QLatin1Char('/') + extractName + QLatin1Char('/') + ext +
                                     QLatin1Char('/') + file),
            bootLoaderRev == 1 ? QStringLiteral("-t 4096") : QStringLiteral("-t 64")};
}

// ---- Run ----

void DFUThread::run()
{
    emit sigenableAbort();
    QProcess gpg;
    QProcess dfu;
    gpgProcess = &gpg;
    dfuProcess = &dfu;
    const auto forget = qScopeGuard([this] {
        gpgProcess = nullptr;
        dfuProcess = nullptr;
    });

    if (!preparation.hash(firmwareFiles) ||
        !(gpgAvailable && !skipGpg ? preparation.decrypt(firmwareFiles, gpg, gpgRunning)
                                   : preparation.copy(firmwareFiles)) ||
        !preparation.unpack(firmwareFiles, tr("Error in firmware extraction"),
                            [this] {
                                // The old tool's rhythm; the newer one's path has no fixed pause.
                                if (knownDfuDialect() != DfuDialect::Newer)
                                    pause(1);
                            }) ||
        !buildSysLists() || !calcTotalFileSize()) {
        failFlash();
        return;
    }
    reportPackage();

    if (flashMode == 1) {
        if (!flashFiles(QStringLiteral("#0"), FirmwareNames::stageBl, blFiles)) {
            failFlashAborted();
            return;
        }
        breakPending = true;
        breakAborted = false;
        emit breakFlashing();
        // The user restarts the device; continueFlashing() or abortFlashing() ends the wait.
        while (breakPending) {
            if (breakAborted || finishedByUser)
                return;
            QThread::msleep(100);
        }
        if (breakAborted)
            return;
        remainingClock.start();
        emit visibilityRemaining(true);
        if (bootLoaderOnly) {
            finishFlash();
            return;
        }
    }
    if (!flashFiles(QStringLiteral("#1"), FirmwareNames::stageOs, osFiles) ||
        !flashFiles(QStringLiteral("#2"), FirmwareNames::stagePr, prFiles)) {
        failFlashAborted();
        return;
    }
    finishFlash();
}

// What is about to go onto the device, for the record: each file's SHA-256 as it lies
// unpacked, and the keys that signed it.
void DFUThread::reportPackage()
{
    QStringList names;
    QStringList digests;
    const QList<QPair<QString, const QStringList *>> stages{
        {FirmwareNames::stageBl, &blFiles}, {FirmwareNames::stageOs, &osFiles}, {FirmwareNames::stagePr, &prFiles}};
    for (const auto &stage : stages) {
        for (const QString &file : *stage.second) {
            QFile unpacked(preparation.stagePath(stage.first) + QLatin1Char('/') + file);
            QCryptographicHash sha256(QCryptographicHash::Sha256);
            names << file;
            digests << (unpacked.open(QIODevice::ReadOnly) && sha256.addData(&unpacked)
                            ? QString::fromLatin1(sha256.result().toHex())
                            : QString());
        }
    }
    emit packageReady(names, digests, preparation.signerFingerprints());
}

void DFUThread::finishFlash()
{
    flashOk = true;
    emit sigdisableAbort();
    emit updateProgress(100);
    emit updateDFUProgress(100);
    emit resetWrittenStatus();
    emit visibilityRemaining(false);
    qDebug() << "Flashing completed";
    emit updateStatus(tr("Flashing completed"));
    emit msgboxErrorSignal(ErrorTexts::Info, tr("Flashing completed") + tr("\nPlease perform Tessel restart!"));
    emit exitCode(0);
}

void DFUThread::failFlash()
{
    flashOk = false;
    emit sigdisableAbort();
    emit visibilityRemaining(false);
    emit exitCode(2);
}

void DFUThread::failFlashAborted()
{
    failFlash();
    if (!finishedByUser)
        emit updateStatus(ErrorTexts::processAborted());
}

// ---- Abort, from the GUI thread ----

void DFUThread::abortByUser()
{
    finishedByUser = true;
    killProcesses();
}

void DFUThread::continueFlashing()
{
    breakPending = false;
}

void DFUThread::abortFlashing()
{
    breakAborted = true;
}

void DFUThread::killProcesses()
{
    // The worker owns the processes and kills them within a moment of seeing
    // finishedByUser; here we only say so.
    if (gpgRunning)
        qDebug() << "kill gpg";
    if (dfuRunning)
        qDebug() << "kill dfu";
    else
        sendExternalProcessesFinished();
}

void DFUThread::sendExternalProcessesFinished()
{
    if (!externalFinishedSent.exchange(true))
        emit externalProcessesFinished();
}

// ---- Package preparation ----

bool DFUThread::fillStageList(const QString &stage, QStringList &list)
{
    if (!preparation.stageList(stage, list))
        return false;
    filesTotal += qint32(list.size());
    return true;
}

bool DFUThread::buildSysLists()
{
    emit updateStatus(tr("Building sys file lists"));
    filesTotal = 0;
    filesStarted = 0;
    if (flashMode == 1) {
        if (!fillStageList(FirmwareNames::stageBl, blFiles))
            return false;
        if (bootLoaderOnly)
            return true;
    }
    return fillStageList(FirmwareNames::stageOs, osFiles) && fillStageList(FirmwareNames::stagePr, prFiles);
}

bool DFUThread::sumStage(const QString &stage, const QStringList &list, qint64 &total)
{
    for (const QString &name : list) {
        const QString path = QDir::toNativeSeparators(preparation.stagePath(stage) + QLatin1Char('/') + name);
        const qint64 size = QFileInfo(path).size();
        qDebug() << "Size of file " << quoted(path) << ": " << size << "Byte";
        if (size == 0)
            return false;
        total += size;
    }
    return true;
}

bool DFUThread::calcTotalFileSize()
{
    emit updateStatus(tr("Calculating total file size"));
    counters = TransferCounters();
    qint64 total = 0;
    bool ok = true;
    if (flashMode == 1)
        ok = sumStage(FirmwareNames::stageBl, blFiles, total);
    if (ok && (flashMode == 0 || !bootLoaderOnly))
        ok = sumStage(FirmwareNames::stageOs, osFiles, total) && sumStage(FirmwareNames::stagePr, prFiles, total);
    if (!ok) {
        preparation.fail(tr("Packages contain zero sized files"));
        return false;
    }
    // Sizes and progress are 32-bit throughout.
    if (total > std::numeric_limits<qint32>::max()) {
        preparation.fail(tr("Package is too large to flash"));
        return false;
    }
    counters.totalFileSize = qint32(total);
    qDebug() << "Total file size: " << counters.totalFileSize << "Byte\n";
    return true;
}

// ---- Transfers ----

void DFUThread::pause(int seconds)
{
    // Interruptible, so an abort does not wait out the pause.
    for (int i = 0; i < seconds * 20 && !finishedByUser; ++i)
        QThread::msleep(50);
}

bool DFUThread::flashFiles(const QString &label, const QString &ext, const QStringList &files)
{
    for (const QString &file : files) {
        if (!transferFile(label, ext, file))
            return false;
        if (filesStarted != filesTotal && devicePort.isEmpty())
            pause(1);
    }
    return true;
}

bool DFUThread::transferFile(const QString &label, const QString &ext, const QString &file)
{
    counters.filePercent = 0;
    fileStarted = false;
    resetsToRuntime = false;
    parser = DfuOutputParser();
    prepareCurrentFile(ext, file);
    currentFile = file;
    stageLabel = label;
    QStringList args = dfuArguments(tempPath, Settings::getExtractFolderName(), ext, file, bootLoaderRev);
    if (!checkTool())
        return false;
    if (!devicePort.isEmpty() && !readyInDfuMode())
        return false;
    const QString target = devicePort.isEmpty() ? port : devicePort;
    if (!target.isEmpty())
        args << QStringLiteral("-p") << target;
    qDebug() << quoted(args);
    return runDfu(args) && (devicePort.isEmpty() || backAfterDownload());
}

// ---- The newer tool's device, looked for by the worker ----

namespace {
constexpr int lookEveryMs = 100;
}

// Once per run: with the newer tool (its banner from the device check before the run)
// the port of the one Tessel NINE, or the bound one. Anything else is left to the tool,
// whose own words ("More than one ...", "No DFU capable ...") the user reads as before;
// the old tool's command lines stay as they are.
bool DFUThread::checkTool()
{
    if (toolChecked)
        return true;
    toolChecked = true;
    if (knownDfuDialect() != DfuDialect::Newer)
        return true;
    if (!port.isEmpty()) {
        devicePort = port;
        return true;
    }
    QByteArray output;
    if (!runQuiet({QStringLiteral("-l")}, &output))
        return !finishedByUser;
    QStringList ports;
    for (const ListedDevice &device : parseDeviceListing(output)) {
        if (device.isTesselNine() && (port.isEmpty() || device.port == port))
            ports << device.port;
    }
    if (ports.size() == 1)
        devicePort = ports.first();
    qDebug() << "dfu-util detaches by the worker:" << !devicePort.isEmpty() << quoted(devicePort);
    return true;
}

// A run of the tool whose output is read, not shown: a listing or a detach.
bool DFUThread::runQuiet(const QStringList &args, QByteArray *output)
{
    ToolResult result;
    return runAbortable(args, [output](const QByteArray &chunk) { *output += chunk; }, &result) && !result.crashed;
}

DFUThread::DeviceMode DFUThread::lookAtPort(bool *failed)
{
    QByteArray output;
    if (!runQuiet({QStringLiteral("-l")}, &output)) {
        *failed = true;
        return DeviceMode::Absent;
    }
    for (const ListedDevice &device : parseDeviceListing(output)) {
        if (device.port == devicePort && device.isTesselNine())
            return device.dfuMode ? DeviceMode::Dfu : DeviceMode::Runtime;
    }
    // Also a node udev has not yet opened to this user: it is waited for.
    return DeviceMode::Absent;
}

// Looks every 100 ms until the device on the port is as wanted, up to the limit.
bool DFUThread::waitOnPort(const std::function<bool(DeviceMode)> &arrived, bool *failed)
{
    QElapsedTimer waited;
    waited.start();
    while (!finishedByUser) {
        if (arrived(lookAtPort(failed)))
            return true;
        if (*failed || waited.elapsed() > deviceWaitLimitMs)
            return false;
        QThread::msleep(lookEveryMs);
    }
    *failed = true;
    return false;
}

bool DFUThread::readyInDfuMode()
{
    bool failed = false;
    emit updateStatus(tr("Search for DFU USB device - This might take a few seconds"));
    DeviceMode mode = lookAtPort(&failed);
    if (failed)
        return false;
    if (mode == DeviceMode::Runtime) {
        QByteArray output;
        const QStringList detach{QStringLiteral("-p"), devicePort, QStringLiteral("-d 0x2675:0x0001"),
                                 QStringLiteral("-e")};
        qDebug() << quoted(detach);
        if (!runQuiet(detach, &output))
            return false;
        qDebug() << quoted(output);
        for (const DfuEvent &event : DfuOutputParser().parse(output).events) {
            if (event.kind == DfuEvent::Error) {
                flashOk = false;
                emit errorOutputSignal(event.text);
                return false;
            }
        }
    }
    if (mode == DeviceMode::Dfu || waitOnPort([](DeviceMode m) { return m == DeviceMode::Dfu; }, &failed))
        return true;
    if (!failed)
        lostDevice();
    return false;
}

// The device runs again; or, manifestation-tolerant, it stays in DFU mode for the next
// file. One that the tool reset may show in DFU mode for a moment on its way back.
bool DFUThread::backAfterDownload()
{
    bool failed = false;
    const bool toRuntime = resetsToRuntime;
    if (waitOnPort([toRuntime](DeviceMode m) { return m == DeviceMode::Runtime || (!toRuntime && m == DeviceMode::Dfu); },
                   &failed))
        return true;
    if (!failed)
        lostDevice();
    return false;
}

void DFUThread::lostDevice()
{
    const QString text = ErrorTexts::deviceNotConnected() + QLatin1String(" - Lost device after RESET");
    qWarning() << quoted(text);
    flashOk = false;
    emit errorOutputSignal(text);
}

void DFUThread::prepareCurrentFile(const QString &ext, const QString &file)
{
    const QString path = QDir::toNativeSeparators(preparation.stagePath(ext) + QLatin1Char('/') + file);
    counters.currentFileSize = qint32(QFileInfo(path).size());
    qDebug() << "Size of currentFile " << quoted(path) << ": " << counters.currentFileSize << "Byte\n";
}

// Runs dfu-util, to be killed by an abort. The run is announced before the abort flag is
// read; abortByUser() does the reverse, so between the two of them exactly one sends
// externalProcessesFinished. False when aborted, or when the tool could not start (said).
bool DFUThread::runAbortable(const QStringList &args, const std::function<void(const QByteArray &)> &onChunk,
                             ToolResult *result)
{
    dfuRunning = true;
    if (finishedByUser) {
        dfuRunning = false;
        sendExternalProcessesFinished();
        return false;
    }
    *result = runTool(*dfuProcess, dfuPath, args, onChunk, &finishedByUser);
    dfuRunning = false;
    if (finishedByUser) {
        qDebug() << "DFU process finished by user with exit code " << result->exitCode;
        sendExternalProcessesFinished();
        return false;
    }
    if (!result->started) {
        const QString name = Settings::toolName(QStringLiteral("dfu-util"));
        qWarning() << quoted(name + QLatin1String(" could not be started"));
        flashOk = false;
        emit errorOutputSignal(tr("Unable to start %1").arg(name));
        return false;
    }
    return true;
}

bool DFUThread::runDfu(const QStringList &args)
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
        flashOk = false;
        emit errorOutputSignal(tr("%1 ended without any output").arg(Settings::toolName(QStringLiteral("dfu-util"))));
        return false;
    }
    // The newer tool's word that the file is in the device counts whatever its exit
    // code: the final reset of a device that comes back as a new one makes it 74.
    if (!flashOk)
        return false;
    if (result.succeeded() || (!result.crashed && parser.downloadConfirmed()))
        return true;
    // Killed, crashed, or a message we do not know: still a failed flash, which an
    // unattended run must hear of, with what the tool said last.
    const QString name = Settings::toolName(QStringLiteral("dfu-util"));
    QString text = result.crashed ? tr("%1 was ended by a signal").arg(name)
                                  : tr("%1 ended with exit code %2").arg(name).arg(result.exitCode);
    if (!lastToolLine.isEmpty())
        text += QLatin1Char('\n') + lastToolLine;
    qWarning() << quoted(text);
    flashOk = false;
    emit errorOutputSignal(text);
    return false;
}

void DFUThread::keepLastLine(const QByteArray &chunk)
{
    // Progress bars redraw with carriage returns: each piece counts as a line. A line may
    // come in several chunks (the tool writes its name and its message apart).
    QByteArray text = unfinishedToolLine + chunk;
    text.replace('\r', '\n');
    unfinishedToolLine = text.mid(text.lastIndexOf('\n') + 1).right(400);
    const QList<QByteArray> lines = text.split('\n');
    for (auto line = lines.crbegin(); line != lines.crend(); ++line) {
        QByteArray words = line->trimmed();
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

void DFUThread::readProgram(const QByteArray &chunk)
{
    sawOutput = true;
    // The tool resets a device that is not manifestation-tolerant back to run-time mode.
    resetsToRuntime = resetsToRuntime || chunk.contains("switch back to runtime");
    keepLastLine(chunk);
    const DfuChunk parsed = parser.parse(chunk);
    for (const DfuEvent &event : parsed.events) {
        switch (event.kind) {
        case DfuEvent::Status:
            emit updateStatus(event.text);
            break;
        case DfuEvent::Error:
            flashOk = false;
            emit errorOutputSignal(event.text);
            break;
        case DfuEvent::StartingDownload:
            // Newer tools announce a download in other words; one file counts once.
            if (fileStarted)
                break;
            fileStarted = true;
            showFlashingStage(stageLabel);
            emit updateFileLabel(currentFile);
            break;
        case DfuEvent::HashMarks:
            countHashMarks(event.count);
            break;
        case DfuEvent::Percent:
            countPercent(event.count);
            break;
        }
    }
    if (!parsed.logText.isEmpty())
        qDebug() << quoted(parsed.logText);
}

void DFUThread::showFlashingStage(const QString &stage)
{
    ++filesStarted;
    if (transferStatusShown)
        emit updateStatus(QLatin1String("Flashing firmware stage ") + stage + tr(" - File ") +
                          QString::number(filesStarted) + QLatin1Char('/') + QString::number(filesTotal));
    emit transferStarted(stage, currentFile, filesStarted, filesTotal);
}

void DFUThread::countHashMarks(int n)
{
    if (counters.writtenSize == 0) {
        remainingClock.start();
        emit visibilityRemaining(true);
    }
    for (int i = 0; i < n; ++i) {
        const HashMarkReport report = countHashMark(counters);
        emit updateProgress(report.percent);
        emit updateWrittenStatus(report.written, report.total, report.useByteSize);
        calcTimeRemaining(remainingClock.elapsed(), report.written, report.total);
    }
}

// A progress bar's percent of the file stands for the hash marks the old tool would
// have printed by then.
void DFUThread::countPercent(int percent)
{
    const int due = hashMarksDue(counters, percent);
    if (due > 0)
        countHashMarks(due);
}

void DFUThread::calcTimeRemaining(qint64 elapsed, qint32 written, qint32 total)
{
    QString minutes;
    QString seconds;
    if (remainingTime(elapsed, written, total, &minutes, &seconds))
        emit timeRemaining(minutes, seconds);
}
