#include "toolrun.h"

#include "platform/platform.h"

QString unquotedProgram(const QString &quotedProgram)
{
    return QProcess::splitCommand(quotedProgram).value(0);
}

void startTool(QProcess &process, const QString &quotedProgram, const QStringList &arguments)
{
    Platform::makeToolProcess(process);
    process.start(unquotedProgram(quotedProgram), arguments, QIODevice::ReadWrite);
    // No tool is given anything to read: gpg, handed a detached signature, would
    // otherwise wait on standard input for the signed data for ever.
    process.closeWriteChannel();
}

ToolResult runTool(QProcess &process, const QString &quotedProgram, const QStringList &arguments,
                   const std::function<void(const QByteArray &)> &onChunk, const std::atomic<bool> *stop,
                   int startTimeoutMs)
{
    ToolResult result;
    process.setProcessChannelMode(QProcess::MergedChannels);
    // Without a context object the lambda runs on the emitting thread: this one.
    const auto connection = QObject::connect(&process, &QProcess::readyReadStandardOutput, [&] {
        const QByteArray chunk = process.readAll();
        if (!chunk.isEmpty())
            onChunk(chunk);
    });

    startTool(process, quotedProgram, arguments);
    result.started = process.waitForStarted(startTimeoutMs);
    if (result.started) {
        bool killed = false;
        while (!process.waitForFinished(50) && process.state() != QProcess::NotRunning) {
            if (!killed && stop && stop->load()) {
                process.kill();
                killed = true;
            }
        }
        const QByteArray rest = process.readAll();
        if (!rest.isEmpty())
            onChunk(rest);
        result.exitCode = process.exitCode();
        result.crashed = process.exitStatus() == QProcess::CrashExit;
    }
    QObject::disconnect(connection);
    return result;
}
