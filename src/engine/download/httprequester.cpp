#include "httprequester.h"

#include "app/logstream.h"

#include <QFileDevice>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QtDebug>

namespace {
// A list is a few lines; more than this is no list we need to read.
constexpr qint64 listLimit = 1 << 20;
} // namespace

HttpRequester::HttpRequester(Settings *settings, QObject *parent)
    : QObject(parent), settings(settings), timer(new QTimer(this)), manager(new QNetworkAccessManager(this))
{
    timer->setSingleShot(true);
    timer->setInterval(10000);
    connect(timer, &QTimer::timeout, this, &HttpRequester::loopTimeout);
}

void HttpRequester::get(const QUrl &url, QFileDevice *file)
{
    abort();
    data.clear();
    sink = file;
    QNetworkRequest request(url);
    // Redirects are followed, but never from https to plain http.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setMaximumRedirectsAllowed(5);
    reply = manager->get(request);
    reply->setReadBufferSize(256 * 1024);
    received = 0;
    // Progress is counted here: Qt's own signal is held back within 100 ms of the last,
    // and data that comes just before a stall would then go unseen.
    connect(reply, &QNetworkReply::readyRead, this, &HttpRequester::readAvailable);
    connect(reply, &QNetworkReply::finished, this, &HttpRequester::replyFinished);
    timer->start();
}

void HttpRequester::abort()
{
    timer->stop();
    if (QNetworkReply *running = reply.data()) {
        reply = nullptr;
        running->disconnect(this);
        running->abort();
        running->deleteLater();
    }
}

void HttpRequester::slotDownloadProgress(qint64 done, qint64 total)
{
    // Every piece of data restarts the ten seconds: silence ends a request, length does not.
    timer->start();
    emit sigDownloadProgress(done, total);
}

void HttpRequester::readAvailable()
{
    const QByteArray piece = reply->readAll();
    received += piece.size();
    const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
    slotDownloadProgress(received, length.isValid() ? length.toLongLong() : -1);
    if (!reply)
        return;
    if (sink) {
        if (sink->write(piece) != piece.size()) {
            end(true, sink->errorString());
        }
    } else if (data.size() + piece.size() <= listLimit) {
        data += piece;
    } else {
        qWarning() << "List reply cut at" << listLimit << "bytes";
        data += piece.left(listLimit - data.size());
        end(false, QString());
    }
}

void HttpRequester::replyFinished()
{
    if (reply->error() != QNetworkReply::NoError) {
        end(true, reply->errorString());
        return;
    }
    readAvailable();
    if (reply)
        end(false, QString());
}

void HttpRequester::loopTimeout()
{
    qDebug() << "loop timeout";
    end(true, tr("Network Timeout Error"));
}

void HttpRequester::end(bool error, const QString &message)
{
    abort();
    emit sigCommandFinished(error, message);
}
