// Writing a firmware to a USB stick: which drives count as sticks, and the "USB Drive"
// tab from the firmware to "Writing completed:", with folders handed in as sticks.
#include "app/settings.h"
#include "platform/platform.h"
#include "ui/dialog.h"

#include "firmwarekit.h"
#include "windowsupport.h"

#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QScopeGuard>
#include <QTabWidget>
#include <QTest>

#include <optional>

using TestSupport::FirmwareKit;
using TestSupport::ModalAnswerer;

namespace {
const QString completed = "Writing completed:";
using TestSupport::pickDrive;
} // namespace

class TestUsbStick : public QObject
{
    Q_OBJECT
    TestSupport::Sandbox sandbox;
    FirmwareKit kit;
    QStringList package; // signed: os 3 files, pr 4 files

    QStringList stickFiles(const QString &stick) const
    {
        return QDir(stick + "/.zelko_update").entryList(QDir::Files | QDir::Hidden);
    }

private slots:
    void initTestCase()
    {
        TestSupport::useSandbox(sandbox);
        package = kit.makePackage(sandbox.root(), "Tessel_NINE_V1_2_4", 3, 4, 3000, true);
        QCOMPARE(package.size(), 2);
    }

    void whichDrivesAreSticks_data()
    {
        QTest::addColumn<QString>("device");
        QTest::addColumn<QString>("sysfsPath"); // where /sys/class/block/<name> leads, with the disk's flag
        QTest::addColumn<bool>("stick");
        QTest::newRow("partition of a USB disk") << "sdb1" << "devices/pci0/usb1/1-1/host6/block/sdb/sdb1=0" << true;
        QTest::newRow("internal disk") << "sda2" << "devices/pci0/ata1/host0/block/sda/sda2=0" << false;
        QTest::newRow("loop device") << "loop0" << "devices/virtual/block/loop0=0" << false;
        QTest::newRow("by label, a link to the USB partition") << "by-label/STICK" << "" << true;
    }

    void whichDrivesAreSticks()
    {
        QFETCH(QString, device);
        QFETCH(QString, sysfsPath);
        const QString sys = sandbox.root() + "/sys", dev = sandbox.root() + "/dev";
        QDir().mkpath(sys + "/class/block");
        QDir().mkpath(dev + "/by-label");
        if (!sysfsPath.isEmpty()) {
            const QString block = sys + "/" + sysfsPath.section('=', 0, 0);
            QDir().mkpath(block);
            TestSupport::writeFile(QFileInfo(block).path() + "/removable", sysfsPath.section('=', 1).toLatin1());
            QFile::link(block, sys + "/class/block/" + device);
            TestSupport::writeFile(dev + "/" + device);
        }
        QFile::link(dev + "/sdb1", dev + "/by-label/STICK");
        QTEST(Platform::isRemovableDevice(dev + "/" + device, sys), "stick");
        // From the kernel's mount table, without a look at the shares in it.
        if (device.contains('/'))
            return;
        const QString table = sandbox.root() + "/mountinfo";
        TestSupport::writeFile(table, "36 25 8:17 / /media/u/MY\\040STICK rw - vfat /dev/" + device.toUtf8() +
                                          " rw\n40 25 0:50 / /mnt/zelko-p rw - cifs //srv/p rw\n");
        QFETCH(bool, stick);
        QCOMPARE(Platform::removableDrives(table, sys), stick ? QStringList{"/media/u/MY STICK"} : QStringList{});
    }

