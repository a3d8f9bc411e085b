#pragma once

#include "app/errortexts.h"
#include "app/toolrun.h"
#include "dfuoutputparser.h"
#include "packagepreparation.h"
#include "transferprogress.h"

#include <QElapsedTimer>
#include <QStringList>
#include <QThread>

#include <atomic>

class QProcess;
class Settings;

// Flashes a Tessel NINE: prepares the package (hashes, gpg or copy, unzip, file lists)
// and runs dfu-util once for every .sys file, stage by stage.
class DFUThread : public QThread
{
    Q_OBJECT
public:
    DFUThread(Settings *settings, int flashMode, const QStringList &firmwareFiles, int bootLoaderRev, bool skipGpg,
              bool bootLoaderOnly, QObject *parent);
    ~DFUThread() override;

    static QStringList dfuArguments(const QString &tempPath, const QString &extractName, const QString &ext,
                                    const QString &file, int bootLoaderRev);
    // Every transfer goes to the device on this USB port (dfu-util's "-p PATH"), not to
    // whichever the tool finds: for a station with several devices. Before start().
    void bindToPort(const QString &path) { port = path; }
    // Whether a file's transfer is also told as a status line ("Flashing firmware stage
    // ..."), or by transferStarted alone: for a front end that shows each event once.
    void setTransferStatusShown(bool shown) { transferStatusShown = shown; }
    // How long the newer tool's device may take to come back after a detach or a
    // download before the file counts as failed ("Lost device after RESET").
    void setDeviceWaitLimit(int ms) { deviceWaitLimitMs = ms; }

public slots:
    void abortByUser();
    void continueFlashing();
    void abortFlashing();

signals:
    void updateFileLabel(QString filename);
    void updateProgress(int);
    void updateDFUProgress(int);
    void updateStatus(QString);
    void updateWrittenStatus(long written, long total, bool useByteSize);
    void timeRemaining(QString min, QString sec);
    void visibilityRemaining(bool visibility);
    void resetWrittenStatus();
    void sigenableAbort();
    void sigdisableAbort();
    void errorOutputSignal(QString);
    void msgboxErrorSignal(ErrorTexts::errorLevel, QString);
    void exitCode(int err);
    void externalProcessesFinished();
    void breakFlashing();
    // A file's transfer has begun: its stage, name, and place among the run's files.
    void transferStarted(QString stage, QString file, int number, int total);
    // Unpacked and about to be flashed: the .sys files, their SHA-256 (hex, empty if
    // unreadable) and the fingerprints of the keys that signed the package.
    void packageReady(QStringList files, QStringList sha256, QStringList signers);

protected:
    void run() override;

private:
    // Package preparation, shared with the USB stick writer
    bool buildSysLists();
    bool fillStageList(const QString &stage, QStringList &list);
    bool calcTotalFileSize();
    bool sumStage(const QString &stage, const QStringList &list, qint64 &total);

    // Transfers
    bool flashFiles(const QString &label, const QString &ext, const QStringList &files);
    bool transferFile(const QString &label, const QString &ext, const QString &file);
    void prepareCurrentFile(const QString &ext, const QString &file);
    bool runAbortable(const QStringList &args, const std::function<void(const QByteArray &)> &onChunk,
                      ToolResult *result);
    bool runDfu(const QStringList &args);
    // The newer tool (0.9 and later) pauses 5 s after each detach and looks once; the
    // worker detaches and looks for the device itself, as often as it likes.
    enum class DeviceMode { Absent, Runtime, Dfu };
    bool checkTool();
    bool runQuiet(const QStringList &args, QByteArray *output);
    DeviceMode lookAtPort(bool *failed);
    bool waitOnPort(const std::function<bool(DeviceMode)> &arrived, bool *failed);
    bool readyInDfuMode();
    bool backAfterDownload();
    void lostDevice();
    void readProgram(const QByteArray &chunk);
    void keepLastLine(const QByteArray &chunk);
    void showFlashingStage(const QString &stage);
    void countHashMarks(int n);
    void countPercent(int percent);
    void calcTimeRemaining(qint64 elapsed, qint32 written, qint32 total);
    void killProcesses();
    void sendExternalProcessesFinished();
    void pause(int seconds);

    void reportPackage();
    void finishFlash();
    void failFlash();
    void failFlashAborted();

    // Valid during run() only, on the worker thread.
    QProcess *dfuProcess = nullptr;
    QProcess *gpgProcess = nullptr;

    const int flashMode;
    const int bootLoaderRev;
    const bool skipGpg;
    const bool bootLoaderOnly;
    const bool gpgAvailable;

    // Written by the GUI thread, read by the worker, and back.
    std::atomic<bool> finishedByUser{false};
    std::atomic<bool> breakPending{true};
    std::atomic<bool> breakAborted{false};
    std::atomic<bool> gpgRunning{false};
    std::atomic<bool> dfuRunning{false};
    std::atomic<bool> externalFinishedSent{false};

    // The worker's own.
    PackagePreparation preparation;
    bool flashOk = true;
    bool sawOutput = false;
    QString lastToolLine;     // of the current run, shown when it fails without a mark
    QByteArray unfinishedToolLine; // its start, while the rest of it is still to come
    bool fileStarted = false; // the current file's download was announced
    bool resetsToRuntime = false; // the tool said it resets the device to run-time mode
    DfuOutputParser parser;   // of the current file's transfer
    QString tempPath;
    QString dfuPath;
    QString port;
    bool transferStatusShown = true;
    bool toolChecked = false;
    QString devicePort;       // the newer tool's device, bound or found; empty: the tool finds it
    int deviceWaitLimitMs = 20000;
    QStringList firmwareFiles;
    QStringList osFiles;
    QStringList prFiles;
    QStringList blFiles;
    QString stageLabel;
    QString currentFile;
    qint32 filesStarted = 0;
    qint32 filesTotal = 0;
    TransferCounters counters;
    QElapsedTimer remainingClock;
};
