#pragma once

#include <QDialog>

namespace Ui {
class BreakFlash;
}

// Stands between the two stages of a boot loader run: tells the user to restart the
// device in flash mode and shows whether the flash job sees it back; it lets the run go
// on only while it does. exec() gives 1 to go on, 0 to give up.
class BreakFlash : public QDialog
{
    Q_OBJECT
public:
    explicit BreakFlash(QWidget *parent);
    ~BreakFlash() override;

public slots:
    void deviceSeen(bool present);
    void clickedOK();
    void clickedCancel();

private:
    Ui::BreakFlash *ui;
};
