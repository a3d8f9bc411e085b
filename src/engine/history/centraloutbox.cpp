#include "centraloutbox.h"

namespace {
constexpr int batchSize = 200;
}

CentralOutbox::CentralOutbox(const QString &historyPath, const CentralAddress &address)
    : path(historyPath), central(address)
{
}

CentralOutbox::Pass CentralOutbox::sendAll()
{
    Pass pass;
    pass.left = -1;
    if (!history.isOpen() && !history.open(path)) {
        pass.error = QStringLiteral("Cannot open the history %1: %2").arg(path, history.error());
        return pass;
    }
    QList<FlashRecord> batch;
    bool read = false;
    while ((read = history.unsent(batchSize, &batch)) && !batch.isEmpty()) {
        if (!central.send(batch)) {
            pass.error = QStringLiteral("The central record cannot take records: %1").arg(central.error());
            pass.left = history.unsentCount();
            return pass;
        }
        QList<qint64> rows;
        for (const FlashRecord &record : std::as_const(batch))
            rows << record.row;
        // Not marked: they go again, and the server keeps the first.
        if (!history.markSent(rows)) {
            pass.error = QStringLiteral("Cannot mark records sent in %1: %2").arg(path, history.error());
            pass.left = history.unsentCount();
            return pass;
        }
        pass.sent += batch.size();
    }
    if (!read) {
        pass.error = QStringLiteral("Cannot read the history %1: %2").arg(path, history.error());
        return pass;
    }
    // What came in meanwhile goes with the next pass.
    pass.ok = true;
    pass.left = qMax(0, history.unsentCount());
    return pass;
}
