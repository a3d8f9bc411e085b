// What the program reads from dfu-util: the marks of a download, the progress they
// make, and the device's version from "dfu-util -l", against transcripts and against
// the simulator, which chunks its output as the field's tool does.
#include "app/settings.h"
#include "firmware/version.h"
#include "flash/dfuoutputparser.h"
#include "flash/transferprogress.h"

#include "testsupport.h"

#include <QProcess>
#include <QTest>

namespace {
const QByteArray header = "dfu-util 0.7\n\nCopyright 2005-2008 Weston Schmidt, Harald Welte and OpenMoko Inc.\n"
                          "Copyright 2010-2012 Tormod Volden and Stefan Schmidt\n"
                          "This program is Free Software and has ABSOLUTELY NO WARRANTY\n\n";
const QByteArray found = "Found Runtime: [2675:0001] devnum=0, cfg=1, intf=0, alt=0, ";

QStringList describe(const DfuChunk &chunk)
{
    QStringList out;
    for (const DfuEvent &e : chunk.events)
        out << (e.kind == DfuEvent::Status             ? "status:" + e.text
                : e.kind == DfuEvent::Error            ? "error:" + e.text
                : e.kind == DfuEvent::StartingDownload ? QString("start")
                                                       : "hash:" + QString::number(e.count));
    return out;
}
} // namespace

class TestDfu : public QObject
{
    Q_OBJECT
    TestSupport::Sandbox sandbox;

private slots:
    void initTestCase() { TestSupport::useSandbox(sandbox); }
    void cleanup()
    {
        for (const char *v : {"DFU_SIM_DEVICE", "DFU_SIM_NAME", "DFU_SIM_REV", "DFU_SIM_LIST_HANG"})
            qunsetenv(v);
    }

    void marks_data()
    {
        QTest::addColumn<QByteArray>("chunk");
        QTest::addColumn<QStringList>("events");
        const QString d = "Device is not connected";
        QTest::newRow("lost device") << QByteArray("Lost device after RESET?")
                                     << QStringList{"error:" + d + " - Lost device after RESET"};
        QTest::newRow("opening error") << QByteArray("Cannot open device: LIBUSB_ERROR_ACCESS")
                                       << QStringList{"error:" + d + " - Opening error"};
        QTest::newRow("two marks, in the table's order") << QByteArray("Error during download\nerror get_status: pipe")
                                                         << QStringList{"error:" + d + " - Get status error",
                                                                        "error:Error during download"};
        QTest::newRow("corrupt needs the whole sentence") << QByteArray("Device's firmware is corrupt.") << QStringList{};
        QTest::newRow("start with marks") << QByteArray("Starting download: [####") << QStringList{"start", "hash:4"};
        QTest::newRow("everything before the first marks, in one piece")
            << header + "Search for DFU USB device\n" + found + "name=\"V1\"\nClaiming USB DFU Interface...\n"
                        "Setting Alternate Setting #0 ...\nbytes_per_hash=80\nStarting download: [#"
            << QStringList{"status:Search for DFU USB device - This might take a few seconds", "start", "hash:1"};
        QTest::newRow("case matters") << QByteArray("cannot open device: x\nstarting download:") << QStringList{};
        QTest::newRow("a torn mark is not seen") << QByteArray("Starting down") << QStringList{};
    }

    void marks()
    {
        QFETCH(QByteArray, chunk);
        const DfuChunk parsed = DfuOutputParser::parse(chunk);
        QTEST(describe(parsed), "events");
        QVERIFY(!parsed.logText.contains("##"));
        QCOMPARE(parsed.logText.contains("Setting #0"), chunk.contains("Setting #0"));
    }

    void hashMarks_data()
    {
        QTest::addColumn<int>("fileSize");
        QTest::addColumn<int>("totalSize");
        QTest::addColumn<int>("marks");
        QTest::addColumn<QString>("report"); // percent, written/total, unit, writtenSize
        QTest::newRow("first mark, units of 1000") << 1000000 << 2500000 << 1 << "0 20/2500 kB 20000";
        QTest::newRow("small run in bytes") << 40000 << 40000 << 1 << "2 800/40000 B 800";
        QTest::newRow("then thousands") << 40000 << 40000 << 2 << "2 1/40 kB 1600";
        QTest::newRow("marks beyond fifty add nothing, below 100") << 40000 << 40000 << 75 << "99 40/40 kB 40000";
        QTest::newRow("tiny file adds nothing") << 49 << 49 << 10 << "0 0/49 B 0";
        QTest::newRow("remainder never counted") << 1099 << 1099 << 50 << "99 1/1 kB 1050";
        QTest::newRow("file grew past the total") << 5000 << 100 << 50 << "99 0/0 kB 5000";
    }

