#include "centralsender.h"

#include "centraloutbox.h"

#include <QEventLoop>
#include <QTimer>

namespace {
constexpr int firstBackOffMs = 1000;
constexpr int longestBackOffMs = 60000;
} // namespace

CentralSender::CentralSender(const QString &historyPath, const CentralAddress &address, QObject *parent)
    : QObject(parent), home(new QObject), historyPath(historyPath), address(address)
{
    home->moveToThread(&thread);
    thread.start();
}

CentralSender::~CentralSender()
{
    stop(-1);
    if (thread.isFinished())
        delete home;
}

void CentralSender::start()
{
    QMetaObject::invokeMethod(home, [this] {
        outbox = new CentralOutbox(historyPath, address);
        retry = new QTimer(home);
        retry->setSingleShot(true);
        connect(retry, &QTimer::timeout, home, [this] { pass(); });
        pass();
    });
}

void CentralSender::sendSoon()
{
    QMetaObject::invokeMethod(home, [this] {
        // While the server is away the back-off decides; several asks make one pass.
        if (!outbox || (retry && retry->isActive()) || passAsked)
            return;
        passAsked = true;
        QMetaObject::invokeMethod(home, [this] { pass(); }, Qt::QueuedConnection);
    });
}

// On the thread.
bool CentralSender::pass()
{
    passAsked = false;
    retry->stop();
    const CentralOutbox::Pass done = outbox->sendAll();
    if (done.ok && done.left == 0) {
        backOffMs = 0;
    } else {
        backOffMs = done.ok ? firstBackOffMs : qBound(firstBackOffMs, backOffMs * 2, longestBackOffMs);
        retry->start(backOffMs);
    }
    emit passEnded(done.sent, done.left, done.ok ? QString() : done.error);
    return done.ok && done.left == 0;
}

bool CentralSender::waitUntilSent(int ms)
{
    QEventLoop loop;
    bool sent = false;
    // The answer of this pass, not of one that began before the caller's last record.
    const auto heard = connect(this, &CentralSender::askedPassEnded, &loop, [&loop, &sent](bool allSent) {
        sent = allSent;
        loop.quit();
    });
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    QMetaObject::invokeMethod(home, [this] { emit askedPassEnded(outbox && pass()); });
    loop.exec();
    disconnect(heard);
    return sent;
}

bool CentralSender::stop(int ms)
{
    if (thread.isFinished())
        return true;
    // After the pass under way: the connections close on the thread that made them.
    QMetaObject::invokeMethod(home, [this] {
        delete outbox;
        outbox = nullptr;
        delete retry;
        retry = nullptr;
        thread.quit();
    });
    return ms < 0 ? thread.wait() : thread.wait(QDeadlineTimer(ms));
}
