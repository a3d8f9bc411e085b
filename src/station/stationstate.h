#pragma once

#include "stationoutput.h"

#include <QDateTime>
#include <QJsonObject>
#include <QMap>
#include <QMutex>
#include <QStringList>

#include <array>

// What the station's page and metrics show of a watch: kept from the watch's own events
// on the main thread, read by the page's thread as a copy taken under a short lock, so a
// page under load never holds a flash up.
class StationState
{
public:
    // One port: a run under way, or the last one's outcome.
    struct Tile {
        bool flashing = false;
        QString serial; // the unit on the port now, or the last one's
        QString stage;
        QString file;
        int number = 0, total = 0, percent = 0;
        int remaining = -1; // seconds, -1 unknown
        QString outcome;    // empty: nothing happened on the port yet
        QString before, after, error;
        QDateTime ended;
        double seconds = 0;
    };
    // Upper bounds of the flash time histogram, in seconds (+Inf added).
    static constexpr std::array<double, 8> durationBounds{10, 30, 60, 120, 300, 600, 1200, 3600};

    struct Snapshot {
        QString station;
        QDateTime since;
        QString packageVersion;
        QStringList packageFiles; // names only
        bool signedPackage = true;
        bool centralSet = false;
        bool centralUp = false;
        int outboxPending = -1; // unknown until a first pass
        QString centralError;
        QMap<QString, Tile> tiles;
        QDate day;                   // of `today`
        StationOutput::Counts today; // this station's units since midnight (local time)
        StationOutput::Counts total; // since this watch started
        std::array<int, durationBounds.size() + 1> durations{};
        double durationSum = 0;
        int durationCount = 0;
        quint64 records = 0; // grows with every completed record
    };

    StationState(const QString &station, bool signedPackage);

    void setWatchedPorts(const QStringList &ports);
    // Counts of earlier runs of this station today, from its history.
    void setToday(const StationOutput::Counts &counts);
    void setPackage(const QString &version, const QStringList &files);
    void setCentral(int pending, const QString &error);
    void recordCompleted();
    // One event of the watch or of one of its runs.
    void heard(const QJsonObject &event);

    Snapshot snapshot() const;

    // Snapshot as the page's JSON (without the history's part) and as Prometheus' text.
    static QJsonObject json(const Snapshot &state);
    static QByteArray metrics(const Snapshot &state, const QString &programVersion);

private:
    void rollDay(Snapshot &state) const;

    mutable QMutex mutex;
    Snapshot state;
    bool everyPort = true;
};