    void hashMarks()
    {
        QFETCH(int, fileSize);
        QFETCH(int, totalSize);
        QFETCH(int, marks);
        TransferCounters counters;
        counters.currentFileSize = fileSize;
        counters.totalFileSize = totalSize;
        HashMarkReport r{};
        for (int i = 0; i < marks; ++i)
            r = countHashMark(counters);
        QTEST(QString("%1 %2/%3 %4 %5").arg(r.percent).arg(r.written).arg(r.total).arg(r.useByteSize ? "B" : "kB")
                  .arg(counters.writtenSize),
              "report");
    }

    void timeLeft_data()
    {
        QTest::addColumn<int>("elapsed");
        QTest::addColumn<int>("written");
        QTest::addColumn<int>("total");
        QTest::addColumn<QString>("left");
        QTest::newRow("example") << 4000 << 20 << 2500 << "8:16";
        QTest::newRow("nine seconds") << 1000 << 10 << 100 << "0:09";
        QTest::newRow("a minute") << 60000 << 1 << 2 << "1:00";
        QTest::newRow("truncated per unit") << 999 << 1000 << 2000 << "0:00";
        QTest::newRow("nothing written yet") << 5000 << 0 << 100 << "";
    }

    void timeLeft()
    {
        QFETCH(int, elapsed);
        QFETCH(int, written);
        QFETCH(int, total);
        QString min, sec;
        const bool told = remainingTime(elapsed, written, total, &min, &sec);
        QTEST(told ? min + ":" + sec : QString(), "left");
    }

    void deviceReply_data()
    {
        QTest::addColumn<QByteArray>("chunk");
        QTest::addColumn<QString>("reply"); // kind: version, V form, revision
        QTest::newRow("V form with rev, header in the chunk") << header + found + "name=\"V1_2_3\", rev=\"1\"\n"
                                                              << "found:1_2_3 V 1";
        QTest::newRow("plain form, header in the chunk") << header + found + "name=\"Tessel_NINE 01.02.03\"\n"
                                                         << "found:01_02_03 - 0";
        QTest::newRow("plain form, chunk of its own") << found + "name=\"Tessel_NINE 01.02.03\"\n"
                                                      << "found:01_02_03 - 0";
        QTest::newRow("other name as it is") << found + "name=\"Board.7\"\n" << "found:Board_7 - 0";
        QTest::newRow("rev that is no number") << found + "name=\"V2_0\", rev=\"x\"" << "found:2_0 V 0";
        QTest::newRow("no device") << QByteArray("No DFU capable USB device found\n") << "none: - 0";
        QTest::newRow("header only") << header << "nothing: - 0";
        QTest::newRow("found without a name") << found + "\n" << "found: - 0";
    }

    void deviceReply()
    {
        QFETCH(QByteArray, chunk);
        const DeviceReply r = parseDeviceReply(chunk, "Tessel_NINE");
        const QString kind = r.kind == DeviceReply::Found ? "found" : r.kind == DeviceReply::NoDevice ? "none" : "nothing";
        QTEST(QString("%1:%2 %3 %4").arg(kind, r.version, r.hasV ? "V" : "-").arg(r.bootLoaderRev), "reply");
    }

