// DFUThread from the first hash to its ending, against the dfu-util simulator and the
// real gpg. The test program lives beside both, as the program does.
#include "app/log.h"
#include "app/settings.h"
#include "flash/dfuthread.h"

#include "firmwarekit.h"
#include "testsupport.h"

#include <QDir>
#include <QRandomGenerator>
#include <QScopeGuard>
#include <QTest>

using TestSupport::FirmwareKit;

namespace {
const QString P = "\n\nThe selected firmware files are corrupted or\nthis version of Morvanta does not match with "
                  "these files.\nTry again and be sure that\nthe latest version of this software is installed";
const QString aborted = "Process aborted! Perform device restart before flashing again";
} // namespace

// Everything the worker says, in the order the GUI thread hears it.
class Recorder : public QObject
{
    Q_OBJECT
public:
    QStringList events;

    explicit Recorder(DFUThread *t)
    {
        connect(t, &DFUThread::updateStatus, this, [this](const QString &s) { events << "status:" + s; });
        connect(t, &DFUThread::updateProgress, this, [this](int p) { events << "progress:" + QString::number(p); });
        connect(t, &DFUThread::updateDFUProgress, this, [this](int p) { events << "dfuprogress:" + QString::number(p); });
        connect(t, &DFUThread::updateFileLabel, this, [this](const QString &s) { events << "file:" + s; });
        connect(t, &DFUThread::updateWrittenStatus, this, [this](long w, long total, bool b) {
            events << QString("written:%1/%2%3").arg(w).arg(total).arg(b ? "B" : "kB");
        });
        connect(t, &DFUThread::timeRemaining, this, [this](const QString &m, const QString &s) { events << "time:" + m + ":" + s; });
        connect(t, &DFUThread::visibilityRemaining, this, [this](bool v) { events << QString("visible:%1").arg(v); });
        connect(t, &DFUThread::resetWrittenStatus, this, [this] { events << "reset"; });
        connect(t, &DFUThread::sigenableAbort, this, [this] { events << "enableAbort"; });
        connect(t, &DFUThread::sigdisableAbort, this, [this] { events << "disableAbort"; });
        connect(t, &DFUThread::errorOutputSignal, this, [this](const QString &s) { events << "error:" + s; });
        connect(t, &DFUThread::msgboxErrorSignal, this, [this](ErrorTexts::errorLevel l, const QString &s) {
            events << QString("box:%1:").arg(int(l)) + s;
        });
        connect(t, &DFUThread::exitCode, this, [this](int c) { events << "exit:" + QString::number(c); });
        connect(t, &DFUThread::externalProcessesFinished, this, [this] { events << "external"; });
        connect(t, &DFUThread::breakFlashing, this, [this] { events << "break"; });
    }

