// The window's flash history as a technician uses it: which units were flashed, newest
// first, found by a scanned serial, exported for a spreadsheet.
#include "app/catalogues.h"
#include "flash/retireworker.h"
#include "history/flashhistory.h"
#include "ui/historyview.h"

#include "windowsupport.h"

#include <QAbstractItemModel>
#include <QDir>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QScopeGuard>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTableView>
#include <QTest>
#include <QTextDocument>

#include <optional>

using TestSupport::ModalAnswerer;

namespace
{
// What a person reads: a text taken for markup shows something else.
QString readable(const QString &text, Qt::TextFormat format = Qt::AutoText)
{
    if (format == Qt::PlainText || (format == Qt::AutoText && !Qt::mightBeRichText(text)))
        return text;
    QTextDocument document;
    document.setHtml(text);
    return document.toPlainText();
}

// The window's texts, the header, then each row: a cell's tooltip in brackets.
QStringList seen(HistoryView &view)
{
    const auto text = [&view](const char *name) { return view.findChild<QAbstractButton *>(name)->text(); };
    QStringList lines{QStringList{view.windowTitle(), view.findChild<QLabel *>("filterLabel")->text(),
                                  view.findChild<QLineEdit *>("serialFilter")->placeholderText(),
                                  text("exportButton"), text("closeButton")}
                          .join(" | ")};
    const QAbstractItemModel *model = view.findChild<QTableView *>("table")->model();
    QStringList cells;
    for (int column = 0; column < model->columnCount(); ++column)
        cells << model->headerData(column, Qt::Horizontal).toString();
    lines << cells.join(" | ");
    for (int row = 0; row < model->rowCount(); ++row) {
        cells.clear();
        for (int column = 0; column < model->columnCount(); ++column) {
            const QModelIndex index = model->index(row, column);
            const QString tip = readable(index.data(Qt::ToolTipRole).toString());
            cells << index.data().toString() + (tip.isEmpty() ? QString() : " [" + tip + "]");
        }
        lines << cells.join(" | ");
    }
    return lines;
}

QString statusOf(HistoryView &view)
{
    const QLabel *label = view.findChild<QLabel *>("statusLabel");
    return readable(label->text(), label->textFormat());
}

const QString english = "Flash history | &Serial: | Type or scan a serial number | Export... | Close";
const QString header = "Started | Serial | Before | After | Outcome | Program | Central record";
} // namespace

class TestHistoryView : public QObject
{
    Q_OBJECT
    TestSupport::Sandbox sandbox;
    QString disk; // a file system of the test's own, where writes cost no disk syncs

    // A few flashes, written out of their order; with `fillers`, that many newer ones.
    static void writeHistory(int fillers)
    {
        FlashHistory history;
        QVERIFY2(history.open(FlashHistory::defaultPath()), qPrintable(history.error()));
        const auto flash = [&history](const QString &started, const QString &serial, const QString &before,
                                      const QString &after, const QString &outcome, const QString &program,
                                      const QString &error = QString()) {
            FlashRecord record;
            record.started = QDateTime::fromString(started, Qt::ISODate);
            record.serial = serial;
            record.before = before;
            record.program = program;
            QVERIFY(history.begin(record) > 0);
            record.after = after;
            record.outcome = outcome;
            record.error = error;
            QVERIFY(history.finish(record));
        };
        flash("2026-03-01T09:00:00Z", "SER-A", "1_2_2", "1_2_3", "flashed", "station");
        flash("2026-03-02T14:30:00Z", "SER-B", "1_2_3", "", "failed", "window",
              "<i>Lost device</i> after RESET");
        flash("2026-03-01T12:00:00Z", "<b>X</b>", "1_2_3", "1_2_4", "flashed", "window");
        flash("2026-02-27T08:15:00Z", "SER-A", "", "1_2_2", "recovered", "window");
        for (int i = 0; i < fillers; ++i)
            flash(QDateTime(QDate(2026, 4, 1), QTime(0, 0), Qt::UTC).addSecs(60 * i).toString(Qt::ISODate),
                  QString("FILL-%1").arg(i, 4, 10, QChar('0')), "1_2_3", "1_2_4", "flashed", "station");
        // The central record took the first one a few minutes after it began.
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "mark");
        db.setDatabaseName(FlashHistory::defaultPath());
        QVERIFY(db.open());
        QVERIFY(QSqlQuery(db).exec(
            "UPDATE flashes SET sent = '2026-03-01T09:05:00Z' WHERE started LIKE '2026-03-01T09%'"));
        db.close();
        db = QSqlDatabase();
        QSqlDatabase::removeDatabase("mark");
    }

    static QByteArray csvOf(const QString &serial)
    {
        FlashHistory history;
        if (!history.openForReading(FlashHistory::defaultPath()))
            return "unreadable";
        HistoryFilter filter;
        filter.serial = serial;
        QByteArray csv = historyCsvHeader() + "\r\n";
        for (const FlashRecord &record : history.records(filter))
            csv += historyCsv(record) + "\r\n";
        return csv;
    }

