// The Brio Mel tab: the presence check through the detector simulator and the XMODEM
// flash through the xmodem-util simulator, as the window shows them.
#include "app/log.h"
#include "app/settings.h"
#include "ui/dialog.h"

#include "windowsupport.h"

#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QScopeGuard>
#include <QTabWidget>
#include <QTest>

using TestSupport::ModalAnswerer;

namespace {
const QString aborted = "Process aborted! Perform device restart before flashing again";
}

class TestBrioMel : public QObject
{
    Q_OBJECT
    TestSupport::Sandbox sandbox;
    QString firmware;

    template <typename T> static T *child(Dialog &d, const char *name) { return d.findChild<T *>(name); }
    static QPushButton *flash(Dialog &d) { return child<QPushButton>(d, "lupdateButton_tessel_briomel"); }
    static QString status(Dialog &d) { return child<QLabel>(d, "statusLabel")->text(); }
    static QProgressBar *bar(Dialog &d) { return child<QProgressBar>(d, "progressBar"); }

    std::unique_ptr<Dialog> window(ModalAnswerer &answerer)
    {
        SearchOptions options;
        options.internal = true;
        auto dialog = std::make_unique<Dialog>(options, false, nullptr);
        dialog->show();
        child<QTabWidget>(*dialog, "tab_devices")->setCurrentIndex(1);
        answerer.clear();
        return dialog;
    }
    // After a Brio Mel job the Tessel NINE's tab is free again; no firmware waits there.
    // After an abort the flash button waits for the next positive check.
    static void tesselTabIsFree(Dialog &d, bool afterAbort = false)
    {
        child<QTabWidget>(d, "tab_devices")->setCurrentIndex(0);
        QStringList locked{"lupdateButton_tessel_nine", "usbDriveStartButton_tessel_nine"};
        if (afterAbort)
            locked << "lupdateButton_tessel_briomel";
        QCOMPARE(TestSupport::lockedJobControls(&d), locked);
    }
    // Chooses the firmware and waits for the detector's answer to take effect.
    void choose(Dialog &d, ModalAnswerer &answerer, const QString &file)
    {
        answerer.fileToChoose = file;
        child<QPushButton>(d, "lsearchButton_tessel_briomel")->click();
        QTest::qWait(400);
    }

private slots:
    void initTestCase()
    {
        TestSupport::useSandbox(sandbox);
        firmware = sandbox.root() + "/BRIO_MEL_2_1.zkl";
        QVERIFY(TestSupport::writeFile(firmware, QByteArray(4000, 'z')));
        qputenv("XMODEM_SIM_DELAY_MS", "40");
    }

    void init()
    {
        qputenv("DETECTOR_SIM_OUTPUT", "1\n");
        qputenv("XMODEM_SIM_MODE", "ok");
    }

    void detectorAnswers_data()
    {
        QTest::addColumn<QString>("output");
        QTest::addColumn<bool>("enabledBefore");
        QTest::addColumn<bool>("enabledAfter");
        QTest::addColumn<QStringList>("boxes");
        QTest::newRow("absent") << "0" << true << false << QStringList{"Device is not connected"};
        QTest::newRow("tool error keeps the button") << "2" << true << true << QStringList{};
        QTest::newRow("a word reads as absent") << "maybe" << true << false << QStringList{"Device is not connected"};
        QTest::newRow("nothing keeps the button") << "" << false << false << QStringList{};
    }

    void detectorAnswers()
    {
        QFETCH(QString, output);
        QFETCH(bool, enabledBefore);
        ModalAnswerer answerer;
        auto dialog = window(answerer);
        if (enabledBefore) {
            choose(*dialog, answerer, firmware); // a first, positive check
            QTRY_VERIFY(flash(*dialog)->isEnabled());
        }
        answerer.clear();
        qputenv("DETECTOR_SIM_OUTPUT", output.toUtf8());
        choose(*dialog, answerer, firmware);
        QTEST(flash(*dialog)->isEnabled(), "enabledAfter");
        QTEST(answerer.texts, "boxes");
        QCOMPARE(child<QLabel>(*dialog, "localStatus_tessel_briomel")->text(), QString("Files found"));
    }

