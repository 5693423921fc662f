// How a change of a stored list reaches the store: written at once while the store works, kept in
// the list's backlog while it does not (see StoreBacklog.h), and how a list read from the store is
// put in order and checked. Private to the module; included at the end of ListAccess.h. Every
// function here is called with the list's lock held.
#pragma once

#include <algorithm>
#include <vector>

#include "JournalService/ListAccess.h"
#include "JournalService/ListOrder.h"
#include "JournalService/StoreBacklog.h"

template <class Item>
ListBacklog& JournalService::backlogOf() {
  return m_storeBacklog->lists[JournalListTraits<Item>::slot];
}

// Applies `change` to the list's backlog and keeps the count of waiting changes.
template <class Item, class Change>
void JournalService::changeBacklog(Change change) {
  ListBacklog& backlog = backlogOf<Item>();
  const size_t before = backlog.size();
  change(backlog);
  const size_t after = backlog.size();
  if (after > before) m_storeBacklog->waiting += after - before;
  if (before > after) m_storeBacklog->waiting -= before - after;
}

// True when a change of the list is to wait in its backlog: the store is down, or earlier changes
// of the list still wait and the store did not take them now either (they go first).
template <class Item>
bool JournalService::changeWaits() {
  if (backlogOf<Item>().empty()) return m_storeBacklog->down;
  if (m_storeBacklog->down) return true;
  size_t written = 0;
  const bool flushed = flushBacklog<Item>(written);
  noteStoreWritten(written);
  if (!flushed) storeFailed();
  return !flushed;
}

// The entry whose order was `order` left its place (it moved, or left the list): a write waiting
// under that order is not needed any more.
template <class Item>
void JournalService::forgetWaitingWrite(int64_t order) {
  if (backlogOf<Item>().writes.count(order) == 0) return;
  changeBacklog<Item>([&](ListBacklog& backlog) { backlog.writes.erase(order); });
}

// Writes `entry`, an entry of the list, as it is now; it takes the unique id the store gives it.
template <class Item>
void JournalService::storeWrite(Item& entry) {
  using T = JournalListTraits<Item>;
  if (!changeWaits<Item>()) {
    std::string body, id;
    T::appendEntry(entry, body, false);  // the entry's field, written once (no body copied into it)
    if (storeEntries(body, Helper::WRITEREQUEST, T::table, id)) {
      if (!id.empty()) entry.setUniqueId(id);
      storeWorked();
      return;
    }
    storeFailed();
  }
  changeBacklog<Item>([&](ListBacklog& backlog) { backlog.writes.insert(entry.getListOrder()); });
}

// Writes entries of the list in one message (the viewed marking, a list numbered anew). Sent at
// once only when nothing of the list waits, so each entry has its row then: a message of several
// entries tells the unique id of the last one only.
template <class Item>
void JournalService::storeWriteSet(const std::vector<Item*>& entries) {
  using T = JournalListTraits<Item>;
  if (!changeWaits<Item>()) {
    std::string body;
    for (const Item* entry : entries) T::appendEntry(*entry, body, false);
    std::string id;
    if (storeEntries(body, Helper::WRITEREQUEST, T::table, id)) {
      storeWorked();
      return;
    }
    storeFailed();
  }
  changeBacklog<Item>([&](ListBacklog& backlog) {
    for (const Item* entry : entries) backlog.writes.insert(entry->getListOrder());
  });
}

// Deletes the rows of `entries`, which are leaving the list, in one message. An entry without a
// unique id has no row: while the store fails only its waiting write is dropped.
template <class Item>
void JournalService::storeDeletes(const std::vector<const Item*>& entries) {
  using T = JournalListTraits<Item>;
  for (const Item* entry : entries) forgetWaitingWrite<Item>(entry->getListOrder());
  if (!changeWaits<Item>()) {
    std::string body;
    for (const Item* entry : entries) T::appendEntry(*entry, body, true);
    std::string id;
    if (storeEntries(body, Helper::DELETEREQUEST, T::table, id)) {
      storeWorked();
      return;
    }
    storeFailed();
  }
  changeBacklog<Item>([&](ListBacklog& backlog) {
    for (const Item* entry : entries)
      if (!entry->getUniqueId().empty()) backlog.deletes.push_back(T::body(*entry, true));
  });
}

