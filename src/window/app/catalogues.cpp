#include "catalogues.h"

#include <QCoreApplication>

Catalogues::Catalogues(const QString &language)
{
    if (language != QLatin1String("German"))
        return;
    windowTexts = translator.load(QStringLiteral(":/translations/translations/flashloader_de"));
    (void)qtTranslator.load(QStringLiteral(":/translations/translations/qt_de"));
    QCoreApplication::installTranslator(&translator);
    QCoreApplication::installTranslator(&qtTranslator);
}

Catalogues::~Catalogues()
{
    // Removing a translator that was never installed does nothing.
    QCoreApplication::removeTranslator(&qtTranslator);
    QCoreApplication::removeTranslator(&translator);
}
