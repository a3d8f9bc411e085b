// morvanta-station: the console front end for production stations. It lists the Tessel
// NINEs that dfu-util sees, flashes one of them or every one that comes, unattended, with
// output a script can read, and keeps a record of every flash. Any number of runs at
// once, one per device. No display, no boxes, no questions.
#include "stationoutput.h"
#include "stationrecords.h"
#include "stationrun.h"
#include "stationpage.h"
#include "stationstate.h"
#include "stationwatch.h"

#include "app/buildidentity.h"
#include "app/errortexts.h"
#include "app/exitcode.h"
#include "app/log.h"
#include "app/logstream.h"
#include "app/settings.h"
#include "app/toolrun.h"
#include "firmware/devicelisting.h"
#include "history/centralsender.h"
#include "history/flashhistory.h"
#include "history/historywriter.h"
#include "platform/stopsignals.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSysInfo>
#include <QTimer>

#include <cstdio>
#include <cstdlib>

namespace {
// A day: a run that needs longer is stuck.
constexpr int maxTimeoutSeconds = 86400;

void quietHandler(QtMsgType, const QMessageLogContext &, const QString &)
{
}

// The commands, each with the words of its usage line and what it does.
struct Command {
    const char *name;
    const char *arguments;
    const char *summary;
};
const Command commands[] = {
    {"list", "[OPTIONS]", "Every Tessel NINE that dfu-util sees: port, mode, version, serial."},
    {"flash", "[OPTIONS] FIRMWARE",
     "Flashes one Tessel NINE. FIRMWARE: one file of a pair, or a folder (its newest firmware).\n"
     "Exit codes: 0 flashed and verified, 2 failed, 3 flashed but its record could not be completed,\n"
     "1 stopped by SIGINT or SIGTERM, 64 a usage error."},
    {"watch", "[OPTIONS] FIRMWARE",
     "Flashes every Tessel NINE that comes, until SIGTERM or SIGINT.\n"
     "Exit codes: 0 stopped, no unit failed; 4 stopped, a unit failed; 1 a second signal stopped\n"
     "running flashes; 2 the watch could not run; 64 a usage error."},
    {"history", "[OPTIONS]", "The record of every flash, oldest first."},
    {"sync", "[OPTIONS]",
     "Sends every record the central record lacks, now.\n"
     "Exit codes: 0 nothing left to send, 2 the central record could not take them all, 64 a usage error."},
};

const Command *findCommand(const QString &name)
{
    for (const Command &command : commands) {
        if (name == QLatin1String(command.name))
            return &command;
    }
    return nullptr;
}

// A mistake in the command line: one line that names it, and where to read more.
int usageError(const QString &command, const QString &message)
{
    const QString help = findCommand(command) ? QStringLiteral("morvanta-station %1 --help").arg(command)
                                              : QStringLiteral("morvanta-station --help");
    std::fprintf(stderr, "morvanta-station: %s\nTry '%s'.\n", qPrintable(message), qPrintable(help));
    return toInt(ExitCode::Usage);
}

QString overallHelp()
{
    QString text = QStringLiteral("Usage: morvanta-station COMMAND [OPTIONS]\n"
                                  "Lists the Tessel NINEs that dfu-util sees, flashes one of them or every one that comes,\n"
                                  "unattended, and keeps a record of every flash.\n\nCommands:\n");
    for (const Command &command : commands) {
        text += QStringLiteral("  %1 %2\n").arg(QLatin1String(command.name), -8).arg(QLatin1String(command.arguments));
        text += QStringLiteral("      %1\n").arg(QString::fromLatin1(command.summary).section(QLatin1Char('\n'), 0, 0));
    }
    return text + QStringLiteral("\nOptions:\n  --help     this text; after a COMMAND, that command's usage and options\n"
                                 "  --version  the program's name and version\n\n"
                                 "Try 'morvanta-station COMMAND --help' for a command's options.\n");
}

QString commandHelp(const Command &command, const QList<const QCommandLineOption *> &options)
{
    QString text = QStringLiteral("Usage: morvanta-station %1 %2\n%3\n\nOptions:\n")
                       .arg(QLatin1String(command.name), QLatin1String(command.arguments),
                            QString::fromLatin1(command.summary));
    for (const QCommandLineOption *option : options) {
        const QString name = QStringLiteral("--") + option->names().first() +
                             (option->valueName().isEmpty() ? QString() : QLatin1Char(' ') + option->valueName());
        text += QStringLiteral("  %1 %2\n").arg(name, -26).arg(option->description());
    }
    return text;
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

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("morvanta-station"));

