// morvanta-station as a production line runs it: several Tessel NINEs on one PC, each
// flashed by a run of its own at the same time, with Debian's real dfu-util on emulated
// devices, every line of its JSON output read as a script reads it. No display anywhere.
#include "firmwarekit.h"
#include "postgresserver.h"
#include "testsupport.h"

#include "platform/ownedfolder.h"
#include "platform/platform.h"
#include "platform/portlock.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QTcpSocket>
#include <QSqlError>
#include <QSqlQuery>
#include <QTest>

#include <QScopeGuard>

#include <csignal>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

using TestSupport::EmulatedBus;
using TestSupport::FirmwareKit;
using TestSupport::PostgresServer;

namespace {
constexpr int fileSize = 1500;
}

class TestStation : public QObject
{
    Q_OBJECT
    TestSupport::Sandbox sandbox;
    FirmwareKit kit;
    QString firmware;   // V1_2_4, alone in its folder
    QString bootLoader; // V2_0_1
    QList<QByteArray> flashed;
    std::unique_ptr<PostgresServer> postgres; // the plant's central record, started by the first test that needs it

    struct Run {
        std::unique_ptr<QProcess> process = std::make_unique<QProcess>();
        QList<QJsonObject> events;
        QList<qint64> heard; // each event's arrival on the monotonic clock, ms
        QStringList notJson;
        QJsonObject last(const QString &event) const
        {
            for (auto it = events.crbegin(); it != events.crend(); ++it)
                if (it->value("event").toString() == event)
                    return *it;
            return {};
        }
        // Reads what is there: a script reads line by line.
        void read()
        {
            while (process->canReadLine()) {
                const QByteArray line = process->readLine().trimmed();
                const QJsonDocument json = QJsonDocument::fromJson(line);
                if (json.isObject()) {
                    events << json.object();
                    QElapsedTimer now; // the monotonic clock, as Python's time.monotonic()
                    now.start();
                    heard << now.msecsSinceReference();
                }
                else
                    notJson << QString::fromUtf8(line);
            }
        }
        bool has(const QString &text) const
        {
            for (const QJsonObject &e : events)
                if (e.value("text").toString().startsWith(text))
                    return true;
            return false;
        }
    };

