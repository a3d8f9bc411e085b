// FlashJob alone, without window or station, from the first hash to its ending. Built
// twice: beside the dfu-util simulator (the field's old dialect, and faults that a real
// device cannot be made to show) and beside Debian's real dfu-util on the emulated bus.
// What the job says is written down in the user's words (FlashTexts), as a front end
// would show it.
#include "app/errortexts.h"
#include "app/log.h"
#include "app/settings.h"
#include "firmware/devicelisting.h"
#include "flash/downloadpacer.h"
#include "flash/flashjob.h"
#include "flash/flashtexts.h"
#include "history/flashhistory.h"
#include "history/historywriter.h"

#include "firmwarekit.h"
#include "testsupport.h"

#include <QCryptographicHash>
#include <QDir>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTest>

#include <sys/stat.h>

#include <thread>

using TestSupport::EmulatedBus;
using TestSupport::FirmwareKit;

namespace {
const QString P = "\n\nThe selected firmware files are corrupted or\nthis version of Morvanta does not match with "
                  "these files.\nTry again and be sure that\nthe latest version of this software is installed";
const QString searching = "Search for DFU USB device - This might take a few seconds";

// Everything a job said, as a front end words it; the same line twice in a row counts once.
struct Run {
    std::unique_ptr<FlashJob> job;
    QStringList events; // stages, files, the restart, the device's return, errors, the end
    QStringList statuses; // what a status line shows, in order
    QList<FlashProgress> progress;
    QList<FlashError> errors;
    QString outcome;

    void note(const QString &event)
    {
        if (events.isEmpty() || events.last() != event)
            events << event;
    }
    bool ended() const { return !outcome.isEmpty(); }
};

QString stageWord(FlashStage stage)
{
    const QString text = FlashTexts::stage(stage);
    return text.isEmpty() ? QString(stage == FlashStage::Restarting ? "restarting" : "verifying") : text;
}
} // namespace

class TestFlashJob : public QObject
{
    Q_OBJECT
    TestSupport::Sandbox sandbox;
    FirmwareKit kit;
    std::unique_ptr<Settings> settings;
    QString firmware; // folder of the test's packages
    QString record;   // the simulator's call record

    static bool emulated()
    {
#ifdef EMULATED_BUS
        return true;
#else
        return false;
#endif
    }
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

    // The one device the simulator shows, as a window's look before its question sees it.
    static QList<ListedDevice> simulatedDevice()
    {
        ListedDevice device;
        device.vendorProduct = "2675:0001";
        device.version = "1_2_3";
        device.hasV = true;
        return {device};
    }

