#include "startupboxes.h"

#include "app/exitcode.h"

#include <QMessageBox>

#include <cstdlib>

static void runBox(const QString &title, const QString &text, QMessageBox::Icon icon)
{
    QMessageBox box;
    box.setWindowTitle(title);
    box.setTextFormat(Qt::PlainText);
    box.setText(text);
    box.setIcon(icon);
    box.exec();
}

void showHelpBox(const QString &text)
{
    runBox(QStringLiteral("HELP"), text, QMessageBox::Information);
}

void showParameterError(const QString &text)
{
    runBox(QStringLiteral("PARAMETER ERROR"), text, QMessageBox::Critical);
}

void showInstallationCorrupted()
{
    runBox(QStringLiteral("ERROR"), QStringLiteral("Installation corrupted! Uninstall and install again"),
           QMessageBox::Critical);
    std::exit(toInt(ExitCode::Failed));
}

void showAlreadyRunning()
{
    runBox(QStringLiteral("ERROR"), QStringLiteral("One Instance already running"), QMessageBox::Critical);
    std::exit(toInt(ExitCode::Failed));
}
