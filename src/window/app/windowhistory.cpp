#include "windowhistory.h"

#include "app/logstream.h"
#include "history/flashhistory.h"

#include <QtDebug>

FlashHistory *windowHistory()
{
    // One history for the window's whole run. Never destroyed: an automatic run ends by
    // exit(), after which Qt's SQL registry is gone; SQLite's file is consistent at every
    // statement's end.
    static FlashHistory *const history = [] {
        auto *opened = new FlashHistory;
        // The window writes on its GUI thread: it waits for another writer a moment only.
        if (!opened->open(FlashHistory::defaultPath(), 1000))
            qWarning() << "No history of flashes:" << quoted(opened->error());
        return opened;
    }();
    return history->isOpen() ? history : nullptr;
}
