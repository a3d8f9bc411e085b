#include "breakflash.h"
#include "ui_breakflash.h"

#include "dialogquestions.h"

BreakFlash::BreakFlash(QWidget *parent)
    : QDialog(parent, Qt::Dialog | Qt::WindowTitleHint | Qt::CustomizeWindowHint), ui(new Ui::BreakFlash)
{
    ui->setupUi(this);
    connect(ui->buttonOK, &QPushButton::clicked, this, &BreakFlash::clickedOK);
    connect(ui->buttonCancel, &QPushButton::clicked, this, &BreakFlash::clickedCancel);
}

BreakFlash::~BreakFlash()
{
    delete ui;
}

void BreakFlash::deviceSeen(bool present)
{
    ui->label_devicefound->setText(present ? tr("Device connected!") : tr("Device not connected!"));
    ui->buttonOK->setEnabled(present);
    if (present)
        ui->buttonOK->setFocus(Qt::OtherFocusReason);
}

void BreakFlash::clickedOK()
{
    done(1);
}

void BreakFlash::clickedCancel()
{
    if (DialogQuestions::questionAbortBootLoader())
        done(0);
}
