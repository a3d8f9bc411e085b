#include "dialog.h"

#include "app/windowflash.h"
#include "ui_dialog.h"

#include "dialogquestions.h"
#include "mymenu.h"

#include "app/log.h"
#include "app/logstream.h"
#include "app/settings.h"
#include "firmware/version.h"
#include "flash/flashjob.h"
#include "flash/retireworker.h"
#include "flash/usbdetector.h"
#include "flash/usbwritethread.h"
#include "flash/xmodemthread.h"
#include "platform/platform.h"
#include "update/swcheck.h"
#include "wizard/wizardbootloader.h"

#include <QCloseEvent>
#include <QScopeGuard>
#include <QMessageBox>
#include <QtDebug>

#include <cstdlib>

Dialog::Dialog(SearchOptions searchOptions, bool dfuMissing, QWidget *parent)
    : QDialog(parent), ui(new Ui::Dialog), dfuMissing(dfuMissing), removableDrives([] { return Platform::removableDrives(); }),
      options(std::move(searchOptions))
{
    // The form first: the settings may report a broken installation while they load.
    ui->setupUi(this);
    // The working folders' warnings are boxes here, from the first one on.
    Settings::setWarningHandler(
        [](const QString &text) { ErrorTexts::execMessageBox(ErrorTexts::Warning, text); });
    settings = new Settings(this);
    swCheck = new SWCheck(settings, options, &questions, nullptr);

    if (options.useZip)
        ui->actionUseZipSearch->setChecked(true);
    flashing = downloading = usbWriting = deviceMissing = false;
    ui->progressBar->hide();
    setUpTabs();
    setUpMenu();

    connect(ui->lsearchButton_tessel_nine, &QPushButton::clicked, this, &Dialog::slotLocalSearchTesselNINE);
    connect(ui->lupdateButton_tessel_nine, &QPushButton::clicked, this, &Dialog::slotUpdateTesselNINE);
    connect(ui->lsearchButton_tessel_briomel, &QPushButton::clicked, this, &Dialog::slotLocalSearchBrioMel);
    connect(ui->lupdateButton_tessel_briomel, &QPushButton::clicked, this, &Dialog::slotUpdateBrioMel);
    connect(ui->exsearchButton_tessel_nine, &QPushButton::clicked, this, &Dialog::slotUSBExtractSearchTesselNINE);
    connect(ui->usbDriveStartButton_tessel_nine, &QPushButton::clicked, this, &Dialog::slotUSBWriteTesselNINE);
    connect(ui->nsearchButton_tessel_nine, &QPushButton::clicked, this, &Dialog::slotDownloadTesselNINE);
    connect(ui->nsearchButton_tessel_briomel, &QPushButton::clicked, this, &Dialog::slotDownloadBrioMel);

    if (settings->isGpgAvailable()) {
        qDebug() << quoted(tr("**** %1 uses encryption mechanism ****\n\n").arg(QStringLiteral("Morvanta")));
    } else {
        ui->actionUseZipSearch->setChecked(true);
        ui->actionUseZipSearch->setEnabled(false);
        ui->actionUseZipSearch->setVisible(false);
        qDebug() << quoted(tr("**** %1 does not use any encryption mechanism ****\n\n").arg(QStringLiteral("Morvanta")));
    }

    Version::listDevices(settings);
    version = new Version(settings, this);

    if (!options.automatic && !dfuMissing)
        showMsgBox(ErrorTexts::Welcome,
                   tr("It is recommended always to use the same usb port \nfor flashing, if no problems occurred.\n"
                      "Do not connect or disconnect other USB devices\nduring flash process.\n\n"
                      "If possible, please connect device to usb!"));
    connect(swCheck, &SWCheck::sigMsgBox, this, &Dialog::showMsgBox);
    swCheck->setJobRunning([this] { return jobRunning(); });
    swCheck->checkForNewVersion();
    ui->lupdateButton_tessel_briomel->setEnabled(false);
}

Dialog::~Dialog()
{
    // The menu's windows first: the history window's reader is among the workers waited for.
    delete menu;
    stopWorkers();
    disposeDownloader(true);
    NoExtractDestination();
    delete swCheck;
    delete ui;
}

void Dialog::stopWorkers()
{
    // Nothing is terminated: told to stop, a job and the workers kill their children
    // and end. Waiting for that here means no tool outlives the program; a flash job's
    // record is completed as it goes.
    delete std::exchange(flashJob, nullptr);
    disposeXmodemThread();
    disposeUsbDetector();
    disposeUsbWriteThread();
    RetiredWorkers::waitForAll(5000);
}

