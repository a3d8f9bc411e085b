// DFUThread from the first hash to its ending, against the dfu-util simulator and the
// real gpg. The test program lives beside both, as the program does.
#include "app/log.h"
#include "app/settings.h"
#include "flash/dfuthread.h"

#include "firmwarekit.h"
#include "testsupport.h"

#include <QDir>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTest>

#include <sys/stat.h>

using TestSupport::FirmwareKit;
using TestSupport::SignalLog;

namespace {
const QString P = "\n\nThe selected firmware files are corrupted or\nthis version of Morvanta does not match with "
                  "these files.\nTry again and be sure that\nthe latest version of this software is installed";
const QString aborted = "Process aborted! Perform device restart before flashing again";
const QString completed = "Flashing completed\nPlease perform Tessel restart!";
} // namespace

class TestDfuThread : public QObject
{
    Q_OBJECT
    TestSupport::Sandbox sandbox;
    FirmwareKit kit;
    std::unique_ptr<Settings> settings;
    QString firmware; // folder of the test's packages
    QString record;   // the simulator's call record

    QStringList calls() const
    {
        const QString text = QString::fromUtf8(TestSupport::readFile(record));
        return text.isEmpty() ? QStringList() : text.trimmed().split('\n');
    }
    QString dfuCall(const QString &stage, const QString &file, const QString &size = "64") const
    {
        return "-d 0x2675:0x0001\t-D\t" + settings->getExtractFolder() + "/" + stage + "/" + file + "\t-t " + size;
    }
    QString log() const { return QString::fromLocal8Bit(TestSupport::readFile(Log::filePath())); }

    struct Run {
        std::unique_ptr<DFUThread> thread;
        std::unique_ptr<SignalLog> log;
    };
    Run start(const QStringList &files, int flashMode = 0, int rev = 0, bool skipGpg = false, bool blOnly = false)
    {
        settings->createExtractFolder();
        QFile::remove(record);
        Run run;
        run.thread = std::make_unique<DFUThread>(settings.get(), flashMode, files, rev, skipGpg, blOnly, nullptr);
        run.log = std::make_unique<SignalLog>(run.thread.get());
        run.thread->start();
        return run;
    }
    static bool finish(Run &run, int msecs = 60000)
    {
        const bool ended = run.thread->wait(QDeadlineTimer(msecs));
        QTest::qWait(50); // let the queued signals arrive
        return ended;
    }

private slots:
    void initTestCase()
    {
        TestSupport::useSandbox(sandbox);
        settings = std::make_unique<Settings>(static_cast<QObject *>(nullptr));
        QVERIFY(settings->isGpgAvailable());
        settings->prepareGpgFolder();
        firmware = sandbox.root() + "/firmware";
        QDir().mkpath(firmware);
        record = sandbox.root() + "/dfu-calls.txt";
        qputenv("DFU_SIM_RECORD", QFile::encodeName(record));
    }

    void init()
    {
        clearLogFile();
        qputenv("DFU_SIM_HASH_MS", "20");
        for (const char *v : {"DFU_SIM_ERROR", "DFU_SIM_ERROR_AT", "DFU_SIM_EXIT", "DFU_SIM_HANG_AT", "DFU_SIM_SILENT",
                              "DFU_SIM_DEVICE", "DFU_SIM_DIALECT"})
            qunsetenv(v);
    }

