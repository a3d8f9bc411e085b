#include "swcheckintern.h"

#include "app/buildidentity.h"
#include "app/logstream.h"
#include "deployment.h"

#include "platform/platform.h"
#include "versionfile.h"

#include <QtDebug>

namespace {
// The file is one small ini: anything bigger is not it.
constexpr qint64 maxVersionFileSize = 64 * 1024;
} // namespace

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
    QByteArray content;
    switch (Platform::readSmallFile(path, maxVersionFileSize, content)) {
    case Platform::SmallFile::Read:
        break;
    case Platform::SmallFile::Missing:
        qDebug() << quoted(QLatin1String("Version file: ") + path + QLatin1String(" does not exit"));
        return;
    case Platform::SmallFile::Unreadable:
        qWarning() << quoted(QLatin1String("Version file: ") + path + QLatin1String(" is no readable file"));
        return;
    case Platform::SmallFile::TooLarge:
        qWarning() << quoted(QLatin1String("Version file: ") + path + QLatin1String(" is larger than 64 KiB"));
        return;
    }
    const QHash<QString, QString> keys = parseIniGeneral(content);
    latestVersion = keys.value(QStringLiteral("morvanta"));
    latestRelease = keys.value(QStringLiteral("release_info"));
    latestKey = keys.value(QStringLiteral("key"));
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
