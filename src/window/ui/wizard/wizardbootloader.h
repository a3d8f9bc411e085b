#pragma once

#include "download/filedownloader.h"

#include <QWizard>

class Settings;

// Leads through a boot loader update: the warning, the choice, the download of a
// boot loader with matching firmware, and the two-stage flash. An automatic wizard
// has the flash page alone. Escape never cancels it.
class WizardBootLoader : public QWizard
{
    Q_OBJECT
public:
    enum PageId { Intro = 0, Choose = 1, Download = 2, Select = 3 };

    WizardBootLoader(Settings *settings, bool automatic, const QString &presetBootLoaderFile,
                     FileDownloader::Protocol protocol, bool useZipSearch, QWidget *parent);

protected:
    void keyPressEvent(QKeyEvent *event) override;

private:
    Settings *settings;
};
