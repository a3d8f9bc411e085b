#include "app/log.h"
#include "app/settings.h"
#include "ui/dialog.h"

#include "testsupport.h"

#include <QApplication>
#include <QDir>
#include <QProcess>
#include <QSettings>
#include <QTest>

// Built twice: once beside a gpg (EXPECT_GPG 1, in a folder whose name has a blank)
// and once without (EXPECT_GPG 0).
class TestSettings : public QObject
{
    Q_OBJECT
    TestSupport::Sandbox sandbox;
    const QString origCwd = QDir::currentPath();

    QString homeFile() const { return sandbox.home() + "/Morvanta_config.ini"; }
    void resetHome()
    {
        QFile::remove(homeFile());
        for (const char *marker : {"DE", "EN"})
            QFile::remove(sandbox.cwd() + "/" + QLatin1String(marker));
    }
    void touch(const QString &path)
    {
        QFile f(path);
        QVERIFY(f.open(QIODevice::WriteOnly));
    }

private slots:
    void initTestCase()
    {
        QVERIFY(sandbox.isValid());
        qputenv("HOME", QFile::encodeName(sandbox.home()));
        qputenv("TMPDIR", QFile::encodeName(sandbox.tmp()));
        QVERIFY(QDir::setCurrent(sandbox.cwd()));
        Log::setFolder(sandbox.root());
        qInstallMessageHandler(logMessageHandler);
        QCOMPARE(QFile::exists(QCoreApplication::applicationDirPath() + "/gpg"), bool(EXPECT_GPG));
    }

    void cleanupTestCase() { QDir::setCurrent(origCwd); }

    void init()
    {
        resetHome();
        clearLogFile();
    }

    void firstStart()
    {
        {
            Settings settings(static_cast<QObject *>(nullptr));
            QVERIFY(settings.getValue("language").isEmpty());
            QVERIFY(settings.isHttp());
            QCOMPARE(settings.isGpgAvailable(), bool(EXPECT_GPG));
        }
        const QString log = QString::fromLocal8Bit(TestSupport::readFile(Log::filePath()));
        QVERIFY(log.contains("Copy config file to home directory! \n\"Copy configuration file to: " + homeFile() +
                             "\" \n"));
        QVERIFY(log.contains("Application directory \"" + QCoreApplication::applicationDirPath() + "\" \n"));
        const QString gpgPath = QCoreApplication::applicationDirPath() + "/gpg";
        QVERIFY(log.contains("Search gpg:  \"" + gpgPath + "\" ... \n" +
                             (EXPECT_GPG ? "...Found gpg \n" : "...No gpg \n")));
        QSettings written(homeFile(), QSettings::IniFormat);
        QCOMPARE(written.allKeys(), QStringList{"Path"});
        QCOMPARE(written.value("Path").toString(), QCoreApplication::applicationDirPath());
    }

    void secondStartSaysNothingOfCopying()
    {
        sandbox.writeConfig({{"language", "English"}});
        { Settings settings(static_cast<QObject *>(nullptr)); }
        QVERIFY(!TestSupport::readFile(Log::filePath()).contains("Copy config"));
    }

    void languageMarkers_data()
    {
        QTest::addColumn<QStringList>("markers");
        QTest::addColumn<QString>("stored");
        QTest::addColumn<QString>("expected");
        QTest::newRow("none") << QStringList{} << "" << "";
        QTest::newRow("DE") << QStringList{"DE"} << "" << "German";
        QTest::newRow("EN") << QStringList{"EN"} << "" << "English";
        QTest::newRow("both: DE wins") << QStringList{"DE", "EN"} << "" << "German";
        QTest::newRow("set language stays") << QStringList{"DE"} << "English" << "English";
    }

    void languageMarkers()
    {
        QFETCH(QStringList, markers);
        QFETCH(QString, stored);
        for (const QString &marker : markers)
            touch(sandbox.cwd() + "/" + marker);
        if (!stored.isEmpty())
            sandbox.writeConfig({{"language", stored}});
        { Settings settings(static_cast<QObject *>(nullptr)); }
        QTEST(sandbox.configValue("language"), "expected");
    }

    void httpKey_data()
    {
        QTest::addColumn<QString>("value"); // "<absent>" leaves the key out
        QTest::addColumn<bool>("http");
        QTest::newRow("false") << "false" << false;
        QTest::newRow("FALSE") << "FALSE" << true;
        QTest::newRow("0") << "0" << true;
        QTest::newRow("true") << "true" << true;
        QTest::newRow("absent") << "<absent>" << true;
    }

    void httpKey()
    {
        QFETCH(QString, value);
        if (value != "<absent>")
            sandbox.writeConfig({{"http", value}});
        Settings settings(static_cast<QObject *>(nullptr));
        QTEST(settings.isHttp(), "http");
    }

