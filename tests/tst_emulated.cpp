// Debian's real dfu-util, with the real libusb, against the emulated Tessel NINE on a
// virtual USB bus (tools/tessel-emulator): the built program unattended, and the window
// and the wizard in this process, five files a package.
#include "app/settings.h"
#include "ui/breakflash.h"
#include "ui/dialog.h"
#include "ui/wizard/wizardbootloader.h"

#include "firmwarekit.h"
#include "postgresserver.h"
#include "history/flashhistory.h"
#include "platform/portlock.h"
#include "windowsupport.h"

#include <QAbstractButton>
#include <QApplication>
#include <QElapsedTimer>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QSysInfo>
#include <QTest>
#include <QTimer>

#include <sys/stat.h>
#include <unistd.h>

using TestSupport::EmulatedBus;
using TestSupport::FirmwareKit;
using TestSupport::ModalAnswerer;
using TestSupport::PostgresServer;

namespace {
constexpr int fileSize = 1500;
} // namespace

class TestEmulated : public QObject
{
    Q_OBJECT
    TestSupport::Sandbox sandbox;
    FirmwareKit kit;
    QString firmware; // the signed V1_2_4 pair, alone in its folder
    QStringList package;
    QString bootLoader;
    QList<QByteArray> flashed; // the package's .sys files in flash order
    std::unique_ptr<Settings> settings;
    PostgresServer postgres; // the plant's central record, for the rows that send to it

    QString record(const QString &name) const { return sandbox.root() + "/received/" + name; }

private slots:
    void initTestCase()
    {
        if (!EmulatedBus::available())
            QSKIP("needs umockdev (tessel-emulator) and Debian's dfu-util");
        TestSupport::useSandbox(sandbox);
        settings = std::make_unique<Settings>(static_cast<QObject *>(nullptr));
        settings->prepareGpgFolder();
        firmware = sandbox.root() + "/firmware";
        const QString other = sandbox.root() + "/other";
        QDir().mkpath(firmware);
        QDir().mkpath(other);
        package = kit.makePackage(firmware, "Tessel_NINE_V1_2_4", 3, 2, fileSize, true);
        bootLoader = kit.makeBootloader(other, "Tessel_NINE_V2_0_1", 1, fileSize, true);
        QCOMPARE(package.size(), 2);
        flashed = FirmwareKit::flashedImages({"os"}, 3, fileSize, "V1_2_4") +
                  FirmwareKit::flashedImages({"pr"}, 2, fileSize, "V1_2_4");
    }

