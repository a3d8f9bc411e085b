// The two Debian packages as apt would install them: what each holds and pulls in,
// lintian's verdict, and the installed programs, unpacked into scratch roots, flashing
// against the system's own gpg and dfu-util with no device plugged in.
#include "firmwarekit.h"
#include "windowsupport.h"

#include <QDir>
#include <QJsonDocument>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTest>

#include <unistd.h>


using TestSupport::ProgramRun;
using TestSupport::Sandbox;

namespace {

struct Result {
    int exitCode = -1;
    QString output;
};

Result run(const QString &program, const QStringList &args, const QString &cwd = QString())
{
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.setWorkingDirectory(cwd);
    p.start(program, args);
    if (!p.waitForFinished(300000) || p.exitStatus() != QProcess::NormalExit)
        return {-1, QString::fromUtf8(p.readAll())};
    return {p.exitCode(), QString::fromUtf8(p.readAll())};
}

} // namespace

class TestPackage : public QObject
{
    Q_OBJECT
    QTemporaryDir work;
    QMap<QString, QString> debs; // package name: its file
    // The station alone, as a line PC without a display installs it; and the window,
    // which comes with the station it depends on.
    QString stationRoot() const { return work.path() + "/station"; }
    QString windowRoot() const { return work.path() + "/window"; }

    // Every file and link of a package, by path, with a link's target.
    QMap<QString, QString> contentsOf(const QString &package)
    {
        QMap<QString, QString> found;
        for (const QString &line : run("dpkg-deb", {"-c", debs[package]}).output.split('\n', Qt::SkipEmptyParts)) {
            if (line.startsWith('d'))
                continue;
            const QString entry = line.section(" ./", 1);
            found.insert("/" + entry.section(" -> ", 0, 0), entry.section(" -> ", 1));
        }
        return found;
    }
    QStringList dependsOf(const QString &package)
    {
        QStringList names;
        for (const QString &entry : run("dpkg-deb", {"-f", debs[package], "Depends"}).output.split(',', Qt::SkipEmptyParts))
            names << entry.trimmed().section(' ', 0, 0);
        return names;
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run under xvfb-run");
        const Result made = run(MORVANTA_CPACK, {"-G", "DEB", "-B", work.path() + "/out"}, MORVANTA_TEST_BUILD_DIR);
        QVERIFY2(made.exitCode == 0, qPrintable(made.output));
        for (const QString &file : QDir(work.path() + "/out").entryList({"*.deb"}, QDir::Files))
            debs.insert(file.section('_', 0, 0), work.path() + "/out/" + file);
        QCOMPARE(debs.keys(), (QStringList{"morvanta", "morvanta-station"}));
        for (const auto &[root, packages] : {std::pair{stationRoot(), QStringList{"morvanta-station"}},
                                             std::pair{windowRoot(), QStringList{"morvanta-station", "morvanta"}}})
        {
            for (const QString &package : packages)
                QCOMPARE(run("dpkg-deb", {"-x", debs[package], root}).exitCode, 0);
            // What the packages depend on, installed as the system has it.
            for (const char *tool : {"gpg", "dfu-util"})
                QVERIFY(QFile::link(QString("/usr/bin/") + tool, root + "/usr/bin/" + tool));
        }
    }