    void settersWriteThrough()
    {
        {
            Settings settings(static_cast<QObject *>(nullptr));
            settings.setHttp(false);
            settings.setSearchPath("/fw/Tessel_NINE_V1_2_3.OS.zip.gpg");
            settings.setSearchPathBrioMel("");
            settings.setValue("language", "German");
        }
        Settings again(static_cast<QObject *>(nullptr));
        QVERIFY(!again.isHttp());
        QCOMPARE(again.getSearchPath(), QString("/fw/Tessel_NINE_V1_2_3.OS.zip.gpg"));
        QCOMPARE(again.getValue("language"), QString("German"));
        QCOMPARE(sandbox.configValue("http"), QString("false"));
        QSettings written(homeFile(), QSettings::IniFormat);
        QVERIFY(written.contains("searchPathBrioMel"));
    }

    void toolPathsSurviveBlanks_data()
    {
        QTest::addColumn<QString>("tool");
        QTest::newRow("dfu-util") << "dfu-util";
        QTest::newRow("detector") << "detector";
        QTest::newRow("xmodem-util") << "xmodem-util";
        QTest::newRow("gpg") << "gpg";
    }

    void toolPathsSurviveBlanks()
    {
        QFETCH(QString, tool);
        Settings settings(static_cast<QObject *>(nullptr));
        const QString path = tool == "dfu-util"      ? settings.getDfuUtilPath()
                             : tool == "detector"    ? settings.getDetectorPath()
                             : tool == "xmodem-util" ? settings.getXmodemUtilPath()
                                                     : settings.getGpgPath();
        const QString bare = QCoreApplication::applicationDirPath() + "/" + tool;
        QCOMPARE(path, "\"" + bare + "\"");
        // What a command line made of it names: one program, blanks and all.
        QCOMPARE(QProcess::splitCommand(path), QStringList{bare});
    }

    void filters_data()
    {
        QTest::addColumn<bool>("useZip");
        QTest::addColumn<QString>("firmware");
        QTest::addColumn<QString>("bootloader");
        QTest::addColumn<QString>("nameFilter");
        const bool gpg = EXPECT_GPG;
        QTest::newRow("signed unless zip asked")
            << false << (gpg ? "Files(*.PR.zip.gpg *.OS.zip.gpg)" : "Files(*.PR.zip *.OS.zip)")
            << (gpg ? "Files(*.BL.zip.gpg)" : "Files(*.BL.zip)") << (gpg ? "Tessel_NINE*zip.gpg" : "Tessel_NINE*.zip");
        QTest::newRow("zip asked") << true << "Files(*.PR.zip *.OS.zip)" << "Files(*.BL.zip)" << "Tessel_NINE*.zip";
    }

    void filters()
    {
        QFETCH(bool, useZip);
        Settings settings(static_cast<QObject *>(nullptr));
        QTEST(settings.getFirmwareFilter(useZip), "firmware");
        QTEST(settings.getBootloaderFilter(useZip), "bootloader");
        QTEST(settings.getTesselNINENameFilter(useZip), "nameFilter");
    }

    void urls_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("user");
        QTest::addColumn<QString>("expected"); // behind the base URL; CRED stands for the credentials query

