#include "swcheckintern.h"

#include "app/buildidentity.h"
#include "app/logstream.h"
#include "deployment.h"

#include <QFileInfo>
#include <QSettings>
#include <QtDebug>

SWCheckIntern::SWCheckIntern(Settings *, QObject *parent) : QThread(parent)
{
}

int SWCheckIntern::checksum(const QString &version)
{
    quint8 sum = 0;
    for (const char byte : version.toLatin1())
        sum += quint8(byte);
    return sum;
}

void SWCheckIntern::run()
{
    myVersion = QString::fromLatin1(BuildIdentity::appVersion);
    myRelease = QStringLiteral("R");
    const QString path = QString::fromLatin1(Deployment::networkVersionFile);
    if (!QFileInfo::exists(path)) {
        qDebug() << quoted(QLatin1String("Version file: ") + path + QLatin1String(" does not exit"));
        return;
    }
    const QSettings file(path, QSettings::IniFormat);
    latestVersion = file.value(QStringLiteral("Morvanta")).toString();
    latestRelease = file.value(QStringLiteral("release_info")).toString();
    latestKey = file.value(QStringLiteral("key")).toString();
    qDebug() << quoted(QLatin1String("My version:      ") + myVersion);
    qDebug() << quoted(QLatin1String("My release info: ") + myRelease);
    qDebug() << quoted(QLatin1String("Latest version:  ") + latestVersion);
    qDebug() << quoted(QLatin1String("Latest release:  ") + latestRelease);
    qDebug() << quoted(QLatin1String("Latest key:      ") + latestKey);
    // Any other text is another version, an older one too: nothing is parsed.
    if (latestVersion.isEmpty() || latestVersion == myVersion)
        return;
    if (checksum(latestVersion) == latestKey.toInt(nullptr, 10))
        emit newVersion();
    else
        emit versionKeyError();
}