    // Exactly these files and links, each in one package: no simulator, no test program.
    void contents()
    {
        const QMap<QString, QString> station{
            {"/usr/bin/morvanta-station", "../lib/morvanta/morvanta-station"},
            {"/usr/lib/morvanta/morvanta-station", ""},
            {"/usr/lib/morvanta/gpg", "../../bin/gpg"},
            {"/usr/lib/morvanta/dfu-util", "../../bin/dfu-util"},
            {"/usr/lib/udev/rules.d/70-morvanta.rules", ""},
            {"/usr/lib/systemd/system/morvanta-station.service", ""},
            {"/etc/default/morvanta-station", ""},
            {"/usr/share/man/man1/morvanta-station.1.gz", ""},
            {"/usr/share/bash-completion/completions/morvanta-station", ""},
            {"/usr/share/doc/morvanta-station/copyright", ""},
            {"/usr/share/doc/morvanta-station/changelog.gz", ""},
        };
        const QMap<QString, QString> window{
            {"/usr/bin/morvanta", "../lib/morvanta/morvanta"},
            {"/usr/lib/morvanta/morvanta", ""},
            {"/usr/lib/morvanta/Manual_en.pdf", ""},
            {"/usr/lib/morvanta/Manual_de.pdf", ""},
            {"/usr/share/applications/com.zelko.morvanta.desktop", ""},
            {"/usr/share/metainfo/com.zelko.morvanta.metainfo.xml", ""},
            {"/usr/share/icons/hicolor/scalable/apps/com.zelko.morvanta.svg", ""},
            {"/usr/share/icons/hicolor/128x128/apps/com.zelko.morvanta.png", ""},
            {"/usr/share/man/man1/morvanta.1.gz", ""},
            {"/usr/share/doc/morvanta/copyright", ""},
            {"/usr/share/doc/morvanta/changelog.gz", ""},
        };
        QCOMPARE(contentsOf("morvanta-station"), station);
        QCOMPARE(contentsOf("morvanta"), window);
        // The links lead to the system's tools from where they stand.
        QCOMPARE(QFileInfo(stationRoot() + "/usr/lib/morvanta/gpg").symLinkTarget(), stationRoot() + "/usr/bin/gpg");
        QVERIFY(run("grep", {"-q", "libzip", stationRoot() + "/usr/share/doc/morvanta-station/copyright"}).exitCode == 0);
        // The service's settings survive an upgrade; its user is made on installation.
        QCOMPARE(run("dpkg-deb", {"-I", debs["morvanta-station"], "conffiles"}).output.trimmed(),
                 QString("/etc/default/morvanta-station"));
        QVERIFY(run("dpkg-deb", {"-I", debs["morvanta-station"], "postinst"}).output.contains("adduser --system --group"));
    }

    // The service is fenced: systemd rates the unit at most 4.5 ("OK" is below 5).
    void serviceFenced()
    {
        if (QStandardPaths::findExecutable("systemd-analyze").isEmpty())
            QSKIP("needs systemd-analyze");
        const Result rated = run("systemd-analyze", {"security", "--offline=true",
                                                     stationRoot() + "/usr/lib/systemd/system/morvanta-station.service"});
        const QRegularExpressionMatch level =
            QRegularExpression("Overall exposure level for morvanta-station.service: ([0-9.]+)").match(rated.output);
        QVERIFY2(level.hasMatch(), qPrintable(rated.output));
        QVERIFY2(level.captured(1).toDouble() <= 4.5, qPrintable(rated.output));
    }

    // The package's scripts as dpkg runs them on a systemd machine (in a mount namespace
    // of the test's own, with stand-ins for the commands they call): removal stops the
    // service, an upgrade restarts a running one, a first installation starts nothing;
    // the password file of the central record is made for the service's group alone.
    void maintainerScripts_data()
    {
        QTest::addColumn<QString>("script");
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QStringList>("service"); // what is asked of morvanta-station.service
        QTest::newRow("removed") << "prerm" << QStringList{"remove"} << QStringList{"stop"};
        QTest::newRow("upgraded") << "prerm" << QStringList{"upgrade", "3.1"} << QStringList{};
        QTest::newRow("configured after an upgrade") << "postinst" << QStringList{"configure", "3.0"}
                                                     << QStringList{"try-restart"};
        QTest::newRow("configured first") << "postinst" << QStringList{"configure", ""} << QStringList{};
    }

