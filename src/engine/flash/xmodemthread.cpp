#include "xmodemthread.h"

#include "xmodemrecord.h"

#include "app/logstream.h"
#include "app/toolrun.h"

#include <QProcess>
#include <QtDebug>

#include <cstdio>

XMODEMthread::XMODEMthread(const QString &program, const QString &firmwarePath, QObject *parent)
    : QThread(parent), program(program), firmwarePath(firmwarePath)
{
    qRegisterMetaType<ErrorTexts::errorLevel>("ErrorTexts::errorLevel");
}

void XMODEMthread::run()
{
    emit sigenableAbort();
    ended = false;
    QProcess process;
    toolRunning = true;
    // The tool's exit code says nothing: the records and their status codes do.
    runTool(process, program, {QStringLiteral("-p"), firmwarePath},
            [this](const QByteArray &chunk) { readxmodem(chunk); }, &killRequested);
    toolRunning = false;
}

void XMODEMthread::readxmodem(const QByteArray &chunk)
{
    qDebug() << "XMODEM Output " << quoted(chunk);
    if (ended)
        return;
    const XmodemStatus status = parseXmodemRecord(chunk);
    if (status.statusCode < 0)
        std::printf("regEx not found\n");
    if (status.statusCode == 0)
        emit updateStatus(tr("Flashing firmware"));
    emit sigProgress(status.loadedSize, status.allBinSize);
    if (status.statusCode == 1 || status.statusCode == 2)
        failureEnding(status.statusCode);
    else if (status.statusCode == 6)
        successEnding();
}

void XMODEMthread::failureEnding(int status)
{
    ended = true;
    emit resetWrittenStatus();
    emit updateFileLabel(QString());
    emit visibilityRemaining(false);
    if (status == 2) {
        const QString text = tr("Device not connected!");
        emit msgboxErrorSignal(ErrorTexts::Error, text);
        emit updateStatus(text);
    } else {
        emit msgboxErrorSignal(ErrorTexts::Error, tr("No firmware file in directory"));
    }
    killXmodem();
    emit sigdisableAbort();
    emit externalProcessesFinished();
}

void XMODEMthread::successEnding()
{
    ended = true;
    emit resetWrittenStatus();
    emit updateFileLabel(QString());
    emit visibilityRemaining(false);
    emit msgboxErrorSignal(ErrorTexts::Info, tr("Flashing completed") + tr("\nPlease perform Tessel restart!"));
    killXmodem();
    emit sigdisableAbort();
    emit flashFinished();
}

void XMODEMthread::killXmodem()
{
    emit sigdisableAbort();
    // Asked for even before the tool is up: it is then killed as soon as it starts.
    const bool alreadyAsked = killRequested.exchange(true);
    if (toolRunning && !alreadyAsked) {
        std::printf("kill xmodem\n");
        std::fflush(stdout);
    }
}
