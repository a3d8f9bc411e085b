#include "flash/dfuoutputparser.h"
#include "flash/transferprogress.h"

#include <QTest>

class TestDfuParser : public QObject
{
    Q_OBJECT

    static QStringList describe(const DfuChunk &chunk)
    {
        QStringList out;
        for (const DfuEvent &e : chunk.events) {
            switch (e.kind) {
            case DfuEvent::Status:
                out << "status:" + e.text;
                break;
            case DfuEvent::Error:
                out << "error:" + e.text;
                break;
            case DfuEvent::StartingDownload:
                out << "start";
                break;
            case DfuEvent::HashMarks:
                out << "hash:" + QString::number(e.count);
                break;
            }
        }
        return out;
    }

private slots:
    void marks_data()
    {
        QTest::addColumn<QByteArray>("chunk");
        QTest::addColumn<QStringList>("events");
        const QString d = "Device is not connected";
        QTest::newRow("search") << QByteArray("Search for DFU USB device\n")
                                << QStringList{"status:Search for DFU USB device - This might take a few seconds"};
        QTest::newRow("no device") << QByteArray("No DFU capable USB device found\n")
                                   << QStringList{"error:No DFU capable USB device found"};
        QTest::newRow("two devices") << QByteArray("More than one DFU capable USB device found, you might try")
                                     << QStringList{"error:More than one DFU capable USB device found"};
        QTest::newRow("lost") << QByteArray("Lost device after RESET?") << QStringList{"error:" + d + " - Lost device after RESET"};
        QTest::newRow("descriptor") << QByteArray("Error obtaining DFU functional descriptor")
                                    << QStringList{"error:" + d + " - Functional descriptor"};
        QTest::newRow("open") << QByteArray("Cannot open device: LIBUSB_ERROR_ACCESS")
                              << QStringList{"error:" + d + " - Opening error"};
        QTest::newRow("configuration") << QByteArray("Cannot set configuration: x") << QStringList{"error:" + d + " - Configuration error"};
        QTest::newRow("alt") << QByteArray("Cannot set alt interface: x") << QStringList{"error:" + d + " - Alt interface error"};
        QTest::newRow("get_status") << QByteArray("error get_status: x") << QStringList{"error:" + d + " - Get status error"};
        QTest::newRow("read status") << QByteArray("unable to read DFU status") << QStringList{"error:" + d + " - Get status error"};
        QTest::newRow("detach") << QByteArray("error detaching: x") << QStringList{"error:" + d + " - Detaching error"};
        QTest::newRow("clear") << QByteArray("error clear_status: x") << QStringList{"error:" + d + " - Clear status error"};
        QTest::newRow("claim") << QByteArray("Cannot claim interface") << QStringList{"error:" + d + " - Interface error"};
        QTest::newRow("runtime") << QByteArray("Device still in Runtime Mode!") << QStringList{"error:" + d + " - In Runtime Mode error"};
        QTest::newRow("download") << QByteArray("Error during download") << QStringList{"error:Error during download"};
        QTest::newRow("two marks, table order") << QByteArray("Error during download\nerror get_status: pipe")
                                                << QStringList{"error:" + d + " - Get status error", "error:Error during download"};
        QTest::newRow("corrupt") << QByteArray("Device's firmware is corrupt. It cannot return to run-time (non-DFU) operations")
                                 << QStringList{"error:Device's firmware is corrupt"};
        QTest::newRow("memory") << QByteArray("Program memory function failed") << QStringList{"error:Program memory function failed"};
        QTest::newRow("start with marks") << QByteArray("Starting download: [####")
                                          << QStringList{"start", "hash:4"};
        QTest::newRow("table order, not text order")
            << QByteArray("#Starting download: [\nSearch for DFU USB device\n")
            << QStringList{"status:Search for DFU USB device - This might take a few seconds", "start", "hash:1"};
        QTest::newRow("case matters") << QByteArray("cannot open device: x\nstarting download:") << QStringList{};
        QTest::newRow("torn mark is not seen") << QByteArray("Starting down") << QStringList{};
        QTest::newRow("corrupt mark needs the whole sentence") << QByteArray("Device's firmware is corrupt.") << QStringList{};
    }

