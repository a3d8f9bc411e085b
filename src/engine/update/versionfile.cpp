#include "versionfile.h"

#include <QRegularExpression>
#include <QStringList>

namespace {
QString iniValue(const QString &raw)
{
    QString value;
    bool inQuotes = false;
    for (const QChar c : raw) {
        if (c == QLatin1Char('"'))
            inQuotes = !inQuotes;
        else if (c == QLatin1Char(';') && !inQuotes)
            break;
        else
            value += c;
    }
    return inQuotes ? raw.trimmed() : value.trimmed();
}
} // namespace

QHash<QString, QString> parseIniGeneral(const QByteArray &bytes)
{
    QHash<QString, QString> keys;
    QString text = QString::fromUtf8(bytes);
    if (text.startsWith(QChar(0xfeff)))
        text.remove(0, 1);
    bool general = true;
    for (const QString &rawLine : text.split(QRegularExpression(QStringLiteral("[\r\n]")), Qt::SkipEmptyParts)) {
        const QString line = rawLine.trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char(';')) || line.startsWith(QLatin1Char('#')))
            continue;
        if (line.startsWith(QLatin1Char('['))) {
            general = line.compare(QLatin1String("[General]"), Qt::CaseInsensitive) == 0;
            continue;
        }
        const qsizetype equals = line.indexOf(QLatin1Char('='));
        if (!general || equals <= 0)
            continue;
        keys.insert(line.left(equals).trimmed().toLower(), iniValue(line.mid(equals + 1)));
    }
    return keys;
}
