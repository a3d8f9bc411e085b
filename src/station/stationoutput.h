#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <cstdio>

struct ListedDevice;

// What morvanta-station tells its caller. With JSON: one compact object per line and
// nothing else on standard output, flushed per event. Without: one plain line per stage
// and file, and on a terminal one progress line redrawn in place.
class StationOutput
{
public:
    explicit StationOutput(bool json, FILE *out = stdout);

    // Whether the run checks the package's signature: said at its start and its end.
    void setSigned(bool checked) { signedPackage = checked; }
    void device(const ListedDevice &device);
    void start(const QString &port, const QStringList &firmware, const QString &packageVersion,
               const QString &deviceVersion);
    void stage(const QString &text);
    void file(const QString &stage, const QString &name, int number, int total);
    void progress(int percent, long written, long total, bool bytes, int remainingSeconds);
    void error(const QString &text);
    void result(int exitCode, const QString &port, const QString &before, const QString &after, double seconds);

private:
    void emitEvent(const QJsonObject &event);
    void line(const QString &text);
    void endProgressLine();
    QString signedText() const;

    bool json;
    bool terminal;
    FILE *out;
    bool signedPackage = true;
    bool progressShown = false;
    int lastPercent = -1;
};
