// The boot loader wizard driven as a technician drives it: its pages, the download of
// a boot loader with its firmware from the reference server, and a cancel at the
// restart (the two stages on the emulated device are in tst_emulated).
#include "app/settings.h"
#include "ui/breakflash.h"
#include "ui/wizard/wizardbootloader.h"

#include "firmwarekit.h"
#include "windowsupport.h"

#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QRadioButton>
#include <QTest>

using TestSupport::ModalAnswerer;

class TestWizard : public QObject
{
    Q_OBJECT
    TestSupport::Sandbox sandbox;
    TestSupport::FirmwareKit kit;
    std::unique_ptr<Settings> settings;
    QString bootLoader;
    QStringList firmware;
    QString record;

    // Pages share names ("fileLabel"): look on the page in front.
    template <typename T> static T *child(QWizard &w, const char *name) { return w.currentPage()->findChild<T *>(name); }
    int downloads() const { return int(QString::fromUtf8(TestSupport::readFile(record)).count("-D\t")); }
    // The flash page with both files, checked, and the device there.
    void toFlashPage(WizardBootLoader &wizard, const QString &bl, const QString &fw)
    {
        wizard.setStartId(WizardBootLoader::Select);
        wizard.page(WizardBootLoader::Select)->findChild<QLineEdit *>("line_bootloaderfile")->setText(bl);
        wizard.page(WizardBootLoader::Select)->findChild<QLineEdit *>("line_firmwarefile")->setText(fw);
        wizard.show();
    }

private slots:
    void initTestCase()
    {
        TestSupport::useSandbox(sandbox);
        settings = std::make_unique<Settings>(static_cast<QObject *>(nullptr));
        settings->prepareGpgFolder();
        const QString fw = sandbox.root() + "/fw";
        QDir().mkpath(fw);
        bootLoader = kit.makeBootloader(fw, "Tessel_NINE_V2_0_1", 1, 3000, true);
        firmware = kit.makePackage(fw, "Tessel_NINE_V1_2_4", 2, 1, 3000, true);
        record = sandbox.root() + "/calls.txt";
        qputenv("DFU_SIM_RECORD", QFile::encodeName(record));
        qputenv("DFU_SIM_HASH_MS", "20");
    }

    void init()
    {
        QFile::remove(record);
        settings->setValue("mode", "user");
    }

