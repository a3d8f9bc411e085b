// The built program as its users run it: unattended runs as a production script starts
// them (-a, the exit code is the answer), and a technician who downloads the released
// firmware from the reference server and flashes it, all by keyboard. The dfu-util
// simulator, real gpg and signed packages; run in a network namespace of its own.
#include "app/settings.h"
#include "deployment.h"

#include "firmwarekit.h"
#include "windowsupport.h"

#include <QDir>
#include <QScopeGuard>
#include <QTest>

#include <optional>

#include <csignal>
#include <sys/stat.h>

using TestSupport::FirmwareKit;
using TestSupport::ProgramRun;
using TestSupport::Sandbox;

class TestEndToEnd : public QObject
{
    Q_OBJECT
    FirmwareKit kit;
    QTemporaryDir firmware;
    QStringList package; // signed V1_2_4 pair, alone in its folder
    QString bootLoader;  // signed, with the firmware above


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
        QDir().mkpath(firmware.path() + "/bootloader");
        bootLoader = kit.makeBootloader(firmware.path() + "/bootloader", "Tessel_NINE_V2_0_1", 1, 3000, true);
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
        // The working folder fills up while unpacking: nothing reaches the device.
        QTest::newRow("working folder fills up") << QStringList{"-a", "-p", fw + "/good"} << "WORKING_KIB=24" << "ERROR"
                                                 << 2 << 0;
        // Killed mid-file after words of no known mark: still the box, still the end.
        QTest::newRow("dfu-util killed mid-file")
            << QStringList{"-a", "-p", fw + "/good"} << "DFU_SIM_ERROR=Unexpected trouble;DFU_SIM_ERROR_AT=20;DFU_SIM_EXIT=137"
            << "ERROR" << 2 << 1;
    }

    void endings()
    {
        QFETCH(QStringList, args);
        QFETCH(QString, env);
        QFETCH(QString, box);
        Sandbox sandbox;
        sandbox.writeConfig({{"mode", "internal"}});
        sandbox.installProgram({"gpg", "dfu-util"});
        const QProcessEnvironment extra = simulator(sandbox, env);
        if (extra.contains("WORKING_KIB") &&
            !TestSupport::mountTmpfs(sandbox.instanceFolder(), extra.value("WORKING_KIB").toInt()))
            QSKIP("needs a mount namespace of its own");
        const auto unmount = qScopeGuard([&] {
            if (extra.contains("WORKING_KIB"))
                QProcess::execute("umount", {sandbox.instanceFolder()});
        });

        ProgramRun run(sandbox, args, QString(), extra);
        if (!box.isEmpty())
            QVERIFY2(TestSupport::answerBox(box, 60000), qPrintable(box));
        QVERIFY2(run.waitForExit(60000), qPrintable(run.output()));
        QTEST(run.exitCode(), "exitCode");
        QFETCH(int, exitCode);
        QCOMPARE(sandbox.lastLogLine(), QString("\"Morvanta exit %1\" ").arg(exitCode));
        QTEST(int(QString::fromUtf8(TestSupport::readFile(sandbox.root() + "/calls.txt")).count("-D\t")), "downloads");
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
        ProgramRun run(sandbox, {}, QString(), simulator(sandbox, ""));
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
        QTest::addColumn<QString>("published"); // the version file; "" no share, "sparse" 100 GB of nothing
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("answer");    // the box answered, and how: "QUESTION:y"
        QTest::addColumn<bool>("handedOver");
        QTest::addColumn<QString>("logged");
        // The version's bytes add up to 247, modulo 256.
        const QString good = "[General]\nMorvanta=Morvanta.03.20260701.0\nrelease_info=R\nkey=247\n";
        QTest::newRow("newer: upgrade") << good << QStringList{} << "QUESTION:y" << true << "\"***********Fen Updater *********\"";
        QTest::newRow("wrong checksum") << QString(good).replace("247", "12") << QStringList{} << "ERROR:Return" << false
                                        << "\"Latest key:      12\"";
        QTest::newRow("keys in any case") << "[general]\nMORVANTA = Morvanta.03.20260701.0\r\nKey=247 ; checked\n"
                                          << QStringList{} << "QUESTION:Return" << false << "\"Latest key:      247\"";
        QTest::newRow("no share") << "" << QStringList{} << "" << false << " does not exit\"";
        QTest::newRow("100 GB, sparse") << "sparse" << QStringList{} << "" << false << " is larger than 64 KiB\"";
        // The flash runs when the box comes: it waits, and the run ends with the flash's code.
        QTest::newRow("wrong checksum, unattended flash") << QString(good).replace("247", "12")
                                                          << QStringList{"-a", "-p", firmware.path() + "/good"} << ""
                                                          << false << "Flashing completed \n";
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
        if (published == "sparse") {
            QDir().mkpath(QFileInfo(Deployment::networkVersionFile).path());
            QFile file(Deployment::networkVersionFile);
            QVERIFY(file.open(QIODevice::WriteOnly) && file.resize(qint64(100) << 30));
        } else if (!published.isEmpty()) {
            QVERIFY(TestSupport::writeFile(Deployment::networkVersionFile, published.toUtf8()));
        }
        Sandbox sandbox;
        sandbox.writeConfig({{"mode", "internal"}, {"fenupdaterpath", TestSupport::binDir() + "/stand-in-updater"},
                             {"fenupdater_id", "ID42"}});
        sandbox.installProgram({"gpg", "dfu-util"});
        ProgramRun run(sandbox, args, QString(), simulator(sandbox, "STAND_IN_UPDATER_RECORD=" + sandbox.root() + "/updater.txt"));
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

    // A version file that never answers, as a share that hangs, holds up nothing: not
    // the window, its end, a language restart, nor an unattended run. A FIFO's open
    // waits for a writer; a FUSE share whose server is stopped holds any look at it.
    void shareThatHangs_data()
    {
        QTest::addColumn<QString>("share"); // fifo, stopped
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("action"); // close, restart; nothing in unattended runs
        QTest::addColumn<int>("exitCode");
        const QString good = firmware.path() + "/good";
        QTest::newRow("window closed") << "fifo" << QStringList{} << "close" << 0;
        QTest::newRow("language restart") << "fifo" << QStringList{} << "restart" << 0;
        QTest::newRow("unattended flash") << "fifo" << QStringList{"-a", "-p", good} << "" << 0;
        QTest::newRow("unattended boot loader") << "fifo" << QStringList{"-a", "-b", "-f", bootLoader} << "" << 0;
        QTest::newRow("stopped share, window closed") << "stopped" << QStringList{} << "close" << 0;
        QTest::newRow("stopped share, unattended boot loader") << "stopped" << QStringList{"-a", "-b", "-f", bootLoader}
                                                               << "" << 0;
    }

    void shareThatHangs()
    {
        QFETCH(QString, share);
        QFETCH(QStringList, args);
        QFETCH(QString, action);
        if (QProcess::execute("mount", {"-t", "tmpfs", "tmpfs", "/mnt"}) != 0)
            QSKIP("needs a mount namespace of its own");
        const QString file = Deployment::networkVersionFile;
        const auto unmount = qScopeGuard([] { QProcess::execute("umount", {"-l", "/mnt"}); });
        QDir().mkpath(QFileInfo(file).path());
        std::optional<TestSupport::FuseShare> stopped;
        if (share == "fifo") {
            QCOMPARE(mkfifo(QFile::encodeName(file).constData(), 0644), 0);
        } else {
            stopped.emplace(firmware.path() + "/share.img", QFileInfo(file).path());
            if (!stopped->isMounted())
                QSKIP("needs FUSE (/dev/fuse) in a mount namespace of its own");
            QVERIFY(TestSupport::writeFile(file, "[General]\n"));
            stopped->stop();
        }
        Sandbox sandbox;
        sandbox.writeConfig({{"Mode", "internal"}, {"language", "English"}}); // a key in the maker's case
        sandbox.installProgram({"gpg", "dfu-util"});
        const QString window = "Morvanta.03.20260616.0";
        auto run = std::make_unique<ProgramRun>(sandbox, args, QString(), simulator(sandbox, ""));
        if (action == "restart") {
            QVERIFY(TestSupport::answerBox("WELCOME"));
            QVERIFY(TestSupport::typeInto(window, "ctrl+g"));
            QVERIFY(TestSupport::answerBox("QUESTION")); // Yes is the default here
            QVERIFY(TestSupport::answerBox("WILLKOMMEN"));
        }
        if (!action.isEmpty()) {
            QVERIFY(action == "restart" || TestSupport::answerBox("WELCOME"));
            QVERIFY(TestSupport::closeWindow(window));
        }
        QVERIFY2(run->waitForExit(30000), qPrintable(sandbox.log().right(600)));
        QTEST(run->exitCode(), "exitCode");
        // The check ran (the configuration's "Mode" made this start internal) and ended
        // at once, or it waits still on the stopped share, unheard.
        QCOMPARE(sandbox.log().contains("software_version.ini is no readable file\""), share == "fifo");
        // The next start from the same folder is not kept out by one that lingers.
        run = std::make_unique<ProgramRun>(sandbox, QStringList{});
        QVERIFY(TestSupport::answerBox(action == "restart" ? "WILLKOMMEN" : "WELCOME"));
        QVERIFY(!TestSupport::windowExists("ERROR"));
        QVERIFY2(TestSupport::closeWindow(window), qPrintable(sandbox.log().right(600)));
        QVERIFY(run->waitForExit(10000));
        QCOMPARE(run->exitCode(), 0);
    }

    void bootLoaderRuns_data()
    {
        QTest::addColumn<QString>("file"); // behind -f; "search" for none, the folder of the share
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<int>("downloads");
        QTest::newRow("found on the share, greatest name") << "search" << 0 << 1;
        QTest::newRow("stored without a signature") << "stored" << 2 << 0;
        QTest::newRow("name of no boot loader") << "other" << 2 << 0;
    }

    void bootLoaderRuns()
    {
        QFETCH(QString, file);
        QFETCH(int, exitCode);
        QFETCH(int, downloads);
        const QString folder = firmware.path() + "/bl";
        QDir().mkpath(folder);
        const QString good = kit.makeBootloader(folder, "Tessel_NINE_V2_0_1", 1, 3000, true);
        QVERIFY(FirmwareKit::makeZip(folder + "/x.BL.zip", FirmwareKit::stageEntries("bl", 1, 3000)));
        QVERIFY(kit.pack(folder + "/x.BL.zip", folder + "/Tessel_NINE_V2_0_3.BL.zip.gpg", FirmwareKit::Packing::Stored));
        QFile::copy(good, folder + "/other.bin");
        QStringList args{"-a", "-b"};
        QString expected;
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
            expected = file == "stored" ? folder + "/Tessel_NINE_V2_0_3.BL.zip.gpg" : folder + "/other.bin";
            args << "-f" << expected;
        }
        Sandbox sandbox;
        sandbox.writeConfig({{"mode", "internal"}});
        sandbox.installProgram({"gpg", "dfu-util"});
        ProgramRun run(sandbox, args, QString(), simulator(sandbox, ""));
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
