#include "devicelisting.h"

#include "version.h"

#include "app/logstream.h"
#include "app/settings.h"
#include "app/toolrun.h"

#include <QMutex>
#include <QProcess>
#include <QRegularExpression>
#include <QtDebug>

#include <atomic>

namespace {
// The value of key="..." in a listing line, or an empty string.
QString quotedValue(const QString &line, const QString &key)
{
    const qsizetype at = line.indexOf(key + QLatin1String("=\""));
    const qsizetype start = at < 0 ? -1 : at + key.size() + 2;
    const qsizetype end = start < 0 ? -1 : line.indexOf(QLatin1Char('"'), start);
    return end < 0 ? QString() : line.mid(start, end - start);
}
} // namespace

QList<ListedDevice> parseDeviceListing(const QByteArray &output)
{
    QList<ListedDevice> devices;
    for (const QByteArray &raw : output.split('\n')) {
        const QString line = QString::fromLocal8Bit(raw).trimmed();
        const bool runtime = line.startsWith(QLatin1String("Found Runtime: ["));
        if (!runtime && !line.startsWith(QLatin1String("Found DFU: [")))
            continue;
        const qsizetype open = line.indexOf(QLatin1Char('['));
        const qsizetype close = line.indexOf(QLatin1Char(']'), open);
        if (close < 0)
            continue;
        ListedDevice device;
        device.vendorProduct = line.mid(open + 1, close - open - 1);
        device.dfuMode = !runtime;
        device.port = quotedValue(line, QStringLiteral("path"));
        device.serial = quotedValue(line, QStringLiteral("serial"));
        device.name = quotedValue(line, QStringLiteral("name"));
        if (runtime) {
            // The same reading as the window's device check, of this line alone.
            const DeviceReply reply = parseDeviceReply(raw, Settings::getTesselNINEName());
            device.version = reply.version;
            device.hasV = reply.hasV;
        }
        devices << device;
    }
    return devices;
}

namespace {
std::atomic<DfuDialect> dialect{DfuDialect::Unknown};
QMutex versionLock;
QString version;
}

void noteDfuBanner(const QByteArray &output)
{
    const QRegularExpressionMatch banner =
        QRegularExpression(QStringLiteral("^dfu-util (\\d+)\\.(\\d+)")).match(QString::fromLatin1(output));
    if (!banner.hasMatch())
        return;
    dialect = banner.captured(1).toInt() > 0 || banner.captured(2).toInt() >= 9 ? DfuDialect::Newer : DfuDialect::Old;
    const QMutexLocker locker(&versionLock);
    version = banner.captured(1) + QLatin1Char('.') + banner.captured(2);
}

QString knownDfuVersion()
{
    const QMutexLocker locker(&versionLock);
    return version;
}

DfuDialect knownDfuDialect()
{
    return dialect;
}

QList<ListedDevice> listDfuDevices(const Settings &settings, bool *accessDenied, bool *complete, int timeoutMs)
{
    return listDfuDevices(settings.getDfuUtilPath(), accessDenied, complete, timeoutMs);
}

QList<ListedDevice> listDfuDevices(const QString &dfuUtilPath, bool *accessDenied, bool *complete, int timeoutMs)
{
    QProcess process;
    QByteArray output;
    process.setProcessChannelMode(QProcess::MergedChannels);
    startTool(process, dfuUtilPath, {QStringLiteral("-l")});
    const bool ended = process.waitForFinished(timeoutMs);
    if (!ended && process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished(1000);
    }
    if (complete)
        *complete = ended && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    output = process.readAll();
    qDebug() << quoted(output);
    noteDfuBanner(output);
    *accessDenied = parseDeviceReply(output, Settings::getTesselNINEName()).accessDenied;
    return parseDeviceListing(output);
}