    // The program started by a production script: -a, and the exit code is the answer.
    void unattended_data()
    {
        QTest::addColumn<QStringList>("devices");
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("logged"); // the error the ERROR box showed, or a line of a good run
        QTest::addColumn<QString>("held");   // a port another run holds meanwhile
        QTest::addColumn<bool>("central");   // the record goes to the plant's central record too
        const QStringList flash{"-a", "-p", firmware};
        QTest::newRow("final reset re-enumerates") << QStringList{"record=" + record("1")} << flash << 0 << "" << "" << true;
        QTest::newRow("final reset succeeds") << QStringList{"scenario=reset-ok,record=" + record("2")} << flash << 0
                                              << "" << "" << false;
        QTest::newRow("manifestation-tolerant") << QStringList{"scenario=manifestation-tolerant,record=" + record("3")}
                                                << flash << 0 << "" << "" << false;
        QTest::newRow("boot loader, -a -b") << QStringList{"record=" + record("4")}
                                            << QStringList{"-a", "-b", "-f", bootLoader} << 0 << "" << "" << false;
        QTest::newRow("cannot write") << QStringList{"scenario=errwrite"} << flash << 2
                                      << "\"Error during download - Device is unable to write memory\"" << "" << false;
        // Debian's dfu-util looks once, 5 s after a detach; the program looks until it is back.
        QTest::newRow("off the bus 3 s at each reset") << QStringList{"offbus=3000,record=" + record("5")} << flash << 0
                                                       << "" << "" << false;
        QTest::newRow("off the bus 8 s at each reset") << QStringList{"offbus=8000,record=" + record("6")} << flash << 0
                                                       << "" << "" << false;
        QTest::newRow("node closed for 1.5 s after each appearance") << QStringList{"lag=1500,record=" + record("7")}
                                                                     << flash << 0 << "" << "" << false;
        QTest::newRow("never back after the detach") << QStringList{"scenario=no-return"} << flash << 2
                                                     << "\"Device is not connected - Lost device after RESET\"" << "" << false;
        QTest::newRow("two Tessel NINEs") << QStringList{"port=1", "port=2"} << flash << 2
                                          << "\"More than one DFU capable USB device found\"" << "" << false;
        // The one Tessel NINE is flashed through its port; Debian's dfu-util alone would
        // find two DFU devices.
        QTest::newRow("another maker's DFU device beside it")
            << QStringList{"port=1,record=" + record("8"), "port=2,vendor=0483,product=df11"} << flash << 0 << "" << "" << false;
        QTest::newRow("a node the user may not open") << QStringList{"closed"} << flash << 2
                                                      << "\"" + ErrorTexts::noPermission() + "\"" << "" << false;
        // A flash that was cut left it in DFU mode: flashed without a question, and said so.
        QTest::newRow("waiting in update mode") << QStringList{"dfu,record=" + record("9")} << flash << 0
                                                << "The device is in update mode: the selected firmware is flashed" << "" << false;
        // Another program flashes the device: a clear box, and nothing goes onto it.
        QTest::newRow("the port held by another run") << QStringList{"record=" + record("10")} << flash << 2
                                                      << "\"Another run is flashing the device on port 1-1\"" << "1-1" << false;
        // The unit is pulled while it restarts after its last file and another plugged in:
        // the other one, already current, does not count as flashed.
        QTest::newRow("another unit back after the last file")
            << QStringList{"swap=0000042@10"} << flash << 2
            << "\"Another device is on the port 1-1: serial 0000042, not 0000001\"" << "" << false;
    }

