// Wall time and peak memory of fetching one file over HTTP with the program's
// transport, written to disk as it arrives, as the downloads do.
// Usage: bench_download URL TARGET
#include "download/httprequester.h"

#include "peakmemory.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSaveFile>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc < 3) {
        std::fprintf(stderr, "usage: bench_download URL TARGET\n");
        return 64;
    }
    QSaveFile target(QString::fromLocal8Bit(argv[2]));
    target.open(QIODevice::WriteOnly);
    HttpRequester http(nullptr, nullptr);
    QElapsedTimer clock;
    bool failed = true;
    QObject::connect(&http, &HttpRequester::sigCommandFinished, &app, [&](bool error, const QString &message) {
        failed = error || !target.commit();
        if (error)
            std::fprintf(stderr, "%s\n", qPrintable(message));
        app.quit();
    });
    clock.start();
    http.get(QUrl(QString::fromLocal8Bit(argv[1])), &target);
    app.exec();
    std::printf("program's transport: %lld ms, peak RSS %ld KiB%s\n", clock.elapsed(), peakKiB(),
                failed ? " (FAILED)" : "");
    return failed ? 1 : 0;
}
