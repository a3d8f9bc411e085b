#include "dialog.h"

#include "app/settings.h"

#include <QMessageBox>
#include <QtDebug>

Dialog::Dialog(SearchOptions options, bool dfuMissing, QWidget *parent)
    : QDialog(parent), dfuMissing(dfuMissing), options(std::move(options))
{
    resize(672, 365);
    settings = new Settings(this);
}

Dialog::~Dialog() = default;

void Dialog::handleSettingError()
{
    qDebug() << "Installation corrputed! Uninstall and install again!";
    QMessageBox box;
    ErrorTexts::setupMessageBox(box, ErrorTexts::Error, tr("Installation corrupted! Please uninstall and install again!"));
    box.exec();
    setEnabled(false);
}
