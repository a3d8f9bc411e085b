// The application frame: command line, log lines, the private working folder and
// removing folders.
#include "app/commandline.h"
#include "app/errortexts.h"
#include "app/log.h"
#include "app/logstream.h"
#include "platform/platform.h"

#include "testsupport.h"

#include <QTemporaryDir>
#include <QTest>

#include <functional>
#include <getopt.h>
#include <sys/stat.h>
#include <unistd.h>

using Statement = std::function<void()>;
Q_DECLARE_METATYPE(Statement)

namespace {
CommandLine parse(const QStringList &args)
{
    QList<QByteArray> storage{"morvanta"};
    for (const QString &a : args)
        storage << a.toUtf8();
    QList<char *> argv;
    for (QByteArray &s : storage)
        argv << s.data();
    argv << nullptr;
    optind = 0; // a fresh scan for every case; the program itself never rewinds
    opterr = 0;
    return parseCommandLine(int(storage.size()), argv.data());
}

mode_t modeOf(const QString &path)
{
    struct stat st;
    lstat(QFile::encodeName(path).constData(), &st);
    return st.st_mode & 07777;
}
} // namespace

class TestApp : public QObject
{
    Q_OBJECT
    QTemporaryDir base;

    QString usual() const { return base.path() + "/morvanta-" + QString::number(getuid()); }
    QByteArray logBytes() const { return TestSupport::readFile(Log::filePath()); }

private slots:
    void initTestCase()
    {
        Log::setFolder(base.path());
        qInstallMessageHandler(logMessageHandler);
    }

    void init()
    {
        clearLogFile();
        for (const QString &entry : QDir(base.path()).entryList({"morvanta-*"}, QDir::AllEntries | QDir::System)) {
            QFile::remove(base.path() + "/" + entry);
            QDir(base.path() + "/" + entry).removeRecursively();
        }
    }

