#include "commandline.h"

#include <QtDebug>

#include <getopt.h>

SearchOptions CommandLine::toSearchOptions() const
{
    SearchOptions options;
    options.internal = true;
    options.automatic = automatic;
    options.debug = debug;
    options.useZip = useZip;
    options.searchPath = searchPath;
    options.useFile = useFile;
    return options;
}

QString usageText()
{
    return QStringLiteral("usage: %1\n"
                          "          |-h       | show this help menue\n"
                          "          |-p path  | Path to search for files\n"
                          "          |-z       | Use zip files\n"
                          "          |-a       | automatic mode active\n"
                          "          |-d       | flash latest debug image (only in automatic mode)\n"
                          "          |-b       | flash latest bootloader (only in automatic mode)\n"
                          "          |-f file  | Full file path to use (only in automatic mode)\n")
        .arg(QStringLiteral("Morvanta"));
}

CommandLine parseCommandLine(int argc, char **argv)
{
    static const struct option longOptions[] = {
        {"help", no_argument, nullptr, 'h'},
        {"automatic", no_argument, nullptr, 'a'},
        {"zipfiles", no_argument, nullptr, 'z'},
        {"debug", no_argument, nullptr, 'd'},
        {"bootloader", no_argument, nullptr, 'b'},
        {"internalSearchPath", required_argument, nullptr, 'p'},
        {"internalFilePath", required_argument, nullptr, 'f'},
        {nullptr, 0, nullptr, 0},
    };

    CommandLine line;
    int option;
    while ((option = getopt_long(argc, argv, "hazdbp:f:", longOptions, nullptr)) != -1) {
        switch (option) {
        case 'h':
            line.help = true;
            return line;
        case 'a':
            qDebug() << "Internal Automatic Mode";
            line.titleTag = QStringLiteral("(Internal Automatic) ");
            line.automatic = true;
            break;
        case 'z':
            qDebug() << "Use zip files";
            line.useZip = true;
            break;
        case 'd':
            qDebug() << "Internal Automatic Mode - Debug";
            line.titleTag = QStringLiteral("(Internal Automatic - Debug) ");
            line.debug = true;
            break;
        case 'b':
            qDebug() << "Internal Automatic Mode - Bootloader";
            line.titleTag = QStringLiteral("(Internal Automatic - Bootloader) ");
            line.bootloader = true;
            break;
        case 'p':
            line.searchPath = QString::fromUtf8(optarg);
            break;
        case 'f':
            line.useFile = QString::fromUtf8(optarg);
            break;
        default:
            // getopt_long has said what it found wrong; the rest still counts.
            break;
        }
    }
    return line;
}

QString validateCommandLine(const CommandLine &line, bool dfuMissing)
{
    if (line.automatic && line.debug && line.bootloader)
        return QStringLiteral("Only one automatic mode possible");
    if ((line.debug || line.bootloader) && !line.automatic)
        return QStringLiteral("Debug or Bootloader only if automatic mode is active");
    if (line.debug && !line.useFile.isEmpty())
        return QStringLiteral("Use Debug option only without useFile option");
    if (!line.searchPath.isEmpty() && !line.useFile.isEmpty())
        return QStringLiteral("Use either file or search path option");
    if (line.automatic && dfuMissing)
        return QStringLiteral("Automatic mode without DFU support is not possible");
    return QString();
}
