#include "wizardpagebootloaderselect.h"
#include "ui_wizardpagebootloaderselect.h"

#include "ui/breakflash.h"
#include "ui/dialogquestions.h"
#include "flash/retireworker.h"

#include "app/logstream.h"
#include "app/settings.h"
#include "firmware/fileverify.h"
#include "firmware/version.h"
#include "flash/dfuthread.h"

#include <QAbstractButton>
#include <QCoreApplication>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QWizard>
#include <QtDebug>

WizardPageBootLoaderSelect::WizardPageBootLoaderSelect(Settings *settings, bool automatic,
                                                       const QString &presetBootLoaderFile, bool useZipSearch,
                                                       QWidget *parent)
    : QWizardPage(parent), ui(new Ui::WizardPageBootLoaderSelect), settings(settings),
      version(new Version(settings, this)), automatic(automatic), presetBootLoaderFile(presetBootLoaderFile),
      useZipSearch(useZipSearch)
{
    ui->setupUi(this);
    connect(ui->buttonSelect, &QPushButton::clicked, this, &WizardPageBootLoaderSelect::Select);
    connect(ui->buttonUpdate, &QPushButton::clicked, this, &WizardPageBootLoaderSelect::Update);
    Version::listDevices(settings);
}

WizardPageBootLoaderSelect::~WizardPageBootLoaderSelect()
{
    // No tool outlives the wizard: the worker is told to stop and waited for.
    disposeWorker();
    if (retiring)
        retiring->wait(5000);
    delete ui;
}

bool WizardPageBootLoaderSelect::isComplete() const
{
    return ui->progressBar->value() == 100;
}

void WizardPageBootLoaderSelect::setWizardButtonEnabled(int which, bool enabled)
{
    if (QAbstractButton *button = wizard() ? wizard()->button(QWizard::WizardButton(which)) : nullptr)
        button->setEnabled(enabled);
}

void WizardPageBootLoaderSelect::resetDisplay()
{
    for (QLabel *label : {ui->fileLabel, ui->statusLabel, ui->writtenStatus, ui->remainingLabel})
        label->clear();
    ui->dfuProgress->setValue(0);
    ui->progressBar->setValue(0);
}

void WizardPageBootLoaderSelect::initializePage()
{
    flashing = false;
    waitingForDevice = false;
    flashFiles.clear();
    resetDisplay();
    settings->createExtractFolder();
    ui->buttonUpdate->setEnabled(false);
    if (automatic)
        findBootLoader();
    if (!ui->line_bootloaderfile->text().isEmpty())
        checkFiles();
}

void WizardPageBootLoaderSelect::receivedDownloadedFiles(const QString &bootloaderFile, const QStringList &firmwareFiles)
{
    ui->line_bootloaderfile->setText(bootloaderFile);
    ui->line_firmwarefile->setText(firmwareFiles.value(0));
}

void WizardPageBootLoaderSelect::findBootLoader()
{
    if (!presetBootLoaderFile.isEmpty()) {
        ui->line_bootloaderfile->setText(presetBootLoaderFile);
        return;
    }
    const QString folder = Settings::getNetworkBootloaderFolder();
    const QStringList names = QDir(folder).entryList();
    for (auto it = names.crbegin(); it != names.crend(); ++it) {
        if (!it->contains(QLatin1String("BL.zip")) || it->contains(QLatin1String(".md5")))
            continue;
        const QFileInfo info(folder + QLatin1Char('/') + *it);
        if (info.isSymLink() && QFileInfo(info.symLinkTarget()).isFile()) {
            ui->line_bootloaderfile->setText(info.symLinkTarget());
            return;
        }
        if (info.isFile() && !info.isSymLink()) {
            ui->line_bootloaderfile->setText(info.absoluteFilePath());
            return;
        }
    }
}

void WizardPageBootLoaderSelect::Select()
{
    if (waitingForDevice) {
        checkFiles();
        return;
    }
    if (askForFile(tr("Select boot loader file"), ui->line_bootloaderfile, Settings::getNetworkBootloaderFolder(),
                   settings->getBootloaderFilter(useZipSearch)) &&
        askForFile(tr("Select firmware file"), ui->line_firmwarefile, Settings::getNetworkFirmwareFolder(),
                   settings->getFirmwareFilter(useZipSearch)))
        checkFiles();
}

bool WizardPageBootLoaderSelect::askForFile(const QString &title, QLineEdit *line, const QString &internalFolder,
                                            const QString &filter)
{
    QString start = internalFolder;
    if (settings->getValue(QStringLiteral("mode")) != QLatin1String("internal"))
        start = settings->getSearchPath().isEmpty() ? QDir::homePath()
                                                    : QFileInfo(settings->getSearchPath()).canonicalPath();
    const QString chosen = QFileDialog::getOpenFileName(this, title, start, filter);
    line->setText(chosen);
    if (chosen.isEmpty()) {
        resetDisplay();
        ui->buttonUpdate->setEnabled(false);
        return false;
    }
    settings->setSearchPath(chosen);
    return true;
}

