#pragma once

#include <QWizardPage>

namespace Ui {
class WizardPageBottStrapChoose;
}
class Settings;

// Download first, or flash files at hand. An internal installation has no download.
class WizardPageBootLoaderChoose : public QWizardPage
{
    Q_OBJECT
public:
    WizardPageBootLoaderChoose(Settings *settings, QWidget *parent);
    ~WizardPageBootLoaderChoose() override;

    void initializePage() override;
    int nextId() const override;

private:
    Ui::WizardPageBottStrapChoose *ui;
    Settings *settings;
};