    void endings_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<QStringList>("boxes");
        QTest::addColumn<QString>("finalStatus");
        QTest::newRow("whole flash") << "ok" << QStringList{"INFO:Flashing completed\nPlease perform Tessel restart!"} << "";
        QTest::newRow("sizes too large") << "bigsize" << QStringList{"INFO:Flashing completed\nPlease perform Tessel restart!"} << "";
        QTest::newRow("no device") << "nodevice" << QStringList{"ERROR:Device not connected!"} << aborted;
        QTest::newRow("no firmware") << "nofile" << QStringList{"ERROR:No firmware file in directory"} << aborted;
    }

    void endings()
    {
        QFETCH(QString, mode);
        qputenv("XMODEM_SIM_MODE", mode.toUtf8());
        ModalAnswerer answerer;
        auto dialog = window(answerer);
        choose(*dialog, answerer, firmware);
        QTRY_VERIFY(flash(*dialog)->isEnabled());
        answerer.clear();
        flash(*dialog)->click();
        QTRY_VERIFY_WITH_TIMEOUT(answerer.answered() == 1, 20000);
        QStringList boxes;
        for (int i = 0; i < answerer.titles.size(); ++i)
            boxes << answerer.titles[i] + ":" + answerer.texts[i];
        QTEST(boxes, "boxes");
        QTRY_COMPARE(flash(*dialog)->text(), QString("Flash"));
        QTRY_VERIFY(flash(*dialog)->isEnabled());
        // The thread's last words arrive queued, perhaps after the button is back.
        QFETCH(QString, finalStatus);
        QTRY_COMPARE(status(*dialog), finalStatus);
        QCOMPARE(bar(*dialog)->maximum(), 100);
        QCOMPARE(bar(*dialog)->value(), 0);
        QTest::qWait(200);
        QCOMPARE(answerer.answered(), 1);
        tesselTabIsFree(*dialog);
    }

    // Closing the window, or the end of the program, takes the tools with it.
    void noToolOutlivesTheWindow_data()
    {
        QTest::addColumn<QString>("tool");
        QTest::newRow("xmodem-util mid-flash") << "xmodem-util";
        QTest::newRow("detector that hangs") << "detector";
    }

    void noToolOutlivesTheWindow()
    {
        QFETCH(QString, tool);
        const QString file = sandbox.root() + "/BRIO_MEL_9_" + tool + ".zkl";
        QVERIFY(QFile::copy(firmware, file));
        qputenv("XMODEM_SIM_MODE", "hang");
        if (tool == "detector") { // a detector that never answers
            qputenv("DETECTOR_SIM_HANG", "1");
            qputenv("DETECTOR_SIM_OUTPUT", "");
        }
        const auto restore = qScopeGuard([] { qunsetenv("DETECTOR_SIM_HANG"); });
        ModalAnswerer answerer;
        auto dialog = window(answerer);
        choose(*dialog, answerer, file);
        const QString detector = QCoreApplication::applicationDirPath() + "/detector";
        if (tool == "detector")
            QTRY_COMPARE(TestSupport::liveProcessesWith(detector), 1);
        if (tool == "xmodem-util") {
            QTRY_VERIFY(flash(*dialog)->isEnabled());
            flash(*dialog)->click();
            QTRY_COMPARE(status(*dialog), QString("Flashing firmware"));
            QTRY_COMPARE(TestSupport::liveProcessesWith(file), 1);
        }
        // The end of the window, as after the close question or the end of the program.
        dialog.reset();
        QCOMPARE(TestSupport::liveProcessesWith(tool == "xmodem-util" ? file : detector), 0);
    }

    void nothingEndsWithoutAnEnding_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::newRow("status 3") << "status3";
        QTest::newRow("records torn apart") << "split";
        QTest::newRow("garbage") << "garbage";
    }

    void nothingEndsWithoutAnEnding()
    {
        QFETCH(QString, mode);
        qputenv("XMODEM_SIM_MODE", mode.toUtf8());
        ModalAnswerer answerer;
        auto dialog = window(answerer);
        choose(*dialog, answerer, firmware);
        QTRY_VERIFY(flash(*dialog)->isEnabled());
        flash(*dialog)->click();
        QTRY_COMPARE(flash(*dialog)->text(), QString("Abort"));
        QTest::qWait(1500);
        QVERIFY(answerer.texts.isEmpty());
        QCOMPARE(flash(*dialog)->text(), QString("Abort"));
        if (mode == "split" || mode == "garbage")
            QCOMPARE(bar(*dialog)->maximum(), 0); // Qt's busy look, for incomplete chunks

        // The technician aborts (or, when the tool is gone, starts again).
        answerer.plannedButtons = {QMessageBox::Yes};
        flash(*dialog)->click();
        if (mode == "status3") {
            QCOMPARE(answerer.texts.value(0), QString("Do you really want to abort\nflashing process?"));
            QTRY_COMPARE(flash(*dialog)->text(), QString("Flash"));
            QVERIFY(!flash(*dialog)->isEnabled()); // until the next positive check
            QCOMPARE(status(*dialog), QString("Process will be aborted! This might take a few seconds."));
            QTest::qWait(300);
            QCOMPARE(answerer.answered(), 1);
            tesselTabIsFree(*dialog, true);
        } else {
            // The tool had ended: the click finds no running worker and starts a new run.
            QCOMPARE(answerer.answered(), 0);
            QTRY_COMPARE(flash(*dialog)->text(), QString("Abort"));
        }
    }
};

QTEST_MAIN(TestBrioMel)
#include "tst_briomel.moc"
