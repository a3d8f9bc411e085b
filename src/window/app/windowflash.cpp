#include "windowflash.h"

#include "app/errortexts.h"
#include "app/logstream.h"
#include "app/settings.h"
#include "firmware/version.h"
#include "flash/flashtexts.h"
#include "history/centralsender.h"
#include "history/historywriter.h"

#include <QtDebug>

namespace {
// Never destroyed: an automatic run ends by exit(), after which Qt's SQL registry is
// gone; SQLite's file is consistent at every statement's end.
CentralSender *sender = nullptr;

void startSending(const Settings &settings, HistoryWriter *writer)
{
    const QString text = settings.getValue(QStringLiteral("central"));
    if (sender || text.isEmpty())
        return;
    CentralAddress::Problem problem = CentralAddress::Problem::None;
    QString why;
    const CentralAddress address = CentralAddress::parse(text, &problem, &why);
    if (problem != CentralAddress::Problem::None) {
        qWarning() << "No central record: the key central" << quoted(why);
        return;
    }
    sender = new CentralSender(writer->path(), address);
    QObject::connect(sender, &CentralSender::passEnded, [said = QString()](int sent, int left, const QString &error) mutable {
        if (!error.isEmpty() && error != said)
            qWarning() << quoted(error);
        else if (sent > 0)
            qDebug() << quoted(QStringLiteral("%1 records sent to the central record, %2 left").arg(sent).arg(left));
        said = error;
    });
    QObject::connect(writer, &HistoryWriter::completed, sender, &CentralSender::sendSoon);
    sender->start();
}
} // namespace

HistoryWriter *windowHistory(const Settings &settings)
{
    static HistoryWriter *writer = nullptr;
    if (writer && writer->isOpen())
        return writer;
    // Tried again at each flash: one busy moment must not lose the session's records.
    if (!writer)
        writer = new HistoryWriter;
    // The window opens it on its GUI thread: it waits for another writer a moment only.
    if (writer->open(FlashHistory::defaultPath(), 1000)) {
        startSending(settings, writer);
        return writer;
    }
    qWarning() << "No history of flashes:" << quoted(writer->error());
    return nullptr;
}

bool windowSendRecords(int waitMs)
{
    if (!sender)
        return true;
    sender->waitUntilSent(waitMs);
    return sender->stop(1000);
}

FlashJob::Options windowFlashOptions(const Settings &settings, const Version &version, const QStringList &files,
                                     bool zipSearch)
{
    FlashJob::Options options;
    options.files = files;
    options.plainZips = zipSearch || !settings.isGpgAvailable();
    options.seen = version.listedDevices();
    options.history = windowHistory(settings);
    options.program = QStringLiteral("window");
    return options;
}

FlashErrorDisplay windowFlashError(const FlashError &error)
{
    const QString text = FlashTexts::error(error);
    if (error.isPackageError())
        return {text, FlashTexts::errorBox(error)};
    qWarning() << quoted(text);
    if (error.code == FlashError::Code::NotRecorded)
        return {};
    return {QString(), ErrorTexts::flashingFailed(text)};
}
