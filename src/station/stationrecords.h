#pragma once

#include "history/centraladdress.h"
#include "history/flashhistory.h"

#include "stationoutput.h"


// The station's commands about records: what the history holds, here or in the central
// record, and sending what the central record has not taken.
namespace StationRecords {
enum class Format { Text, Json, Csv };

// Reads only, and prints each record as it comes: a year of them is never held at once.
int print(const QString &historyPath, const CentralAddress &central, Format format, const HistoryFilter &filter);
// Every unsent record now: 0 when nothing is left, 2 when the server could not take them all.
int sync(const QString &historyPath, const CentralAddress &central, StationOutput &output);
// --since and ?since= take a date or a date and time, read as UTC; invalid when neither.
QDateTime sinceDate(const QString &text);
// The outcomes of the history's records from `since` on; none when it cannot be read.
StationOutput::Counts countsSince(const QString &historyPath, const QDateTime &since);
} // namespace StationRecords
