#include "ftptransport.h"

#include "app/logstream.h"

#include <QFileDevice>
#include <QtDebug>
#include <QSocketNotifier>
#include <QUrl>

// curl_multi_socket_all is only discouraged, for its cost: see the heartbeat.
#define CURL_DISABLE_DEPRECATION
#include <curl/curl.h>

#include <mutex>

namespace {
// A list is a few lines; more than this is no list we need to read.
constexpr int listLimit = 1 << 20;
} // namespace

struct FtpCallbacks {
    static int socket(CURL *, curl_socket_t socket, int what, void *self, void *);
    static int timer(CURLM *, long ms, void *self);
    static size_t write(char *data, size_t size, size_t count, void *self);
    static int progress(void *self, curl_off_t total, curl_off_t now, curl_off_t, curl_off_t);
};

FtpTransport::FtpTransport(QObject *parent) : QObject(parent)
{
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
    multi = curl_multi_init();
    easy = curl_easy_init();
    curl_multi_setopt(multi, CURLMOPT_SOCKETFUNCTION, &FtpCallbacks::socket);
    curl_multi_setopt(multi, CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(multi, CURLMOPT_TIMERFUNCTION, &FtpCallbacks::timer);
    curl_multi_setopt(multi, CURLMOPT_TIMERDATA, this);
    timer.setSingleShot(true);
    connect(&timer, &QTimer::timeout, this, &FtpTransport::timeout);
    // libcurl 7.88 can take an FTP passive reply that came with its command and then
    // wait for the data connection with no socket to watch and no timer due before
    // the ten-second limit. Its own blocking loop looks at every transfer at least once
    // a second and never notices; this tick does the same for us.
    heartbeat.setInterval(250);
    connect(&heartbeat, &QTimer::timeout, this, &FtpTransport::tick);
}

FtpTransport::~FtpTransport()
{
    aborted = true;
    detach();
    curl_easy_cleanup(easy);
    curl_multi_cleanup(multi);
    for (const QList<QSocketNotifier *> &pair : std::as_const(notifiers))
        qDeleteAll(pair);
}

void FtpTransport::list(const QString &host_, const QString &user_, const QString &password_,
                        const QStringList &folders)
{
    host = host_;
    user = user_;
    password = password_;
    folder.clear();
    steps = {{Connect, QString()}};
    for (int i = 0; i < folders.size(); ++i) {
        folder += QString::fromLatin1(QUrl::toPercentEncoding(folders[i])) + QLatin1Char('/');
        steps << Step{i == 0 ? ChangeFolder : ChangeUserFolder, folder};
    }
    steps << Step{List, folder};
    next();
}

void FtpTransport::fetch(const QStringList &names, const QList<QFileDevice *> &targets)
{
    steps.clear();
    for (int i = 0; i < names.size() && i < targets.size(); ++i)
        steps << Step{Fetch, folder + QString::fromLatin1(QUrl::toPercentEncoding(names[i])), targets[i], i};
    next();
}

void FtpTransport::next()
{
    if (aborted || steps.isEmpty())
        return;
    current = steps.takeFirst();
    lastDone = -1;
    const QByteArray url = "ftp://" + QUrl::toPercentEncoding(host, ":[]") + ":21/" + current.path.toLatin1();
    curl_easy_setopt(easy, CURLOPT_URL, url.constData());
    curl_easy_setopt(easy, CURLOPT_USERNAME, user.toUtf8().constData());
    curl_easy_setopt(easy, CURLOPT_PASSWORD, password.toUtf8().constData());
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    // Bigger pieces: fewer trips through the event loop for a big file.
    curl_easy_setopt(easy, CURLOPT_BUFFERSIZE, 512L * 1024);
    // Silence ends every command: no connection, no answer, or no data for ten seconds.
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT, 10L);
    curl_easy_setopt(easy, CURLOPT_SERVER_RESPONSE_TIMEOUT, 10L);
    curl_easy_setopt(easy, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(easy, CURLOPT_LOW_SPEED_TIME, 10L);
    // Only a transfer or a list has a body; the rest is a change of folder.
    curl_easy_setopt(easy, CURLOPT_NOBODY, long(current.command != Fetch && current.command != List));
    curl_easy_setopt(easy, CURLOPT_DIRLISTONLY, long(current.command == List));
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &FtpCallbacks::write);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, this);
    curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, &FtpCallbacks::progress);
    curl_easy_setopt(easy, CURLOPT_XFERINFODATA, this);
    if (current.command == List)
        listed.clear();
    running = true;
    curl_multi_add_handle(multi, easy);
    // libcurl asks for a new timer only when its value changes: start the command now.
    timer.start(0);
    heartbeat.start();
}

