#pragma once

#include <QString>

// The command line as the window gets it.
struct SearchOptions {
    bool internal = false;
    bool automatic = false;
    bool debug = false;
    bool useZip = false;
    QString searchPath;
    QString useFile;
};