    void maintainerScripts()
    {
        QFETCH(QString, script);
        QFETCH(QStringList, args);
        const QString control = work.path() + "/control";
        QCOMPARE(run("dpkg-deb", {"-e", debs["morvanta-station"], control}).exitCode, 0);
        const QString standIns = work.path() + "/stand-ins";
        const QString calls = work.path() + "/calls-" + QString(QTest::currentDataTag()).replace(' ', '-');
        for (const char *command : {"deb-systemd-invoke", "systemctl", "adduser", "udevadm", "install"})
            QVERIFY(TestSupport::writeFile(standIns + "/" + command,
                                           "#!/bin/sh\necho \"$(basename \"$0\") $*\" >> \"$CALLS\"\n") &&
                    QFile::setPermissions(standIns + "/" + command, QFile::ReadOwner | QFile::WriteOwner |
                                                                          QFile::ExeOwner | QFile::ReadOther |
                                                                          QFile::ExeOther));
        QProcess shell;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("PATH", standIns + ":" + env.value("PATH"));
        env.insert("CALLS", calls);
        shell.setProcessEnvironment(env);
        shell.setProcessChannelMode(QProcess::MergedChannels);
        const QStringList user = getuid() == 0 ? QStringList{} : QStringList{"--map-root-user"};
        shell.start("unshare", user + QStringList{"--mount", "sh", "-c",
                                                  "mount -t tmpfs tmpfs /run && mkdir -p /run/systemd/system /run/udev && "
                                                  "exec sh \"$0\" \"$@\"",
                                                  control + "/" + script} + args);
        QVERIFY(shell.waitForFinished(20000));
        QVERIFY2(shell.exitCode() == 0, shell.readAll().constData());
        QStringList asked;
        for (const QString &line : QString::fromUtf8(TestSupport::readFile(calls)).split('\n', Qt::SkipEmptyParts)) {
            if (line.startsWith("deb-systemd-invoke ") && line.endsWith(" morvanta-station.service"))
                asked << line.section(' ', 1, 1);
        }
        QTEST(asked, "service");
        // The central record's password file: the service's group reads it, nobody else.
        if (script == "postinst")
            QVERIFY(TestSupport::readFile(calls).contains("install -m 0640 -o root -g morvanta /dev/null /etc/morvanta/pgpass\n"));
    }

    // The station needs no display: neither its package nor its program pulls in Qt's
    // Gui or Widgets or an X library. The window brings the station.
    void dependencies()
    {
        const QStringList station = dependsOf("morvanta-station");
        for (const char *needed : {"gpg", "dfu-util", "adduser", "libqt6core6", "libqt6network6", "libqt6sql6-sqlite",
                                   "libqt6sql6-psql", "libzip4", "libcurl4"})
            QVERIFY2(station.contains(needed), needed);
        const QRegularExpression display("^(libqt6gui|libqt6widgets|qt6-qpa|libx11|libxcb|libgl|libegl)");
        QCOMPARE(station.filter(display), QStringList{});
        const Result libraries = run("ldd", {stationRoot() + "/usr/lib/morvanta/morvanta-station"});
        QCOMPARE(libraries.exitCode, 0);
        QVERIFY2(!libraries.output.contains(QRegularExpression("libQt6(Gui|Widgets)|libX11|libxcb")), qPrintable(libraries.output));
        for (const char *needed : {"morvanta-station", "qt6-qpa-plugins", "libqt6widgets6"})
            QVERIFY2(dependsOf("morvanta").contains(needed), needed);
    }

    void desktopMetadata()
    {
        const QString share = windowRoot() + "/usr/share";
        for (const Result &checked :
             {run("desktop-file-validate", {share + "/applications/com.zelko.morvanta.desktop"}),
              run("appstreamcli", {"validate", "--no-net", "--pedantic", share + "/metainfo/com.zelko.morvanta.metainfo.xml"})})
            QVERIFY2(checked.exitCode == 0 && !checked.output.contains(QRegularExpression("^[EWIP]:", QRegularExpression::MultilineOption)),
                     qPrintable(checked.output));
        // Started from the menu, the program runs in its own folder: the updater is
        // handed that folder, and the manuals are looked for there.
        const QString entry = QString::fromUtf8(TestSupport::readFile(share + "/applications/com.zelko.morvanta.desktop"));
        const QString folder = QRegularExpression("^Path=(.*)$", QRegularExpression::MultilineOption).match(entry).captured(1);
        QCOMPARE(folder, QString("/usr/lib/morvanta"));
        QVERIFY(QFileInfo(windowRoot() + folder + "/morvanta").isExecutable());
    }

