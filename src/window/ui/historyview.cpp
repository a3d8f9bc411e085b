#include "historyview.h"
#include "ui_historyview.h"

#include "historymodel.h"
#include "historyreader.h"

#include "app/errortexts.h"
#include "flash/retireworker.h"

#include <QDate>
#include <QDir>
#include <QEvent>
#include <QFileDialog>
#include <QHeaderView>
#include <QRegularExpression>
#include <QThread>

HistoryView::HistoryView(const QString &path, bool centralSet, QWidget *parent)
    : QDialog(parent), ui(new Ui::HistoryView), model(new HistoryModel(centralSet, this)),
      reader(new HistoryReader(path, pageSize)), thread(new QThread)
{
    ui->setupUi(this);
    ui->table->setModel(model);
    ui->table->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    ui->table->horizontalHeader()->setStretchLastSection(true);
    // Rows as high as their line of text: more flashes in sight at once.
    ui->table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    ui->table->verticalHeader()->setDefaultSectionSize(ui->table->fontMetrics().height() + 6);

    reader->moveToThread(thread);
    // Both go once the thread has ended: the reader on it, closing its connection there.
    connect(thread, &QThread::finished, reader, &QObject::deleteLater);
    connect(thread, &QThread::finished, thread, &QObject::deleteLater);
    connect(reader, &HistoryReader::recordsRead, this, &HistoryView::showRecords);
    connect(reader, &HistoryReader::missing, this, &HistoryView::showMissing);
    connect(reader, &HistoryReader::failed, this, &HistoryView::showFailure);
    connect(reader, &HistoryReader::exported, this, &HistoryView::exportDone);
    connect(reader, &HistoryReader::exportFailed, this, &HistoryView::exportFailed);
    thread->start();

    // A scanner types the serial and presses Enter; a person may just stop typing.
    typing.setSingleShot(true);
    typing.setInterval(400);
    connect(&typing, &QTimer::timeout, this, &HistoryView::applyFilter);
    connect(ui->serialFilter, &QLineEdit::textEdited, &typing, qOverload<>(&QTimer::start));
    connect(ui->serialFilter, &QLineEdit::returnPressed, this, &HistoryView::applyFilter);
    connect(ui->exportButton, &QPushButton::clicked, this, &HistoryView::exportRecords);
    connect(ui->closeButton, &QPushButton::clicked, this, &QDialog::reject);
    ui->serialFilter->setFocus();
    reload();
}

HistoryView::~HistoryView()
{
    // Not waited for here: a read that waits for a writer's lock must not hold the
    // closing. The program waits for it at its end.
    reader->stop();
    thread->quit();
    RetiredWorkers::keep(thread);
    delete ui;
}

void HistoryView::reload()
{
    applyFilter();
}

void HistoryView::applyFilter()
{
    typing.stop();
    serial = ui->serialFilter->text().trimmed();
    reading = Reading::Running;
    if (exporting == Export::Done)
        exporting = Export::None;
    ticket = reader->request(serial);
    showStatus();
    updateExportButton();
}

void HistoryView::showRecords(int answered, const QList<FlashRecord> &newestFirst, qint64 count)
{
    if (answered != ticket)
        return;
    model->setRecords(newestFirst);
    reading = Reading::Shown;
    matching = count;
    showStatus();
    updateExportButton();
}

void HistoryView::showMissing(int answered)
{
    if (answered != ticket)
        return;
    model->setRecords({});
    reading = Reading::Missing;
    showStatus();
    updateExportButton();
}

void HistoryView::showFailure(int answered, const QString &error)
{
    if (answered != ticket)
        return;
    model->setRecords({});
    reading = Reading::Failed;
    readError = error;
    showStatus();
    updateExportButton();
}

void HistoryView::exportRecords()
{
    // What the field says now, also when its pause has not yet applied it.
    if (ui->serialFilter->text().trimmed() != serial)
        applyFilter();
    // A name a serial gives is kept to plain characters: it comes from a device.
    QString name = QStringLiteral("flash-history-") + QDate::currentDate().toString(Qt::ISODate);
    if (!serial.isEmpty())
        name +=
            QLatin1Char('-') + QString(serial).replace(QRegularExpression(QStringLiteral("[^A-Za-z0-9._-]")),
                                                       QStringLiteral("_"));
    const QString target = QFileDialog::getSaveFileName(this, tr("Export flash history"),
                                                        QDir::home().filePath(name + QLatin1String(".csv")),
                                                        tr("CSV files (*.csv);;All files (*)"));
    if (target.isEmpty())
        return;
    exporting = Export::Running;
    exportTarget = target;
    reader->exportCsv(target, serial);
    showStatus();
    updateExportButton();
}

void HistoryView::exportDone(const QString &target, qint64 count)
{
    exporting = Export::Done;
    exportTarget = target;
    exported = count;
    showStatus();
    updateExportButton();
}

void HistoryView::exportFailed(const QString &target, const QString &error)
{
    exporting = Export::None;
    showStatus();
    updateExportButton();
    ErrorTexts::execMessageBox(ErrorTexts::Error,
                               tr("The flash history could not be exported to\n%1\n\n%2\n\n"
                                  "A file that was there is left as it was.")
                                   .arg(target, error));
}

QString HistoryView::readingText() const
{
    switch (reading) {
    case Reading::Running:
        return tr("Reading the history...");
    case Reading::Missing:
        return tr("No flashes recorded on this PC yet.");
    case Reading::Failed:
        return tr("The history cannot be read: %1").arg(readError);
    case Reading::Shown:
        break;
    }
    const QString count = QString::number(matching);
    if (serial.isEmpty()) {
        if (matching == 0)
            return tr("No flashes recorded on this PC yet.");
        if (matching == 1)
            return tr("1 flash recorded on this PC.");
        if (matching <= pageSize)
            return tr("%1 flashes recorded on this PC.").arg(count);
        return tr("The newest %1 of %2 flashes recorded on this PC are shown; the filter and the export take "
                  "them all.")
            .arg(QString::number(pageSize), count);
    }
    if (matching == 0)
        return tr("No flash of the serial %1 is recorded on this PC.").arg(serial);
    if (matching == 1)
        return tr("1 flash of the serial %1 recorded on this PC.").arg(serial);
    if (matching <= pageSize)
        return tr("%1 flashes of the serial %2 recorded on this PC.").arg(count, serial);
    return tr("The newest %1 of %2 flashes of the serial %3 are shown; the export takes them all.")
        .arg(QString::number(pageSize), count, serial);
}

QString HistoryView::exportText() const
{
    switch (exporting) {
    case Export::None:
        break;
    case Export::Running:
        return tr("Exporting to %1...").arg(exportTarget);
    case Export::Done:
        return exported == 1 ? tr("1 flash exported to %1.").arg(exportTarget)
                             : tr("%1 flashes exported to %2.").arg(QString::number(exported), exportTarget);
    }
    return QString();
}

void HistoryView::showStatus()
{
    const QString note = exportText();
    ui->statusLabel->setText(note.isEmpty() ? readingText() : readingText() + QLatin1Char('\n') + note);
}

void HistoryView::updateExportButton()
{
    ui->exportButton->setEnabled(reading == Reading::Shown && matching > 0 && exporting != Export::Running);
}

void HistoryView::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::LanguageChange) {
        ui->retranslateUi(this);
        model->retranslate();
        showStatus();
    }
    QDialog::changeEvent(event);
}
