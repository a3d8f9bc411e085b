#pragma once

#include "app/errortexts.h"
#include "app/searchoptions.h"

#include <QObject>

class Settings;
class SWCheckIntern;

// In internal mode, looks for a newer program on the internal share in the background,
// and offers to hand over to the separate updater.
class SWCheck : public QObject
{
    Q_OBJECT
public:
    SWCheck(Settings *settings, SearchOptions options, QObject *parent);
    ~SWCheck() override;

    void checkForNewVersion();

signals:
    void sigMsgBox(ErrorTexts::errorLevel level, QString text);

public slots:
    void internalNewVersion();
    void internalVersionKeyError();
    void swInternFinished();

private:
    void abandonCheck();

    SWCheckIntern *swCheckIntern = nullptr;
    Settings *settings;
    SearchOptions options;
};