    void writeFromTheWindow_data()
    {
        QTest::addColumn<QString>("stick");    // what the drive holds before
        QTest::addColumn<int>("overwrite");    // the answer to the overwrite question, if asked
        QTest::addColumn<QStringList>("boxes");
        QTest::addColumn<QString>("status");
        QTest::addColumn<int>("written"); // firmware files in .zelko_update afterwards, -1: as it was
        const QString done = completed + "\nSTICK/.zelko_update\n\nPlease insert the USB Stick on Tessel NINE®.\n"
                                         "Start the device and activate flash mode on Tessel NINE®. Flashing "
                                         "process should start automatically!\n\nNote: If flashing process does not "
                                         "start automatically, the bootloader of Tessel NINE® might be too old.";
        QTest::newRow("empty stick") << "" << 0 << QStringList{done} << completed << 7;
        QTest::newRow("earlier firmware, kept") << "old" << int(QMessageBox::No) << QStringList{} << "" << -1;
        QTest::newRow("earlier firmware, replaced") << "old" << int(QMessageBox::Yes) << QStringList{done} << completed
                                                    << 7;
        QTest::newRow("folder is a link out of the stick") << "link" << int(QMessageBox::Yes) << QStringList{done}
                                                           << completed << 7;
        QTest::newRow("no stick at all") << "none" << 0
                                         << QStringList{"No USB mass storage detected!\nPlease insert a USB Stick "
                                                        "where the firmware can be extracted to."}
                                         << "" << -1;
        QTest::newRow("drive choice cancelled") << "cancel" << 0 << QStringList{} << "" << -1;
        QTest::newRow("stick fills up mid-copy") << "full" << 0 << QStringList{} << "Copy files to destination failed."
                                                 << 0;
        // The working folder fills up while unpacking: the stick gets no firmware file.
        QTest::newRow("working folder fills up") << "fullwork" << 0 << QStringList{"Error in writing firmware files to USB"}
                                                 << "Error in writing firmware files to USB" << 0;
        // The same file name in both halves cannot go into the one folder on the stick.
        QTest::newRow("a name in both halves") << "clash" << 0 << QStringList{} << "Copy files to destination failed." << 0;
        // FAT through FUSE refuses to replace a folder by rename, and loses a renamed folder's files.
        QTest::newRow("FAT16 stick") << "fat" << 0 << QStringList{done} << completed << 7;
    }

    void writeFromTheWindow()
    {
        QFETCH(QString, stick);
        QFETCH(int, overwrite);
        QFETCH(QString, status);
        QFETCH(int, written);
        const QString drive = sandbox.root() + "/sticks/" + QTest::currentDataTag();
        const QString outside = sandbox.root() + "/home-of-someone";
        QDir().mkpath(drive);
        TestSupport::writeFile(outside + "/precious", "old");
        if (stick == "old")
            TestSupport::writeFile(drive + "/.zelko_update/old.sys", "old");
        if (stick == "link")
            QVERIFY(QFile::link(outside, drive + "/.zelko_update"));
        if (stick == "full" && !TestSupport::mountTmpfs(drive, 12))
            QSKIP("needs a mount namespace of its own");
        if (stick == "fullwork" && !TestSupport::mountTmpfs(Platform::instanceFolder(), 24))
            QSKIP("needs a mount namespace of its own");
        const QString image = sandbox.root() + "/fat16.img";
        std::optional<TestSupport::FuseShare> fat;
        if (stick == "fat" && !fat.emplace(image, drive).isMounted())
            QSKIP("needs FUSE (/dev/fuse) in a mount namespace of its own");
        const auto unmount = qScopeGuard([&] {
            if (stick == "full")
                QProcess::execute("umount", {drive});
            if (stick == "fullwork")
                QProcess::execute("umount", {Platform::instanceFolder()});
        });

        ModalAnswerer answerer;
        Dialog dialog(SearchOptions(), true, nullptr);
        dialog.setRemovableDriveSource([&] { return stick == "none" ? QStringList{} : QStringList{"/media/x", drive}; });
        dialog.show();
        dialog.findChild<QTabWidget *>("tab_tessel_nine_options")->setCurrentIndex(0);
        answerer.fileToChoose = package[1];
        if (stick == "clash") {
            QDir().mkpath(drive + "-fw");
            answerer.fileToChoose = drive + "-fw/Tessel_NINE_1.OS.zip.gpg";
            QVERIFY(FirmwareKit::makeZip(drive + "-fw/x.OS.zip", {{"os/", {}}, {"os/same.sys", QByteArray(3000, 'o')}}));
            QVERIFY(FirmwareKit::makeZip(drive + "-fw/x.PR.zip", {{"pr/", {}}, {"pr/same.sys", QByteArray(3000, 'p')}}));
            QVERIFY(kit.pack(drive + "-fw/x.OS.zip", answerer.fileToChoose));
            QVERIFY(kit.pack(drive + "-fw/x.PR.zip", drive + "-fw/Tessel_NINE_1.PR.zip.gpg"));
        }
        dialog.findChild<QPushButton *>("exsearchButton_tessel_nine")->click();
        QCOMPARE(dialog.findChild<QLabel *>("exStatus_tessel_nine")->text(), QString("Files found"));
        auto *start = dialog.findChild<QPushButton *>("usbDriveStartButton_tessel_nine");
        QVERIFY(start->isEnabled()); // no device needed for a stick
        answerer.clear();
        answerer.plannedButtons = {overwrite ? overwrite : int(QMessageBox::Ok), QMessageBox::Ok};
        start->click();
        QVERIFY(stick == "none" || pickDrive(stick == "cancel" ? QString("no such drive") : drive));
        QTRY_COMPARE_WITH_TIMEOUT(dialog.findChild<QLabel *>("statusLabel")->text(), status, 30000);
        QTest::qWait(300);
        QCOMPARE(start->text(), QString("Start"));

        QStringList boxes;
        for (const QString &text : answerer.texts)
            boxes << QString(text).replace(drive, "STICK");
        if (overwrite)
            QCOMPARE(boxes.takeFirst(), "Output directory for firmware files already exits!\nDo you want to "
                                        "overwrite existing directory?\nSTICK/.zelko_update");
        QTEST(boxes, "boxes");
        if (written < 0) {
            QCOMPARE(stickFiles(drive), stick == "old" ? QStringList{"old.sys"} : QStringList{});
        } else {
            const QStringList files = stickFiles(drive);
            QCOMPARE(files.size(), written);
            for (const QString &name : files)
                QCOMPARE(TestSupport::readFile(drive + "/.zelko_update/" + name).size(), 3000);
        }
        // Nothing but the folder is left on the stick, and nothing outside it is touched,
        // through a link or otherwise.
        const bool folderMade = written >= 0 || stick == "old";
        QCOMPARE(QDir(drive).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 folderMade ? QStringList{".zelko_update"} : QStringList{});
        QCOMPARE(TestSupport::readFile(outside + "/precious"), QByteArray("old"));
        QCOMPARE(QDir(outside).entryList(QDir::Files), QStringList{"precious"});
        if (stick == "fat") { // and the file system is sound afterwards
            QCOMPARE(QProcess::execute("umount", {drive}), 0);
            QCOMPARE(QProcess::execute("/sbin/fsck.vfat", {"-n", image}), 0);
        }
    }

