#include "stationpage.h"

#include "stationrecords.h"
#include "stationstate.h"

#include "history/flashhistory.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QMessageAuthenticationCode>
#include <QNetworkInterface>
#include <QSysInfo>

#include <microhttpd.h>

#include <arpa/inet.h>
#include <cstring>
#include <netinet/in.h>

namespace {
// Enough for every browser of a line and a monitoring system, never for a crowd.
constexpr unsigned connectionLimit = 64;
constexpr unsigned perAddressLimit = 16;
constexpr unsigned idleSeconds = 10;
constexpr size_t requestMemory = 16 * 1024; // a request's line and headers
constexpr int searchLimit = 500;
constexpr int csvPageRows = 500;

QByteArray resource(const QString &name)
{
    QFile file(QStringLiteral(":/page/") + name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The browser's first choice between the page's two languages.
QByteArray pageLanguage(const QByteArray &accept)
{
    double best = -1;
    QByteArray chosen = "en";
    for (const QByteArray &item : accept.split(',')) {
        const QList<QByteArray> parts = item.trimmed().split(';');
        const QByteArray tag = parts.value(0).trimmed().toLower();
        double weight = 1;
        for (int i = 1; i < parts.size(); ++i) {
            const QByteArray parameter = parts[i].trimmed();
            if (parameter.startsWith("q="))
                weight = parameter.mid(2).toDouble();
        }
        const QByteArray language = tag.left(2);
        if ((language == "de" || language == "en") && weight > best) {
            best = weight;
            chosen = language;
        }
    }
    return chosen;
}

QString argument(MHD_Connection *connection, const char *name)
{
    return QString::fromUtf8(MHD_lookup_connection_value(connection, MHD_GET_ARGUMENT_KIND, name));
}

MHD_Response *bufferResponse(const QByteArray &body)
{
    return MHD_create_response_from_buffer(size_t(body.size()), const_cast<char *>(body.constData()),
                                           MHD_RESPMEM_MUST_COPY);
}
} // namespace

// The history read for the page on a thread of its own: Qt's database connections serve the
// thread that made them, and the server's thread is libmicrohttpd's.
class PageHistory : public QObject
{
public:
    explicit PageHistory(const QString &path) : path(path) {}

    bool read(const HistoryFilter &filter, const std::function<bool(const FlashRecord &)> &each)
    {
        if (!history.isOpen() && !history.openForReading(path))
            return false;
        return history.forEach(filter, each);
    }

private:
    const QString path;
    FlashHistory history;
};

// What a streamed CSV has read so far.
struct StationPage::Request {
    StationPage *page;
    HistoryFilter filter;
    QByteArray buffer;
    qsizetype sent = 0;
    bool done = false;
};

bool StationPage::parseListen(const QString &text, QHostAddress *address, quint16 *port, QString *why)
{
    QString host = QStringLiteral("127.0.0.1");
    QString number = text;
    const int colon = text.lastIndexOf(QLatin1Char(':'));
    if (colon >= 0) {
        host = text.left(colon);
        number = text.mid(colon + 1);
        if (host.startsWith(QLatin1Char('[')) && host.endsWith(QLatin1Char(']')))
            host = host.mid(1, host.size() - 2);
    }
    bool ok = false;
    const uint value = number.toUInt(&ok);
    if (!ok || value < 1 || value > 65535) {
        *why = QStringLiteral("--http takes [ADDRESS:]PORT, a port from 1 to 65535");
        return false;
    }
    if (!address->setAddress(host)) {
        *why = QStringLiteral("--http takes an IP address, not \"%1\"").arg(host);
        return false;
    }
    *port = quint16(value);
    return true;
}

QByteArray StationPage::readToken(const QString &path, QString *why)
{
    const QFileInfo info(path);
    QFile file(path);
    if (!info.isFile() || !file.open(QIODevice::ReadOnly)) {
        *why = QStringLiteral("--http-token-file: cannot read %1").arg(path);
        return {};
    }
    if (info.permissions() & QFileDevice::ReadOther) {
        *why = QStringLiteral("--http-token-file: every user of this PC can read %1; let only the station read it "
                              "(chmod o-rwx)")
                   .arg(path);
        return {};
    }
    const QByteArray token = file.read(4096).trimmed();
    if (token.size() < 32 || token.contains('\n')) {
        *why = QStringLiteral("--http-token-file: %1 must hold one secret of at least 32 characters").arg(path);
        return {};
    }
    return QCryptographicHash::hash(token, QCryptographicHash::Sha256);
}

StationPage::StationPage(const StationState *state, Options given) : state(state), options(std::move(given))
{
}

// The names the page answers to, with the port it is bound to.
void StationPage::allowHosts()
{
    const QString port = QString::number(boundPort);
    QStringList names = options.hosts;
    QList<QHostAddress> addresses{options.address};
    if (options.address.isLoopback())
        names << QStringLiteral("localhost");
    // Bound to every address: the PC's own addresses and name are no rebound names.
    if (options.address == QHostAddress::AnyIPv4 || options.address == QHostAddress::AnyIPv6 ||
        options.address == QHostAddress::Any) {
        addresses << QNetworkInterface::allAddresses();
        names << QSysInfo::machineHostName();
    }
    for (const QHostAddress &address : std::as_const(addresses)) {
        const QString text = address.protocol() == QAbstractSocket::IPv6Protocol
                                 ? QLatin1Char('[') + address.toString() + QLatin1Char(']')
                                 : address.toString();
        names << text;
    }
    for (const QString &name : std::as_const(names)) {
        allowedHosts << name.toLower();
        allowedHosts << name.toLower() + QLatin1Char(':') + port;
    }
}

StationPage::~StationPage()
{
    if (daemon)
        MHD_stop_daemon(daemon);
    if (reader) {
        QMetaObject::invokeMethod(reader, [this] { delete reader; }, Qt::BlockingQueuedConnection);
        readerThread.quit();
        readerThread.wait();
    }
}

QString StationPage::where() const
{
    const QString host = options.address.protocol() == QAbstractSocket::IPv6Protocol
                             ? QLatin1Char('[') + options.address.toString() + QLatin1Char(']')
                             : options.address.toString();
    return host + QLatin1Char(':') + QString::number(boundPort);
}

bool StationPage::start(QString *why)
{
    sockaddr_in v4{};
    sockaddr_in6 v6{};
    const sockaddr *address = nullptr;
    unsigned flags = MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_AUTO;
    if (options.address.protocol() == QAbstractSocket::IPv6Protocol) {
        v6.sin6_family = AF_INET6;
        v6.sin6_port = htons(options.port);
        const Q_IPV6ADDR bytes = options.address.toIPv6Address();
        std::memcpy(&v6.sin6_addr, &bytes, sizeof bytes);
        address = reinterpret_cast<const sockaddr *>(&v6);
        flags |= MHD_USE_IPv6;
    } else {
        v4.sin_family = AF_INET;
        v4.sin_port = htons(options.port);
        v4.sin_addr.s_addr = htonl(options.address.toIPv4Address());
        address = reinterpret_cast<const sockaddr *>(&v4);
    }
    boundPort = options.port;
    readerThread.setObjectName(QStringLiteral("page history"));
    reader = new PageHistory(options.historyPath);
    reader->moveToThread(&readerThread);
    readerThread.start();
    const MHD_AccessHandlerCallback answer = [](void *self, MHD_Connection *connection, const char *url,
                                                const char *method, const char *, const char *, size_t *uploadSize,
                                                void **) {
        // A body is never read: no request here carries one.
        *uploadSize = 0;
        return static_cast<StationPage *>(self)->respond(connection, QByteArray(url), QByteArray(method)) == MHD_YES
                   ? MHD_YES
                   : MHD_NO;
    };
    daemon = MHD_start_daemon(flags, options.port, nullptr, nullptr, answer, this,
                              MHD_OPTION_SOCK_ADDR, address,
                              MHD_OPTION_CONNECTION_LIMIT, connectionLimit,
                              MHD_OPTION_PER_IP_CONNECTION_LIMIT, perAddressLimit,
                              MHD_OPTION_CONNECTION_TIMEOUT, idleSeconds,
                              MHD_OPTION_CONNECTION_MEMORY_LIMIT, requestMemory,
                              MHD_OPTION_END);
    if (!daemon) {
        *why = QStringLiteral("Cannot serve the station's page on %1: the address is taken or not this PC's")
                   .arg(where());
        return false;
    }
    // Port 0 asks for any free one: say which.
    const MHD_DaemonInfo *info = MHD_get_daemon_info(daemon, MHD_DAEMON_INFO_BIND_PORT);
    boundPort = info ? info->port : options.port;
    allowHosts();
    return true;
}

bool StationPage::hostAllowed(const QByteArray &host) const
{
    return allowedHosts.contains(QString::fromLatin1(host).toLower());
}

bool StationPage::authorized(const QByteArray &header) const
{
    if (options.tokenDigest.isEmpty())
        return true;
    QByteArray token;
    if (header.startsWith("Bearer ")) {
        token = header.mid(7).trimmed();
    } else if (header.startsWith("Basic ")) {
        const QByteArray pair = QByteArray::fromBase64(header.mid(6).trimmed());
        const qsizetype colon = pair.indexOf(':');
        if (colon < 0)
            return false;
        token = pair.mid(colon + 1); // any user name
    } else {
        return false;
    }
    // Digests of equal length, compared in constant time.
    const QByteArray given = QCryptographicHash::hash(token, QCryptographicHash::Sha256);
    unsigned char difference = 0;
    for (int i = 0; i < given.size(); ++i)
        difference |= static_cast<unsigned char>(given[i] ^ options.tokenDigest[i]);
    return difference == 0;
}

QByteArray StationPage::stateJson(const QByteArray &acceptLanguage)
{
    const StationState::Snapshot snapshot = state->snapshot();
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    // The history is read again when a record was completed, and the last hour moves on.
    if (snapshot.records != recentOf || now - recentAt > 10000) {
        QByteArray recent = "[";
        int hour = 0;
        bool read = false;
        QMetaObject::invokeMethod(
            reader,
            [this, &recent, &hour, &read] {
                HistoryFilter filter;
                filter.newestFirst = true;
                filter.limit = 50;
                read = reader->read(filter, [&recent](const FlashRecord &record) {
                    if (recent.size() > 1)
                        recent += ',';
                    recent += historyJson(record);
                    return true;
                });
                HistoryFilter lastHourFilter;
                lastHourFilter.since = QDateTime::currentDateTimeUtc().addSecs(-3600);
                read = read && reader->read(lastHourFilter, [&hour](const FlashRecord &record) {
                    if (record.outcome != QLatin1String("pending"))
                        ++hour;
                    return true;
                });
            },
            Qt::BlockingQueuedConnection);
        // A history that cannot be read now: what was read before stays, asked again next time.
        if (read) {
            recentJson = recent + ']';
            lastHour = hour;
            recentOf = snapshot.records;
            recentAt = now;
        }
    }
    QJsonObject object = StationState::json(snapshot);
    object.insert(QStringLiteral("lastHour"), lastHour);
    object.insert(QStringLiteral("program"), options.programVersion);
    object.insert(QStringLiteral("language"), QString::fromLatin1(pageLanguage(acceptLanguage)));
    QByteArray body = QJsonDocument(object).toJson(QJsonDocument::Compact);
    body.chop(1);
    return body + ",\"recent\":" + recentJson + '}';
}

int StationPage::respond(MHD_Connection *connection, const QByteArray &path, const QByteArray &method)
{
    const auto header = [connection](const char *name) {
        return QByteArray(MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name));
    };
    unsigned status = MHD_HTTP_OK;
    QByteArray body;
    QByteArray type = "text/plain; charset=utf-8";
    MHD_Response *response = nullptr;
    if (!hostAllowed(header(MHD_HTTP_HEADER_HOST))) {
        status = MHD_HTTP_MISDIRECTED_REQUEST;
        body = "This station answers to its own address only.\n";
    } else if (!authorized(header(MHD_HTTP_HEADER_AUTHORIZATION))) {
        status = MHD_HTTP_UNAUTHORIZED;
        body = "The station's token is needed.\n";
    } else if (method != "GET" && method != "HEAD") {
        status = MHD_HTTP_METHOD_NOT_ALLOWED;
        body = "The station's page is read-only.\n";
    } else if (path == "/") {
        type = "text/html; charset=utf-8";
        body = resource(QStringLiteral("index.html"));
        body.replace("lang=\"en\"", "lang=\"" + pageLanguage(header(MHD_HTTP_HEADER_ACCEPT_LANGUAGE)) + '"');
    } else if (path == "/page.js" || path == "/page.css") {
        type = path.endsWith(".js") ? "text/javascript; charset=utf-8" : "text/css; charset=utf-8";
        body = resource(QString::fromLatin1(path.mid(1)));
    } else if (path == "/api/state") {
        type = "application/json";
        body = stateJson(header(MHD_HTTP_HEADER_ACCEPT_LANGUAGE));
    } else if (path == "/api/history") {
        type = "application/json";
        HistoryFilter filter;
        filter.serial = argument(connection, "serial");
        filter.newestFirst = true;
        filter.limit = searchLimit;
        body = "[";
        bool read = false;
        QMetaObject::invokeMethod(
            reader,
            [this, &filter, &body, &read] {
                read = reader->read(filter, [&body](const FlashRecord &record) {
                    if (body.size() > 1)
                        body += ',';
                    body += historyJson(record);
                    return true;
                });
            },
            Qt::BlockingQueuedConnection);
        body += ']';
        if (!read) {
            status = MHD_HTTP_SERVICE_UNAVAILABLE;
            type = "text/plain; charset=utf-8";
            body = "The history cannot be read now.\n";
        }
    } else if (path == "/history.csv") {
        const QString since = argument(connection, "since");
        auto *request = new Request{this, {}, historyCsvHeader() + "\r\n", 0, false};
        request->filter.serial = argument(connection, "serial");
        request->filter.since = StationRecords::sinceDate(since);
        request->filter.limit = csvPageRows;
        if (!since.isEmpty() && !request->filter.since.isValid()) {
            delete request;
            status = MHD_HTTP_BAD_REQUEST;
            body = "since takes a date such as 2026-11-24\n";
        } else {
            type = "text/csv; charset=utf-8";
            response = MHD_create_response_from_callback(
                MHD_SIZE_UNKNOWN, 64 * 1024,
                [](void *cls, uint64_t, char *out, size_t max) -> ssize_t {
                    auto *csv = static_cast<Request *>(cls);
                    if (csv->sent == csv->buffer.size() && !csv->done) {
                        csv->buffer.clear();
                        csv->sent = 0;
                        int rows = 0;
                        bool read = false;
                        QMetaObject::invokeMethod(
                            csv->page->reader,
                            [csv, &rows, &read] {
                                read = csv->page->reader->read(csv->filter, [csv, &rows](const FlashRecord &record) {
                                    csv->buffer += historyCsv(record) + "\r\n";
                                    csv->filter.afterStarted = record.started;
                                    csv->filter.afterRow = record.row;
                                    ++rows;
                                    return true;
                                });
                                // A record without a start to go on from would start the pages again.
                                read = read && (rows == 0 || csv->filter.afterStarted.isValid());
                            },
                            Qt::BlockingQueuedConnection);
                        // A history that cannot be read ends the download short: never a
                        // file that looks whole.
                        if (!read)
                            return MHD_CONTENT_READER_END_WITH_ERROR;
                        csv->done = rows < csvPageRows;
                    }
                    if (csv->sent == csv->buffer.size())
                        return MHD_CONTENT_READER_END_OF_STREAM;
                    const qsizetype size = qMin(qsizetype(max), csv->buffer.size() - csv->sent);
                    std::memcpy(out, csv->buffer.constData() + csv->sent, size_t(size));
                    csv->sent += size;
                    return ssize_t(size);
                },
                request, [](void *cls) { delete static_cast<Request *>(cls); });
            if (!response) {
                delete request;
                return MHD_NO;
            }
            MHD_add_response_header(response, "Content-Disposition", "attachment; filename=\"history.csv\"");
        }
    } else if (path == "/favicon.ico") {
        status = MHD_HTTP_NO_CONTENT; // asked by every browser: no icon, and no error in its console
    } else if (path == "/metrics") {
        type = "text/plain; version=0.0.4; charset=utf-8";
        body = StationState::metrics(state->snapshot(), options.programVersion);
    } else {
        status = MHD_HTTP_NOT_FOUND;
        body = "Not found.\n";
    }
    if (!response)
        response = bufferResponse(body);
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, type.constData());
    MHD_add_response_header(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
    MHD_add_response_header(response, "X-Content-Type-Options", "nosniff");
    MHD_add_response_header(response, "Referrer-Policy", "no-referrer");
    MHD_add_response_header(response, "X-Frame-Options", "DENY");
    // Only the page's own script and style run, and nothing is fetched from elsewhere.
    MHD_add_response_header(response, "Content-Security-Policy",
                            "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; "
                            "img-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'");
    if (status == MHD_HTTP_UNAUTHORIZED)
        MHD_add_response_header(response, MHD_HTTP_HEADER_WWW_AUTHENTICATE,
                                "Basic realm=\"morvanta-station\", charset=\"UTF-8\"");
    if (status == MHD_HTTP_METHOD_NOT_ALLOWED)
        MHD_add_response_header(response, MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
    const int queued = MHD_queue_response(connection, status, response);
    MHD_destroy_response(response);
    return queued;
}
