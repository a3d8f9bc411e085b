// The history's records as a reader gets them: JSON lines and CSV.
#include "flashhistory.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

QJsonValue textOrNull(const QString &text)
{
    return text.isEmpty() ? QJsonValue(QJsonValue::Null) : QJsonValue(text);
}

// Doubled quotes, and every field quoted: names and errors come from outside. A field
// that a spreadsheet would take for a formula starts with an apostrophe.
QByteArray csvField(QString text)
{
    if (!text.isEmpty() && QStringLiteral("=+-@").contains(text.front()))
        text.prepend(QLatin1Char('\''));
    return '"' + text.replace(QLatin1Char('"'), QLatin1String("\"\"")).toUtf8() + '"';
}
} // namespace

QString isoText(const QDateTime &time)
{
    return time.isValid() ? time.toUTC().toString(Qt::ISODate) : QString();
}

static QJsonArray filesArray(const FlashRecord &record)
{
    QJsonArray files;
    for (const auto &file : record.files)
        files.append(QJsonObject{{"name", file.first}, {"sha256", file.second}});
    return files;
}

QString filesJson(const FlashRecord &record)
{
    return QString::fromUtf8(QJsonDocument(filesArray(record)).toJson(QJsonDocument::Compact));
}

QList<QPair<QString, QString>> filesFromJson(const QString &text)
{
    QList<QPair<QString, QString>> files;
    for (const QJsonValue &file : QJsonDocument::fromJson(text.toUtf8()).array())
        files << qMakePair(file[QLatin1String("name")].toString(), file[QLatin1String("sha256")].toString());
    return files;
}

QByteArray historyJson(const FlashRecord &record, bool central)
{
    QJsonObject object{{"id", textOrNull(record.id)},
                       {"started", isoText(record.started)},
                       {"ended", textOrNull(isoText(record.ended))},
                       {"station", textOrNull(record.station)},
                       {"operator", textOrNull(record.operatorId)},
                       {"order", textOrNull(record.order)},
                       {"host", record.host},
                       {"user", record.user},
                       {"program", record.program},
                       {"port", textOrNull(record.port)},
                       {"serial", textOrNull(record.serial)},
                       {"before", textOrNull(record.before)},
                       {"after", textOrNull(record.after)},
                       {"version", textOrNull(record.version)},
                       {"files", filesArray(record)},
                       {"signed", record.signedPackage},
                       {"signer", textOrNull(record.signer)},
                       {"tool", textOrNull(record.tool)},
                       {"outcome", record.outcome},
                       {"error", textOrNull(record.error)},
                       {"seconds", record.seconds}};
    if (central)
        object.insert(QLatin1String("received"), textOrNull(isoText(record.received)));
    else
        object.insert(QLatin1String("sent"), textOrNull(isoText(record.sent)));
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QByteArray historyCsvHeader(bool central)
{
    return QByteArray("id,started,ended,station,operator,order,host,user,program,port,serial,before,after,version,"
                      "files,signed,signer,tool,outcome,error,seconds,") +
           (central ? "received" : "sent");
}

QByteArray historyCsv(const FlashRecord &record, bool central)
{
    QStringList files;
    for (const auto &file : record.files)
        files << file.first + QLatin1Char(':') + file.second;
    QByteArrayList fields;
    for (const QString &text : {record.id, isoText(record.started), isoText(record.ended), record.station,
                                record.operatorId, record.order, record.host, record.user, record.program,
                                record.port, record.serial, record.before, record.after, record.version,
                                files.join(QLatin1Char(' '))})
        fields << csvField(text);
    fields << (record.signedPackage ? "yes" : "no");
    for (const QString &text : {record.signer, record.tool, record.outcome, record.error})
        fields << csvField(text);
    fields << QByteArray::number(record.seconds, 'f', 1);
    fields << csvField(isoText(central ? record.received : record.sent));
    return fields.join(',');
}
