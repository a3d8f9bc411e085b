#include "dfuoutputparser.h"

#include "app/errortexts.h"

#include <cctype>

namespace {
struct Mark {
    const char *needle;
    DfuEvent::Kind kind;
    const char *text;       // translated in the DFUThread context
    bool deviceNotConnected; // text follows "Device is not connected"
};

// D - Lost device after RESET: the joining " - " is not part of the catalogue's text.
const Mark marks[] = {
    {"Search for DFU USB device", DfuEvent::Status,
     QT_TRANSLATE_NOOP("DFUThread", "Search for DFU USB device - This might take a few seconds"), false},
    {"No DFU capable USB device found", DfuEvent::Error,
     QT_TRANSLATE_NOOP("DFUThread", "No DFU capable USB device found"), false},
    {"More than one DFU capable USB device found", DfuEvent::Error,
     QT_TRANSLATE_NOOP("DFUThread", "More than one DFU capable USB device found"), false},
    {"Lost device after RESET", DfuEvent::Error, QT_TRANSLATE_NOOP("DFUThread", "Lost device after RESET"), true},
    {"Error obtaining DFU functional descriptor", DfuEvent::Error,
     QT_TRANSLATE_NOOP("DFUThread", " - Functional descriptor"), true},
    {"Cannot open device:", DfuEvent::Error, QT_TRANSLATE_NOOP("DFUThread", " - Opening error"), true},
    {"Cannot set configuration:", DfuEvent::Error, QT_TRANSLATE_NOOP("DFUThread", " - Configuration error"), true},
    {"Cannot set alt interface:", DfuEvent::Error, QT_TRANSLATE_NOOP("DFUThread", " - Alt interface error"), true},
    {"error get_status:", DfuEvent::Error, QT_TRANSLATE_NOOP("DFUThread", " - Get status error"), true},
    {"unable to read DFU status", DfuEvent::Error, QT_TRANSLATE_NOOP("DFUThread", " - Get status error"), true},
    {"error detaching:", DfuEvent::Error, QT_TRANSLATE_NOOP("DFUThread", " - Detaching error"), true},
    {"error clear_status:", DfuEvent::Error, QT_TRANSLATE_NOOP("DFUThread", " - Clear status error"), true},
    {"Cannot claim interface", DfuEvent::Error, QT_TRANSLATE_NOOP("DFUThread", " - Interface error"), true},
    {"Device still in Runtime Mode!", DfuEvent::Error, QT_TRANSLATE_NOOP("DFUThread", " - In Runtime Mode error"),
     true},
    {"Error during download", DfuEvent::Error, QT_TRANSLATE_NOOP("DFUThread", "Error during download"), false},
    {"Device's firmware is corrupt. It cannot return to run-time (non-DFU) operations", DfuEvent::Error,
     QT_TRANSLATE_NOOP("DFUThread", "Device's firmware is corrupt"), false},
    {"Program memory function failed", DfuEvent::Error,
     QT_TRANSLATE_NOOP("DFUThread", "Program memory function failed"), false},
    {"Starting download:", DfuEvent::StartingDownload, nullptr, false},
};
} // namespace

DfuChunk DfuOutputParser::parse(const QByteArray &chunk)
{
    DfuChunk result;
    for (const Mark &mark : marks) {
        if (!chunk.contains(mark.needle))
            continue;
        QString text;
        if (mark.text) {
            text = tr(mark.text);
            if (mark.deviceNotConnected)
                text = ErrorTexts::deviceNotConnected() +
                       (text.startsWith(QLatin1String(" - ")) ? text : QLatin1String(" - ") + text);
        }
        result.events << DfuEvent{mark.kind, text, 0};
    }
    // "Setting Alternate Setting #0 ..." arrives in one chunk with the first marks:
    // a '#' in front of a digit numbers something and is no mark.
    QByteArray rest;
    rest.reserve(chunk.size());
    int hashes = 0;
    for (int i = 0; i < chunk.size(); ++i) {
        const bool mark = chunk[i] == '#' && !(i + 1 < chunk.size() && std::isdigit(uchar(chunk[i + 1])));
        if (mark)
            ++hashes;
        else
            rest += chunk[i];
    }
    if (hashes > 0)
        result.events << DfuEvent{DfuEvent::HashMarks, QString(), hashes};
    if (!rest.isEmpty())
        result.logText = rest;
    return result;
}
