// The window as a technician uses it: tabs, buttons, labels and boxes, flashing through
// the dfu-util simulator with real gpg and signed packages.
#include "app/log.h"
#include "app/settings.h"
#include "history/flashhistory.h"
#include "ui/dialog.h"

#include "firmwarekit.h"
#include "windowsupport.h"

#include <QAction>
#include <QDir>
#include <QGroupBox>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTabWidget>
#include <QScopeGuard>
#include <QTest>
#include <QTextBrowser>
#include <QWizard>

#include <optional>

using TestSupport::FirmwareKit;
using TestSupport::ModalAnswerer;

namespace {
const QString welcome = "It is recommended always to use the same usb port \nfor flashing, if no problems occurred.\n"
                        "Do not connect or disconnect other USB devices\nduring flash process.\n\n"
                        "If possible, please connect device to usb!";

QStringList pageNames(QTabWidget *tabs)
{
    QStringList names;
    for (int i = 0; i < tabs->count(); ++i)
        names << tabs->widget(i)->objectName();
    return names;
}
} // namespace

class TestDialog : public QObject
{
    Q_OBJECT
    TestSupport::Sandbox sandbox;
    FirmwareKit kit;
    QString record;
    QStringList package; // signed V1_2_4 pair

    template <typename T> static T *child(Dialog &d, const char *name)
    {
        T *widget = d.findChild<T *>(name);
        Q_ASSERT(widget);
        return widget;
    }
    static QString status(Dialog &d) { return child<QLabel>(d, "statusLabel")->text(); }
    static QPushButton *update(Dialog &d) { return child<QPushButton>(d, "lupdateButton_tessel_nine"); }
    static QPushButton *search(Dialog &d) { return child<QPushButton>(d, "lsearchButton_tessel_nine"); }
    // Chooses a firmware, agrees to the flash question, and waits until the worker can be aborted.
    static void startHangingFlash(Dialog &dialog, ModalAnswerer &answerer, const QString &file)
    {
        qputenv("DFU_SIM_HANG_AT", "5");
        answerer.fileToChoose = file;
        search(dialog)->click();
        answerer.clear();
        answerer.plannedButtons = {QMessageBox::Yes};
        update(dialog)->click();
        QTRY_VERIFY_WITH_TIMEOUT(status(dialog).startsWith("Flashing firmware stage #1"), 30000);
    }

    int dfuDownloads() const
    {
        return int(QString::fromUtf8(TestSupport::readFile(record)).count("-D\t"));
    }

    static bool wizardShown()
    {
        for (QWidget *w : QApplication::topLevelWidgets())
            if (qobject_cast<QWizard *>(w) && w->isVisible())
                return true;
        return false;
    }

private slots:
    void initTestCase()
    {
        TestSupport::useSandbox(sandbox);
        record = sandbox.root() + "/calls.txt";
        qputenv("DFU_SIM_RECORD", QFile::encodeName(record));
        qputenv("DFU_SIM_HASH_MS", "10");
        QDir().mkpath(sandbox.root() + "/fw");
        package = kit.makePackage(sandbox.root() + "/fw", "Tessel_NINE_V1_2_4", 2, 1, 4000, true);
        QCOMPARE(package.size(), 2);
    }

    void init()
    {
        QFile::remove(record);
        qputenv("DFU_SIM_DEVICE", "present");
        qputenv("DFU_SIM_NAME", "V1_2_3");
        qunsetenv("DFU_SIM_HANG_AT");
    }

    void tabLayouts_data()
    {
        QTest::addColumn<bool>("internal");
        QTest::addColumn<bool>("dfuMissing");
        QTest::addColumn<QStringList>("devices");
        QTest::addColumn<QStringList>("tesselPages"); // without dfu-util no welcome box either
        QTest::newRow("plain start") << false << false << QStringList{"tessel_nine"}
                                     << QStringList{"tab_tessel_nine_flash", "tab_tessel_nine_usbdrive", "tab_tessel_nine_download"};
        QTest::newRow("plain start, no dfu-util") << false << true << QStringList{"tessel_nine"}
                                                  << QStringList{"tab_tessel_nine_usbdrive", "tab_tessel_nine_download"};
        QTest::newRow("internal") << true << false << QStringList{"tessel_nine", "tessel_briomel"}
                                  << QStringList{"tab_tessel_nine_flash", "tab_tessel_nine_usbdrive"};
        QTest::newRow("internal, no dfu-util") << true << true << QStringList{"tessel_nine", "tessel_briomel"}
                                               << QStringList{"tab_tessel_nine_usbdrive"};
    }

