#include "dfuthread.h"

#include "dfuoutputparser.h"

#include "app/logstream.h"
#include "app/settings.h"
#include "app/toolrun.h"
#include "firmware/firmwarenames.h"
#include "firmware/gpgrun.h"
#include "firmware/hashing.h"
#include "firmware/zipextract.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QScopeGuard>
#include <QtDebug>

#include <limits>

DFUThread::DFUThread(Settings *settings, int flashMode, const QStringList &firmwareFiles, int bootLoaderRev,
                     bool skipGpg, bool bootLoaderOnly, QObject *parent)
    : QThread(parent), flashMode(flashMode), bootLoaderRev(bootLoaderRev), skipGpg(skipGpg),
      bootLoaderOnly(bootLoaderOnly), gpgAvailable(settings->isGpgAvailable()), firmwareFiles(firmwareFiles)
{
    qRegisterMetaType<ErrorTexts::errorLevel>("ErrorTexts::errorLevel");
    // Taken here, on the GUI thread, so the worker never reads the settings object.
    tempPath = QFileInfo(settings->getExtractFolder()).path();
    gpgFolder = settings->getGpgFolder();
    dfuPath = settings->getDfuUtilPath();
    gpgPath = settings->getGpgPath();
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

    if (!hashFirmware() || !(gpgAvailable && !skipGpg ? decryptFirmware() : copyFirmware()) ||
        !extractFirmware() || !buildSysLists() || !calcTotalFileSize()) {
        failFlash();
        return;
    }

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

QString DFUThread::stagePath(const QString &stage) const
{
    return QDir::toNativeSeparators(tempPath + QLatin1Char('/') + Settings::getExtractFolderName() +
                                    QLatin1Char('/') + stage);
}

void DFUThread::showError(const QString &text)
{
    // After the user's abort the run ends quietly.
    if (!finishedByUser)
        emit msgboxErrorSignal(ErrorTexts::Error, text);
}

void DFUThread::reportFailure(const QString &text)
{
    qWarning() << quoted(text);
    emit updateStatus(text);
    showError(text);
}

bool DFUThread::hashFirmware()
{
    emit updateStatus(tr("Calculate MD5 Hashes"));
    if (calculateHashes(firmwareFiles))
        return true;
    const QString text = tr("Error calculating MD5 Hash");
    qWarning() << quoted(text);
    showError(text);
    emit updateStatus(text);
    return false;
}

bool DFUThread::decryptFirmware()
{
    emit updateStatus(tr("Extracting firmware"));
    const QStringList selected = firmwareFiles;
    firmwareFiles = decryptedFileList(tempPath, selected);
    for (int i = 0; i < selected.size(); ++i) {
        const QString input = QDir::toNativeSeparators(selected.at(i));
        if (!QFileInfo::exists(input)) {
            fileOpenError(input);
            return false;
        }
        const QStringList arguments = gpgArguments(gpgFolder, tempPath, Settings::getExtractFolderName(),
                                                   QFileInfo(firmwareFiles.at(i)).fileName(), input);
        gpgRunning = true;
        const GpgOutcome outcome = runGpg(*gpgProcess, gpgPath, arguments, finishedByUser);
        gpgRunning = false;
        switch (outcome) {
        case GpgOutcome::Done:
            break;
        case GpgOutcome::StartFailed:
            gpgStartError();
            return false;
        case GpgOutcome::OpenFailed:
            gpgOpenFailed();
            return false;
        case GpgOutcome::BadSignature:
            signatureError();
            return false;
        }
    }
    return true;
}

static QString corruptedFilesText()
{
    return DFUThread::tr("\n\nThe selected firmware files are corrupted or\nthis version of %1 does not match "
                         "with these files.\nTry again and be sure that\nthe latest version of this software is "
                         "installed")
        .arg(QStringLiteral("Morvanta"));
}

void DFUThread::fileOpenError(const QString &path)
{
    if (finishedByUser)
        return;
    const QString text = tr("File can't be opened");
    qWarning() << quoted(text);
    emit updateStatus(text);
    showError(text + tr("\n\nThe selected firmware file\n%1\ncan't be opened").arg(path));
}

void DFUThread::gpgOpenFailed()
{
    if (finishedByUser)
        return;
    const QString text = tr("Unable to open gpg file");
    qWarning() << quoted(text);
    emit updateStatus(text);
    showError(text + corruptedFilesText());
}

void DFUThread::signatureError()
{
    if (finishedByUser)
        return;
    const QString text = tr("Invalid digital signature");
    qWarning() << quoted(text);
    emit updateStatus(text);
    showError(text + corruptedFilesText());
}

void DFUThread::gpgStartError()
{
    const QString text = tr("Error starting GPG, restart again");
    qWarning() << quoted(text);
    showError(text);
    emit updateStatus(text);
}

bool DFUThread::copyFirmware()
{
    emit updateStatus(tr("Extracting firmware"));
    const QStringList selected = firmwareFiles;
    firmwareFiles.clear();
    for (const QString &path : selected) {
        const QString target = QFileInfo(tempPath + QLatin1Char('/') + Settings::getExtractFolderName() +
                                         QLatin1Char('/') + QFileInfo(path).fileName())
                                   .absoluteFilePath();
        const QString source = QFileInfo(path).absoluteFilePath();
        if (QFileInfo::exists(target)) {
            qDebug() << quoted(QLatin1String("File ") + target + QLatin1String(" already exists - No copying"));
        } else {
            qDebug() << quoted(QLatin1String("Copy file ") + source + QLatin1String(" to ") + target);
            if (!QFile::copy(source, target)) {
                const QString text = tr("Failed to copy file %1").arg(source);
                qWarning() << quoted(text);
                emit updateStatus(text);
                showError(tr("Failed to copy file\n%1\nto\n%2").arg(source, target));
                return false;
            }
        }
        firmwareFiles << target;
    }
    qDebug() << quoted(firmwareFiles);
    return true;
}

void DFUThread::extractError()
{
    reportFailure(tr("Error in firmware extraction"));
}

bool DFUThread::extractFirmware()
{
    emit updateStatus(tr("Extracting firmware"));
    if (firmwareFiles.isEmpty()) {
        extractError();
        return false;
    }
    const QString target = tempPath + QLatin1Char('/') + Settings::getExtractFolderName() + QLatin1Char('/');
    for (const QString &archive : firmwareFiles) {
        if (finishedByUser || !unzipFile(archive, target)) {
            extractError();
            return false;
        }
        pause(1);
    }
    return true;
}

void DFUThread::noFirmwareError()
{
    reportFailure(tr("Package contains no firmware files"));
}

bool DFUThread::fillStageList(const QString &stage, QStringList &list)
{
    QDir folder(stagePath(stage));
    folder.setNameFilters({QStringLiteral("*.sys")});
    list = folder.exists() ? folder.entryList() : QStringList();
    if (list.isEmpty()) {
        noFirmwareError();
        return false;
    }
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
        const QString path = QDir::toNativeSeparators(stagePath(stage) + QLatin1Char('/') + name);
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
        reportFailure(tr("Packages contain zero sized files"));
        return false;
    }
    // Sizes and progress are 32-bit throughout.
    if (total > std::numeric_limits<qint32>::max()) {
        reportFailure(tr("Package is too large to flash"));
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
        if (filesStarted != filesTotal)
            pause(1);
    }
    return true;
}

