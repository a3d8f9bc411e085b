#include "mymenu.h"

#include "about.h"
#include "historyview.h"
#include "licenseview.h"

#include "app/log.h"
#include "app/settings.h"
#include "history/centraladdress.h"
#include "history/flashhistory.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QTextBrowser>
#include <QUrl>

MyMenu::MyMenu(Settings *settings, const QString &language)
    : aboutWindow(new About), licenseWindow(new LicenseView), settings(settings), language(language)
{
}

MyMenu::~MyMenu()
{
    delete aboutWindow;
    delete licenseWindow;
    delete historyWindow;
}

static void showAndActivate(QWidget *window)
{
    window->show();
    if (!window->isActiveWindow())
        window->activateWindow();
}

void MyMenu::about()
{
    showAndActivate(aboutWindow);
}

void MyMenu::license()
{
    QTextCursor cursor = licenseWindow->textView()->textCursor();
    cursor.setPosition(0);
    licenseWindow->textView()->setTextCursor(cursor);
    showAndActivate(licenseWindow);
}

void MyMenu::log()
{
    // The log lives in the program's private working folder.
    const QFileInfo file(Log::filePath());
    if (!file.isFile() || !QDesktopServices::openUrl(QUrl::fromLocalFile(file.absoluteFilePath())))
        emit sendMsgBox(ErrorTexts::Error, tr("Unable to open log file!"));
}

void MyMenu::manual()
{
    const QString name = QLatin1String("Manual_") +
                         (language == QLatin1String("German") ? QLatin1String("de.pdf") : QLatin1String("en.pdf"));
    // Installed beside the program; a folder of manuals the program is started in also serves.
    const QFileInfo beside(QDir(QCoreApplication::applicationDirPath()).absoluteFilePath(name));
    const QFileInfo here(QDir(QDir::currentPath()).absoluteFilePath(name));
    const QFileInfo file = beside.isFile() || !here.isFile() ? beside : here;
    if (!file.isFile() || !QDesktopServices::openUrl(QUrl::fromLocalFile(file.absoluteFilePath())))
        emit sendMsgBox(ErrorTexts::Error, tr("Unable to open manual! %1").arg(file.absoluteFilePath()));
}

void MyMenu::history()
{
    // Open: read again, a flash may have ended since. Closed, it goes with its connection.
    if (historyWindow) {
        historyWindow->reload();
    } else {
        CentralAddress::Problem problem = CentralAddress::Problem::None;
        QString why;
        const bool centralSet =
            CentralAddress::parse(settings->getValue(QStringLiteral("central")), &problem, &why).isSet();
        historyWindow = new HistoryView(FlashHistory::defaultPath(), centralSet);
        historyWindow->setAttribute(Qt::WA_DeleteOnClose);
    }
    showAndActivate(historyWindow);
}

void MyMenu::changeLanguageTo(const QString &name)
{
    if (language == name)
        return;
    settings->setValue(QStringLiteral("language"), name);
    emit changeLanguage();
}

void MyMenu::changeLanguageGerman()
{
    changeLanguageTo(QStringLiteral("German"));
}

void MyMenu::changeLanguageEnglish()
{
    changeLanguageTo(QStringLiteral("English"));
}
