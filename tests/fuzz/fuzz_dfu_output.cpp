// dfu-util's output during a run of several files, in either dialect (the field's old
// hash marks or the newer progress bar), chunk by chunk, and the progress made of it.
#include "fuzzsupport.h"

#include "app/errortexts.h"
#include "flash/dfuoutputparser.h"
#include "flash/flashtexts.h"
#include "flash/transferprogress.h"

#include <QSet>

namespace {
// Every error a run can show, as the user reads it.
bool isKnownError(const QString &text)
{
    static const QString d = QStringLiteral("Device is not connected");
    static const QSet<QString> plain{
        QStringLiteral("No DFU capable USB device found"),
        QStringLiteral("More than one DFU capable USB device found"),
        QStringLiteral("Error during download"),
        QStringLiteral("Device's firmware is corrupt"),
        QStringLiteral("Program memory function failed"),
        d + QStringLiteral(" - Lost device after RESET"),
        d + QStringLiteral(" - Functional descriptor"),
        d + QStringLiteral(" - Opening error"),
        d + QStringLiteral(" - Configuration error"),
        d + QStringLiteral(" - Alt interface error"),
        d + QStringLiteral(" - Get status error"),
        d + QStringLiteral(" - Detaching error"),
        d + QStringLiteral(" - Clear status error"),
        d + QStringLiteral(" - Interface error"),
        d + QStringLiteral(" - In Runtime Mode error"),
    };
    if (plain.contains(text))
        return true;
    // A device there but closed to this user: a device error and the remedy.
    const QString remedy = QLatin1Char('\n') + ErrorTexts::noPermission();
    if (text.endsWith(remedy) && text.startsWith(d) && plain.contains(text.chopped(remedy.size())))
        return true;
    // A failed block of the newer tool, with the device's status in its words.
    static const QString failed = QStringLiteral("Error during download - ");
    if (!text.startsWith(failed))
        return false;
    for (int status = 0; status < 16; ++status) {
        if (text.mid(failed.size()) == FlashTexts::dfuStatus(status) && !text.endsWith(failed))
            return true;
    }
    return false;
}

void checkReport(const FlashProgress &report, const TransferCounters &counters)
{
    // 100 is shown only when the run has ended, never by a mark.
    FUZZ_ASSERT(report.percent >= 0 && report.percent <= 99);
    FUZZ_ASSERT(report.shownWritten() >= 0 && report.shownWritten() <= report.shownTotal());
    FUZZ_ASSERT(counters.filePercent >= 0 && counters.filePercent <= 100);
    FUZZ_ASSERT(counters.writtenSize <= counters.totalFileSize);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // The run's files and their sizes come first, then the tool's output.
    if (size < 1)
        return 0;
    const int files = 1 + data[0] % 7;
    if (size < size_t(1 + 3 * files))
        return 0;
    qint32 sizes[7];
    TransferCounters counters;
    for (int i = 0; i < files; ++i) {
        sizes[i] = qint32(data[1 + 3 * i] | data[2 + 3 * i] << 8 | data[3 + 3 * i] << 16);
        counters.totalFileSize += sizes[i];
    }
    const size_t header = size_t(1 + 3 * files);

    int file = 0;
    counters.currentFileSize = sizes[0];
    DfuOutputParser parser;
    for (QByteArray chunk : fuzz::chunks(fuzz::bytes(data + header, size - header))) {
        // A chunk starting with 0xfe is the first of the next file's transfer.
        if (chunk.startsWith('\xfe')) {
            if (++file == files)
                break;
            chunk.remove(0, 1);
            parser = DfuOutputParser();
            counters.filePercent = 0;
            counters.currentFileSize = sizes[file];
        }
        const DfuChunk parsed = parser.parse(chunk);
        int marks = 0;
        for (const DfuEvent &event : parsed.events) {
            switch (event.kind) {
            case DfuEvent::Error: {
                const QString text = FlashTexts::error(event.error);
                if (!isKnownError(text))
                    std::fprintf(stderr, "error text: [%s]\n", qPrintable(text));
                FUZZ_ASSERT(event.error.code == FlashError::Code::ToolMark && isKnownError(text));
                break;
            }
            case DfuEvent::Searching:
                break;
            case DfuEvent::StartingDownload:
                break;
            case DfuEvent::HashMarks:
                FUZZ_ASSERT(event.count > 0 && event.count <= chunk.count('#'));
                marks = event.count;
                for (int i = 0; i < event.count; ++i)
                    checkReport(countHashMark(counters), counters);
                break;
            case DfuEvent::Percent:
                FUZZ_ASSERT(event.count >= 0 && event.count <= 100);
                for (int due = hashMarksDue(counters, event.count); due > 0; --due)
                    checkReport(countHashMark(counters), counters);
                break;
            }
        }
        // The log keeps every byte that was no mark.
        FUZZ_ASSERT(parsed.logText.size() + marks == chunk.size());
    }
    return 0;
}
