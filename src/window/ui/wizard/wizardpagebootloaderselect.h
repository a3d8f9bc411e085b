#pragma once

#include "app/errortexts.h"
#include "flash/flasherror.h"
#include "flash/flashtypes.h"

#include <QPointer>
#include <QStringList>
#include <QWizardPage>

namespace Ui {
class WizardPageBootLoaderSelect;
}
class FlashJob;
class QLineEdit;
class Settings;
class Version;

// Takes a boot loader and a firmware, checks them and the device, and shows one flash
// job through boot loader, device restart and firmware. In an automatic wizard it
// finds the boot loader itself, starts by itself, flashes the boot loader alone and
// ends the wizard with a result.
class WizardPageBootLoaderSelect : public QWizardPage
{
    Q_OBJECT
public:
    WizardPageBootLoaderSelect(Settings *settings, bool automatic, const QString &presetBootLoaderFile,
                               bool useZipSearch, QWidget *parent);
    ~WizardPageBootLoaderSelect() override;

    void initializePage() override;
    bool isComplete() const override;

public slots:
    void receivedDownloadedFiles(const QString &bootloaderFile, const QStringList &firmwareFiles);
    void Select();
    void Update();

    void enableAbort();
    void disableAbort();
    void setTotalProgress(int val);
    void setDFUProgress(int val);
    void updateStatus(const QString &status);
    void updateFileLabel(const QString &filename);
    void updateWrittenStatus(long written, long total, bool useByteSize);
    void updateTimeRemaining(int seconds);
    void resetWrittenStatus();
    void showMsgBox(ErrorTexts::errorLevel level, const QString &text);
    void exitSlot(ExitCode code);
    void breakFlashingAfterBootloader();

private:
    void resetDisplay();
    bool askForFile(const QString &title, QLineEdit *line, const QString &internalFolder, const QString &filter);
    void checkFiles();
    void findBootLoader();
    void toggleFlash();
    void startFlashing();
    void flashError(const FlashError &error);
    void flashEnded(FlashOutcome outcome);
    void setWizardButtonEnabled(int which, bool enabled);

    Ui::WizardPageBootLoaderSelect *ui;
    Settings *settings;
    bool flashing = false;
    bool waitingForDevice = false;
    bool inUpdateMode = false; // the device waits in DFU mode
    Version *version;
    QPointer<FlashJob> job; // the flash under way
    QStringList flashFiles;
    const bool automatic;
    const QString presetBootLoaderFile;
    const bool useZipSearch;
};