    void fileVersions_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("family");
        QTest::addColumn<QString>("version");
        QTest::addColumn<bool>("hasV");
        QTest::newRow("plain") << "/fw/Tessel_NINE_01_02_03.OS.zip" << "Tessel_NINE" << "01_02_03" << false;
        QTest::newRow("V form") << "/fw/Tessel_NINE_V1_2_3.OS.zip.gpg" << "Tessel_NINE" << "1_2_3" << true;
        QTest::newRow("debug") << "Tessel_NINE_01_02_03_D.PR.zip" << "Tessel_NINE" << "01_02_03_D" << false;
        QTest::newRow("brio") << "/x/BRIO_MEL_2_1.zkl" << "BRIO_MEL" << "2_1" << false;
        QTest::newRow("no family, cut as if it had one") << "/x/abcdefghijklm.OS.zip" << "Tessel_NINE" << "m" << false;
        QTest::newRow("short name") << "a.b" << "Tessel_NINE" << "" << false;
    }

    void fileVersions()
    {
        QFETCH(QString, file);
        QFETCH(QString, family);
        bool hasV = false;
        QTEST(Version::fileVersion(file, family, &hasV), "version");
        QTEST(hasV, "hasV");
        QVERIFY(!file.contains('/'));
    }

    void compare_data()
    {
        QTest::addColumn<QString>("selected");
        QTest::addColumn<bool>("selectedV");
        QTest::addColumn<QString>("current");
        QTest::addColumn<bool>("currentV");
        QTest::addColumn<int>("result");
        QTest::newRow("plain older") << "01_02_03" << false << "01_02_04" << false << 2;
        QTest::newRow("first field ignored") << "02_02_03" << false << "01_02_03" << false << 0;
        QTest::newRow("shorter decides") << "01_02" << false << "01_02_07" << false << 0;
        QTest::newRow("debug image") << "01_02_03_D" << false << "01_02_03" << false << 0;
        QTest::newRow("leading zeros") << "1_002_3" << false << "1_2_3" << false << 0;
        QTest::newRow("V fields joined") << "1_2_3" << true << "1_12" << true << 1;
        QTest::newRow("V longer than 64 bits") << "1_99999999999_99999999999" << true << "1_99999999999_99999999998"
                                               << true << 1;
        QTest::newRow("plain beats V") << "1_0" << false << "9_9" << true << 1;
        QTest::newRow("V loses to plain") << "9_9" << true << "1_0" << false << 2;
    }

    void compare()
    {
        QFETCH(QString, selected);
        QFETCH(bool, selectedV);
        QFETCH(QString, current);
        QFETCH(bool, currentV);
        QTEST(Version::compareVersions(selected, selectedV, current, currentV), "result");
    }

    void deviceQuery_data()
    {
        QTest::addColumn<QString>("device");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("rev");
        QTest::addColumn<QString>("answer"); // version, V form, revision; empty: not found
        QTest::newRow("V form, rev 1") << "present" << "V1_2_3" << "1" << "1_2_3 V 1";
        QTest::newRow("plain form") << "present" << "Tessel_NINE 01.02.03" << "" << "01_02_03 - 0";
        QTest::newRow("absent") << "absent" << "" << "" << "";
        QTest::newRow("header only") << "absent-quiet" << "" << "" << "";
        QTest::newRow("tool hangs") << "hang" << "" << "" << "";
    }

    void deviceQuery()
    {
        QFETCH(QString, device);
        qputenv("DFU_SIM_DEVICE", device.toUtf8());
        qputenv("DFU_SIM_LIST_HANG", device == "hang" ? "1" : "0");
        QFETCH(QString, name);
        qputenv("DFU_SIM_NAME", name.toUtf8());
        QFETCH(QString, rev);
        qputenv("DFU_SIM_REV", rev.toUtf8());
        Settings settings(static_cast<QObject *>(nullptr));
        Version version(&settings, nullptr);
        bool found = false, hasV = false;
        const QString got = version.getDeviceVersion(&found, &hasV);
        QTEST(found ? QString("%1 %2 %3").arg(got, hasV ? "V" : "-").arg(version.getBootLoaderRev()) : QString(),
              "answer");
        Version::listDevices(&settings); // returns, whatever the tool does
    }

    // The field's tool writes through a buffer into the pipe: the program must cope
    // with the header and the first marks' preamble arriving in one chunk.
    void simulatorChunksAsTheField()
    {
        const QString file = sandbox.root() + "/f.sys";
        QFile f(file);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(QByteArray(4000, 'x'));
        f.close();
        QProcess dfu;
        QList<QByteArray> chunks;
        connect(&dfu, &QProcess::readyReadStandardOutput, this, [&] { chunks << dfu.readAllStandardOutput(); });
        dfu.setProcessChannelMode(QProcess::MergedChannels);
        // Slow enough that the reader sees each of the tool's writes on its own.
        qputenv("DFU_SIM_HASH_MS", "1000");
        dfu.start(TestSupport::binDir() + "/dfu-util", {"-d 0x2675:0x0001", "-D", file, "-t 64"});
        QVERIFY(dfu.waitForFinished(10000));
        QVERIFY(chunks.size() > 10);
        QVERIFY(chunks[0].startsWith("dfu-util 0.7\n") && chunks[0].contains("name=\"V1_2_3\""));
        QVERIFY(chunks[0].endsWith("Starting download: ["));
        QCOMPARE(chunks.join().count('#'), 50 + 1); // the marks and "Setting #0"
        QVERIFY(chunks.last().endsWith("Done!\n"));
    }
};

QTEST_MAIN(TestDfu)
#include "tst_dfu.moc"