// ---- Tabs and menu ----

void Dialog::setUpTabs()
{
    if (options.internal) {
        ui->tab_tessel_nine_options->removeTab(ui->tab_tessel_nine_options->indexOf(ui->tab_tessel_nine_download));
        ui->tab_tessel_briomel_options->removeTab(
            ui->tab_tessel_briomel_options->indexOf(ui->tab_tessel_briomel_download));
    }
    if (dfuMissing)
        ui->tab_tessel_nine_options->removeTab(ui->tab_tessel_nine_options->indexOf(ui->tab_tessel_nine_flash));
    connect(ui->tab_tessel_nine_options, &QTabWidget::currentChanged, this, &Dialog::tabTesselNINEModesChanged);
    connect(ui->tab_devices, &QTabWidget::currentChanged, this, &Dialog::tabDevicesChanged);
    tabTesselNINEModesChanged(ui->tab_tessel_nine_options->currentIndex());
    if (!options.internal)
        ui->tab_devices->removeTab(ui->tab_devices->indexOf(ui->tessel_briomel));
}

void Dialog::setUpMenu()
{
    const QString language = settings->getValue(QStringLiteral("language"));
    if (language == QLatin1String("German"))
        ui->actionGerman->setEnabled(false);
    else
        ui->actionEnglish->setEnabled(false);
    // HTTP is the one transport offered; the action only shows it.
    ui->actionHTTPDownload->setChecked(true);
    ui->actionHTTPDownload->setEnabled(false);

    menu = new MyMenu(settings, language);
    connect(ui->actionManual, &QAction::triggered, menu, &MyMenu::manual);
    connect(ui->actionLogfile, &QAction::triggered, menu, &MyMenu::log);
    connect(ui->actionHistory, &QAction::triggered, menu, &MyMenu::history);
    connect(ui->actionEnglish, &QAction::triggered, menu, &MyMenu::changeLanguageEnglish);
    connect(ui->actionGerman, &QAction::triggered, menu, &MyMenu::changeLanguageGerman);
    connect(ui->actionInfo, &QAction::triggered, menu, &MyMenu::license);
    connect(ui->actionAbout, &QAction::triggered, menu, &MyMenu::about);
    connect(ui->actionHTTPDownload, &QAction::triggered, this, &Dialog::checkHttpChanged);
    if (dfuMissing)
        ui->actionFlash_Bootloader->setEnabled(false);
    else
        connect(ui->actionFlash_Bootloader, &QAction::triggered, this, &Dialog::adv_bootloader);
    connect(menu, &MyMenu::changeLanguage, this, &Dialog::questionLanguageRestart);
    connect(menu, &MyMenu::sendMsgBox, this, &Dialog::showMsgBox);
}

void Dialog::tabTesselNINEModesChanged(int index)
{
    QWidget *page = ui->tab_tessel_nine_options->widget(index);
    if (page == ui->tab_tessel_nine_flash)
        ui->groupBox->setTitle(tr("Update Status"));
    else if (page == ui->tab_tessel_nine_download)
        ui->groupBox->setTitle(tr("Download Status"));
    else if (page == ui->tab_tessel_nine_usbdrive)
        ui->groupBox->setTitle(tr("USB Write Status"));
}

void Dialog::tabDevicesChanged(int index)
{
    if (ui->tab_devices->widget(index) == ui->tessel_briomel) {
        ui->groupBox->setTitle(tr("USB Write Status"));
        ui->actionFlash_Bootloader->setEnabled(false);
    } else {
        tabTesselNINEModesChanged(ui->tab_tessel_nine_options->currentIndex());
        ui->actionFlash_Bootloader->setEnabled(!dfuMissing);
    }
}

void Dialog::disableTab()
{
    if (ui->tab_devices->currentWidget() == ui->tessel_nine) {
        ui->tab_devices->setTabEnabled(ui->tab_devices->indexOf(ui->tessel_briomel), false);
        QTabWidget *tabs = ui->tab_tessel_nine_options;
        for (QWidget *page : {ui->tab_tessel_nine_flash, ui->tab_tessel_nine_usbdrive, ui->tab_tessel_nine_download})
            if (page != tabs->currentWidget())
                tabs->setTabEnabled(tabs->indexOf(page), false);
    } else {
        ui->tab_devices->setTabEnabled(ui->tab_devices->indexOf(ui->tessel_nine), false);
        QTabWidget *tabs = ui->tab_tessel_briomel_options;
        for (QWidget *page : {ui->tab_tessel_briomel_Xmodem1k, ui->tab_tessel_briomel_download})
            if (page != tabs->currentWidget())
                tabs->setTabEnabled(tabs->indexOf(page), false);
    }
}