    void commandLine_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("parsed"); // flags, tag, -p, -f
        QTest::addColumn<QString>("error");  // first broken rule, with dfu-util present
        QTest::newRow("nothing") << QStringList{} << "|||" << "";
        QTest::newRow("later tag wins") << QStringList{"-b", "-a", "-f", "x"} << "ab|(Internal Automatic) ||x" << "";
        QTest::newRow("long forms, later -p") << QStringList{"--debug", "--automatic", "-p", "1", "--internalSearchPath=/s p"}
                                              << "ad|(Internal Automatic) |/s p|" << "";
        QTest::newRow("help stops the scan") << QStringList{"-d", "-h", "-a"} << "dh|(Internal Automatic - Debug) ||"
                                             << "Debug or Bootloader only if automatic mode is active";
        QTest::newRow("unknown option, words, missing argument") << QStringList{"-x", "extra", "-z", "-f"} << "z|||" << "";
        QTest::newRow("three modes") << QStringList{"-a", "-d", "-b"} << "abd|(Internal Automatic - Bootloader) ||"
                                     << "Only one automatic mode possible";
        QTest::newRow("debug with file before path and file") << QStringList{"-a", "-d", "-p", "p", "-f", "x"}
                                                              << "ad|(Internal Automatic - Debug) |p|x"
                                                              << "Use Debug option only without useFile option";
    }

    void commandLine()
    {
        QFETCH(QStringList, args);
        const CommandLine line = parse(args);
        QString flags;
        for (const auto &[set, letter] : {std::pair{line.automatic, 'a'}, {line.bootloader, 'b'}, {line.debug, 'd'},
                                          {line.help, 'h'}, {line.useZip, 'z'}})
            if (set)
                flags += QLatin1Char(letter);
        QTEST(QStringList({flags, line.titleTag, line.searchPath, line.useFile}).join('|'), "parsed");
        QTEST(validateCommandLine(line, false), "error");
    }

    void logShapes_data()
    {
        QTest::addColumn<Statement>("statement");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("fragment") << Statement([] { qDebug() << "Use zip files"; }) << QByteArray("Use zip files \n");
        QTest::newRow("text with line feed, quote, backslash")
            << Statement([] { qDebug() << quoted(QString("a\nb\"c\\d")); }) << QByteArray("\"a\nb\"c\\d\" \n");
        QTest::newRow("number") << Statement([] { qDebug() << "Size of currentFile " << 1234 << "Byte\n"; })
                                << QByteArray("Size of currentFile  1234 Byte\n \n");
        QTest::newRow("list") << Statement([] { qDebug() << quoted(QStringList{"-d 0x2675:0x0001", "/x y"}); })
                              << QByteArray("(\"-d 0x2675:0x0001\", \"/x y\") \n");
        QTest::newRow("tool output as it came")
            << Statement([] { qDebug() << "XMODEM Output " << quoted(QByteArray("{\"a\": 1}\r\n\tÜ")); })
            << QByteArray("XMODEM Output  \"{\"a\": 1}\r\n\tÜ\" \n");
        QTest::newRow("tool output that is no text")
            << Statement([] { qDebug() << quoted(QByteArray("a\x01\xff\xc3(\0z", 7)); })
            << QByteArray("\"a\\x01\\xff\\xc3(\\x00z\" \n");
        QTest::newRow("text from outside with control characters")
            << Statement([] { qDebug() << quoted(QString::fromUtf8("a\x1b[2Jb\u0085c\u202ed\re\tf")); })
            << QByteArray("\"a\\x1b[2Jb\\u0085c\\u202ed\re\tf\" \n");
        QTest::newRow("info is not logged") << Statement([] { qInfo() << "quiet"; }) << QByteArray();
    }

    void logShapes()
    {
        QFETCH(Statement, statement);
        statement();
        QTEST(logBytes(), "expected");
    }

    void privateFolder_data()
    {
        QTest::addColumn<QString>("before"); // what stands at the usual place
        QTest::addColumn<bool>("usualKept");
        QTest::newRow("nothing yet") << "" << true;
        QTest::newRow("link to another folder") << "link" << false;
        QTest::newRow("writable by others") << "open-write" << false;
        QTest::newRow("a plain file") << "file" << false;
        QTest::newRow("owned by another user") << "foreign" << false;
    }

    void privateFolder()
    {
        QFETCH(QString, before);
        QFETCH(bool, usualKept);
        const QString elsewhere = base.path() + "/morvanta-elsewhere";
        QDir().mkpath(elsewhere);
        if (before == "link") {
            QVERIFY(QFile::link(elsewhere, usual()));
        } else if (before == "file") {
            TestSupport::writeFile(usual());
        } else if (!before.isEmpty()) {
            QVERIFY(QDir().mkdir(usual()));
            chmod(QFile::encodeName(usual()).constData(), before == "open-write" ? 0777 : 0755);
            if (before == "foreign" && (getuid() != 0 || chown(QFile::encodeName(usual()).constData(), 65534, 65534)))
                QSKIP("needs root to hand a folder to another user");
        }
        const QString chosen = Platform::privateFolderIn(base.path());
        QCOMPARE(chosen == usual(), usualKept);
        QVERIFY(chosen.startsWith(usual()));
        QVERIFY(QFileInfo(chosen).isDir() && !QFileInfo(chosen).isSymLink());
        QCOMPARE(modeOf(chosen), mode_t(0700));
        QVERIFY(QDir(elsewhere).isEmpty());
        // Every later start takes the same folder: its lock and log stay, nothing piles up.
        QCOMPARE(Platform::privateFolderIn(base.path()), chosen);
        QCOMPARE(QDir(base.path()).entryList({"morvanta-*-*"}, QDir::Dirs).size(), usualKept ? 0 : 1);
    }

    void removeTree_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<bool>("removed");
        QTest::newRow("tree with hidden files and a link inside") << "tree" << true;
        QTest::newRow("link given as the folder") << "link" << true;
        QTest::newRow("a file given as the folder") << "file" << false;
    }

    void removeTree()
    {
        QFETCH(QString, kind);
        const QString top = base.path() + "/scratch", outside = base.path() + "/outside";
        QDir(top).removeRecursively();
        QFile::remove(top);
        QDir().mkpath(outside + "/sub");
        TestSupport::writeFile(outside + "/sub/precious");
        if (kind == "tree") {
            QDir().mkpath(top + "/sub/.hidden-dir");
            for (const char *f : {"/a.sys", "/.hidden", "/sub/.hidden-dir/c"})
                TestSupport::writeFile(top + QLatin1String(f));
            QVERIFY(QFile::link(outside, top + "/sub/link-out"));
            QVERIFY(QFile::link(outside + "/sub/precious", top + "/file-link"));
        } else if (kind == "link") {
            QVERIFY(QFile::link(outside, top));
        } else if (kind == "file") {
            TestSupport::writeFile(top);
        }
        QTEST(Platform::removeTree(top), "removed");
        QCOMPARE(QFileInfo(top).exists() || QFileInfo(top).isSymLink(), kind == "file");
        QVERIFY(QFile::exists(outside + "/sub/precious"));
    }
};

QTEST_MAIN(TestApp)
#include "tst_app.moc"
