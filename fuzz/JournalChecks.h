// The promises a running journal keeps whatever it was sent, checked from outside, as a client and
// the store see it:
//   - each list reply is well-formed XML of clean text that the client's parser reads whole;
//   - a list holds at most 1000 entries, a call entry 1 to 10 occurrences, and the list orders of
//     a call list are positive and fall from front to back;
//   - entry ids are unique over all five lists;
//   - the store holds exactly the entries of the four stored lists (same unique ids, entry ids,
//     orders and occurrence counts), every row readable.
// A broken promise aborts (FUZZ_CHECK). Used by the targets that drive a journal; one thread.
#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "FuzzSupport.h"
#include "JournalHost.h"
#include "framework/JournalServiceHelper.h"
#include "sqlite_store/SqliteDataAccessService.h"

namespace fuzz {

// The journal's limits (docs/store-protocol.md, "Read").
constexpr size_t kMaxListEntries = 1000;
constexpr size_t kMaxOccurrences = 10;

// The entry ids of each list, front first.
struct ListIds {
  std::vector<std::string> missed, dialled, received, forwarded, callBacks;
};

namespace detail {

using H = JournalServiceHelper;

// One entry as the store keeps it: what a list entry and its row must agree on.
struct Row {
  std::string uniqueId, entryId;
  int64_t order = 0;
  size_t occurrences = 0;
  bool operator<(const Row& o) const {
    return std::tie(uniqueId, entryId, order, occurrences) < std::tie(o.uniqueId, o.entryId, o.order, o.occurrences);
  }
  bool operator==(const Row& o) const {
    return std::tie(uniqueId, entryId, order, occurrences) == std::tie(o.uniqueId, o.entryId, o.order, o.occurrences);
  }
  std::string text() const {
    return "{" + uniqueId + ", " + entryId + ", " + std::to_string(order) + ", " + std::to_string(occurrences) + "}";
  }
};

template <class Item>
std::vector<Row> rowsOf(const std::deque<Item>& list) {
  std::vector<Row> rows;
  for (const Item& item : list)
    rows.push_back({item.getUniqueId(), item.getEntryId(), item.getListOrder(), item.infos().size()});
  std::sort(rows.begin(), rows.end());
  return rows;
}

// A list as a client reads it: the reply to `method`, checked and parsed.
template <class Item>
std::deque<Item> readClientList(host::JournalHost& journal, int method,
                                bool (*parse)(const std::string&, std::deque<Item>&)) {
  const std::string reply = journal.request(H::createMethodRequest(method));
  FUZZ_CHECK(isWellFormedXml(reply), reply);
  FUZZ_CHECK(isCleanText(reply), reply);
  std::deque<Item> list;
  FUZZ_CHECK(parse(reply, list), reply);
  FUZZ_CHECK(list.size() <= kMaxListEntries, H::methodName(method) + ": " + std::to_string(list.size()));
  return list;
}

template <class Item>
void checkCallList(const std::deque<Item>& list, const char* name) {
  int64_t above = INT64_MAX;
  for (const Item& item : list) {
    const std::string where = std::string(name) + " " + item.getEntryId();
    FUZZ_CHECK(!item.infos().empty(), where + ": no occurrence");
    FUZZ_CHECK(item.infos().size() <= kMaxOccurrences, where + ": " + std::to_string(item.infos().size()));
    FUZZ_CHECK(item.getListOrder() > 0 && item.getListOrder() < above,
               where + ": order " + std::to_string(item.getListOrder()) + " below " + std::to_string(above));
    above = item.getListOrder();
  }
}

template <class Item>
std::vector<std::string> checkIds(const std::deque<Item>& list, std::set<std::string>& ids) {
  std::vector<std::string> listIds;
  for (const Item& item : list) {
    FUZZ_CHECK(!item.getEntryId().empty(), "an entry without an id");
    FUZZ_CHECK(ids.insert(item.getEntryId()).second, "entry id held twice: " + item.getEntryId());
    listIds.push_back(item.getEntryId());
  }
  return listIds;
}

// The store's rows of one table against the list: same entries, every row readable.
template <class Item>
void checkStored(SqliteDataAccessService& store, const std::string& readMessage,
                 bool (*parse)(const std::string&, std::deque<Item>&, std::vector<std::string>&),
                 const std::deque<Item>& list, const char* name) {
  const std::string reply = store.processRequest(readMessage);
  std::deque<Item> stored;
  std::vector<std::string> skipped;
  FUZZ_CHECK(parse(reply, stored, skipped), reply);
  FUZZ_CHECK(skipped.empty(), std::string(name) + ": unreadable row " + skipped.front());
  const std::vector<Row> inList = rowsOf(list), inStore = rowsOf(stored);
  if (inList == inStore) return;
  std::string difference = std::string(name) + ": list " + std::to_string(inList.size()) + " entries, store " +
                           std::to_string(inStore.size()) + ";";
  for (size_t i = 0; i < std::max(inList.size(), inStore.size()); ++i) {
    const std::string a = i < inList.size() ? inList[i].text() : "-", b = i < inStore.size() ? inStore[i].text() : "-";
    if (a != b) {
      difference += " first difference: list " + a + ", store " + b;
      break;
    }
  }
  FUZZ_CHECK(inList == inStore, difference);
}

}  // namespace detail

// Checks every promise above on `journal`, whose store file `store` reads (a connection of its
// own). Gives the lists' entry ids.
inline ListIds checkJournal(host::JournalHost& journal, SqliteDataAccessService& store) {
  using H = JournalServiceHelper;
  const auto missed = detail::readClientList(journal, H::GET_MISSED_CALL_LIST, &H::parseXMLMissedCallList);
  const auto dialled = detail::readClientList(journal, H::GET_DIALLED_CALL_LIST, &H::parseXMLDialledCallList);
  const auto received = detail::readClientList(journal, H::GET_RECEIVED_CALL_LIST, &H::parseXMLReceivedCallList);
  const auto forwarded = detail::readClientList(journal, H::GET_FORWARDED_CALL_LIST, &H::parseXMLForwardedCallList);
  const auto callBacks = detail::readClientList(journal, H::GET_CALL_BACK_LIST, &H::parseXMLCallBackList);
  detail::checkCallList(missed, "missed");
  detail::checkCallList(dialled, "dialled");
  detail::checkCallList(received, "received");
  detail::checkCallList(forwarded, "forwarded");
  std::set<std::string> ids;
  ListIds lists;
  lists.missed = detail::checkIds(missed, ids);
  lists.dialled = detail::checkIds(dialled, ids);
  lists.received = detail::checkIds(received, ids);
  lists.forwarded = detail::checkIds(forwarded, ids);
  lists.callBacks = detail::checkIds(callBacks, ids);
  detail::checkStored(store, H::readMissedCallList(), &H::parseStoredMissedCallList, missed, "missed");
  detail::checkStored(store, H::readDialledCallList(), &H::parseStoredDialledCallList, dialled, "dialled");
  detail::checkStored(store, H::readReceivedCallList(), &H::parseStoredReceivedCallList, received, "received");
  detail::checkStored(store, H::readForwardedCallList(), &H::parseStoredForwardedCallList, forwarded, "forwarded");
  return lists;
}

// A connection of the checks' own to the journal's store file.
inline SqliteDataAccessService& storeReader(const std::string& database) {
  auto* store = new SqliteDataAccessService(SqliteDataAccessService::Normal);
  std::string error;
  FUZZ_CHECK(store->open(database, error), error);
  return *store;
}

}  // namespace fuzz
