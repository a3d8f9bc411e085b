#include "app/commandline.h"

#include <QTest>

#include <getopt.h>

class TestCommandLine : public QObject
{
    Q_OBJECT

    static CommandLine parse(const QStringList &args)
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

private slots:
    void parsing_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<bool>("help");
        QTest::addColumn<QString>("tag");
        QTest::addColumn<QString>("flags"); // a, d, b, z present
        QTest::addColumn<QString>("searchPath");
        QTest::addColumn<QString>("useFile");

        QTest::newRow("empty") << QStringList{} << false << "" << "" << "" << "";
        QTest::newRow("automatic") << QStringList{"-a"} << false << "(Internal Automatic) " << "a" << "" << "";
        QTest::newRow("long forms") << QStringList{"--automatic", "--debug", "--zipfiles"} << false
                                    << "(Internal Automatic - Debug) " << "adz" << "" << "";
        QTest::newRow("later tag wins") << QStringList{"-b", "-a", "-f", "x"} << false << "(Internal Automatic) "
                                        << "ab" << "" << "x";
        QTest::newRow("bootloader tag") << QStringList{"-a", "-b"} << false
                                        << "(Internal Automatic - Bootloader) " << "ab" << "" << "";
        QTest::newRow("later -p replaces") << QStringList{"-p", "one", "-p", "two"} << false << "" << "" << "two"
                                           << "";
        QTest::newRow("long path options") << QStringList{"--internalSearchPath=/s p", "--internalFilePath", "/f"}
                                           << false << "" << "" << "/s p" << "/f";
        QTest::newRow("help stops the scan") << QStringList{"-d", "-h", "-a"} << true << "(Internal Automatic - Debug) "
                                             << "d" << "" << "";
        QTest::newRow("unknown option skipped") << QStringList{"-x", "-z"} << false << "" << "z" << "" << "";
        QTest::newRow("missing argument skipped") << QStringList{"-a", "-f"} << false << "(Internal Automatic) "
                                                  << "a" << "" << "";
        QTest::newRow("extra word ignored") << QStringList{"extra", "-a"} << false << "(Internal Automatic) " << "a"
                                            << "" << "";
        QTest::newRow("utf-8 argument") << QStringList{"-p", "/mnt/Übergabe"} << false << "" << "" << "/mnt/Übergabe"
                                        << "";
    }

    void parsing()
    {
        QFETCH(QStringList, args);
        const CommandLine line = parse(args);
        QTEST(line.help, "help");
        QTEST(line.titleTag, "tag");
        QString got; // in alphabetical order, as the table writes them
        if (line.automatic)
            got += 'a';
        if (line.bootloader)
            got += 'b';
        if (line.debug)
            got += 'd';
        if (line.useZip)
            got += 'z';
        QTEST(got, "flags");
        QTEST(line.searchPath, "searchPath");
        QTEST(line.useFile, "useFile");
    }

    void validation_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<bool>("dfuMissing");
        QTest::addColumn<QString>("error");

        QTest::newRow("nothing") << QStringList{} << false << "";
        QTest::newRow("three modes") << QStringList{"-a", "-d", "-b"} << false << "Only one automatic mode possible";
        QTest::newRow("three modes, no dfu") << QStringList{"-a", "-d", "-b"} << true
                                             << "Only one automatic mode possible";
        QTest::newRow("debug alone") << QStringList{"-d"} << false
                                     << "Debug or Bootloader only if automatic mode is active";
        QTest::newRow("bootloader alone") << QStringList{"-b"} << false
                                          << "Debug or Bootloader only if automatic mode is active";
        QTest::newRow("debug and bootloader without -a") << QStringList{"-d", "-b"} << false
                                                         << "Debug or Bootloader only if automatic mode is active";
        QTest::newRow("debug with file") << QStringList{"-a", "-d", "-f", "x"} << false
                                         << "Use Debug option only without useFile option";
        QTest::newRow("debug with file and path") << QStringList{"-a", "-d", "-p", "p", "-f", "x"} << false
                                                  << "Use Debug option only without useFile option";
        QTest::newRow("path and file") << QStringList{"-a", "-p", "x", "-f", "y"} << false
                                       << "Use either file or search path option";
        QTest::newRow("path and file, no -a") << QStringList{"-p", "x", "-f", "y"} << false
                                              << "Use either file or search path option";
        QTest::newRow("automatic without dfu") << QStringList{"-a"} << true
                                               << "Automatic mode without DFU support is not possible";
        QTest::newRow("path and file beat missing dfu") << QStringList{"-a", "-p", "x", "-f", "y"} << true
                                                        << "Use either file or search path option";
        QTest::newRow("no automatic, no dfu") << QStringList{"-z", "-p", "x"} << true << "";
        QTest::newRow("bootloader run") << QStringList{"-b", "-a", "-f", "x"} << false << "";
        QTest::newRow("debug run") << QStringList{"-a", "-d", "-p", "x"} << false << "";
    }

    void validation()
    {
        QFETCH(QStringList, args);
        QFETCH(bool, dfuMissing);
        QTEST(validateCommandLine(parse(args), dfuMissing), "error");
    }

    void usageNamesTheProgram()
    {
        const QString usage = usageText();
        QVERIFY(usage.startsWith("usage: Morvanta\n          |-h       | show this help menue\n"));
        QVERIFY(usage.endsWith("|-f file  | Full file path to use (only in automatic mode)\n"));
        QCOMPARE(usage.count('\n'), 8);
    }
};

QTEST_GUILESS_MAIN(TestCommandLine)
#include "tst_commandline.moc"
