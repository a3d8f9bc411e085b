#include "logstream.h"

LogText plain(const QString &text)
{
    return {text};
}

// Control characters could rewrite what a reader of the log sees (a carriage return
// without its line feed aside, escapes of a terminal, bidirectional overrides): in text
// from outside they stand as \xNN or \uNNNN. Line feeds, returns and tabs keep their shape.
static bool isHiddenControl(QChar c)
{
    const char16_t u = c.unicode();
    if (u == u'\n' || u == u'\r' || u == u'\t')
        return false;
    return c.category() == QChar::Other_Control || (u >= 0x202a && u <= 0x202e) || (u >= 0x2066 && u <= 0x2069);
}

QString withVisibleControls(const QString &text)
{
    QString shown;
    shown.reserve(text.size());
    for (const QChar c : text) {
        if (!isHiddenControl(c))
            shown += c;
        else if (c.unicode() < 0x80)
            shown += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
        else
            shown += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
    }
    return shown;
}

LogText quoted(const QString &text)
{
    return {QLatin1Char('"') + withVisibleControls(text) + QLatin1Char('"')};
}

// Length of the valid UTF-8 sequence at bytes[i], or 0.
static int utf8SequenceAt(const QByteArray &bytes, int i)
{
    const uchar lead = uchar(bytes[i]);
    const int length = lead >= 0xf0 && lead <= 0xf4 ? 4 : lead >= 0xe0 ? 3 : lead >= 0xc2 && lead < 0xe0 ? 2 : 0;
    if (length == 0 || i + length > bytes.size())
        return 0;
    for (int k = 1; k < length; ++k) {
        if ((uchar(bytes[i + k]) & 0xc0) != 0x80)
            return 0;
    }
    // Overlong forms, surrogates and values beyond Unicode decode to U+FFFD.
    return QString::fromUtf8(bytes.constData() + i, length).contains(QChar::ReplacementCharacter) ? 0 : length;
}

LogText quoted(const QByteArray &bytes)
{
    // Tool output is untrusted: what is no text stands as \xNN, so the log stays a
    // text file that any viewer shows whole.
    QString text;
    text.reserve(bytes.size());
    for (int i = 0; i < bytes.size();) {
        const uchar c = uchar(bytes[i]);
        if (c >= 0x20 && c < 0x7f) {
            text += QLatin1Char(char(c));
            ++i;
        } else if (c == '\n' || c == '\r' || c == '\t') {
            text += QLatin1Char(char(c));
            ++i;
        } else if (const int length = c >= 0x80 ? utf8SequenceAt(bytes, i) : 0) {
            text += QString::fromUtf8(bytes.constData() + i, length);
            i += length;
        } else {
            text += QStringLiteral("\\x%1").arg(c, 2, 16, QLatin1Char('0'));
            ++i;
        }
    }
    return quoted(text);
}

LogText quoted(const QStringList &list)
{
    QStringList parts;
    parts.reserve(list.size());
    for (const QString &entry : list)
        parts << QLatin1Char('"') + withVisibleControls(entry) + QLatin1Char('"');
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
