#pragma once

#include "history/flashhistory.h"

#include <QAbstractTableModel>
#include <QList>

// Records of flashes as the history window's table shows them, one a row in the order
// given. Every text from a record is shown as the text it is: a serial, a version or an
// error comes from a device or a file.
class HistoryModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    enum Column { Started, Serial, Before, After, Outcome, Program, Central, ColumnCount };

    // centralSet: this PC sends its records to a central record, so an unsent one is
    // still on its way; without one it stays unsent.
    explicit HistoryModel(bool centralSet, QObject *parent = nullptr);

    void setRecords(const QList<FlashRecord> &records);
    // The texts are the current language's: after a change of language every view asks again.
    void retranslate();

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    QString text(const FlashRecord &record, int column) const;
    QString toolTip(const FlashRecord &record, int column) const;
    static QString outcomeText(const QString &outcome);

    QList<FlashRecord> shown;
    bool centralSet;
};
