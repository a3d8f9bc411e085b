#include "errortexts.h"

QString ErrorTexts::caption(errorLevel level)
{
    switch (level) {
    case Error:
        return tr("ERROR");
    case Warning:
        return tr("WARNING");
    case Info:
        return tr("INFO");
    case Welcome:
        return tr("WELCOME");
    }
    return tr("ERROR");
}

QString ErrorTexts::flashingFailed(const QString &toolError)
{
    return flashingNotCompleted() + QLatin1String("\n\n") + toolError + QLatin1Char('\n') + moreInformation();
}

QString ErrorTexts::deviceNotConnected()
{
    return tr("Device is not connected");
}

QString ErrorTexts::noPermission()
{
    return tr("No permission to open the USB device. The udev rule 70-morvanta.rules of the Morvanta package grants "
              "it to the logged-in user: install the package, then plug the device in again.");
}

QString ErrorTexts::deviceNotConnected(bool accessDenied)
{
    return accessDenied ? deviceNotConnected() + QLatin1String("\n\n") + noPermission() : deviceNotConnected();
}

QString ErrorTexts::processAborted()
{
    return tr("Process aborted! Perform device restart before flashing again");
}

QString ErrorTexts::flashingNotCompleted()
{
    return tr("Flashing not completed");
}

QString ErrorTexts::processWillBeAborted()
{
    return tr("Process will be aborted! This might take a few seconds.");
}

QString ErrorTexts::moreInformation()
{
    return tr("You can get more information from the manual\n\nPlease perform device restart before flashing again");
}