    // runner: a program that runs the station (setpriv), the station's path its first argument.
    void start(Run &run, const QStringList &args, const QString &tmp = QString(), const QString &runner = QString()) const
    {
        QProcessEnvironment env = sandbox.environment();
        env.remove("DISPLAY");
        env.remove("QT_QPA_PLATFORM");
        if (!tmp.isEmpty())
            env.insert("TMPDIR", tmp);
        // watch hears udev: on the emulated bus, through umockdev's preload library.
        if (args.contains("watch")) {
            env.insert("LD_PRELOAD", TestSupport::binDir() + "/uevent-socket-preload.so:libumockdev-preload.so.0");
            // A sanitizer build's runtime then no longer comes first, which it checks.
            if (env.contains("ASAN_OPTIONS"))
                env.insert("ASAN_OPTIONS", env.value("ASAN_OPTIONS") + ":verify_asan_link_order=0");
        }
        run.process->setProcessEnvironment(env);
        // A group of its own, as a terminal gives a command: a signal to the group reaches all of it.
        run.process->setChildProcessModifier([] { setpgid(0, 0); });
        run.process->start(runner.isEmpty() ? sandbox.app() + "/morvanta-station" : runner, args);
        QVERIFY(run.process->waitForStarted());
    }
    static int countOf(const Run &run, const QString &event)
    {
        return int(std::count_if(run.events.cbegin(), run.events.cend(),
                                 [&event](const QJsonObject &e) { return e["event"] == event; }));
    }
    // Reads the run's lines until one holds the text (an empty text: to its end).
    static bool finish(Run &run, int msecs = 90000, const QString &text = QString())
    {
        QDeadlineTimer deadline(msecs);
        while (run.process->state() != QProcess::NotRunning && !deadline.hasExpired() &&
               (text.isEmpty() || !run.has(text))) {
            run.process->waitForReadyRead(100);
            run.read();
        }
        run.process->waitForFinished(text.isEmpty() ? 1000 : 0);
        run.read();
        return text.isEmpty() ? run.process->state() == QProcess::NotRunning : run.has(text);
    }
    // A run leaves nothing in the working root: neither its own folder nor a window's.
    QStringList workingFolders() const
    {
        return QDir(sandbox.workingRoot()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
    }
    QList<QByteArray> received(const QString &name) const
    {
        return EmulatedBus::received(sandbox.root() + "/received/" + name);
    }
    // Units on ports 1-1 to 1-3, off the bus until plugIn(); what each receives goes to
    // received/NAME1 to NAME3.
    QStringList unplugged(const QString &name) const
    {
        QStringList devices;
        for (const QString &port : QStringList{"1", "2", "3"}) {
            TestSupport::writeFile(sandbox.root() + "/" + name + "plug" + port, "pulled\n");
            devices << "port=" + port + ",control=" + sandbox.root() + "/" + name + "plug" + port + ",record=" +
                           sandbox.root() + "/received/" + name + port;
        }
        return devices;
    }
    void plugIn(const QString &name, const QString &port) const
    {
        TestSupport::writeFile(sandbox.root() + "/" + name + "plug" + port, "plugged\n");
    }
    // Until the guard goes, the station's dfu-util is a script that runs these shell lines
    // first and then the real tool.
    auto dfuUtilAfter(const QByteArray &lines) const
    {
        const QString tool = sandbox.app() + "/dfu-util";
        QFile::remove(tool);
        TestSupport::writeFile(tool, "#!/bin/sh\n" + lines + "\nexec '" + QFile::encodeName(TestSupport::binDir()) +
                                         "/dfu-util-umockdev' \"$@\"\n");
        QFile::setPermissions(tool, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return qScopeGuard([tool] {
            QFile::remove(tool);
            QFile::link(TestSupport::binDir() + "/dfu-util-umockdev", tool);
        });
    }
    // The central record's server, started by the first test that needs it.
    bool startCentral()
    {
        if (!postgres)
            postgres = std::make_unique<PostgresServer>();
        return postgres->start();
    }
    QStringList central(const QString &sql)
    {
        const QStringList rows = postgres->query(sql);
        if (!postgres->error().isEmpty())
            qWarning() << sql << postgres->error();
        return rows;
    }

private slots:
    void initTestCase()
    {
        if (!EmulatedBus::available())
            QSKIP("needs umockdev (tessel-emulator) and Debian's dfu-util");
        qunsetenv("DISPLAY");
        QVERIFY(QFile::copy(TestSupport::binDir() + "/morvanta-station", sandbox.app() + "/morvanta-station"));
        QVERIFY(QFile::link(QFileInfo(TestSupport::binDir() + "/gpg").symLinkTarget(), sandbox.app() + "/gpg"));
        QVERIFY(QFile::link(TestSupport::binDir() + "/dfu-util-umockdev", sandbox.app() + "/dfu-util"));
        firmware = sandbox.root() + "/firmware";
        QDir().mkpath(firmware);
        QCOMPARE(kit.makePackage(firmware, "Tessel_NINE_V1_2_4", 1, 1, fileSize, true).size(), 2);
        bootLoader = kit.makeBootloader(sandbox.root(), "Tessel_NINE_V2_0_1", 1, fileSize, true);
        flashed = FirmwareKit::flashedImages({"os", "pr"}, 1, fileSize, "V1_2_4");
    }

    void list()
    {
        EmulatedBus bus({"name=V1_2_3", "port=2,name=Tessel_NINE 01.02.03", "port=3,vendor=0483,product=df11",
                         "port=4,name=V1_2_3\x1b[2J\r"});
        QVERIFY(bus.isUp());
        Run run;
        start(run, {"list", "--json"});
        QVERIFY(finish(run));
        QCOMPARE(run.process->exitCode(), 0);
        QCOMPARE(run.notJson, QStringList{});
        QStringList devices;
        for (const QJsonObject &e : run.events)
            devices << QStringList{e["event"].toString(), e["port"].toString(), e["mode"].toString(),
                                   e["version"].toString(), e["form"].toString(), e["serial"].toString()}
                           .join(' ');
        QCOMPARE(devices, (QStringList{"device 1-1 run-time 1_2_3 V 0000001", "device 1-2 run-time 01_02_03 plain 0000002",
                                       "device 1-4 run-time 1_2_3\x1b[2J\r V 0000004"}));
        // Plain lines: a name from the device cannot clear or redraw the station's terminal.
        Run plain;
        start(plain, {"list"});
        QVERIFY(finish(plain));
        const QString text = plain.notJson.join('\n');
        QVERIFY2(text.contains("1_2_3\\x1b[2J ") && !text.contains('\x1b') && !text.contains('\r'), qPrintable(text));
    }

    // Controllers side by side, a run for each at once: each device gets its own files,
    // a fault on one port fails that run only, and the history holds every unit.
    void runsAtOnce()
    {
        const QString rec = sandbox.root() + "/received/";
        EmulatedBus bus({"record=" + rec + "good1", "port=2,record=" + rec + "good2", "port=3,scenario=stall",
                         "port=4,scenario=pulled", "port=5,scenario=stays-old", "port=6,record=" + rec + "plain",
                         "port=7,dfu,record=" + rec + "stuck", "port=8,serial==1+2", "port=9,swap=0000099@4"});
        QVERIFY(bus.isUp());
        const QString plainZips = sandbox.root() + "/plain";
        QDir().mkpath(plainZips);
        QCOMPARE(kit.makePackage(plainZips, "Tessel_NINE_V1_2_4", 1, 1, fileSize, false).size(), 2);
        const QString history = sandbox.root() + "/eight.sqlite";
        Run runs[9];
        for (int i = 0; i < 9; ++i)
            start(runs[i], QStringList{"flash", "--json", "--history", history, "--port", QString("1-%1").arg(i + 1)} +
                               (i == 5 ? QStringList{"--zip", plainZips} : QStringList{firmware}));
        for (Run &run : runs)
            QVERIFY(finish(run));
        QStringList results;
        for (const Run &run : runs) {
            QCOMPARE(run.notJson, QStringList{});
            const QJsonObject result = run.last("result");
            QCOMPARE(result, run.events.last());
            QCOMPARE(result["exitCode"].toInt(), run.process->exitCode());
            // Whether the signature was checked, at the start and at the end.
            QCOMPARE(result["signed"].toBool(), &run != &runs[5]);
            QCOMPARE(run.last("start")["signed"], result["signed"]);
            for (const QJsonObject &event : run.events) // every event names its unit
                QVERIFY(event["port"] == result["port"] && event["serial"] == run.last("start")["serial"]);
            results << QStringList{QString::number(run.process->exitCode()), result["outcome"].toString(),
                                   result["port"].toString(), result["before"].toString(), result["after"].toString(),
                                   run.last("error")["text"].toString().simplified().left(44)}
                           .join(' ');
        }
        const QStringList expected{"0 flashed 1-1 1_2_3 1_2_4 ",
                                   "0 flashed 1-2 1_2_3 1_2_4 ",
                                   "2 failed 1-3 1_2_3  Flashing not completed Error during download",
                                   "2 failed 1-4 1_2_3  Flashing not completed Error during download",
                                   "2 failed 1-5 1_2_3 1_2_3 The device on port 1-5 runs 1_2_3, not 1_2_4",
                                   "0 flashed 1-6 1_2_3 1_2_4 ",
                                   "0 recovered 1-7  1_2_4 ",
                                   "0 flashed 1-8 1_2_3 1_2_4 ",
                                   // Pulled while it restarted, another unit plugged in: not flashed.
                                   "2 failed 1-9 1_2_3  Flashing not completed Another device is on "};
        QCOMPARE(results, expected);
        QCOMPARE(received("good1"), flashed);
        QCOMPARE(received("good2"), flashed);
        QCOMPARE(received("plain"), flashed);
        QCOMPARE(received("stuck"), flashed);
        QCOMPARE(workingFolders(), QStringList{});

        // Nine writers at once, no record lost; what a script and a spreadsheet read.
        Run json;
        start(json, {"history", "--json", "--history", history});
        QVERIFY(finish(json));
        QCOMPARE(json.events.size(), 9);
        QStringList recorded;
        for (const QJsonObject &record : json.events) {
            QCOMPARE(record["program"].toString(), QString("station"));
            QCOMPARE(record["tool"].toString(), QString("0.11"));
            QVERIFY(!record["ended"].toString().isEmpty() && record["seconds"].toDouble() > 0);
            const bool signedOne = record["port"] != QString("1-6");
            QCOMPARE(record["signed"].toBool(), signedOne);
            QCOMPARE(record["signer"].toString().size(), signedOne ? 40 : 0);
            // The files as they went onto the device.
            if (record["error"].isNull())
                QCOMPARE(record["files"].toArray().last()["sha256"].toString(),
                         QString(QCryptographicHash::hash(flashed.last(), QCryptographicHash::Sha256).toHex()));
            recorded << QStringList{record["port"].toString(), record["serial"].toString(),
                                    record["outcome"].toString(), record["before"].toString(),
                                    record["after"].toString()}
                            .join(' ');
        }
        recorded.sort();
        QCOMPARE(recorded, (QStringList{"1-1 0000001 flashed 1_2_3 1_2_4", "1-2 0000002 flashed 1_2_3 1_2_4",
                                        "1-3 0000003 failed 1_2_3 ", "1-4 0000004 failed 1_2_3 ",
                                        "1-5 0000005 failed 1_2_3 1_2_3", "1-6 0000006 flashed 1_2_3 1_2_4",
                                        "1-7 0000007 recovered  1_2_4", "1-8 =1+2 flashed 1_2_3 1_2_4",
                                        "1-9 0000009 failed 1_2_3 "}));
        Run csv;
        start(csv, {"history", "--csv", "--serial", "=1+2", "--since", "2026-01-01", "--history", history});
        QVERIFY(finish(csv));
        QCOMPARE(csv.notJson.size(), 2);
        QVERIFY(csv.notJson[0].startsWith("id,started,ended,station,operator,order,host,user,program,port,serial,"));
        // A serial that a spreadsheet would take for a formula stays text.
        QVERIFY2(csv.notJson[1].contains(",\"1-8\",\"'=1+2\",\"1_2_3\",\"1_2_4\",\"1_2_4\","), qPrintable(csv.notJson[1]));
    }

    // A line's day: devices on the watched ports at the start and plugged in later, one
    // in update mode, one current, one failing beside the good ones, one on a port
    // nobody watches; a second station whose ports overlap leaves those to the first.
    void watch()
    {
        const QString plug = sandbox.root() + "/plug6";
        const QString replug = sandbox.root() + "/plug1";
        TestSupport::writeFile(plug, "pulled\n");
        TestSupport::writeFile(replug, "plugged\n");
        const QString rec = sandbox.root() + "/received/";
        EmulatedBus bus({"control=" + replug + ",record=" + rec + "w1", "port=2,dfu", "port=3,name=V1_2_4",
                         "port=4,scenario=errwrite", "port=5", "port=6,control=" + plug + ",record=" + rec + "w6",
                         "port=7,name=V1_2_4"});
        QVERIFY(bus.isUp());
        const QString history = sandbox.root() + "/watch.sqlite";
        Run station;
        start(station, {"watch", "--json", "--history", history, "--ports", "1-1,1-2,1-3,1-4,1-6", firmware});
        QVERIFY(finish(station, 60000, "Watching ports 1-1, 1-2, 1-3, 1-4, 1-6"));
        Run second;
        // A port named twice is one port, not "another run".
        start(second, {"watch", "--json", "--history", history, "--ports", "1-4,1-7,1-7", firmware});
        QVERIFY(finish(second, 20000, "Watching ports 1-7"));
        QStringList refused;
        for (const QJsonObject &e : std::as_const(second.events))
            if (e["event"] == QString("error"))
                refused << e["port"].toString() + ": " + e["text"].toString().left(45);
        QCOMPARE(refused, QStringList{"1-4: Port 1-4 is watched or flashed by another run"});
        QTRY_VERIFY_WITH_TIMEOUT((station.read(), countOf(station, "result") == 4), 60000);
        TestSupport::writeFile(plug, "plugged\n");
        QTRY_VERIFY_WITH_TIMEOUT((station.read(), countOf(station, "result") == 5), 60000);
        // The flashed unit on 1-1 leaves and comes back: it is not flashed again.
        TestSupport::writeFile(replug, "pulled\n");
        QTest::qWait(500);
        TestSupport::writeFile(replug, "plugged\n");
        QTRY_VERIFY_WITH_TIMEOUT((station.read(), countOf(station, "device") == 6), 20000);
        QTest::qWait(1000);
        for (Run *run : {&station, &second})
            ::kill(pid_t(run->process->processId()), SIGTERM);
        QVERIFY(finish(station, 20000) && finish(second, 20000));

        QStringList outcomes;
        for (const QJsonObject &e : std::as_const(station.events)) {
            if (e["event"] == QString("result") || e["event"] == QString("skipped"))
                outcomes << e["port"].toString() + " " + e["outcome"].toString() + e["reason"].toString();
        }
        outcomes.sort();
        QCOMPARE(outcomes, (QStringList{"1-1 flashed", "1-2 recovered", "1-3 current", "1-4 failed",
                                        "1-5 port not watched", "1-6 flashed", "1-7 port not watched"}));
        const QJsonObject summary = station.events.last();
        QCOMPARE(summary["event"].toString(), QString("summary"));
        QCOMPARE(QStringList({QString::number(summary["flashed"].toInt()), QString::number(summary["recovered"].toInt()),
                              QString::number(summary["current"].toInt()), QString::number(summary["failed"].toInt()),
                              QString::number(summary["skipped"].toInt())}),
                 (QStringList{"2", "1", "1", "1", "2"}));
        QCOMPARE(station.process->exitCode(), 4); // stopped cleanly, a unit failed
        QCOMPARE(second.last("summary")["current"].toInt(), 1);
        QVERIFY(std::any_of(second.events.cbegin(), second.events.cend(), [](const QJsonObject &e) {
            return e["port"] == QString("1-4") && e["reason"] == QString("another run watches the port");
        }));
        QCOMPARE(second.process->exitCode(), 0);
        QCOMPARE(received("w1"), flashed);
        QCOMPARE(received("w6"), flashed);
        QCOMPARE(workingFolders(), QStringList{});
    }

    // Stopping a station while it flashes: the first signal lets the flash end, the
    // second stops it, also when the signal goes to the whole process group as a
    // terminal's Ctrl-C does; a station killed outright takes its tools with it and
    // leaves a record that the next run marks interrupted.
    void watchStops_data()
    {
        QTest::addColumn<QString>("stopBy"); // TERM, TERM TERM, group INT, KILL
        QTest::addColumn<int>("pause");        // ms the device asks for after each block
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("outcome");
        QTest::newRow("one SIGTERM: the flash ends") << "TERM" << 100 << 0 << "flashed";
        QTest::newRow("two SIGTERMs: the flash stops") << "TERM TERM" << 100 << 1 << "stopped";
        QTest::newRow("Ctrl-C to the group: the flash ends") << "group INT" << 100 << 0 << "flashed";
        // The tool waits a minute on the device, silent: one left alive would be there still.
        QTest::newRow("SIGKILL") << "KILL" << 60000 << 128 + SIGKILL << "interrupted";
    }

    void watchStops()
    {
        QFETCH(QString, stopBy);
        QFETCH(int, pause);
        QFETCH(QString, outcome);
        EmulatedBus bus({"scenario=busy,after=" + QString::number(pause)});
        QVERIFY(bus.isUp());
        const QString history = sandbox.root() + "/stops.sqlite";
        QFile::remove(history);
        Run station;
        start(station, {"watch", "--json", "--history", history, firmware});
        QVERIFY(finish(station, 60000, "Search for DFU USB device"));
        const pid_t pid = pid_t(station.process->processId());
        if (stopBy == "KILL") {
            QTRY_VERIFY_WITH_TIMEOUT((station.read(), countOf(station, "file") == 1), 30000);
            station.process->kill();
        }
        else if (stopBy == "group INT")
            ::kill(-pid, SIGINT);
        for (int i = 0; i < stopBy.count("TERM"); ++i) {
            ::kill(pid, SIGTERM);
            QTest::qWait(300);
        }
        QVERIFY(finish(station, 60000));
        QTEST(station.process->exitStatus() == QProcess::NormalExit ? station.process->exitCode() : 128 + SIGKILL,
              "exitCode");
        if (stopBy != "KILL") {
            QCOMPARE(station.last("result")["outcome"].toString(), outcome);
            QCOMPARE(station.events.last()["event"].toString(), QString("summary"));
        }
        // Its tools went with the station, not a minute later.
        QTRY_COMPARE_WITH_TIMEOUT(TestSupport::liveProcessesWith(sandbox.workingRoot() + "/station-"), 0, 5000);
        Run records;
        start(records, {"history", "--json", "--history", history});
        QVERIFY(finish(records));
        QCOMPARE(records.events.size(), 1);
        QCOMPARE(records.events[0]["outcome"].toString(), outcome);
        if (stopBy == "KILL") // the next run takes the folder of one killed outright
            OwnedFolder::removeAbandoned(sandbox.workingRoot() + "/station-");
        QCOMPARE(workingFolders(), QStringList{});
    }

    // Runs that end before any transfer. Each also finds the folders of two earlier runs:
    // one killed outright (gone with this run) and one still under way (left alone).
    void refusals_data()
    {
        QTest::addColumn<QStringList>("devices");
        QTest::addColumn<QStringList>("args");
        // "": the signed package; fifo; nogpg; locked (port 1-1 held); something else or another
        // user's file at port 1-1's lock path
        QTest::addColumn<QString>("firmware");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("error");
        const QStringList one{"port=1"};
        QTest::newRow("two devices and no port") << QStringList{"port=1", "port=2"} << QStringList{} << "" << 2
                                                 << "More than one DFU capable USB device found: ports 1-1, 1-2.";
        QTest::newRow("no device on the port") << one << QStringList{"--port", "1-7"} << "" << 2
                                               << "Device is not connected";
        // A device that asks for half a second after each block takes longer than that.
        QTest::newRow("a time limit") << QStringList{"port=1,scenario=busy,after=500"} << QStringList{"--timeout", "3"}
                                      << "" << 2 << "Time limit of 3 s reached";
        QTest::newRow("a FIFO for firmware") << one << QStringList{"--timeout", "30"} << "fifo" << 2
                                             << sandbox.root() + "/Tessel_NINE_V1_2_4.OS.zip.gpg is not a regular file";
        QTest::newRow("no gpg and no --zip") << one << QStringList{} << "nogpg" << 2 << "No gpg beside morvanta-station";
        QTest::newRow("the port held by another run") << one << QStringList{"--port", "1-1"} << "locked" << 2
                                                      << "Another run is flashing the device on port 1-1";
        // /run/lock is every user's: what anyone puts there never holds a run.
        const QString lockFile = PortLock::folder() + "/morvanta-port-1-1.lock";
        QTest::newRow("a FIFO at the lock's path") << one << QStringList{"--port", "1-1", "--timeout", "5"} << "fifo lock"
                                                   << 2 << "Cannot lock port 1-1: " + lockFile + " is no lock file";
        QTest::newRow("another user's file at the lock's path")
            << one << QStringList{"--port", "1-1"} << "foreign lock" << 2
            << "Cannot lock port 1-1: " + lockFile + " belongs to another user (65534)";
        for (const char *seconds : {"soon", "0", "86401", "4294968"})
            QTest::addRow("--timeout %s", seconds) << one << QStringList{"--timeout", seconds} << "" << 64 << "";
        // A command line is every user's to read: no password in it.
        for (const char *url : {"postgresql://line:secret@db/morvanta", "postgresql://line@db/morvanta?password=secret",
                                "http://db/morvanta", "postgresql://line@db/morvanta?options=a;b"})
            QTest::addRow("--central %s", url) << one << QStringList{"--central", url} << "" << 64 << "";
        QTest::newRow("an empty station name") << one << QStringList{"--station", " "} << "" << 64 << "";
    }

    void refusals()
    {
        QFETCH(QStringList, devices);
        QFETCH(QStringList, args);
        QFETCH(QString, firmware);
        QFETCH(QString, error);
        EmulatedBus bus(devices);
        QVERIFY(bus.isUp());
        QString path = this->firmware;
        PortLock otherRun;
        if (firmware == "fifo") {
            path = sandbox.root() + "/Tessel_NINE_V1_2_4.OS.zip.gpg";
            QCOMPARE(mkfifo(QFile::encodeName(path).constData(), 0644), 0);
        } else if (firmware == "nogpg") {
            QVERIFY(QFile::rename(sandbox.app() + "/gpg", sandbox.app() + "/gpg.away"));
        } else if (firmware == "locked") {
            QVERIFY(otherRun.lock("1-1"));
        }
        const QString lockFile = PortLock::folder() + "/morvanta-port-1-1.lock";
        if (firmware == "fifo lock") {
            QCOMPARE(mkfifo(QFile::encodeName(lockFile).constData(), 0666), 0);
        } else if (firmware == "foreign lock") {
            if (getuid() != 0 || !TestSupport::userMapped(65534))
                QSKIP("needs root with other users");
            QVERIFY(TestSupport::writeFile(lockFile));
            QCOMPARE(chown(QFile::encodeName(lockFile).constData(), 65534, 65534), 0);
        }
        const auto restore = qScopeGuard([&] {
            QFile::remove(lockFile);
            QFile::remove(sandbox.root() + "/Tessel_NINE_V1_2_4.OS.zip.gpg");
            QFile::rename(sandbox.app() + "/gpg.away", sandbox.app() + "/gpg");
        });
        QDir().mkpath(sandbox.workingRoot());
        QFile::setPermissions(sandbox.workingRoot(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QVERIFY(TestSupport::writeFile(sandbox.workingRoot() + "/station-killed/.owner", ""));
        OwnedFolder running;
        const QString runningFolder = QFileInfo(running.make(sandbox.workingRoot() + "/station-")).fileName();
        QVERIFY(!runningFolder.isEmpty());

        Run run;
        start(run, QStringList{"flash", "--json"} + args + QStringList{path});
        QVERIFY(finish(run, 30000));
        QTEST(run.process->exitCode(), "exitCode");
        if (!error.isEmpty()) {
            QVERIFY2(run.has(error), qPrintable(QJsonDocument(run.events.value(0)).toJson()));
            QCOMPARE(run.events.last()["event"].toString(), firmware == "nogpg" ? QString("error") : QString("result"));
        }
        // A run refused before it starts touches nothing.
        const bool started = run.process->exitCode() != 64 && firmware != "nogpg";
        QStringList left{runningFolder};
        if (!started)
            left << "station-killed";
        left.sort();
        QStringList found = workingFolders();
        found.sort();
        QCOMPARE(found, left);
        QCOMPARE(TestSupport::liveProcessesWith(sandbox.workingRoot() + "/station-"), 0);
        running.release();
        QVERIFY(Platform::removeTree(sandbox.workingRoot() + "/" + runningFolder));
        QVERIFY(Platform::removeTree(sandbox.workingRoot() + "/station-killed"));
    }

    // Stopped as a script stops it, whatever the run waits on: the tool goes with it,
    // and the working folder. A share whose server is stopped holds every look at the
    // firmware in the kernel; the run ends all the same.
    void stopped_data()
    {
        QTest::addColumn<QString>("firmware"); // flashing: the package; share: on a stopped share
        QTest::addColumn<int>("signal");       // 0: the time limit of 3 s
        QTest::addColumn<int>("exitCode");
        QTest::newRow("SIGTERM while flashing") << "flashing" << SIGTERM << 1;
        QTest::newRow("SIGINT while flashing") << "flashing" << SIGINT << 1;
        QTest::newRow("SIGTERM, firmware on a stopped share") << "share" << SIGTERM << 1;
        QTest::newRow("time limit, firmware on a stopped share") << "share" << 0 << 2;
    }

    void stopped()
    {
        QFETCH(QString, firmware);
        QFETCH(int, signal);
        EmulatedBus bus({"port=1"});
        QVERIFY(bus.isUp());
        QString path = this->firmware;
        std::optional<TestSupport::FuseShare> share;
        if (firmware == "share") {
            share.emplace(sandbox.root() + "/share.img", sandbox.root() + "/share");
            if (!share->isMounted())
                QSKIP("needs FUSE (/dev/fuse) in a mount namespace of its own");
            for (const QString &name : QDir(this->firmware).entryList(QDir::Files))
                QVERIFY(QFile::copy(this->firmware + "/" + name, sandbox.root() + "/share/" + name));
            share->stop();
            path = sandbox.root() + "/share";
        }
        Run run;
        start(run, {"flash", "--json", "--timeout", "3", path});
        if (firmware == "flashing") {
            QVERIFY(finish(run, 30000, "Search for DFU USB device"));
            QTRY_COMPARE_WITH_TIMEOUT(TestSupport::liveProcessesWith(sandbox.workingRoot() + "/station-"), 1, 10000);
        } else {
            QTest::qWait(1000);
        }
        if (signal != 0)
            ::kill(pid_t(run.process->processId()), signal);
        QVERIFY(finish(run, 10000));
        QCOMPARE(run.process->exitStatus(), QProcess::NormalExit);
        QTEST(run.process->exitCode(), "exitCode");
        QTEST(run.last("result")["exitCode"].toInt(), "exitCode");
        QCOMPARE(TestSupport::liveProcessesWith(sandbox.workingRoot() + "/station-"), 0);
        QCOMPARE(workingFolders(), QStringList{});
    }

    // A record that cannot be completed when the flash ends (another program holds the
    // history) is tried again until the time limit, or a stop; then the run says so and
    // ends with 3, and what the record would have said is kept for the next run that
    // writes. The station hears its signals all the while.
    void recordNeverFalse_data()
    {
        QTest::addColumn<QString>("timeout");
        QTest::addColumn<bool>("sigterm");
        QTest::newRow("until the time limit") << "15" << false;
        QTest::newRow("until a stop") << "300" << true;
    }

    void recordNeverFalse()
    {
        QFETCH(QString, timeout);
        QFETCH(bool, sigterm);
        EmulatedBus bus({"port=1"});
        QVERIFY(bus.isUp());
        const QString history = sandbox.root() + "/held-" + timeout + ".sqlite";
        Run run;
        start(run, {"flash", "--json", "--timeout", timeout, "--history", history, firmware});
        QVERIFY(finish(run, 60000, "Flashed: waiting for the device"));
        QSqlDatabase holder = QSqlDatabase::addDatabase("QSQLITE", "holder-" + timeout);
        holder.setDatabaseName(history);
        QVERIFY(holder.open());
        QSqlQuery hold(holder);
        QVERIFY2(hold.exec("BEGIN EXCLUSIVE"), qPrintable(hold.lastError().text()));
        if (sigterm) {
            QTest::qWait(2000);
            ::kill(pid_t(run.process->processId()), SIGTERM);
        }
        QVERIFY(finish(run, 40000)); // well before a time limit of 300 s
        QCOMPARE(run.process->exitCode(), 3);
        const QJsonObject result = run.last("result");
        QCOMPARE(QStringList({result["outcome"].toString(), result["recorded"].toBool() ? "recorded" : "not recorded"}),
                 (QStringList{"flashed", "not recorded"}));
        QVERIFY(run.has("Cannot write the history " + history));
        QVERIFY(hold.exec("COMMIT"));
        hold.finish();
        holder.close();

        // A reader shows it as it is, and changes nothing; the next writer marks it for good.
        const auto outcomes = [&] {
            Run records;
            start(records, {"history", "--json", "--history", history});
            return finish(records) ? records.events.value(0)["outcome"].toString() + " " +
                                         records.events.value(0)["after"].toString()
                                   : QString();
        };
        QCOMPARE(outcomes(), QString("unrecorded 1_2_4"));
        QVERIFY(QFile::exists(history + ".unrecorded"));
        Run next;
        start(next, {"flash", "--json", "--history", history, firmware});
        QVERIFY(finish(next));
        QVERIFY(!QFile::exists(history + ".unrecorded"));
        QCOMPARE(outcomes(), QString("unrecorded 1_2_4"));
    }

    // history reads and never writes: a missing file is an error, and a history whose
    // writer is stopped is read by a member of its group who may not write there.
    void historyOnlyReads_data()
    {
        QTest::addColumn<QString>("where");
        QTest::addColumn<int>("exitCode");
        QTest::newRow("a mistyped path") << "mistyped" << 2;
        QTest::newRow("the service's, read by its group") << "group" << 0;
    }

    void historyOnlyReads()
    {
        QFETCH(QString, where);
        const QString folder = sandbox.root() + "/history-" + where;
        const QString path = folder + "/history.sqlite";
        Run run;
        if (where == "group") {
            if (getuid() != 0 || !TestSupport::userMapped(65534))
                QSKIP("needs root with other users");
            EmulatedBus bus({"port=1"});
            QVERIFY(bus.isUp());
            Run writer;
            start(writer, {"flash", "--json", "--history", path, firmware});
            QVERIFY(finish(writer));
            // root:nogroup, the group may read and nobody may write but root.
            QCOMPARE(QProcess::execute("chgrp", {"-R", "65534", folder}), 0);
            QVERIFY(QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                                      QFile::ReadGroup | QFile::ExeGroup));
            QVERIFY(QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup));
            QVERIFY(QFile::setPermissions(sandbox.root(), QFile::permissions(sandbox.root()) | QFile::ExeOther));
            start(run, {"--reuid=65534", "--regid=65534", "--clear-groups", sandbox.app() + "/morvanta-station",
                        "history", "--json", "--history", path},
                  QString(), "setpriv");
        } else {
            start(run, {"history", "--json", "--history", path});
        }
        QVERIFY(finish(run));
        QTEST(run.process->exitCode(), "exitCode");
        if (where == "mistyped") {
            QVERIFY(QString::fromUtf8(run.process->readAllStandardError()).contains("There is no history at " + path));
            QVERIFY(!QFileInfo::exists(folder));
        } else {
            QCOMPARE(run.events.size(), 1);
            QCOMPARE(run.events[0]["outcome"].toString(), QString("flashed"));
            QCOMPARE(QDir(folder).entryList(QDir::Files), QStringList{"history.sqlite"}); // nothing made beside it
        }
    }

    // A working folder that fills up while the package is checked and unpacked: the
    // device gets the package whole or nothing of it, and the run says why.
    void fullWorkingFolder_data()
    {
        QTest::addColumn<int>("kib"); // the size of the file system under the working folder
        for (int kib : {8, 24, 48})
            QTest::addRow("%d KiB", kib) << kib;
    }

    void fullWorkingFolder()
    {
        QFETCH(int, kib);
        const QString tmp = sandbox.root() + "/small-tmp";
        if (!TestSupport::mountTmpfs(tmp, kib))
            QSKIP("needs a mount namespace of its own");
        const auto unmount = qScopeGuard([&] { QProcess::execute("umount", {tmp}); });
        const QString folder = sandbox.root() + "/five";
        const QString record = sandbox.root() + "/received/full" + QString::number(kib);
        if (QDir().mkpath(folder) && QDir(folder).isEmpty())
            QCOMPARE(kit.makePackage(folder, "Tessel_NINE_V1_2_4", 3, 2, 10000, true).size(), 2);
        const QList<QByteArray> whole = FirmwareKit::flashedImages({"os"}, 3, 10000, "V1_2_4") +
                                        FirmwareKit::flashedImages({"pr"}, 2, 10000, "V1_2_4");
        EmulatedBus bus({"port=1,record=" + record});
        QVERIFY(bus.isUp());
        Run run;
        start(run, {"flash", "--json", folder}, tmp);
        QVERIFY(finish(run));
        const QList<QByteArray> got = EmulatedBus::received(record);
        if (run.process->exitCode() == 0) {
            QCOMPARE(got, whole);
        } else {
            QCOMPARE(run.process->exitCode(), 2);
            QCOMPARE(got, QList<QByteArray>{});
            const QString text = run.last("error")["text"].toString();
            QVERIFY2(text.startsWith("Error in firmware extraction") || text.startsWith("Invalid digital signature") ||
                         text.startsWith("Cannot prepare the working folder"),
                     qPrintable(text));
        }
    }

    // Eight stations of a plant flash at once, each with its own history: the central
    // record has every unit once, with what went onto it and who signed it, and any
    // station reads all of them back.
    void centralEightStations()
    {
        if (!PostgresServer::unavailable().isEmpty())
            QSKIP(qPrintable(PostgresServer::unavailable()));
        QVERIFY2(startCentral(), qPrintable(postgres->error()));
        QStringList devices;
        for (int i = 1; i <= 8; ++i)
            devices << QString("port=%1").arg(i);
        EmulatedBus bus(devices);
        QVERIFY(bus.isUp());
        Run runs[8];
        for (int i = 0; i < 8; ++i)
            start(runs[i], {"flash", "--json", "--history", sandbox.root() + QString("/plant-%1.sqlite").arg(i + 1),
                            "--station", QString("line-%1").arg(i + 1), "--operator", "badge 0815", "--order",
                            i < 4 ? "WO-1" : "WO-2", "--central", postgres->url(), "--port", QString("1-%1").arg(i + 1),
                            firmware});
        for (Run &run : runs) {
            QVERIFY(finish(run));
            QCOMPARE(run.process->exitCode(), 0);
            QCOMPARE(countOf(run, "error"), 0);
        }
        const QString sha = QCryptographicHash::hash(flashed.last(), QCryptographicHash::Sha256).toHex();
        QStringList expected;
        for (int i = 1; i <= 8; ++i)
            expected << QString("line-%1|000000%1|flashed|1_2_3|1_2_4|%2|40|badge 0815|WO-%3|station")
                            .arg(i)
                            .arg(sha)
                            .arg(i <= 4 ? 1 : 2);
        QCOMPARE(central("SELECT station, serial, outcome, before, after, files->-1->>'sha256', length(signer), "
                         "operator, work_order, program FROM flashes WHERE station LIKE 'line-%' ORDER BY station"),
                 expected);
        // What a plant's dashboard reads.
        QCOMPARE(central("SELECT count(DISTINCT station), sum(flashed), sum(failed), sum(total) FROM flashes_per_hour "
                         "WHERE station LIKE 'line-%'"),
                 QStringList{"8|8|0|8"});

        // The local record knows it was sent, under the same id.
        Run local;
        start(local, {"history", "--json", "--history", sandbox.root() + "/plant-3.sqlite"});
        QVERIFY(finish(local));
        QCOMPARE(local.events.size(), 1);
        QVERIFY(!local.events[0]["sent"].toString().isEmpty());
        QCOMPARE(central("SELECT station FROM flashes WHERE id = '" + local.events[0]["id"].toString() + "'"),
                 QStringList{"line-3"});
        Run plant;
        start(plant, {"history", "--json", "--central", postgres->url(), "--order", "WO-2", "--station", "line-7"});
        QVERIFY(finish(plant));
        QCOMPARE(plant.process->exitCode(), 0);
        QCOMPARE(plant.events.size(), 1);
        QCOMPARE(plant.events[0]["serial"].toString(), QString("0000007"));
        QVERIFY(!plant.events[0]["received"].toString().isEmpty());
    }

    // The server goes away in the middle of a day: the line flashes on, and every record
    // arrives once when it is back, through the running watch and through sync; a send
    // cut after the server's commit counts once.
    void centralAway()
    {
        if (!PostgresServer::unavailable().isEmpty())
            QSKIP(qPrintable(PostgresServer::unavailable()));
        QVERIFY2(startCentral(), qPrintable(postgres->error()));
        QVERIFY(postgres->stop(true));
        EmulatedBus bus({"port=1", "port=2"});
        QVERIFY(bus.isUp());
        const QString watched = sandbox.root() + "/away-watch.sqlite";
        const QString flashedAlone = sandbox.root() + "/away-flash.sqlite";
        Run watch;
        start(watch, {"watch", "--json", "--ports", "1-1", "--history", watched, "--station", "away-watch",
                      "--central", postgres->url(), "--http", "18384", firmware});
        Run flash;
        start(flash, {"flash", "--json", "--port", "1-2", "--history", flashedAlone, "--station", "away-flash",
                      "--central", postgres->url(), firmware});
        QVERIFY(finish(flash));
        QCOMPARE(flash.process->exitCode(), 0);
        QCOMPARE(flash.last("result")["outcome"].toString(), QString("flashed"));
        QVERIFY(flash.has("The central record cannot take records"));
        QCOMPARE(flash.last("result"), flash.events.last());
        QDeadlineTimer deadline(90000);
        while (countOf(watch, "result") == 0 && !deadline.hasExpired()) {
            watch.process->waitForReadyRead(200);
            watch.read();
        }
        QCOMPARE(watch.last("result")["outcome"].toString(), QString("flashed"));
        // The line's page and metrics say the record waits.
        QTRY_VERIFY_WITH_TIMEOUT(promSamples(body(get("/metrics", 18384))).contains("morvanta_outbox_pending{} 1.0"),
                                 10000);
        QVERIFY(promSamples(body(get("/metrics", 18384))).contains("morvanta_central_up{} 0.0"));
        const QJsonObject away = QJsonDocument::fromJson(body(get("/api/state", 18384)))["central"].toObject();
        QCOMPARE(away["up"], QJsonValue(false));
        QVERIFY(away["error"].toString().startsWith("The central record cannot take records"));

        QVERIFY(postgres->start());
        // The watch tries again by itself, a minute apart at most.
        QTRY_COMPARE_WITH_TIMEOUT(central("SELECT count(*) FROM flashes WHERE station = 'away-watch'"),
                                  QStringList{"1"}, 90000);
        QTRY_VERIFY_WITH_TIMEOUT(promSamples(body(get("/metrics", 18384))).contains("morvanta_central_up{} 1.0"), 10000);
        QVERIFY(promSamples(body(get("/metrics", 18384))).contains("morvanta_outbox_pending{} 0.0"));
        Run sync;
        start(sync, {"sync", "--json", "--history", flashedAlone, "--central", postgres->url()});
        QVERIFY(finish(sync));
        QCOMPARE(sync.process->exitCode(), 0);
        QCOMPARE(sync.last("sync"), (QJsonObject{{"event", "sync"}, {"sent", 1}, {"left", 0}}));

        // Cut between the server's commit and the local mark: the record goes again.
        {
            QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "cut");
            db.setDatabaseName(flashedAlone);
            QVERIFY(db.open());
            QSqlQuery unmark(db);
            QVERIFY(unmark.exec("UPDATE flashes SET sent = NULL"));
        }
        QSqlDatabase::removeDatabase("cut");
        Run again;
        start(again, {"sync", "--json", "--history", flashedAlone, "--central", postgres->url()});
        QVERIFY(finish(again));
        QCOMPARE(again.last("sync")["sent"].toInt(), 1);
        QCOMPARE(central("SELECT count(*) FROM flashes WHERE station = 'away-flash'"), QStringList{"1"});

        ::kill(pid_t(watch.process->processId()), SIGTERM);
        QVERIFY(finish(watch));
        QCOMPARE(watch.process->exitCode(), 0);
    }

    // A station killed in a flash: the next run marks its record interrupted and sends it.
    void centralKilled()
    {
        if (!PostgresServer::unavailable().isEmpty())
            QSKIP(qPrintable(PostgresServer::unavailable()));
        QVERIFY2(startCentral(), qPrintable(postgres->error()));
        EmulatedBus bus({"port=1,after=60000"});
        QVERIFY(bus.isUp());
        const QString history = sandbox.root() + "/killed.sqlite";
        Run run;
        start(run, {"flash", "--json", "--history", history, "--station", "killed", "--central", postgres->url(),
                    firmware});
        QDeadlineTimer deadline(60000);
        while (countOf(run, "file") == 0 && !deadline.hasExpired()) {
            run.process->waitForReadyRead(200);
            run.read();
        }
        QVERIFY(countOf(run, "file") > 0);
        run.process->kill();
        QVERIFY(run.process->waitForFinished());
        QCOMPARE(central("SELECT count(*) FROM flashes WHERE station = 'killed'"), QStringList{"0"});
        Run sync;
        start(sync, {"sync", "--json", "--history", history, "--central", postgres->url()});
        QVERIFY(finish(sync));
        QCOMPARE(sync.process->exitCode(), 0);
        QCOMPARE(central("SELECT outcome, serial FROM flashes WHERE station = 'killed'"),
                 QStringList{"interrupted|0000001"});
    }

    // Schemas have versions: an old history is brought up to date and sent, a newer one
    // and a newer central schema are refused and left as they are.
    void centralSchemas_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("said");
        QTest::newRow("a history of the first version") << "old" << 0 << "";
        QTest::newRow("a history of a newer program") << "newer" << 2 << "has schema version 3, newer than this program knows (2)";
        QTest::newRow("a central record of a newer program") << "newer central" << 2 << "The central record's schema is version 2, newer than this program knows (1)";
    }

