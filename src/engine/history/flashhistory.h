#pragma once

#include <QDateTime>
#include <QList>
#include <QPair>
#include <QSqlDatabase>
#include <QString>

// One flash of one unit, as the history keeps it.
struct FlashRecord {
    qint64 id = 0;
    QDateTime started; // UTC
    QDateTime ended;   // invalid while pending
    QString host;
    QString user;
    QString program; // "station" or "window"
    QString port;
    QString serial;
    QString before;  // the device's version before, if it ran one
    QString after;   // and after
    QString version; // the package's
    QList<QPair<QString, QString>> files; // each .sys file's name and SHA-256
    bool signedPackage = false;
    QString signer; // the key's fingerprint
    QString tool;   // dfu-util's version
    QString outcome = QStringLiteral("pending");
    QString error;
    double seconds = 0;
};

// The record of every flash on this machine, in one SQLite file that any number of
// runs write at once (write-ahead log, a busy timeout). A record is written when the
// flash starts and completed when it ends; one left pending by a process that is gone
// is marked "interrupted" by the next run that opens the history.
class FlashHistory
{
public:
    FlashHistory();
    ~FlashHistory();
    FlashHistory(const FlashHistory &) = delete;
    FlashHistory &operator=(const FlashHistory &) = delete;

    // $XDG_DATA_HOME/morvanta/history.sqlite
    static QString defaultPath();

    // busyTimeoutMs: how long a write waits for another writer; 15 s lets eight stations
    // that finish at once all write.
    bool open(const QString &path, int busyTimeoutMs = 15000);
    bool isOpen() const;
    QString error() const { return lastError; }
    QString path() const { return file; }

    // The new record's id, 0 on failure. Host, user and process are filled in here.
    qint64 begin(FlashRecord &record);
    bool finish(const FlashRecord &record);
    // Oldest first; an empty serial or an invalid date leaves that filter out.
    QList<FlashRecord> records(const QString &serial = QString(), const QDateTime &since = QDateTime());

private:
    bool exec(const QString &statement);
    void markInterrupted();

    QString connection;
    QString file;
    QString lastError;
    bool lastBusy = false; // the last failed statement met another writer
};

// The record as one JSON object, and as CSV (its header row and one row).
QByteArray historyJson(const FlashRecord &record);
QByteArray historyCsvHeader();
QByteArray historyCsv(const FlashRecord &record);