template <class Item>
void JournalService::storeDelete(const Item& entry) {
  storeDeletes<Item>({&entry});
}

// Empties the list's table (the list was emptied): nothing that waited matters any more.
template <class Item>
void JournalService::storeClear() {
  using T = JournalListTraits<Item>;
  changeBacklog<Item>([](ListBacklog& backlog) {
    backlog.deletes.clear();
    backlog.writes.clear();
  });
  if (!changeWaits<Item>()) {
    std::string id;
    if (storeEntries(std::string(), Helper::DELETEREQUEST, T::table, id)) {
      storeWorked();
      return;
    }
    storeFailed();
  }
  changeBacklog<Item>([](ListBacklog& backlog) { backlog.clearTable = true; });
}

// Writes what waits in the list's backlog, in order; false at the first message the store refuses
// (what was written is out of the backlog, the rest stays). Counts the changes written.
template <class Item>
bool JournalService::flushBacklog(size_t& written) {
  using T = JournalListTraits<Item>;
  ListBacklog& backlog = backlogOf<Item>();
  std::string id;
  if (backlog.clearTable) {
    if (!storeEntries(std::string(), Helper::DELETEREQUEST, T::table, id)) return false;
    changeBacklog<Item>([](ListBacklog& b) { b.clearTable = false; });
    ++written;
  }
  if (!backlog.deletes.empty()) {
    std::string body;
    for (const std::string& deletion : backlog.deletes) body += Helper::createXMLField(Helper::ENTRY, deletion);
    if (!storeEntries(body, Helper::DELETEREQUEST, T::table, id)) return false;
    written += backlog.deletes.size();
    changeBacklog<Item>([](ListBacklog& b) { b.deletes.clear(); });
  }
  // Oldest first, one message each: an entry not stored yet learns the id of its new row.
  auto& list = T::list(*this);
  for (auto entry = list.rbegin(); entry != list.rend() && !backlog.writes.empty(); ++entry) {
    const auto order = backlog.writes.find(entry->getListOrder());
    if (order == backlog.writes.end()) continue;
    std::string body;
    T::appendEntry(*entry, body, false);
    if (!storeEntries(body, Helper::WRITEREQUEST, T::table, id)) return false;
    if (!id.empty()) entry->setUniqueId(id);
    changeBacklog<Item>([&](ListBacklog& b) { b.writes.erase(order); });
    ++written;
  }
  changeBacklog<Item>([](ListBacklog& b) { b.writes.clear(); });  // orders no entry holds any more
  return true;
}

// True when nothing of the list waits to be stored (after writing it, if the store is up): only
// then may the list be replaced by what the store holds.
template <class Item>
bool JournalService::listIsStored() {
  if (backlogOf<Item>().empty()) return true;
  if (!m_storeBacklog->down) {
    size_t written = 0;
    const bool flushed = flushBacklog<Item>(written);
    noteStoreWritten(written);
    if (!flushed) storeFailed();
  }
  return backlogOf<Item>().empty();
}

// Gives list[index] its order among its neighbours. The caller stores that entry; when the list
// had to be numbered anew, every other entry is stored here.
template <class Item>
void JournalService::placeEntry(std::deque<Item>& list, size_t index) {
  if (!placeInList(list, index)) return;
  listChanged<Item>();  // every order changed: the number index is stale
  std::vector<Item*> others;
  for (size_t i = 0; i < list.size(); ++i)
    if (i != index) others.push_back(&list[i]);
  if (!others.empty()) storeWriteSet(others);
}

// Writes the list's front entry after a call was filed, under `trimmedId` when the limit dropped
// an entry (the new entry takes over the dropped entry's row).
template <class Item>
void JournalService::storeFrontEntry(std::deque<Item>& list, const std::string& trimmedId) {
  if (list.empty()) return;
  Item& front = list.front();
  if (!trimmedId.empty()) front.setUniqueId(trimmedId);
  storeWrite(front);
}

