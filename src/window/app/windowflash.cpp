#include "windowflash.h"

#include "app/errortexts.h"
#include "app/logstream.h"
#include "app/settings.h"
#include "firmware/version.h"
#include "flash/flashtexts.h"
#include "history/historywriter.h"

#include <QtDebug>

HistoryWriter *windowHistory()
{
    // Never destroyed: an automatic run ends by exit(), after which Qt's SQL registry is
    // gone; SQLite's file is consistent at every statement's end.
    static HistoryWriter *writer = nullptr;
    if (writer && writer->isOpen())
        return writer;
    // Tried again at each flash: one busy moment must not lose the session's records.
    if (!writer)
        writer = new HistoryWriter;
    // The window opens it on its GUI thread: it waits for another writer a moment only.
    if (writer->open(FlashHistory::defaultPath(), 1000))
        return writer;
    qWarning() << "No history of flashes:" << quoted(writer->error());
    return nullptr;
}

FlashJob::Options windowFlashOptions(const Settings &settings, const Version &version, const QStringList &files,
                                     bool zipSearch)
{
    FlashJob::Options options;
    options.files = files;
    options.plainZips = zipSearch || !settings.isGpgAvailable();
    options.seen = version.listedDevices();
    options.history = windowHistory();
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
