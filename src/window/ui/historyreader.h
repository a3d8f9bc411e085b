#pragma once

#include "history/flashhistory.h"

#include <QList>
#include <QObject>
#include <QString>

#include <atomic>

// Reads this PC's history of flashes for the history window, on the thread it is moved
// to: a large history, or one that a writer holds locked, never stops the window. Its one
// connection is opened at the first read and closed with it; it makes and changes nothing.
// The public calls are safe from any thread; the work and the answers come on its own.
class HistoryReader : public QObject
{
    Q_OBJECT
public:
    // pageSize: how many of the newest records an answer carries at most.
    HistoryReader(const QString &path, int pageSize);

    // The newest records of a serial (empty: of every one). A newer request makes the
    // older ones moot: a read under way gives up. Returns the ticket the answer carries.
    int request(const QString &serial);
    // Every record of the serial (empty: all), oldest first, as CSV: written whole or not at all.
    void exportCsv(const QString &target, const QString &serial);
    // Whatever runs gives up at its next record; nothing more is answered.
    void stop();

signals:
    // matching: how many records of the serial the whole history holds.
    void recordsRead(int ticket, const QList<FlashRecord> &newestFirst, qint64 matching);
    // No history at the path: nothing was flashed on this PC yet.
    void missing(int ticket);
    void failed(int ticket, const QString &error);
    void exported(const QString &target, qint64 count);
    void exportFailed(const QString &target, const QString &error);

private:
    void read(const QString &serial, int ticket);
    void writeCsv(const QString &target, const QString &serial);
    bool moot(int ticket) const { return stopped || ticket != latest; }
    // Opens the history at its first use; false when there is none or it cannot be read.
    bool ready(QString *error);

    const QString path;
    const int pageSize;
    FlashHistory history; // used on the reader's thread only
    std::atomic<int> latest{0};
    std::atomic<bool> stopped{false};
};
