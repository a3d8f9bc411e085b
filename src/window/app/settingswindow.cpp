// The full form of Settings, which only the main window makes.
#include "app/settings.h"
#include "ui/dialog.h"

Settings::Settings(Dialog *owner) : QObject(owner)
{
    connect(this, &Settings::settingError, owner, &Dialog::handleSettingError);
    load();
    createExtractFolder();
    if (gpgAvailable)
        prepareGpgFolder();
}
