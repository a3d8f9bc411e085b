#include "stationstate.h"

#include "history/flashhistory.h"

#include <QFileInfo>
#include <QJsonArray>

namespace {
const char *const outcomes[] = {"flashed", "recovered", "current", "failed", "stopped", "skipped"};

QJsonValue textOrNull(const QString &text)
{
    return text.isEmpty() ? QJsonValue(QJsonValue::Null) : QJsonValue(text);
}

// A label's value in Prometheus' text: backslash, quote and line feed escaped.
QByteArray labelValue(const QString &text)
{
    QByteArray value = text.toUtf8();
    value.replace('\\', "\\\\").replace('"', "\\\"").replace('\n', "\\n");
    return value;
}

QByteArray number(double value)
{
    return QByteArray::number(value, 'g', 10);
}

void metric(QByteArray &text, const char *name, const char *type, const char *help)
{
    text += QByteArray("# HELP ") + name + ' ' + help + "\n# TYPE " + name + ' ' + type + '\n';
}
} // namespace

StationState::StationState(const QString &station, bool signedPackage)
{
    state.station = station;
    state.signedPackage = signedPackage;
    state.since = QDateTime::currentDateTimeUtc();
    state.day = QDate::currentDate();
}

void StationState::rollDay(Snapshot &s) const
{
    const QDate today = QDate::currentDate();
    if (s.day != today) {
        s.day = today;
        s.today = StationOutput::Counts();
    }
}

void StationState::setWatchedPorts(const QStringList &ports)
{
    QMutexLocker lock(&mutex);
    everyPort = ports.isEmpty();
    for (const QString &port : ports)
        state.tiles[port];
}

void StationState::setToday(const StationOutput::Counts &counts)
{
    QMutexLocker lock(&mutex);
    state.today = counts;
    state.day = QDate::currentDate();
}

void StationState::setPackage(const QString &version, const QStringList &files)
{
    QStringList names;
    for (const QString &file : files)
        names << QFileInfo(file).fileName();
    QMutexLocker lock(&mutex);
    state.packageVersion = version;
    state.packageFiles = names;
}

void StationState::setCentral(int pending, const QString &error)
{
    QMutexLocker lock(&mutex);
    state.centralSet = true;
    state.centralUp = error.isEmpty();
    state.outboxPending = pending;
    state.centralError = error;
}

void StationState::recordCompleted()
{
    QMutexLocker lock(&mutex);
    ++state.records;
}

void StationState::heard(const QJsonObject &event)
{
    const QString kind = event.value(QLatin1String("event")).toString();
    const QString port = event.value(QLatin1String("port")).toString();
    QMutexLocker lock(&mutex);
    rollDay(state);
    if (port.isEmpty())
        return;
    const bool known = state.tiles.contains(port);
    if (!known && !everyPort)
        return; // a port this watch leaves alone has no tile
    Tile &tile = state.tiles[port];
    if (kind == QLatin1String("device") && event.value(QLatin1String("arrived")).toBool()) {
        if (!tile.flashing)
            tile.serial = event.value(QLatin1String("serial")).toString();
    } else if (kind == QLatin1String("start")) {
        tile = Tile();
        tile.flashing = true;
        tile.serial = event.value(QLatin1String("serial")).toString();
        tile.before = event.value(QLatin1String("before")).toString();
    } else if (kind == QLatin1String("file")) {
        tile.stage = event.value(QLatin1String("stage")).toString();
        tile.file = event.value(QLatin1String("file")).toString();
        tile.number = event.value(QLatin1String("number")).toInt();
        tile.total = event.value(QLatin1String("total")).toInt();
        tile.percent = 0;
        tile.remaining = -1;
    } else if (kind == QLatin1String("progress")) {
        tile.percent = event.value(QLatin1String("percent")).toInt();
        tile.remaining = event.value(QLatin1String("remaining")).toInt(-1);
    } else if (kind == QLatin1String("error")) {
        tile.error = event.value(QLatin1String("text")).toString();
    } else if (kind == QLatin1String("result") || kind == QLatin1String("skipped")) {
        const bool skipped = kind == QLatin1String("skipped");
        const QString outcome = skipped ? QStringLiteral("skipped") : event.value(QLatin1String("outcome")).toString();
        tile.flashing = false;
        tile.outcome = outcome;
        tile.serial = event.value(QLatin1String("serial")).toString();
        tile.ended = QDateTime::currentDateTimeUtc();
        if (skipped) {
            tile.error = event.value(QLatin1String("reason")).toString();
        } else {
            tile.before = event.value(QLatin1String("before")).toString();
            tile.after = event.value(QLatin1String("after")).toString();
            tile.seconds = event.value(QLatin1String("seconds")).toDouble();
            if (outcome != QLatin1String("failed"))
                tile.error.clear();
            int bucket = 0;
            while (bucket < int(durationBounds.size()) && tile.seconds > durationBounds[bucket])
                ++bucket;
            ++state.durations[bucket];
            state.durationSum += tile.seconds;
            ++state.durationCount;
        }
        state.today.add(outcome);
        state.total.add(outcome);
    }
}

