#pragma once

#include "centralrecord.h"
#include "flashhistory.h"

// The local history as the central record's outbox: finished records go in batches,
// each marked sent only after the server committed it. A cut between the two sends the
// batch again, and the server keeps the first. Blocks: for a thread that may wait.
class CentralOutbox
{
public:
    CentralOutbox(const QString &historyPath, const CentralAddress &address);

    struct Pass {
        int sent = 0;
        int left = 0;    // -1: unknown, the history could not be read
        bool ok = false; // nothing went wrong
        QString error;
    };
    // Sends what is there, batch by batch, until nothing is left or something fails.
    Pass sendAll();
    void disconnect() { central.close(); }

private:
    QString path;
    FlashHistory history;
    CentralRecord central;
};