    void unattended()
    {
        QFETCH(QStringList, devices);
        QFETCH(QStringList, args);
        QFETCH(QString, logged);
        QFETCH(int, exitCode);
        QFETCH(QString, held);
        QFETCH(bool, central);
        if (central && !PostgresServer::unavailable().isEmpty())
            QSKIP(qPrintable(PostgresServer::unavailable()));
        if (central && !postgres.start())
            QFAIL(qPrintable(postgres.error()));
        // Root in a user namespace of its own has no other user to run a tool as.
        const bool closedNode = devices.join(',').contains("closed") || devices.join(',').contains("lag=");
        if (closedNode && getuid() == 0 && !TestSupport::userMapped(65534))
            QSKIP("a node closed to the user needs another user than root");
        PortLock otherRun;
        if (!held.isEmpty())
            QVERIFY(otherRun.lock(held));
        TestSupport::Sandbox program;
        program.writeConfig({{"mode", "internal"}, {"central", central ? postgres.url() : QString()}});
        program.installProgram({"gpg"});
        QVERIFY(QFile::link(TestSupport::binDir() + "/dfu-util-umockdev", program.app() + "/dfu-util"));
        QString runner = EmulatedBus::emulator();
        QStringList command = EmulatedBus::command(devices, program.app() + "/morvanta", args);
        QProcessEnvironment env;
        // A node that opens a moment after it appears is met only by a user other than
        // root: as root, the whole run is another user's, with no display to ask.
        if (devices.join(',').contains("lag=") && getuid() == 0) {
            const QString folder = devices.first().section("record=", 1);
            QVERIFY(QDir().mkpath(folder));
            for (const QString &open : {sandbox.root(), QFileInfo(folder).path(), folder})
                QVERIFY(chmod(QFile::encodeName(open).constData(), open == folder ? 0777 : 0755) == 0);
            QCOMPARE(QProcess::execute("chown", {"-R", "65534:65534", program.root()}), 0);
            command = QStringList{"--reuid=65534", "--regid=65534", "--clear-groups", runner} + command;
            runner = "setpriv";
            env.insert("QT_QPA_PLATFORM", "offscreen");
        }
        TestSupport::ProgramRun run(program, command, QString(), env, runner);
        if (exitCode != 0)
            QVERIFY2(TestSupport::answerBox("ERROR", 60000), qPrintable(program.log().right(800)));
        QVERIFY2(run.waitForExit(90000), qPrintable(program.log().right(800)));
        QTEST(run.exitCode(), "exitCode");
        QVERIFY2(program.log().contains(logged), qPrintable(program.log().right(800)));
        if (!held.isEmpty())
            QCOMPARE(EmulatedBus::received(devices.first().section("record=", 1)), QList<QByteArray>{});
        if (exitCode == 0) {
            const QString folder = devices.first().section("record=", 1);
            QCOMPARE(EmulatedBus::received(folder), args.contains("-b") ? FirmwareKit::flashedImages({"bl"}, 1, fileSize)
                                                           : flashed);
        }
        // A flash of the window is recorded as the station's are.
        if (exitCode == 0) {
            const bool bootLoaderOnly = args.contains("-b");
            FlashHistory history;
            QVERIFY(history.openForReading(program.home() + "/.local/share/morvanta/history.sqlite"));
            const QList<FlashRecord> records = history.records();
            QCOMPARE(records.size(), 1);
            const FlashRecord &unit = records.first();
            // What it runs now, as it was seen running at the end: the boot loader leaves the
            // firmware as it was; a manifestation-tolerant device stays in DFU mode, unseen.
            const QString after = bootLoaderOnly ? "1_2_3" : devices.first().contains("tolerant") ? "" : "1_2_4";
            QCOMPARE(QStringList({unit.program, unit.outcome, unit.port, unit.serial, unit.version, unit.after}).join(' '),
                     QString("window %1 1-1 0000001 %2 %3")
                         .arg(devices.first().startsWith("dfu") ? "recovered" : "flashed",
                              bootLoaderOnly ? "2_0_1" : "1_2_4", after));
            QCOMPARE(unit.files.size(), bootLoaderOnly ? 1 : 5);
            QCOMPARE(unit.signer.size(), 40);
            QCOMPARE(unit.station, QSysInfo::machineHostName());
            // A technician's cable flash reaches the plant's record, under the same id.
            if (central)
                QCOMPARE(postgres.query("SELECT program, station, serial, outcome, jsonb_array_length(files) FROM "
                                        "flashes WHERE id = '" + unit.id + "'"),
                         QStringList{"window|" + QSysInfo::machineHostName() + "|0000001|flashed|5"});
        }
        QCOMPARE(TestSupport::liveProcessesWith(program.instanceFolder() + "/ZelkoExtract/"), 0);
    }

    // The window asks the device, shows its version and puts the question that fits.
    void deviceCheck_data()
    {
        QTest::addColumn<QString>("device");
        QTest::addColumn<QString>("status");
        QTest::addColumn<QString>("question");
        const QString newer = "Do you want to start flashing?\nPress 'Yes' to perform flashing or 'No' to cancel";
        QTest::newRow("older device") << "name=V1_2_3" << "Current version   Tessel_NINE.1_2_3" << newer;
        QTest::newRow("same version") << "name=V1_2_4" << "Current version   Tessel_NINE.1_2_4"
                                      << "Current version equals latest version.\nDo you want to continue?\n"
                                         "Press 'Yes' to perform flashing or 'No' to cancel";
        QTest::newRow("newer device") << "name=V1_2_5" << "Current version   Tessel_NINE.1_2_5"
                                      << "Selected version is older than current version.\nDo you want to "
                                         "continue?\nPress 'Yes' to perform flashing or 'No' to cancel";
        QTest::newRow("waiting in update mode") << "dfu,record=" + record("recovered")
                                                << "The device waits in update mode: an earlier flash did not end"
                                                << "The device is in update mode: an earlier flash did not end. Flash "
                                                   "the selected firmware now?";
    }