private slots:
    void initTestCase()
    {
        // Central European time, so that a time shown in UTC is caught.
        qputenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
        TestSupport::useSandbox(sandbox);
        disk = sandbox.root() + "/disk";
        QVERIFY(TestSupport::mountTmpfs(disk, 65536));
    }

    void cleanupTestCase() { QProcess::execute("umount", {disk}); }

    void cleanup() { RetiredWorkers::waitForAll(5000); }

    void shown_data()
    {
        QTest::addColumn<QString>("history");  // none, few, held, big (newer ones beyond the page)
        QTest::addColumn<bool>("central");     // a central record is set up
        QTest::addColumn<QString>("typed");    // scanned into the filter, with Enter
        QTest::addColumn<QString>("exportTo"); // nothing, a file, a read-only folder, a full disk
        QTest::addColumn<bool>("german");
        QTest::addColumn<QString>("status");
        QTest::addColumn<int>("rows");
        QTest::addColumn<QStringList>("first"); // what seen() gives, as far as listed

        const QString b =
            "2026-03-02 15:30:00 | SER-B | 1_2_3 |  | failed [<i>Lost device</i> after RESET] | window | ";
        const QString x = "2026-03-01 13:00:00 | <b>X</b> | 1_2_3 | 1_2_4 | flashed | window | ";
        const QString a1 =
            "2026-03-01 10:00:00 | SER-A | 1_2_2 | 1_2_3 | flashed | station | sent [Taken by the "
            "central record on 2026-03-01 10:05:00]";
        const QString a2 = "2026-02-27 09:15:00 | SER-A |  | 1_2_2 | recovered | window | ";
        const QString unsent = "not sent [No central record is set up on this PC.]";
        QTest::newRow("newest first, exported")
            << "few" << true << ""
            << "file" << false << "4 flashes recorded on this PC." << 4
            << QStringList{english, header, b + "not yet", x + "not yet", a1, a2 + "not yet"};
        QTest::newRow("no central record")
            << "few" << false << ""
            << "" << false << "4 flashes recorded on this PC." << 4
            << QStringList{english, header, b + unsent, x + unsent, a1, a2 + unsent};
        QTest::newRow("serial with markup")
            << "few" << true << "<b>X</b>"
            << "" << false << "1 flash of the serial <b>X</b> recorded on this PC." << 1
            << QStringList{english, header, x + "not yet"};
        QTest::newRow("filter beyond the page, exported")
            << "big" << true << "SER-A"
            << "file" << false << "2 flashes of the serial SER-A recorded on this PC." << 2
            << QStringList{english, header, a1, a2 + "not yet"};
        QTest::newRow("big history, export onto a full disk")
            << "big" << true << ""
            << "full" << false
            << "The newest 1000 of 1005 flashes recorded on this PC are shown; the filter and the export "
               "take them all."
            << HistoryView::pageSize
            << QStringList{english, header,
                           "2026-04-01 18:40:00 | FILL-1000 | 1_2_3 | 1_2_4 | flashed | station | not yet"};
        QTest::newRow("export into a read-only folder")
            << "few" << true << ""
            << "read-only" << false << "4 flashes recorded on this PC." << 4 << QStringList{};
        QTest::newRow("held by a writer a moment")
            << "held" << true << "" << "" << false << "4 flashes recorded on this PC." << 4
            << QStringList{english, header, b + "not yet"};
        QTest::newRow("no history yet")
            << "none" << true << ""
            << "" << false << "No flashes recorded on this PC yet." << 0 << QStringList{english, header};
        QTest::newRow("German") << "few" << false << ""
                                << "" << true << "4 Flashvorgänge auf diesem PC erfasst." << 4
                                << QStringList{
                                       "Flashverlauf | &Seriennummer: | Seriennummer tippen oder scannen | "
                                       "Exportieren... | Schließen",
                                       "Beginn | Seriennummer | Vorher | Nachher | Ergebnis | Programm | "
                                       "Zentrale Erfassung",
                                       "2026-03-02 15:30:00 | SER-B | 1_2_3 |  | fehlgeschlagen [<i>Lost "
                                       "device</i> after RESET] | window | nicht gesendet [Auf diesem PC ist "
                                       "keine zentrale Erfassung eingerichtet.]"};
    }

    void shown()
    {
        QFETCH(QString, history);
        QFETCH(bool, central);
        QFETCH(QString, typed);
        QFETCH(QString, exportTo);
        QFETCH(bool, german);
        QFETCH(QString, status);
        QFETCH(int, rows);
        QFETCH(QStringList, first);
        const QString root = disk + "/" + QString(QTest::currentDataTag()).replace(' ', '-');
        qputenv("XDG_DATA_HOME", QFile::encodeName(root + "/data"));
        QVERIFY(FlashHistory::defaultPath().startsWith(root));
        if (history != "none")
            writeHistory(history == "big" ? HistoryView::pageSize + 1 : 0);
        if (QTest::currentTestFailed())
            return;
        // A writer that holds the history: the window opens all the same and reads it once it is let go.
        QSqlDatabase holder = QSqlDatabase::addDatabase("QSQLITE", "holder");
        const auto closeHolder = qScopeGuard([&holder] {
            holder.close();
            holder = QSqlDatabase();
            QSqlDatabase::removeDatabase("holder");
        });
        if (history == "held") {
            holder.setDatabaseName(FlashHistory::defaultPath());
            QSqlQuery hold(holder);
            QVERIFY(holder.open() && hold.exec("PRAGMA locking_mode=EXCLUSIVE") && hold.exec("BEGIN EXCLUSIVE") &&
                    hold.exec("SELECT count(*) FROM flashes"));
        }

        ModalAnswerer answerer;
        HistoryView view(FlashHistory::defaultPath(), central);
        view.show();
        if (history == "held") {
            QTest::qWait(200); // the window's events go on meanwhile
            QCOMPARE(statusOf(view), QString("Reading the history..."));
            holder.close();
        }
        std::optional<Catalogues> catalogues;
        if (german) { // while the window is open, as a language switch does
            catalogues.emplace("German");
            QVERIFY(catalogues->loaded());
        }
        auto *filter = view.findChild<QLineEdit *>("serialFilter");
        QCOMPARE(view.focusWidget(), filter);
        if (!typed.isEmpty()) {
            QTest::keyClicks(filter, typed);
            QTest::keyClick(filter, Qt::Key_Return);
        }
        QTRY_COMPARE_WITH_TIMEOUT(statusOf(view), status, 20000);
        QCOMPARE(answerer.fileDialogs, 0); // Enter filters and exports nothing
        QCOMPARE(view.findChild<QTableView *>("table")->model()->rowCount(), rows);
        QCOMPARE(seen(view).mid(0, first.size()), first);
        auto *exportButton = view.findChild<QPushButton *>("exportButton");
        QCOMPARE(exportButton->isEnabled(), rows > 0);
        if (history == "none") // looking made nothing
            QVERIFY(!QFileInfo::exists(root + "/data/morvanta"));
        if (exportTo.isEmpty())
            return;

        // A failing export meets a spreadsheet of earlier days: it must stay as it was.
        const QString folder = root + "/" + exportTo;
        const QString target = folder + "/export.csv";
        const QByteArray old = "last week's records\n";
        QVERIFY(QDir().mkpath(folder));
        if (exportTo != "file") {
            QVERIFY(TestSupport::mountTmpfs(folder, 64));
            QVERIFY(TestSupport::writeFile(target, old));
            answerer.plannedButtons = {QMessageBox::Yes}; // the file dialog's "replace it?"
        }
        const auto unmount = qScopeGuard([&] {
            if (exportTo != "file")
                QProcess::execute("umount", {folder});
        });
        if (exportTo == "read-only")
            QCOMPARE(QProcess::execute("mount", {"-o", "remount,ro", folder}), 0);
        answerer.fileToChoose = target;
        exportButton->click();
        QTRY_VERIFY_WITH_TIMEOUT(
            statusOf(view).contains(" exported to ") || answerer.titles.contains("ERROR"), 20000);
        if (exportTo == "file") {
            QCOMPARE(TestSupport::readFile(target), csvOf(typed));
            QCOMPARE(statusOf(view), status + QString("\n%1 flashes exported to %2.").arg(rows).arg(target));
        } else {
            QCOMPARE(answerer.titles.last(), QString("ERROR"));
            QVERIFY2(answerer.texts.last().startsWith("The flash history could not be exported to\n" +
                                                      target + "\n\n"),
                     qPrintable(answerer.texts.last()));
            QCOMPARE(TestSupport::readFile(target), old);
            QCOMPARE(QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
                     QStringList{"export.csv"});
        }
    }
};

QTEST_MAIN(TestHistoryView)
#include "tst_historyview.moc"
