// Wall time and peak memory of preparing a firmware package (hashes, gpg, unzip, file
// lists, sizes) in a flash job, without its fixed one-second pauses.
// Usage: bench_prepare OS_FILE PR_FILE [--plain]
#include "app/settings.h"
#include "flash/flashjob.h"
#include "flash/flashtexts.h"

#include "peakmemory.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() < 3) {
        std::fprintf(stderr, "usage: bench_prepare OS_FILE PR_FILE [--plain]\n");
        return 64;
    }
    Settings settings(static_cast<QObject *>(nullptr));
    settings.createExtractFolder();
    if (settings.isGpgAvailable())
        settings.prepareGpgFolder();

    FlashJob::Options options;
    options.files = {args[1], args[2]};
    options.plainZips = args.contains("--plain");
    // The device the tool finds by itself: the preparation ends where it is looked for.
    ListedDevice device;
    device.vendorProduct = QStringLiteral("2675:0001");
    options.seen = QList<ListedDevice>{device};
    FlashJob job(&settings, options);
    QElapsedTimer clock;
    qint64 prepared = -1;
    qint64 lastStage = 0;
    QObject::connect(&job, &FlashJob::stageChanged, &app, [&](FlashStage stage) {
        if (stage == FlashStage::Hashing)
            clock.start();
        // Where the time goes: each stage's start, ms from the first.
        std::printf("stage %d at %lld ms (+%lld)\n", int(stage), clock.elapsed(), clock.elapsed() - lastStage);
        lastStage = clock.elapsed();
        if (stage == FlashStage::Searching && prepared < 0) {
            prepared = clock.elapsed();
            job.stop();
        }
    });
    QObject::connect(&job, &FlashJob::errorOccurred, &app, [](const FlashError &error) {
        std::fprintf(stderr, "%s\n", qPrintable(FlashTexts::errorBox(error)));
    });
    QObject::connect(&job, &FlashJob::finished, &app, &QCoreApplication::quit);
    job.start();
    app.exec();
    if (prepared < 0)
        return 1;
    // Two archives, one second of rest after each.
    std::printf("prepare_ms_without_pauses %lld\npeak_rss_kib %ld\n", prepared - 2000, peakKiB());
    return 0;
}
