#pragma once

#include <QObject>
#include <QProcess>
#include <QString>

#include "devicelisting.h"

class Settings;

// What one chunk of "dfu-util -l" says.
struct DeviceReply {
    enum Kind { NoDevice, NothingFound, Found } kind = NothingFound;
    QString version;
    bool hasV = false;
    int bootLoaderRev = 0;
    bool accessDenied = false; // a device is there, but the newer tool may not open it
    bool newerTool = false;    // the banner of dfu-util 0.8 or later
    bool updateMode = false;   // a Tessel NINE waits in DFU mode: an earlier flash did not end
};
DeviceReply parseDeviceReply(const QByteArray &chunk, const QString &family);

// The device's firmware version, asked of dfu-util, and versions of file names.
class Version : public QObject
{
    Q_OBJECT
public:
    Version(Settings *settings, QObject *parent);

    // Blocks for at most 5 seconds.
    QString getDeviceVersion(bool *found, bool *hasV);
    int getBootLoaderRev() const { return bootLoaderRev; }
    // The last query found a device that this user may not open.
    bool isAccessDenied() const { return accessDenied; }
    // The last query found no Tessel NINE running, but one waiting in DFU mode.
    bool isInUpdateMode() const { return updateMode; }
    // Every device of the last query's listing, with its port and serial where the tool
    // names them (the newer one does).
    QList<ListedDevice> listedDevices() const { return parseDeviceListing(listing); }

    static QString fileVersion(QString &file, const QString &family, bool *hasV);
    static QString filePreName(const QString &name, const QString &family);
    static int compareVersions(const QString &selected, bool selectedHasV, const QString &current,
                               bool currentHasV);
    static void listDevices(Settings *settings);

public slots:
    void readVersion();

private:
    QProcess *process;
    Settings *settings;
    QString deviceVersion;
    bool deviceFound = false;
    bool deviceHasV = false;
    int bootLoaderRev = 0;
    bool accessDenied = false;
    bool updateMode = false;
    QByteArray listing; // the last query's whole output
    bool newerTool = false;       // of the current reply
    bool foundInReply = false;    // the current reply named a device
};
