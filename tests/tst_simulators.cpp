// The simulators stand in for the device tools in every other test, so they must
// print what the field's tools print, in the shapes the program relies on.
#include "testsupport.h"

#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

class TestSimulators : public QObject
{
    Q_OBJECT
    QTemporaryDir dir;

    struct Run {
        int exitCode;
        QByteArray output;
    };
    Run run(const QString &tool, const QStringList &args, const QMap<QString, QString> &env)
    {
        QProcess p;
        QProcessEnvironment e = QProcessEnvironment::systemEnvironment();
        for (auto it = env.begin(); it != env.end(); ++it)
            e.insert(it.key(), it.value());
        p.setProcessEnvironment(e);
        p.setProcessChannelMode(QProcess::MergedChannels);
        p.start(TestSupport::binDir() + "/" + tool, args);
        p.waitForFinished(10000);
        return {p.exitCode(), p.readAll()};
    }
    QString makeFile(const QString &name, int size)
    {
        QFile f(dir.path() + "/" + name);
        f.open(QIODevice::WriteOnly);
        f.write(QByteArray(size, 'x'));
        return f.fileName();
    }
    QStringList download(const QString &file) { return {"-d 0x2675:0x0001", "-D", file, "-t 64"}; }

private slots:
    void dfuList_data()
    {
        QTest::addColumn<QString>("device");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("rev");
        QTest::addColumn<QString>("expectedLine");
        QTest::newRow("V form with rev") << "present" << "V1_2_3" << "1"
                                         << "Found Runtime: [2675:0001] devnum=0, cfg=1, intf=0, alt=0, name=\"V1_2_3\", rev=\"1\"\n";
        QTest::newRow("plain form") << "present" << "Tessel_NINE 01.02.03" << ""
                                    << "Found Runtime: [2675:0001] devnum=0, cfg=1, intf=0, alt=0, name=\"Tessel_NINE 01.02.03\"\n";
        QTest::newRow("absent with message") << "absent" << "" << "" << "No DFU capable USB device found\n";
        QTest::newRow("absent, header only") << "absent-quiet" << "" << "" << "";
    }

    void dfuList()
    {
        QFETCH(QString, device);
        QFETCH(QString, name);
        QFETCH(QString, rev);
        QFETCH(QString, expectedLine);
        const Run r = run("dfu-util", {"-l"}, {{"DFU_SIM_DEVICE", device}, {"DFU_SIM_NAME", name}, {"DFU_SIM_REV", rev}});
        QCOMPARE(r.exitCode, 0);
        QVERIFY(r.output.startsWith("dfu-util 0.7\n"));
        if (expectedLine.isEmpty())
            QVERIFY(r.output.endsWith("dfu-util@lists.gnumonks.org\n\n"));
        else
            QVERIFY2(r.output.endsWith(expectedLine.toUtf8()), r.output.constData());
        QCOMPARE(r.output.count("Found Runtime:"), device == "present" ? 1 : 0);
    }

    void dfuDownload_data()
    {
        QTest::addColumn<int>("size");
        QTest::addColumn<QString>("error");
        QTest::addColumn<int>("errorAt");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<int>("hashes");
        QTest::newRow("tiny file still 50 marks") << 10 << "" << -1 << 0 << 50;
        QTest::newRow("large file") << 200000 << "" << -1 << 0 << 50;
        QTest::newRow("mark before download, exit 0") << 5000 << "Cannot open device: LIBUSB_ERROR_ACCESS" << -1 << 0 << 0;
        QTest::newRow("mark in the middle, exit 74") << 5000 << "Error during download get_status" << 23 << 74 << 23;
        QTest::newRow("mark after the marks") << 5000 << "Lost device after RESET?" << 50 << 1 << 50;
    }

    void dfuDownload()
    {
        QFETCH(int, size);
        QFETCH(QString, error);
        QFETCH(int, errorAt);
        QFETCH(int, exitCode);
        const QString file = makeFile("f.sys", size);
        const Run r = run("dfu-util", download(file),
                          {{"DFU_SIM_ERROR", error}, {"DFU_SIM_ERROR_AT", QString::number(errorAt)},
                           {"DFU_SIM_EXIT", QString::number(exitCode)}, {"DFU_SIM_HASH_MS", "20"}});
        QTEST(r.exitCode, "exitCode");
        QTEST(int(r.output.count('#')), "hashes");
        QVERIFY(r.output.contains("Search for DFU USB device\n"));
        if (error.isEmpty()) {
            QVERIFY(r.output.contains("Starting download: ["));
            QVERIFY(r.output.endsWith("] finished!\nstate(2) = dfuIDLE, status(0) = No error condition is present\nDone!\n"));
        } else {
            QVERIFY(r.output.contains(error.toUtf8() + "\n"));
            QVERIFY(!r.output.contains("Done!"));
        }
    }

