#include "dialogquestions.h"

#include <QtDebug>

#include <QMessageBox>

bool DialogQuestions::ask(const QString &text)
{
    QMessageBox box;
    box.setWindowTitle(QStringLiteral("QUESTION"));
    box.setTextFormat(Qt::PlainText); // questions quote versions and paths from outside
    box.setText(text);
    box.setIcon(QMessageBox::Question);
    box.setStandardButtons(QMessageBox::Yes | QMessageBox::No);
    box.setDefaultButton(QMessageBox::No);
    box.setEscapeButton(QMessageBox::No);
    return box.exec() == QMessageBox::Yes;
}

bool DialogQuestions::questionFlash(bool automatic, int compare)
{
    if (automatic)
        return true;
    switch (compare) {
    case 0:
        return ask(tr("Current version equals latest version.\nDo you want to continue?\nPress 'Yes' to perform "
                      "flashing or 'No' to cancel"));
    case 1:
        return ask(tr("Do you want to start flashing?\nPress 'Yes' to perform flashing or 'No' to cancel"));
    case 2:
        return ask(tr("Selected version is older than current version.\nDo you want to continue?\nPress 'Yes' to "
                      "perform flashing or 'No' to cancel"));
    default:
        return ask(QString());
    }
}

bool DialogQuestions::questionRecoverDevice(bool automatic)
{
    if (automatic) {
        qWarning() << "The device is in update mode: the selected firmware is flashed without a question";
        return true;
    }
    return ask(tr("The device is in update mode: an earlier flash did not end. Flash the selected firmware now?"));
}

bool DialogQuestions::questionAbortDownload()
{
    return ask(tr("Do you really want\nto abort download?"));
}

bool DialogQuestions::questionClose(const QString &hint)
{
    return ask(tr("Do you really want to close?%1").arg(hint));
}

bool DialogQuestions::questionAbortFlash()
{
    return ask(tr("Do you really want to abort\nflashing process?"));
}

bool DialogQuestions::questionAbortUsbWrite()
{
    return ask(tr("Do you really want to abort\nwriting to USB drive process?"));
}

bool DialogQuestions::questionAbortBootLoader()
{
    return ask(tr("Do you really want to abort\nboot loader flashing process?\nThis will cause serious problems!"));
}

bool DialogQuestions::questionUpgrade()
{
    return ask(tr("A new version of %1 is available.\nDo you want to upgrade?").arg(QStringLiteral("Morvanta")));
}

bool DialogQuestions::questionOverwriteFiles()
{
    return ask(tr("Firmware files already\nexist in directory!\nDo you want to overwrite\nexisting files?"));
}

bool DialogQuestions::questionOverwriteFolder(const QString &path)
{
    return ask(tr("Output directory for firmware files already exits!\nDo you want to overwrite existing directory?") +
               QLatin1Char('\n') + path);
}

bool DialogQuestions::questionDownload(const QString &version, int option)
{
    switch (option) {
    case 0:
    case 1:
        return ask(tr("Do you want to download firmware files with version %1?\nPress 'Yes' to download or 'No' "
                      "to cancel")
                       .arg(version));
    case 2:
        return ask(tr("Do you want to download boot loader file with version %1?\nPress 'Yes' to download or 'No' "
                      "to cancel")
                       .arg(version));
    case 3:
    case 4:
        return ask(tr("Do you want to download firmware file with version %1?\nPress 'Yes' to download or 'No' to "
                      "cancel")
                       .arg(version));
    default:
        return ask(QString());
    }
}