    // An abort reaches gpg only: unpacking and copying go on, and their reports still
    // show. Start stays disabled until a firmware is chosen again.
    void abortWhileUnpacking_data()
    {
        QTest::addColumn<int>("prFiles");
        QTest::addColumn<QString>("box");
        QTest::addColumn<int>("written");
        QTest::newRow("good package") << 4 << completed << 7;
        QTest::newRow("package without pr files") << 0 << "Package contains no firmware files" << 0;
    }

    void abortWhileUnpacking()
    {
        QFETCH(int, prFiles);
        QFETCH(QString, box);
        const QString drive = sandbox.root() + "/sticks/abort-" + QString::number(prFiles);
        QDir().mkpath(drive);
        QDir().mkpath(drive + "-fw");
        const QStringList files = kit.makePackage(drive + "-fw", "Tessel_NINE_V1_2_5", 3, prFiles, 3000, true);
        ModalAnswerer answerer;
        Dialog dialog(SearchOptions(), true, nullptr);
        dialog.setRemovableDriveSource([&] { return QStringList{drive}; });
        dialog.show();
        answerer.fileToChoose = files[0];
        dialog.findChild<QPushButton *>("exsearchButton_tessel_nine")->click();
        auto *start = dialog.findChild<QPushButton *>("usbDriveStartButton_tessel_nine");
        auto *status = dialog.findChild<QLabel *>("statusLabel");
        start->click();
        QVERIFY(pickDrive(drive));
        QTRY_COMPARE_WITH_TIMEOUT(status->text(), QString("Writing firmware files"), 20000);
        answerer.clear();
        answerer.plannedButtons = {QMessageBox::Yes, QMessageBox::Ok};
        start->click();
        QTRY_COMPARE_WITH_TIMEOUT(start->text(), QString("Start"), 20000);
        QTest::qWait(300);
        QCOMPARE(answerer.texts.value(0), QString("Do you really want to abort\nwriting to USB drive process?"));
        QVERIFY2(answerer.texts.value(1).startsWith(box), qPrintable(answerer.texts.join('|')));
        QTEST(int(stickFiles(drive).size()), "written");
        QVERIFY(!start->isEnabled());
        QVERIFY(dialog.findChild<QPushButton *>("exsearchButton_tessel_nine")->isEnabled());
        dialog.findChild<QPushButton *>("exsearchButton_tessel_nine")->click();
        QVERIFY(start->isEnabled());
    }
};

QTEST_MAIN(TestUsbStick)
#include "tst_usbstick.moc"