    void marks()
    {
        QFETCH(QByteArray, chunk);
        QTEST(describe(DfuOutputParser::parse(chunk)), "events");
    }

    void logText()
    {
        QCOMPARE(DfuOutputParser::parse("#####").logText, QByteArray());
        QCOMPARE(DfuOutputParser::parse("##] finished!\n").logText, QByteArray("] finished!\n"));
        QCOMPARE(DfuOutputParser::parse("Done!\r\n").logText, QByteArray("Done!\r\n"));
    }

    void hashMarks_data()
    {
        QTest::addColumn<int>("fileSize");
        QTest::addColumn<int>("totalSize");
        QTest::addColumn<int>("marks");
        QTest::addColumn<int>("percent");
        QTest::addColumn<int>("written");
        QTest::addColumn<int>("total");
        QTest::addColumn<bool>("bytes");
        QTest::addColumn<int>("writtenSize");
        QTest::newRow("first mark, units of 1000") << 1000000 << 2500000 << 1 << 0 << 20 << 2500 << false << 20000;
        QTest::newRow("small run: bytes") << 40000 << 40000 << 1 << 2 << 800 << 40000 << true << 800;
        QTest::newRow("small run: then thousands") << 40000 << 40000 << 2 << 2 << 1 << 40 << false << 1600;
        QTest::newRow("fifty marks stop below 100") << 40000 << 40000 << 50 << 99 << 40 << 40 << false << 40000;
        QTest::newRow("fifty-first mark adds nothing") << 40000 << 40000 << 51 << 99 << 40 << 40 << false << 40000;
        QTest::newRow("tiny file adds nothing") << 49 << 49 << 10 << 0 << 0 << 49 << true << 0;
        QTest::newRow("remainder never counted") << 1099 << 1099 << 50 << 99 << 1 << 1 << false << 1050;
        QTest::newRow("file grew past the total") << 5000 << 100 << 50 << 99 << 0 << 0 << false << 5000;
    }

    void hashMarks()
    {
        QFETCH(int, fileSize);
        QFETCH(int, totalSize);
        QFETCH(int, marks);
        TransferCounters counters;
        counters.currentFileSize = fileSize;
        counters.totalFileSize = totalSize;
        HashMarkReport report{};
        for (int i = 0; i < marks; ++i)
            report = countHashMark(counters);
        QTEST(int(report.percent), "percent");
        QTEST(int(report.written), "written");
        QTEST(int(report.total), "total");
        QTEST(report.useByteSize, "bytes");
        QTEST(int(counters.writtenSize), "writtenSize");
    }

    void timeLeft_data()
    {
        QTest::addColumn<int>("elapsed");
        QTest::addColumn<int>("written");
        QTest::addColumn<int>("total");
        QTest::addColumn<QString>("min");
        QTest::addColumn<QString>("sec");
        QTest::newRow("example") << 4000 << 20 << 2500 << "8" << "16";
        QTest::newRow("nine seconds") << 1000 << 10 << 100 << "0" << "09";
        QTest::newRow("zero") << 100 << 10 << 10 << "0" << "00";
        QTest::newRow("ten") << 10000 << 100 << 200 << "0" << "10";
        QTest::newRow("a minute") << 60000 << 1 << 2 << "1" << "00";
        QTest::newRow("truncated per unit") << 999 << 1000 << 2000 << "0" << "00";
    }

    void timeLeft()
    {
        QFETCH(int, elapsed);
        QFETCH(int, written);
        QFETCH(int, total);
        QString min, sec;
        QVERIFY(remainingTime(elapsed, written, total, &min, &sec));
        QTEST(min, "min");
        QTEST(sec, "sec");
    }

    void nothingWrittenNothingSaid()
    {
        QString min, sec;
        QVERIFY(!remainingTime(5000, 0, 100, &min, &sec));
    }
};

QTEST_GUILESS_MAIN(TestDfuParser)
#include "tst_dfuparser.moc"
