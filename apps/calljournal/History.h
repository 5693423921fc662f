// The call history: every occurrence of every call list as one row (time, kind, number, name,
// duration), newest first, and its printed forms: a table, JSON and CSV (RFC 4180) for a
// spreadsheet. Callbacks are no calls (a callback is a request pending at the switch, not
// something that happened), so the history leaves them out. Plain functions on values; used on
// the command-line client's only thread.
#pragma once

#include <ctime>
#include <iosfwd>
#include <set>
#include <string>
#include <vector>

#include "JournalLists.h"

namespace cli {

// One occurrence of a call, as the history shows it.
struct CallRecord {
  std::string time;      // "YYYY-MM-DDThh:mm:ss", phone local time
  std::string kind;      // "missed", "received", "dialled" or "forwarded"
  std::string number;    // the party's number
  std::string name;      // the party's name as the entry holds it
  std::string duration;  // "mm:ss"; empty for missed calls
  std::string detail;    // forwarded: the number forwarded to; dialled: the digits of a feature code
  std::string entryId;   // the entry the occurrence belongs to
};

// Which records a history keeps: at or after `since` (a time text; empty: all), of `kinds`
// (empty: all), at most `limit` of the newest (0: no limit).
struct HistoryFilter {
  std::string since;
  std::set<std::string> kinds;
  std::size_t limit = 0;
};

// The call kinds a history knows, in the order the lists are read.
extern const std::vector<std::string> kCallKinds;

// Every occurrence of the call lists read into `lists`, newest first; occurrences of the same
// second keep the order of the lists (missed, received, dialled, forwarded) and of their entries.
std::vector<CallRecord> callHistory(const JournalLists& lists);
std::vector<CallRecord> applyFilter(std::vector<CallRecord> records, const HistoryFilter& filter);

// Reads a --since value into a time text comparable with the records' times: a date
// "YYYY-MM-DD" (its start), "YYYY-MM-DDThh:mm" or "YYYY-MM-DDThh:mm:ss", or a span before `now`
// "N" followed by m (minutes), h (hours) or d (days of 24 hours), in local time. False with
// `error` saying what is accepted when `text` is none of these or no real date.
bool parseSince(const std::string& text, std::time_t now, std::string& since, std::string& error);

// Aligned table "TIME KIND NUMBER NAME DURATION ID", or a line saying there are no calls.
void printHistory(const std::vector<CallRecord>& records, std::ostream& out);
// [{"time": ..., "kind": ..., "number": ..., "name": ..., "duration": ..., "detail": ..., "entryId": ...}]
std::string historyJson(const std::vector<CallRecord>& records);

// One CSV field: quoted when it holds a comma, a quote, CR or LF (quotes doubled). A text a
// spreadsheet would take for a formula (beginning with = + - @, a tab or CR) gets a leading
// apostrophe first, unless it is a plain phone number such as +4930123.
std::string csvField(const std::string& text);
// The header row and one row per record, each ended by CRLF; UTF-8 as the lists hold it.
std::string historyCsv(const std::vector<CallRecord>& records);

}  // namespace cli
