#include "wizardpagebootloaderselect.h"
#include "ui_wizardpagebootloaderselect.h"

#include "ui/breakflash.h"
#include "ui/dialogquestions.h"

#include "app/settings.h"
#include "app/windowflash.h"
#include "firmware/fileverify.h"
#include "firmware/version.h"
#include "flash/flashjob.h"
#include "flash/flashtexts.h"

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
    // No tool outlives the wizard: a job under way stops, and waits for its tools.
    delete job;
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
        const Fileverify::Result result = verify.verify(Fileverify::Device::TesselNINE);
        if (result != Fileverify::Result::FilesFound) {
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
    if (job) {
        job->stop();
        return;
    }
    if (flashing)
        return;
    if (inUpdateMode && !DialogQuestions::questionRecoverDevice(automatic))
        return;
    startFlashing();
}

void WizardPageBootLoaderSelect::startFlashing()
{
    resetDisplay();
    settings->createExtractFolder();
    ui->dfuProgress->setMaximum(100);
    // The device checkFiles() found; revision 0, the small transfer size, for both stages.
    FlashJob::Options flash = windowFlashOptions(*settings, *version, flashFiles, useZipSearch);
    flash.mode = automatic ? FlashMode::BootLoaderOnly : FlashMode::BootLoaderFirst;
    job = new FlashJob(settings, flash, this);
    // Queued, as a worker's signals are: a box opened for one lets the next one in.
    constexpr auto queued = Qt::QueuedConnection;
    connect(job, &FlashJob::started, this, &WizardPageBootLoaderSelect::enableAbort, queued);
    connect(job, &FlashJob::stageChanged, this, [this](FlashStage stage) {
        if (const QString text = FlashTexts::stage(stage); !text.isEmpty())
            updateStatus(text);
    }, queued);
    connect(job, &FlashJob::fileStarted, this, [this](const QString &stage, const QString &file, int n, int of) {
        updateStatus(FlashTexts::transfer(stage, n, of));
        updateFileLabel(file);
    }, queued);
    connect(job, &FlashJob::progressed, this, [this](const FlashProgress &progress) {
        setTotalProgress(progress.percent);
        updateWrittenStatus(progress.shownWritten(), progress.shownTotal(), progress.inBytes());
        updateTimeRemaining(progress.secondsLeft);
    }, queued);
    connect(job, &FlashJob::deviceChoiceRequested, job, [flashing = job.data()] { flashing->chooseDevice(QString()); });
    connect(job, &FlashJob::restartRequested, this, &WizardPageBootLoaderSelect::breakFlashingAfterBootloader, queued);
    connect(job, &FlashJob::errorOccurred, this, &WizardPageBootLoaderSelect::flashError, queued);
    connect(job, &FlashJob::finished, this, &WizardPageBootLoaderSelect::flashEnded, queued);
    job->start();
}

void WizardPageBootLoaderSelect::breakFlashingAfterBootloader()
{
    if (!job)
        return;
    BreakFlash restart(nullptr);
    connect(job, &FlashJob::restartLooked, &restart, &BreakFlash::deviceSeen);
    const bool goOn = restart.exec() != 0;
    if (!job)
        return;
    if (goOn) {
        job->resume();
        return;
    }
    ui->statusLabel->setText(ErrorTexts::processWillBeAborted());
    ui->buttonUpdate->setEnabled(false);
    job->stop();
}

void WizardPageBootLoaderSelect::flashError(const FlashError &error)
{
    const FlashErrorDisplay shown = windowFlashError(error);
    if (!shown.status.isEmpty())
        updateStatus(shown.status);
    if (!shown.box.isEmpty())
        showMsgBox(ErrorTexts::Error, shown.box);
}

void WizardPageBootLoaderSelect::flashEnded(FlashOutcome outcome)
{
    if (!job)
        return;
    const FlashError error = job->error();
    const bool recorded = job->isRecorded();
    job->deleteLater();
    job = nullptr;
    disableAbort();
    switch (outcome) {
    case FlashOutcome::Flashed:
    case FlashOutcome::Recovered:
    case FlashOutcome::Current:
        if (automatic)
            qDebug() << "Automatic Bootloader update completed";
        setTotalProgress(100);
        setDFUProgress(100);
        resetWrittenStatus();
        // An unattended wizard ends while the box is still open.
        QMetaObject::invokeMethod(
            this, [this, code = exitCodeFor(outcome, recorded)] { exitSlot(code); }, Qt::QueuedConnection);
        showMsgBox(ErrorTexts::Info, FlashTexts::completedBox());
        break;
    case FlashOutcome::Failed:
        if (!error.isPackageError())
            ui->statusLabel->setText(ErrorTexts::processAborted());
        exitSlot(ExitCode::Failed);
        break;
    case FlashOutcome::Stopped:
        Version::listDevices(settings);
        showMsgBox(ErrorTexts::Error, ErrorTexts::flashingNotCompleted());
        resetDisplay();
        ui->statusLabel->setText(ErrorTexts::processAborted());
        settings->createExtractFolder();
        ui->buttonUpdate->setEnabled(true);
        break;
    }
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

void WizardPageBootLoaderSelect::exitSlot(ExitCode code)
{
    if (automatic) {
        // The wizard's result is the program's exit code; the exit also closes a box
        // that may stand open, so the run ends by itself.
        wizard()->setResult(toInt(code));
        QCoreApplication::exit(0);
        return;
    }
    // Flashed, recorded or not.
    if (code == ExitCode::Success || code == ExitCode::NotRecorded)
        setWizardButtonEnabled(QWizard::FinishButton, true);
}

void WizardPageBootLoaderSelect::showMsgBox(ErrorTexts::errorLevel level, const QString &text)
{
    ErrorTexts::execMessageBox(level, text);
    if (automatic && level == ErrorTexts::Error)
        exitSlot(ExitCode::Failed);
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

void WizardPageBootLoaderSelect::updateTimeRemaining(int seconds)
{
    if (seconds >= 0)
        ui->remainingLabel->setText(QString::number(seconds / 60) + QLatin1Char(':') +
                                    QStringLiteral("%1").arg(seconds % 60, 2, 10, QLatin1Char('0')));
}

void WizardPageBootLoaderSelect::resetWrittenStatus()
{
    ui->writtenStatus->clear();
}