    void start(Run &run, FlashJob::Options options)
    {
        settings->createExtractFolder();
        QFile::remove(record);
        run.job = std::make_unique<FlashJob>(settings.get(), options);
        FlashJob *job = run.job.get();
        connect(job, &FlashJob::stageChanged, this, [&run](FlashStage stage) {
            run.note("stage:" + stageWord(stage));
            if (!FlashTexts::stage(stage).isEmpty())
                run.statuses << FlashTexts::stage(stage);
        });
        connect(job, &FlashJob::fileStarted, this, [&run](const QString &stage, const QString &file, int n, int of) {
            run.note(QString("file:%1 %2/%3").arg(file).arg(n).arg(of));
            run.statuses << FlashTexts::transfer(stage, n, of);
        });
        connect(job, &FlashJob::progressed, this, [&run](const FlashProgress &p) { run.progress << p; });
        connect(job, &FlashJob::restartRequested, this, [&run] { run.note("restart asked"); });
        connect(job, &FlashJob::restartLooked, this, [&run](bool present) { run.note(present ? "seen" : "not seen"); });
        connect(job, &FlashJob::deviceReturned, this, [&run](const ListedDevice &d) { run.note("back on " + d.port); });
        connect(job, &FlashJob::errorOccurred, this, [&run](const FlashError &error) {
            run.errors << error;
            run.note("error:" + FlashTexts::error(error));
        });
        connect(job, &FlashJob::finished, this, [&run](FlashOutcome outcome) {
            run.outcome = outcomeWord(outcome);
            run.note("end:" + run.outcome);
        });
        job->start();
    }
    static bool finish(Run &run, int msecs = 60000)
    {
        QDeadlineTimer deadline(msecs);
        while (!run.ended() && !deadline.hasExpired())
            QTest::qWait(20);
        return run.ended();
    }
    FlashJob::Options simulated(const QStringList &files, bool plain = false) const
    {
        FlashJob::Options options;
        options.files = files;
        options.plainZips = plain;
        options.seen = simulatedDevice();
        return options;
    }

private slots:
    void initTestCase()
    {
        if (emulated() && !EmulatedBus::available())
            QSKIP("needs umockdev (tessel-emulator) and Debian's dfu-util");
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
                              "DFU_SIM_DEVICE", "DFU_SIM_DIALECT", "DFU_SIM_SPLIT"})
            qunsetenv(v);
    }

    // ---- Beside the simulator ----

    // The field's dfu-util 0.7 and Debian's 0.11 must read alike.
    void wholeSignedPackage_data()
    {
        if (emulated())
            QSKIP("the simulator's");
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
        Run run;
        start(run, simulated(files));
        QVERIFY(finish(run));
        QStringList statuses = run.statuses;
        statuses.removeDuplicates();
        QCOMPARE(statuses, (QStringList{"Calculate MD5 Hashes", "Extracting firmware", "Building sys file lists",
                                        "Calculating total file size", searching,
                                        "Flashing firmware stage #1 - File 1/5", "Flashing firmware stage #1 - File 2/5",
                                        "Flashing firmware stage #1 - File 3/5", "Flashing firmware stage #2 - File 4/5",
                                        "Flashing firmware stage #2 - File 5/5", "Flashing completed"}));
        QCOMPARE(run.events.filter("file:").join(' '),
                 QString("file:os_01.sys 1/5 file:os_02.sys 2/5 file:os_03.sys 3/5 file:pr_01.sys 4/5 file:pr_02.sys 5/5"));
        // One step per hash mark, never 100; "Setting #0" counts for nothing.
        QCOMPARE(run.progress.size(), 5 * 50);
        for (int i = 0; i + 1 < run.progress.size(); ++i)
            QVERIFY(run.progress[i].percent < 100 && run.progress[i].percent <= run.progress[i + 1].percent);
        // Written of total in bytes up to the first thousand, then in kB.
        QStringList written;
        for (int i : {0, 2, 5 * 50 - 1})
            written << QString("%1,%2,%3").arg(run.progress[i].shownWritten()).arg(run.progress[i].shownTotal())
                           .arg(run.progress[i].inBytes());
        QCOMPARE(written, (QStringList{"400,100000,1", "1,100,0", "100,100,0"}));
        QCOMPARE(run.events.mid(run.events.size() - 2), (QStringList{"stage:Flashing completed", "end:flashed"}));
        QVERIFY(run.errors.isEmpty());

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
        if (emulated())
            QSKIP("the simulator's");
        const QStringList files = kit.makePackage(firmware, "Tessel_NINE_01_02_05", 1, 1, 3000, false);
        FlashJob::Options options = simulated(files, true);
        options.bootLoaderRev = 1;
        Run run;
        start(run, options);
        QVERIFY(finish(run));
        QCOMPARE(run.outcome, QString("flashed"));
        QCOMPARE(calls(), (QStringList{dfuCall("os", "os_01.sys", "4096"), dfuCall("pr", "pr_01.sys", "4096")}));
    }

    // A device in DFU mode is listed once per alternate setting: still one device, flashed
    // through its port.
    void oneDeviceOfSeveralAltSettings()
    {
        if (emulated())
            QSKIP("the simulator's");
        const QStringList files = kit.makePackage(firmware, "Tessel_NINE_01_02_06", 1, 1, 3000, false);
        FlashJob::Options options = simulated(files, true);
        options.seen = parseDeviceListing(
            "Found DFU: [2675:0001] ver=0100, devnum=7, cfg=1, intf=0, path=\"1-3\", alt=0, name=\"@Flash\", "
            "serial=\"0000009\"\n"
            "Found DFU: [2675:0001] ver=0100, devnum=7, cfg=1, intf=0, path=\"1-3\", alt=1, name=\"@Option\", "
            "serial=\"0000009\"\n");
        Run run;
        start(run, options);
        QVERIFY(finish(run));
        QCOMPARE(run.outcome, QString("recovered"));
        QCOMPARE(calls(), (QStringList{dfuCall("os", "os_01.sys") + "\t-p\t1-3", dfuCall("pr", "pr_01.sys") + "\t-p\t1-3"}));
    }

    void transferFaults_data()
    {
        if (emulated())
            QSKIP("the simulator's");
        QTest::addColumn<QString>("dialect");
        QTest::addColumn<int>("split");        // the tool's output in pieces of this many bytes
        QTest::addColumn<QString>("line");     // printed by the tool
        QTest::addColumn<QString>("errorAt");  // after how many fiftieths of the file
        QTest::addColumn<QString>("exitCode"); // empty: the tool's own
        QTest::addColumn<QStringList>("errors"); // what the user is told
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
        // Killed in the middle of its bar: the bar is no last word of the tool.
        row("0.11", "killed mid-file without a word") << "killed" << "20" << ""
                                                     << QStringList{"dfu-util was ended by a signal\nCopying data from PC to DFU device"};
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
        Run run;
        start(run, simulated(files, true));
        QVERIFY(finish(run));
        QStringList errors;
        for (const FlashError &error : std::as_const(run.errors)) {
            errors << FlashTexts::error(error);
            QVERIFY(error.isToolError()); // the window shows it inside "Flashing not completed"
        }
        QTEST(errors, "errors");
        QCOMPARE(run.outcome, QString("failed"));
        QCOMPARE(calls().size(), line == "broken" ? 0 : 1); // the run stops at the failed file
    }

    void packageFaults_data()
    {
        if (emulated())
            QSKIP("the simulator's");
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

        Run run;
        start(run, simulated(files, !gpg));
        QVERIFY(finish(run));
        QCOMPARE(run.errors.size(), 1);
        QVERIFY(run.errors[0].isPackageError());
        QTEST(FlashTexts::error(run.errors[0]), "status");
        QTEST(FlashTexts::errorBox(run.errors[0]), "box");
        QCOMPARE(run.outcome, QString("failed"));
        QVERIFY(calls().isEmpty());
        // Nothing unchecked is left to be mistaken for a checked archive.
        QVERIFY(!QFile::exists(settings->getExtractFolder() + "/Tessel_NINE_1_1.PR.zip") || !gpg);
    }

    // A stop kills gpg at work, and the run ends stopped without an error of its own.
    void stopWhileGpgRuns()
    {
        if (emulated())
            QSKIP("the simulator's");
        // Big and incompressible, so that gpg is still at work when the stop comes.
        QDir().mkpath(firmware + "/big");
        const QStringList files = kit.makePackage(firmware + "/big", "Tessel_NINE_8_8", 1, 1, 1, true);
        const QString os = firmware + "/big/Tessel_NINE_8_8.OS.zip";
        QByteArray noise(80 * 1024 * 1024, '\0');
        QRandomGenerator(42).fillRange(reinterpret_cast<quint32 *>(noise.data()), noise.size() / 4);
        QVERIFY(FirmwareKit::makeZip(os, {{"os/", {}}, {"os/big.sys", noise}}));
        QVERIFY(kit.pack(os, files[0]));
        Run run;
        start(run, simulated(files));
        QTRY_VERIFY_WITH_TIMEOUT(run.statuses.contains("Extracting firmware"), 30000);
        QTest::qWait(100);
        run.job->stop();
        QVERIFY(finish(run, 20000));
        QCOMPARE(run.outcome, QString("stopped"));
        QVERIFY(run.errors.isEmpty());
        QVERIFY(calls().isEmpty() && log().contains("kill gpg"));
        QCOMPARE(TestSupport::liveProcessesWith(settings->getGpgFolder()), 0);
    }

    // Downloads that ask at once get turns a spacing apart, whoever comes first: each wait
    // plus the time since the first turn was taken is at least its place times the spacing.
    // A stop ends a wait for a turn far ahead.
    void downloadsTakeTurns()
    {
        if (emulated())
            QSKIP("the simulator's");
        constexpr int spacing = 100;
        DownloadPacer pacer(spacing);
        QElapsedTimer sinceFirst;
        sinceFirst.start();
        QCOMPARE(pacer.takeTurn(), qint64(0)); // the first has the bus to itself
        for (int place = 1; place < 4; ++place) {
            const qint64 wait = pacer.takeTurn();
            QVERIFY2(wait <= place * spacing && wait + sinceFirst.elapsed() >= place * spacing - 1,
                     qPrintable(QString::number(wait)));
        }

        DfuTransfer::Flags flags;
        bool rested = true;
        std::thread waiting([&] { rested = flags.rest(600000); });
        QTest::qWait(200);
        flags.stop = true;
        waiting.join();
        QVERIFY(!rested);
        QVERIFY2(sinceFirst.elapsed() < 60000, "a stop ends a rest at once");
    }

    // ---- On the emulated bus, with Debian's dfu-util ----

    // One device's flash as a station runs it (the job looks for the device itself and
    // checks its version afterwards), or as the window's boot loader wizard does.
    void onTheBus_data()
    {
        if (!emulated())
            QSKIP("the emulated bus's");
        QTest::addColumn<QStringList>("devices");
        QTest::addColumn<QString>("how"); // firmware, boot loader first, stop at the first file
        QTest::addColumn<QStringList>("events");
        QTest::addColumn<int>("received"); // files the device kept, in flash order
        QTest::addColumn<QString>("after"); // the version it came back with
        const QStringList prepared{"stage:Calculate MD5 Hashes", "stage:Extracting firmware",
                                   "stage:Building sys file lists", "stage:Calculating total file size"};
        const QStringList verified{"stage:Flashing completed", "stage:verifying", "back on 1-1"};
        QTest::newRow("two files") << QStringList{"record"} << "firmware"
                                   << prepared + QStringList{"stage:" + searching, "file:os_01.sys 1/2",
                                                             "stage:" + searching, "file:pr_01.sys 2/2"} +
                                          verified + QStringList{"end:flashed"}
                                   << 2 << "1_2_4";
        // The device restarts after its boot loader: it is pulled, found gone, plugged in again.
        QTest::newRow("boot loader first")
            << QStringList{"record,control"} << "boot loader first"
            << prepared + QStringList{"stage:" + searching, "file:bl_01.sys 1/3", "stage:restarting", "restart asked",
                                      "not seen", "seen", "back on 1-1", "stage:" + searching, "file:os_01.sys 2/3",
                                      "stage:" + searching, "file:pr_01.sys 3/3"} +
                   verified + QStringList{"end:flashed"}
            << 3 << "1_2_4";
        QTest::newRow("the device gone mid-file")
            << QStringList{"scenario=pulled"} << "firmware"
            << prepared + QStringList{"stage:" + searching, "file:os_01.sys 1/2",
                                      "error:Error during download", "end:failed"}
            << 0 << "";
        QTest::newRow("stopped") << QStringList{"record,scenario=busy,after=300"} << "stop at the first file"
                                 << prepared + QStringList{"stage:" + searching, "file:os_01.sys 1/2", "end:stopped"}
                                 << 0 << "";
        // A flash that was cut left it in DFU mode: flashed all the same, and recorded so.
        QTest::newRow("a unit found in DFU mode")
            << QStringList{"record,dfu"} << "firmware"
            << prepared + QStringList{"stage:" + searching, "file:os_01.sys 1/2", "stage:" + searching,
                                      "file:pr_01.sys 2/2"} +
                   verified + QStringList{"end:recovered"}
            << 2 << "1_2_4";
        // A watch's package, checked and unpacked once for many units: nothing to prepare.
        QTest::newRow("a package prepared before")
            << QStringList{"record"} << "prepared"
            << QStringList{"stage:" + searching, "file:os_01.sys 1/2", "stage:" + searching, "file:pr_01.sys 2/2"} +
                   verified + QStringList{"end:flashed"}
            << 2 << "1_2_4";
        // A person pulls the unit while it restarts and plugs another into the port.
        QTest::newRow("another unit back after the last file")
            << QStringList{"record,swap=0000042@4"} << "firmware"
            << prepared + QStringList{"stage:" + searching, "file:os_01.sys 1/2", "stage:" + searching,
                                      "file:pr_01.sys 2/2",
                                      "error:Another device is on the port 1-1: serial 0000042, not 0000001",
                                      "end:failed"}
            << 2 << "";
        QTest::newRow("another unit in DFU mode after the detach")
            << QStringList{"swap=0000042@1"} << "firmware"
            << prepared + QStringList{"stage:" + searching,
                                      "error:Another device is on the port 1-1: serial 0000042, not 0000001",
                                      "end:failed"}
            << 0 << "";
        QTest::newRow("back with its old version") << QStringList{"scenario=stays-old"} << "firmware"
                                                   << prepared + QStringList{"stage:" + searching, "file:os_01.sys 1/2",
                                                                             "stage:" + searching, "file:pr_01.sys 2/2"} +
                                                          verified + QStringList{"error:The device on port 1-1 runs 1_2_3, not 1_2_4", "end:failed"}
                                                   << 0 << "1_2_3";
        QTest::newRow("two Tessel NINEs, none chosen")
            << QStringList{"port=1", "port=2"} << "firmware"
            << QStringList{"choice of 1-1 1-2", "error:More than one DFU capable USB device found", "end:failed"} << 0
            << "";
    }

    void onTheBus()
    {
        QFETCH(QStringList, devices);
        QFETCH(QString, how);
        const QString tag = QString(QTest::currentDataTag()).replace(' ', '-');
        const QString kept = sandbox.root() + "/received/" + tag;
        const QString control = sandbox.root() + "/plug-" + tag;
        QVERIFY(TestSupport::writeFile(control, "plugged\n"));
        for (QString &device : devices)
            device.replace("record", "record=" + kept).replace("control", "control=" + control);
        EmulatedBus bus(devices);
        QVERIFY(bus.isUp());
        const QString folder = sandbox.root() + "/bus-firmware";
        if (QDir().mkpath(folder) && QDir(folder).isEmpty())
            QCOMPARE(kit.makePackage(folder, "Tessel_NINE_V1_2_4", 1, 1, 1500, true).size(), 2);
        const QString bootLoader = kit.makeBootloader(sandbox.root(), "Tessel_NINE_V2_0_1", 1, 1500, true);
        HistoryWriter writer;
        QVERIFY(writer.open(sandbox.root() + "/" + tag + ".sqlite"));

        FlashJob::Options options;
        options.files = QStringList{folder + "/Tessel_NINE_V1_2_4.OS.zip.gpg", folder + "/Tessel_NINE_V1_2_4.PR.zip.gpg"};
        options.verifyReturn = true;
        options.history = &writer;
        options.program = "station";
        if (how == "boot loader first") {
            options.mode = FlashMode::BootLoaderFirst;
            options.files.prepend(bootLoader);
        }
        if (how == "prepared") {
            FlashPackage package;
            package.signers = {"0123456789ABCDEF0123456789ABCDEF01234567"};
            const TestSupport::ZipEntries entries = FirmwareKit::stageEntries("os", 1, 1500, "V1_2_4") +
                                                    FirmwareKit::stageEntries("pr", 1, 1500, "V1_2_4");
            for (const auto &[name, content] : entries) {
                const QString path = sandbox.root() + "/prepared/" + name;
                if (name.endsWith('/'))
                    continue;
                QVERIFY(TestSupport::writeFile(path, content));
                package.files << FlashPackage::File{name.section('/', 0, 0), name.section('/', 1), path,
                                                    qint32(content.size()),
                                                    QCryptographicHash::hash(content, QCryptographicHash::Sha256).toHex()};
                package.totalSize += qint32(content.size());
            }
            options.prepared = package;
        }
        Run run;
        start(run, options);
        FlashJob *job = run.job.get();
        connect(job, &FlashJob::deviceChoiceRequested, this, [&run, job](const QList<ListedDevice> &candidates) {
            QStringList ports;
            for (const ListedDevice &device : candidates)
                ports << device.port;
            run.note("choice of " + ports.join(' '));
            job->chooseDevice(QString());
        });
        // As a technician does at the restart: off, and on again when the job saw it gone.
        connect(job, &FlashJob::restartRequested, this, [&] {
            TestSupport::writeFile(control, "pulled\n");
            job->resume();
        });
        connect(job, &FlashJob::restartLooked, this, [&](bool present) {
            if (!present)
                TestSupport::writeFile(control, "plugged\n");
        });
        if (how == "stop at the first file") {
            connect(job, &FlashJob::fileStarted, job, &FlashJob::stop);
        }
        QVERIFY(finish(run, 120000));
        QTEST(run.events, "events");
        QFETCH(int, received);
        const QList<QByteArray> images = FirmwareKit::flashedImages({"os"}, 1, 1500, "V1_2_4") +
                                         FirmwareKit::flashedImages({"pr"}, 1, 1500, "V1_2_4");
        QCOMPARE(EmulatedBus::received(kept),
                 received == 3 ? FirmwareKit::flashedImages({"bl"}, 1, 1500) + images : images.mid(0, received));
        QCOMPARE(TestSupport::liveProcessesWith(settings->getExtractFolder()), 0);

        // The record says what happened to which unit.
        FlashHistory history;
        QVERIFY(history.openForReading(writer.path()));
        const QList<FlashRecord> records = history.records();
        if (run.events.contains("choice of 1-1 1-2")) {
            QCOMPARE(records.size(), 0); // no unit was chosen
            return;
        }
        QCOMPARE(records.size(), 1);
        const FlashRecord &unit = records.first();
        QCOMPARE(QStringList({unit.outcome, unit.port, unit.serial, unit.version}).join(' '),
                 QString("%1 1-1 0000001 1_2_4").arg(run.outcome));
        QCOMPARE(unit.files.size(), how == "boot loader first" ? 3 : 2);
        QCOMPARE(unit.signer.size(), 40);
        QTEST(unit.after, "after");
    }
};

QTEST_GUILESS_MAIN(TestFlashJob)
#include "tst_flashjob.moc"
