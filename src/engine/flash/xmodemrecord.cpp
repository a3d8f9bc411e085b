#include "xmodemrecord.h"

#include <QRegularExpression>

XmodemStatus parseXmodemRecord(const QString &chunk)
{
    static const QRegularExpression message(QStringLiteral("\"user_message\": \"([^\"]*)\""));
    static const QRegularExpression loaded(QStringLiteral("\"loaded_size\": ([0-9]+)"));
    static const QRegularExpression all(QStringLiteral("\"all_bin_size\": ([0-9]+)"));
    static const QRegularExpression status(QStringLiteral("\"status_code\": ([0-9]+)"));

    // First occurrences count, so a chunk with two records is read as its first.
    const QRegularExpressionMatch m = message.match(chunk);
    const QRegularExpressionMatch l = loaded.match(chunk);
    const QRegularExpressionMatch a = all.match(chunk);
    const QRegularExpressionMatch s = status.match(chunk);
    if (!m.hasMatch() || !l.hasMatch() || !a.hasMatch() || !s.hasMatch())
        return XmodemStatus();
    // A number too large for 32 bits reads as 0.
    return {m.captured(1), l.captured(1).toInt(), a.captured(1).toInt(), s.captured(1).toInt()};
}

XmodemStatus parseXmodemRecord(const QByteArray &chunk)
{
    const qsizetype nul = chunk.indexOf('\0');
    return parseXmodemRecord(QString::fromLatin1(nul < 0 ? chunk : chunk.left(nul)));
}
