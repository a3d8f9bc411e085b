#include "licenseview.h"
#include "ui_licenseview.h"

#include <QFile>
#include <QFontDatabase>
#include <QTextStream>

LicenseView::LicenseView() : QWidget(nullptr, Qt::WindowCloseButtonHint), ui(new Ui::LicenseView)
{
    ui->setupUi(this);
    // The notices carry tables and rulers drawn with characters.
    ui->textView->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    QFile notices(QStringLiteral(":/license/license/License_Morvanta.txt"));
    if (!notices.open(QIODevice::ReadOnly | QIODevice::Text))
        return;
    // In one piece: appended line by line, the notices cost every start half a second.
    ui->textView->setPlainText(QTextStream(&notices).readAll());
}

LicenseView::~LicenseView()
{
    delete ui;
}

QTextBrowser *LicenseView::textView() const
{
    return ui->textView;
}
