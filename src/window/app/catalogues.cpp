#include "catalogues.h"

#include <QCoreApplication>

Catalogues::Catalogues(const QString &language)
{
    if (language != QLatin1String("German"))
        return;
    (void)translator.load(QStringLiteral(":/translations/translations/flashloader_de"));
    (void)qtTranslator.load(QStringLiteral(":/translations/translations/qt_de"));
    QCoreApplication::installTranslator(&translator);
    QCoreApplication::installTranslator(&qtTranslator);
    installed = true;
}

Catalogues::~Catalogues()
{
    if (!installed)
        return;
    QCoreApplication::removeTranslator(&qtTranslator);
    QCoreApplication::removeTranslator(&translator);
}
