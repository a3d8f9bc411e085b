#pragma once

#include <QDialog>
#include <QStringList>

namespace Ui {
class MySelectionList;
}

// A list to pick one entry from: a firmware version in expert mode, a USB drive.
class MySelectionList : public QDialog
{
    Q_OBJECT
public:
    MySelectionList(const QStringList &items, const QString &userIdentifier, const QString &title,
                    const QString &columnName, QWidget *parent);
    ~MySelectionList() override;

signals:
    void sendSelectEvent(QString item);
    void sendCancelEvent();

public slots:
    void okSelect();
    void cancelSelect();

    // Escape, like Cancel and the close button, ends the choice.
    void reject() override;

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void cancelOnce();

    Ui::MySelectionList *ui;
    bool selected = false;
    bool cancelled = false;
    QString columnName;
};
