#include "app/log.h"
#include "app/logstream.h"

#include "testsupport.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <functional>

using Statement = std::function<void()>;
Q_DECLARE_METATYPE(Statement)

class TestLog : public QObject
{
    Q_OBJECT
    QTemporaryDir folder;

    QByteArray logBytes() const { return TestSupport::readFile(Log::filePath()); }

private slots:
    void initTestCase()
    {
        QVERIFY(folder.isValid());
        Log::setFolder(folder.path());
        qInstallMessageHandler(logMessageHandler);
    }

    void init() { clearLogFile(); }

    void shapes_data()
    {
        QTest::addColumn<Statement>("statement");
        QTest::addColumn<QByteArray>("expected");

        QTest::newRow("fragment") << Statement([] { qDebug() << "Use zip files"; }) << QByteArray("Use zip files \n");
        QTest::newRow("logfile path") << Statement([] { qDebug() << "Logfile path " << quoted(QString("/t/logfile.txt")); })
                                      << QByteArray("Logfile path  \"/t/logfile.txt\" \n");
        QTest::newRow("line feed fragment")
            << Statement([] { qDebug() << "Version: " << quoted(QString("Morvanta.03.20260616.0")) << "\n"; })
            << QByteArray("Version:  \"Morvanta.03.20260616.0\" \n \n");
        QTest::newRow("string with line feed, quote, backslash")
            << Statement([] { qDebug() << quoted(QString("a\nb\"c\\d")); }) << QByteArray("\"a\nb\"c\\d\" \n");
        QTest::newRow("number") << Statement([] { qDebug() << "Size of currentFile " << 1234 << "Byte\n"; })
                                << QByteArray("Size of currentFile  1234 Byte\n \n");
        QTest::newRow("list") << Statement([] { qDebug() << quoted(QStringList{"-d 0x2675:0x0001", "-D", "/x y"}); })
                              << QByteArray("(\"-d 0x2675:0x0001\", \"-D\", \"/x y\") \n");
        QTest::newRow("empty list") << Statement([] { qDebug() << quoted(QStringList{}); }) << QByteArray("() \n");
        QTest::newRow("tool output bytes")
            << Statement([] { qDebug() << "XMODEM Output " << quoted(QByteArray("{\"a\": 1}\r\n")); })
            << QByteArray("XMODEM Output  \"{\"a\": 1}\r\n\" \n");
        QTest::newRow("composed fragment") << Statement([] { qDebug() << plain(QString("...Found ") + "gpg"); })
                                           << QByteArray("...Found gpg \n");
        QTest::newRow("non-ascii path") << Statement([] { qDebug() << quoted(QString("/tmp/Übergabe")); })
                                        << QString("\"/tmp/Übergabe\" \n").toLocal8Bit();
        QTest::newRow("warning") << Statement([] { qWarning() << "Device is not connected"; })
                                 << QByteArray("Device is not connected \n");
        QTest::newRow("info is not logged") << Statement([] { qInfo() << "quiet"; }) << QByteArray();
    }

    void shapes()
    {
        QFETCH(Statement, statement);
        statement();
        QTEST(logBytes(), "expected");
    }

    void linesAppendAndClearStartsAfresh()
    {
        qDebug() << "first";
        qDebug() << "second";
        QCOMPARE(logBytes(), QByteArray("first \nsecond \n"));
        clearLogFile();
        QVERIFY(!QFile::exists(Log::filePath()));
        qDebug() << "third";
        QCOMPARE(logBytes(), QByteArray("third \n"));
    }

    void unwritableFolderLosesMessagesQuietly()
    {
        Log::setFolder(folder.path() + "/missing/folder");
        qDebug() << "lost";
        QVERIFY(!QFile::exists(Log::filePath()));
        Log::setFolder(folder.path());
        qDebug() << "back";
        QCOMPARE(logBytes(), QByteArray("back \n"));
    }
};

QTEST_GUILESS_MAIN(TestLog)
#include "tst_log.moc"