    // Each manual as a PDF reader sees it: its pages, a picture of the window for every
    // figure, its language declared and its text in that language.
    void manuals_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("code");
        QTest::addColumn<QStringList>("words");
        QTest::newRow("English") << "Manual_en.pdf" << "en" << QStringList{"Figure 12", "USB Cable", "exit code"};
        QTest::newRow("German") << "Manual_de.pdf" << "de" << QStringList{"Abbildung 12", "USB-Kabel", "Rückgabewert"};
    }

    void manuals()
    {
        QFETCH(QString, file);
        const QString pdf = windowRoot() + "/usr/lib/morvanta/" + file;
        const Result info = run("pdfinfo", {pdf});
        QCOMPARE(info.exitCode, 0);
        const int pages = QRegularExpression("^Pages: +(\\d+)$", QRegularExpression::MultilineOption).match(info.output).captured(1).toInt();
        QVERIFY2(pages >= 8, qPrintable(info.output));
        QFETCH(QString, code);
        const Result metadata = run("pdfinfo", {"-meta", pdf});
        QVERIFY2(metadata.output.contains("<dc:language><rdf:Bag><rdf:li>" + code + "</rdf:li></rdf:Bag></dc:language>"),
                 qPrintable(metadata.output));
        // One row per picture below the list's two header lines; each a grab of the window.
        const QStringList images = run("pdfimages", {"-list", pdf}).output.split('\n', Qt::SkipEmptyParts).mid(2);
        QCOMPARE(images.size(), 12);
        const QString text = run("pdftotext", {pdf, "-"}).output;
        QFETCH(QStringList, words);
        for (const QString &word : words)
            QVERIFY2(text.contains(word), qPrintable(word));
    }

    // F1 in the installed window, started in its folder as the desktop entry starts it,
    // opens the manual of the window's language from there.
    void manualBehindF1_data()
    {
        QTest::addColumn<QString>("language");
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("welcome");
        QTest::addColumn<bool>("fromMenu"); // started in its folder as the desktop entry does, or elsewhere
        QTest::newRow("English") << "English" << "Manual_en.pdf" << "WELCOME" << true;
        QTest::newRow("German") << "German" << "Manual_de.pdf" << "WILLKOMMEN" << true;
        QTest::newRow("typed in a terminal elsewhere") << "English" << "Manual_en.pdf" << "WELCOME" << false;
    }

    void manualBehindF1()
    {
        QFETCH(QString, language);
        QFETCH(QString, file);
        Sandbox sandbox;
        sandbox.writeConfig({{"language", language}});
        // A stand-in for the desktop's opener records what it was asked to open.
        const QString opener = sandbox.root() + "/opener";
        QVERIFY(QDir().mkpath(opener));
        const QString asked = sandbox.root() + "/asked.txt";
        TestSupport::writeFile(opener + "/xdg-open", "#!/bin/sh\nprintf '%s\\n' \"$@\" >> '" + asked.toUtf8() + "'\n");
        QVERIFY(QFile::setPermissions(opener + "/xdg-open", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        QProcessEnvironment env;
        env.insert("PATH", opener + ":" + qEnvironmentVariable("PATH"));
        // The program names the folder it runs in as the system gives it: no link in it.
        const QString folder = QDir(windowRoot() + "/usr/lib/morvanta").canonicalPath();

        QFETCH(bool, fromMenu);
        ProgramRun program(sandbox, {}, fromMenu ? folder : sandbox.cwd(), env, folder + "/morvanta");
        const QString title = "Morvanta.03.20260616.0";
        QFETCH(QString, welcome);
        QVERIFY(TestSupport::answerBox(welcome));
        QVERIFY(!TestSupport::waitForWindow(title).isEmpty());
        QVERIFY(TestSupport::typeInto(title, "F1"));
        QTRY_COMPARE_WITH_TIMEOUT(QString::fromUtf8(TestSupport::readFile(asked)), "file://" + folder + "/" + file + "\n",
                                  15000);
        QVERIFY(TestSupport::closeWindow(title));
        QVERIFY(program.waitForExit());
    }

    // Debian's own checker finds neither an error nor a warning in either package.
    void lintianPasses()
    {
        const Result checked = run("lintian", {"--fail-on", "error,warning", debs["morvanta"], debs["morvanta-station"]});
        QVERIFY2(checked.exitCode == 0 && !checked.output.contains(QRegularExpression("^[EW]:", QRegularExpression::MultilineOption)),
                 qPrintable(checked.output));
    }

    // apt resolves everything the packages ask for from Debian's own archive.
    void aptResolves()
    {
        if (run("apt-cache", {"show", "libqt6widgets6"}).exitCode != 0)
            QSKIP("apt has no package lists on this machine");
        const Result plan = run("apt-get", {"install", "--simulate", "--no-install-recommends", debs["morvanta"],
                                            debs["morvanta-station"]});
        QVERIFY2(plan.exitCode == 0 && plan.output.contains(QRegularExpression("Inst morvanta-station|morvanta-station is already")),
                 qPrintable(plan.output));
    }

    // The installed program finds its tools through its links, runs the real gpg on a
    // signed package and the real dfu-util, and ends with the verdict of no device.
    void installedProgramRuns()
    {
        if (run("/usr/bin/dfu-util", {"-l"}).output.contains("[2675:0001]"))
            QSKIP("A Tessel NINE is plugged in: it is not flashed with test data");
        TestSupport::FirmwareKit kit;
        QTemporaryDir firmware;
        QCOMPARE(kit.makePackage(firmware.path(), "Tessel_NINE_V1_2_4", 2, 1, 4000, true).size(), 2);
        Sandbox sandbox;
        sandbox.writeConfig({{"mode", "internal"}});

        ProgramRun program(sandbox, {"-a", "-p", firmware.path()}, QString(), QProcessEnvironment(),
                           windowRoot() + "/usr/bin/morvanta");
        QVERIFY(TestSupport::answerBox("ERROR", 60000));
        QVERIFY2(program.waitForExit(60000), qPrintable(program.output()));
        QCOMPARE(program.exitCode(), 2);
        const QString log = sandbox.log();
        QVERIFY2(log.contains("Application directory \"" + windowRoot() + "/usr/lib/morvanta\""), qPrintable(log));
        QVERIFY(log.contains("...Found gpg"));
        QVERIFY(log.contains("**** Morvanta uses encryption mechanism ****"));
        QVERIFY(log.contains("\"dfu-util 0."));
        QVERIFY(log.contains("Device is not connected"));
        QCOMPARE(sandbox.lastLogLine(), QString("\"Morvanta exit 2\" "));

        // The station installed alone, with no display: the same tools, no device.
        QProcess station;
        QProcessEnvironment env = sandbox.environment();
        env.remove("DISPLAY");
        station.setProcessEnvironment(env);
        station.start(stationRoot() + "/usr/bin/morvanta-station", {"flash", "--json", firmware.path()});
        QVERIFY(station.waitForFinished(60000));
        QCOMPARE(station.exitCode(), 2);
        const QList<QByteArray> lines = station.readAllStandardOutput().trimmed().split('\n');
        QCOMPARE(QJsonDocument::fromJson(lines.value(0))["text"].toString(), QString("Device is not connected"));
        QCOMPARE(QJsonDocument::fromJson(lines.value(1))["event"].toString(), QString("result"));
    }
};

QTEST_GUILESS_MAIN(TestPackage)
#include "tst_package.moc"
