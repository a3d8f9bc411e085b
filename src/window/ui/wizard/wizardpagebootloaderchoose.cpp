#include "wizardpagebootloaderchoose.h"
#include "ui_wizardpagebootloaderchoose.h"

#include "wizardbootloader.h"

#include "app/settings.h"

WizardPageBootLoaderChoose::WizardPageBootLoaderChoose(Settings *settings, QWidget *parent)
    : QWizardPage(parent), ui(new Ui::WizardPageBottStrapChoose), settings(settings)
{
    ui->setupUi(this);
}

WizardPageBootLoaderChoose::~WizardPageBootLoaderChoose()
{
    delete ui;
}

void WizardPageBootLoaderChoose::initializePage()
{
    if (settings->getValue(QStringLiteral("mode")) == QLatin1String("internal")) {
        ui->radioSelect->setChecked(true);
        ui->radioDownload->setEnabled(false);
    }
}

int WizardPageBootLoaderChoose::nextId() const
{
    return ui->radioDownload->isChecked() ? WizardBootLoader::Download : WizardBootLoader::Select;
}
