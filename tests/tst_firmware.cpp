// Firmware files without a device: names, the newest file of a folder, digests, zip
// archives made with libzip, and signature checks by the real gpg.
#include "app/log.h"
#include "app/settings.h"
#include "firmware/fileverify.h"
#include "firmware/gpgrun.h"
#include "firmware/hashing.h"
#include "firmware/zipextract.h"

#include "firmwarekit.h"
#include "testsupport.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using TestSupport::FirmwareKit;
using TestSupport::ZipEntries;
using Packing = FirmwareKit::Packing;

class TestFirmware : public QObject
{
    Q_OBJECT
    QTemporaryDir dir;
    FirmwareKit kit;

    QString log() const { return QString::fromLocal8Bit(TestSupport::readFile(Log::filePath())); }
    QString fresh(const QString &name)
    {
        const QString path = dir.path() + "/" + name;
        QDir(path).removeRecursively();
        QDir().mkpath(path);
        return path;
    }
    static void touch(const QString &path, const QByteArray &content = "x") { TestSupport::writeFile(path, content); }

private slots:
    void initTestCase()
    {
        Log::setFolder(dir.path());
        qInstallMessageHandler(logMessageHandler);
    }
    void init() { clearLogFile(); }

    void verifyTesselNINE_data()
    {
        QTest::addColumn<QString>("selected");
        QTest::addColumn<QStringList>("existing");
        QTest::addColumn<Fileverify::Result>("result");
        QTest::addColumn<QStringList>("flashFiles");
        const QString os = "fw/Tessel_NINE_01_02_03.OS.zip", pr = "fw/Tessel_NINE_01_02_03.PR.zip";
        using R = Fileverify::Result;
        QTest::newRow("PR selected, signed") << pr + ".gpg" << QStringList{os + ".gpg", pr + ".gpg"} << R::FilesFound
                                             << QStringList{pr + ".gpg", os + ".gpg"};
        QTest::newRow("partner missing") << os << QStringList{os} << R::CounterPartMissing << QStringList{os, pr};
        QTest::newRow("neither exists") << os << QStringList{} << R::NoFirmwareFile << QStringList{os, pr};
        QTest::newRow("not firmware") << "fw/readme.txt" << QStringList{"fw/readme.txt"} << R::NotFirmwareKind
                                      << QStringList{};
    }

    void verifyTesselNINE()
    {
        QFETCH(QString, selected);
        QFETCH(QStringList, existing);
        QFETCH(QStringList, flashFiles);
        const QString base = fresh("verify");
        for (const QString &f : existing)
            touch(base + "/" + f);
        Fileverify verify(base + "/" + selected);
        QTEST(verify.verify(Fileverify::Device::TesselNINE), "result");
        for (QString &f : flashFiles)
            f.prepend(base + "/");
        QCOMPARE(verify.getFlashFiles(), flashFiles);
    }

