#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

class Settings;

// One device of a whole "dfu-util -l" listing, as the newer tool (0.8 and later) names
// it: with its USB port and serial. Its version is read from its name as the window
// reads the device it asks about.
struct ListedDevice {
    QString vendorProduct; // "2675:0001"
    bool dfuMode = false;  // "Found DFU:" rather than "Found Runtime:"
    QString port;          // path="1-1"
    QString serial;
    QString name;
    QString version; // run-time mode only
    bool hasV = false;

    bool isTesselNine() const { return vendorProduct == QLatin1String("2675:0001"); }
};

// The tool's dialect, from the banner of the last "-l" this process ran: the newer one
// (0.9 and later) pauses 5 s after a detach and looks once, so the flashing worker
// detaches and looks for the device itself.
enum class DfuDialect { Unknown, Old, Newer };
void noteDfuBanner(const QByteArray &output);
DfuDialect knownDfuDialect();
// The tool's version from the same banner ("0.11"), empty before one was seen.
QString knownDfuVersion();

// Every device the listing names, in its order.
QList<ListedDevice> parseDeviceListing(const QByteArray &output);

// Runs "dfu-util -l" to its end (for at most timeoutMs) and lists the devices. A device
// there that this user may not open sets *accessDenied. *complete says whether the tool ran
// to its end and succeeded: only then is a device it does not name surely not there.
QList<ListedDevice> listDfuDevices(const Settings &settings, bool *accessDenied, bool *complete = nullptr,
                                   int timeoutMs = 5000);
// The same with the tool's path, for a thread that must not share the settings.
QList<ListedDevice> listDfuDevices(const QString &dfuUtilPath, bool *accessDenied, bool *complete = nullptr,
                                   int timeoutMs = 5000);
