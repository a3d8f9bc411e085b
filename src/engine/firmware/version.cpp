#include "version.h"

#include "devicelisting.h"

#include "app/errortexts.h"
#include "app/logstream.h"
#include "app/settings.h"
#include "app/toolrun.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QtDebug>

namespace {
bool isDecimal(const QString &text)
{
    return !text.isEmpty() && std::all_of(text.begin(), text.end(), [](QChar c) { return c.isDigit(); });
}

// Compares two texts of decimal digits as numbers of any length; empty reads as 0.
int compareDecimalTexts(QString x, QString y)
{
    while (x.startsWith(QLatin1Char('0')))
        x.remove(0, 1);
    while (y.startsWith(QLatin1Char('0')))
        y.remove(0, 1);
    if (x.size() != y.size())
        return x.size() < y.size() ? -1 : 1;
    return x.compare(y);
}
} // namespace

DeviceReply parseDeviceReply(const QByteArray &chunk, const QString &family)
{
    DeviceReply reply;
    const QString text = QString::fromLocal8Bit(chunk);
    // The newer tool's words for a device that this user may not open.
    reply.accessDenied =
        text.contains(QLatin1String("Cannot open DFU device")) && text.contains(QLatin1String("LIBUSB_ERROR_ACCESS"));
    static const QRegularExpression banner(QStringLiteral("dfu-util (\\d+)\\.(\\d+)"));
    const QRegularExpressionMatch tool = banner.match(text);
    reply.newerTool = tool.hasMatch() && (tool.captured(1).toInt() > 0 || tool.captured(2).toInt() >= 8);
    // Only our device: another maker's DFU device is no Tessel NINE to recover.
    reply.updateMode = text.contains(QLatin1String("Found DFU: [2675:0001]"));
    if (text.contains(QLatin1String("No DFU capable USB device found"))) {
        reply.kind = DeviceReply::NoDevice;
        return reply;
    }
    if (!text.contains(QLatin1String("Found Runtime:")))
        return reply;

    reply.kind = DeviceReply::Found;
    const int n = text.indexOf(QLatin1String("name="));
    const int q1 = text.indexOf(QLatin1Char('"'), n);
    const int q2 = text.indexOf(QLatin1Char('"'), q1 + 1);
    // Positions are used as they fall: a reply without a name yields what it yields.
    const auto between = [&text](int from, int to) { return from <= to ? text.mid(from, to - from) : QString(); };
    // The form is the name's own: the tool's header (a copyright line with a capital V)
    // often arrives in the same chunk.
    const QString name = between(q1 + 1, q2);
    if (name.contains(QLatin1Char('V'))) {
        reply.version = between(q1 + 2, q2);
        reply.hasV = true;
    } else {
        reply.version = name.contains(family) ? between(q1 + 2 + int(family.size()), q2) : name;
        reply.version.replace(QLatin1Char('.'), QLatin1Char('_'));
        reply.hasV = false;
    }

    const int rev = text.indexOf(QLatin1String("rev="));
    if (rev >= 0) {
        const int r1 = text.indexOf(QLatin1Char('"'), rev);
        const int r2 = r1 < 0 ? -1 : text.indexOf(QLatin1Char('"'), r1 + 1);
        if (r2 > r1)
            reply.bootLoaderRev = text.mid(r1 + 1, r2 - r1 - 1).toInt();
    }
    return reply;
}

Version::Version(Settings *settings, QObject *parent)
    : QObject(parent), process(new QProcess(this)), settings(settings)
{
    process->setProcessChannelMode(QProcess::MergedChannels);
    connect(process, &QProcess::readyReadStandardOutput, this, &Version::readVersion);
}

QString Version::getDeviceVersion(bool *found, bool *hasV)
{
    deviceVersion.clear();
    accessDenied = false;
    updateMode = false;
    listing.clear();
    newerTool = false;
    foundInReply = false;
    startTool(*process, settings->getDfuUtilPath(), {QStringLiteral("-l")});
    if (!process->waitForFinished(5000) && process->state() != QProcess::NotRunning) {
        process->kill();
        process->waitForFinished(1000);
    }
    if (deviceFound) {
        *found = true;
        *hasV = deviceHasV;
        return deviceVersion;
    }
    qWarning() << "Device is not connected";
    if (accessDenied)
        qWarning() << quoted(ErrorTexts::noPermission());
    if (updateMode)
        qWarning() << "A Tessel NINE waits in update mode (DFU): an earlier flash did not end";
    *found = false;
    *hasV = deviceHasV;
    return QString();
}

