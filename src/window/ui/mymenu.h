#pragma once

#include "app/errortexts.h"

#include <QObject>
#include <QString>

class About;
class LicenseView;
class Settings;

// What the Help menu opens: manual, log, language, notices, About.
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
    void changeLanguageGerman();
    void changeLanguageEnglish();

signals:
    void changeLanguage();
    void sendMsgBox(ErrorTexts::errorLevel level, QString text);

private:
    void changeLanguageTo(const QString &name);

    About *aboutWindow;
    LicenseView *licenseWindow;
    Settings *settings;
    QString language;
};
