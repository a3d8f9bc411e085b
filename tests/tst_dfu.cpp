// What the program reads from dfu-util: the marks of a download and the device's
// version from "dfu-util -l", against transcripts and against the simulator, which
// chunks its output as the field's tool does.
#include "app/errortexts.h"
#include "app/settings.h"
#include "firmware/version.h"
#include "flash/dfuoutputparser.h"
#include "flash/flashtexts.h"

#include "testsupport.h"

#include <QProcess>
#include <QTest>

namespace {
const QByteArray header = "dfu-util 0.7\n\nCopyright 2005-2008 Weston Schmidt, Harald Welte and OpenMoko Inc.\n"
                          "Copyright 2010-2012 Tormod Volden and Stefan Schmidt\n"
                          "This program is Free Software and has ABSOLUTELY NO WARRANTY\n\n";
const QByteArray found = "Found Runtime: [2675:0001] devnum=0, cfg=1, intf=0, alt=0, ";
const QByteArray header11 = "dfu-util 0.11\n\nCopyright 2005-2009 Weston Schmidt, Harald Welte and OpenMoko Inc.\n"
                            "Copyright 2010-2021 Tormod Volden and Stefan Schmidt\n"
                            "This program is Free Software and has ABSOLUTELY NO WARRANTY\n"
                            "Please report bugs to http://sourceforge.net/p/dfu-util/tickets/\n\n";
const QByteArray found11 = "Found Runtime: [2675:0001] ver=0100, devnum=5, cfg=1, intf=0, path=\"1-1\", alt=0, ";

QStringList describe(const DfuChunk &chunk)
{
    QStringList out;
    for (const DfuEvent &e : chunk.events)
        out << (e.kind == DfuEvent::Searching          ? "status:" + FlashTexts::stage(FlashStage::Searching)
                : e.kind == DfuEvent::Error            ? "error:" + FlashTexts::error(e.error)
                : e.kind == DfuEvent::StartingDownload ? QString("start")
                : e.kind == DfuEvent::Percent          ? "percent:" + QString::number(e.count)
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
        for (const char *v : {"DFU_SIM_DEVICE", "DFU_SIM_NAME", "DFU_SIM_REV", "DFU_SIM_LIST_HANG", "DFU_SIM_DIALECT",
                              "DFU_SIM_HASH_MS"})
            qunsetenv(v);
    }

    void marks_data()
    {
        QTest::addColumn<QByteArray>("output"); // cut into chunks at every 0xff
        QTest::addColumn<QStringList>("events");
        const QString d = "Device is not connected";
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
        // dfu-util 0.9 to 0.11, as Debian ships it.
        QTest::newRow("0.11 no device") << header11 + "dfu-util: No DFU capable USB device available\n"
                                        << QStringList{"error:No DFU capable USB device found"};
        QTest::newRow("0.11 opening") << QByteArray("Opening DFU capable USB device...\n")
                                      << QStringList{"status:Search for DFU USB device - This might take a few seconds"};
        QTest::newRow("old and new words for one error: one box")
            << QByteArray("Cannot open device: x\nCannot open DFU device 2675:0001")
            << QStringList{"error:" + d + " - Opening error"};
        QTest::newRow("0.11 start, bar at 0") << QByteArray("Copying data from PC to DFU device\n\rDownload\t["
                                                            "                         ]   0%            0 bytes")
                                              << QStringList{"start", "percent:0"};
        QTest::newRow("0.11 last whole bar counts")
            << QByteArray("\rDownload\t[=========                ]  36%        12345 bytes"
                          "\rDownload\t[==========               ]  40%        13000 bytes\rDownload\t[=====")
            << QStringList{"percent:40"};
        QTest::newRow("0.11 done") << QByteArray("\rDownload\t[=========================] 100%        30000 bytes"
                                                 "\nDownload done.\n")
                                   << QStringList{"percent:100"};
        QTest::newRow("0.11 numbered interface is no mark") << QByteArray("Setting Alternate Interface #0 ...\n")
                                                            << QStringList{};
        // The newer tool tells a failed block and a finished file over several lines.
        const QByteArray bar = "\rDownload\t[                         ]   0%            0 bytes";
        const QByteArray state = "DFU state(10) = dfuERROR, status(3) = Device is unable to write memory\n";
        const QStringList unable{"percent:0", "error:Error during download - Device is unable to write memory"};
        QTest::newRow("0.11 failed block, then its state") << bar + "\xff failed!\n\xff" + state << unable;
        QTest::newRow("0.11 failed block and state at once") << bar + " failed!\n" + state << unable;
        QTest::newRow("0.11 error on the progress line") << bar + "dfu-util: Error during download (LIBUSB_ERROR_PIPE)\n"
                                                         << QStringList{"error:Error during download", "percent:0"};
        QTest::newRow("0.11 a device in dfuERROR before the download is cleared")
            << "DFU state(10) = dfuERROR, status(15) = Device stalled an unexpected request\n\xff"
               "Clearing status\n\xff" + bar + "\xff\nDownload done.\n\xff" "Done!\n"
            << QStringList{"percent:0", "confirmed"};
        QTest::newRow("the old tool's Done! alone") << QByteArray("Starting download: [###] finished!\n\xff" "Done!\n")
                                                    << QStringList{"start", "hash:3"};
        QTest::newRow("0.11 a node closed to the user")
            << QByteArray("dfu-util: Cannot open DFU device 2675:0001 found on devnum 2 (LIBUSB_ERROR_ACCESS)\n")
            << QStringList{"error:" + d + " - Opening error\n" + ErrorTexts::noPermission()};
    }

    void marks()
    {
        QFETCH(QByteArray, output);
        DfuOutputParser parser;
        QStringList events;
        for (const QByteArray &chunk : output.split('\xff')) {
            const DfuChunk parsed = parser.parse(chunk);
            events << describe(parsed);
            QVERIFY(!parsed.logText.contains("##"));
            QCOMPARE(parsed.logText.contains("#0"), chunk.contains("#0"));
        }
        if (parser.downloadConfirmed()) // the file counts as written whatever the exit code
            events << "confirmed";
        QTEST(events, "events");
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
        QTest::newRow("no device") << QByteArray("No DFU capable USB device found\n") << "none: - 0";
        QTest::newRow("header only") << header << "nothing: - 0";
        QTest::newRow("0.11 V form") << found11 + "name=\"V1_2_3\", serial=\"UNKNOWN\"\n" << "found:1_2_3 V 0";
        QTest::newRow("0.11 plain form, header in the chunk")
            << header11 + found11 + "name=\"Tessel_NINE 01.02.03\", serial=\"UNKNOWN\"\n" << "found:01_02_03 - 0";
        QTest::newRow("0.11 node closed to the user")
            << QByteArray("dfu-util: Cannot open DFU device 2675:0001 found on devnum 2 (LIBUSB_ERROR_ACCESS)\n")
            << "nothing: - 0 denied";
    }

    void deviceReply()
    {
        QFETCH(QByteArray, chunk);
        const DeviceReply r = parseDeviceReply(chunk, "Tessel_NINE");
        const QString kind = r.kind == DeviceReply::Found ? "found" : r.kind == DeviceReply::NoDevice ? "none" : "nothing";
        QTEST(QString("%1:%2 %3 %4").arg(kind, r.version, r.hasV ? "V" : "-").arg(r.bootLoaderRev) +
                  (r.accessDenied ? " denied" : ""),
              "reply");
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
        QTest::newRow("debug image") << "01_02_03_D" << false << "01_02_03" << false << 0;
        QTest::newRow("V fields joined") << "1_2_3" << true << "1_12" << true << 1;
        QTest::newRow("V longer than 64 bits") << "1_99999999999_99999999999" << true << "1_99999999999_99999999998"
                                               << true << 1;
        QTest::newRow("plain beats V") << "1_0" << false << "9_9" << true << 1;
    }

    void compare()
    {
        QFETCH(QString, selected);
        QFETCH(bool, selectedV);
        QFETCH(QString, current);
        QFETCH(bool, currentV);
        QTEST(Version::compareVersions(selected, selectedV, current, currentV), "result");
    }

    // The device's version through the tool itself, also when the tool never answers.
    void deviceQuery_data()
    {
        QTest::addColumn<QString>("dialect");
        QTest::addColumn<QString>("device");
        QTest::addColumn<QString>("answer"); // version, V form, revision; empty: not found
        QTest::newRow("0.7, with its revision") << "0.7" << "present" << "1_2_3 V 1";
        QTest::newRow("0.11 knows no revision") << "0.11" << "present" << "1_2_3 V 0";
        QTest::newRow("0.7 header only") << "0.7" << "absent-quiet" << "";
        QTest::newRow("tool hangs") << "0.7" << "hang" << "";
    }

    void deviceQuery()
    {
        QFETCH(QString, dialect);
        QFETCH(QString, device);
        qputenv("DFU_SIM_DIALECT", dialect.toUtf8());
        qputenv("DFU_SIM_DEVICE", device.toUtf8());
        qputenv("DFU_SIM_LIST_HANG", device == "hang" ? "1" : "0");
        qputenv("DFU_SIM_NAME", "V1_2_3");
        qputenv("DFU_SIM_REV", "1");
        Settings settings(static_cast<QObject *>(nullptr));
        Version version(&settings, nullptr);
        bool found = false, hasV = false;
        const QString got = version.getDeviceVersion(&found, &hasV);
        QTEST(found ? QString("%1 %2 %3").arg(got, hasV ? "V" : "-").arg(version.getBootLoaderRev()) : QString(),
              "answer");
        Version::listDevices(&settings); // returns, whatever the tool does
    }

    // The old tool writes through a buffer into the pipe, the newer one a write per
    // printf: the simulator must chunk as they do, or the tests above prove nothing.
    void simulatorChunksAsTheField_data()
    {
        QTest::addColumn<QString>("dialect");
        QTest::addColumn<QByteArray>("start"); // the first chunk ends so
        QTest::addColumn<QByteArray>("end");   // the whole output ends so
        QTest::newRow("0.7") << "0.7" << QByteArray("Starting download: [")
                             << QByteArray("#] finished!\nstate(2) = dfuIDLE, status(0) = No error condition is present\nDone!\n");
        QTest::newRow("0.11") << "0.11" << QByteArray()
                              << QByteArray("] 100%         4000 bytes\nDownload done.\n"
                                            "DFU state(7) = dfuMANIFEST, status(0) = No error condition is present\nDone!\n");
    }

    void simulatorChunksAsTheField()
    {
        QFETCH(QString, dialect);
        QFETCH(QByteArray, start);
        qputenv("DFU_SIM_DIALECT", dialect.toUtf8());
        // Slow enough that the reader sees each of the tool's writes on its own.
        qputenv("DFU_SIM_HASH_MS", "1000");
        const QString file = sandbox.root() + "/f.sys";
        QVERIFY(TestSupport::writeFile(file, QByteArray(4000, 'x')));
        QProcess dfu;
        QList<QByteArray> chunks;
        connect(&dfu, &QProcess::readyReadStandardOutput, this, [&] { chunks << dfu.readAllStandardOutput(); });
        dfu.setProcessChannelMode(QProcess::MergedChannels);
        dfu.start(TestSupport::binDir() + "/dfu-util", {"-d 0x2675:0x0001", "-D", file, "-t 64"});
        QVERIFY(dfu.waitForFinished(10000) && dfu.exitStatus() == QProcess::NormalExit && dfu.exitCode() == 0);
        const QByteArray all = chunks.join();
        QVERIFY(chunks.size() > 10);
        if (!start.isEmpty()) { // the header and the device in one buffer, then the marks one by one
            QVERIFY(chunks[0].startsWith("dfu-util 0.7\n") && chunks[0].endsWith(start));
            QCOMPARE(all.count('#'), 50 + 1); // the marks and "Setting #0"
        } else {
            // A bar is redrawn at each 25th of the file (4000 bytes in transfers of 64
            // reach every one) and when a second has passed.
            QVERIFY(all.count("\rDownload\t[") >= 26);
        }
        QFETCH(QByteArray, end);
        QVERIFY2(all.endsWith(end), all.right(80).constData());
    }
};

QTEST_MAIN(TestDfu)
#include "tst_dfu.moc"
