// Throughput of the dfu-util output parser and the progress arithmetic on a long
// transfer: chunks of hash marks as dfu-util writes them, with its text between files.
#include "flash/dfuoutputparser.h"
#include "flash/transferprogress.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int files = 20000;
    const QByteArray opening = "dfu-util 0.7\n\nCopyright 2005-2008 Weston Schmidt, Harald Welte and OpenMoko Inc.\n"
                               "Search for DFU USB device\nFound Runtime: [2675:0001] devnum=0, cfg=1, intf=0, "
                               "alt=0, name=\"V1_2_3\"\nbytes_per_hash=20000\nCopying data from PC to DFU device\n"
                               "Starting download: [";
    const QByteArray marks = "#####";
    const QByteArray closing = "] finished!\nstate(2) = dfuIDLE, status(0) = No error condition is present\nDone!\n";

    TransferCounters counters;
    counters.totalFileSize = 1000000 * 2000; // 2 GB across the run, as large as the counters allow
    qint64 bytes = 0;
    qint64 events = 0;
    qint64 checksum = 0;
    QElapsedTimer clock;
    clock.start();
    for (int f = 0; f < files; ++f) {
        counters.filePercent = 0;
        counters.currentFileSize = 100000;
        DfuOutputParser parser;
        const auto feed = [&](const QByteArray &chunk) {
            bytes += chunk.size();
            const DfuChunk parsed = parser.parse(chunk);
            for (const DfuEvent &e : parsed.events) {
                ++events;
                if (e.kind == DfuEvent::HashMarks)
                    for (int i = 0; i < e.count; ++i)
                        checksum += countHashMark(counters).percent;
            }
        };
        feed(opening);
        for (int g = 0; g < 10; ++g)
            feed(marks);
        feed(closing);
    }
    const double seconds = clock.nsecsElapsed() / 1e9;
    std::printf("chunks %d\nbytes %lld\nevents %lld\nseconds %.3f\nchunks_per_second %.0f\nMiB_per_second %.1f\n"
                "(checksum %lld)\n",
                files * 12, bytes, events, seconds, files * 12 / seconds, bytes / seconds / 1048576.0, checksum);
    return 0;
}
