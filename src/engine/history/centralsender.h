#pragma once

#include "centraladdress.h"

#include <QObject>
#include <QThread>

class CentralOutbox;
class QTimer;

// Sends the history's finished records to the central record on a thread of its own,
// with its own connections: a flash never waits for the server. While the server is
// away it tries again, waiting twice as long each time, up to a minute.
class CentralSender : public QObject
{
    Q_OBJECT
public:
    CentralSender(const QString &historyPath, const CentralAddress &address, QObject *parent = nullptr);
    // Waits for its thread: stop() first where a call to the server must not be waited for.
    ~CentralSender() override;

    // A first pass at once.
    void start();
    // A record was completed: sent now, unless the server is away and the next try is set.
    void sendSoon();
    // Waits at most ms for a pass that sends everything; false when the time ran out or
    // the server could not take them.
    bool waitUntilSent(int ms);
    // Ends the thread, waiting at most ms; false when a call to the server still holds it.
    bool stop(int ms);

signals:
    // After each pass. left -1: unknown.
    void passEnded(int sent, int left, const QString &error);
    // After the pass that waitUntilSent asked for.
    void askedPassEnded(bool allSent);

private:
    // True when nothing is left to send.
    bool pass();

    QThread thread;
    QObject *home; // lives on the thread, with the outbox
    CentralOutbox *outbox = nullptr;
    QTimer *retry = nullptr;
    int backOffMs = 0;
    bool passAsked = false;
    QString historyPath;
    CentralAddress address;
};
