#pragma once

#include "searchoptions.h"

#include <QString>

// What the command line asked for, before it is checked.
struct CommandLine {
    QString titleTag;
    bool help = false;
    bool automatic = false;
    bool debug = false;
    bool bootloader = false;
    bool useZip = false;
    QString searchPath;
    QString useFile;

    SearchOptions toSearchOptions() const;
};

QString usageText();

// Reads the options with getopt_long from where it stands, logging each option as it
// is met. Stops at -h: options behind it are not looked at.
CommandLine parseCommandLine(int argc, char **argv);

// The first rule the options break, or an empty string.
QString validateCommandLine(const CommandLine &line, bool dfuMissing);
