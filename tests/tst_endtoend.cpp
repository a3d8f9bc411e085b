// The built program as its users run it: unattended runs as a production script starts
// them (-a, the exit code is the answer), and a technician who downloads the released
// firmware from the reference server and flashes it, all by keyboard. The dfu-util
// simulator, real gpg and signed packages; run in a network namespace of its own.
#include "app/settings.h"
#include "deployment.h"

#include "firmwarekit.h"
#include "testsupport.h"

#include <QDir>
#include <QScopeGuard>
#include <QSettings>
#include <QTest>

using TestSupport::FirmwareKit;
using TestSupport::ProgramRun;
using TestSupport::Sandbox;

class TestEndToEnd : public QObject
{
    Q_OBJECT
    FirmwareKit kit;
    QTemporaryDir firmware;
    QStringList package; // signed V1_2_4 pair, alone in its folder


    // The simulator's scenario for one run: NAME=VALUE;... on top of a quick transfer.
    static QProcessEnvironment simulator(const Sandbox &sandbox, const QString &scenario)
    {
        QProcessEnvironment extra;
        extra.insert("DFU_SIM_RECORD", sandbox.root() + "/calls.txt");
        extra.insert("DFU_SIM_HASH_MS", "10");
        for (const QString &pair : scenario.split(';', Qt::SkipEmptyParts))
            extra.insert(pair.section('=', 0, 0), pair.section('=', 1));
        return extra;
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run under xvfb-run");
        QDir().mkpath(firmware.path() + "/good");
        QDir().mkpath(firmware.path() + "/lonely");
        QDir().mkpath(firmware.path() + "/empty");
        package = kit.makePackage(firmware.path() + "/good", "Tessel_NINE_V1_2_4", 2, 1, 4000, true);
        QCOMPARE(package.size(), 2);
        QVERIFY(QFile::copy(package[0], firmware.path() + "/lonely/Tessel_NINE_V1_2_4.OS.zip.gpg"));
    }

