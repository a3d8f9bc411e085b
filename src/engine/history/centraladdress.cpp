#include "centraladdress.h"

#include <QCoreApplication>
#include <QRegularExpression>
#include <QUrl>
#include <QUrlQuery>

namespace {
// libpq's quoting: a value in single quotes, its quotes and backslashes escaped.
QString quotedValue(QString value)
{
    return QLatin1Char('\'') + value.replace(QLatin1Char('\\'), QLatin1String("\\\\")).replace(QLatin1Char('\''), QLatin1String("\\'")) +
           QLatin1Char('\'');
}
} // namespace

CentralAddress CentralAddress::parse(const QString &text, Problem *problem, QString *why)
{
    *problem = Problem::None;
    CentralAddress address;
    if (text.isEmpty())
        return address;
    const QUrl url(text, QUrl::StrictMode);
    const auto refuse = [problem, why](Problem found, const QString &reason) {
        *problem = found;
        *why = reason;
        return CentralAddress();
    };
    if (!url.isValid() || (url.scheme() != QLatin1String("postgresql") && url.scheme() != QLatin1String("postgres")))
        return refuse(Problem::NotAUri, QStringLiteral("takes a URL such as postgresql://station@db.plant.example/morvanta"));
    const QUrlQuery query(url);
    if (!url.password().isEmpty() || query.hasQueryItem(QStringLiteral("password")))
        return refuse(Problem::Password,
                      QStringLiteral("holds a password, which every user of this PC could read: put it in a password "
                                     "file instead (~/.pgpass, the file PGPASSFILE names, or passfile= in the URL)"));
    static const QRegularExpression keyword(QStringLiteral("^[a-z_]+$"));
    for (const auto &item : query.queryItems(QUrl::FullyDecoded)) {
        // Qt's driver joins the parameters with semicolons.
        if (!keyword.match(item.first).hasMatch() || item.second.contains(QLatin1Char(';')))
            return refuse(Problem::NotAUri, QStringLiteral("has a parameter that is none: %1").arg(item.first));
        address.parameters << item;
    }
    address.uri = text;
    address.host = url.host(QUrl::FullyDecoded);
    address.port = url.port(-1);
    address.user = url.userName(QUrl::FullyDecoded);
    address.database = url.path(QUrl::FullyDecoded).mid(1);
    return address;
}

void CentralAddress::apply(QSqlDatabase &db) const
{
    db.setHostName(host);
    db.setPort(port);
    db.setUserName(user);
    db.setDatabaseName(database);
    QList<QPair<QString, QString>> all = parameters;
    const QList<QPair<QString, QString>> defaults{
        {QStringLiteral("connect_timeout"), QStringLiteral("5")},
        {QStringLiteral("keepalives"), QStringLiteral("1")},
        {QStringLiteral("keepalives_idle"), QStringLiteral("5")},
        {QStringLiteral("keepalives_interval"), QStringLiteral("2")},
        {QStringLiteral("keepalives_count"), QStringLiteral("3")},
        // A statement whose answer does not come in 10 s on a dead path fails.
        {QStringLiteral("tcp_user_timeout"), QStringLiteral("10000")},
        {QStringLiteral("application_name"), QCoreApplication::applicationName()}};
    for (const auto &fallback : defaults) {
        const bool given =
            std::any_of(all.cbegin(), all.cend(), [&fallback](const auto &item) { return item.first == fallback.first; });
        if (!given)
            all << fallback;
    }
    QStringList options;
    for (const auto &item : std::as_const(all))
        options << item.first + QLatin1Char('=') + quotedValue(item.second);
    db.setConnectOptions(options.join(QLatin1Char(';')));
}
