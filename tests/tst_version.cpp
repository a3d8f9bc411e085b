#include "app/log.h"
#include "app/settings.h"
#include "firmware/version.h"

#include "testsupport.h"

#include <QTest>

class TestVersion : public QObject
{
    Q_OBJECT
    TestSupport::Sandbox sandbox;

private slots:
    void initTestCase()
    {
        TestSupport::useSandbox(sandbox);
    }

    void cleanup()
    {
        for (const char *v : {"DFU_SIM_DEVICE", "DFU_SIM_NAME", "DFU_SIM_REV", "DFU_SIM_LIST_HANG"})
            qunsetenv(v);
    }

    void reply_data()
    {
        QTest::addColumn<QByteArray>("chunk");
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("version");
        QTest::addColumn<bool>("hasV");
        QTest::addColumn<int>("rev");
        const QByteArray found = "Found Runtime: [2675:0001] devnum=0, cfg=1, intf=0, alt=0, ";
        QTest::newRow("V form with rev") << found + "name=\"V1_2_3\", rev=\"1\"\n" << int(DeviceReply::Found) << "1_2_3"
                                         << true << 1;
        QTest::newRow("plain form") << found + "name=\"Tessel_NINE 01.02.03\"\n" << int(DeviceReply::Found)
                                    << "01_02_03" << false << 0;
        QTest::newRow("other name as it is") << found + "name=\"Board.7\"\n" << int(DeviceReply::Found) << "Board_7"
                                             << false << 0;
        QTest::newRow("a V anywhere selects the V form")
            << "Tormod Volden\n" + found + "name=\"Tessel_NINE 01.02.03\"\n" << int(DeviceReply::Found)
            << "essel_NINE 01.02.03" << true << 0;
        QTest::newRow("rev that is no number") << found + "name=\"V2_0\", rev=\"x\"" << int(DeviceReply::Found) << "2_0"
                                               << true << 0;
        QTest::newRow("no device") << QByteArray("No DFU capable USB device found") << int(DeviceReply::NoDevice) << ""
                                   << false << 0;
        QTest::newRow("header only") << QByteArray("dfu-util 0.7\n\nCopyright ...\n") << int(DeviceReply::NothingFound)
                                     << "" << false << 0;
        QTest::newRow("found without a name") << found + "\n" << int(DeviceReply::Found) << "" << false << 0;
    }

    void reply()
    {
        QFETCH(QByteArray, chunk);
        const DeviceReply r = parseDeviceReply(chunk, "Tessel_NINE");
        QTEST(int(r.kind), "kind");
        QTEST(r.version, "version");
        QTEST(r.hasV, "hasV");
        QTEST(r.bootLoaderRev, "rev");
    }

