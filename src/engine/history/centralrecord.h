#pragma once

#include "centraladdress.h"
#include "flashhistory.h"

#include <functional>

// The plant's record of every flash of every station, in PostgreSQL: one table `flashes`
// keyed by the records' UUIDs, the schema's version in `morvanta_schema`. Made on first
// use where the role may; a version this program does not know is never written to.
// Blocks while it talks to the server: for a thread that may wait. A connection serves
// the thread that made it.
class CentralRecord
{
public:
    static constexpr int schemaVersion = 1;

    explicit CentralRecord(const CentralAddress &address);
    ~CentralRecord();
    CentralRecord(const CentralRecord &) = delete;
    CentralRecord &operator=(const CentralRecord &) = delete;

    // Connects, if it is not, and makes sure of the schema.
    bool open();
    void close();
    QString error() const { return lastError; }

    // In one transaction; a record the server has already is left as it is, so a batch
    // sent twice counts once.
    bool send(const QList<FlashRecord> &records);
    // Oldest first, one at a time.
    bool forEach(const HistoryFilter &filter, const std::function<bool(const FlashRecord &)> &each);

private:
    bool ensureSchema();
    bool exec(const QString &statement);
    QSqlDatabase db() const;

    CentralAddress address;
    QString connection;
    QString lastError;
    bool schemaChecked = false;
};
