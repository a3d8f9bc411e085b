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
    // Whether the window's own German texts are in place.
    bool loaded() const { return windowTexts; }

private:
    QTranslator translator;
    QTranslator qtTranslator;
    bool windowTexts = false;
};