    QCommandLineParser parser;
    // Help and version are answered here: each command has its own help.
    const QCommandLineOption help(QStringLiteral("help"), QStringLiteral("This command's options."));
    const QCommandLineOption version(QStringLiteral("version"), QStringLiteral("The program's name and version."));
    parser.addOption(help);
    parser.addOption(version);
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
    const QCommandLineOption station(QStringLiteral("station"),
                                     QStringLiteral("The station's name in its records (default: the host's name); "
                                                    "history: this station's records only."),
                                     QStringLiteral("NAME"));
    const QCommandLineOption operatorId(QStringLiteral("operator"), QStringLiteral("Who flashes, for the records."),
                                        QStringLiteral("ID"));
    const QCommandLineOption order(QStringLiteral("order"),
                                   QStringLiteral("The work order or batch, for the records; history: its records only."),
                                   QStringLiteral("ID"));
    const QCommandLineOption central(QStringLiteral("central"),
                                     QStringLiteral("The plant's central record (PostgreSQL), as a libpq URI; "
                                                    "history: read from there."),
                                     QStringLiteral("URL"));
    const QCommandLineOption http(QStringLiteral("http"),
                                  QStringLiteral("watch: serve the station's page on this address (127.0.0.1 unless "
                                                 "given); MORVANTA_HTTP stands for it."),
                                  QStringLiteral("[ADDR:]PORT"));
    const QCommandLineOption httpToken(QStringLiteral("http-token-file"),
                                       QStringLiteral("watch: the page's token (32 characters or more), asked of "
                                                      "every request; needed on any address but the loopback."),
                                       QStringLiteral("FILE"));
    const QCommandLineOption httpHost(QStringLiteral("http-host"),
                                      QStringLiteral("watch: a further name the page is asked by (repeatable)."),
                                      QStringLiteral("NAME"));
    const QList<const QCommandLineOption *> every{&json,    &csv,       &port,       &portList,    &timeout, &zip,
                                                  &bootLoader, &log,    &historyFile, &serial,     &since,   &station,
                                                  &operatorId, &order,  &central,    &http,        &httpToken, &httpHost};
    for (const QCommandLineOption *option : every)
        parser.addOption(*option);

