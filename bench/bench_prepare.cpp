// Wall time and peak memory of preparing a firmware package (hashes, gpg, unzip, file
// lists, sizes) in DFUThread, without its fixed one-second pauses.
// Usage: bench_prepare OS_FILE PR_FILE [--plain]
#include "app/settings.h"
#include "flash/dfuthread.h"

#include "peakmemory.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTimer>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() < 3) {
        std::fprintf(stderr, "usage: bench_prepare OS_FILE PR_FILE [--plain]\n");
        return 64;
    }
    const bool plain = args.contains("--plain");
    Settings settings(static_cast<QObject *>(nullptr));
    settings.createExtractFolder();
    if (settings.isGpgAvailable())
        settings.prepareGpgFolder();

    DFUThread thread(&settings, 0, {args[1], args[2]}, 0, plain, false, nullptr);
    QElapsedTimer clock;
    qint64 prepared = -1;
    QObject::connect(&thread, &DFUThread::updateStatus, &app, [&](const QString &status) {
        if (status.startsWith("Calculate MD5"))
            clock.start();
        if (status.startsWith("Search for DFU USB device") && prepared < 0) {
            prepared = clock.elapsed();
            thread.abortByUser();
        }
    });
    QObject::connect(&thread, &DFUThread::msgboxErrorSignal, &app,
                     [](ErrorTexts::errorLevel, const QString &text) { std::fprintf(stderr, "%s\n", qPrintable(text)); });
    QObject::connect(&thread, &QThread::finished, &app, &QCoreApplication::quit);
    thread.start();
    app.exec();
    if (prepared < 0)
        return 1;
    // Two archives, one second of rest after each.
    std::printf("prepare_ms_without_pauses %lld\npeak_rss_kib %ld\n", prepared - 2000, peakKiB());
    return 0;
}
