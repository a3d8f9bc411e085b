// The built program started as a user starts it, in a throwaway home, under Xvfb;
// its boxes are answered by pressing Return in them.
#include "platform/platform.h"

#include "windowsupport.h"

#include <QDir>
#include <QTest>


using TestSupport::ProgramRun;
using TestSupport::Sandbox;

namespace {
const QString version = "Morvanta.03.20260616.0";
const QString noGpgSuffix = " < Not using Zelko signed files > ";

// A start with dfu-util greets the user with a box before the window shows.
bool mainWindowAppears(const QString &title)
{
    return TestSupport::answerBox("WELCOME") && !TestSupport::waitForWindow(title).isEmpty();
}

QString openingLines(const Sandbox &s, bool dfu)
{
    return "Logfile path  \"" + s.logPath() + "\" \n" + "Version:  \"" + version + "\" \n \n" +
           "Search dfu-util:  \"" + s.app() + "/dfu-util\" ... \n" +
           (dfu ? "...Found dfu-util \n" : "...dfu-util not found \n");
}
} // namespace

class TestStartup : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run under xvfb-run"); }

    void usageAndParameterErrors_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<bool>("dfu");
        QTest::addColumn<QString>("box");
        QTest::addColumn<QString>("logAfterOpening");

        const QString usage = "\"usage: Morvanta\n"
                              "          |-h       | show this help menue\n"
                              "          |-p path  | Path to search for files\n"
                              "          |-z       | Use zip files\n"
                              "          |-a       | automatic mode active\n"
                              "          |-d       | flash latest debug image (only in automatic mode)\n"
                              "          |-b       | flash latest bootloader (only in automatic mode)\n"
                              "          |-f file  | Full file path to use (only in automatic mode)\n\" \n";
        QTest::newRow("--help behind a bad combination") << QStringList{"-d", "--help", "-b"} << true << "HELP"
                                                         << "Internal Automatic Mode - Debug \n" + usage;
        QTest::newRow("-a without dfu-util") << QStringList{"-z", "-a"} << false << "PARAMETER ERROR"
                                             << "Use zip files \nInternal Automatic Mode \n";
    }

    void usageAndParameterErrors()
    {
        QFETCH(QStringList, args);
        QFETCH(bool, dfu);
        QFETCH(QString, box);
        QFETCH(QString, logAfterOpening);
        Sandbox sandbox;
        sandbox.writeConfig({{"mode", "internal"}});
        sandbox.installProgram(dfu ? QStringList{"gpg", "dfu-util"} : QStringList{"gpg"});

        ProgramRun run(sandbox, args);
        QVERIFY2(TestSupport::answerBox(box), qPrintable(box + " box did not appear; running: " +
                                                          QString::number(run.isRunning()) + " " + run.output()));
        QVERIFY(run.waitForExit());
        QCOMPARE(run.exitCode(), 2);
        QCOMPARE(sandbox.log(), openingLines(sandbox, dfu) + logAfterOpening);
    }

    void commandLineIgnored_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<bool>("gpg");
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("title");
        QTest::newRow("mode user") << "user" << true << QStringList{"-h", "-a", "-d"} << version;
        QTest::newRow("internal without gpg") << "internal" << false << QStringList{"-h"} << version + noGpgSuffix;
    }

    void commandLineIgnored()
    {
        QFETCH(QString, mode);
        QFETCH(bool, gpg);
        QFETCH(QStringList, args);
        QFETCH(QString, title);
        Sandbox sandbox;
        if (!mode.isEmpty())
            sandbox.writeConfig({{"mode", mode}});
        sandbox.installProgram(gpg ? QStringList{"gpg", "dfu-util"} : QStringList{"dfu-util"});

        ProgramRun run(sandbox, args);
        QVERIFY2(mainWindowAppears(title), qPrintable(title));
        QVERIFY(!TestSupport::windowExists("HELP") && !TestSupport::windowExists("PARAMETER ERROR"));
        QVERIFY(run.isRunning());
        const QString log = sandbox.log();
        QVERIFY(log.startsWith(openingLines(sandbox, true)));
        QCOMPARE(log.contains("Use zip files"), args.contains("-z") && mode == "internal" && gpg);
        QVERIFY(!log.contains("Internal Automatic Mode"));
        run.terminate();
    }

    // One program per folder, also where a link planted in place of the private folder
    // makes it take another (other owners: see tst_app); a crash keeps nobody out.
    void oneInstancePerFolder()
    {
        Sandbox sandbox;
        sandbox.installProgram({"gpg", "dfu-util"});
        const QString planted = sandbox.root() + "/planted";
        for (const char *file : {"/logfile.txt", "/ZelkoGPG/pubring.gpg"})
            QVERIFY(TestSupport::writeFile(planted + QLatin1String(file), "planted"));
        QVERIFY(QFile::link(planted, sandbox.workingRoot()));
        auto first = std::make_unique<ProgramRun>(sandbox, QStringList{});
        QVERIFY(mainWindowAppears(version));

        ProgramRun second(sandbox, {});
        QVERIFY(TestSupport::answerBox("ERROR"));
        QVERIFY(second.waitForExit());
        QCOMPARE(second.exitCode(), 2);
        QVERIFY(first->isRunning());

        first->kill9();
        first.reset();
        ProgramRun afterCrash(sandbox, {});
        QTest::qWait(1500);
        QVERIFY(afterCrash.isRunning());
        QVERIFY(!TestSupport::windowExists("ERROR"));
        afterCrash.terminate();

        QCOMPARE(QDir(planted).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden, QDir::Name),
                 (QStringList{"ZelkoGPG", "logfile.txt"}));
        QCOMPARE(TestSupport::readFile(planted + "/logfile.txt") + TestSupport::readFile(planted + "/ZelkoGPG/pubring.gpg"),
                 QByteArray("plantedplanted"));
        const QStringList used = QDir(sandbox.tmp()).entryList({"morvanta-*-*"}, QDir::Dirs);
        QCOMPARE(used.size(), 1);
        const QString instance = sandbox.tmp() + "/" + used.first() + "/instance-" + Platform::instanceKey(sandbox.cwd());
        QVERIFY(TestSupport::readFile(instance + "/logfile.txt").startsWith("Logfile path  \"" + QFile::encodeName(instance)));
        QCOMPARE(TestSupport::readFile(instance + "/ZelkoGPG/pubring.gpg"),
                 TestSupport::readFile(TestSupport::devKeyDir() + "/pubring.gpg"));
    }

    void languageSwitchRestartsInGerman()
    {
        Sandbox sandbox;
        sandbox.installProgram({"gpg", "dfu-util"});
        ProgramRun run(sandbox, {});
        QVERIFY(mainWindowAppears(version));
        QVERIFY(TestSupport::typeInto(version, "ctrl+g"));
        QVERIFY(TestSupport::answerBox("QUESTION")); // Yes is the default here
        // The same process comes up again, now in German.
        QVERIFY(TestSupport::answerBox("WILLKOMMEN"));
        QVERIFY(!TestSupport::waitForWindow(version).isEmpty());
        QVERIFY(run.isRunning());
        QCOMPARE(sandbox.configValue("language"), QString("German"));
        QVERIFY(sandbox.log().startsWith(openingLines(sandbox, true)));
        run.terminate();
    }

};

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_startup.moc"
