#include "wizardpagebootloaderintro.h"
#include "ui_wizardpagebootloaderintro.h"

#include <QAbstractButton>
#include <QWizard>

WizardPageBootLoaderIntro::WizardPageBootLoaderIntro(QWidget *parent)
    : QWizardPage(parent), ui(new Ui::WizardPageBootStrapIntro)
{
    ui->setupUi(this);
    connect(ui->readInformation, &QCheckBox::clicked, this, &WizardPageBootLoaderIntro::readInformation);
}

WizardPageBootLoaderIntro::~WizardPageBootLoaderIntro()
{
    delete ui;
}

bool WizardPageBootLoaderIntro::isComplete() const
{
    return ui->readInformation->isChecked();
}

void WizardPageBootLoaderIntro::readInformation()
{
    wizard()->button(QWizard::NextButton)->setEnabled(ui->readInformation->isChecked());
}

bool WizardPageBootLoaderIntro::validatePage()
{
    if (!ui->readInformation->isChecked())
        wizard()->button(QWizard::NextButton)->setEnabled(false);
    return ui->readInformation->isChecked();
}
