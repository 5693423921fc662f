// The reading of one store request (docs/store-protocol.md, "Store messages"), shared by the SQLite
// and the in-memory store: parseStoreRequest() checks the whole message and gives it as a plain
// value (table, reason, the entries with their item bodies read, the settings), or the text of
// the first fault. A store only carries out what it is given, so both refuse the same requests
// with the same words.
//
// The value owns all it holds (no view into the message or a parsed document): a request of a
// thousand entries costs its texts, not a thousand documents. Free functions without state; any
// thread may call them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace storemessage {

// The stored tables; only kSettings holds no item bodies.
enum Table { kMissed, kDialled, kReceived, kForwarded, kSettings, kTableCount };
constexpr int kCallTableCount = kSettings;

enum Reason { kRead, kWrite, kUpdate, kDelete };

// The table's name in the requests' `table` attribute (and in the SQLite file).
const char* tableName(Table table);
// The root element of the item bodies a call table keeps; null for the settings.
const char* bodyRoot(Table table);
// The reason's text in `reason`: read, write, update, delete.
const char* reasonName(Reason reason);
// Whether `name` is one of the three settings a store keeps.
bool isSetting(std::string_view name);

// Fields of an item body that a store keeps beside it (the SQLite store's readable columns). A
// field the body leaves out is at its default: an empty text, 0, false.
struct ItemFields {
  std::string entryId;
  std::string surname;
  std::string firstname;
  bool hasOccurrence = false;  // the body has a callInfo: number and timeDate are the newest's
  std::string number;
  std::string timeDate;
  int64_t occurrences = 0;  // callInfo elements
  int64_t listOrder = 0;    // 0 when the body has none, or none that is a number
  bool viewed = false;      // missed calls only
};

// One entry of a write, update or delete, its body checked to be an item body of the table's
// type (for a write or an update one that the journal reads back).
struct Entry {
  int64_t uniqueId = 0;      // the stored row the body names; 0 when it names none
  bool badUniqueId = false;  // a uniqueId that no row can have ("1false", "-3"): a delete of it removes nothing
  // Write and update: the body to keep, as sent, or written anew when it held a raw carriage
  // return (which a reader would fold into a line feed); empty for a delete.
  std::string body;
  ItemFields item;  // write and update: all fields; delete: only entryId
};

struct Setting {
  std::string name;   // one for which isSetting() holds
  std::string value;  // empty for a delete
};

struct StoreRequest {
  Table table = kMissed;
  Reason reason = kRead;
  std::vector<Entry> entries;     // call tables, in request order; none for a read
  std::vector<Setting> settings;  // the settings table, in request order; none for a read
};

// Reads `text` into `request`. False with `error` set at the first fault (not well-formed, not a
// store request, unknown table or reason, a read with entries, an entry that holds no item body
// of the table's type or one the journal could not read, an unknown setting, ...); faults in an
// entry or a setting are named after describeRequest()'s words.
bool parseStoreRequest(const std::string& text, StoreRequest& request, std::string& error);

// "table callLogMissedCalls, write: ", put before the fault of a request whose frame was read.
std::string describeRequest(const StoreRequest& request);

// The number of occurrences in an item body; false when the body is not well-formed.
bool countOccurrences(const char* body, size_t size, int64_t& count);

}  // namespace storemessage