    // The field's dfu-util 0.7 and Debian's 0.11 must look alike to the user.
    void wholeSignedPackage_data()
    {
        QTest::addColumn<QString>("dialect");
        QTest::addColumn<QString>("exitCode"); // empty: the tool's own
        QTest::newRow("dfu-util 0.7") << "0.7" << "";
        QTest::newRow("dfu-util 0.11") << "0.11" << "";
        QTest::newRow("dfu-util 0.11, 74 after Done!: the final reset found a new device") << "0.11" << "74";
    }
    void wholeSignedPackage()
    {
        QFETCH(QString, dialect);
        qputenv("DFU_SIM_DIALECT", dialect.toUtf8());
        QFETCH(QString, exitCode);
        if (!exitCode.isEmpty())
            qputenv("DFU_SIM_EXIT", exitCode.toUtf8());
        const QStringList files = kit.makePackage(firmware, "Tessel_NINE_V1_2_4", 3, 2, 20000, true);
        Run run = start(files);
        QVERIFY(finish(run));
        const SignalLog &r = *run.log;
        QStringList statuses = r.of("updateStatus");
        statuses.removeDuplicates();
        QCOMPARE(statuses, (QStringList{"Calculate MD5 Hashes", "Extracting firmware", "Building sys file lists",
                                        "Calculating total file size",
                                        "Search for DFU USB device - This might take a few seconds",
                                        "Flashing firmware stage #1 - File 1/5", "Flashing firmware stage #1 - File 2/5",
                                        "Flashing firmware stage #1 - File 3/5", "Flashing firmware stage #2 - File 4/5",
                                        "Flashing firmware stage #2 - File 5/5", "Flashing completed"}));
        QCOMPARE(r.of("updateFileLabel"), (QStringList{"os_01.sys", "os_02.sys", "os_03.sys", "pr_01.sys", "pr_02.sys"}));
        // One step per hash mark, never 100 before the end; "Setting #0" counts for nothing.
        const QStringList progress = r.of("updateProgress");
        QCOMPARE(progress.size(), 5 * 50 + 1);
        for (int i = 0; i + 1 < progress.size(); ++i)
            QVERIFY(progress[i].toInt() < 100 && progress[i].toInt() <= progress[i + 1].toInt());
        // Written of total in bytes up to the first thousand, then in kB.
        const QStringList written = r.of("updateWrittenStatus");
        QCOMPARE((QStringList{written.value(0), written.value(2), written.value(5 * 50 - 1)}),
                 (QStringList{"400,100000,true", "1,100,false", "100,100,false"}));
        QCOMPARE(r.events.mid(r.events.size() - 8),
                 (QStringList{"sigdisableAbort", "updateProgress:100", "updateDFUProgress:100", "resetWrittenStatus",
                              "visibilityRemaining:false", "updateStatus:Flashing completed",
                              "msgboxErrorSignal:Info," + completed, "exitCode:0"}));

        QCOMPARE(calls(), (QStringList{dfuCall("os", "os_01.sys"), dfuCall("os", "os_02.sys"), dfuCall("os", "os_03.sys"),
                                       dfuCall("pr", "pr_01.sys"), dfuCall("pr", "pr_02.sys")}));
        // The archives were unpacked and removed; the selected files are untouched.
        QVERIFY(QDir(settings->getExtractFolder()).entryList(QDir::Files).isEmpty());
        QVERIFY(QFile::exists(files[0]) && QFile::exists(files[1]));
        QVERIFY(log().contains("Total file size:  100000 Byte\n \n"));
        // The tool's whole text, but no marks.
        QVERIFY(log().contains("DFU mode device DFU version 0110"));
        QVERIFY(!log().contains(QRegularExpression("#(?!0 )")));
    }

    void plainZipsAndRevisionOne()
    {
        const QStringList files = kit.makePackage(firmware, "Tessel_NINE_01_02_05", 1, 1, 3000, false);
        Run run = start(files, 0, 1, true);
        QVERIFY(finish(run));
        QCOMPARE(run.log->events.last(), QString("exitCode:0"));
        QCOMPARE(calls(), (QStringList{dfuCall("os", "os_01.sys", "4096"), dfuCall("pr", "pr_01.sys", "4096")}));
    }