    QStringList only(const QString &prefix) const
    {
        QStringList out;
        for (const QString &e : events)
            if (e.startsWith(prefix))
                out << e.mid(prefix.size());
        return out;
    }
    bool has(const QString &event) const { return events.contains(event); }
};

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
    QString sysPath(const QString &stage, const QString &file) const
    {
        return settings->getExtractFolder() + "/" + stage + "/" + file;
    }
    QString dfuCall(const QString &stage, const QString &file, const QString &size = "64") const
    {
        return "-d 0x2675:0x0001\t-D\t" + sysPath(stage, file) + "\t-t " + size;
    }

    struct Run {
        std::unique_ptr<DFUThread> thread;
        std::unique_ptr<Recorder> recorder;
    };
    Run start(const QStringList &files, int flashMode = 0, int rev = 0, bool skipGpg = false, bool blOnly = false)
    {
        settings->createExtractFolder();
        QFile::remove(record);
        Run run;
        run.thread = std::make_unique<DFUThread>(settings.get(), flashMode, files, rev, skipGpg, blOnly, nullptr);
        run.recorder = std::make_unique<Recorder>(run.thread.get());
        run.thread->start();
        return run;
    }
    static bool finish(Run &run, int msecs = 60000)
    {
        const bool ended = run.thread->wait(QDeadlineTimer(msecs));
        QTest::qWait(50); // let the queued signals arrive
        return ended;
    }
    static void waitFor(Run &run, const QString &event)
    {
        QTRY_VERIFY_WITH_TIMEOUT(run.recorder->has(event), 30000);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(QFile::exists(QCoreApplication::applicationDirPath() + "/dfu-util"));
        QVERIFY(QFile::exists(QCoreApplication::applicationDirPath() + "/gpg"));
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
        for (const char *v : {"DFU_SIM_ERROR", "DFU_SIM_ERROR_AT", "DFU_SIM_EXIT", "DFU_SIM_HANG_AT", "DFU_SIM_DEVICE",
                              "DFU_SIM_SILENT", "DFU_SIM_FAULT_CALL"})
            qunsetenv(v);
    }

    void wholeSignedPackage()
    {
        const QStringList files = kit.makePackage(firmware, "Tessel_NINE_V1_2_4", 3, 2, 20000, true);
        QCOMPARE(files.size(), 2);
        Run run = start(files);
        QVERIFY(finish(run));
        const Recorder &r = *run.recorder;

        QCOMPARE(r.events.first(), QString("enableAbort"));
        QCOMPARE(r.events.last(), QString("exit:0"));
        QCOMPARE(r.only("box:"), QStringList{"2:Flashing completed\nPlease perform Tessel restart!"});
        QStringList statuses = r.only("status:");
        statuses.removeDuplicates();
        QCOMPARE(statuses, (QStringList{"Calculate MD5 Hashes", "Extracting firmware", "Building sys file lists",
                                        "Calculating total file size",
                                        "Search for DFU USB device - This might take a few seconds",
                                        "Flashing firmware stage #1 - File 1/5", "Flashing firmware stage #1 - File 2/5",
                                        "Flashing firmware stage #1 - File 3/5", "Flashing firmware stage #2 - File 4/5",
                                        "Flashing firmware stage #2 - File 5/5", "Flashing completed"}));
        QCOMPARE(r.only("file:"), (QStringList{"os_01.sys", "os_02.sys", "os_03.sys", "pr_01.sys", "pr_02.sys"}));
        QVERIFY(r.only("error:").isEmpty());

        const QStringList progress = r.only("progress:");
        QCOMPARE(progress.size(), 5 * 50 + 1);
        for (int i = 0; i + 1 < progress.size(); ++i) {
            QVERIFY(progress[i].toInt() < 100);
            QVERIFY(progress[i].toInt() <= progress[i + 1].toInt());
        }
        QCOMPARE(progress.last(), QString("100"));
        QCOMPARE(r.only("written:").last(), QString("100/100kB"));
        QCOMPARE(r.only("dfuprogress:"), QStringList{"100"});
        QCOMPARE(r.events.mid(r.events.size() - 8),
                 (QStringList{"disableAbort", "progress:100", "dfuprogress:100", "reset", "visible:0",
                              "status:Flashing completed", "box:2:Flashing completed\nPlease perform Tessel restart!",
                              "exit:0"}));

        QCOMPARE(calls(), (QStringList{dfuCall("os", "os_01.sys"), dfuCall("os", "os_02.sys"), dfuCall("os", "os_03.sys"),
                                       dfuCall("pr", "pr_01.sys"), dfuCall("pr", "pr_02.sys")}));
        // The archives were unpacked and removed; the selected files are untouched.
        QVERIFY(QDir(settings->getExtractFolder()).entryList(QDir::Files).isEmpty());
        QVERIFY(QFile::exists(files[0]) && QFile::exists(files[1]));
        const QString log = QString::fromLocal8Bit(TestSupport::readFile(Log::filePath()));
        QCOMPARE(log.count("MD5 : "), 2);
        QVERIFY(log.contains("Total file size:  100000 Byte\n \n"));
        QVERIFY(!log.contains('#'));
    }

    void plainZipsAndRevisionOne()
    {
        const QStringList files = kit.makePackage(firmware, "Tessel_NINE_01_02_05", 1, 1, 3000, false);
        Run run = start(files, 0, 1, true);
        QVERIFY(finish(run));
        QCOMPARE(run.recorder->events.last(), QString("exit:0"));
        QCOMPARE(calls(), (QStringList{dfuCall("os", "os_01.sys", "4096"), dfuCall("pr", "pr_01.sys", "4096")}));
    }

    void transferFaults_data()
    {
        QTest::addColumn<QString>("line");    // printed by the tool
        QTest::addColumn<QString>("errorAt"); // after how many hash marks
        QTest::addColumn<QString>("exitCode");
        QTest::addColumn<QString>("error");   // what the window is told, empty for nothing
        const QString d = "Device is not connected";
        const QList<QPair<QString, QString>> marks{
            {"No DFU capable USB device found", "No DFU capable USB device found"},
            {"More than one DFU capable USB device found, you might try --list", "More than one DFU capable USB device found"},
            {"Lost device after RESET?", d + " - Lost device after RESET"},
            {"Error obtaining DFU functional descriptor", d + " - Functional descriptor"},
            {"Cannot open device: LIBUSB_ERROR_ACCESS", d + " - Opening error"},
            {"Cannot set configuration: LIBUSB_ERROR_BUSY", d + " - Configuration error"},
            {"Cannot set alt interface: LIBUSB_ERROR_IO", d + " - Alt interface error"},
            {"error get_status: LIBUSB_ERROR_PIPE", d + " - Get status error"},
            {"unable to read DFU status", d + " - Get status error"},
            {"error detaching: LIBUSB_ERROR_NO_DEVICE", d + " - Detaching error"},
            {"error clear_status: LIBUSB_ERROR_PIPE", d + " - Clear status error"},
            {"Cannot claim interface", d + " - Interface error"},
            {"Device still in Runtime Mode!", d + " - In Runtime Mode error"},
            {"Error during download", "Error during download"},
            {"Device's firmware is corrupt. It cannot return to run-time (non-DFU) operations",
             "Device's firmware is corrupt"},
            {"Program memory function failed", "Program memory function failed"},
        };
        for (const auto &m : marks)
            QTest::newRow(qPrintable(m.second)) << m.first << "17" << "0" << m.second;
        QTest::newRow("mark before the download, exit 1") << "Cannot open device: x" << "-1" << "1" << d + " - Opening error";
        QTest::newRow("exit code alone") << "" << "-1" << "74" << "";
    }

    void transferFaults()
    {
        QFETCH(QString, line);
        QFETCH(QString, errorAt);
        QFETCH(QString, exitCode);
        QFETCH(QString, error);
        qputenv("DFU_SIM_ERROR", line.toUtf8());
        qputenv("DFU_SIM_ERROR_AT", errorAt.toUtf8());
        qputenv("DFU_SIM_EXIT", exitCode.toUtf8());
        const QStringList files = kit.makePackage(firmware, "Tessel_NINE_9_9", 2, 1, 5000, false);
        Run run = start(files, 0, 0, true);
        QVERIFY(finish(run));
        const Recorder &r = *run.recorder;
        QCOMPARE(r.only("error:"), error.isEmpty() ? QStringList{} : QStringList{error});
        QCOMPARE(r.events.last(), QString("status:" + aborted));
        QVERIFY(r.has("exit:2") && !r.has("exit:0") && r.only("box:").isEmpty());
        QCOMPARE(calls().size(), 1); // the run stops at the failed file
    }

    void toolThatSaysNothingOrCannotStart_data()
    {
        QTest::addColumn<bool>("broken");
        QTest::addColumn<QString>("error");
        QTest::newRow("exit 0 without output") << false << "dfu-util ended without any output";
        QTest::newRow("cannot be started") << true << "Unable to start dfu-util";
    }

    void toolThatSaysNothingOrCannotStart()
    {
        QFETCH(bool, broken);
        QFETCH(QString, error);
        const QStringList files = kit.makePackage(firmware, "Tessel_NINE_9_8", 1, 1, 3000, false);
        qputenv("DFU_SIM_SILENT", "1");
        std::optional<TestSupport::BrokenTool> guard;
        if (broken)
            guard.emplace("dfu-util");
        Run run = start(files, 0, 0, true);
        QVERIFY(finish(run));
        QCOMPARE(run.recorder->only("error:"), QStringList{error});
        QVERIFY(run.recorder->has("exit:2"));
    }

    void packageFaults_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("status");
        QTest::addColumn<QString>("box");
        QTest::newRow("missing file") << "missing" << "Error calculating MD5 Hash" << "Error calculating MD5 Hash";
        QTest::newRow("not a zip") << "notzip" << "Error in firmware extraction" << "Error in firmware extraction";
        QTest::newRow("no pr folder") << "nopr" << "Package contains no firmware files"
                                      << "Package contains no firmware files";
        QTest::newRow("zero-sized file") << "zero" << "Packages contain zero sized files"
                                         << "Packages contain zero sized files";
        QTest::newRow("tampered") << "tampered" << "Invalid digital signature" << "Invalid digital signature" + P;
        QTest::newRow("key not in the ring") << "stranger" << "Invalid digital signature"
                                             << "Invalid digital signature" + P;
        QTest::newRow("no OpenPGP data") << "plain" << "Invalid digital signature" << "Invalid digital signature" + P;
        QTest::newRow("gpg cannot be started") << "nogpg" << "Error starting GPG, restart again"
                                               << "Error starting GPG, restart again";
    }

    void packageFaults()
    {
        QFETCH(QString, kind);
        QFETCH(QString, status);
        QFETCH(QString, box);
        const QString folder = firmware + "/" + kind;
        QDir().mkpath(folder);
        const QString os = folder + "/Tessel_NINE_1_1.OS.zip", pr = folder + "/Tessel_NINE_1_1.PR.zip";
        QVERIFY(FirmwareKit::makeZip(os, FirmwareKit::stageEntries("os", 1, 3000)));
        QVERIFY(FirmwareKit::makeZip(pr, kind == "nopr" ? FirmwareKit::stageEntries("xx", 1, 3000)
                                         : kind == "zero" ? FirmwareKit::stageEntries("pr", 1, 0)
                                                          : FirmwareKit::stageEntries("pr", 1, 3000)));
        bool skipGpg = true;
        QStringList files{os, pr};
        if (kind == "missing") {
            QFile::remove(pr);
        } else if (kind == "notzip") {
            QFile f(pr);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write("PK but not really");
        } else if (kind == "tampered" || kind == "stranger" || kind == "plain" || kind == "nogpg") {
            skipGpg = false;
            files = {os + ".gpg", pr + ".gpg"};
            QVERIFY(kit.sign(os, files[0]));
            if (kind == "stranger")
                QVERIFY(kit.signAsStranger(pr, files[1]));
            else if (kind == "plain")
                QVERIFY(QFile::copy(pr, files[1]));
            else
                QVERIFY(kit.sign(pr, files[1]));
            if (kind == "tampered") {
                QByteArray bytes = TestSupport::readFile(files[1]);
                bytes[bytes.size() - 40] = char(bytes[bytes.size() - 40] ^ 0x01);
                QFile f(files[1]);
                QVERIFY(f.open(QIODevice::WriteOnly));
                f.write(bytes);
            }
        }
        std::optional<TestSupport::BrokenTool> guard;
        if (kind == "nogpg")
            guard.emplace("gpg");

        Run run = start(files, 0, 0, skipGpg);
        QVERIFY(finish(run));
        const Recorder &r = *run.recorder;
        QCOMPARE(r.only("box:"), QStringList{"0:" + box});
        QCOMPARE(r.only("status:").last(), status);
        QCOMPARE(r.events.mid(r.events.size() - 3), (QStringList{"disableAbort", "visible:0", "exit:2"}));
        QVERIFY(calls().isEmpty());
        if (kind == "tampered" || kind == "stranger" || kind == "plain") {
            // Nothing unchecked is left to be mistaken for a checked archive.
            QVERIFY(!QFile::exists(settings->getExtractFolder() + "/Tessel_NINE_1_1.PR.zip"));
            QVERIFY(!QFile::exists(settings->getExtractFolder() + "/pr"));
        }
    }

    void abortWhileDfuRuns()
    {
        qputenv("DFU_SIM_HANG_AT", "10");
        const QStringList files = kit.makePackage(firmware, "Tessel_NINE_7_7", 1, 1, 3000, false);
        Run run = start(files, 0, 0, true);
        waitFor(run, "status:Flashing firmware stage #1 - File 1/2");
        QTest::qWait(200);
        run.thread->abortByUser();
        QVERIFY(finish(run, 10000));
        const Recorder &r = *run.recorder;
        QCOMPARE(r.events.count("external"), 1);
        QVERIFY(r.has("exit:2"));
        QVERIFY(!r.has("status:" + aborted));
        QVERIFY(r.only("box:").isEmpty() && r.only("error:").isEmpty());
        QCOMPARE(calls().size(), 1);
        QVERIFY(QString::fromLocal8Bit(TestSupport::readFile(Log::filePath())).contains("kill dfu"));
    }

    void abortWhileGpgRuns()
    {
        // Big and incompressible, so that gpg is still at work when the abort comes.
        QDir().mkpath(firmware + "/big");
        const QStringList files = kit.makePackage(firmware + "/big", "Tessel_NINE_8_8", 1, 1, 1, true);
        QCOMPARE(files.size(), 2);
        const QString os = firmware + "/big/Tessel_NINE_8_8.OS.zip";
        QByteArray noise(80 * 1024 * 1024, '\0');
        QRandomGenerator(42).fillRange(reinterpret_cast<quint32 *>(noise.data()), noise.size() / 4);
        QVERIFY(FirmwareKit::makeZip(os, {{"os/", {}}, {"os/big.sys", noise}}));
        QVERIFY(kit.sign(os, files[0]));
        Run run = start(files);
        waitFor(run, "status:Extracting firmware");
        QTest::qWait(100);
        run.thread->abortByUser();
        QVERIFY(finish(run, 20000));
        const Recorder &r = *run.recorder;
        QCOMPARE(r.events.count("external"), 1);
        QVERIFY(r.has("exit:2"));
        QVERIFY(r.only("box:").isEmpty());
        QVERIFY(calls().isEmpty());
        QVERIFY(QString::fromLocal8Bit(TestSupport::readFile(Log::filePath())).contains("kill gpg"));
    }

    void bootLoaderBreak_data()
    {
        QTest::addColumn<bool>("proceed");
        QTest::newRow("continued") << true;
        QTest::newRow("aborted") << false;
    }

    void bootLoaderBreak()
    {
        QFETCH(bool, proceed);
        QStringList files{kit.makeBootloader(firmware, "Tessel_NINE_BL_3", 1, 3000, true)};
        files += kit.makePackage(firmware, "Tessel_NINE_V3_0", 2, 1, 3000, true);
        Run run = start(files, 1);
        waitFor(run, "break");
        QCOMPARE(calls(), QStringList{dfuCall("bl", "bl_01.sys")});
        if (proceed)
            run.thread->continueFlashing();
        else
            run.thread->abortFlashing();
        QVERIFY(finish(run));
        const Recorder &r = *run.recorder;
        if (proceed) {
            QVERIFY(r.has("status:Flashing firmware stage #0 - File 1/4"));
            QVERIFY(r.has("status:Flashing firmware stage #1 - File 2/4"));
            QVERIFY(r.has("status:Flashing firmware stage #2 - File 4/4"));
            QCOMPARE(r.events.last(), QString("exit:0"));
            QCOMPARE(calls().size(), 4);
        } else {
            QCOMPARE(r.events.last(), QString("break"));
            QVERIFY(!r.has("disableAbort"));
            QCOMPARE(calls().size(), 1);
        }
    }

    void bootLoaderOnly()
    {
        QStringList files{kit.makeBootloader(firmware, "Tessel_NINE_BL_4", 2, 3000, true)};
        files += kit.makePackage(firmware, "Tessel_NINE_V4_0", 2, 1, 3000, true);
        Run run = start(files, 1, 0, false, true);
        waitFor(run, "break");
        run.thread->continueFlashing();
        QVERIFY(finish(run));
        const Recorder &r = *run.recorder;
        QCOMPARE(r.events.last(), QString("exit:0"));
        QVERIFY(r.has("status:Flashing firmware stage #0 - File 2/2"));
        for (const QString &s : r.only("status:"))
            QVERIFY(!s.contains("#1") && !s.contains("#2"));
        QCOMPARE(calls(), (QStringList{dfuCall("bl", "bl_01.sys"), dfuCall("bl", "bl_02.sys")}));
    }
};

QTEST_GUILESS_MAIN(TestDfuThread)
#include "tst_dfuthread.moc"
