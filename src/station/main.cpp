// morvanta-station: the console front end for production stations. It lists the Tessel
// NINEs that dfu-util sees and flashes one of them, unattended, with output a script can
// read; any number of runs at once, one per device. No display, no boxes, no questions.
#include "stationoutput.h"
#include "stationrun.h"

#include "app/errortexts.h"
#include "app/log.h"
#include "app/settings.h"
#include "app/toolrun.h"
#include "firmware/devicelisting.h"
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
    return 64;
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
    return 0;
}
} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("morvanta-station"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Lists the Tessel NINEs that dfu-util sees, or flashes one of them unattended.\n"
        "  list                          every Tessel NINE: port, mode, version, serial\n"
        "  flash [options] FIRMWARE      FIRMWARE: one file of a pair, or a folder (its newest)\n"
        "Exit codes of flash: 0 flashed and verified, 2 failed, 1 stopped by SIGINT or SIGTERM,\n"
        "64 a usage error."));
    parser.addHelpOption();
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("One JSON object per line, nothing else."));
    const QCommandLineOption port(QStringLiteral("port"), QStringLiteral("The device on this USB port (dfu-util's path)."),
                                  QStringLiteral("PATH"));
    const QCommandLineOption timeout(QStringLiteral("timeout"), QStringLiteral("Time limit of a flash."),
                                     QStringLiteral("SECONDS"), QStringLiteral("600"));
    const QCommandLineOption zip(QStringLiteral("zip"), QStringLiteral("Plain zip files, without signatures."));
    const QCommandLineOption bootLoader(QStringLiteral("bootloader"),
                                        QStringLiteral("Flash this boot loader first, then the firmware."),
                                        QStringLiteral("BLFILE"));
    const QCommandLineOption log(QStringLiteral("log"), QStringLiteral("Write the run's log to this file."),
                                 QStringLiteral("FILE"));
    parser.addOptions({json, port, timeout, zip, bootLoader, log});
    parser.addPositionalArgument(QStringLiteral("command"), QStringLiteral("list or flash"));

    if (!parser.parse(QCoreApplication::arguments()))
        return usageError(parser, parser.errorText());
    if (parser.isSet(QStringLiteral("help"))) {
        std::fputs(qPrintable(parser.helpText()), stdout);
        return 0;
    }
    const QStringList words = parser.positionalArguments();
    const QString command = words.value(0);
    bool timeoutOk = false;
    const int seconds = parser.value(timeout).toInt(&timeoutOk);
    if (command == QLatin1String("list") && words.size() == 1) {
        // list takes --json only
    } else if (command != QLatin1String("flash") || words.size() != 2) {
        return usageError(parser, QStringLiteral("say \"list\", or \"flash\" and one FIRMWARE"));
    } else if (!timeoutOk || seconds < 1 || seconds > maxTimeoutSeconds) {
        return usageError(parser, QStringLiteral("--timeout takes 1 to %1 seconds").arg(maxTimeoutSeconds));
    }

    if (parser.isSet(log)) {
        Log::setFile(parser.value(log));
        qInstallMessageHandler(logMessageHandler);
    } else {
        qInstallMessageHandler(quietHandler);
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
        return 2;
    }
    output.setSigned(!parser.isSet(zip));
    options.zip = parser.isSet(zip);
    options.timeoutSeconds = seconds;
    StationRun run(&settings, &output, options);

    StopSignals stopSignals;
    if (!stopSignals.isValid())
        return 2;
    QObject::connect(&stopSignals, &StopSignals::stopRequested, &run, &StationRun::stop);
    QObject::connect(&run, &StationRun::finished, &app, [&run](int code) {
        // A thread held by a dead share would keep the process alive at its end.
        if (run.leftThreadsBehind()) {
            std::fflush(stdout);
            std::_Exit(code);
        }
        QCoreApplication::exit(code);
    });
    QTimer::singleShot(0, &run, &StationRun::start);
    return QCoreApplication::exec();
}