// The read and the replacement happen under the list's lock: a deletion between them would
// otherwise bring a deleted entry back from the stale reply. A list with changes the store has not
// taken yet is kept as it is.
template <class Item>
void JournalService::readStoredList() {
  CriticalSection guard(JournalListTraits<Item>::lock(*this));
  if (!listIsStored<Item>()) {
    JLOG(journal::kCoreLog, 4, "table %s: changes wait to be stored; the list is kept as it is",
         JournalListTraits<Item>::table);
    return;
  }
  std::string reply = processRequest(JournalListTraits<Item>::readMessage());
  if (reply != journal::kStoreFailed) replaceWithStoredLocked<Item>(reply);
}

template <class Item>
void JournalService::replaceWithStored(const std::string& reply) {
  CriticalSection guard(JournalListTraits<Item>::lock(*this));
  if (listIsStored<Item>()) replaceWithStoredLocked<Item>(reply);
}

// Replaces the list with the entries of a store reply, leaving out (and naming) rows that are not
// well-formed entries; a reply that cannot be read at all leaves the list as it was.
template <class Item>
void JournalService::replaceWithStoredLocked(const std::string& reply) {
  using T = JournalListTraits<Item>;
  std::deque<Item> stored;
  std::vector<std::string> skipped;
  if (!T::parse(reply, stored, skipped)) {
    JLOG(journal::kCoreLog, 2, "table %s: the store's reply cannot be read; the list is left as it was", T::table);
    return;
  }
  for (const std::string& row : skipped)
    JLOG(journal::kCoreLog, 2, "table %s: row %s is not a well-formed entry; skipped", T::table, row.c_str());
  auto& list = T::list(*this);
  releaseIdsOf(list);
  list = std::move(stored);
  listChanged<Item>();
  settleStoredList(list);
  holdLoadedIds(list);
}

// Puts a list read from the store in its order and within its limits, storing each correction:
// entries without occurrences deleted, occurrences beyond the most an entry keeps dropped (oldest
// first), entries beyond the list's limit deleted (oldest first), and the list numbered anew when
// its entries do not each have an order of their own (a file written before orders were).
template <class Item>
void JournalService::settleStoredList(std::deque<Item>& list) {
  using T = JournalListTraits<Item>;
  sortAsStored(list, T::ordered);
  // Entries without occurrences are never shown: each is deleted from the store as found.
  auto empty = [](const Item& item) { return item.infos().empty(); };
  for (auto it = std::find_if(list.begin(), list.end(), empty); it != list.end();
       it = std::find_if(list.begin(), list.end(), empty)) {
    storeDelete(*it);
    list.erase(it);
  }
  if (list.size() > kMaxListEntries) {
    JLOG(journal::kCoreLog, 4, "table %s holds %zu entries; the oldest beyond %zu are deleted", T::table, list.size(),
         kMaxListEntries);
    std::vector<const Item*> beyond;
    for (size_t i = kMaxListEntries; i < list.size(); ++i) beyond.push_back(&list[i]);
    storeDeletes(beyond);
    list.resize(kMaxListEntries);
  }
  std::vector<Item*> corrected;
  for (Item& item : list) {
    if (item.infos().size() <= kMaxCallInfos) continue;
    JLOG(journal::kCoreLog, 4, "table %s: row %s holds %zu occurrences; the oldest beyond %zu are dropped", T::table,
         item.getUniqueId().c_str(), item.infos().size(), kMaxCallInfos);
    item.infos().resize(kMaxCallInfos);
    corrected.push_back(&item);
  }
  if (!listOrdersHold(list)) {
    renumberList(list);
    corrected.clear();
    for (Item& item : list) corrected.push_back(&item);
  }
  if (!corrected.empty()) storeWriteSet(corrected);
}

template <class Item>
bool JournalService::flushBacklogLocked(size_t& written) {
  CriticalSection guard(JournalListTraits<Item>::lock(*this));
  return flushBacklog<Item>(written);
}
