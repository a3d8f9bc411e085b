#include "flashrecorder.h"

#include "firmware/devicelisting.h"
#include "flash/dfuthread.h"

QString flashOutcome(int exitCode, bool recovering, bool stopped)
{
    if (exitCode == 0)
        return recovering ? QStringLiteral("recovered") : QStringLiteral("flashed");
    return stopped ? QStringLiteral("stopped") : QStringLiteral("failed");
}

FlashRecord flashUnit(const QString &program, const QString &port, const QString &serial, const QString &before,
                      const QString &packageVersion, bool signedPackage)
{
    FlashRecord unit;
    unit.program = program;
    unit.port = port;
    unit.serial = serial;
    unit.before = before;
    unit.version = packageVersion;
    unit.signedPackage = signedPackage;
    return unit;
}

FlashRecorder::FlashRecorder(FlashHistory *history, QObject *parent) : QObject(parent), history(history)
{
}

bool FlashRecorder::begin(const FlashRecord &unit)
{
    record = unit;
    record.started = QDateTime::currentDateTimeUtc();
    if (record.tool.isEmpty())
        record.tool = knownDfuVersion();
    clock.start();
    return history->begin(record) != 0;
}

void FlashRecorder::follow(DFUThread *worker)
{
    connect(worker, &DFUThread::packageReady, this,
            [this](const QStringList &files, const QStringList &sha256, const QStringList &signers) {
                record.files.clear();
                for (int i = 0; i < files.size(); ++i)
                    record.files << qMakePair(files.at(i), sha256.value(i));
                record.signer = signers.join(QLatin1Char(' '));
                if (record.tool.isEmpty())
                    record.tool = knownDfuVersion();
            });
    connect(worker, &DFUThread::errorOutputSignal, this, [this](const QString &text) { workerError = text; });
    connect(worker, &DFUThread::msgboxErrorSignal, this, [this](ErrorTexts::errorLevel level, const QString &text) {
        if (level == ErrorTexts::Error)
            workerError = text;
    });
}

bool FlashRecorder::finish(const QString &outcome, const QString &after, const QString &error)
{
    if (!hasBegun())
        return false;
    record.outcome = outcome;
    record.after = after;
    record.error = error.isEmpty() ? workerError : error;
    record.ended = QDateTime::currentDateTimeUtc();
    record.seconds = clock.elapsed() / 1000.0;
    const bool written = history->finish(record);
    record.id = 0;
    return written;
}

QString FlashRecorder::error() const
{
    return QStringLiteral("Cannot write the history %1: %2").arg(history->path(), history->error());
}
