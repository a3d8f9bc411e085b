#include "dfuoutputparser.h"

#include "app/errortexts.h"

#include <algorithm>
#include <cctype>
#include <iterator>

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

// The same events in the words of dfu-util 0.9 to 0.11.
const Mark newerMarks[] = {
    {"Opening DFU capable USB device", DfuEvent::Status,
     QT_TRANSLATE_NOOP("DFUThread", "Search for DFU USB device - This might take a few seconds"), false},
    {"No DFU capable USB device available", DfuEvent::Error,
     QT_TRANSLATE_NOOP("DFUThread", "No DFU capable USB device found"), false},
    {"Cannot open DFU device", DfuEvent::Error, QT_TRANSLATE_NOOP("DFUThread", " - Opening error"), true},
    {"Cannot open device", DfuEvent::Error, QT_TRANSLATE_NOOP("DFUThread", " - Opening error"), true},
    {"Cannot set alternate interface", DfuEvent::Error, QT_TRANSLATE_NOOP("DFUThread", " - Alt interface error"),
     true},
    {"error detaching", DfuEvent::Error, QT_TRANSLATE_NOOP("DFUThread", " - Detaching error"), true},
    {"error clear_status", DfuEvent::Error, QT_TRANSLATE_NOOP("DFUThread", " - Clear status error"), true},
    {"Device still in Run-Time Mode!", DfuEvent::Error, QT_TRANSLATE_NOOP("DFUThread", " - In Runtime Mode error"),
     true},
    {"Copying data from PC to DFU device", DfuEvent::StartingDownload, nullptr, false},
};

DfuEvent eventOf(const Mark &mark)
{
    QString text;
    if (mark.text) {
        text = DfuOutputParser::tr(mark.text);
        if (mark.deviceNotConnected)
            text = ErrorTexts::deviceNotConnected() +
                   (text.startsWith(QLatin1String(" - ")) ? text : QLatin1String(" - ") + text);
    }
    return DfuEvent{mark.kind, text, 0};
}

bool sameEvent(const DfuEvent &a, const DfuEvent &b)
{
    return a.kind == b.kind && a.text == b.text;
}

// The percent of the last whole progress bar in the chunk, or -1.
int lastBarPercent(const QByteArray &chunk)
{
    static const QByteArray bar = "Download\t[";
    int percent = -1;
    for (qsizetype at = chunk.indexOf(bar); at >= 0; at = chunk.indexOf(bar, at + 1)) {
        const qsizetype close = chunk.indexOf(']', at + bar.size());
        const qsizetype sign = close < 0 ? -1 : chunk.indexOf('%', close);
        if (sign < 0)
            break;
        bool ok = false;
        const int value = chunk.mid(close + 1, sign - close - 1).trimmed().toInt(&ok);
        if (ok && value >= 0 && value <= 100)
            percent = value;
    }
    return percent;
}

// The status codes of DFU 1.1, as dfu-util words them.
const char *const statusTexts[] = {
    QT_TRANSLATE_NOOP("DFUThread", "No error condition is present"),
    QT_TRANSLATE_NOOP("DFUThread", "File is not targeted for use by this device"),
    QT_TRANSLATE_NOOP("DFUThread", "File is for this device but fails some vendor-specific test"),
    QT_TRANSLATE_NOOP("DFUThread", "Device is unable to write memory"),
    QT_TRANSLATE_NOOP("DFUThread", "Memory erase function failed"),
    QT_TRANSLATE_NOOP("DFUThread", "Memory erase check failed"),
    QT_TRANSLATE_NOOP("DFUThread", "Program memory function failed"),
    QT_TRANSLATE_NOOP("DFUThread", "Programmed memory failed verification"),
    QT_TRANSLATE_NOOP("DFUThread", "Cannot program memory due to received address that is out of range"),
    QT_TRANSLATE_NOOP("DFUThread", "Received DFU_DNLOAD with wLength = 0, but device does not think that it has all "
                                   "data yet"),
    QT_TRANSLATE_NOOP("DFUThread", "Device's firmware is corrupt. It cannot return to run-time (non-DFU) operations"),
    QT_TRANSLATE_NOOP("DFUThread", "iString indicates a vendor specific error"),
    QT_TRANSLATE_NOOP("DFUThread", "Device detected unexpected USB reset signaling"),
    QT_TRANSLATE_NOOP("DFUThread", "Device detected unexpected power on reset"),
    QT_TRANSLATE_NOOP("DFUThread", "Something went wrong, but the device does not know what it was"),
    QT_TRANSLATE_NOOP("DFUThread", "Device stalled an unexpected request"),
};

bool hasError(const DfuChunk &chunk)
{
    return std::any_of(chunk.events.cbegin(), chunk.events.cend(),
                       [](const DfuEvent &event) { return event.kind == DfuEvent::Error; });
}

// The N of the first "dfuERROR, status(N)" in the chunk, or -1.
int errorStatus(const QByteArray &chunk)
{
    static const QByteArray state = "dfuERROR, status(";
    const qsizetype at = chunk.indexOf(state);
    const qsizetype close = at < 0 ? -1 : chunk.indexOf(')', at + state.size());
    if (close < 0)
        return -1;
    bool ok = false;
    const int status = chunk.mid(at + state.size(), close - at - state.size()).toInt(&ok);
    return ok ? status : -1;
}
} // namespace

QString DfuOutputParser::statusText(int status)
{
    return status >= 0 && status < int(std::size(statusTexts)) ? tr(statusTexts[status]) : QString();
}

DfuChunk DfuOutputParser::parse(const QByteArray &chunk)
{
    DfuChunk result;
    for (const Mark &mark : marks) {
        if (chunk.contains(mark.needle))
            result.events << eventOf(mark);
    }
    for (const Mark &mark : newerMarks) {
        if (!chunk.contains(mark.needle))
            continue;
        const DfuEvent event = eventOf(mark);
        if (std::none_of(result.events.cbegin(), result.events.cend(),
                         [&](const DfuEvent &seen) { return sameEvent(seen, event); }))
            result.events << event;
    }
    // A device there but closed to this user, in the newer tool's words: the error says
    // what grants the permission.
    if (chunk.contains("Cannot open DFU device") && chunk.contains("LIBUSB_ERROR_ACCESS")) {
        for (DfuEvent &event : result.events) {
            if (event.kind == DfuEvent::Error && event.text.startsWith(ErrorTexts::deviceNotConnected()))
                event.text += QLatin1Char('\n') + ErrorTexts::noPermission();
        }
    }
    const int percent = lastBarPercent(chunk);
    if (percent >= 0)
        result.events << DfuEvent{DfuEvent::Percent, QString(), percent};
    // The newer tool's failed block: " failed!" behind its bar, then the state line.
    progressBar = progressBar || percent >= 0;
    blockFailed = blockFailed || (progressBar && chunk.contains(" failed!"));
    const int status = blockFailed ? errorStatus(chunk) : -1;
    if (status >= 0) {
        blockFailed = false;
        const QString reason = statusText(status);
        if (!hasError(result))
            result.events << DfuEvent{DfuEvent::Error,
                                      tr("Error during download") + (reason.isEmpty() ? QString() : QLatin1String(" - ") + reason), 0};
    }
    downloadDone = downloadDone || chunk.contains("Download done.");
    done = done || chunk.contains("Done!");
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
