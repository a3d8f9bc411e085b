#include "dfuoutputparser.h"

#include <algorithm>
#include <cctype>
#include <optional>

namespace {
struct Mark {
    const char *needle;
    DfuEvent::Kind kind;
    DfuMark mark; // Error
};

const Mark marks[] = {
    {"Search for DFU USB device", DfuEvent::Searching, {}},
    {"No DFU capable USB device found", DfuEvent::Error, DfuMark::NoDevice},
    {"More than one DFU capable USB device found", DfuEvent::Error, DfuMark::SeveralDevices},
    {"Lost device after RESET", DfuEvent::Error, DfuMark::LostDevice},
    {"Error obtaining DFU functional descriptor", DfuEvent::Error, DfuMark::FunctionalDescriptor},
    {"Cannot open device:", DfuEvent::Error, DfuMark::OpeningError},
    {"Cannot set configuration:", DfuEvent::Error, DfuMark::ConfigurationError},
    {"Cannot set alt interface:", DfuEvent::Error, DfuMark::AltInterfaceError},
    {"error get_status:", DfuEvent::Error, DfuMark::GetStatusError},
    {"unable to read DFU status", DfuEvent::Error, DfuMark::GetStatusError},
    {"error detaching:", DfuEvent::Error, DfuMark::DetachingError},
    {"error clear_status:", DfuEvent::Error, DfuMark::ClearStatusError},
    {"Cannot claim interface", DfuEvent::Error, DfuMark::InterfaceError},
    {"Device still in Runtime Mode!", DfuEvent::Error, DfuMark::RuntimeModeError},
    {"Error during download", DfuEvent::Error, DfuMark::DownloadError},
    {"Device's firmware is corrupt. It cannot return to run-time (non-DFU) operations", DfuEvent::Error,
     DfuMark::FirmwareCorrupt},
    {"Program memory function failed", DfuEvent::Error, DfuMark::ProgramMemory},
    {"Starting download:", DfuEvent::StartingDownload, {}},
};

// The same events in the words of dfu-util 0.9 to 0.11.
const Mark newerMarks[] = {
    {"Opening DFU capable USB device", DfuEvent::Searching, {}},
    {"No DFU capable USB device available", DfuEvent::Error, DfuMark::NoDevice},
    {"Cannot open DFU device", DfuEvent::Error, DfuMark::OpeningError},
    {"Cannot open device", DfuEvent::Error, DfuMark::OpeningError},
    {"Cannot set alternate interface", DfuEvent::Error, DfuMark::AltInterfaceError},
    {"error detaching", DfuEvent::Error, DfuMark::DetachingError},
    {"error clear_status", DfuEvent::Error, DfuMark::ClearStatusError},
    {"Device still in Run-Time Mode!", DfuEvent::Error, DfuMark::RuntimeModeError},
    {"Copying data from PC to DFU device", DfuEvent::StartingDownload, {}},
};

DfuEvent eventOf(const Mark &mark)
{
    DfuEvent event{mark.kind, {}, 0};
    if (mark.kind == DfuEvent::Error)
        event.error = FlashError::tool(mark.mark);
    return event;
}

bool sameEvent(const DfuEvent &a, const DfuEvent &b)
{
    return a.kind == b.kind && (a.kind != DfuEvent::Error || a.error.mark == b.error.mark);
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
            if (event.kind == DfuEvent::Error)
                event.error.accessDenied = true;
        }
    }
    const int percent = lastBarPercent(chunk);
    if (percent >= 0)
        result.events << DfuEvent{DfuEvent::Percent, {}, percent};
    // The newer tool's failed block: " failed!" behind its bar, then the state line.
    progressBar = progressBar || percent >= 0;
    blockFailed = blockFailed || (progressBar && chunk.contains(" failed!"));
    const int status = blockFailed ? errorStatus(chunk) : -1;
    if (status >= 0) {
        blockFailed = false;
        if (!hasError(result))
            result.events << DfuEvent{DfuEvent::Error, FlashError::tool(DfuMark::DownloadError, status), 0};
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
        result.events << DfuEvent{DfuEvent::HashMarks, {}, hashes};
    if (!rest.isEmpty())
        result.logText = rest;
    return result;
}
