#pragma once

#include <QDialog>
#include <QTimer>

namespace Ui {
class BreakFlash;
}
class Settings;
class Version;

// Stands between the two stages of a boot loader run: tells the user to restart the
// device in flash mode, keeps asking the device whether it is back, and lets the run
// go on only while it is. exec() gives 1 to go on, 0 to give up.
class BreakFlash : public QDialog
{
    Q_OBJECT
public:
    BreakFlash(Settings *settings, QWidget *parent);
    ~BreakFlash() override;

public slots:
    void timeout();
    void clickedOK();
    void clickedCancel();

private:
    Ui::BreakFlash *ui;
    Settings *settings;
    Version *version;
    QTimer timer;
};
