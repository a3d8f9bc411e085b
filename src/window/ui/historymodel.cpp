#include "historymodel.h"

#include <QBrush>
#include <QColor>
#include <QTextDocument>

namespace
{
const QString timeFormat = QStringLiteral("yyyy-MM-dd HH:mm:ss");

// A tooltip takes markup for rich text: one from outside is escaped into its own paragraph.
QString plainToolTip(const QString &text)
{
    return text.isEmpty() ? QString() : Qt::convertFromPlainText(text, Qt::WhiteSpaceNormal);
}

bool badOutcome(const QString &outcome)
{
    for (const char *word : {"failed", "interrupted", "unrecorded"}) {
        if (outcome == QLatin1String(word))
            return true;
    }
    return false;
}
} // namespace

HistoryModel::HistoryModel(bool centralSet, QObject *parent)
    : QAbstractTableModel(parent), centralSet(centralSet)
{
}

void HistoryModel::setRecords(const QList<FlashRecord> &records)
{
    beginResetModel();
    shown = records;
    endResetModel();
}

void HistoryModel::retranslate()
{
    emit headerDataChanged(Qt::Horizontal, 0, ColumnCount - 1);
    if (!shown.isEmpty())
        emit dataChanged(index(0, 0), index(rowCount() - 1, ColumnCount - 1));
}

int HistoryModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(shown.size());
}

int HistoryModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant HistoryModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= shown.size())
        return QVariant();
    const FlashRecord &record = shown.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
        return text(record, index.column());
    case Qt::ToolTipRole:
        return toolTip(record, index.column());
    case Qt::ForegroundRole:
        if (index.column() == Outcome && badOutcome(record.outcome))
            return QBrush(QColor(Qt::darkRed));
        return QVariant();
    default:
        return QVariant();
    }
}

QString HistoryModel::text(const FlashRecord &record, int column) const
{
    switch (column) {
    case Started:
        return record.started.toLocalTime().toString(timeFormat);
    case Serial:
        return record.serial;
    case Before:
        return record.before;
    case After:
        return record.after;
    case Outcome:
        return outcomeText(record.outcome);
    case Program:
        return record.program;
    case Central:
        if (record.sent.isValid())
            return tr("sent");
        return centralSet ? tr("not yet") : tr("not sent");
    }
    return QString();
}

QString HistoryModel::toolTip(const FlashRecord &record, int column) const
{
    switch (column) {
    case Outcome:
        return plainToolTip(record.error);
    case Central:
        if (record.sent.isValid())
            return tr("Taken by the central record on %1")
                .arg(record.sent.toLocalTime().toString(timeFormat));
        return centralSet ? QString() : tr("No central record is set up on this PC.");
    }
    return QString();
}

QString HistoryModel::outcomeText(const QString &outcome)
{
    // The history's own words; one this program does not know (a newer one's) as it is.
    if (outcome == QLatin1String("flashed"))
        return tr("flashed");
    if (outcome == QLatin1String("recovered"))
        return tr("recovered");
    if (outcome == QLatin1String("current"))
        return tr("already current");
    if (outcome == QLatin1String("failed"))
        return tr("failed");
    if (outcome == QLatin1String("stopped"))
        return tr("stopped");
    if (outcome == QLatin1String("pending"))
        return tr("running");
    if (outcome == QLatin1String("interrupted"))
        return tr("interrupted");
    if (outcome == QLatin1String("unrecorded"))
        return tr("end not recorded");
    return outcome;
}

QVariant HistoryModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    switch (section) {
    case Started:
        return tr("Started");
    case Serial:
        return tr("Serial");
    case Before:
        return tr("Before");
    case After:
        return tr("After");
    case Outcome:
        return tr("Outcome");
    case Program:
        return tr("Program");
    case Central:
        return tr("Central record");
    }
    return QVariant();
}
