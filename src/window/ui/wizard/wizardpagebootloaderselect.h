#pragma once

#include "app/errortexts.h"
#include "app/flashrecording.h"

#include <QPointer>
#include <QStringList>
#include <QWizardPage>

namespace Ui {
class WizardPageBootLoaderSelect;
}
class DFUThread;
class QLineEdit;
class Settings;
class Version;

// Takes a boot loader and a firmware, checks them and the device, and drives one
// DFUThread through boot loader, device restart and firmware. In an automatic wizard
// it finds the boot loader itself, starts by itself, and ends the wizard with a result.
class WizardPageBootLoaderSelect : public QWizardPage
{
    Q_OBJECT
public:
    WizardPageBootLoaderSelect(Settings *settings, bool automatic, const QString &presetBootLoaderFile,
                               bool useZipSearch, QWidget *parent);
    ~WizardPageBootLoaderSelect() override;

    void initializePage() override;
    bool isComplete() const override;

signals:
    void continueFlashingAfterBootLoader();
    void abortFlashingAfterBootLoader();

public slots:
    void receivedDownloadedFiles(const QString &bootloaderFile, const QStringList &firmwareFiles);
    void Select();
    void Update();

    void enableAbort();
    void disableAbort();
    void externProcessesFinished();
    void setTotalProgress(int val);
    void setDFUProgress(int val);
    void updateStatus(const QString &status);
    void updateFileLabel(const QString &filename);
    void updateWrittenStatus(long written, long total, bool useByteSize);
    void updateTimeRemaining(const QString &min, const QString &sec);
    void resetWrittenStatus();
    void showMsgBox(ErrorTexts::errorLevel level, const QString &text);
    void errorOutputSlot(const QString &errorSpec);
    void exitSlot(int err);
    void breakFlashingAfterBootloader();

private:
    void resetDisplay();
    bool askForFile(const QString &title, QLineEdit *line, const QString &internalFolder, const QString &filter);
    void checkFiles();
    void findBootLoader();
    void toggleFlash();
    void startFlashing();
    void disposeWorker();
    void setWizardButtonEnabled(int which, bool enabled);

    Ui::WizardPageBootLoaderSelect *ui;
    Settings *settings;
    bool flashing = false;
    bool waitingForDevice = false;
    bool inUpdateMode = false; // the device waits in DFU mode
    FlashRecording recording;
    bool userAborted = false;
    Version *version;
    DFUThread *worker = nullptr;
    QPointer<DFUThread> retiring; // told to stop, may still be leaving the extract folder
    bool startPending = false;
    QStringList flashFiles;
    const bool automatic;
    const QString presetBootLoaderFile;
    const bool useZipSearch;
};
