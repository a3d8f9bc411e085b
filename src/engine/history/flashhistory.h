#pragma once

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QPair>
#include <QSqlDatabase>
#include <QString>

#include <functional>

class QSqlQuery;

// One flash of one unit, as the history keeps it.
struct FlashRecord {
    qint64 row = 0;  // this file's key
    QString id;      // a UUID, made when the record is first written: its key everywhere
    QDateTime started; // UTC
    QDateTime ended;   // invalid while pending
    QString station;    // by default the host's name
    QString operatorId; // who flashed, a badge or a name
    QString order;      // a work order or batch
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
    QDateTime sent;     // when the central record took it; invalid while it has not
    QDateTime received; // the central server's time, in a record read from there
};

// Who writes the records: set once per run.
struct RecordIdentity {
    QString station; // empty: the host's name
    QString operatorId;
    QString order;
};

// Which records a reader wants; an empty field or an invalid date leaves that filter out.
struct HistoryFilter {
    QString serial;
    QDateTime since;
    QString station;
    QString order;
    bool newestFirst = false;
    int limit = 0; // 0: every record
    // Only the records after this one in the reading order: for reading in pages.
    QDateTime afterStarted;
    qint64 afterRow = 0;
};

// The record of every flash on this machine, in one SQLite file that any number of
// runs write at once (write-ahead log, a busy timeout). A record is written when the
// flash starts and completed when it ends. One left pending by a run that could not
// complete it is noted in a small journal beside the file and marked "unrecorded" by
// the next run that opens the history to write; one left pending by a process that is
// gone is marked "interrupted". A finished record waits for the central record (if one
// is set) until it is marked sent. A connection serves the thread that opened it.
class FlashHistory
{
public:
    FlashHistory();
    ~FlashHistory();
    FlashHistory(const FlashHistory &) = delete;
    FlashHistory &operator=(const FlashHistory &) = delete;

    // $XDG_DATA_HOME/morvanta/history.sqlite
    static QString defaultPath();

    // For writing: makes the file if need be. busyTimeoutMs: how long a write waits for
    // another writer; 15 s lets eight stations that finish at once all write.
    // An older file is brought to this program's schema; a newer one is refused as it is.
    bool open(const QString &path, int busyTimeoutMs = 15000);
    // For reading only: changes and makes nothing, also when its writer is stopped and
    // the reader may not write there. A missing file is an error.
    bool openForReading(const QString &path);
    bool isOpen() const;
    QString error() const { return lastError; }
    QString path() const { return file; }

    void setIdentity(const RecordIdentity &identity) { writer = identity; }
    // The new record's row, 0 on failure. Its id, the identity, host, user and process are
    // filled in here.
    qint64 begin(FlashRecord &record);
    // Waits at most busyTimeoutMs for another writer (0: as opened).
    bool finish(const FlashRecord &record, int busyTimeoutMs = 0);
    // A record that could not be completed: what it would have said goes into the journal.
    bool noteUnrecorded(const FlashRecord &record);
    // Oldest first, one at a time, without holding them all; false from `each` stops.
    bool forEach(const HistoryFilter &filter, const std::function<bool(const FlashRecord &)> &each);
    QList<FlashRecord> records(const HistoryFilter &filter = HistoryFilter());
    // How many records the filter lets through (its order and limit aside); -1 on failure.
    qint64 count(const HistoryFilter &filter);

    // The outbox: finished records the central record has not taken, oldest first.
    bool unsent(int limit, QList<FlashRecord> *records);
    int unsentCount();
    bool markSent(const QList<qint64> &rows);

private:
    bool exec(const QString &statement);
    // Runs "SELECT what" over the filter's records, in its order and limit when ordered.
    bool select(QSqlQuery &query, const QString &what, const HistoryFilter &filter, bool ordered);
    QString journalPath() const { return file + QLatin1String(".unrecorded"); }
    // The journal's records by id: what they would have said.
    QHash<qint64, FlashRecord> journal() const;
    bool read(QSqlQuery &query, const std::function<bool(const FlashRecord &)> &each);
    void applyJournal();
    void markInterrupted();

    QString connection;
    QString file;
    QString lastError;
    bool lastBusy = false; // the last failed statement met another writer
    int schema = 0;        // the file's version
    RecordIdentity writer;
};

// The record as one JSON object, and as CSV (its header row and one row). central: read
// from the central record, which says when it took it, not when it was sent.
QByteArray historyJson(const FlashRecord &record, bool central = false);
QByteArray historyCsvHeader(bool central = false);
QByteArray historyCsv(const FlashRecord &record, bool central = false);
QString isoText(const QDateTime &time);
// The record's files as the databases keep them: a JSON array of {name, sha256}.
QString filesJson(const FlashRecord &record);
QList<QPair<QString, QString>> filesFromJson(const QString &text);
