#pragma once

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