    void introAndChoice_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<int>("afterChoice");
        QTest::newRow("user: download offered") << "user" << int(WizardBootLoader::Download);
        QTest::newRow("internal: flash only") << "internal" << int(WizardBootLoader::Select);
    }

    // The intro holds until the technician confirms reading it, and Escape never cancels.
    void introAndChoice()
    {
        QFETCH(QString, mode);
        settings->setValue("mode", mode);
        ModalAnswerer answerer;
        WizardBootLoader wizard(settings.get(), false, QString(), FileDownloader::Http, false, nullptr);
        wizard.show();
        QVERIFY(!wizard.button(QWizard::NextButton)->isEnabled());
        child<QCheckBox>(wizard, "readInformation")->click();
        QTest::keyClick(&wizard, Qt::Key_Escape);
        QVERIFY(wizard.isVisible());
        wizard.next();
        QCOMPARE(child<QRadioButton>(wizard, "radioDownload")->isEnabled(), mode != "internal");
        wizard.next();
        QTEST(wizard.currentId(), "afterChoice");
    }

    void downloadPage_data()
    {
        QTest::addColumn<bool>("firmwareOnServer");
        QTest::newRow("boot loader and firmware") << true;
        QTest::newRow("firmware missing on the server") << false;
    }

    void downloadPage()
    {
        QFETCH(bool, firmwareOnServer);
        const QString tree = sandbox.root() + "/tree-" + QString::number(firmwareOnServer);
        QDir().mkpath(tree + "/TesselNINE_Bootloader");
        QDir().mkpath(tree + "/TesselNINE_Latest");
        QFile::copy(bootLoader, tree + "/TesselNINE_Bootloader/Tessel_NINE_V2_0_1.BL.zip.gpg");
        if (firmwareOnServer) {
            for (const QString &f : firmware)
                QFile::copy(f, tree + "/TesselNINE_Latest/" + QFileInfo(f).fileName());
        }
        TestSupport::UpdateServer server(tree);
        const QString folder = sandbox.root() + "/downloads-" + QString::number(firmwareOnServer);
        QDir().mkpath(folder);
        ModalAnswerer answerer;
        answerer.fileToChoose = folder;
        answerer.plannedButtons = {QMessageBox::Yes, QMessageBox::Yes};
        WizardBootLoader wizard(settings.get(), false, QString(), FileDownloader::Http, false, nullptr);
        wizard.setStartId(WizardBootLoader::Download);
        wizard.show();
        QVERIFY(!wizard.button(QWizard::NextButton)->isEnabled());
        child<QPushButton>(wizard, "buttonDownload")->click();
        QVERIFY(!wizard.button(QWizard::CancelButton)->isEnabled());
        QTRY_VERIFY_WITH_TIMEOUT(wizard.button(QWizard::CancelButton)->isEnabled(), 20000);
        QCOMPARE(answerer.texts.last(), firmwareOnServer ? QString("Download completed!")
                                                         : QString("No versions are available\nto download!"));
        QCOMPARE(answerer.fileDialogs, 1); // the firmware goes where the boot loader went
        QVERIFY(wizard.button(QWizard::NextButton)->isEnabled());
        wizard.next();
        QCOMPARE(child<QLineEdit>(wizard, "line_bootloaderfile")->text(),
                 firmwareOnServer ? folder + "/Tessel_NINE_V2_0_1.BL.zip.gpg" : QString());
        QCOMPARE(child<QLabel>(wizard, "statusLabel")->text(), firmwareOnServer ? QString("Device is connected") : QString());
    }

    // Cancel at the restart: asked first; Yes gives up, and the wizard never claims success.
    void cancelAtTheRestart()
    {
        ModalAnswerer answerer;
        answerer.plannedButtons = {QMessageBox::No, QMessageBox::Yes};
        WizardBootLoader wizard(settings.get(), false, QString(), FileDownloader::Http, false, nullptr);
        toFlashPage(wizard, bootLoader, firmware[0]);
        QTimer script;
        connect(&script, &QTimer::timeout, this, [&] {
            if (auto *dialog = qobject_cast<BreakFlash *>(QApplication::activeModalWidget()))
                dialog->findChild<QPushButton *>("buttonCancel")->click();
        });
        script.start(200);
        child<QPushButton>(wizard, "buttonUpdate")->click();
        QTRY_COMPARE_WITH_TIMEOUT(answerer.texts.size(), 3, 30000);
        const QString question = "Do you really want to abort\nboot loader flashing process?\nThis will cause serious problems!";
        QCOMPARE(answerer.texts, (QStringList{question, question, "Flashing not completed"}));
        QTRY_COMPARE(child<QPushButton>(wizard, "buttonUpdate")->text(), QString("Update"));
        QCOMPARE(child<QLabel>(wizard, "statusLabel")->text(),
                 QString("Process aborted! Perform device restart before flashing again"));
        QVERIFY(child<QPushButton>(wizard, "buttonUpdate")->isEnabled());
        QVERIFY(!wizard.button(QWizard::FinishButton)->isEnabled());
        QCOMPARE(downloads(), 1); // the boot loader only
    }

    void filesRefused_data()
    {
        QTest::addColumn<QString>("bootLoader");
        QTest::addColumn<QString>("firmware");
        QTest::addColumn<QString>("box");
        QTest::newRow("boot loader without its marks") << "other.bin" << "" << "Selected file is no boot loader\nfile or does not exist!";
        QTest::newRow("boot loader gone") << "gone" << "" << "Selected file is no boot loader\nfile or does not exist!";
        QTest::newRow("firmware without its partner") << "" << "lonely" << "Firmware counter part file not found";
    }

    void filesRefused()
    {
        QFETCH(QString, bootLoader);
        QFETCH(QString, firmware);
        QString bl = this->bootLoader, fw = this->firmware[0];
        if (bootLoader == "other.bin")
            QFile::copy(this->bootLoader, bl = sandbox.root() + "/other.bin");
        if (bootLoader == "gone")
            bl = sandbox.root() + "/Tessel_NINE_V9.BL.zip.gpg";
        if (firmware == "lonely")
            QFile::copy(this->firmware[0], fw = sandbox.root() + "/Tessel_NINE_V1_2_9.OS.zip.gpg");
        ModalAnswerer answerer;
        WizardBootLoader wizard(settings.get(), false, QString(), FileDownloader::Http, false, nullptr);
        toFlashPage(wizard, bl, fw);
        QTEST(answerer.texts.value(0), "box");
        QVERIFY(!child<QPushButton>(wizard, "buttonUpdate")->isEnabled());
    }

};

QTEST_MAIN(TestWizard)
#include "tst_wizard.moc"
