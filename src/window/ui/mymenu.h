#pragma once

#include "app/errortexts.h"

#include <QObject>
#include <QPointer>
#include <QString>

class About;
class HistoryView;
class LicenseView;
class Settings;

// What the Help menu opens: manual, log, flash history, language, notices, About.
class MyMenu : public QObject
{
    Q_OBJECT
public:
    MyMenu(Settings *settings, const QString &language);
    ~MyMenu() override;

public slots:
    void about();
    void license();
    void log();
    void manual();
    void history();
    void changeLanguageGerman();
    void changeLanguageEnglish();

signals:
    void changeLanguage();
    void sendMsgBox(ErrorTexts::errorLevel level, QString text);

private:
    void changeLanguageTo(const QString &name);

    About *aboutWindow;
    LicenseView *licenseWindow;
    QPointer<HistoryView> historyWindow; // made when asked for, gone when closed
    Settings *settings;
    QString language;
};