void WizardPageBootLoaderSelect::checkFiles()
{
    flashFiles.clear();
    const QString bootLoader = ui->line_bootloaderfile->text();
    const auto refuse = [this](const QString &text) {
        ui->buttonUpdate->setEnabled(false);
        waitingForDevice = false;
        showMsgBox(ErrorTexts::Error, text);
    };
    if (!isBootLoaderFile(bootLoader)) {
        refuse(tr("Selected file is no boot loader\nfile or does not exist!"));
        return;
    }
    flashFiles << bootLoader;
    if (!automatic) {
        Fileverify verify(ui->line_firmwarefile->text());
        const int result = verify.verify(Fileverify::TesselNINE);
        if (result != Fileverify::FilesFound) {
            refuse(Fileverify::resultText(result));
            return;
        }
        flashFiles << verify.getFlashFiles();
    }

    QString bootLoaderName = bootLoader, firmwareName = ui->line_firmwarefile->text();
    bool hasV = false;
    const QString bootLoaderVersion = Version::fileVersion(bootLoaderName, Settings::getTesselNINEName(), &hasV);
    const QString firmwareVersion = Version::fileVersion(firmwareName, Settings::getTesselNINEName(), &hasV);
    bool found = false;
    version->getDeviceVersion(&found, &hasV);
    inUpdateMode = !found && version->isInUpdateMode();
    found = found || inUpdateMode;
    ui->fileLabel->setText(tr("Selected Boot Loader version  ") + bootLoaderVersion);
    ui->writtenStatus->setText(tr("Selected Firmware version       ") + firmwareVersion);
    waitingForDevice = !found;
    ui->buttonUpdate->setEnabled(found);
    if (found) {
        ui->statusLabel->setText(inUpdateMode ? tr("The device waits in update mode: an earlier flash did not end")
                                              : tr("Device is connected"));
        ui->buttonSelect->setText(tr("Select..."));
        if (automatic)
            Update();
        return;
    }
    ui->statusLabel->setText(ErrorTexts::deviceNotConnected());
    ui->buttonSelect->setText(tr("Connect"));
    if (automatic)
        showMsgBox(ErrorTexts::Error, ErrorTexts::deviceNotConnected(version->isAccessDenied()));
}

void WizardPageBootLoaderSelect::Update()
{
    if (flashing) {
        // The run may end while the question is open: then there is nothing to abort.
        if (!DialogQuestions::questionAbortBootLoader() || !flashing)
            return;
        ui->statusLabel->setText(ErrorTexts::processWillBeAborted());
        ui->buttonUpdate->setEnabled(false);
    }
    toggleFlash();
}

void WizardPageBootLoaderSelect::toggleFlash()
{
    if (worker && worker->isRunning()) {
        userAborted = true;
        worker->abortByUser();
        return;
    }
    if (flashing)
        return;
    if (inUpdateMode && !DialogQuestions::questionRecoverDevice(automatic))
        return;
    disposeWorker();
    startFlashing();
}

void WizardPageBootLoaderSelect::disposeWorker()
{
    if (DFUThread *stillRunning = retireWorker(worker, this, &DFUThread::abortByUser))
        retiring = stillRunning;
}

void WizardPageBootLoaderSelect::startFlashing()
{
    if (deferUntilGone(retiring, this, startPending, [this] { startFlashing(); }))
        return;
    resetDisplay();
    settings->createExtractFolder();
    ui->dfuProgress->setMaximum(100);
    disposeWorker();
    // Revision 0: the small transfer size for both stages of a boot loader run.
    worker = new DFUThread(settings, 1, flashFiles, 0, useZipSearch, automatic, nullptr);
    // Recorded first: an automatic run ends the program in the next slot of the exit code.
    userAborted = false;
    recording.begin(worker, *version, QString(), flashFiles.value(0), settings->isGpgAvailable() && !useZipSearch,
                    inUpdateMode);
    connect(worker, &DFUThread::exitCode, this, [this](int code) { recording.end(code, userAborted); });
    connect(worker, &DFUThread::sigenableAbort, this, &WizardPageBootLoaderSelect::enableAbort);
    connect(worker, &DFUThread::sigdisableAbort, this, &WizardPageBootLoaderSelect::disableAbort);
    connect(worker, &DFUThread::externalProcessesFinished, this, &WizardPageBootLoaderSelect::externProcessesFinished);
    connect(worker, &DFUThread::updateProgress, this, &WizardPageBootLoaderSelect::setTotalProgress);
    connect(worker, &DFUThread::updateDFUProgress, this, &WizardPageBootLoaderSelect::setDFUProgress);
    connect(worker, &DFUThread::updateStatus, this, &WizardPageBootLoaderSelect::updateStatus);
    connect(worker, &DFUThread::updateFileLabel, this, &WizardPageBootLoaderSelect::updateFileLabel);
    connect(worker, &DFUThread::updateWrittenStatus, this, &WizardPageBootLoaderSelect::updateWrittenStatus);
    connect(worker, &DFUThread::timeRemaining, this, &WizardPageBootLoaderSelect::updateTimeRemaining);
    connect(worker, &DFUThread::resetWrittenStatus, this, &WizardPageBootLoaderSelect::resetWrittenStatus);
    connect(worker, &DFUThread::msgboxErrorSignal, this, &WizardPageBootLoaderSelect::showMsgBox);
    connect(worker, &DFUThread::errorOutputSignal, this, &WizardPageBootLoaderSelect::errorOutputSlot);
    connect(worker, &DFUThread::exitCode, this, &WizardPageBootLoaderSelect::exitSlot);
    connect(worker, &DFUThread::breakFlashing, this, &WizardPageBootLoaderSelect::breakFlashingAfterBootloader);
    connect(this, &WizardPageBootLoaderSelect::continueFlashingAfterBootLoader, worker, &DFUThread::continueFlashing);
    connect(this, &WizardPageBootLoaderSelect::abortFlashingAfterBootLoader, worker, &DFUThread::abortFlashing);
    worker->start(QThread::InheritPriority);
}

