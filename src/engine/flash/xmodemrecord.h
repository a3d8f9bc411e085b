#pragma once

#include <QByteArray>
#include <QString>

// One chunk of xmodem-util's output, read for its four items. A chunk without all
// four is no complete record.
struct XmodemStatus {
    QString userMessage = QStringLiteral("not found");
    qint32 loadedSize = 0;
    qint32 allBinSize = 0;
    qint32 statusCode = -1;
};

XmodemStatus parseXmodemRecord(const QString &chunk);
// The same of the tool's raw bytes: the text ends at a NUL byte.
XmodemStatus parseXmodemRecord(const QByteArray &chunk);