    void deviceCheck()
    {
        QFETCH(QString, device);
        EmulatedBus bus({device});
        QVERIFY(bus.isUp());
        ModalAnswerer answerer;
        Dialog dialog(SearchOptions(), false, nullptr);
        dialog.show();
        answerer.fileToChoose = package.first();
        dialog.findChild<QPushButton *>("lsearchButton_tessel_nine")->click();
        QTEST(dialog.findChild<QLabel *>("statusLabel")->text(), "status");
        answerer.clear();
        answerer.plannedButtons = {QMessageBox::No};
        dialog.findChild<QPushButton *>("lupdateButton_tessel_nine")->click();
        QTEST(answerer.texts.value(0), "question");
        if (!device.startsWith("dfu"))
            return;
        // Yes to a device in update mode flashes the selected firmware as any other.
        answerer.clear();
        answerer.plannedButtons = {QMessageBox::Yes};
        dialog.findChild<QPushButton *>("lupdateButton_tessel_nine")->click();
        QTRY_VERIFY_WITH_TIMEOUT(answerer.texts.size() >= 2, 120000);
        QCOMPARE(answerer.texts.value(1), QString("Flashing completed\nPlease perform Tessel restart!"));
        QCOMPARE(EmulatedBus::received(record("recovered")), flashed);
    }

    // Boot loader, the restart (the device unplugged and plugged in as a person does,
    // and the dialog seeing it leave and return), then the firmware.
    void bootLoaderWizard()
    {
        const QString control = sandbox.root() + "/plug";
        TestSupport::writeFile(control, "plugged\n");
        EmulatedBus bus({"control=" + control + ",record=" + record("wizard")});
        QVERIFY(bus.isUp());
        ModalAnswerer answerer;
        WizardBootLoader wizard(settings.get(), false, QString(), FileDownloader::Http, false, nullptr);
        wizard.setStartId(WizardBootLoader::Select);
        QWizardPage *page = wizard.page(WizardBootLoader::Select);
        page->findChild<QLineEdit *>("line_bootloaderfile")->setText(bootLoader);
        page->findChild<QLineEdit *>("line_firmwarefile")->setText(package.first());
        wizard.show();
        // The technician turns the device off at the restart, on again, pulls it once
        // more when it is found, and plugs it in: "milliseconds:label:OK enabled".
        QElapsedTimer clock;
        QStringList seen;
        QTimer technician;
        connect(&technician, &QTimer::timeout, this, [&] {
            auto *restart = qobject_cast<BreakFlash *>(QApplication::activeModalWidget());
            if (!restart)
                return;
            if (!clock.isValid())
                clock.start();
            const QString label = restart->findChild<QLabel *>("label_devicefound")->text();
            const QString state = label + ":" + QString::number(restart->findChild<QPushButton *>("buttonOK")->isEnabled());
            if (!seen.isEmpty() && seen.last().endsWith(":" + state))
                return;
            seen << QString::number(clock.elapsed()) + ":" + state;
            if (seen.size() == 1 || seen.size() == 3)
                TestSupport::writeFile(control, "pulled\n");
            else if (label == "Device not connected!")
                TestSupport::writeFile(control, "plugged\n");
            else if (label == "Device connected!")
                restart->findChild<QPushButton *>("buttonOK")->click();
        });
        technician.start(200);
        page->findChild<QPushButton *>("buttonUpdate")->click();
        QTRY_VERIFY_WITH_TIMEOUT(wizard.button(QWizard::FinishButton)->isEnabled(), 120000);
        QStringList states;
        for (const QString &entry : seen)
            states << entry.section(':', 1);
        QCOMPARE(states, (QStringList{":0", "Device not connected!:0", "Device connected!:1", "Device not connected!:0",
                                      "Device connected!:1"}));
        // The first look comes 8 s after the dialog (which the technician sees a tick late).
        QVERIFY2(seen.value(1).section(':', 0, 0).toInt() >= 7000, qPrintable(seen.join(" | ")));
        QCOMPARE(wizard.currentPage()->findChild<QLabel *>("statusLabel")->text(), QString("Flashing completed"));
        QCOMPARE(answerer.texts, QStringList{"Flashing completed\nPlease perform Tessel restart!"});
        QCOMPARE(EmulatedBus::received(record("wizard")), FirmwareKit::flashedImages({"bl"}, 1, fileSize) + flashed);
    }
};

QTEST_MAIN(TestEmulated)
#include "tst_emulated.moc"
