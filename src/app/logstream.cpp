#include "logstream.h"

LogText plain(const QString &text)
{
    return {text};
}

LogText quoted(const QString &text)
{
    return {QLatin1Char('"') + text + QLatin1Char('"')};
}

LogText quoted(const QByteArray &bytes)
{
    return quoted(QString::fromLocal8Bit(bytes));
}

LogText quoted(const QStringList &list)
{
    QStringList parts;
    parts.reserve(list.size());
    for (const QString &entry : list)
        parts << QLatin1Char('"') + entry + QLatin1Char('"');
    return {QLatin1Char('(') + parts.join(QLatin1String(", ")) + QLatin1Char(')')};
}

QDebug operator<<(QDebug debug, const LogText &value)
{
    const bool spaces = debug.autoInsertSpaces();
    debug.setAutoInsertSpaces(false);
    debug.noquote() << value.text;
    debug.quote();
    debug.setAutoInsertSpaces(spaces);
    return spaces ? debug.maybeSpace() : debug;
}
