#include "stationrecords.h"

#include "stationoutput.h"

#include "app/exitcode.h"
#include "app/logstream.h"
#include "history/centraloutbox.h"
#include "history/centralrecord.h"

#include <QFileInfo>

#include <cstdio>

namespace {
QString dashIfEmpty(const QString &text)
{
    return text.isEmpty() ? QStringLiteral("-") : text;
}

int failed(const QString &error)
{
    std::fprintf(stderr, "morvanta-station: %s\n", qPrintable(error));
    return toInt(ExitCode::Failed);
}
} // namespace

int StationRecords::print(const QString &historyPath, const CentralAddress &central, Format format,
                          const HistoryFilter &filter)
{
    const bool fromCentral = central.isSet();
    const auto each = [format, fromCentral](const FlashRecord &record) {
        if (format == Format::Json) {
            std::printf("%s\n", historyJson(record, fromCentral).constData());
        } else if (format == Format::Csv) {
            std::printf("%s\r\n", historyCsv(record, fromCentral).constData());
        } else {
            // Serials, versions and errors come from devices and tools: nothing may redraw the terminal.
            const QString line = QStringLiteral("%1  %2 %3 %4 port %5 serial %6 %7 -> %8 (package %9) %10")
                                     .arg(record.started.toString(Qt::ISODate), record.station.leftJustified(10),
                                          record.program.leftJustified(7), record.outcome.leftJustified(11),
                                          record.port.leftJustified(6), record.serial.leftJustified(10),
                                          dashIfEmpty(record.before), dashIfEmpty(record.after), record.version,
                                          record.error.simplified());
            std::printf("%s\n", withVisibleControls(line).toLocal8Bit().constData());
        }
        return true;
    };
    if (format == Format::Csv)
        std::printf("%s\r\n", historyCsvHeader(fromCentral).constData());
    bool read = false;
    QString error;
    if (fromCentral) {
        CentralRecord record(central);
        read = record.forEach(filter, each);
        error = record.error();
    } else {
        FlashHistory history;
        if (!history.openForReading(historyPath))
            return failed(history.error());
        read = history.forEach(filter, each);
        error = history.error();
    }
    std::fflush(stdout);
    return read ? toInt(ExitCode::Success) : failed(error);
}

int StationRecords::sync(const QString &historyPath, const CentralAddress &central, StationOutput &output)
{
    // Sending makes no history where there was none.
    if (!QFileInfo(historyPath).isFile())
        return failed(QStringLiteral("There is no history at %1").arg(historyPath));
    CentralOutbox outbox(historyPath, central);
    const CentralOutbox::Pass pass = outbox.sendAll();
    if (!pass.error.isEmpty())
        output.error(pass.error);
    if (pass.left >= 0)
        output.synced(pass.sent, pass.left);
    std::fflush(stdout);
    return toInt(pass.ok && pass.left == 0 ? ExitCode::Success : ExitCode::Failed);
}

QDateTime StationRecords::sinceDate(const QString &text)
{
    QDateTime when = QDateTime::fromString(text, Qt::ISODate);
    if (!when.isValid())
        when = QDate::fromString(text, Qt::ISODate).startOfDay(Qt::UTC);
    if (when.isValid() && when.timeSpec() == Qt::LocalTime)
        when.setTimeSpec(Qt::UTC);
    return when;
}

StationOutput::Counts StationRecords::countsSince(const QString &historyPath, const QDateTime &since)
{
    StationOutput::Counts counts;
    FlashHistory history;
    if (!history.openForReading(historyPath))
        return counts;
    HistoryFilter filter;
    filter.since = since;
    history.forEach(filter, [&counts](const FlashRecord &record) {
        counts.add(record.outcome);
        return true;
    });
    return counts;
}