    void transferFaults_data()
    {
        QTest::addColumn<QString>("dialect");
        QTest::addColumn<int>("split");        // the tool's output in pieces of this many bytes
        QTest::addColumn<QString>("line");     // printed by the tool
        QTest::addColumn<QString>("errorAt");  // after how many fiftieths of the file
        QTest::addColumn<QString>("exitCode"); // empty: the tool's own
        QTest::addColumn<QStringList>("errors"); // what the window is told
        const QString d = "Device is not connected";
        const auto row = [](const char *dialect, const char *name, int split = 0) -> QTestData & {
            return QTest::addRow("%s %s", dialect, name) << QString(dialect) << split;
        };
        row("0.7", "lost device mid-file") << "Lost device after RESET?" << "17" << ""
                                           << QStringList{d + " - Lost device after RESET"};
        row("0.7", "no device, exit 0") << "No DFU capable USB device found" << "-1" << "0"
                                        << QStringList{"No DFU capable USB device found"};
        row("0.7", "error after the marks, exit 0") << "Error during download get_status" << "50" << "0"
                                                    << QStringList{"Error during download"};
        row("0.7", "exit 0 without output") << "silent" << "-1" << "0"
                                            << QStringList{"dfu-util ended without any output"};
        row("0.7", "cannot be started") << "broken" << "-1" << "" << QStringList{"Unable to start dfu-util"};
        // Ended without a mark of the table: still a failed file, with the tool's last words.
        row("0.7", "a message we do not know, exit 1") << "Unexpected trouble" << "20" << "1"
                                                       << QStringList{"dfu-util ended with exit code 1\nUnexpected trouble"};
        row("0.7", "a message in pieces in the bar, exit 1", 4) << "Unexpected trouble" << "20" << "1"
                                                       << QStringList{"dfu-util ended with exit code 1\nUnexpected trouble"};
        row("0.11", "killed after a message we do not know") << "Unexpected trouble" << "-1" << "137"
                                       << QStringList{"dfu-util was ended by a signal\ndfu-util: Unexpected trouble"};
        // The last line is whole although it came in pieces.
        row("0.11", "killed after a message in pieces", 3) << "Unexpected trouble" << "-1" << "137"
                                       << QStringList{"dfu-util was ended by a signal\ndfu-util: Unexpected trouble"};
        row("0.11", "opening error before the download")
            << "Cannot open DFU device 2675:0001 found on devnum 5 (LIBUSB_ERROR_ACCESS)" << "-1" << ""
            << QStringList{d + " - Opening error\n" + ErrorTexts::noPermission()};
        row("0.11", "no device") << "absent" << "-1" << "" << QStringList{"No DFU capable USB device found"};
        row("0.11", "firmware corrupt after the bar")
            << "Warning: DFU Status: 'Device's firmware is corrupt. It cannot return to run-time (non-DFU) operations'"
            << "50" << "" << QStringList{"Device's firmware is corrupt"};
    }

    void transferFaults()
    {
        QFETCH(QString, dialect);
        qputenv("DFU_SIM_DIALECT", dialect.toUtf8());
        QFETCH(int, split);
        qputenv("DFU_SIM_SPLIT", QByteArray::number(split));
        QFETCH(QString, line);
        QFETCH(QString, exitCode);
        if (line == "absent")
            qputenv("DFU_SIM_DEVICE", "absent");
        else if (line != "silent" && line != "broken")
            qputenv("DFU_SIM_ERROR", line.toUtf8());
        QFETCH(QString, errorAt);
        qputenv("DFU_SIM_ERROR_AT", errorAt.toUtf8());
        if (!exitCode.isEmpty())
            qputenv("DFU_SIM_EXIT", exitCode.toUtf8());
        qputenv("DFU_SIM_SILENT", line == "silent" ? "1" : "0");
        std::optional<TestSupport::BrokenTool> guard;
        if (line == "broken")
            guard.emplace("dfu-util");
        const QStringList files = kit.makePackage(firmware, "Tessel_NINE_9_9", 2, 1, 5000, false);
        Run run = start(files, 0, 0, true);
        QVERIFY(finish(run));
        const SignalLog &r = *run.log;
        QTEST(r.of("errorOutputSignal"), "errors");
        QCOMPARE(r.events.last(), "updateStatus:" + aborted);
        QVERIFY(r.has("exitCode:2") && !r.has("exitCode:0") && r.of("msgboxErrorSignal").isEmpty());
        QCOMPARE(calls().size(), line == "broken" ? 0 : 1); // the run stops at the failed file
    }

