#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <cstdio>
#include <functional>

struct ListedDevice;

// What morvanta-station tells its caller. With JSON: one compact object per line and
// nothing else on standard output, flushed per event. Without: one plain line per stage
// and file, and on a terminal one progress line redrawn in place.
class StationOutput
{
public:
    explicit StationOutput(bool json, FILE *out = stdout);

    // Hears every event as its JSON object, printed or not: the station's page follows them.
    using Listener = std::function<void(const QJsonObject &event)>;
    void setListener(Listener heard) { listener = std::move(heard); }
    Listener eventListener() const { return listener; }

    // The unit every following event is about; with `labelled`, plain lines start with
    // its port, for output where several units interleave (and no progress line is drawn).
    void setUnit(const QString &port, const QString &serial, bool labelled = false);
    bool isLabelled() const { return labelled; }

    // Whether the run checks the package's signature: said at its start and its end.
    void setSigned(bool checked) { signedPackage = checked; }
    // A device seen by "list", or one that arrived at a watching station.
    void device(const ListedDevice &device, bool arrived = false);
    void skipped(const QString &port, const QString &serial, const QString &reason);
    void start(const QString &port, const QStringList &firmware, const QString &packageVersion,
               const QString &deviceVersion);
    void stage(const QString &text);
    void file(const QString &stage, const QString &name, int number, int total);
    void progress(int percent, long written, long total, bool bytes, int remainingSeconds);
    // port: the port it is about, where the output is about no single unit (a watch's own).
    void error(const QString &text, const QString &port = QString());
    // outcome: flashed, recovered, current, failed or stopped; recorded: its record went in.
    void result(int exitCode, const QString &outcome, const QString &before, const QString &after, double seconds,
                bool recorded = true);
    struct Counts {
        int flashed = 0, recovered = 0, current = 0, failed = 0, stopped = 0, skipped = 0;
        // Counts one unit of the outcome; false for an outcome that is none of these.
        bool add(const QString &outcome);
    };
    void summary(const Counts &counts, double seconds);
    // What a pass to the central record sent, and what is left to send.
    void synced(int sent, int left);

private:
    void emitEvent(const QJsonObject &event);
    void line(const QString &text);
    void endProgressLine();
    QString signedText() const;

    bool json;
    bool terminal;
    Listener listener;
    FILE *out;
    bool signedPackage = true;
    QString unitPort;
    QString unitSerial;
    bool labelled = false;
    bool progressShown = false;
    int lastPercent = -1;
};