    void centralSchemas()
    {
        QFETCH(QString, kind);
        QFETCH(int, exitCode);
        QFETCH(QString, said);
        if (!PostgresServer::unavailable().isEmpty())
            QSKIP(qPrintable(PostgresServer::unavailable()));
        QVERIFY2(startCentral(), qPrintable(postgres->error()));
        const QString path = sandbox.root() + "/schema-" + QString(kind).replace(' ', '-') + ".sqlite";
        {
            QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "old");
            db.setDatabaseName(path);
            QVERIFY(db.open());
            QSqlQuery make(db);
            // What the first program made.
            QVERIFY(make.exec("CREATE TABLE flashes (id INTEGER PRIMARY KEY, started TEXT NOT NULL, ended TEXT, "
                              "host TEXT, user TEXT, program TEXT, process TEXT, port TEXT, serial TEXT, before TEXT, "
                              "after TEXT, version TEXT, files TEXT, signed INTEGER, signer TEXT, tool TEXT, "
                              "outcome TEXT NOT NULL, error TEXT, seconds REAL)"));
            QVERIFY(make.exec("INSERT INTO flashes (started, ended, host, user, program, serial, files, signed, "
                              "outcome, seconds) VALUES ('2026-03-02T08:00:00Z', '2026-03-02T08:01:00Z', 'old-pc', "
                              "'tech', 'window', 'OLD" + kind.left(5) + "', '[]', 1, 'flashed', 60)"));
            if (kind == "newer")
                QVERIFY(make.exec("PRAGMA user_version = 3"));
        }
        QSqlDatabase::removeDatabase("old");
        const QByteArray before = TestSupport::readFile(path);
        if (kind == "old") { // read as it is, its host standing for the station
            Run read;
            start(read, {"history", "--json", "--station", "old-pc", "--history", path});
            QVERIFY(finish(read));
            QCOMPARE(read.events.size(), 1);
            QCOMPARE(read.events[0]["station"].toString(), QString("old-pc"));
            QCOMPARE(TestSupport::readFile(path), before);
        }
        if (kind == "newer central")
            central("UPDATE morvanta_schema SET version = 2");
        Run sync;
        start(sync, {"sync", "--json", "--history", path, "--central", postgres->url()});
        QVERIFY(finish(sync));
        if (kind == "newer central")
            central("UPDATE morvanta_schema SET version = 1");
        QCOMPARE(sync.process->exitCode(), exitCode);
        const QString serial = "OLD" + kind.left(5);
        if (kind == "old") {
            QCOMPARE(central("SELECT station, program, outcome, length(id::text) FROM flashes WHERE serial = '" + serial + "'"),
                     QStringList{"old-pc|window|flashed|36"});
            return;
        }
        QVERIFY2(std::any_of(sync.events.cbegin(), sync.events.cend(),
                             [&said](const QJsonObject &e) { return e["text"].toString().contains(said); }),
                 qPrintable(QJsonDocument(sync.events.value(0)).toJson()));
        QCOMPARE(central("SELECT count(*) FROM flashes WHERE serial = '" + serial + "'"), QStringList{"0"});
        if (kind == "newer")
            QCOMPARE(TestSupport::readFile(path), before);
    }

    // A server whose address never answers holds no flash beyond its time limit: the
    // record waits in the history.
    void centralBlackHole()
    {
        if (QProcess::execute("ip", {"route", "add", "10.99.0.0/24", "dev", "lo"}) != 0)
            QSKIP("needs a network namespace of the test's own");
        const auto away = qScopeGuard([] { QProcess::execute("ip", {"route", "del", "10.99.0.0/24", "dev", "lo"}); });
        EmulatedBus bus({"port=1"});
        QVERIFY(bus.isUp());
        const QString history = sandbox.root() + "/black-hole.sqlite";
        Run run;
        QElapsedTimer clock;
        clock.start();
        start(run, {"flash", "--json", "--timeout", "60", "--history", history, "--central",
                    "postgresql://line@10.99.0.2/morvanta", firmware});
        QVERIFY(finish(run, 120000));
        QVERIFY2(clock.elapsed() < 60000, qPrintable(QString::number(clock.elapsed())));
        QCOMPARE(run.process->exitCode(), 0);
        // A script reads the result as the last line, whatever the server does after it.
        QCOMPARE(run.last("result"), run.events.last());
        Run local;
        start(local, {"history", "--json", "--history", history});
        QVERIFY(finish(local));
        QCOMPARE(local.events.size(), 1);
        QCOMPARE(local.events[0]["sent"], QJsonValue(QJsonValue::Null));
    }

    // The wizard's two stages without a person: the device restarts after its boot
    // loader, off the bus for a while, and the firmware follows when it is back.
    void bootLoaderFirst()
    {
        const QString control = sandbox.root() + "/plug";
        TestSupport::writeFile(control, "plugged\n");
        EmulatedBus bus({"control=" + control + ",record=" + sandbox.root() + "/received/two-stages"});
        QVERIFY(bus.isUp());
        Run run;
        start(run, {"flash", "--json", "--bootloader", bootLoader, firmware});
        QVERIFY(finish(run, 60000, "Boot loader written"));
        TestSupport::writeFile(control, "pulled\n");
        QTest::qWait(10000); // longer than the first look after the restart
        TestSupport::writeFile(control, "plugged\n");
        QVERIFY(finish(run));
        QCOMPARE(run.process->exitCode(), 0);
        QCOMPARE(run.last("result")["after"].toString(), QString("1_2_4"));
        QCOMPARE(received("two-stages"), FirmwareKit::flashedImages({"bl"}, 1, fileSize) + flashed);
    }

    // One HTTP exchange as written; from: the client's own address.
    static QByteArray http(const QByteArray &request, quint16 port, const QString &to = "127.0.0.1",
                           const QString &from = QString())
    {
        QTcpSocket socket;
        if (!from.isEmpty())
            socket.bind(QHostAddress(from));
        socket.connectToHost(to, port);
        if (!socket.waitForConnected(5000))
            return {};
        // One request a connection: the reply ends when the station closes it.
        const qsizetype line = request.indexOf("\r\n");
        socket.write(request.contains("Connection:") || line < 0
                         ? request
                         : request.left(line + 2) + "Connection: close\r\n" + request.mid(line + 2));
        QByteArray reply;
        while (socket.waitForReadyRead(5000))
            reply += socket.readAll();
        return reply + socket.readAll();
    }
    static QByteArray get(const QByteArray &path, quint16 port, const QByteArray &headers = {})
    {
        return http("GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1:" + QByteArray::number(port) + "\r\n" + headers +
                        "\r\n",
                    port);
    }
    static int status(const QByteArray &reply)
    {
        return reply.mid(9, 3).toInt();
    }
    static QByteArray body(const QByteArray &reply)
    {
        return reply.mid(reply.indexOf("\r\n\r\n") + 4);
    }
    // Prometheus' own parser of its text format: each sample as "name{labels} value".
    static QStringList promSamples(const QByteArray &text)
    {
        QProcess parser;
        parser.start("/usr/bin/python3",
                     {"-c", "import sys\nfrom prometheus_client.parser import text_string_to_metric_families as f\n"
                            "for family in f(sys.stdin.read()):\n"
                            "  for s in family.samples:\n"
                            "    print(s.name + '{' + ','.join(k + '=' + v for k, v in sorted(s.labels.items())) + '} '"
                            " + repr(s.value))\n"});
        parser.write(text);
        parser.closeWriteChannel();
        parser.waitForFinished(20000);
        if (parser.exitCode() != 0)
            qWarning() << parser.readAllStandardError();
        return QString::fromUtf8(parser.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    }

    // The page in a headless Chromium while units arrive: each tile goes from waiting to
    // flashing to its outcome within a second of the station's own event; the counts are
    // the summary's; a serial that holds markup is shown as text and runs nothing; the CSV
    // holds every record; the page speaks German to a German browser.
    void pageInBrowser()
    {
        if (!BROWSER_TESTS)
            QSKIP("the browser looks at the page in the plain build");
        QVERIFY2(QFile::exists("/usr/bin/chromedriver"), "chromium-driver is not installed");
        QStringList devices;
        for (const QString &port : QStringList{"1", "2", "3"}) {
            TestSupport::writeFile(sandbox.root() + "/pageplug" + port, "pulled\n");
            devices << "port=" + port + ",scenario=busy,after=40,control=" + sandbox.root() + "/pageplug" + port;
        }
        devices[2] += ",serial=<img src=x onerror=injected=1>";
        EmulatedBus bus(devices);
        QVERIFY(bus.isUp());
        const QString history = sandbox.root() + "/page.sqlite";
        Run station;
        start(station, {"watch", "--json", "--http", "18380", "--history", history, "--ports", "1-1,1-2,1-3", firmware});
        QVERIFY(finish(station, 60000, "Watching ports"));
        QCOMPARE(station.events.first()["text"].toString(), QString("The station's page: http://127.0.0.1:18380/"));

        QProcess browser;
        browser.start("/usr/bin/python3", {PAGE_DRIVER});
        auto ask = [&browser](const QByteArray &command) {
            browser.write(command + '\n');
            while (!browser.canReadLine() && browser.waitForReadyRead(60000)) {
            }
            const QJsonObject answer = QJsonDocument::fromJson(browser.readLine()).object();
            if (answer.contains("error"))
                qWarning() << command << answer["error"].toString() << browser.readAllStandardError();
            return answer["ok"];
        };
        const auto quit = qScopeGuard([&browser] {
            browser.write("quit\n");
            browser.waitForFinished(20000);
        });
        QCOMPARE(ask("open http://127.0.0.1:18380/ en")["lang"].toString(), QString("en"));
        for (const QJsonValue &tile : ask("tiles").toArray())
            QCOMPARE(tile[2].toString(), QString("waiting"));
        // Events are read as they come, for the time each was heard.
        const auto readFor = [&station](int ms, int results) {
            QDeadlineTimer deadline(ms);
            while (countOf(station, "result") < results && !deadline.hasExpired()) {
                station.process->waitForReadyRead(20);
                station.read();
            }
        };
        for (const QString &port : QStringList{"1", "2", "3"}) {
            TestSupport::writeFile(sandbox.root() + "/pageplug" + port, "plugged\n");
            readFor(700, 4);
        }
        readFor(90000, 3);
        QCOMPARE(countOf(station, "result"), 3);
        QTest::qWait(1500);
        // Each port's tile against the station's events, on the same monotonic clock.
        const QJsonArray changes = ask("changes").toArray();
        for (const QString &port : QStringList{"1-1", "1-2", "1-3"}) {
            QStringList states;
            QHash<QString, double> seen;
            for (const QJsonValue &change : changes) {
                if (change[0].toString() != port)
                    continue;
                if (states.isEmpty() || states.last() != change[1].toString())
                    states << change[1].toString();
                if (!seen.contains(change[1].toString()))
                    seen.insert(change[1].toString(), change[3].toDouble() * 1000);
            }
            QCOMPARE(states, (QStringList{"waiting", "flashing", "done"}));
            for (int i = 0; i < station.events.size(); ++i) {
                const QJsonObject &e = station.events[i];
                if (e["port"].toString() != port || (e["event"] != QString("start") && e["event"] != QString("result")))
                    continue;
                const double late = seen.value(e["event"] == QString("start") ? "flashing" : "done") - station.heard[i];
                QVERIFY2(late < 1000, qPrintable(QString("%1 %2: the tile changed %3 ms after the event")
                                                     .arg(port, e["event"].toString())
                                                     .arg(late)));
            }
        }
        const QJsonObject counts = ask("counts").toObject();
        const QJsonArray recent = ask("recent").toArray();
        QCOMPARE(recent.size(), 3);
        QStringList serials;
        for (const QJsonValue &row : recent)
            serials << row[2].toString();
        serials.sort();
        QCOMPARE(serials, (QStringList{"0000001", "0000002", "<img src=x onerror=injected=1>"}));
        const QJsonObject injected = ask("injected").toObject();
        QCOMPARE(injected["alert"], QJsonValue());
        QCOMPARE(injected["elements"].toInt(), 0);
        QCOMPARE(injected["marker"], QJsonValue());
        QCOMPARE(injected["severe"].toArray(), QJsonArray());
        ask(QByteArray("screenshot ") + QFile::encodeName(TestSupport::binDir() + "/../station-page.png"));
        const QJsonObject found = ask("search <img src=x onerror=injected=1>").toObject();
        QCOMPARE(found["note"].toString(), QString("One record of serial <img src=x onerror=injected=1>"));
        QCOMPARE(found["rows"].toArray().size(), 1);
        QCOMPARE(ask("search 0000009")["note"].toString(), QString("No record of serial 0000009"));
        // The download holds every record, as history --csv gives them.
        const QString downloaded = ask("csv").toString();
        Run records;
        start(records, {"history", "--csv", "--history", history});
        QVERIFY(finish(records));
        QCOMPARE(downloaded.count('\n'), 4);
        QCOMPARE(downloaded, records.notJson.join("\r\n") + "\r\n");

        QCOMPARE(ask("open http://127.0.0.1:18380/ de-DE,de;q=0.9,en;q=0.5")["lang"].toString(), QString("de"));
        QVERIFY(ask("labels").toVariant().toStringList().contains("geflasht"));
        QCOMPARE(ask("tiles")[0][2].toString(), QString("geflasht"));
        ask(QByteArray("screenshot ") + QFile::encodeName(TestSupport::binDir() + "/../station-page-de.png"));

        ::kill(pid_t(station.process->processId()), SIGTERM);
        QVERIFY(finish(station, 20000));
        const QJsonObject summary = station.last("summary");
        for (const QString &key : counts.keys())
            QCOMPARE(counts[key].toString(), QString::number(summary[key].toInt()));
        QCOMPARE(summary["flashed"].toInt(), 3);
    }

    // The page's rules without a browser: /metrics in Prometheus' format with the history's
    // counts; read-only, its own Host only; a token on any other address than the
    // loopback, never in a URL; a hundred clients that send half a request hold up neither
    // another client nor a flash.
    void pageRules()
    {
        const QString plug = sandbox.root() + "/rulesplug";
        TestSupport::writeFile(plug, "pulled\n");
        EmulatedBus bus({"port=1,scenario=busy,after=100,control=" + plug});
        QVERIFY(bus.isUp());
        const QString history = sandbox.root() + "/rules.sqlite";
        Run station;
        start(station, {"watch", "--json", "--http", "127.0.0.1:18381", "--history", history, firmware});
        QVERIFY(finish(station, 60000, "Watching every port"));

        QList<QTcpSocket *> slow;
        const auto closeSlow = qScopeGuard([&slow] { qDeleteAll(slow); });
        for (int i = 0; i < 100; ++i) {
            slow << new QTcpSocket;
            slow.last()->bind(QHostAddress("127.0.0.2"));
            slow.last()->connectToHost("127.0.0.1", 18381);
            slow.last()->write("GET /metrics HTTP/1.1\r\nHost: 127.0.0.1:18381\r\n");
        }
        for (QTcpSocket *socket : std::as_const(slow))
            socket->waitForBytesWritten(1000);
        TestSupport::writeFile(plug, "plugged\n");
        QVERIFY(finish(station, 60000, "Search for DFU USB device"));
        // Answered while the hundred hang, well before they time out.
        const QByteArray during = get("/api/state", 18381);
        QCOMPARE(status(during), 200);
        QCOMPARE(QJsonDocument::fromJson(body(during))["ports"][0]["state"].toString(), QString("flashing"));
        QTRY_VERIFY_WITH_TIMEOUT((station.read(), countOf(station, "result") == 1), 60000);
        QCOMPARE(station.last("result")["outcome"].toString(), QString("flashed"));

        const QStringList samples = promSamples(body(get("/metrics", 18381)));
        QVERIFY(samples.contains("morvanta_units_total{outcome=flashed} 1.0"));
        QVERIFY(samples.contains("morvanta_units_total{outcome=failed} 0.0"));
        QVERIFY(samples.contains("morvanta_port_busy{port=1-1} 0.0"));
        QVERIFY(samples.contains("morvanta_flash_duration_seconds_count{} 1.0"));
        QVERIFY(samples.contains("morvanta_build_info{version=Morvanta.03.20260616.0} 1.0"));
        QVERIFY(!samples.join('\n').contains("serial"));
        QVERIFY(!samples.join('\n').contains("central"));
        Run records;
        start(records, {"history", "--json", "--history", history});
        QVERIFY(finish(records));
        QCOMPARE(records.events.size(), 1);
        QCOMPARE(records.events[0]["outcome"].toString(), QString("flashed"));

        const QByteArray host = "Host: 127.0.0.1:18381\r\n";
        const QList<QPair<QByteArray, int>> requests{
            {"POST /api/state HTTP/1.1\r\n" + host + "Content-Length: 2\r\n\r\n{}", 405},
            {"DELETE / HTTP/1.1\r\n" + host + "\r\n", 405},
            {"GET / HTTP/1.1\r\nHost: attacker.example:18381\r\n\r\n", 421},
            {"GET /api/state HTTP/1.1\r\nHost: 127.0.0.1.attacker.example\r\n\r\n", 421},
            {"GET /api/state HTTP/1.0\r\n\r\n", 421},
            {"GET /api/state HTTP/1.1\r\nHost: localhost:18381\r\n\r\n", 200},
            {"HEAD / HTTP/1.1\r\n" + host + "\r\n", 200},
            {"GET /history.csv?since=yesterday HTTP/1.1\r\n" + host + "\r\n", 400},
            {"GET /../../etc/passwd HTTP/1.1\r\n" + host + "\r\n", 404},
            {"GET / HTTP/1.1\r\n" + host + "X-Long: " + QByteArray(20000, 'a') + "\r\n\r\n", 431},
        };
        for (const auto &[request, expected] : requests) {
            const QByteArray reply = http(request, 18381);
            QVERIFY2(status(reply) == expected, (request.left(60) + " -> " + reply.left(20)).constData());
            if (request.startsWith("HEAD"))
                QVERIFY(body(reply).isEmpty());
        }
        ::kill(pid_t(station.process->processId()), SIGTERM);
        QVERIFY(finish(station, 20000));
        QCOMPARE(station.process->exitCode(), 0);
        // Started again the same day: today's counts hold the earlier run's unit, the
        // counter of this run starts at nought.
        Run again;
        start(again, {"watch", "--json", "--http", "127.0.0.1:18381", "--history", history, "--ports", "1-9", firmware});
        QVERIFY(finish(again, 60000, "Watching ports 1-9"));
        QCOMPARE(QJsonDocument::fromJson(body(get("/api/state", 18381)))["today"]["flashed"].toInt(), 1);
        QVERIFY(promSamples(body(get("/metrics", 18381))).contains("morvanta_units_total{outcome=flashed} 0.0"));
        ::kill(pid_t(again.process->processId()), SIGTERM);
        QVERIFY(finish(again, 20000));
    }

    // Any address but the loopback: every request needs the token, by Basic or Bearer,
    // and a token in the URL counts for nothing.
    void pageToken()
    {
        QCOMPARE(QProcess::execute("ip", {"addr", "add", "10.77.0.1/32", "dev", "lo"}), 0);
        const QByteArray token = "a-line-secret-of-more-than-32-characters";
        const QString file = sandbox.root() + "/page.token";
        TestSupport::writeFile(file, token + "\n");
        QFile::setPermissions(file, QFile::ReadOwner | QFile::WriteOwner);
        EmulatedBus bus({"port=1,name=V1_2_4"});
        Run station;
        start(station, {"watch", "--json", "--http", "10.77.0.1:18382", "--http-token-file", file, "--http-host",
                        "station-7.plant.example", "--history", sandbox.root() + "/token.sqlite", firmware});
        QVERIFY(finish(station, 60000, "Watching every port"));
        const QList<QPair<QByteArray, int>> requests{
            {"GET /metrics", 401},
            {"GET /metrics?token=" + token, 401},
            {"GET /metrics\r\nAuthorization: Bearer " + token, 200},
            {"GET /metrics\r\nAuthorization: Bearer " + token.chopped(1), 401},
            {"GET /metrics\r\nAuthorization: Basic " + ("anyone:" + token).toBase64(), 200},
            {"GET /metrics\r\nAuthorization: Basic " + ("anyone:" + token + "x").toBase64(), 401},
            {"GET /metrics\r\nAuthorization: Basic " + token.toBase64(), 401},
        };
        for (const auto &[request, expected] : requests) {
            const int line = request.indexOf("\r\n");
            const QByteArray text = (line < 0 ? request : request.left(line)) + " HTTP/1.1\r\nHost: 10.77.0.1:18382\r\n" +
                                    (line < 0 ? QByteArray() : request.mid(line + 2) + "\r\n") + "\r\n";
            const QByteArray reply = http(text, 18382, "10.77.0.1");
            QVERIFY2(status(reply) == expected, (request.left(50) + " -> " + reply.left(20)).constData());
            if (expected == 401)
                QVERIFY(reply.contains("WWW-Authenticate: Basic realm=\"morvanta-station\""));
        }
        QCOMPARE(status(http("GET / HTTP/1.1\r\nHost: station-7.plant.example:18382\r\nAuthorization: Bearer " + token +
                                 "\r\n\r\n",
                             18382, "10.77.0.1")),
                 200);
        ::kill(pid_t(station.process->processId()), SIGTERM);
        QVERIFY(finish(station, 20000));
    }


    // The command line as a new user tries it: version, each command's own help, and a
    // mistake named in one line with where to read more.
    void commandLine_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("out"); // the start of standard output
        QTest::addColumn<QString>("err"); // all of standard error
        QTest::newRow("--version") << QStringList{"--version"} << 0 << "morvanta-station Morvanta.03." << "";
        QTest::newRow("--help") << QStringList{"--help"} << 0 << "Usage: morvanta-station COMMAND [OPTIONS]" << "";
        QTest::newRow("flash --help") << QStringList{"flash", "--help"} << 0
                                      << "Usage: morvanta-station flash [OPTIONS] FIRMWARE" << "";
        QTest::newRow("sync --help") << QStringList{"sync", "--help"} << 0 << "Usage: morvanta-station sync [OPTIONS]"
                                     << "";
        QTest::newRow("nothing") << QStringList{} << 64 << ""
                                 << "morvanta-station: say a command: list, flash, watch, history or sync\n"
                                    "Try 'morvanta-station --help'.\n";
        QTest::newRow("no such command") << QStringList{"flsah", "x"} << 64 << ""
                                         << "morvanta-station: no command \"flsah\": say list, flash, watch, history "
                                            "or sync\nTry 'morvanta-station --help'.\n";
        QTest::newRow("another command's option") << QStringList{"history", "--port", "1-1"} << 64 << ""
                                                  << "morvanta-station: history takes no --port\n"
                                                     "Try 'morvanta-station history --help'.\n";
        QTest::newRow("no firmware") << QStringList{"watch", "--json"} << 64 << ""
                                     << "morvanta-station: watch needs one FIRMWARE\n"
                                        "Try 'morvanta-station watch --help'.\n";
        QTest::newRow("an unknown option") << QStringList{"flash", "--prot", "1-1", "fw"} << 64 << ""
                                           << "morvanta-station: Unknown option 'prot'.\n"
                                              "Try 'morvanta-station flash --help'.\n";
    }

    void commandLine()
    {
        QFETCH(QStringList, args);
        Run run;
        start(run, args);
        QVERIFY(finish(run, 20000));
        QTEST(run.process->exitCode(), "exitCode");
        QFETCH(QString, out);
        const QString printed = run.notJson.join('\n');
        QVERIFY2(out.isEmpty() ? printed.isEmpty() : printed.startsWith(out), qPrintable(printed));
        QTEST(QString::fromUtf8(run.process->readAllStandardError()), "err");
        // A command's help is its own: flash's knows no --ports, watch's no --port.
        if (args == QStringList{"flash", "--help"})
            QVERIFY(printed.contains("--port PATH") && !printed.contains("--ports") && !printed.contains("--csv"));
    }

    // Every command's options, as its help lists them, are known to the shell's completion
    // and the man page.
    void everyOptionDocumented()
    {
        const QString completion = QString::fromUtf8(TestSupport::readFile(PACKAGING "/morvanta-station.bash-completion"));
        const QString manual = QString::fromUtf8(TestSupport::readFile(PACKAGING "/man/morvanta-station.1"));
        QVERIFY(!completion.isEmpty() && !manual.isEmpty());
        static const QRegularExpression optionName("^(--[a-z-]+)");
        for (const QString &command : QStringList{"list", "flash", "watch", "history", "sync"}) {
            Run help;
            start(help, {command, "--help"});
            QVERIFY(finish(help, 20000));
            const QRegularExpression known("\n\\s*" + command + "\\) options=\"([^\"]*)\"");
            const QStringList completed = known.match(completion).captured(1).split(' ', Qt::SkipEmptyParts);
            QStringList listed;
            for (const QString &line : std::as_const(help.notJson)) {
                const QRegularExpressionMatch option = optionName.match(line);
                if (option.hasMatch())
                    listed << option.captured(1);
            }
            QVERIFY(listed.size() > 1);
            QCOMPARE(QSet<QString>(completed.cbegin(), completed.cend()), QSet<QString>(listed.cbegin(), listed.cend()));
            for (const QString &option : std::as_const(listed))
                QVERIFY2(manual.contains(QString(option).replace("-", "\\-")), qPrintable(option));
            QVERIFY(completion.contains(command));
        }
    }


    // The prepared folders of watches: the station's own, its .sys files read-only.
    QStringList preparedFiles() const
    {
        QStringList files;
        QDirIterator it(sandbox.workingRoot(), {"*.sys"}, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext())
            files << it.next();
        return files;
    }

    // A watch checks and unpacks its package once: the units flash from its folder, a file
    // changed there fails the next unit before anything reaches it and the package is
    // prepared again; the folder goes with the watch, and one left by a killed watch with
    // the next run.
    void preparedOnce()
    {
        EmulatedBus bus(unplugged("prep"));
        QVERIFY(bus.isUp());
        const QString history = sandbox.root() + "/prepared.sqlite";
        Run station;
        start(station, {"watch", "--json", "--history", history, firmware});
        QVERIFY(finish(station, 60000, "Watching every port"));
        const QStringList prepared = preparedFiles();
        QCOMPARE(prepared.size(), 2);
        for (const QString &file : prepared)
            QCOMPARE(QFileInfo(file).permissions() & (QFile::WriteOwner | QFile::WriteGroup | QFile::WriteOther),
                     QFile::Permissions());
        const auto plugAndWait = [&](const QString &port, int results) {
            plugIn("prep", port);
            QTRY_VERIFY_WITH_TIMEOUT((station.read(), countOf(station, "result") == results), 60000);
        };
        plugAndWait("1", 1);
        QCOMPARE(station.last("result")["outcome"].toString(), QString("flashed"));
        // The unit's run neither checked nor unpacked anything of its own.
        QVERIFY(!station.has("Extracting firmware"));

        QFile changed(prepared.first());
        changed.setPermissions(QFile::ReadOwner | QFile::WriteOwner);
        QVERIFY(changed.open(QIODevice::ReadWrite));
        changed.seek(changed.size() - 1);
        changed.write("!");
        changed.close();
        plugAndWait("2", 2);
        QCOMPARE(station.last("result")["outcome"].toString(), QString("failed"));
        QVERIFY(station.has("The prepared firmware changed: " + QFileInfo(prepared.first()).fileName()));
        QCOMPARE(received("prep2"), QList<QByteArray>());
        QTRY_VERIFY_WITH_TIMEOUT((station.read(), station.has("Version 1_2_4 is prepared")), 30000);
        plugAndWait("3", 3);
        QCOMPARE(station.last("result")["outcome"].toString(), QString("flashed"));
        QCOMPARE(received("prep1"), flashed);
        QCOMPARE(received("prep3"), flashed);
        // The records keep the files' SHA-256 and the signer as a unit's own preparation does.
        Run records;
        start(records, {"history", "--json", "--history", history});
        QVERIFY(finish(records));
        QCOMPARE(records.events.size(), 3);
        for (int unit : {0, 2}) {
            QCOMPARE(records.events[unit]["signer"].toString().size(), 40);
            QCOMPARE(records.events[unit]["files"].toArray().last()["sha256"].toString(),
                     QString(QCryptographicHash::hash(flashed.last(), QCryptographicHash::Sha256).toHex()));
        }
        ::kill(pid_t(station.process->processId()), SIGTERM);
        QVERIFY(finish(station, 20000));
        QCOMPARE(workingFolders(), QStringList{});

        // Killed outright: its folder stays until the next run.
        Run killed;
        start(killed, {"watch", "--json", "--history", history, "--ports", "1-9", firmware});
        QVERIFY(finish(killed, 60000, "Watching ports 1-9"));
        QCOMPARE(preparedFiles().size(), 2);
        killed.process->kill();
        QVERIFY(finish(killed));
        QCOMPARE(workingFolders().size(), 1);
        Run next;
        start(next, {"list", "--json"});
        QVERIFY(finish(next));
        Run flash;
        start(flash, {"flash", "--json", "--port", "1-9", "--history", history, firmware});
        QVERIFY(finish(flash));
        QCOMPARE(workingFolders(), QStringList{});
    }

    // Units plugged in together do not download in step: their first downloads start at
    // least the watch's spacing (250 ms) apart, less what starting the tool may shift them.
    void downloadsTakeTurns()
    {
        const QString calls = sandbox.root() + "/turns.txt";
        const auto restore = dfuUtilAfter("echo \"$(date +%s%N) $*\" >> '" + QFile::encodeName(calls) + "'");
        EmulatedBus bus(unplugged("turn"));
        QVERIFY(bus.isUp());
        Run station;
        start(station, {"watch", "--json", "--history", sandbox.root() + "/turns.sqlite", firmware});
        QVERIFY(finish(station, 60000, "Watching every port"));
        for (const QString &port : QStringList{"1", "2", "3"})
            plugIn("turn", port);
        QTRY_VERIFY_WITH_TIMEOUT((station.read(), countOf(station, "result") == 3), 90000);
        ::kill(pid_t(station.process->processId()), SIGTERM);
        QVERIFY(finish(station, 20000));
        QCOMPARE(station.last("summary")["flashed"].toInt(), 3);
        QMap<QString, qint64> firstDownload; // port -> ns
        for (const QString &line : QString::fromUtf8(TestSupport::readFile(calls)).split('\n', Qt::SkipEmptyParts)) {
            const QStringList words = line.split(' ');
            const qsizetype port = words.indexOf("-p");
            if (words.contains("-D") && port > 0 && !firstDownload.contains(words.value(port + 1)))
                firstDownload.insert(words.value(port + 1), words.first().toLongLong());
        }
        QCOMPARE(firstDownload.keys(), (QStringList{"1-1", "1-2", "1-3"}));
        QList<qint64> starts = firstDownload.values();
        std::sort(starts.begin(), starts.end());
        for (int i = 1; i < starts.size(); ++i)
            QVERIFY2(starts[i] - starts[i - 1] >= 150'000'000, qPrintable(QString::number(starts[i] - starts[i - 1])));
        for (const QString &port : QStringList{"1", "2", "3"})
            QCOMPARE(received("turn" + port), flashed);
    }

    // A listing that fails tells nothing of who left: the current unit is not met anew, the
    // skipped one not counted twice, and the watch looks again by itself, so that the unit
    // plugged in meanwhile is found.
    void failedListing()
    {
        const QString failing = sandbox.root() + "/lists-fail";
        const auto restore = dfuUtilAfter("[ \"$1\" = -l ] && [ -e '" + QFile::encodeName(failing) + "' ] && exit 1");
        const QString plug = sandbox.root() + "/failplug2";
        TestSupport::writeFile(plug, "pulled\n");
        EmulatedBus bus({"name=V1_2_4", "port=2,name=V1_2_4,control=" + plug, "port=5"});
        QVERIFY(bus.isUp());
        Run station;
        start(station, {"watch", "--json", "--history", sandbox.root() + "/failed-listing.sqlite", "--ports", "1-1,1-2",
                        firmware});
        QTRY_VERIFY_WITH_TIMEOUT((station.read(), countOf(station, "result") == 1 && countOf(station, "skipped") == 1),
                                 60000);
        TestSupport::writeFile(failing);
        TestSupport::writeFile(plug, "plugged\n");
        QTest::qWait(1500); // udev's look and two more fail
        QFile::remove(failing);
        QTRY_VERIFY_WITH_TIMEOUT((station.read(), countOf(station, "result") == 2), 20000);
        QTest::qWait(1000);
        ::kill(pid_t(station.process->processId()), SIGTERM);
        QVERIFY(finish(station, 20000));
        QStringList met;
        for (const QJsonObject &e : std::as_const(station.events))
            if (e["event"] == QString("device") || e["event"] == QString("skipped"))
                met << e["event"].toString() + " " + e["port"].toString();
        met.sort();
        QCOMPARE(met, (QStringList{"device 1-1", "device 1-2", "skipped 1-5"}));
        QCOMPARE(station.last("summary")["current"].toInt(), 2);
        QCOMPARE(station.last("summary")["skipped"].toInt(), 1);
    }

    // SIGHUP: a newer package is prepared beside the one in use; the unit under way keeps
    // its own, the next gets the new one. A package that fails its check leaves the one in
    // use, and says so.
    void reloadOnSignal()
    {
        const QString folder = sandbox.root() + "/reloadfw";
        QDir().mkpath(folder);
        QCOMPARE(kit.makePackage(folder, "Tessel_NINE_V1_2_4", 1, 1, fileSize, true).size(), 2);
        TestSupport::writeFile(sandbox.root() + "/reloadplug", "pulled\n");
        EmulatedBus bus({"port=1,scenario=busy,after=300,record=" + sandbox.root() + "/received/reload1",
                         "port=2,control=" + sandbox.root() + "/reloadplug,record=" + sandbox.root() +
                             "/received/reload2"});
        QVERIFY(bus.isUp());
        Run station;
        start(station, {"watch", "--json", "--http", "18385", "--history", sandbox.root() + "/reload.sqlite", folder});
        QVERIFY(finish(station, 60000, "Watching every port"));
        QTRY_VERIFY_WITH_TIMEOUT((station.read(), countOf(station, "file") > 0), 30000);
        QCOMPARE(kit.makePackage(folder, "Tessel_NINE_V1_2_5", 1, 1, fileSize, true).size(), 2);
        const pid_t pid = pid_t(station.process->processId());
        ::kill(pid, SIGHUP);
        QVERIFY(finish(station, 30000, "Version 1_2_5 is prepared"));
        QCOMPARE(QJsonDocument::fromJson(body(get("/api/state", 18385)))["package"]["version"].toString(),
                 QString("1_2_5"));
        QCOMPARE(countOf(station, "result"), 0);
        QTRY_VERIFY_WITH_TIMEOUT((station.read(), countOf(station, "result") == 1), 60000);
        QCOMPARE(station.last("result")["after"].toString(), QString("1_2_4"));
        QCOMPARE(received("reload1"), flashed);
        TestSupport::writeFile(sandbox.root() + "/reloadplug", "plugged\n");
        QTRY_VERIFY_WITH_TIMEOUT((station.read(), countOf(station, "result") == 2), 60000);
        QCOMPARE(station.last("result")["after"].toString(), QString("1_2_5"));
        QCOMPARE(received("reload2"), FirmwareKit::flashedImages({"os", "pr"}, 1, fileSize, "V1_2_5"));

        // A newer pair whose signature does not hold.
        const QStringList bad = kit.makePackage(folder, "Tessel_NINE_V1_2_6", 1, 1, fileSize, true);
        QByteArray bytes = TestSupport::readFile(bad[0]);
        bytes[bytes.size() / 2] = char(bytes[bytes.size() / 2] ^ 0x55);
        QVERIFY(TestSupport::writeFile(bad[0], bytes));
        ::kill(pid, SIGHUP);
        QVERIFY(finish(station, 30000, "Looking at the firmware again"));
        QTRY_VERIFY_WITH_TIMEOUT((station.read(), station.last("error")["text"].toString().endsWith(
                                                      "; version 1_2_5 stays in use")),
                                 30000);
        QCOMPARE(QJsonDocument::fromJson(body(get("/api/state", 18385)))["package"]["version"].toString(),
                 QString("1_2_5"));
        ::kill(pid, SIGTERM);
        QVERIFY(finish(station, 20000));
        QCOMPARE(station.process->exitCode(), 0);
        QCOMPARE(workingFolders(), QStringList{});
    }

    void pageRefusals_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("token"); // the token file's content; "open": readable by all
        QTest::addColumn<QString>("error");
        QTest::newRow("another address, no token") << QStringList{"watch", "--http", "0.0.0.0:18383"} << ""
                                                   << "--http on 0.0.0.0, which other PCs may reach, needs "
                                                      "--http-token-file FILE";
        QTest::newRow("a short token") << QStringList{"watch", "--http", "0.0.0.0:18383"} << "short-secret"
                                       << "must hold one secret of at least 32 characters";
        QTest::newRow("a token all may read") << QStringList{"watch", "--http", "0.0.0.0:18383"} << "open"
                                              << "every user of this PC can read";
        QTest::newRow("no port") << QStringList{"watch", "--http", "127.0.0.1:"} << ""
                                 << "--http takes [ADDRESS:]PORT, a port from 1 to 65535";
        QTest::newRow("a name for an address") << QStringList{"watch", "--http", "station.example:80"} << ""
                                               << "--http takes an IP address, not \"station.example\"";
        QTest::newRow("a token without a page") << QStringList{"watch", "--http-host", "x"} << ""
                                                << "--http-token-file and --http-host go with --http";
        QTest::newRow("a page for one flash") << QStringList{"flash", "--http", "18383"} << ""
                                              << "flash takes no --http";
    }

    void pageRefusals()
    {
        QFETCH(QStringList, args);
        QFETCH(QString, token);
        if (!token.isEmpty()) {
            const QString file = sandbox.root() + "/refused.token";
            TestSupport::writeFile(file, token == "open" ? QByteArray(40, 'k') : token.toUtf8());
            QFile::setPermissions(file, QFile::ReadOwner | QFile::WriteOwner |
                                            (token == "open" ? QFile::ReadOther : QFile::Permissions()));
            args << "--http-token-file" << file;
        }
        Run run;
        start(run, args << firmware);
        QVERIFY(finish(run));
        QCOMPARE(run.process->exitCode(), 64);
        const QString said = QString::fromUtf8(run.process->readAllStandardError());
        QFETCH(QString, error);
        QVERIFY2(said.contains(error), qPrintable(said));
    }
};

QTEST_GUILESS_MAIN(TestStation)
#include "tst_station.moc"
