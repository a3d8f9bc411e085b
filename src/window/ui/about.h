#pragma once

#include <QWidget>

namespace Ui {
class About;
}

// The About window: maker, program name, build date and release.
class About : public QWidget
{
    Q_OBJECT
public:
    About();
    ~About() override;

private:
    Ui::About *ui;
};
