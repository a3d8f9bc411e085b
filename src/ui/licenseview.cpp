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
    QTextStream stream(&notices);
    for (QString line = stream.readLine(); !line.isNull(); line = stream.readLine())
        ui->textView->append(line);
}

LicenseView::~LicenseView()
{
    delete ui;
}

QTextBrowser *LicenseView::textView() const
{
    return ui->textView;
}
