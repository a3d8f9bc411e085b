#pragma once

#include "app/errortexts.h"
#include "app/exitcode.h"
#include "app/searchoptions.h"
#include "download/filedownloader.h"
#include "firmware/fileverify.h"
#include "flash/flasherror.h"
#include "flash/flashtypes.h"
#include "windowquestions.h"

#include <QDialog>

#include <functional>
#include <memory>
#include <QStringList>

namespace Ui {
class Dialog;
}
class FlashJob;
class MyMenu;
class MySelectionList;
class SWCheck;
class USBDetector;
class USBWriteThread;
class XMODEMthread;
class Settings;
class Version;

// The program's one window: it owns the settings, the device query and the jobs, turns
// their signals into labels and boxes, and locks its controls while a job runs.
// The frame lives in dialog.cpp, each flow in a dialog_<flow>.cpp of its own.
class Dialog : public QDialog
{
    Q_OBJECT
public:
    Dialog(SearchOptions options, bool dfuMissing, QWidget *parent);
    ~Dialog() override;

    Settings *getSettings() const { return settings; }
    // Where the USB stick flow finds its drives; the platform's removable drives unless
    // someone hands in others.
    void setRemovableDriveSource(std::function<QStringList()> source);

    // Unattended runs
    void startAutomatic();
    // Runs the automatic boot loader wizard to its end; its result is the exit code.
    int startAutomaticBootLoader(const QString &useFile);

public slots:
    void handleSettingError();

    void showMsgBox(ErrorTexts::errorLevel level, const QString &text);
    void updateStatus(const QString &status);
    void setTotalProgress(int val);
    void setDFUProgress(int val);
    void setProgressBar(int done, int max);
    void setNetSearchText(const QString &text);
    void setDefaultNetSearchText();
    void updateWrittenStatus(long written, long total, bool useByteSize);

    // Activity slots of the workers
    void lenableAbort();
    void ldisableAbort();

    // USB cable flow of the Tessel NINE
    void slotLocalSearchTesselNINE();
    void slotUpdateTesselNINE();

    // USB cable flow of the Brio Mel
    void slotLocalSearchBrioMel();
    void slotUpdateBrioMel();
    void startUsbDetection();
    void setBrioMelDetected(bool detected);
    void abortXmodem();
    void userAbortXmodem();

    // USB stick
    void slotUSBExtractSearchTesselNINE();
    void slotUSBWriteTesselNINE();
    void ExtractToDestination(const QString &outdir);
    void NoExtractDestination();
    void extractEnableAbort();
    void extractDisableAbort();

    // Downloads
    void slotDownloadTesselNINE();
    void slotDownloadBrioMel();
    void finishedDownload(const QStringList &fwfiles, const QString &storeDir,
                          FileDownloader::FirmwareDownloadOption option);
    void abortNetSearch();
    void abortNetSearch(const QString &text);
    void initializedDownload();
    void startedDownload();

    void exitDfuInternalAutomaticOK(ExitCode code);
    void exitInternalAutomatic(ExitCode code);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private slots:
    void adv_bootloader();
    void tabTesselNINEModesChanged(int index);
    void tabDevicesChanged(int index);
    void questionLanguageRestart();
    void checkHttpChanged();

private:
    // Where a firmware to check came from: the cable tab's search, a download, the USB stick tab.
    enum class FirmwareOrigin { CableSearch, Download, UsbDrive };

    void setUpTabs();
    void setUpMenu();
    // A job holds the extract folder or the device: from the click that starts it (or
    // its worker's first signal) until its ending. While one does, no other may start.
    bool jobRunning() const;
    // A job has locked the window and not yet freed it.
    bool windowLocked() const { return flashing || usbWriting || downloading || downloader; }
    // Whatever could still start another job from before goes: the drive list.
    void jobStarts();
    void disableTab();
    void enableTabs();
    void resetStatus();
    void setBootLoaderActionEnabled(bool enabled);
    void showAbortedStatus();
    void restoreSearchButtonText();

    void checkFirmware(FirmwareOrigin origin, Fileverify::Device device);
    void checkDevice(FirmwareOrigin origin);
    void rejectFirmware();
    bool recheckDevice();
    // Reads the selected firmware's and the device's versions and shows them; false: no device.
    bool askDevice();
    void showDeviceVersion(const QString &selected, bool selectedHasV, const QString &current, bool currentHasV);
    void startFlash();
    void startOrAbortFlash();
    void startFlashJob();
    void flashError(const FlashError &error);
    void flashEnded(FlashOutcome outcome);
    void finishAborted();
    void disposeUsbWriteThread();
    void slotDownload(bool expert);
    void startDownload(const QString &userIdentifier);
    void disposeDownloader(bool abort);
    void resetDownloadControls();
    void stopWorkers();
    void disposeXmodemThread();
    void disposeUsbDetector();

    Ui::Dialog *ui;
    WindowQuestions questions{this}; // what the engine asks, asked by this window
    Settings *settings = nullptr;
    bool usedZipSearch = false;
    bool dfuMissing;
    SWCheck *swCheck = nullptr;
    MyMenu *menu = nullptr;
    Version *version = nullptr;
    FlashJob *flashJob = nullptr; // the cable flash under way
    XMODEMthread *xmodemThread = nullptr;
    USBDetector *usbDetector = nullptr;
    FileDownloader *downloader = nullptr;
    USBWriteThread *usbWriteThread = nullptr;
    MySelectionList *driveList = nullptr;
    std::function<QStringList()> removableDrives;
    bool wizardOpen = false;
    QString deviceVersion;
    QStringList firmwareFiles;
    int versionCompare = 0;
    bool deviceInUpdateMode = false; // no version to compare: the device waits in DFU mode
    bool flashing = false;
    bool downloading = false;
    bool usbWriting = false;
    bool deviceMissing = false;
    SearchOptions options;
    int bootLoaderRev = 0;
};
