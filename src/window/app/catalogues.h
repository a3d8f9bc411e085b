#pragma once

#include <QString>
#include <QTranslator>

// The window's German texts and Qt's own, installed while this object lives. Any other
// language name installs nothing: the texts stay English.
class Catalogues
{
public:
    explicit Catalogues(const QString &language);
    ~Catalogues();
    Catalogues(const Catalogues &) = delete;
    Catalogues &operator=(const Catalogues &) = delete;

private:
    QTranslator translator;
    QTranslator qtTranslator;
    bool installed = false;
};
