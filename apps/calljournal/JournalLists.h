// The five lists as a client sees them, read from the journal's list replies, and their two
// printed forms: aligned tables for people, one JSON object for programs. Plain values; used on
// the command-line client's only thread.
#pragma once

#include <deque>
#include <iosfwd>
#include <string>
#include <vector>

#include "framework/CallItems.h"

namespace cli {

enum class ListKind { Missed, Received, Dialled, Forwarded, CallBacks };
constexpr ListKind kAllListKinds[] = {ListKind::Missed, ListKind::Received, ListKind::Dialled, ListKind::Forwarded,
                                      ListKind::CallBacks};

// The client method codes that read a list, delete one of its entries and delete a set of them.
struct ListMethods {
  int read, deleteOne, deleteList;
};
const ListMethods& listMethods(ListKind kind);

// "missed", "received", "dialled", "forwarded", "callbacks" <-> kind; false for another word.
bool listKindFromName(const std::string& name, ListKind& kind);
const char* listName(ListKind kind);

struct JournalLists {
  std::deque<MissedCallItem> missed;
  std::deque<ReceivedCallItem> received;
  std::deque<DialledCallItem> dialled;
  std::deque<ForwardedCallItem> forwarded;
  std::deque<CallBackItem> callbacks;
  bool has[5] = {false, false, false, false, false};  // which lists were read

  // Reads one list reply into its list; false for FAILURE or a reply that is not a list.
  bool read(ListKind kind, const std::string& reply);
  unsigned unviewedMissed() const;
  // The entries the list of `kind` holds.
  std::size_t size(ListKind kind) const;
  // The list holding `entryId`, if any (the first of missed, received, dialled, forwarded,
  // callbacks).
  bool find(const std::string& entryId, ListKind& kind) const;
  // The party of the entry `entryId` for people: its number and name; empty when no list has it.
  std::string describe(const std::string& entryId) const;
};

// {"unviewedMissed": n, "missed": [...], ...}: the lists read, newest first, fields in camelCase.
std::string toJson(const JournalLists& lists);
// One aligned table per list read, headed by its name and size (missed also by the unviewed count).
void printTables(const JournalLists& lists, std::ostream& out);

// The entry `entryId` with every occurrence: {"list": "missed", "entry": {...}} (the entry as in
// toJson); empty when no list read holds it.
std::string entryJson(const JournalLists& lists, const std::string& entryId);
// The entry `entryId` for people: a line naming it, its list and party, then one row per
// occurrence, newest first. False when no list read holds it.
bool printEntry(const JournalLists& lists, const std::string& entryId, std::ostream& out);
// Keeps the entries of every list whose name or number (of any occurrence) holds `text`; names
// are compared ignoring the case of ASCII letters.
void keepMatching(JournalLists& lists, const std::string& text);
// "First Surname", or whichever of the two the entry has.
std::string partyName(const CallItem& item);

// One observer message as one line: "missed new <id> <number> <name>", "missedCount 3", ...
// or, with `json`, one JSON object. Empty for a message that cannot be read.
std::string observerMessageLine(const std::string& message, bool json);

}  // namespace cli
