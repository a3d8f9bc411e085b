#pragma once

#include "app/searchoptions.h"

#include <QString>

class QWidget;
class Settings;

// Chooses the firmware to flash, by dialog or, in automatic mode, by folder; the
// choice is stored as the search path of settings. False: nothing was found.
bool selectFirmware(QWidget *parent, const QString &caption, Settings *settings, bool deviceMissing,
                    const SearchOptions &options, bool useZipSearch, bool usedZipSearch);

// Asks for a firmware file by dialog and stores the answer, empty or not, as the
// search path of settings.
void chooseFirmwareFile(QWidget *parent, const QString &caption, Settings *settings, const SearchOptions &options,
                        bool useZipSearch);
