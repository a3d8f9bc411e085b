#pragma once

#include <QByteArray>
#include <QDebug>
#include <QString>
#include <QStringList>

// The log keeps the shapes of the classic debug stream: a value in double quotes,
// written as it is. Qt 6 escapes line feeds, quotes and bytes instead, so values go
// through quoted() on their way into a log line.
struct LogText {
    QString text;
};

// A fragment composed at run time, written like a literal: no quotes, one blank behind.
LogText plain(const QString &text);
LogText quoted(const QString &text);
LogText quoted(const QByteArray &bytes);
// ("a", "b")
LogText quoted(const QStringList &list);

QDebug operator<<(QDebug debug, const LogText &value);

// Text from outside with its hidden control characters (terminal escapes, bidirectional
// overrides) written as \xNN or \uNNNN; line feeds, returns and tabs stay.
QString withVisibleControls(const QString &text);
