// Wall time and peak memory of writing a firmware package to a folder as to a USB
// stick: the whole run, and its copy phase (copy, flush to the device, read back).
// Usage: bench_usbwrite OS_ZIP PR_ZIP STICK_FOLDER
#include "app/settings.h"
#include "flash/usbwritethread.h"

#include "peakmemory.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() < 4) {
        std::fprintf(stderr, "usage: bench_usbwrite OS_ZIP PR_ZIP STICK_FOLDER\n");
        return 64;
    }
    Settings settings(static_cast<QObject *>(nullptr));
    settings.createExtractFolder();
    const QString destination = args[3] + "/.zelko_update";
    Settings::removeFolder(destination);
    QDir().mkpath(destination);
    USBWriteThread thread(&settings, {args[1], args[2]}, destination, true, nullptr);
    QElapsedTimer whole, copying;
    qint64 copyMs = -1;
    int result = -1;
    QObject::connect(&thread, &USBWriteThread::updateStatus, &app, [&](const QString &status) {
        if (status.startsWith("Building sys file lists"))
            copying.start();
        if (status == "Writing completed:")
            copyMs = copying.elapsed();
    });
    QObject::connect(&thread, &USBWriteThread::exitCode, &app, [&](int code) { result = code; });
    QObject::connect(&thread, &QThread::finished, &app, &QCoreApplication::quit);
    whole.start();
    thread.start();
    app.exec();
    std::printf("whole run %lld ms (2 s of it the pause after each archive), copy with flush and read-back "
                "%lld ms, peak RSS %ld KiB, result %d\n",
                whole.elapsed(), copyMs, peakKiB(), result);
    return result;
}