    const bool parsed = parser.parse(QCoreApplication::arguments());
    const QStringList words = parser.positionalArguments();
    const QString command = words.value(0);
    if (!parsed)
        return usageError(command, parser.errorText());
    if (parser.isSet(version)) {
        std::printf("morvanta-station %s\n", BuildIdentity::appVersion);
        return toInt(ExitCode::Success);
    }
    if (!command.isEmpty() && !findCommand(command))
        return usageError(QString(), QStringLiteral("no command \"%1\": say list, flash, watch, history or sync")
                                         .arg(command));
    const bool flash = command == QLatin1String("flash");
    const bool watch = command == QLatin1String("watch");
    // Each command takes its own options only: a misplaced one is a mistake, not a no-op.
    QList<const QCommandLineOption *> allowed{&json, &log};
    if (flash || watch)
        allowed << &timeout << &zip << &historyFile << &station << &operatorId << &order << &central;
    if (flash)
        allowed << &port << &bootLoader;
    if (watch)
        allowed << &portList << &http << &httpToken << &httpHost;
    if (command == QLatin1String("history"))
        allowed = {&json, &csv, &historyFile, &serial, &since, &station, &order, &central};
    if (command == QLatin1String("sync"))
        allowed = {&json, &historyFile, &central};
    if (parser.isSet(help)) {
        std::fputs(qPrintable(command.isEmpty() ? overallHelp() : commandHelp(*findCommand(command), allowed)), stdout);
        return toInt(ExitCode::Success);
    }
    if (command.isEmpty())
        return usageError(command, QStringLiteral("say a command: list, flash, watch, history or sync"));
    for (const QCommandLineOption *option : every) {
        if (parser.isSet(*option) && !allowed.contains(option))
            return usageError(command, QStringLiteral("%1 takes no --%2").arg(command, option->names().first()));
    }
    bool timeoutOk = false;
    const int seconds = parser.value(timeout).toInt(&timeoutOk);
    QStringList watchedPorts;
    for (const QString &item : parser.value(portList).split(QLatin1Char(','), Qt::SkipEmptyParts))
        if (!watchedPorts.contains(item.trimmed())) // a port named twice is watched once
            watchedPorts << item.trimmed();
    // A name in a record is one line of text.
    for (const QCommandLineOption *option : {&station, &operatorId, &order}) {
        const QString value = parser.value(*option);
        if (parser.isSet(*option) &&
            (value.trimmed().isEmpty() || value.size() > 200 ||
             std::any_of(value.cbegin(), value.cend(), [](QChar c) { return c.category() == QChar::Other_Control; })))
            return usageError(command, QStringLiteral("--%1 takes a name of one line, 1 to 200 characters")
                                          .arg(option->names().first()));
    }
    const QString centralText = parser.isSet(central) ? parser.value(central) : qEnvironmentVariable("MORVANTA_CENTRAL");
    CentralAddress::Problem centralProblem = CentralAddress::Problem::None;
    QString centralWhy;
    const CentralAddress centralAddress = CentralAddress::parse(centralText, &centralProblem, &centralWhy);
    if (centralProblem != CentralAddress::Problem::None && allowed.contains(&central))
        return usageError(command, QStringLiteral("--central %1").arg(centralWhy));
    StationPage::Options pageOptions;
    const QString httpText = parser.isSet(http) ? parser.value(http) : qEnvironmentVariable("MORVANTA_HTTP");
    if (watch && !httpText.isEmpty()) {
        QString why;
        if (!StationPage::parseListen(httpText, &pageOptions.address, &pageOptions.port, &why))
            return usageError(command, why);
        if (parser.isSet(httpToken)) {
            pageOptions.tokenDigest = StationPage::readToken(parser.value(httpToken), &why);
            if (pageOptions.tokenDigest.isEmpty())
                return usageError(command, why);
        } else if (!pageOptions.address.isLoopback()) {
            return usageError(command, QStringLiteral("--http on %1, which other PCs may reach, needs "
                                                     "--http-token-file FILE")
                                          .arg(pageOptions.address.toString()));
        }
        pageOptions.hosts = parser.values(httpHost);
    } else if (parser.isSet(httpToken) || parser.isSet(httpHost)) {
        return usageError(command, QStringLiteral("--http-token-file and --http-host go with --http"));
    }
    if (command == QLatin1String("sync") && !centralAddress.isSet())
        return usageError(command, QStringLiteral("sync needs --central URL (or MORVANTA_CENTRAL)"));
    if ((command == QLatin1String("list") || command == QLatin1String("history") || command == QLatin1String("sync")) &&
        words.size() == 1) {
        if (parser.isSet(json) && parser.isSet(csv))
            return usageError(command, QStringLiteral("say --json or --csv, not both"));
        if (parser.isSet(since) && !StationRecords::sinceDate(parser.value(since)).isValid())
            return usageError(command, QStringLiteral("--since takes a date such as 2026-11-24"));
    } else if (!(flash || watch)) {
        return usageError(command, QStringLiteral("%1 takes no FIRMWARE or other word: \"%2\"").arg(command, words.value(1)));
    } else if (words.size() != 2) {
        return usageError(command, words.size() < 2 ? QStringLiteral("%1 needs one FIRMWARE").arg(command)
                                                    : QStringLiteral("%1 takes one FIRMWARE, not \"%2\" too")
                                                          .arg(command, words.value(2)));
    } else if (!timeoutOk || seconds < 1 || seconds > maxTimeoutSeconds) {
        return usageError(command, QStringLiteral("--timeout takes 1 to %1 seconds").arg(maxTimeoutSeconds));
    } else if (parser.isSet(portList) && watchedPorts.isEmpty()) {
        return usageError(command, QStringLiteral("--ports takes ports such as 1-1,1-2"));
    }

    if (parser.isSet(log)) {
        Log::setFile(parser.value(log));
        qInstallMessageHandler(logMessageHandler);
    } else {
        qInstallMessageHandler(quietHandler);
    }

