#include "app/errortexts.h"

#include <QApplication>
#include <QMessageBox>
#include <QTest>
#include <QTranslator>

#include "testsupport.h"

class TestErrorTexts : public QObject
{
    Q_OBJECT

private slots:
    void levels_data()
    {
        QTest::addColumn<int>("level");
        QTest::addColumn<QString>("caption");
        QTest::addColumn<int>("icon");
        QTest::newRow("error") << 0 << "ERROR" << int(QMessageBox::Critical);
        QTest::newRow("warning") << 1 << "WARNING" << int(QMessageBox::Warning);
        QTest::newRow("info") << 2 << "INFO" << int(QMessageBox::Information);
        QTest::newRow("welcome") << 3 << "WELCOME" << int(QMessageBox::Information);
        QTest::newRow("out of range") << 7 << "ERROR" << int(QMessageBox::NoIcon);
    }

    void levels()
    {
        QFETCH(int, level);
        QMessageBox box;
        ErrorTexts::setupMessageBox(box, ErrorTexts::errorLevel(level), "the text");
        QTEST(box.windowTitle(), "caption");
        QTEST(int(box.icon()), "icon");
        QCOMPARE(box.text(), QString("the text"));
        QVERIFY(!box.isVisible());
    }

    void germanCatalogue_data()
    {
        QTest::addColumn<QString>("english");
        QTest::addColumn<QString>("german");
        QTest::newRow("caption") << ErrorTexts::caption(ErrorTexts::Error) << "FEHLER";
        QTest::newRow("welcome") << ErrorTexts::caption(ErrorTexts::Welcome) << "WILLKOMMEN";
        QTest::newRow("shared text") << ErrorTexts::deviceNotConnected() << "Gerät ist nicht verbunden";
    }

    void germanCatalogue()
    {
        QFETCH(QString, english);
        QFETCH(QString, german);
        QTranslator translator;
        QVERIFY(translator.load(":/translations/translations/flashloader_de"));
        QCOMPARE(translator.translate("ErrorTexts", english.toUtf8().constData()), german);

    }

    void everyTextHasGerman()
    {
        const QStringList english{
            ErrorTexts::caption(ErrorTexts::Error), ErrorTexts::caption(ErrorTexts::Warning),
            ErrorTexts::caption(ErrorTexts::Info),  ErrorTexts::caption(ErrorTexts::Welcome),
            ErrorTexts::deviceNotConnected(),       ErrorTexts::processAborted(),
            ErrorTexts::flashingNotCompleted(),     ErrorTexts::processWillBeAborted(),
            ErrorTexts::moreInformation()};
        QTranslator translator;
        QVERIFY(translator.load(":/translations/translations/flashloader_de"));
        for (const QString &text : english)
            QVERIFY2(!translator.translate("ErrorTexts", text.toUtf8().constData()).isEmpty(), qPrintable(text));
    }

    void catalogueRows_data()
    {
        QTest::addColumn<QString>("context");
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("german");
        QTest::newRow("dfu suffix") << "DFUThread" << " - Opening error" << " - Fehler beim öffnen";
        QTest::newRow("dfu corrupt") << "DFUThread" << "Device's firmware is corrupt" << "Fehler beim Übertragen der Firmware";
        QTest::newRow("copy") << "DFUThread" << "Failed to copy file\n%1\nto\n%2" << "Fehler beim Kopieren von\n%1\nnach\n%2";
        QTest::newRow("pair") << "Fileverify" << "Firmware counter part file not found"
                              << "Firmware Zusatzdatei nicht gefunden";
    }

    void catalogueRows()
    {
        QFETCH(QString, context);
        QFETCH(QString, source);
        QTranslator translator;
        QVERIFY(translator.load(":/translations/translations/flashloader_de"));
        QTEST(translator.translate(context.toUtf8().constData(), source.toUtf8().constData()), "german");
    }

    // Every text the program shows has its German form in the catalogue we ship.
    void catalogueIsComplete()
    {
        const QString ts = QString::fromUtf8(TestSupport::readFile(MORVANTA_TS_FILE));
        QVERIFY(ts.contains("<message>"));
        QCOMPARE(ts.count("type=\"unfinished\""), 0);
    }

    void qtCatalogueIsEmbedded()
    {
        QTranslator qt;
        QVERIFY(qt.load(":/translations/translations/qt_de"));
        QCOMPARE(qt.translate("QPlatformTheme", "Cancel"), QString("Abbrechen"));
    }
};

QTEST_MAIN(TestErrorTexts)
#include "tst_errortexts.moc"
