#pragma once

#include <QWidget>

namespace Ui {
class LicenseView;
}
class QTextBrowser;

// The notices of the open-source components we ship.
class LicenseView : public QWidget
{
    Q_OBJECT
public:
    LicenseView();
    ~LicenseView() override;
    QTextBrowser *textView() const;

private:
    Ui::LicenseView *ui;
};
