#pragma once

#include "history/flashhistory.h"

#include <QDialog>
#include <QTimer>

namespace Ui
{
class HistoryView;
}
class HistoryModel;
class HistoryReader;
class QThread;

// This PC's flashes, newest first: whether a unit was flashed before, from which
// version to which, with what outcome, and whether the central record has it. A serial
// typed or scanned narrows them; the records shown, or all that match, go to a CSV file.
// The history is read by a reader of its own, opened and closed with the window.
class HistoryView : public QDialog
{
    Q_OBJECT
public:
    // The newest records shown at most; the filter and the export look at all of them.
    static constexpr int pageSize = 1000;

    // centralSet: this PC sends its records to a central record.
    HistoryView(const QString &path, bool centralSet, QWidget *parent = nullptr);
    ~HistoryView() override;

public slots:
    // Reads the history again as it is now, for the serial in the field.
    void reload();

protected:
    void changeEvent(QEvent *event) override;

private slots:
    void applyFilter();
    void exportRecords();
    void showRecords(int ticket, const QList<FlashRecord> &newestFirst, qint64 matching);
    void showMissing(int ticket);
    void showFailure(int ticket, const QString &error);
    void exportDone(const QString &target, qint64 count);
    void exportFailed(const QString &target, const QString &error);

private:
    enum class Reading { Running, Shown, Missing, Failed };
    enum class Export { None, Running, Done };

    QString readingText() const;
    QString exportText() const;
    void showStatus();
    void updateExportButton();

    Ui::HistoryView *ui;
    HistoryModel *model;
    HistoryReader *reader; // lives on `thread`
    QThread *thread;
    QTimer typing;  // a pause in typing applies the filter
    int ticket = 0; // of the read whose answer is awaited
    QString serial; // the filter of that read
    Reading reading = Reading::Running;
    qint64 matching = 0;
    QString readError;
    Export exporting = Export::None;
    QString exportTarget;
    qint64 exported = 0;
};
