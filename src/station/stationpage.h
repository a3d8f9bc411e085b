#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QThread>

struct MHD_Connection;
struct MHD_Daemon;
class PageHistory;
class StationState;

// The station's page, its JSON and its metrics, served by libmicrohttpd on a thread of its
// own beside the flashing: read-only, the Host checked against the names it was given (a
// page elsewhere cannot read it through a rebound name), a token for any address but the
// loopback, and limits on connections, request size and slow clients.
class StationPage
{
public:
    struct Options {
        QHostAddress address{QHostAddress::LocalHost};
        quint16 port = 0;
        QByteArray tokenDigest; // SHA-256 of the token; empty: none asked
        QStringList hosts;      // further names the page may be asked by
        QString historyPath;
        QString programVersion;
    };

    // "[ADDR:]PORT"; false with the reason when it is no such thing.
    static bool parseListen(const QString &text, QHostAddress *address, quint16 *port, QString *why);
    // The token's SHA-256, or empty with the reason: a file of one secret of at least 32
    // characters, which no other user may read.
    static QByteArray readToken(const QString &path, QString *why);

    StationPage(const StationState *state, Options options);
    ~StationPage();
    StationPage(const StationPage &) = delete;
    StationPage &operator=(const StationPage &) = delete;

    bool start(QString *why);
    // The address and port it listens on ("127.0.0.1:8080").
    QString where() const;

private:
    struct Request;
    int respond(MHD_Connection *connection, const QByteArray &path, const QByteArray &method);
    void allowHosts();
    bool hostAllowed(const QByteArray &host) const;
    bool authorized(const QByteArray &header) const;
    QByteArray stateJson(const QByteArray &acceptLanguage);

    const StationState *state;
    const Options options;
    quint16 boundPort = 0;
    QSet<QString> allowedHosts;
    MHD_Daemon *daemon = nullptr;
    QThread readerThread;
    PageHistory *reader = nullptr; // lives on readerThread
    // The history's part of the state, kept on the server's thread.
    QByteArray recentJson = "[]";
    int lastHour = 0;
    quint64 recentOf = ~quint64(0);
    qint64 recentAt = 0;
};
