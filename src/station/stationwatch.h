#pragma once

#include "stationoutput.h"
#include "stationrun.h"

#include "firmware/devicelisting.h"
#include "app/exitcode.h"
#include "platform/portlock.h"

#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QSet>
#include <QTimer>

#include <map>
#include <memory>

class DownloadPacer;
class HistoryWriter;
class StationPackages;
class Settings;
class UsbMonitor;

// morvanta-station watch: flashes every Tessel NINE that is on, or comes onto, a watched
// port, one run per port and many ports at once, until it is stopped. udev says when
// something changed; dfu-util's listing then says what is on the ports. A device is
// looked at once per arrival: current ones are left alone, a flashed one that comes
// back is not flashed again.
class StationWatch : public QObject
{
    Q_OBJECT
public:
    struct Options {
        StationRun::Options run; // firmware, zip, time limit of each flash
        QStringList ports;       // empty: every port
        bool json = false;
    };

    StationWatch(Settings *settings, StationOutput *output, HistoryWriter *history, Options options,
                 QObject *parent = nullptr);
    ~StationWatch() override;

    void start();
    // The first stop lets the running flashes end and starts no new one; the second stops them.
    void stop();
    // Looks at the firmware path again: a new package there is prepared and flashed from
    // then on; runs under way keep theirs.
    void reload();

signals:
    // The package every unit gets: its version and files.
    void firmwareReady(const QString &version, const QStringList &files);
    void finished(ExitCode code);

private:
    struct Port {
        bool present = false;
        QString serial;
        std::unique_ptr<StationOutput> output;
        StationRun *run = nullptr;
        std::unique_ptr<PortLock> lock;
    };

    void packageReady();
    void packageFailed(const QString &error);
    StationRun::FirmwareChoice firmware() const;
    void changed(const QString &port);
    void lookSoon();
    void look();
    void arrived(const ListedDevice &device);
    void startRun(const ListedDevice &device, Port &slot);
    void runEnded(const QString &port);
    void finishIfDone();
    QStringList watchedPorts() const;

    Settings *settings;
    StationOutput *output;
    HistoryWriter *history;
    const Options options;
    StationPackages *packages = nullptr;
    const std::shared_ptr<DownloadPacer> pacer; // for every run of the watch
    bool stale = false; // a file of the package in use changed: units wait for it again
    UsbMonitor *monitor = nullptr;
    QTimer lookTimer;
    QTimer pollTimer; // only where udev cannot be listened to
    std::map<QString, Port> ports;
    QSet<QString> skippedPorts; // until the device there leaves
    QSet<QString> done;         // serials flashed or found current in this watch
    StationOutput::Counts counts;
    QElapsedTimer clock;
    int stops = 0;
    bool ready = false;
    bool ended = false;
};
