#pragma once

#include <QDialog>

namespace Ui {
class ExpertSettings;
}

// Asks whether expert mode is really wanted, and for the optional user identifier
// customer support gave out.
class ExpertSettings : public QDialog
{
    Q_OBJECT
public:
    explicit ExpertSettings(QWidget *parent);
    ~ExpertSettings() override;

    QString getUserIdentifier() const;

private:
    Ui::ExpertSettings *ui;
};
