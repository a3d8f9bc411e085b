#include "usbdetector.h"

#include "app/toolrun.h"

#include <QProcess>

#include <cstdio>

USBDetector::USBDetector(const QString &program, QObject *parent) : QThread(parent), program(program)
{
}

void USBDetector::run()
{
    QProcess process;
    runTool(process, program, {}, [this](const QByteArray &chunk) { processread(chunk); }, &stopRequested);
}

int detectorAnswer(const QByteArray &chunk)
{
    const int nul = int(chunk.indexOf('\0'));
    // Text that is no number reads as 0: no device.
    const int result = QString::fromLatin1(nul < 0 ? chunk : chunk.left(nul)).trimmed().toInt(nullptr, 10);
    return result == 0 || result == 1 ? result : -1;
}

void USBDetector::processread(const QByteArray &chunk)
{
    const int answer = detectorAnswer(chunk);
    if (answer < 0)
        std::printf("Error during usb detection process\n");
    else
        emit usbDetected(answer == 1);
}
