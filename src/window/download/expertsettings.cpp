#include "expertsettings.h"
#include "ui_expertsettings.h"

ExpertSettings::ExpertSettings(QWidget *parent)
    : QDialog(parent, Qt::Dialog | Qt::WindowTitleHint | Qt::CustomizeWindowHint), ui(new Ui::ExpertSettings)
{
    ui->setupUi(this);
    connect(ui->buttonBox, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(ui->buttonBox, &QDialogButtonBox::rejected, this, &QDialog::reject);
}

ExpertSettings::~ExpertSettings()
{
    delete ui;
}

QString ExpertSettings::getUserIdentifier() const
{
    return ui->userIdentifier->text();
}