    void findNewest_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<bool>("debug");
        QTest::addColumn<bool>("zip");
        QTest::addColumn<QString>("expected");
        QTest::newRow("name order, not numbers")
            << QStringList{"Tessel_NINE_1_9_0.OS.zip.gpg", "Tessel_NINE_1_10_0.OS.zip.gpg", "Tessel_NINE_1_9_0.BL.zip.gpg"}
            << false << false << "Tessel_NINE_1_9_0.OS.zip.gpg";
        QTest::newRow("plain zips") << QStringList{"Tessel_NINE_1_0.OS.zip", "Tessel_NINE_1_1.OS.zip.gpg",
                                                   "Tessel_NINE_0_9.PR.zip", "Tessel_NINE_2.OS.zip.md5"}
                                    << false << true << "Tessel_NINE_1_0.OS.zip";
        QTest::newRow("debug signed") << QStringList{"Tessel_NINE_1_0_D.OS.zip.gpg", "Tessel_NINE_1_1.OS.zip.gpg"}
                                      << true << false << "Tessel_NINE_1_0_D.OS.zip.gpg";
        QTest::newRow("a folder with a fitting name is passed over")
            << QStringList{"Tessel_NINE_1.OS.zip.gpg", "Tessel_NINE_2.OS.zip.gpg/"} << false << false
            << "Tessel_NINE_1.OS.zip.gpg";
        QTest::newRow("nothing fits") << QStringList{"notes.txt", "x.BL.zip.gpg"} << false << false << "";
    }

    void findNewest()
    {
        QFETCH(QStringList, files);
        QFETCH(bool, debug);
        QFETCH(bool, zip);
        QFETCH(QString, expected);
        const QString folder = fresh("newest");
        for (const QString &f : files) {
            if (f.endsWith('/'))
                QDir().mkpath(folder + "/" + f);
            else
                touch(folder + "/" + f);
        }
        SearchOptions options;
        options.debug = debug;
        options.searchPath = folder;
        QCOMPARE(findNewestFirmware(options, zip), expected.isEmpty() ? QString() : folder + "/" + expected);
    }

    void unzip_data()
    {
        QTest::addColumn<ZipEntries>("entries");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<QStringList>("written"); // files below the target, checked against the entries
        QTest::addColumn<QString>("logLine");
        QTest::newRow("empty archive") << ZipEntries{} << true << QStringList{} << "";
        QTest::newRow("no folder entries") << ZipEntries{{"os/a.sys", "abc"}, {"pr/b.sys", {}}} << true
                                           << QStringList{"os/a.sys", "pr/b.sys"}
                                           << "Zip package contains no seperate directory entries";
        QTest::newRow("one buffer and one byte more")
            << ZipEntries{{"os/", {}}, {"os/x.sys", QByteArray(65535, 'x')}, {"os/y.sys", QByteArray(65536, 'y')}}
            << true << QStringList{"os/x.sys", "os/y.sys"} << "";
        QTest::newRow("entry climbing out") << ZipEntries{{"os/", {}}, {"../escaped.sys", "evil"}, {"os/ok.sys", "ok"}}
                                            << false << QStringList{"os/ok.sys"} << "Zip entry leaves the target folder";
        QTest::newRow("climbing out inside") << ZipEntries{{"os/../../escaped.sys", "evil"}} << false << QStringList{}
                                             << "Zip entry leaves the target folder";
        QTest::newRow("absolute entry") << ZipEntries{{"/tmp/escaped-absolute.sys", "evil"}} << false << QStringList{}
                                        << "Zip entry leaves the target folder";
        QTest::newRow("entry named /") << ZipEntries{{"/", {}}} << false << QStringList{}
                                       << "Zip name length is less than 2";
        // Found by fuzzing: links left in the target folder carried entries out of it.
        QTest::newRow("through a link") << ZipEntries{{"dirlink/x.sys", "evil"}, {"ok.sys", "ok"}} << false
                                        << QStringList{"ok.sys"} << "Zip entry meets a link in the target folder";
        QTest::newRow("onto a link") << ZipEntries{{"filelink", "evil"}} << false << QStringList{}
                                     << "Zip entry meets a link in the target folder";
        // The archive's CRC of an entry is not that of its bytes (both headers say so).
        QTest::newRow("stored CRC of other bytes") << ZipEntries{{"os/a.sys", QByteArray(5000, 'a')}} << false
                                                   << QStringList{} << "Unpacked file differs from the archive";
    }

    void unzip()
    {
        QFETCH(ZipEntries, entries);
        QFETCH(bool, ok);
        QFETCH(QStringList, written);
        QFETCH(QString, logLine);
        const QString root = fresh("unzip");
        const QString target = root + "/out";
        QDir().mkpath(target);
        QDir().mkpath(root + "/outside");
        QFile::link(root + "/outside", target + "/dirlink");
        QFile::link(root + "/outside/file", target + "/filelink");
        const QString archive = root + "/p.zip";
        QVERIFY(FirmwareKit::makeZip(archive, entries));
        if (QByteArray(QTest::currentDataTag()) == "stored CRC of other bytes") {
            QByteArray bytes = TestSupport::readFile(archive);
            for (const auto &[header, offset] : {std::pair{QByteArray("PK\x03\x04"), 14}, {QByteArray("PK\x01\x02"), 16}})
                bytes[bytes.indexOf(header) + offset] = char(bytes[bytes.indexOf(header) + offset] ^ 0x5a);
            QVERIFY(TestSupport::writeFile(archive, bytes));
        }

        QCOMPARE(unzipFile(archive, target), ok);
        QCOMPARE(QFile::exists(archive), !ok);
        for (const QString &name : written) {
            const auto it = std::find_if(entries.begin(), entries.end(), [&](const auto &e) { return e.first == name; });
            QCOMPARE(TestSupport::readFile(target + "/" + name), it->second);
        }
        QVERIFY(!QFile::exists(root + "/escaped.sys") && !QFile::exists("/tmp/escaped-absolute.sys"));
        QVERIFY(QDir(root + "/outside").isEmpty());
        QVERIFY(log().contains(logLine));
    }

    void gpgRuns_data()
    {
        QTest::addColumn<QString>("input");
        QTest::addColumn<int>("outcome");
        QTest::newRow("good signature") << "good" << int(GpgOutcome::Done);
        QTest::newRow("tampered") << "tampered" << int(GpgOutcome::BadSignature);
        QTest::newRow("key not in the ring") << "stranger" << int(GpgOutcome::BadSignature);
        QTest::newRow("detached signature") << "detached" << int(GpgOutcome::BadSignature);
        QTest::newRow("no OpenPGP data") << "plain" << int(GpgOutcome::BadSignature);
        QTest::newRow("missing input, German desktop") << "missing" << int(GpgOutcome::OpenFailed);
    }

    void gpgRuns()
    {
        QFETCH(QString, input);
        const QString root = fresh("gpg");
        const QString home = root + "/home";
        QDir().mkpath(home);
        QFile::setPermissions(home, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QFile::copy(TestSupport::devKeyDir() + "/pubring.gpg", home + "/pubring.gpg");
        QFile::copy(TestSupport::devKeyDir() + "/trustdb.gpg", home + "/trustdb.gpg");
        QDir().mkpath(root + "/ZelkoExtract");
        const QString plain = root + "/fw.OS.zip", packed = root + "/fw.OS.zip.gpg";
        QVERIFY(FirmwareKit::makeZip(plain, FirmwareKit::stageEntries("os", 2, 5000)));
        const QString gpgPath = "\"/usr/bin/gpg\"";
        const QMap<QString, Packing> packings{{"good", Packing::Signed}, {"tampered", Packing::Signed},
                                              {"stranger", Packing::SignedByStranger},
                                              {"detached", Packing::DetachedSignature}};
        if (packings.contains(input))
            QVERIFY(kit.pack(plain, packed, packings[input]));
        if (input == "plain")
            QVERIFY(QFile::copy(plain, packed));
        if (input == "tampered") {
            QByteArray bytes = TestSupport::readFile(packed);
            bytes[bytes.size() / 2] = char(bytes[bytes.size() / 2] ^ 0x55);
            touch(packed, bytes);
        }
        // gpg's own messages follow the desktop's language; the program must not.
        qputenv("LANGUAGE", "de");
        qputenv("LC_ALL", "C.UTF-8");

        QProcess process;
        std::atomic<bool> stop{false};
        const QStringList args = gpgArguments(home, root, "ZelkoExtract", "fw.OS.zip", packed);
        const int outcome = int(runGpg(process, gpgPath, args, stop));
        qunsetenv("LANGUAGE");
        qunsetenv("LC_ALL");
        QTEST(outcome, "outcome");
        // Nothing that failed its check is left to be mistaken for a checked archive.
        QCOMPARE(QFile::exists(root + "/ZelkoExtract/fw.OS.zip"), input == "good");
        if (input == "good")
            QCOMPARE(TestSupport::readFile(root + "/ZelkoExtract/fw.OS.zip"), TestSupport::readFile(plain));
    }
};

QTEST_MAIN(TestFirmware)
#include "tst_firmware.moc"