void WizardPageBootLoaderSelect::breakFlashingAfterBootloader()
{
    if (automatic) {
        qDebug() << "Automatic Bootloader update completed";
        emit continueFlashingAfterBootLoader();
        return;
    }
    BreakFlash restart(settings, nullptr);
    if (restart.exec() != 0) {
        emit continueFlashingAfterBootLoader();
        return;
    }
    emit abortFlashingAfterBootLoader();
    ui->statusLabel->setText(ErrorTexts::processWillBeAborted());
    ui->buttonUpdate->setEnabled(false);
    // The worker waits at the break; its abort ends in externProcessesFinished.
    if (worker)
        worker->abortByUser();
}

void WizardPageBootLoaderSelect::enableAbort()
{
    flashing = true;
    ui->buttonUpdate->setText(tr("Abort"));
    ui->buttonSelect->setEnabled(false);
    for (int which : {QWizard::FinishButton, QWizard::CancelButton, QWizard::BackButton})
        setWizardButtonEnabled(which, false);
}

void WizardPageBootLoaderSelect::disableAbort()
{
    flashing = false;
    ui->buttonUpdate->setText(tr("Update"));
    ui->buttonSelect->setEnabled(true);
    setWizardButtonEnabled(QWizard::CancelButton, true);
    setWizardButtonEnabled(QWizard::BackButton, true);
}

void WizardPageBootLoaderSelect::exitSlot(int err)
{
    if (automatic) {
        // The wizard's result is the program's exit code; the exit also closes a box
        // that may stand open, so the run ends by itself.
        wizard()->setResult(err);
        QCoreApplication::exit(0);
        return;
    }
    if (err == 0)
        setWizardButtonEnabled(QWizard::FinishButton, true);
}

void WizardPageBootLoaderSelect::externProcessesFinished()
{
    Version::listDevices(settings);
    if (!flashing) {
        // The worker had not yet said it could be aborted: its run is cleared away for a new one.
        disposeWorker();
        startFlashing();
        return;
    }
    disposeWorker();
    showMsgBox(ErrorTexts::Error, ErrorTexts::flashingNotCompleted());
    resetDisplay();
    ui->statusLabel->setText(ErrorTexts::processAborted());
    settings->createExtractFolder();
    disableAbort();
    ui->buttonUpdate->setEnabled(true);
}

void WizardPageBootLoaderSelect::showMsgBox(ErrorTexts::errorLevel level, const QString &text)
{
    ErrorTexts::execMessageBox(level, text);
    if (automatic && level == ErrorTexts::Error)
        exitSlot(2);
}

void WizardPageBootLoaderSelect::errorOutputSlot(const QString &errorSpec)
{
    qWarning() << quoted(errorSpec);
    showMsgBox(ErrorTexts::Error, ErrorTexts::flashingFailed(errorSpec));
}

void WizardPageBootLoaderSelect::setTotalProgress(int val)
{
    ui->progressBar->setValue(val);
}

void WizardPageBootLoaderSelect::setDFUProgress(int val)
{
    ui->dfuProgress->setValue(val);
}

void WizardPageBootLoaderSelect::updateStatus(const QString &status)
{
    ui->statusLabel->setText(status);
}

void WizardPageBootLoaderSelect::updateFileLabel(const QString &filename)
{
    ui->fileLabel->setText(filename);
}

void WizardPageBootLoaderSelect::updateWrittenStatus(long written, long total, bool useByteSize)
{
    ui->writtenStatus->setText((useByteSize ? tr("Bytes written ") : tr("KBytes written ")) + QString::number(written) +
                               QLatin1Char('/') + QString::number(total));
}

void WizardPageBootLoaderSelect::updateTimeRemaining(const QString &min, const QString &sec)
{
    ui->remainingLabel->setText(min + QLatin1Char(':') + sec);
}

void WizardPageBootLoaderSelect::resetWrittenStatus()
{
    ui->writtenStatus->clear();
}
