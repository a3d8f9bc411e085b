// morvanta-station: the console front end for production stations. It lists the Tessel
// NINEs that dfu-util sees, flashes one of them or every one that comes, unattended, with
// output a script can read, and keeps a record of every flash. Any number of runs at
// once, one per device. No display, no boxes, no questions.
#include "stationoutput.h"
#include "stationrun.h"
#include "stationwatch.h"

#include "app/errortexts.h"
#include "app/exitcode.h"
#include "app/log.h"
#include "app/logstream.h"
#include "app/settings.h"
#include "app/toolrun.h"
#include "firmware/devicelisting.h"
#include "history/flashhistory.h"
#include "history/historywriter.h"
#include "platform/stopsignals.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTimer>

#include <cstdio>
#include <cstdlib>

namespace {
// A day: a run that needs longer is stuck.
constexpr int maxTimeoutSeconds = 86400;

void quietHandler(QtMsgType, const QMessageLogContext &, const QString &)
{
}

int usageError(const QCommandLineParser &parser, const QString &message)
{
    std::fprintf(stderr, "morvanta-station: %s\n\n%s", qPrintable(message), qPrintable(parser.helpText()));
    return toInt(ExitCode::Usage);
}

int list(Settings &settings, StationOutput &output)
{
    bool accessDenied = false;
    for (const ListedDevice &device : listDfuDevices(settings, &accessDenied)) {
        if (device.isTesselNine())
            output.device(device);
    }
    if (accessDenied)
        output.error(ErrorTexts::noPermission());
    return toInt(ExitCode::Success);
}

QString dashIfEmpty(const QString &text)
{
    return text.isEmpty() ? QStringLiteral("-") : text;
}

// Reads only, and prints each record as it comes: a year of them is never held at once.
int printHistory(const QString &path, bool json, bool csv, const QString &serial, const QDateTime &since)
{
    FlashHistory history;
    if (!history.openForReading(path)) {
        std::fprintf(stderr, "morvanta-station: %s\n", qPrintable(history.error()));
        return toInt(ExitCode::Failed);
    }
    if (csv)
        std::printf("%s\r\n", historyCsvHeader().constData());
    const bool read = history.forEach(serial, since, [json, csv](const FlashRecord &record) {
        if (json) {
            std::printf("%s\n", historyJson(record).constData());
        } else if (csv) {
            std::printf("%s\r\n", historyCsv(record).constData());
        } else {
            // Serials, versions and errors come from devices and tools: nothing may redraw the terminal.
            const QString line = QStringLiteral("%1  %2 %3 port %4 serial %5 %6 -> %7 (package %8) %9")
                                     .arg(record.started.toString(Qt::ISODate), record.program.leftJustified(7),
                                          record.outcome.leftJustified(11), record.port.leftJustified(6),
                                          record.serial.leftJustified(10), dashIfEmpty(record.before),
                                          dashIfEmpty(record.after), record.version, record.error.simplified());
            std::printf("%s\n", withVisibleControls(line).toLocal8Bit().constData());
        }
        return true;
    });
    std::fflush(stdout);
    if (!read) {
        std::fprintf(stderr, "morvanta-station: %s\n", qPrintable(history.error()));
        return toInt(ExitCode::Failed);
    }
    return toInt(ExitCode::Success);
}

// --since takes a date or a date and time, read as UTC.
QDateTime sinceDate(const QString &text)
{
    QDateTime when = QDateTime::fromString(text, Qt::ISODate);
    if (!when.isValid())
        when = QDate::fromString(text, Qt::ISODate).startOfDay(Qt::UTC);
    if (when.isValid() && when.timeSpec() == Qt::LocalTime)
        when.setTimeSpec(Qt::UTC);
    return when;
}
} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("morvanta-station"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Lists the Tessel NINEs that dfu-util sees, flashes one of them or every one that comes, unattended,\n"
        "and keeps a record of every flash.\n"
        "  list                          every Tessel NINE: port, mode, version, serial\n"
        "  flash [options] FIRMWARE      FIRMWARE: one file of a pair, or a folder (its newest)\n"
        "  watch [options] FIRMWARE      flash every Tessel NINE that comes, until SIGTERM or SIGINT\n"
        "  history [options]             the record of every flash, oldest first\n"
        "Exit codes of flash: 0 flashed and verified, 2 failed, 3 flashed but its record could not be\n"
        "completed, 1 stopped by SIGINT or SIGTERM. Of watch: 0 stopped, no unit failed; 4 stopped, a\n"
        "unit failed; 1 a second signal stopped running flashes; 2 the watch could not run. 64 a usage error."));
    parser.addHelpOption();
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("One JSON object per line, nothing else."));
    const QCommandLineOption csv(QStringLiteral("csv"), QStringLiteral("history: CSV with a header row."));
    const QCommandLineOption port(QStringLiteral("port"), QStringLiteral("The device on this USB port (dfu-util's path)."),
                                  QStringLiteral("PATH"));
    const QCommandLineOption portList(QStringLiteral("ports"),
                                      QStringLiteral("watch: only these ports, separated by commas (all without)."),
                                      QStringLiteral("LIST"));
    const QCommandLineOption timeout(QStringLiteral("timeout"), QStringLiteral("Time limit of a flash."),
                                     QStringLiteral("SECONDS"), QStringLiteral("600"));
    const QCommandLineOption zip(QStringLiteral("zip"), QStringLiteral("Plain zip files, without signatures."));
    const QCommandLineOption bootLoader(QStringLiteral("bootloader"),
                                        QStringLiteral("Flash this boot loader first, then the firmware."),
                                        QStringLiteral("BLFILE"));
    const QCommandLineOption log(QStringLiteral("log"), QStringLiteral("Write the run's log to this file."),
                                 QStringLiteral("FILE"));
    const QCommandLineOption historyFile(
        QStringLiteral("history"),
        QStringLiteral("The history of flashes (default: %1).").arg(FlashHistory::defaultPath()), QStringLiteral("FILE"));
    const QCommandLineOption serial(QStringLiteral("serial"), QStringLiteral("history: this unit only."),
                                    QStringLiteral("S"));
    const QCommandLineOption since(QStringLiteral("since"), QStringLiteral("history: flashes from this date (UTC) on."),
                                   QStringLiteral("DATE"));
    parser.addOptions({json, csv, port, portList, timeout, zip, bootLoader, log, historyFile, serial, since});
    parser.addPositionalArgument(QStringLiteral("command"), QStringLiteral("list, flash, watch or history"));

    if (!parser.parse(QCoreApplication::arguments()))
        return usageError(parser, parser.errorText());
    if (parser.isSet(QStringLiteral("help"))) {
        std::fputs(qPrintable(parser.helpText()), stdout);
        return toInt(ExitCode::Success);
    }
    const QStringList words = parser.positionalArguments();
    const QString command = words.value(0);
    const bool flash = command == QLatin1String("flash");
    const bool watch = command == QLatin1String("watch");
    // Each command takes its own options only: a misplaced one is a mistake, not a no-op.
    QList<const QCommandLineOption *> allowed{&json, &log};
    if (flash || watch)
        allowed << &timeout << &zip << &historyFile;
    if (flash)
        allowed << &port << &bootLoader;
    if (watch)
        allowed << &portList;
    if (command == QLatin1String("history"))
        allowed = {&json, &csv, &historyFile, &serial, &since};
    for (const QCommandLineOption *option : {&json, &csv, &port, &portList, &timeout, &zip, &bootLoader, &log,
                                             &historyFile, &serial, &since}) {
        if (parser.isSet(*option) && !allowed.contains(option))
            return usageError(parser, QStringLiteral("%1 takes no --%2").arg(command, option->names().first()));
    }
    bool timeoutOk = false;
    const int seconds = parser.value(timeout).toInt(&timeoutOk);
    QStringList watchedPorts;
    for (const QString &item : parser.value(portList).split(QLatin1Char(','), Qt::SkipEmptyParts))
        if (!watchedPorts.contains(item.trimmed())) // a port named twice is watched once
            watchedPorts << item.trimmed();
    if ((command == QLatin1String("list") || command == QLatin1String("history")) && words.size() == 1) {
        if (parser.isSet(json) && parser.isSet(csv))
            return usageError(parser, QStringLiteral("say --json or --csv, not both"));
        if (parser.isSet(since) && !sinceDate(parser.value(since)).isValid())
            return usageError(parser, QStringLiteral("--since takes a date such as 2026-11-24"));
    } else if (!(flash || watch) || words.size() != 2) {
        return usageError(parser, QStringLiteral("say \"list\", \"history\", or \"flash\" or \"watch\" and one FIRMWARE"));
    } else if (!timeoutOk || seconds < 1 || seconds > maxTimeoutSeconds) {
        return usageError(parser, QStringLiteral("--timeout takes 1 to %1 seconds").arg(maxTimeoutSeconds));
    } else if (parser.isSet(portList) && watchedPorts.isEmpty()) {
        return usageError(parser, QStringLiteral("--ports takes ports such as 1-1,1-2"));
    }

    if (parser.isSet(log)) {
        Log::setFile(parser.value(log));
        qInstallMessageHandler(logMessageHandler);
    } else {
        qInstallMessageHandler(quietHandler);
    }

    const QString historyPath = parser.isSet(historyFile) ? parser.value(historyFile) : FlashHistory::defaultPath();
    if (command == QLatin1String("history"))
        return printHistory(historyPath, parser.isSet(json), parser.isSet(csv), parser.value(serial),
                            sinceDate(parser.value(since)));
    // Written on a thread of its own: a busy history never holds the flashes.
    HistoryWriter history;
    if ((flash || watch) && !history.open(historyPath)) {
        // Production keeps a record of every unit: no flash goes unrecorded.
        StationOutput(parser.isSet(json))
            .error(QStringLiteral("Cannot open the history %1: %2").arg(historyPath, history.error()));
        return toInt(ExitCode::Failed);
    }

    StationOutput output(parser.isSet(json));
    Settings::setWarningHandler([&output](const QString &text) { output.error(text); });
    Settings settings(static_cast<QObject *>(nullptr));
    if (command == QLatin1String("list"))
        return list(settings, output);

    StationRun::Options options;
    options.firmware = words.value(1);
    options.port = parser.value(port);
    options.bootLoader = parser.value(bootLoader);
    // Unchecked firmware only when asked for: a missing gpg must not pass for a choice.
    if (!parser.isSet(zip) && !settings.isGpgAvailable()) {
        output.error(QStringLiteral("No %1 beside morvanta-station (%2): signatures cannot be checked. "
                                    "Give --zip to flash plain zip packages.")
                         .arg(Settings::toolName(QStringLiteral("gpg")), unquotedProgram(settings.getGpgPath())));
        return toInt(ExitCode::Failed);
    }
    output.setSigned(!parser.isSet(zip));
    options.zip = parser.isSet(zip);
    options.timeoutSeconds = seconds;

    StopSignals stopSignals;
    if (!stopSignals.isValid())
        return toInt(ExitCode::Failed);
    if (watch) {
        StationWatch::Options watchOptions;
        watchOptions.run = options;
        watchOptions.ports = watchedPorts;
        watchOptions.json = parser.isSet(json);
        StationWatch station(&settings, &output, &history, watchOptions);
        QObject::connect(&stopSignals, &StopSignals::stopRequested, &station, &StationWatch::stop);
        QObject::connect(&station, &StationWatch::finished, &app, [](ExitCode code) {
            std::fflush(stdout);
            QCoreApplication::exit(toInt(code));
        });
        QTimer::singleShot(0, &station, &StationWatch::start);
        return QCoreApplication::exec();
    }
    StationRun run(&settings, &output, &history, options);
    QObject::connect(&stopSignals, &StopSignals::stopRequested, &run, &StationRun::stop);
    QObject::connect(&run, &StationRun::finished, &app, [&run](ExitCode code) {
        // A thread held by a dead share would keep the process alive at its end.
        if (run.leftThreadsBehind()) {
            std::fflush(stdout);
            std::_Exit(toInt(code));
        }
        QCoreApplication::exit(toInt(code));
    });
    QTimer::singleShot(0, &run, [&run] { run.start(); });
    return QCoreApplication::exec();
}