StationState::Snapshot StationState::snapshot() const
{
    QMutexLocker lock(&mutex);
    Snapshot copy = state;
    lock.unlock();
    rollDay(copy);
    return copy;
}

QJsonObject StationState::json(const Snapshot &s)
{
    QJsonArray tiles;
    for (auto it = s.tiles.cbegin(); it != s.tiles.cend(); ++it) {
        const Tile &tile = it.value();
        QJsonObject object{{"port", it.key()},
                           {"state", tile.flashing              ? QStringLiteral("flashing")
                                     : tile.outcome.isEmpty() ? QStringLiteral("waiting")
                                                              : QStringLiteral("done")},
                           {"serial", textOrNull(tile.serial)},
                           {"outcome", textOrNull(tile.outcome)},
                           {"before", textOrNull(tile.before)},
                           {"after", textOrNull(tile.after)},
                           {"error", textOrNull(tile.error)}};
        if (tile.flashing) {
            object.insert(QStringLiteral("stage"), textOrNull(tile.stage));
            object.insert(QStringLiteral("file"), textOrNull(tile.file));
            object.insert(QStringLiteral("number"), tile.number);
            object.insert(QStringLiteral("total"), tile.total);
            object.insert(QStringLiteral("percent"), tile.percent);
            object.insert(QStringLiteral("remaining"), tile.remaining < 0 ? QJsonValue() : QJsonValue(tile.remaining));
        } else if (!tile.outcome.isEmpty()) {
            object.insert(QStringLiteral("ended"), isoText(tile.ended));
            object.insert(QStringLiteral("seconds"), tile.seconds);
        }
        tiles.append(object);
    }
    QJsonObject today;
    const int values[] = {s.today.flashed, s.today.recovered, s.today.current,
                          s.today.failed,  s.today.stopped,   s.today.skipped};
    for (int i = 0; i < 6; ++i)
        today.insert(QLatin1String(outcomes[i]), values[i]);
    // A unit stopped or skipped is no failure of the line's yield.
    const int good = s.today.flashed + s.today.recovered + s.today.current;
    const int tried = good + s.today.failed;
    QJsonObject central;
    if (s.centralSet)
        central = {{"up", s.centralUp},
                   {"pending", s.outboxPending < 0 ? QJsonValue() : QJsonValue(s.outboxPending)},
                   {"error", textOrNull(s.centralError)}};
    return {{"station", s.station},
            {"since", isoText(s.since)},
            {"package", QJsonObject{{"version", textOrNull(s.packageVersion)},
                                    {"files", QJsonArray::fromStringList(s.packageFiles)},
                                    {"signed", s.signedPackage}}},
            {"central", s.centralSet ? QJsonValue(central) : QJsonValue()},
            {"ports", tiles},
            {"today", today},
            {"yield", tried == 0 ? QJsonValue() : QJsonValue(double(good) / tried)}};
}

QByteArray StationState::metrics(const Snapshot &s, const QString &programVersion)
{
    QByteArray text;
    metric(text, "morvanta_units_total", "counter", "Units whose run ended since the station started, by outcome.");
    const int values[] = {s.total.flashed, s.total.recovered, s.total.current,
                          s.total.failed,  s.total.stopped,   s.total.skipped};
    for (int i = 0; i < 6; ++i)
        text += QByteArray("morvanta_units_total{outcome=\"") + outcomes[i] + "\"} " + QByteArray::number(values[i]) + '\n';
    metric(text, "morvanta_port_busy", "gauge", "1 while a unit is flashed on the port.");
    for (auto it = s.tiles.cbegin(); it != s.tiles.cend(); ++it)
        text += "morvanta_port_busy{port=\"" + labelValue(it.key()) + "\"} " + (it->flashing ? "1" : "0") + '\n';
    metric(text, "morvanta_flash_duration_seconds", "histogram", "How long the runs took.");
    int cumulative = 0;
    for (size_t i = 0; i <= durationBounds.size(); ++i) {
        cumulative += s.durations[i];
        const QByteArray bound = i < durationBounds.size() ? number(durationBounds[i]) : QByteArray("+Inf");
        text += "morvanta_flash_duration_seconds_bucket{le=\"" + bound + "\"} " + QByteArray::number(cumulative) + '\n';
    }
    text += "morvanta_flash_duration_seconds_sum " + number(s.durationSum) + '\n';
    text += "morvanta_flash_duration_seconds_count " + QByteArray::number(s.durationCount) + '\n';
    if (s.centralSet) {
        metric(text, "morvanta_outbox_pending", "gauge", "Records the central record has not taken yet.");
        // Unknown before the first pass: no sample rather than a false 0.
        if (s.outboxPending >= 0)
            text += "morvanta_outbox_pending " + QByteArray::number(s.outboxPending) + '\n';
        metric(text, "morvanta_central_up", "gauge", "1 when the last pass to the central record went through.");
        text += QByteArray("morvanta_central_up ") + (s.centralUp ? "1" : "0") + '\n';
    }
    metric(text, "morvanta_build_info", "gauge", "The program's version.");
    text += "morvanta_build_info{version=\"" + labelValue(programVersion) + "\"} 1\n";
    return text;
}