    const QString historyPath = parser.isSet(historyFile) ? parser.value(historyFile) : FlashHistory::defaultPath();
    if (command == QLatin1String("history")) {
        const auto format = parser.isSet(json)  ? StationRecords::Format::Json
                            : parser.isSet(csv) ? StationRecords::Format::Csv
                                                : StationRecords::Format::Text;
        HistoryFilter filter;
        filter.serial = parser.value(serial);
        filter.since = StationRecords::sinceDate(parser.value(since));
        filter.station = parser.value(station);
        filter.order = parser.value(order);
        return StationRecords::print(historyPath, centralAddress, format, filter);
    }
    if (command == QLatin1String("sync")) {
        StationOutput output(parser.isSet(json));
        return StationRecords::sync(historyPath, centralAddress, output);
    }
    // Written on a thread of its own: a busy history never holds the flashes.
    HistoryWriter history;
    history.setIdentity({parser.value(station), parser.value(operatorId), parser.value(order)});
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
    // Records go to the central record beside the flashes, never in their way; what the
    // server could not take waits in the history for the next run or sync.
    std::unique_ptr<CentralSender> sender;
    bool runEnded = false; // its last line, the result, is printed
    if (centralAddress.isSet()) {
        sender = std::make_unique<CentralSender>(historyPath, centralAddress);
        QObject::connect(sender.get(), &CentralSender::passEnded, &app,
                         [&output, &runEnded, said = QString()](int, int, const QString &error) mutable {
                             // After the result, which a script reads as the last line: on stderr.
                             if (!error.isEmpty() && error != said && runEnded)
                                 std::fprintf(stderr, "morvanta-station: %s\n", qPrintable(error));
                             else if (!error.isEmpty() && error != said)
                                 output.error(error);
                             said = error;
                         });
        QObject::connect(&history, &HistoryWriter::completed, sender.get(), &CentralSender::sendSoon);
        sender->start();
    }
    // The run is over: its record gets a few seconds to reach the server, and a call to a
    // server that does not answer is not waited for.
    const auto exitAfterSending = [&sender, &runEnded](ExitCode code, bool threadsLeft, int waitMs) {
        runEnded = true;
        if (sender) {
            if (waitMs > 0)
                sender->waitUntilSent(waitMs);
            threadsLeft = !sender->stop(1000) || threadsLeft;
        }
        std::fflush(stdout);
        if (threadsLeft)
            std::_Exit(toInt(code));
        QCoreApplication::exit(toInt(code));
    };
    if (watch) {
        StationWatch::Options watchOptions;
        watchOptions.run = options;
        watchOptions.ports = watchedPorts;
        watchOptions.json = parser.isSet(json);
        // The page follows the watch's own events; it is served beside the flashing.
        StationState state(parser.isSet(station) ? parser.value(station) : QSysInfo::machineHostName(),
                           !options.zip);
        state.setWatchedPorts(watchedPorts);
        std::unique_ptr<StationPage> page;
        if (pageOptions.port != 0) {
            state.setToday(StationRecords::countsSince(historyPath, QDate::currentDate().startOfDay()));
            output.setListener([&state](const QJsonObject &event) { state.heard(event); });
            QObject::connect(&history, &HistoryWriter::completed, &app, [&state] { state.recordCompleted(); });
            if (sender)
                QObject::connect(sender.get(), &CentralSender::passEnded, &app,
                                 [&state](int, int left, const QString &error) { state.setCentral(left, error); });
            pageOptions.historyPath = historyPath;
            pageOptions.programVersion = QString::fromLatin1(BuildIdentity::appVersion);
            page = std::make_unique<StationPage>(&state, pageOptions);
            QString why;
            if (!page->start(&why)) {
                output.error(why);
                return toInt(ExitCode::Failed);
            }
            output.stage(QStringLiteral("The station's page: http://%1/").arg(page->where()));
        }
        StationWatch station(&settings, &output, &history, watchOptions);
        QObject::connect(&station, &StationWatch::firmwareReady, &app,
                         [&state](const QString &version, const QStringList &files) { state.setPackage(version, files); });
        QObject::connect(&stopSignals, &StopSignals::stopRequested, &station, &StationWatch::stop);
        // systemctl reload: a new firmware without a restart.
        stopSignals.listenForReload();
        QObject::connect(&stopSignals, &StopSignals::reloadRequested, &station, &StationWatch::reload);
        QObject::connect(&station, &StationWatch::finished, &app,
                         [&exitAfterSending](ExitCode code) { exitAfterSending(code, false, 2000); });
        QTimer::singleShot(0, &station, &StationWatch::start);
        return QCoreApplication::exec();
    }
    // Its record goes first, a few seconds at most, so that the result stays the last line.
    if (sender)
        options.beforeResult = [&sender] { sender->waitUntilSent(5000); };
    StationRun run(&settings, &output, &history, options);
    QObject::connect(&stopSignals, &StopSignals::stopRequested, &run, &StationRun::stop);
    QObject::connect(&run, &StationRun::finished, &app, [&run, &exitAfterSending](ExitCode code) {
        // A thread held by a dead share would keep the process alive at its end.
        exitAfterSending(code, run.leftThreadsBehind(), 0);
    });
    QTimer::singleShot(0, &run, [&run] { run.start(); });
    return QCoreApplication::exec();
}