        QTest::newRow("tessel latest list") << "tl" << "" << "/getFileList.php?Folder=TesselNINE_Latest&CRED";
        QTest::newRow("brio latest list") << "bl" << "" << "/getFileList.php?Folder=BRIO_MEL_Latest&CRED";
        QTest::newRow("bootloader list") << "bootl" << "" << "/getFileList.php?Folder=TesselNINE_Bootloader&CRED";
        QTest::newRow("tessel unstable, no user") << "tu" << "" << "/getFileList.php?Folder=TesselNINE_Unstable&CRED";
        QTest::newRow("tessel unstable, user") << "tu" << "jdoe" << "/getFileList.php?Folder=TesselNINE_Unstable/jdoe&CRED";
        QTest::newRow("brio unstable, odd user") << "bu" << "a b&c" << "/getFileList.php?Folder=BRIO_MEL_Unstable/a b&c&CRED";
        QTest::newRow("tessel latest file") << "tlf" << "" << "/TesselNINE_Latest/";
        QTest::newRow("brio latest file") << "blf" << "" << "/BRIO_MEL_Latest/";
        QTest::newRow("bootloader file") << "bootlf" << "" << "/TesselNINE_Bootloader/";
        QTest::newRow("tessel unstable file") << "tuf" << "" << "/TesselNINE_Unstable/";
        QTest::newRow("tessel unstable file, user") << "tuf" << "jdoe" << "/TesselNINE_Unstable/jdoe/";
        QTest::newRow("brio unstable file, user") << "buf" << "jdoe" << "/BRIO_MEL_Unstable/jdoe/";
    }

    void urls()
    {
        QFETCH(QString, kind);
        QFETCH(QString, user);
        QFETCH(QString, expected);
        Settings s(static_cast<QObject *>(nullptr));
        const QMap<QString, QString> urls{
            {"tl", s.getTesselNINELatestListUrl()},       {"bl", s.getBrioMelLatestListUrl()},
            {"bootl", s.getTesselNINEBootloaderListUrl()}, {"tu", s.getTesselNINEUnstableListUrl(user)},
            {"bu", s.getBrioMelUnstableListUrl(user)},     {"tlf", s.getTesselNINELatestFileUrl()},
            {"blf", s.getBrioMelLatestFileUrl()},          {"bootlf", s.getTesselNINEBootloaderFileUrl()},
            {"tuf", s.getTesselNINEUnstableFileUrl(user)}, {"buf", s.getBrioMelUnstableFileUrl(user)}};
        expected.replace("CRED", s.getCredentialsQuery());
        QCOMPARE(urls.value(kind), "http://127.0.0.1:8418/softwareupdate" + expected);
    }

    void credentialsDigest()
    {
        Settings settings(static_cast<QObject *>(nullptr));
        QCOMPARE(settings.getCredentialsQuery(),
                 "User=" + settings.getFtpUser() + "&PW=" + QString(MORVANTA_EXPECTED_CREDENTIALS_DIGEST));
        QCOMPARE(settings.getFtpUser().size(), 13);
        QCOMPARE(settings.getFtpPassword().size(), 12);
        QVERIFY(!settings.getFtpUrl().isEmpty());
    }

    void removeFolder()
    {
        const QString top = sandbox.root() + "/scratch";
        QDir().mkpath(top + "/sub/.hidden-dir");
        for (const char *f : {"/a.sys", "/.hidden", "/sub/b", "/sub/.hidden-dir/c"})
            touch(top + QLatin1String(f));
        const QString outside = sandbox.root() + "/outside";
        QDir().mkpath(outside);
        touch(outside + "/precious");
        QVERIFY(QFile::link(outside, top + "/sub/link-out"));

        QVERIFY(Settings::removeFolder(top));
        QVERIFY(!QFileInfo::exists(top));
        QVERIFY(QFile::exists(outside + "/precious"));
        QVERIFY(Settings::removeFolder(top)); // absent counts as removed
    }

    void workingFoldersOfTheWindow()
    {
        const QString gpgHome = sandbox.workingRoot() + "/ZelkoGPG";
        const QString extract = sandbox.workingRoot() + "/ZelkoExtract";
        QDir().mkpath(gpgHome);
        touch(gpgHome + "/stray.key");
        QDir().mkpath(extract + "/os");
        touch(extract + "/os/old.sys");

        TestSupport::ModalAnswerer answerer;
        Dialog dialog(SearchOptions(), true, nullptr);
        QCOMPARE(answerer.answered(), 0);
        Settings *settings = dialog.getSettings();
        QCOMPARE(settings->getExtractFolder(), extract);
        QCOMPARE(settings->getGpgFolder(), gpgHome);
        QVERIFY(QDir(extract).isEmpty());
        if (EXPECT_GPG) {
            QCOMPARE(QDir(gpgHome).entryList(QDir::Files | QDir::Hidden), (QStringList{"pubring.gpg", "trustdb.gpg"}));
            QCOMPARE(TestSupport::readFile(gpgHome + "/pubring.gpg"),
                     TestSupport::readFile(TestSupport::devKeyDir() + "/pubring.gpg"));
            QCOMPARE(TestSupport::readFile(gpgHome + "/trustdb.gpg"),
                     TestSupport::readFile(TestSupport::devKeyDir() + "/trustdb.gpg"));
            QCOMPARE(QFileInfo(gpgHome).permissions() & 0x0077, QFileDevice::Permissions());
        } else {
            // Without gpg the folder is left exactly as it was.
            QCOMPARE(QDir(gpgHome).entryList(QDir::Files), QStringList{"stray.key"});
        }
    }

    void extractFolderThatCannotBeMade()
    {
        TestSupport::ModalAnswerer answerer;
        Dialog dialog(SearchOptions(), true, nullptr);
        Settings *settings = dialog.getSettings();
        // A file where the folder should be: it can be neither emptied nor made.
        QVERIFY(Settings::removeFolder(settings->getExtractFolder()));
        touch(settings->getExtractFolder());
        settings->createExtractFolder();
        QFile::remove(settings->getExtractFolder());
        QCOMPARE(answerer.titles, (QStringList{"WARNING", "WARNING"}));
        QCOMPARE(answerer.texts, (QStringList{"Unable to delete Temp Folder - Restart Application",
                                              "Unable to create Temp Folder - Restart Application"}));
    }
};

QTEST_MAIN(TestSettings)
#include "tst_settings.moc"