    void endings_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("env");     // NAME=VALUE;... for the simulator
        QTest::addColumn<QString>("box");     // the box to answer first, if any
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<int>("downloads");   // dfu-util transfers made
        const QString fw = firmware.path();
        QTest::newRow("good run") << QStringList{"-a", "-p", fw + "/good"} << "" << "" << 0 << 3;
        QTest::newRow("partner missing") << QStringList{"-a", "-f", fw + "/lonely/Tessel_NINE_V1_2_4.OS.zip.gpg"}
                                         << "" << "" << 2 << 0;
        QTest::newRow("empty folder") << QStringList{"-a", "-p", fw + "/empty"} << "" << "ERROR" << 2 << 0;
        QTest::newRow("no device") << QStringList{"-a", "-p", fw + "/good"} << "DFU_SIM_DEVICE=absent" << "ERROR" << 2
                                   << 0;
        QTest::newRow("device error during the flash")
            << QStringList{"-a", "-p", fw + "/good"} << "DFU_SIM_ERROR=Cannot open device: LIBUSB_ERROR_ACCESS"
            << "ERROR" << 2 << 1;
        QTest::newRow("good run, Debian's dfu-util") << QStringList{"-a", "-p", fw + "/good"} << "DFU_SIM_DIALECT=0.11"
                                                     << "" << 0 << 3;
    }

    void endings()
    {
        QFETCH(QStringList, args);
        QFETCH(QString, env);
        QFETCH(QString, box);
        QFETCH(int, downloads);
        Sandbox sandbox;
        sandbox.writeConfig({{"mode", "internal"}});
        sandbox.installProgram({"gpg", "dfu-util"});
        const QProcessEnvironment extra = simulator(sandbox, env);

        ProgramRun run(sandbox, args, QString(), extra);
        if (!box.isEmpty())
            QVERIFY2(TestSupport::answerBox(box, 60000), qPrintable(box));
        QVERIFY2(run.waitForExit(60000), qPrintable(run.output()));
        QTEST(run.exitCode(), "exitCode");
        QFETCH(int, exitCode);
        QCOMPARE(sandbox.lastLogLine(), QString("\"Morvanta exit %1\" ").arg(exitCode));
        QCOMPARE(int(QString::fromUtf8(TestSupport::readFile(sandbox.root() + "/calls.txt")).count("-D\t")), downloads);
        QVERIFY(!sandbox.log().contains("Copy config file")); // the window's settings found the file
    }

    // A production PC flashes two devices at once, from two folders: each run has its
    // own scratch folders and its own log.
    void twoRunsFromTwoFolders()
    {
        Sandbox sandbox;
        sandbox.writeConfig({{"mode", "internal"}});
        sandbox.installProgram({"gpg", "dfu-util"});
        QProcessEnvironment extra;
        extra.insert("DFU_SIM_HASH_MS", "400");
        std::vector<std::unique_ptr<ProgramRun>> runs;
        QStringList folders;
        for (const char *name : {"/line-a", "/line-b"}) {
            folders << sandbox.root() + name;
            QDir().mkpath(folders.last());
            runs.push_back(std::make_unique<ProgramRun>(sandbox, QStringList{"-a", "-p", firmware.path() + "/good"},
                                                        folders.last(), extra));
            QTest::qWait(700);
        }
        for (int i = 0; i < 2; ++i) {
            QVERIFY2(runs[i]->waitForExit(60000), qPrintable(sandbox.log(folders[i])));
            QCOMPARE(runs[i]->exitCode(), 0);
            QCOMPARE(sandbox.lastLogLine(folders[i]), QString("\"Morvanta exit 0\" "));
            QVERIFY(!sandbox.log(folders[i]).contains("Error"));
        }
    }

    void downloadAndFlashByKeyboard()
    {
        Sandbox sandbox;
        sandbox.writeConfig({{"mode", "user"}, {"language", "English"}});
        sandbox.installProgram({"gpg", "dfu-util"});
        TestSupport::UpdateServer server(QStringLiteral(MORVANTA_TEST_BUILD_DIR) + "/server/tree");
        QVERIFY(server.isListening());
        const QString downloads = sandbox.home() + "/Downloads";
        QDir().mkpath(downloads);
        QProcessEnvironment extra;
        extra.insert("DFU_SIM_RECORD", sandbox.root() + "/calls.txt");
        extra.insert("DFU_SIM_HASH_MS", "10");
        ProgramRun run(sandbox, {}, QString(), extra);
        const QString window = "Morvanta.03.20260616.0";
        QVERIFY(TestSupport::answerBox("WELCOME"));
        // Into the tabs, over to "Download from server", its "Search..." button.
        QVERIFY(TestSupport::typeInto(window, "Tab ctrl+Tab ctrl+Tab Tab Tab space"));
        QVERIFY(TestSupport::typeInto("QUESTION", "y"));
        QVERIFY(TestSupport::typeInto("Select Directory for storing files", downloads, true));
        QVERIFY(TestSupport::answerBox("INFO")); // "Download completed!"
        QCOMPARE(QDir(downloads).entryList(QDir::Files),
                 (QStringList{"Tessel_NINE_V1_2_4.OS.zip.gpg", "Tessel_NINE_V1_2_4.PR.zip.gpg"}));
        // Back to "USB Cable", where the download waits checked and ready: "Update".
        QVERIFY(TestSupport::typeInto(window, "Tab ctrl+Tab Tab Tab Tab space"));
        QVERIFY(TestSupport::typeInto("QUESTION", "y"));
        QVERIFY(TestSupport::answerBox("INFO", 60000)); // "Flashing completed"
        QCOMPARE(QString::fromUtf8(TestSupport::readFile(sandbox.root() + "/calls.txt")).count("-D\t"), 5);
        QVERIFY(sandbox.log().contains("Download successful  \"" + downloads + "/Tessel_NINE_V1_2_4.PR.zip.gpg\""));
        QVERIFY(sandbox.log().contains("Flashing completed \n"));
    }

    // In internal mode the program looks for a newer version of itself on the share.
    void newVersionOnTheShare_data()
    {
        QTest::addColumn<QString>("published"); // version=key; "" no share
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("answer");    // the box answered, and how: "QUESTION:y"
        QTest::addColumn<bool>("handedOver");
        QTest::addColumn<QString>("logged");
        const QString good = "Morvanta.03.20260701.0=247"; // its bytes add up to 247, modulo 256
        QTest::newRow("newer: upgrade") << good << QStringList{} << "QUESTION:y" << true << "\"***********Fen Updater *********\"";
        QTest::newRow("newer: not now") << good << QStringList{} << "QUESTION:Return" << false << "\"ID:                ID42\"";
        QTest::newRow("wrong checksum") << "Morvanta.03.20260701.0=12" << QStringList{} << "ERROR:Return" << false
                                        << "\"Latest key:      12\"";
        QTest::newRow("no share") << "" << QStringList{} << "" << false << " does not exit\"";
        QTest::newRow("unattended run: logged only") << good << QStringList{"-a", "-p", firmware.path() + "/good"} << ""
                                                     << false << "Upgrade is only possible if application\nis not in automatic mode!";
    }

    void newVersionOnTheShare()
    {
        QFETCH(QString, published);
        QFETCH(QStringList, args);
        QFETCH(QString, answer);
        QFETCH(bool, handedOver);
        QFETCH(QString, logged);
        if (QProcess::execute("mount", {"-t", "tmpfs", "tmpfs", "/mnt"}) != 0)
            QSKIP("needs a mount namespace of its own");
        const auto unmount = qScopeGuard([] { QProcess::execute("umount", {"/mnt"}); });
        if (!published.isEmpty()) {
            QDir().mkpath(QFileInfo(Deployment::networkVersionFile).path());
            QSettings file(Deployment::networkVersionFile, QSettings::IniFormat);
            file.setValue("Morvanta", published.section('=', 0, 0));
            file.setValue("release_info", "R");
            file.setValue("key", published.section('=', 1));
        }
        Sandbox sandbox;
        sandbox.writeConfig({{"mode", "internal"}, {"fenupdaterpath", TestSupport::binDir() + "/stand-in-updater"},
                             {"fenupdater_id", "ID42"}});
        sandbox.installProgram({"gpg", "dfu-util"});
        QProcessEnvironment extra;
        extra.insert("STAND_IN_UPDATER_RECORD", sandbox.root() + "/updater.txt");
        extra.insert("DFU_SIM_HASH_MS", "10");
        ProgramRun run(sandbox, args, QString(), extra);
        if (args.isEmpty())
            QVERIFY(TestSupport::answerBox("WELCOME"));
        if (!answer.isEmpty())
            QVERIFY(TestSupport::typeInto(answer.section(':', 0, 0), answer.section(':', 1)));
        QVERIFY(run.waitForExit(args.isEmpty() ? 3000 : 30000, false) == (handedOver || !args.isEmpty()));
        QCOMPARE(run.exitCode(), 0);
        QCOMPARE(QString::fromUtf8(TestSupport::readFile(sandbox.root() + "/updater.txt")),
                 handedOver ? "/cmd\nID42\n" + sandbox.root() + "\n" : QString());
        QVERIFY2(sandbox.log().contains(logged), qPrintable(sandbox.log().right(600)));
        QCOMPARE(sandbox.log().contains("\"ID:                ID42\""), answer.startsWith("QUESTION"));
        run.terminate();
    }

    void bootLoaderRuns_data()
    {
        QTest::addColumn<QString>("file"); // behind -f; "search" for none, the folder of the share
        QTest::addColumn<QString>("env");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<int>("downloads");
        QTest::newRow("given file") << "good" << "" << 0 << 1;
        QTest::newRow("found on the share, greatest name") << "search" << "" << 0 << 1;
        QTest::newRow("no device") << "good" << "DFU_SIM_DEVICE=absent" << 2 << 0;
        QTest::newRow("stored without a signature") << "stored" << "" << 2 << 0;
        QTest::newRow("name of no boot loader") << "other" << "" << 2 << 0;
    }

    void bootLoaderRuns()
    {
        QFETCH(QString, file);
        QFETCH(QString, env);
        QFETCH(int, exitCode);
        QFETCH(int, downloads);
        const QString folder = firmware.path() + "/bl";
        QDir().mkpath(folder);
        const QString good = kit.makeBootloader(folder, "Tessel_NINE_V2_0_1", 1, 3000, true);
        QVERIFY(FirmwareKit::makeZip(folder + "/x.BL.zip", FirmwareKit::stageEntries("bl", 1, 3000)));
        QVERIFY(kit.pack(folder + "/x.BL.zip", folder + "/Tessel_NINE_V2_0_3.BL.zip.gpg", FirmwareKit::Packing::Stored));
        QFile::copy(good, folder + "/other.bin");
        QStringList args{"-a", "-b"};
        QString expected = good;
        if (file == "search") {
            // The share, as the deployment names it, in this test's own mounts.
            const QString share = Settings::getNetworkBootloaderFolder();
            if (QProcess::execute("mount", {"-t", "tmpfs", "tmpfs", "/mnt"}) != 0)
                QSKIP("needs a mount namespace of its own");
            QDir().mkpath(share);
            QFile::copy(good, share + "/Tessel_NINE_V2_0_1.BL.zip.gpg");
            QFile::copy(good, share + "/Tessel_NINE_V2_0_2.BL.zip.gpg");
            QFile::copy(good, share + "/Tessel_NINE_V2_0_9.BL.zip.gpg.md5");
            expected = share + "/Tessel_NINE_V2_0_2.BL.zip.gpg";
        } else {
            expected = file == "good" ? good : file == "stored" ? folder + "/Tessel_NINE_V2_0_3.BL.zip.gpg" : folder + "/other.bin";
            args << "-f" << expected;
        }
        Sandbox sandbox;
        sandbox.writeConfig({{"mode", "internal"}});
        sandbox.installProgram({"gpg", "dfu-util"});
        const QProcessEnvironment extra = simulator(sandbox, env);
        ProgramRun run(sandbox, args, QString(), extra);
        // A failure waits on its ERROR box, unless the run's end has closed it.
        QDeadlineTimer deadline(60000);
        while (!run.waitForExit(300, false) && !deadline.hasExpired())
            TestSupport::answerBox("ERROR", 200);
        if (file == "search")
            QProcess::execute("umount", {"/mnt"});
        QTEST(run.exitCode(), "exitCode");
        QCOMPARE(sandbox.lastLogLine(), QString("\"%1\" ").arg(exitCode));
        QCOMPARE(QString::fromUtf8(TestSupport::readFile(sandbox.root() + "/calls.txt")).count("-D\t"), downloads);
        if (downloads > 0) // the file that was flashed is the one expected
            QVERIFY(sandbox.log().contains("File:  \"" + expected + "\""));
    }
};

QTEST_GUILESS_MAIN(TestEndToEnd)
#include "tst_endtoend.moc"