bool Dialog::jobRunning() const
{
    const auto runs = [](const QThread *thread) { return thread && thread->isRunning(); };
    return windowLocked() || wizardOpen || flashJob || runs(usbWriteThread) || runs(xmodemThread);
}

void Dialog::jobStarts()
{
    NoExtractDestination();
}

void Dialog::enableTabs()
{
    // The ending of one job never frees the window while another still holds it.
    if (windowLocked())
        return;
    for (QTabWidget *tabs : {ui->tab_devices, ui->tab_tessel_nine_options, ui->tab_tessel_briomel_options})
        for (int i = 0; i < tabs->count(); ++i)
            tabs->setTabEnabled(i, true);
}

void Dialog::setBootLoaderActionEnabled(bool enabled)
{
    // The wizard is a job of its own, and a Tessel NINE's.
    ui->actionFlash_Bootloader->setEnabled(enabled && !windowLocked() &&
                                           ui->tab_devices->currentWidget() != ui->tessel_briomel);
}

// ---- Status area ----

void Dialog::showMsgBox(ErrorTexts::errorLevel level, const QString &text)
{
    ErrorTexts::execMessageBox(level, text);
    if (level == ErrorTexts::Error)
        exitInternalAutomatic(ExitCode::Failed);
}

void Dialog::updateStatus(const QString &status)
{
    ui->statusLabel->setText(status);
}

void Dialog::setTotalProgress(int val)
{
    ui->progressBar->setValue(val);
}

void Dialog::setDFUProgress(int val)
{
    ui->progressBar->setValue(val);
}

void Dialog::setProgressBar(int done, int max)
{
    ui->progressBar->setMaximum(max);
    ui->progressBar->setValue(done);
}

void Dialog::setNetSearchText(const QString &text)
{
    ui->nSearchLabel_tessel_nine->setText(text);
    ui->nSearchLabel_tessel_briomel->setText(text);
}

void Dialog::setDefaultNetSearchText()
{
    setNetSearchText(tr("Search for latest firmware at Zelko Update Server"));
}

void Dialog::updateWrittenStatus(long written, long total, bool useByteSize)
{
    // Shown beside the percentage, so the amount is in sight during a flash.
    const QString amount = (useByteSize ? tr("Bytes written ") : tr("KBytes written ")) + QString::number(written) +
                           QLatin1Char('/') + QString::number(total);
    ui->progressBar->setFormat(QStringLiteral("%p%   ") + amount);
}

void Dialog::resetStatus()
{
    ui->progressBar->setValue(0);
    ui->progressBar->setFormat(QStringLiteral("%p%"));
    ui->statusLabel->clear();
}

void Dialog::showAbortedStatus()
{
    ui->statusLabel->setText(ErrorTexts::processAborted());
}

void Dialog::restoreSearchButtonText()
{
    ui->lsearchButton_tessel_nine->setText(tr("Search..."));
}

void Dialog::handleSettingError()
{
    qWarning() << "Installation corrputed! Uninstall and install again!";
    showMsgBox(ErrorTexts::Error, tr("Installation corrupted! Please uninstall and install again!"));
    for (QPushButton *button : {ui->lupdateButton_tessel_nine, ui->usbDriveStartButton_tessel_nine,
                                ui->lsearchButton_tessel_nine, ui->nsearchButton_tessel_nine,
                                ui->exsearchButton_tessel_nine, ui->nsearchButton_tessel_briomel,
                                ui->lsearchButton_tessel_briomel})
        button->setEnabled(false);
}

void Dialog::checkHttpChanged()
{
    settings->setHttp(ui->actionHTTPDownload->isChecked());
}

// ---- Activity slots ----

void Dialog::lenableAbort()
{
    flashing = true;
    ui->lupdateButton_tessel_nine->setText(tr("Abort"));
    ui->lupdateButton_tessel_briomel->setText(tr("Abort"));
    for (QPushButton *button :
         {ui->lsearchButton_tessel_nine, ui->exsearchButton_tessel_nine, ui->lsearchButton_tessel_briomel})
        button->setEnabled(false);
    disableTab();
    if (!dfuMissing)
        setBootLoaderActionEnabled(false);
}

