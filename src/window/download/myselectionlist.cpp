#include "myselectionlist.h"
#include "ui_myselectionlist.h"

#include <QCloseEvent>

MySelectionList::MySelectionList(const QStringList &items, const QString &userIdentifier, const QString &title,
                                 const QString &columnName, QWidget *parent)
    : QDialog(parent, Qt::WindowCloseButtonHint), ui(new Ui::MySelectionList), columnName(columnName)
{
    ui->setupUi(this);
    ui->label->setText(title);
    ui->userIdentifier_label->setText(userIdentifier);
    ui->userIdentifier_label->setVisible(!userIdentifier.isEmpty());
    for (const QString &item : items)
        new QTreeWidgetItem(ui->fileList, QStringList{item});
    ui->fileList->setRootIsDecorated(false);
    ui->fileList->setHeaderLabels({columnName});
    ui->fileList->header()->setStretchLastSection(true);
    // Something is always selected, so OK always means a choice.
    ui->fileList->setCurrentItem(ui->fileList->topLevelItem(0));
    connect(ui->buttonOK, &QPushButton::clicked, this, &MySelectionList::okSelect);
    connect(ui->buttonCancel, &QPushButton::clicked, this, &MySelectionList::cancelSelect);
    connect(ui->fileList, &QTreeWidget::itemDoubleClicked, this, &MySelectionList::okSelect);
}

MySelectionList::~MySelectionList()
{
    delete ui;
}

void MySelectionList::okSelect()
{
    if (selected || cancelled || !ui->fileList->currentItem())
        return;
    selected = true;
    hide();
    emit sendSelectEvent(ui->fileList->currentItem()->text(0));
}

void MySelectionList::cancelSelect()
{
    hide();
    cancelOnce();
}

void MySelectionList::reject()
{
    QDialog::reject();
    cancelOnce();
}

void MySelectionList::closeEvent(QCloseEvent *event)
{
    cancelOnce();
    event->accept();
}

void MySelectionList::cancelOnce()
{
    if (selected || cancelled)
        return;
    cancelled = true;
    emit sendCancelEvent();
}