    void fileVersions_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("family");
        QTest::addColumn<QString>("version");
        QTest::addColumn<bool>("expectedV");
        QTest::addColumn<QString>("bareName");
        QTest::newRow("plain") << "/fw/Tessel_NINE_01_02_03.OS.zip" << "Tessel_NINE" << "01_02_03" << false
                               << "Tessel_NINE_01_02_03.OS.zip";
        QTest::newRow("V form") << "/fw/Tessel_NINE_V1_2_3.OS.zip.gpg" << "Tessel_NINE" << "1_2_3" << true
                                << "Tessel_NINE_V1_2_3.OS.zip.gpg";
        QTest::newRow("debug") << "Tessel_NINE_01_02_03_D.PR.zip" << "Tessel_NINE" << "01_02_03_D" << false
                               << "Tessel_NINE_01_02_03_D.PR.zip";
        QTest::newRow("brio") << "/x/BRIO_MEL_2_1.zkl" << "BRIO_MEL" << "2_1" << false << "BRIO_MEL_2_1.zkl";
        QTest::newRow("no family, cut as if it had one") << "/x/abcdefghijklm.OS.zip" << "Tessel_NINE" << "m" << false
                                                         << "abcdefghijklm.OS.zip";
        QTest::newRow("no dot") << "Tessel_NINE_5" << "Tessel_NINE" << "5" << false << "Tessel_NINE_5";
        QTest::newRow("short name") << "a.b" << "Tessel_NINE" << "" << false << "a.b";
    }

    void fileVersions()
    {
        QFETCH(QString, file);
        QFETCH(QString, family);
        QFETCH(bool, expectedV);
        bool hasV = !expectedV;
        QTEST(Version::fileVersion(file, family, &hasV), "version");
        QCOMPARE(hasV, expectedV);
        QTEST(file, "bareName");
        QCOMPARE(Version::filePreName("Tessel_NINE_1.OS.zip", family), QString("Tessel_NINE_1"));
        QCOMPARE(Version::filePreName("nodot", family), QString("nodot"));
    }

    void compare_data()
    {
        QTest::addColumn<QString>("selected");
        QTest::addColumn<bool>("selectedV");
        QTest::addColumn<QString>("current");
        QTest::addColumn<bool>("currentV");
        QTest::addColumn<int>("result");
        QTest::newRow("plain older") << "01_02_03" << false << "01_02_04" << false << 2;
        QTest::newRow("plain newer") << "01_03_00" << false << "01_02_09" << false << 1;
        QTest::newRow("first field ignored") << "02_02_03" << false << "01_02_03" << false << 0;
        QTest::newRow("shorter decides") << "01_02" << false << "01_02_07" << false << 0;
        QTest::newRow("debug image") << "01_02_03_D" << false << "01_02_03" << false << 0;
        QTest::newRow("single field") << "7" << false << "9" << false << 0;
        QTest::newRow("leading zeros") << "1_002_3" << false << "1_2_3" << false << 0;
        QTest::newRow("V fields joined") << "1_2_3" << true << "1_12" << true << 1;
        QTest::newRow("V equal") << "9_1_0" << true << "1_1_0" << true << 0;
        QTest::newRow("V older") << "1_1_9" << true << "1_2_0" << true << 2;
        QTest::newRow("V very long") << "1_99999999999_99999999999" << true << "1_99999999999_99999999998" << true << 1;
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
        QTest::addColumn<bool>("found");
        QTest::addColumn<QString>("version");
        QTest::addColumn<bool>("hasV");
        QTest::addColumn<int>("bootRev");
        QTest::newRow("V form, rev 1") << "present" << "V1_2_3" << "1" << true << "1_2_3" << true << 1;
        QTest::newRow("plain form") << "present" << "Tessel_NINE 01.02.03" << "" << true << "01_02_03" << false << 0;
        QTest::newRow("absent") << "absent" << "" << "" << false << "" << false << 0;
        QTest::newRow("header only") << "absent-quiet" << "" << "" << false << "" << false << 0;
    }

    void deviceQuery()
    {
        QFETCH(QString, device);
        QFETCH(QString, name);
        QFETCH(QString, rev);
        qputenv("DFU_SIM_DEVICE", device.toUtf8());
        qputenv("DFU_SIM_NAME", name.toUtf8());
        qputenv("DFU_SIM_REV", rev.toUtf8());
        Settings settings(static_cast<QObject *>(nullptr));
        Version version(&settings, nullptr);
        bool found = false, hasV = false;
        const QString got = version.getDeviceVersion(&found, &hasV);
        QTEST(found, "found");
        QTEST(got, "version");
        if (found)
            QTEST(hasV, "hasV");
        QTEST(version.getBootLoaderRev(), "bootRev");
    }

    void hangingToolIsLeftBehind()
    {
        qputenv("DFU_SIM_LIST_HANG", "1");
        Settings settings(static_cast<QObject *>(nullptr));
        Version version(&settings, nullptr);
        bool found = true, hasV = true;
        QCOMPARE(version.getDeviceVersion(&found, &hasV), QString());
        QVERIFY(!found);
        Version::listDevices(&settings); // returns; the hanging tool is ended
    }
};

QTEST_MAIN(TestVersion)
#include "tst_version.moc"