void Dialog::ldisableAbort()
{
    flashing = false;
    ui->lupdateButton_tessel_nine->setText(tr("Update"));
    ui->lupdateButton_tessel_briomel->setText(tr("Flash"));
    setDefaultNetSearchText();
    for (QPushButton *button :
         {ui->lsearchButton_tessel_nine, ui->exsearchButton_tessel_nine, ui->lsearchButton_tessel_briomel})
        button->setEnabled(true);
    enableTabs();
    if (!dfuMissing)
        setBootLoaderActionEnabled(true);
}

// ---- Closing and keys ----

void Dialog::keyPressEvent(QKeyEvent *event)
{
    // Neither Escape nor Return may end or trigger anything here.
    if (event->key() == Qt::Key_Escape)
        event->ignore();
    else
        event->accept();
}

void Dialog::closeEvent(QCloseEvent *event)
{
    if (!flashing && !downloading && !usbWriting) {
        if (downloader)
            downloader->closeSelectionList();
        QCoreApplication::exit(0);
        event->accept();
        return;
    }
    QString hint;
    if (flashing)
        hint = tr("\nThis will cause abort flashing!");
    if (downloading)
        hint = tr("\nThis will cause abort download!");
    if (usbWriting)
        hint = tr("\nThis will cause abort writing to USB drive!");
    if (!DialogQuestions::questionClose(hint)) {
        event->ignore();
        return;
    }
    if (flashing && flashJob)
        flashJob->stop();
    if (flashing && xmodemThread)
        xmodemThread->killXmodem();
    if (downloading)
        disposeDownloader(true);
    if (usbWriting && usbWriteThread)
        usbWriteThread->abortByUser();
    QCoreApplication::exit(0);
    event->accept();
}

void Dialog::questionLanguageRestart()
{
    if (QMessageBox::question(this, QStringLiteral("QUESTION"),
                              tr("Application has to be restarted\nto apply language changes.\nDo you want to restart "
                                 "application now?"),
                              QMessageBox::Yes | QMessageBox::No) != QMessageBox::Yes)
        return;
    if (flashing)
        showMsgBox(ErrorTexts::Error, tr("Unable to restart application\nwhile flashing is in progress!\nRestart "
                                         "later to apply changes."));
    else if (downloading)
        showMsgBox(ErrorTexts::Error,
                   tr("Unable to restart application\nwhile downloading files!\nRestart later to apply changes."));
    else if (usbWriting)
        showMsgBox(ErrorTexts::Error, tr("Unable to restart application\nwhile writing files to USB drive!\nRestart "
                                         "later to apply changes."));
    else
        QCoreApplication::exit(toInt(ExitCode::LanguageChange));
}

// ---- Automatic runs ----

void Dialog::startAutomatic()
{
    slotLocalSearchTesselNINE();
    slotUpdateTesselNINE();
}

void Dialog::adv_bootloader()
{
    if (jobRunning())
        return;
    jobStarts();
    wizardOpen = true;
    const auto closed = qScopeGuard([this] { wizardOpen = false; });
    WizardBootLoader wizard(settings, false, QString(),
                            ui->actionHTTPDownload->isChecked() ? FileDownloader::Http : FileDownloader::Ftp,
                            ui->actionUseZipSearch->isChecked(), nullptr);
    wizard.setWindowTitle(QStringLiteral("Wizard <Tessel NINE%1 Boot Loader>").arg(QChar(0x00AE)));
    wizard.exec();
}

int Dialog::startAutomaticBootLoader(const QString &useFile)
{
    wizardOpen = true;
    const auto closed = qScopeGuard([this] { wizardOpen = false; });
    WizardBootLoader wizard(settings, true, useFile, FileDownloader::Ftp,
                            ui->actionUseZipSearch->isChecked() && options.internal, nullptr);
    wizard.setWindowTitle(QStringLiteral("Wizard <Tessel NINE%1 Boot Loader - Automatic Mode>").arg(QChar(0x00AE)));
    return wizard.exec();
}

void Dialog::exitDfuInternalAutomaticOK(ExitCode code)
{
    if (options.automatic && code == ExitCode::Success)
        exitInternalAutomatic(code);
}

void Dialog::exitInternalAutomatic(ExitCode code)
{
    if (!options.automatic)
        return;
    // Workers first, so the verdict is the log's last line for the calling script; the
    // record of the flash is completed before the process ends.
    stopWorkers();
    const bool senderEnded = windowSendRecords(5000);
    // As the log handler writes a quoted message.
    Log::endWith(QStringLiteral("\"%1 exit %2\"").arg(QStringLiteral("Morvanta")).arg(toInt(code)));
    if (!senderEnded)
        std::_Exit(toInt(code));
    std::exit(toInt(code));
}
