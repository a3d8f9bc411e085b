// The Debian package as apt would install it: what it holds, what it pulls in, and the
// installed program, unpacked into a scratch root, flashing against the system's own
// gpg and dfu-util with no device plugged in.
#include "firmwarekit.h"
#include "windowsupport.h"

#include <QDir>
#include <QJsonDocument>
#include <QProcess>
#include <QTest>


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
    QString deb;
    QString root() const { return work.path() + "/root"; }

private slots:
    void initTestCase()
    {
        QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run under xvfb-run");
        const Result made = run(MORVANTA_CPACK, {"-G", "DEB", "-B", work.path() + "/out"}, MORVANTA_TEST_BUILD_DIR);
        QVERIFY2(made.exitCode == 0, qPrintable(made.output));
        const QStringList debs = QDir(work.path() + "/out").entryList({"morvanta_*.deb"}, QDir::Files);
        QCOMPARE(debs.size(), 1);
        deb = work.path() + "/out/" + debs.first();
        const Result unpacked = run("dpkg-deb", {"-x", deb, root()});
        QVERIFY2(unpacked.exitCode == 0, qPrintable(unpacked.output));
    }

    // Exactly these files and links, nothing else: no simulator, no test program.
    void contents()
    {
        const QMap<QString, QString> expected{
            {"/usr/bin/morvanta", "../lib/morvanta/morvanta"},
            {"/usr/bin/morvanta-station", "../lib/morvanta/morvanta-station"},
            {"/usr/lib/morvanta/morvanta", ""},
            {"/usr/lib/morvanta/morvanta-station", ""},
            {"/usr/lib/morvanta/gpg", "/usr/bin/gpg"},
            {"/usr/lib/morvanta/dfu-util", "/usr/bin/dfu-util"},
            {"/usr/share/applications/com.zelko.morvanta.desktop", ""},
            {"/usr/share/metainfo/com.zelko.morvanta.metainfo.xml", ""},
            {"/usr/share/icons/hicolor/scalable/apps/com.zelko.morvanta.svg", ""},
            {"/usr/share/icons/hicolor/128x128/apps/com.zelko.morvanta.png", ""},
            {"/usr/share/doc/morvanta/copyright", ""},
            {"/usr/lib/udev/rules.d/70-morvanta.rules", ""},
        };
        QMap<QString, QString> found;
        const Result listing = run("dpkg-deb", {"-c", deb});
        for (const QString &line : listing.output.split('\n', Qt::SkipEmptyParts)) {
            if (line.startsWith('d'))
                continue;
            const QString entry = line.section(" ./", 1);
            found.insert("/" + entry.section(" -> ", 0, 0), entry.section(" -> ", 1));
        }
        QCOMPARE(found, expected);
        QVERIFY(QFileInfo(root() + "/usr/lib/morvanta/morvanta").isExecutable());
        QVERIFY(run("grep", {"-q", "libzip", root() + "/usr/share/doc/morvanta/copyright"}).exitCode == 0);
    }

    void dependencies()
    {
        const Result depends = run("dpkg-deb", {"-f", deb, "Depends"});
        QCOMPARE(depends.exitCode, 0);
        QStringList names;
        for (const QString &entry : depends.output.split(',', Qt::SkipEmptyParts))
            names << entry.trimmed().section(' ', 0, 0);
        for (const char *needed : {"gpg", "dfu-util", "qt6-qpa-plugins", "libqt6widgets6", "libqt6network6",
                                   "libzip4", "libcurl4"})
            QVERIFY2(names.contains(needed), needed);
    }

    void desktopMetadata()
    {
        const QString share = root() + "/usr/share";
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
        QVERIFY(QFileInfo(root() + folder + "/morvanta").isExecutable());
    }

    // apt resolves everything the package asks for from Debian's own archive.
    void aptResolves()
    {
        if (run("apt-cache", {"show", "libqt6widgets6"}).exitCode != 0)
            QSKIP("apt has no package lists on this machine");
        const Result plan = run("apt-get", {"install", "--simulate", "--no-install-recommends", deb});
        const bool planned = plan.output.contains("Inst morvanta") || plan.output.contains("morvanta is already");
        QVERIFY2(plan.exitCode == 0 && planned, qPrintable(plan.output));
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
                           root() + "/usr/bin/morvanta");
        QVERIFY(TestSupport::answerBox("ERROR", 60000));
        QVERIFY2(program.waitForExit(60000), qPrintable(program.output()));
        QCOMPARE(program.exitCode(), 2);
        const QString log = sandbox.log();
        QVERIFY2(log.contains("Application directory \"" + root() + "/usr/lib/morvanta\""), qPrintable(log));
        QVERIFY(log.contains("...Found gpg"));
        QVERIFY(log.contains("**** Morvanta uses encryption mechanism ****"));
        QVERIFY(log.contains("\"dfu-util 0."));
        QVERIFY(log.contains("Device is not connected"));
        QCOMPARE(sandbox.lastLogLine(), QString("\"Morvanta exit 2\" "));

        // The station's front end beside it, with no display: the same tools, no device.
        QProcess station;
        QProcessEnvironment env = sandbox.environment();
        env.remove("DISPLAY");
        station.setProcessEnvironment(env);
        station.start(root() + "/usr/bin/morvanta-station", {"flash", "--json", firmware.path()});
        QVERIFY(station.waitForFinished(60000));
        QCOMPARE(station.exitCode(), 2);
        const QList<QByteArray> lines = station.readAllStandardOutput().trimmed().split('\n');
        QCOMPARE(QJsonDocument::fromJson(lines.value(0))["text"].toString(), QString("Device is not connected"));
        QCOMPARE(QJsonDocument::fromJson(lines.value(1))["event"].toString(), QString("result"));
    }
};

QTEST_GUILESS_MAIN(TestPackage)
#include "tst_package.moc"