    void packageFaults_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("status");
        QTest::addColumn<QString>("box");
        QTest::newRow("not a zip") << "notzip" << "Error in firmware extraction" << "Error in firmware extraction";
        QTest::newRow("no pr folder") << "nopr" << "Package contains no firmware files"
                                      << "Package contains no firmware files";
        QTest::newRow("zero-sized file") << "zero" << "Packages contain zero sized files"
                                         << "Packages contain zero sized files";
        QTest::newRow("stored without a signature") << "stored" << "Invalid digital signature"
                                                     << "Invalid digital signature" + P;
        QTest::newRow("gpg cannot be started") << "nogpg" << "Error starting GPG, restart again"
                                               << "Error starting GPG, restart again";
        QTest::newRow("a FIFO for a firmware file") << "fifo" << "Error calculating MD5 Hash" << "Error calculating MD5 Hash";
    }

    void packageFaults()
    {
        QFETCH(QString, kind);
        QFETCH(QString, box);
        const QString folder = firmware + "/" + kind;
        QDir().mkpath(folder);
        const QString os = folder + "/Tessel_NINE_1_1.OS.zip", pr = folder + "/Tessel_NINE_1_1.PR.zip";
        QVERIFY(FirmwareKit::makeZip(os, FirmwareKit::stageEntries("os", 1, 3000)));
        QVERIFY(FirmwareKit::makeZip(pr, FirmwareKit::stageEntries(kind == "nopr" ? "xx" : "pr", 1,
                                                                   kind == "zero" ? 0 : 3000)));
        QStringList files{os, pr};
        if (kind == "notzip")
            QVERIFY(TestSupport::writeFile(pr, "PK but not really"));
        if (kind == "fifo")
            QVERIFY(QFile::remove(pr) && mkfifo(QFile::encodeName(pr).constData(), 0644) == 0);
        const bool gpg = kind == "stored" || kind == "nogpg";
        if (gpg) {
            files = {os + ".gpg", pr + ".gpg"};
            QVERIFY(kit.pack(os, files[0]));
            QVERIFY(kit.pack(pr, files[1], kind == "stored" ? FirmwareKit::Packing::Stored : FirmwareKit::Packing::Signed));
        }
        std::optional<TestSupport::BrokenTool> guard;
        if (kind == "nogpg")
            guard.emplace("gpg");

        Run run = start(files, 0, 0, !gpg);
        QVERIFY(finish(run));
        const SignalLog &r = *run.log;
        QCOMPARE(r.of("msgboxErrorSignal"), QStringList{"Error," + box});
        QTEST(r.of("updateStatus").last(), "status");
        QCOMPARE(r.events.mid(r.events.size() - 3),
                 (QStringList{"sigdisableAbort", "visibilityRemaining:false", "exitCode:2"}));
        QVERIFY(calls().isEmpty());
        // Nothing unchecked is left to be mistaken for a checked archive.
        QVERIFY(!QFile::exists(settings->getExtractFolder() + "/Tessel_NINE_1_1.PR.zip") || !gpg);
    }

    // An abort kills gpg at work, and the run ends without a box of its own (the abort
    // of dfu-util: tst_dialog, tst_station).
    void abortWhileGpgRuns()
    {
        // Big and incompressible, so that gpg is still at work when the abort comes.
        QDir().mkpath(firmware + "/big");
        const QStringList files = kit.makePackage(firmware + "/big", "Tessel_NINE_8_8", 1, 1, 1, true);
        const QString os = firmware + "/big/Tessel_NINE_8_8.OS.zip";
        QByteArray noise(80 * 1024 * 1024, '\0');
        QRandomGenerator(42).fillRange(reinterpret_cast<quint32 *>(noise.data()), noise.size() / 4);
        QVERIFY(FirmwareKit::makeZip(os, {{"os/", {}}, {"os/big.sys", noise}}));
        QVERIFY(kit.pack(os, files[0]));
        Run run = start(files);
        QTRY_VERIFY_WITH_TIMEOUT(run.log->has("updateStatus:Extracting firmware"), 30000);
        QTest::qWait(100);
        run.thread->abortByUser();
        QVERIFY(finish(run, 20000));
        const SignalLog &r = *run.log;
        QCOMPARE(r.events.count("externalProcessesFinished"), 1);
        QVERIFY(r.has("exitCode:2") && !r.has("updateStatus:" + aborted));
        QVERIFY(r.of("msgboxErrorSignal").isEmpty() && r.of("errorOutputSignal").isEmpty());
        QVERIFY(calls().isEmpty() && log().contains("kill gpg"));
    }
};

QTEST_GUILESS_MAIN(TestDfuThread)
#include "tst_dfuthread.moc"