    void tabLayouts()
    {
        QFETCH(bool, internal);
        QFETCH(bool, dfuMissing);
        SearchOptions options;
        options.internal = internal;
        ModalAnswerer answerer;
        Dialog dialog(options, dfuMissing, nullptr);
        QCOMPARE(answerer.texts, dfuMissing ? QStringList{} : QStringList{welcome});
        QCOMPARE(answerer.titles, dfuMissing ? QStringList{} : QStringList{"WELCOME"});

        QTEST(pageNames(child<QTabWidget>(dialog, "tab_devices")), "devices");
        QTEST(pageNames(child<QTabWidget>(dialog, "tab_tessel_nine_options")), "tesselPages");
        if (internal)
            QCOMPARE(pageNames(child<QTabWidget>(dialog, "tab_tessel_briomel_options")),
                     QStringList{"tab_tessel_briomel_Xmodem1k"});
        QCOMPARE(child<QGroupBox>(dialog, "groupBox")->title(), dfuMissing ? QString("USB Write Status") : QString("Update Status"));
        QCOMPARE(child<QAction>(dialog, "actionFlash_Bootloader")->isEnabled(), !dfuMissing);

        if (internal) { // the Brio Mel has no boot loader to flash
            child<QTabWidget>(dialog, "tab_devices")->setCurrentIndex(1);
            QCOMPARE(child<QGroupBox>(dialog, "groupBox")->title(), QString("USB Write Status"));
            QVERIFY(!child<QAction>(dialog, "actionFlash_Bootloader")->isEnabled());
        }
    }

    void helpMenu()
    {
        ModalAnswerer answerer;
        Dialog dialog(SearchOptions(), true, nullptr);
        dialog.show();
        // No manual beside the program nor here: the box names the path looked at first, beside
        // the program, as the text it is.
        const QString folder = sandbox.root() + "/<font size=6>manuals";
        QDir().mkpath(folder);
        const QString started = QDir::currentPath();
        QDir::setCurrent(folder);
        child<QAction>(dialog, "actionManual")->trigger();
        QDir::setCurrent(started);
        QCOMPARE(answerer.titles, QStringList{"ERROR"});
        QCOMPARE(answerer.texts,
                 QStringList{"Unable to open manual! " + QCoreApplication::applicationDirPath() + "/Manual_en.pdf"});


        child<QAction>(dialog, "actionInfo")->trigger();
        QWidget *license = nullptr;
        for (QWidget *w : QApplication::topLevelWidgets())
            if (w->objectName() == "LicenseView" && w->isVisible())
                license = w;
        QVERIFY(license);
        auto *text = license->findChild<QTextBrowser *>("textView");
        QVERIFY(text->toPlainText().contains("GNU LESSER GENERAL PUBLIC LICENSE"));

        // The flash history: asked for again while open, the same window reads again.
        for (int asked = 0; asked < 2; ++asked)
            child<QAction>(dialog, "actionHistory")->trigger();
        QWidgetList histories;
        for (QWidget *w : QApplication::topLevelWidgets())
            if (w->objectName() == "HistoryView" && w->isVisible())
                histories << w;
        QCOMPARE(histories.size(), 1);
        QCOMPARE(histories[0]->windowTitle(), QString("Flash history"));

        QTest::keyClick(&dialog, Qt::Key_Escape);
        QTest::keyClick(&dialog, Qt::Key_Return);
        QVERIFY(dialog.isVisible());
        QCOMPARE(dialog.result(), 0);
    }

    // The window's history is tried again at each flash: a moment it cannot be opened
    // (here something else stands in its folder's place) loses no later record of the
    // session. The first flash of this program, before any other opened the history.
    void historyTriedAtEachFlash()
    {
        const QString folder = QDir::homePath() + "/.local/share/morvanta";
        QVERIFY(TestSupport::writeFile(folder, "not a folder"));
        ModalAnswerer answerer;
        Dialog dialog(SearchOptions(), false, nullptr);
        dialog.show();
        answerer.fileToChoose = package[0];
        search(dialog)->click();
        const QString completed = "Flashing completed\nPlease perform Tessel restart!";
        for (int flash = 0; flash < 2; ++flash) {
            answerer.clear();
            answerer.plannedButtons = {QMessageBox::Yes};
            update(dialog)->click();
            QTRY_COMPARE_WITH_TIMEOUT(answerer.texts.value(1), completed, 30000);
            QVERIFY(QFile::remove(folder) || flash == 1);
        }
        FlashHistory history;
        QVERIFY(history.openForReading(folder + "/history.sqlite"));
        QCOMPARE(history.records().size(), 1);
        QCOMPARE(history.records().value(0).outcome, QString("flashed"));
    }

