#include "historyreader.h"

#include <QFileInfo>
#include <QSaveFile>


HistoryReader::HistoryReader(const QString &path, int pageSize) : path(path), pageSize(pageSize) {}

int HistoryReader::request(const QString &serial)
{
    const int ticket = ++latest;
    QMetaObject::invokeMethod(
        this, [this, serial, ticket] { read(serial, ticket); }, Qt::QueuedConnection);
    return ticket;
}

void HistoryReader::exportCsv(const QString &target, const QString &serial)
{
    QMetaObject::invokeMethod(
        this, [this, target, serial] { writeCsv(target, serial); }, Qt::QueuedConnection);
}

void HistoryReader::stop()
{
    stopped = true;
}

bool HistoryReader::ready(QString *error)
{
    error->clear();
    if (history.isOpen())
        return true;
    // Opening for reading makes nothing; a history that is not there yet is no error.
    if (!QFileInfo::exists(path))
        return false;
    if (history.openForReading(path))
        return true;
    *error = history.error();
    return false;
}

void HistoryReader::read(const QString &serial, int ticket)
{
    if (moot(ticket))
        return;
    QString error;
    if (!ready(&error)) {
        if (error.isEmpty())
            emit missing(ticket);
        else
            emit failed(ticket, error);
        return;
    }
    HistoryFilter filter;
    filter.serial = serial;
    const qint64 matching = history.count(filter);
    filter.newestFirst = true;
    filter.limit = pageSize;
    QList<FlashRecord> newest;
    const bool streamed = matching >= 0 && history.forEach(filter, [&](const FlashRecord &record) {
        newest << record;
        return !moot(ticket);
    });
    if (moot(ticket))
        return;
    if (!streamed) {
        emit failed(ticket, history.error());
        return;
    }
    emit recordsRead(ticket, newest, matching);
}

void HistoryReader::writeCsv(const QString &target, const QString &serial)
{
    if (stopped)
        return;
    QString error;
    if (!ready(&error)) {
        emit exportFailed(target, error.isEmpty() ? tr("There is no history at %1").arg(path) : error);
        return;
    }
    // In a file of its own until the last record is in: the old one stays until then.
    QSaveFile file(target);
    if (!file.open(QIODevice::WriteOnly)) {
        emit exportFailed(target, file.errorString());
        return;
    }
    // As the station's history --csv writes it.
    file.write(historyCsvHeader() + "\r\n");
    qint64 count = 0;
    HistoryFilter filter;
    filter.serial = serial;
    const bool streamed = history.forEach(filter, [&](const FlashRecord &record) {
        if (stopped)
            return false;
        ++count;
        // A failed write is kept by the file and fails its commit.
        return file.write(historyCsv(record) + "\r\n") >= 0;
    });
    if (stopped)
        return; // not committed: the old file stays
    if (!streamed) {
        emit exportFailed(target, history.error());
        return;
    }
    if (!file.commit()) {
        emit exportFailed(target, file.errorString());
        return;
    }
    emit exported(target, count);
}
