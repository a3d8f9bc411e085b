#pragma once

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>
#include <QUrl>

class QFileDevice;
class QNetworkAccessManager;
class QNetworkReply;
class Settings;

// One HTTP GET at a time. It ends with sigCommandFinished, or in silence after
// abort(); ten seconds without data end it with "Network Timeout Error". A reply goes
// into the given file as it arrives, or, without one, is kept (a list, up to 1 MiB).
class HttpRequester : public QObject
{
    Q_OBJECT
public:
    HttpRequester(Settings *settings, QObject *parent);

    void get(const QUrl &url, QFileDevice *sink = nullptr);
    void abort();
    QByteArray getData() const { return data; }

signals:
    void sigDownloadProgress(qint64 done, qint64 total);
    void sigCommandFinished(bool error, QString errorMessage);

private slots:
    void slotDownloadProgress(qint64 done, qint64 total);
    void loopTimeout();
    void readAvailable();
    void replyFinished();

private:
    void end(bool error, const QString &message);

    Settings *settings;
    QByteArray data;
    QTimer *timer;
    QNetworkAccessManager *manager;
    QPointer<QNetworkReply> reply;
    QFileDevice *sink = nullptr;
    qint64 received = 0;
};
