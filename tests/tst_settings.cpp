#include "app/log.h"
#include "app/settings.h"
#include "ui/dialog.h"

#include "windowsupport.h"

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

    void signedFormsOnlyWithGpg()
    {
        Settings settings(static_cast<QObject *>(nullptr));
        QCOMPARE(settings.getTesselNINENameFilter(false), QString(EXPECT_GPG ? "Tessel_NINE*zip.gpg" : "Tessel_NINE*.zip"));
        // An independent digest of the build's password; the password itself never travels.
        QCOMPARE(settings.getCredentialsQuery(),
                 "User=" + settings.getFtpUser() + "&PW=" + QString(MORVANTA_EXPECTED_CREDENTIALS_DIGEST));
    }

    void workingFoldersOfTheWindow()
    {
        const QString gpgHome = sandbox.instanceFolder() + "/ZelkoGPG";
        const QString extract = sandbox.instanceFolder() + "/ZelkoExtract";
        QDir().mkpath(gpgHome);
        TestSupport::writeFile(gpgHome + "/stray.key");
        QDir().mkpath(extract + "/os");
        TestSupport::writeFile(extract + "/os/old.sys");

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

};

QTEST_MAIN(TestSettings)
#include "tst_settings.moc"