    void abortDuringTheFlash()
    {
        ModalAnswerer answerer;
        Dialog dialog(SearchOptions(), false, nullptr);
        dialog.show();
        startHangingFlash(dialog, answerer, package[1]); // the PR half finds its partner too

        answerer.plannedButtons = {QMessageBox::No};
        update(dialog)->click(); // asked, and declined: the flash goes on
        QCOMPARE(answerer.texts.last(), QString("Do you really want to abort\nflashing process?"));
        QCOMPARE(update(dialog)->text(), QString("Abort"));
        answerer.plannedButtons = {QMessageBox::No};
        dialog.close(); // the same for closing the window
        QCOMPARE(answerer.texts.last(), QString("Do you really want to close?\nThis will cause abort flashing!"));
        QVERIFY(dialog.isVisible());
        QCOMPARE(update(dialog)->text(), QString("Abort"));

        answerer.plannedButtons = {QMessageBox::Yes};
        update(dialog)->click();
        QTRY_COMPARE_WITH_TIMEOUT(answerer.texts.last(), QString("Flashing not completed"), 10000);
        QCOMPARE(answerer.titles.last(), QString("ERROR"));
        QCOMPARE(status(dialog), QString("Process aborted! Perform device restart before flashing again"));
        QCOMPARE(update(dialog)->text(), QString("Update"));
        QVERIFY(update(dialog)->isEnabled() && search(dialog)->isEnabled());
        QTest::qWait(300);
        // Start, abort and close declined, abort agreed, and nothing more from the aborted run.
        QCOMPARE(answerer.titles, (QStringList{"QUESTION", "QUESTION", "QUESTION", "QUESTION", "ERROR"}));
        QCOMPARE(dfuDownloads(), 1);
        QCOMPARE(TestSupport::liveProcessesWith(dialog.getSettings()->getExtractFolder()), 0);
    }

    // A drive list left open when a flash starts: it goes, and a pick that still came
    // from it starts nothing; nor does the boot loader wizard open. The flash runs whole.
    void oneJobAtATime()
    {
        const QString drive = sandbox.root() + "/stick-one-job";
        QDir().mkpath(drive);
        ModalAnswerer answerer;
        Dialog dialog(SearchOptions(), false, nullptr);
        dialog.setRemovableDriveSource([&] { return QStringList{drive}; });
        dialog.show();
        answerer.fileToChoose = package[0];
        search(dialog)->click();
        auto *pages = child<QTabWidget>(dialog, "tab_tessel_nine_options");
        pages->setCurrentWidget(child<QWidget>(dialog, "tab_tessel_nine_usbdrive"));
        child<QPushButton>(dialog, "usbDriveStartButton_tessel_nine")->click(); // the drive list opens
        pages->setCurrentWidget(child<QWidget>(dialog, "tab_tessel_nine_flash"));
        qputenv("DFU_SIM_HASH_MS", "400");
        answerer.clear();
        answerer.plannedButtons = {QMessageBox::Yes};
        update(dialog)->click();
        QTRY_VERIFY_WITH_TIMEOUT(status(dialog).startsWith("Flashing firmware stage #1"), 30000);
        QVERIFY(!TestSupport::pickDrive(drive, 0));
        QMetaObject::invokeMethod(&dialog, "ExtractToDestination", Q_ARG(QString, drive));
        child<QAction>(dialog, "actionFlash_Bootloader")->trigger();
        QMetaObject::invokeMethod(&dialog, "adv_bootloader", Qt::QueuedConnection);
        QTest::qWait(300);
        QVERIFY(!wizardShown());
        QVERIFY(!QFileInfo::exists(drive + "/.zelko_update"));
        QTRY_COMPARE_WITH_TIMEOUT(answerer.texts.last(), QString("Flashing completed\nPlease perform Tessel restart!"),
                                  30000);
        qputenv("DFU_SIM_HASH_MS", "10");
        QCOMPARE(dfuDownloads(), 3);
        QCOMPARE(TestSupport::lockedJobControls(&dialog), QStringList{});
    }

    // However a job ends, the window is whole again, looked at from another tab. A
    // download that brings no firmware leaves none to flash.
    void lockStateAfterAnEnding_data()
    {
        QTest::addColumn<QString>("job");   // flash, stick or download
        QTest::addColumn<QString>("ending"); // done, failed, aborted
        QTest::addColumn<QStringList>("locked");
        const QStringList noFirmware{"lupdateButton_tessel_nine", "usbDriveStartButton_tessel_nine"};
        for (const char *ending : {"done", "failed", "aborted"}) {
            QTest::addRow("flash %s", ending) << "flash" << ending << QStringList{};
            QTest::addRow("stick %s", ending) << "stick" << ending
                                              << (ending == QLatin1String("aborted")
                                                      ? QStringList{"usbDriveStartButton_tessel_nine"} : QStringList{});
            QTest::addRow("download %s", ending) << "download" << ending
                                                 << (ending == QLatin1String("done") ? QStringList{} : noFirmware);
        }
    }

