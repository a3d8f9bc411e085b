#include "breakflash.h"
#include "ui_breakflash.h"

#include "dialogquestions.h"

#include "firmware/version.h"

BreakFlash::BreakFlash(Settings *settings, QWidget *parent)
    : QDialog(parent, Qt::Dialog | Qt::WindowTitleHint | Qt::CustomizeWindowHint), ui(new Ui::BreakFlash),
      settings(settings), version(new Version(settings, this))
{
    ui->setupUi(this);
    connect(&timer, &QTimer::timeout, this, &BreakFlash::timeout);
    connect(ui->buttonOK, &QPushButton::clicked, this, &BreakFlash::clickedOK);
    connect(ui->buttonCancel, &QPushButton::clicked, this, &BreakFlash::clickedCancel);
    // Time to turn the device off before the first look.
    timer.start(8000);
}

BreakFlash::~BreakFlash()
{
    delete ui;
}

void BreakFlash::timeout()
{
    bool found = false;
    bool hasV = false;
    version->getDeviceVersion(&found, &hasV);
    if (found) {
        ui->label_devicefound->setText(tr("Device connected!"));
        ui->buttonOK->setEnabled(true);
        ui->buttonOK->setFocus(Qt::OtherFocusReason);
        return;
    }
    ui->label_devicefound->setText(tr("Device not connected!"));
    ui->buttonOK->setEnabled(false);
    timer.start(2000);
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
