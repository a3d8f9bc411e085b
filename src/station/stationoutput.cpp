#include "stationoutput.h"

#include "app/logstream.h"
#include "firmware/devicelisting.h"
#include "platform/platform.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>

namespace {
QJsonValue textOrNull(const QString &text)
{
    return text.isEmpty() ? QJsonValue(QJsonValue::Null) : QJsonValue(text);
}

// One line of a terminal, whatever came from outside: a box's text joined, and no
// return or escape that could redraw what the reader sees.
QString oneLine(const QString &text)
{
    static const QRegularExpression breaks(QStringLiteral("\\s*[\\r\\n]\\s*"));
    return withVisibleControls(QString(text).replace(breaks, QStringLiteral(" ")));
}
} // namespace

StationOutput::StationOutput(bool json, FILE *out) : json(json), terminal(Platform::isTerminal(out)), out(out)
{
}

void StationOutput::setUnit(const QString &port, const QString &serial, bool label)
{
    unitPort = port;
    unitSerial = serial;
    labelled = label;
}

void StationOutput::emitEvent(const QJsonObject &given)
{
    QJsonObject event = given;
    if (!unitPort.isEmpty()) {
        event.insert(QStringLiteral("port"), unitPort);
        event.insert(QStringLiteral("serial"), textOrNull(unitSerial));
    }
    if (listener)
        listener(event);
    if (!json)
        return;
    std::fputs(QJsonDocument(event).toJson(QJsonDocument::Compact).constData(), out);
    std::fputc('\n', out);
    std::fflush(out);
}

void StationOutput::endProgressLine()
{
    if (progressShown)
        std::fputc('\n', out);
    progressShown = false;
}

void StationOutput::line(const QString &text)
{
    endProgressLine();
    std::fputs(oneLine(labelled ? unitPort + QLatin1String(": ") + text : text).toLocal8Bit().constData(), out);
    std::fputc('\n', out);
    std::fflush(out);
}

void StationOutput::device(const ListedDevice &device, bool arrived)
{
    const QString mode = device.dfuMode ? QStringLiteral("dfu") : QStringLiteral("run-time");
    {
        QJsonObject event{{"event", "device"}, {"port", device.port}, {"mode", mode},
                          {"version", textOrNull(device.version)},
                          {"form", device.version.isEmpty() ? QJsonValue() : QJsonValue(device.hasV ? "V" : "plain")},
                          {"serial", device.serial}, {"name", device.name}};
        if (arrived)
            event.insert(QStringLiteral("arrived"), true);
        emitEvent(event);
        if (json)
            return;
    }
    line(QStringLiteral("%1%2  %3  %4  serial %5")
             .arg(arrived ? QStringLiteral("Arrived: ") : QString())
             .arg(device.port, -8)
             .arg(mode, -8)
             .arg(device.version.isEmpty() ? QStringLiteral("-") : device.version, -12)
             .arg(device.serial));
}

void StationOutput::start(const QString &port, const QStringList &firmware, const QString &packageVersion,
                          const QString &deviceVersion)
{
    emitEvent({{"event", "start"}, {"port", port}, {"firmware", QJsonArray::fromStringList(firmware)},
               {"version", packageVersion}, {"before", textOrNull(deviceVersion)}, {"signed", signedPackage}});
    if (json)
        return;
    line(QStringLiteral("Flashing version %1 onto the Tessel NINE on port %2, which runs %3; %4")
             .arg(packageVersion, port, deviceVersion.isEmpty() ? QStringLiteral("no firmware in sight") : deviceVersion,
                  signedText()));
}

void StationOutput::stage(const QString &text)
{
    emitEvent({{"event", "stage"}, {"text", text}});
    if (!json)
        line(text);
}

void StationOutput::file(const QString &stage, const QString &name, int number, int total)
{
    lastPercent = -1;
    emitEvent({{"event", "file"}, {"stage", stage}, {"file", name}, {"number", number}, {"total", total}});
    if (!json)
        line(QStringLiteral("File %1/%2: %3, stage %4").arg(number).arg(total).arg(name, stage));
}