    void lockStateAfterAnEnding()
    {
        QFETCH(QString, job);
        QFETCH(QString, ending);
        const bool flash = job == "flash";
        const QString drive = sandbox.root() + "/stick-" + QString(QTest::currentDataTag()).replace(' ', '-');
        QDir().mkpath(drive);
        QDir().mkpath(drive + "-fw");
        QStringList files = package;
        if (ending == "failed" && flash)
            qputenv("DFU_SIM_ERROR", "Lost device after RESET?");
        if (ending == "failed" && job == "stick") // no "pr" files: the write fails
            files = kit.makePackage(drive + "-fw", "Tessel_NINE_V1_2_5", 1, 0, 100, true);
        if (ending == "aborted" && flash)
            qputenv("DFU_SIM_HANG_AT", "5");
        const auto restore = qScopeGuard([] { qunsetenv("DFU_SIM_ERROR"); });
        std::optional<TestSupport::UpdateServer> server;
        if (job == "download" && ending == "done")
            server.emplace(QStringLiteral(MORVANTA_TEST_BUILD_DIR) + "/server/tree");
        else if (job == "download")
            server.emplace(ending == "failed" ? "status" : "stall", "Tessel_NINE_V9.OS.zip.gpg\nTessel_NINE_V9.PR.zip.gpg\n");
        QVERIFY(!server || server->isListening());
        ModalAnswerer answerer;
        Dialog dialog(SearchOptions(), false, nullptr);
        dialog.setRemovableDriveSource([&] { return QStringList{drive}; });
        dialog.show();
        auto *pages = child<QTabWidget>(dialog, "tab_tessel_nine_options");
        QPushButton *button = update(dialog);
        answerer.plannedButtons = {QMessageBox::Yes};
        if (job == "download") {
            answerer.fileToChoose = drive;
            pages->setCurrentWidget(child<QWidget>(dialog, "tab_tessel_nine_download"));
            button = child<QPushButton>(dialog, "nsearchButton_tessel_nine");
        } else {
            answerer.fileToChoose = files[0];
            search(dialog)->click();
        }
        if (job == "stick") {
            pages->setCurrentWidget(child<QWidget>(dialog, "tab_tessel_nine_usbdrive"));
            button = child<QPushButton>(dialog, "usbDriveStartButton_tessel_nine");
        }
        const QString idle = button->text();
        button->click();
        QVERIFY(job != "stick" || TestSupport::pickDrive(drive));
        if (job != "download" || ending == "aborted") // a download may be over at once
            QTRY_COMPARE_WITH_TIMEOUT(button->text(), QString("Abort"), 20000);
        else // so its end is its box, not the button, which may not have changed yet
            QTRY_VERIFY_WITH_TIMEOUT(ending == "done" ? answerer.texts.contains("Download completed!")
                                                      : answerer.titles.contains("ERROR"), 30000);
        if (ending == "aborted") {
            if (job != "download")
                QTRY_VERIFY_WITH_TIMEOUT(status(dialog).startsWith(flash ? "Flashing firmware" : "Writing firmware files"),
                                         30000);
            answerer.plannedButtons = {QMessageBox::Yes};
            button->click();
        }
        QTRY_COMPARE_WITH_TIMEOUT(button->text(), idle, 30000);
        QTest::qWait(300);
        pages->setCurrentWidget(child<QWidget>(dialog, flash ? "tab_tessel_nine_usbdrive" : "tab_tessel_nine_flash"));
        QTEST(TestSupport::lockedJobControls(&dialog), "locked");
        if (job == "download" && ending != "done") // nothing half-downloaded is left
            QCOMPARE(QDir(drive).entryList(QDir::Files), QStringList{});
    }

    void noDeviceThenConnect()
    {
        qputenv("DFU_SIM_DEVICE", "absent");
        ModalAnswerer answerer;
        Dialog dialog(SearchOptions(), false, nullptr);
        dialog.show();
        answerer.clear();
        answerer.fileToChoose = package[0];
        search(dialog)->click();
        QCOMPARE(answerer.titles, QStringList{"ERROR"});
        QCOMPARE(answerer.texts, QStringList{"Device is not connected"});
        QCOMPARE(search(dialog)->text(), QString("Connect"));
        QCOMPARE(status(dialog), QString("Device is not connected"));
        QVERIFY(!update(dialog)->isEnabled());
        QVERIFY(child<QPushButton>(dialog, "usbDriveStartButton_tessel_nine")->isEnabled());

        qputenv("DFU_SIM_DEVICE", "present");
        search(dialog)->click();
        QCOMPARE(answerer.fileDialogs, 1); // no second dialog
        QCOMPARE(search(dialog)->text(), QString("Search..."));
        QVERIFY(update(dialog)->isEnabled());
        QCOMPARE(status(dialog), QString("Current version   Tessel_NINE.1_2_3"));
    }
};

QTEST_MAIN(TestDialog)
#include "tst_dialog.moc"
