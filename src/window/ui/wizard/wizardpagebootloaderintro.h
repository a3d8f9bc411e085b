#pragma once

#include <QWizardPage>

namespace Ui {
class WizardPageBootStrapIntro;
}

// The warning that has to be read, and ticked as read, before anything else.
class WizardPageBootLoaderIntro : public QWizardPage
{
    Q_OBJECT
public:
    explicit WizardPageBootLoaderIntro(QWidget *parent);
    ~WizardPageBootLoaderIntro() override;

    bool isComplete() const override;
    bool validatePage() override;

public slots:
    void readInformation();

private:
    Ui::WizardPageBootStrapIntro *ui;
};