void StationOutput::progress(int percent, long written, long total, bool bytes, int remainingSeconds)
{
    // One event per percent: the tool's progress comes far more often.
    if (percent == lastPercent)
        return;
    lastPercent = percent;
    const QString unit = bytes ? QStringLiteral("B") : QStringLiteral("kB");
    emitEvent({{"event", "progress"}, {"percent", percent}, {"written", qint64(written)}, {"total", qint64(total)},
               {"unit", unit}, {"remaining", remainingSeconds < 0 ? QJsonValue() : QJsonValue(remainingSeconds)}});
    if (json || !terminal || labelled)
        return;
    const QString left = remainingSeconds < 0 ? QString()
                                              : QStringLiteral("   %1:%2 left")
                                                    .arg(remainingSeconds / 60)
                                                    .arg(remainingSeconds % 60, 2, 10, QLatin1Char('0'));
    std::fputs(QStringLiteral("\r%1%   %2/%3 %4%5\033[K").arg(percent, 3).arg(written).arg(total).arg(unit, left)
                   .toLocal8Bit()
                   .constData(),
               out);
    std::fflush(out);
    progressShown = true;
}

void StationOutput::error(const QString &text, const QString &port)
{
    QJsonObject event{{"event", "error"}, {"text", text}};
    if (!port.isEmpty())
        event.insert(QStringLiteral("port"), port);
    emitEvent(event);
    if (!json)
        line(QStringLiteral("Error: ") + text);
}

void StationOutput::result(int exitCode, const QString &outcome, const QString &before, const QString &after,
                           double seconds, bool recorded)
{
    emitEvent({{"event", "result"}, {"exitCode", exitCode}, {"outcome", outcome}, {"port", textOrNull(unitPort)},
               {"before", textOrNull(before)}, {"after", textOrNull(after)},
               {"seconds", qRound(seconds * 10) / 10.0}, {"signed", signedPackage}, {"recorded", recorded}});
    if (json)
        return;
    static const QHash<QString, QString> hows{{"flashed", "Flashed and verified"},
                                              {"recovered", "Recovered from update mode, flashed and verified"},
                                              {"current", "Already current, left alone"},
                                              {"stopped", "Stopped"},
                                              {"failed", "Failed"}};
    line(QStringLiteral("%1 (exit %2): port %3, serial %4, version %5 before, %6 now, %7 s; %8")
             .arg(hows.value(outcome, outcome))
             .arg(exitCode)
             .arg(unitPort.isEmpty() ? QStringLiteral("-") : unitPort,
                  unitSerial.isEmpty() ? QStringLiteral("-") : unitSerial,
                  before.isEmpty() ? QStringLiteral("-") : before, after.isEmpty() ? QStringLiteral("-") : after)
             .arg(seconds, 0, 'f', 1)
             .arg(signedText() + (recorded ? QString() : QStringLiteral("; the record could not be completed"))));
}

void StationOutput::skipped(const QString &port, const QString &serial, const QString &reason)
{
    emitEvent({{"event", "skipped"}, {"port", port}, {"serial", textOrNull(serial)}, {"reason", reason}});
    if (!json)
        line(QStringLiteral("Skipped: port %1, serial %2: %3").arg(port, serial.isEmpty() ? QStringLiteral("-") : serial,
                                                                  reason));
}

void StationOutput::summary(const Counts &counts, double seconds)
{
    const double tenths = qRound(seconds * 10) / 10.0;
    emitEvent({{"event", "summary"}, {"flashed", counts.flashed}, {"recovered", counts.recovered},
               {"current", counts.current}, {"failed", counts.failed}, {"stopped", counts.stopped},
               {"skipped", counts.skipped}, {"seconds", tenths}});
    if (json)
        return;
    line(QStringLiteral("Summary: %1 flashed, %2 recovered, %3 current, %4 failed, %5 stopped, %6 skipped in %7 s")
             .arg(counts.flashed)
             .arg(counts.recovered)
             .arg(counts.current)
             .arg(counts.failed)
             .arg(counts.stopped)
             .arg(counts.skipped)
             .arg(tenths, 0, 'f', 1));
}

QString StationOutput::signedText() const
{
    return signedPackage ? QStringLiteral("signature checked") : QStringLiteral("plain zip, no signature checked");
}

void StationOutput::synced(int sent, int left)
{
    emitEvent({{"event", "sync"}, {"sent", sent}, {"left", left}});
    if (!json)
        line(QStringLiteral("Sent %1 %2 to the central record, %3 left")
                 .arg(sent)
                 .arg(sent == 1 ? QStringLiteral("record") : QStringLiteral("records"))
                 .arg(left));
}

bool StationOutput::Counts::add(const QString &outcome)
{
    const std::pair<const char *, int *> fields[] = {{"flashed", &flashed}, {"recovered", &recovered},
                                                     {"current", &current}, {"failed", &failed},
                                                     {"stopped", &stopped}, {"skipped", &skipped}};
    for (const auto &[name, count] : fields) {
        if (outcome == QLatin1String(name)) {
            ++*count;
            return true;
        }
    }
    return false;
}