void Version::readVersion()
{
    const QByteArray chunk = process->readAll();
    if (listing.size() < (1 << 16))
        listing += chunk;
    noteDfuBanner(chunk);
    const DeviceReply reply = parseDeviceReply(chunk, Settings::getTesselNINEName());
    accessDenied = accessDenied || reply.accessDenied;
    updateMode = updateMode || reply.updateMode;
    newerTool = newerTool || reply.newerTool;
    switch (reply.kind) {
    case DeviceReply::NoDevice:
        qWarning() << quoted(chunk);
        deviceVersion.clear();
        bootLoaderRev = 0;
        deviceFound = false;
        break;
    case DeviceReply::NothingFound:
        qDebug() << quoted(chunk);
        // The newer tool writes each line on its own: a later line of the same listing
        // (another maker's device in DFU mode, say) does not take back a device found.
        if (!(newerTool && foundInReply))
            deviceFound = false;
        break;
    case DeviceReply::Found:
        qDebug() << quoted(chunk);
        deviceVersion = reply.version;
        deviceHasV = reply.hasV;
        qDebug() << "Device version: " << quoted(deviceVersion) << "\n";
        deviceFound = true;
        foundInReply = true;
        bootLoaderRev = reply.bootLoaderRev;
        qDebug() << "Found bootloader rev." << bootLoaderRev << "\n";
        break;
    }
}

QString Version::fileVersion(QString &file, const QString &family, bool *hasV)
{
    file = QFileInfo(file).fileName();
    qDebug() << "File Name: " << quoted(file);
    const int dot = file.indexOf(QLatin1Char('.'));
    const int end = dot < 0 ? int(file.size()) : dot;
    const int v = file.indexOf(QLatin1String("_V"));
    if (v >= 0) {
        *hasV = true;
        return v + 2 <= end ? file.mid(v + 2, end - v - 2) : QString();
    }
    *hasV = false;
    const int familyAt = file.indexOf(family);
    const int start = (familyAt < 0 ? 0 : familyAt) + int(family.size()) + 1;
    return start <= end ? file.mid(start, end - start) : QString();
}

QString Version::filePreName(const QString &name, const QString &)
{
    const int dot = name.indexOf(QLatin1Char('.'));
    return dot < 0 ? name : name.left(dot);
}

int Version::compareVersions(const QString &selected, bool selectedHasV, const QString &current, bool currentHasV)
{
    qDebug() << "Compare selected version: " << quoted(selected + (selectedHasV ? "  V  " : "  "))
             << " with current version: " << quoted(current + (currentHasV ? "  V  " : "  ")) << "\n";
    const QStringList a = selected.split(QLatin1Char('_'));
    const QStringList b = current.split(QLatin1Char('_'));
    if (!selectedHasV && currentHasV)
        return 1;
    if (selectedHasV && !currentHasV)
        return 2;

    if (selectedHasV) {
        // Fields from the second on, the numeric ones written together, as one number.
        const auto joined = [](const QStringList &fields) {
            QString digits;
            for (int i = 1; i < fields.size(); ++i) {
                if (isDecimal(fields[i]))
                    digits += fields[i];
            }
            return digits;
        };
        const QString x = joined(a);
        const QString y = joined(b);
        const int order = compareDecimalTexts(x, y);
        return order == 0 ? 0 : order > 0 ? 1 : 2;
    }

    const int m = int(std::min(a.size(), b.size()));
    if (m < 2)
        return 0;
    for (int i = 1; i < m; ++i) {
        const qlonglong x = a[i].toLongLong();
        const qlonglong y = b[i].toLongLong();
        if (x != y)
            return x > y ? 1 : 2;
    }
    return 0;
}

void Version::listDevices(Settings *settings)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    startTool(process, settings->getDfuUtilPath(), {QStringLiteral("-l")});
    if (!process.waitForFinished(1000) && process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished(1000);
    }
}
