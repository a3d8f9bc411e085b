#pragma once

#include <QString>
#include <QThread>

class Settings;

// Reads the version file on the internal share and says whether another version of
// the program is published there, and whether its checksum holds.
class SWCheckIntern : public QThread
{
    Q_OBJECT
public:
    SWCheckIntern(Settings *settings, QObject *parent);

    // Sum of the text's bytes, modulo 256.
    static int checksum(const QString &version);

signals:
    void newVersion();
    void versionKeyError();

protected:
    void run() override;

private:
    QString myVersion;
    QString myRelease;
    QString latestRelease;
    QString latestVersion;
    QString latestKey;
};