void FtpTransport::stepDone(int result)
{
    curl_multi_remove_handle(multi, easy);
    running = false;
    heartbeat.stop();
    if (aborted)
        return;
    if (result == CURLE_OPERATION_TIMEDOUT) {
        qWarning() << "FTP command timed out:" << current.command << quoted(current.path);
        steps.clear();
        emit timedOut();
        return;
    }
    const bool ok = result == CURLE_OK;
    if (current.command == Connect) {
        // One libcurl run is both: a refused login still had its connection.
        const bool connected = ok || result == CURLE_LOGIN_DENIED;
        emit commandFinished(Connect, !connected);
        if (!aborted && connected)
            emit commandFinished(Login, !ok);
    } else if (current.command == Fetch && ok) {
        emit fileFinished(current.index);
    } else {
        emit commandFinished(current.command, !ok);
    }
    if (!ok)
        steps.clear();
    // A receiver may already have started the next command (a fetch after the list).
    if (!running)
        next();
}

void FtpTransport::abort()
{
    aborted = true;
    steps.clear();
    // libcurl's own calls must not be re-entered from one of its callbacks.
    if (insideCurl)
        QTimer::singleShot(0, this, &FtpTransport::detach);
    else
        detach();
}

void FtpTransport::detach()
{
    timer.stop();
    heartbeat.stop();
    if (running) {
        curl_multi_remove_handle(multi, easy);
        running = false;
    }
}

void FtpTransport::perform(int socket, int flags)
{
    // libcurl hears of every event, also between commands: its idle connection may close.
    int stillRunning = 0;
    ++insideCurl;
    curl_multi_socket_action(multi, curl_socket_t(socket), flags, &stillRunning);
    --insideCurl;
    reap();
}

void FtpTransport::tick()
{
    int stillRunning = 0;
    ++insideCurl;
    curl_multi_socket_all(multi, &stillRunning);
    --insideCurl;
    reap();
}

void FtpTransport::reap()
{
    int left = 0;
    while (CURLMsg *message = running ? curl_multi_info_read(multi, &left) : nullptr) {
        if (message->msg == CURLMSG_DONE) {
            stepDone(message->data.result);
            break;
        }
    }
}

void FtpTransport::socketEvent(int socket, int flags)
{
    perform(socket, flags);
}

void FtpTransport::timeout()
{
    perform(CURL_SOCKET_TIMEOUT, 0);
}

int FtpCallbacks::socket(CURL *, curl_socket_t socket, int what, void *self, void *)
{
    auto *transport = static_cast<FtpTransport *>(self);
    QList<QSocketNotifier *> &pair = transport->notifiers[socket];
    if (what == CURL_POLL_REMOVE) {
        for (QSocketNotifier *notifier : pair) {
            notifier->setEnabled(false);
            notifier->deleteLater();
        }
        transport->notifiers.remove(socket);
        return 0;
    }
    if (pair.isEmpty()) {
        for (auto type : {QSocketNotifier::Read, QSocketNotifier::Write}) {
            auto *notifier = new QSocketNotifier(socket, type, transport);
            const int flag = type == QSocketNotifier::Read ? CURL_CSELECT_IN : CURL_CSELECT_OUT;
            QObject::connect(notifier, &QSocketNotifier::activated, transport,
                    [transport, socket, flag] { transport->socketEvent(socket, flag); });
            pair << notifier;
        }
    }
    pair[0]->setEnabled(what == CURL_POLL_IN || what == CURL_POLL_INOUT);
    pair[1]->setEnabled(what == CURL_POLL_OUT || what == CURL_POLL_INOUT);
    return 0;
}

int FtpCallbacks::timer(CURLM *, long ms, void *self)
{
    auto *transport = static_cast<FtpTransport *>(self);
    if (ms < 0)
        transport->timer.stop();
    else
        transport->timer.start(int(ms));
    return 0;
}

size_t FtpCallbacks::write(char *data, size_t size, size_t count, void *self)
{
    auto *transport = static_cast<FtpTransport *>(self);
    const qint64 length = qint64(size * count);
    if (transport->aborted)
        return 0;
    if (transport->current.command == FtpTransport::List) {
        if (transport->listed.size() + length <= listLimit)
            transport->listed.append(data, length);
        return size_t(length);
    }
    // A short write (disk full, say) fails the transfer.
    return size_t(transport->current.target->write(data, length));
}

int FtpCallbacks::progress(void *self, curl_off_t total, curl_off_t now, curl_off_t, curl_off_t)
{
    auto *transport = static_cast<FtpTransport *>(self);
    if (transport->aborted)
        return 1;
    if (transport->current.command == FtpTransport::Fetch && now != transport->lastDone) {
        transport->lastDone = now;
        emit transport->progress(qint64(now), qint64(total));
    }
    return 0;
}
