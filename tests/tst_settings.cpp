#include "app/log.h"
#include "app/settings.h"
#include "ui/dialog.h"

#include "testsupport.h"

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
    QString log() const { return QString::fromLocal8Bit(TestSupport::readFile(Log::filePath())); }
    static void touch(const QString &path)
    {
        QFile f(path);
        QVERIFY(f.open(QIODevice::WriteOnly));
    }

private slots:
    void initTestCase()
    {
        QVERIFY(QDir::setCurrent(sandbox.cwd()));
        TestSupport::useSandbox(sandbox);
        QCOMPARE(QFile::exists(QCoreApplication::applicationDirPath() + "/gpg"), bool(EXPECT_GPG));
    }

    void cleanupTestCase() { QDir::setCurrent(origCwd); }

    void init()
    {
        QFile::remove(homeFile());
        for (const char *marker : {"DE", "EN"})
            QFile::remove(sandbox.cwd() + "/" + QLatin1String(marker));
        clearLogFile();
    }

    void firstAndSecondStart()
    {
        {
            Settings settings(static_cast<QObject *>(nullptr));
            QVERIFY(settings.getValue("language").isEmpty());
            QVERIFY(settings.isHttp());
            QCOMPARE(settings.isGpgAvailable(), bool(EXPECT_GPG));
            // The tool's path keeps its blank through the command line it goes into.
            QCOMPARE(QProcess::splitCommand(settings.getDfuUtilPath()),
                     QStringList{QCoreApplication::applicationDirPath() + "/dfu-util"});
        }
        const QString gpgPath = QCoreApplication::applicationDirPath() + "/gpg";
        QVERIFY(log().contains("Copy config file to home directory! \n\"Copy configuration file to: " + homeFile() +
                               "\" \n"));
        QVERIFY(log().contains("Search gpg:  \"" + gpgPath + "\" ... \n" +
                               (EXPECT_GPG ? "...Found gpg \n" : "...No gpg \n")));
        QSettings written(homeFile(), QSettings::IniFormat);
        QCOMPARE(written.allKeys(), QStringList{"Path"});
        QCOMPARE(written.value("Path").toString(), QCoreApplication::applicationDirPath());

        clearLogFile();
        { Settings again(static_cast<QObject *>(nullptr)); }
        QVERIFY(!log().contains("Copy config"));
    }

    void languageMarkers_data()
    {
        QTest::addColumn<QStringList>("markers");
        QTest::addColumn<QString>("stored");
        QTest::addColumn<QString>("expected");
        QTest::newRow("none") << QStringList{} << "" << "";
        QTest::newRow("EN") << QStringList{"EN"} << "" << "English";
        QTest::newRow("both: DE wins") << QStringList{"EN", "DE"} << "" << "German";
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
        }
        Settings again(static_cast<QObject *>(nullptr));
        QVERIFY(!again.isHttp());
        QCOMPARE(again.getSearchPath(), QString("/fw/Tessel_NINE_V1_2_3.OS.zip.gpg"));
        QCOMPARE(sandbox.configValue("http"), QString("false"));
        QVERIFY(QSettings(homeFile(), QSettings::IniFormat).contains("searchPathBrioMel"));
    }

    void signedFormsOnlyWithGpg()
    {
        Settings settings(static_cast<QObject *>(nullptr));
        const bool gpg = EXPECT_GPG;
        QCOMPARE(settings.getFirmwareFilter(false),
                 QString(gpg ? "Files(*.PR.zip.gpg *.OS.zip.gpg)" : "Files(*.PR.zip *.OS.zip)"));
        QCOMPARE(settings.getFirmwareFilter(true), QString("Files(*.PR.zip *.OS.zip)"));
        QCOMPARE(settings.getTesselNINENameFilter(false), QString(gpg ? "Tessel_NINE*zip.gpg" : "Tessel_NINE*.zip"));
        // An independent digest of the build's password; the password itself never travels.
        QCOMPARE(settings.getCredentialsQuery(),
                 "User=" + settings.getFtpUser() + "&PW=" + QString(MORVANTA_EXPECTED_CREDENTIALS_DIGEST));
    }

    void workingFoldersOfTheWindow()
    {
        const QString gpgHome = sandbox.instanceFolder() + "/ZelkoGPG";
        const QString extract = sandbox.instanceFolder() + "/ZelkoExtract";
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
        QCOMPARE(answerer.texts, (QStringList{"Unable to delete Temp Folder - Restart Application",
                                              "Unable to create Temp Folder - Restart Application"}));
        QCOMPARE(answerer.titles, (QStringList{"WARNING", "WARNING"}));
    }
};

QTEST_MAIN(TestSettings)
#include "tst_settings.moc"