    void dfuRecordsCallsAndFaultsOneCall()
    {
        const QString record = dir.path() + "/calls.txt";
        const QString file = makeFile("g.sys", 100);
        const QMap<QString, QString> env{{"DFU_SIM_RECORD", record}, {"DFU_SIM_FAULT_CALL", "2"},
                                         {"DFU_SIM_ERROR", "Error during download"}, {"DFU_SIM_EXIT", "1"},
                                         {"DFU_SIM_HASH_MS", "0"}};
        QCOMPARE(run("dfu-util", download(file), env).exitCode, 0);
        const Run second = run("dfu-util", download(file), env);
        QCOMPARE(second.exitCode, 1);
        QVERIFY(second.output.contains("Error during download"));
        QCOMPARE(run("dfu-util", {"-l"}, env).exitCode, 0);
        const QByteArray calls = TestSupport::readFile(record);
        const QByteArray one = "-d 0x2675:0x0001\t-D\t" + file.toUtf8() + "\t-t 64\n";
        QCOMPARE(calls, one + one + "-l\n");
    }

    void dfuMissingFileAndNoDevice()
    {
        Run r = run("dfu-util", download(dir.path() + "/missing.sys"), {});
        QCOMPARE(r.exitCode, 1);
        QCOMPARE(r.output.count('#'), 0);
        r = run("dfu-util", download(makeFile("h.sys", 10)), {{"DFU_SIM_DEVICE", "absent"}});
        QVERIFY(r.output.contains("No DFU capable USB device found"));
        QVERIFY(r.exitCode != 0);
    }

    void xmodemRecords_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<bool>("existingFile");
        QTest::addColumn<int>("lastStatus");
        QTest::newRow("ok") << "ok" << true << 6;
        QTest::newRow("missing file") << "ok" << false << 1;
        QTest::newRow("no device") << "nodevice" << true << 2;
        QTest::newRow("too large for 32 bits") << "bigsize" << true << 6;
    }

    void xmodemRecords()
    {
        QFETCH(QString, mode);
        QFETCH(bool, existingFile);
        const QString file = existingFile ? makeFile("fw.zkl", 4000) : dir.path() + "/none.zkl";
        const Run r = run("xmodem-util", {"-p", file}, {{"XMODEM_SIM_MODE", mode}, {"XMODEM_SIM_DELAY_MS", "1"}});
        const QList<QByteArray> records = r.output.trimmed().split('\n');
        QVERIFY(!records.isEmpty());
        const QRegularExpression message("\"user_message\": \"([^\"]*)\""), loaded("\"loaded_size\": (\\d+)"),
            all("\"all_bin_size\": (\\d+)"), status("\"status_code\": (\\d+)");
        for (const QByteArray &rec : records) {
            const QString text = QString::fromLatin1(rec);
            QVERIFY2(message.match(text).hasMatch() && loaded.match(text).hasMatch() && all.match(text).hasMatch() &&
                         status.match(text).hasMatch(),
                     rec.constData());
        }
        const QString last = QString::fromLatin1(records.last());
        QTEST(status.match(last).captured(1).toInt(), "lastStatus");
        if (mode == "bigsize")
            QVERIFY(all.match(last).captured(1).toLongLong() > 2147483647LL);
    }

    void detectorPrintsItsAnswer_data()
    {
        QTest::addColumn<QString>("output");
        QTest::newRow("present") << "1\n";
        QTest::newRow("absent") << "0";
        QTest::newRow("error") << "2";
        QTest::newRow("word") << "maybe";
        QTest::newRow("nothing") << "";
    }

    void detectorPrintsItsAnswer()
    {
        QFETCH(QString, output);
        const Run r = run("detector", {}, {{"DETECTOR_SIM_OUTPUT", output}});
        QCOMPARE(QString::fromLatin1(r.output), output);
    }
};

QTEST_GUILESS_MAIN(TestSimulators)
#include "tst_simulators.moc"
