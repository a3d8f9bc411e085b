#include "about.h"
#include "ui_about.h"

namespace {
// Build date and release of this program, as the About window shows them.
const int buildYear = 2026;
const int buildMonth = 6;
const int buildDay = 16;
const char releaseLetter = 'R';
const int releaseRevision = 0;
} // namespace

About::About() : QWidget(nullptr, Qt::WindowCloseButtonHint), ui(new Ui::About)
{
    ui->setupUi(this);
    ui->dateLabel->setText(QStringLiteral("Build:      %1.%2.%3").arg(buildDay).arg(buildMonth).arg(buildYear));
    ui->releaseLabel->setText(releaseLetter == 'R' ? QString()
                                                   : QStringLiteral("%1 - %2").arg(QChar(releaseLetter)).arg(releaseRevision));
    ui->labelApplicationName->setText(QStringLiteral("Morvanta"));
}

About::~About()
{
    delete ui;
}