bool DFUThread::transferFile(const QString &label, const QString &ext, const QString &file)
{
    counters.filePercent = 0;
    prepareCurrentFile(ext, file);
    currentFile = file;
    stageLabel = label;
    const QStringList args =
        dfuArguments(tempPath, Settings::getExtractFolderName(), ext, file, bootLoaderRev);
    qDebug() << quoted(args);
    return runDfu(args);
}

void DFUThread::prepareCurrentFile(const QString &ext, const QString &file)
{
    const QString path = QDir::toNativeSeparators(stagePath(ext) + QLatin1Char('/') + file);
    counters.currentFileSize = qint32(QFileInfo(path).size());
    qDebug() << "Size of currentFile " << quoted(path) << ": " << counters.currentFileSize << "Byte\n";
}

bool DFUThread::runDfu(const QStringList &args)
{
    // Announce the run before looking at the abort flag; abortByUser() does the reverse,
    // so between the two of them exactly one sends externalProcessesFinished.
    dfuRunning = true;
    if (finishedByUser) {
        dfuRunning = false;
        sendExternalProcessesFinished();
        return false;
    }
    sawOutput = false;
    const ToolResult result =
        runTool(*dfuProcess, dfuPath, args, [this](const QByteArray &chunk) { readProgram(chunk); }, &finishedByUser);
    dfuRunning = false;
    if (finishedByUser) {
        qDebug() << "DFU process finished by user with exit code " << result.exitCode;
        sendExternalProcessesFinished();
        return false;
    }
    if (!result.started) {
        const QString name = Settings::toolName(QStringLiteral("dfu-util"));
        qWarning() << quoted(name + QLatin1String(" could not be started"));
        flashOk = false;
        emit errorOutputSignal(tr("Unable to start %1").arg(name));
        return false;
    }
    if (!sawOutput) {
        // Success needs the tool's word for it, not just an exit code.
        qWarning() << "dfu-util ended without any output";
        flashOk = false;
        emit errorOutputSignal(tr("%1 ended without any output").arg(Settings::toolName(QStringLiteral("dfu-util"))));
        return false;
    }
    return flashOk && result.succeeded();
}

void DFUThread::readProgram(const QByteArray &chunk)
{
    sawOutput = true;
    const DfuChunk parsed = DfuOutputParser::parse(chunk);
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
            showFlashingStage(stageLabel);
            emit updateFileLabel(currentFile);
            break;
        case DfuEvent::HashMarks:
            countHashMarks(event.count);
            break;
        }
    }
    if (!parsed.logText.isEmpty())
        qDebug() << quoted(parsed.logText);
}

void DFUThread::showFlashingStage(const QString &stage)
{
    ++filesStarted;
    emit updateStatus(QLatin1String("Flashing firmware stage ") + stage + tr(" - File ") +
                      QString::number(filesStarted) + QLatin1Char('/') + QString::number(filesTotal));
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

void DFUThread::calcTimeRemaining(qint64 elapsed, qint32 written, qint32 total)
{
    QString minutes;
    QString seconds;
    if (remainingTime(elapsed, written, total, &minutes, &seconds))
        emit timeRemaining(minutes, seconds);
}
