// What differs between the five lists, gathered in one traits class per item type, and the list
// work that is the same for all of them (copy, front, erase by id); StoreChanges.h, included at the
// end, takes their changes to the store and loads them from it.
// Private to the module; included by the sources of JournalService.
#pragma once

#include <algorithm>
#include <string>
#include <type_traits>
#include <vector>

#include "JournalLog.h"
#include "JournalService.h"
#include "JournalService/PendingSwitchReports.h"
#include "framework/JournalServiceHelper.h"

using Helper = JournalServiceHelper;

template <>
struct JournalListTraits<MissedCallItem> {
  static constexpr bool stored = true;
  static constexpr int slot = 0;  // of its backlog
  static constexpr const char* table = Helper::DAS_CALLLOGMISSEDCALLS;
  static std::deque<MissedCallItem>& list(JournalService& s) REQUIRES(s.m_missedLock) { return s.m_missedCallList; }
  static constexpr bool indexed = true;
  static NumberIndex& numbers(JournalService& s) REQUIRES(s.m_missedLock) { return s.m_missedNumbers; }
  static Semaphore& lock(JournalService& s) RETURN_CAPABILITY(s.m_missedLock) { return s.m_missedLock; }
  static std::string body(const MissedCallItem& i, bool del) { return Helper::createXMLMissedCallItemBody(i, del); }
  static void appendEntry(const MissedCallItem& i, std::string& text, bool del) {
    Helper::createXMLMissedCallItemBody(i, text, del);
  }
  static bool parse(const std::string& reply, std::deque<MissedCallItem>& l, std::vector<std::string>& skipped) {
    return Helper::parseStoredMissedCallList(reply, l, skipped);
  }
  static std::string readMessage() { return Helper::readMissedCallList(); }
  static bool ordered(const MissedCallItem& a, const MissedCallItem& b) { return isMissedCallOrdered(a, b); }
  static void reportToServer(JournalService& s, const MissedCallItem& i, PendingSwitchReports& reports) {
    if (s.m_serverCallLog) reports.deleteCalls(i.infos());
  }
  // The entry made anew around `infos`, as when occurrences were taken away: no picture clip.
  static MissedCallItem rebuild(const MissedCallItem& i, const MissedCallItem::InfoList& infos) {
    MissedCallItem item(i.getEntryId(), i.getSurname(), i.getFirstname(), infos, i.getViewed());
    item.setUniqueId(i.getUniqueId());
    return item;
  }
};

template <>
struct JournalListTraits<DialledCallItem> {
  static constexpr bool stored = true;
  static constexpr int slot = 1;  // of its backlog
  static constexpr const char* table = Helper::DAS_CALLLOGDIALLEDCALLS;
  static std::deque<DialledCallItem>& list(JournalService& s) REQUIRES(s.m_dialledLock) { return s.m_dialledCallList; }
  static constexpr bool indexed = true;
  static NumberIndex& numbers(JournalService& s) REQUIRES(s.m_dialledLock) { return s.m_dialledNumbers; }
  static Semaphore& lock(JournalService& s) RETURN_CAPABILITY(s.m_dialledLock) { return s.m_dialledLock; }
  static std::string body(const DialledCallItem& i, bool del) { return Helper::createXMLDialledCallItemBody(i, del); }
  static void appendEntry(const DialledCallItem& i, std::string& text, bool del) {
    Helper::createXMLDialledCallItemBody(i, text, del);
  }
  static bool parse(const std::string& reply, std::deque<DialledCallItem>& l, std::vector<std::string>& skipped) {
    return Helper::parseStoredDialledCallList(reply, l, skipped);
  }
  static std::string readMessage() { return Helper::readDialledCallList(); }
  static bool ordered(const DialledCallItem& a, const DialledCallItem& b) { return isDialledCallOrdered(a, b); }
  static void reportToServer(JournalService& s, const DialledCallItem& i, PendingSwitchReports& reports) {
    if (s.m_serverCallLog) reports.deleteCalls(i.infos());
  }
  // The entry made anew around `infos`: no picture clip, but still grouped under its party's number.
  static DialledCallItem rebuild(const DialledCallItem& i, const DialledCallItem::InfoList& infos) {
    DialledCallItem item(i.getEntryId(), i.getSurname(), i.getFirstname(), infos);
    item.setUniqueId(i.getUniqueId());
    item.setJournalSeviceGroupBy(i.getJournalSeviceGroupBy());
    return item;
  }
};

template <>
struct JournalListTraits<ReceivedCallItem> {
  static constexpr bool stored = true;
  static constexpr int slot = 2;  // of its backlog
  static constexpr const char* table = Helper::DAS_CALLLOGRECEIVEDCALLS;
  static std::deque<ReceivedCallItem>& list(JournalService& s) REQUIRES(s.m_receivedLock) {
    return s.m_receivedCallList;
  }
  static constexpr bool indexed = true;
  static NumberIndex& numbers(JournalService& s) REQUIRES(s.m_receivedLock) { return s.m_receivedNumbers; }
  static Semaphore& lock(JournalService& s) RETURN_CAPABILITY(s.m_receivedLock) { return s.m_receivedLock; }
  static std::string body(const ReceivedCallItem& i, bool del) { return Helper::createXMLReceivedCallItemBody(i, del); }
  static void appendEntry(const ReceivedCallItem& i, std::string& text, bool del) {
    Helper::createXMLReceivedCallItemBody(i, text, del);
  }
  static bool parse(const std::string& reply, std::deque<ReceivedCallItem>& l, std::vector<std::string>& skipped) {
    return Helper::parseStoredReceivedCallList(reply, l, skipped);
  }
  static std::string readMessage() { return Helper::readReceivedCallList(); }
  static bool ordered(const ReceivedCallItem& a, const ReceivedCallItem& b) { return isReceivedCallOrdered(a, b); }
  static void reportToServer(JournalService& s, const ReceivedCallItem& i, PendingSwitchReports& reports) {
    if (s.m_serverCallLog) reports.deleteCalls(i.infos());
  }
  // The entry made anew around `infos`: no picture clip.
  static ReceivedCallItem rebuild(const ReceivedCallItem& i, const ReceivedCallItem::InfoList& infos) {
    ReceivedCallItem item(i.getEntryId(), i.getSurname(), i.getFirstname(), infos);
    item.setUniqueId(i.getUniqueId());
    return item;
  }
};

template <>
struct JournalListTraits<ForwardedCallItem> {
  static constexpr bool stored = true;
  static constexpr int slot = 3;  // of its backlog
  static constexpr const char* table = Helper::DAS_CALLLOGFORWARDEDCALLS;
  static std::deque<ForwardedCallItem>& list(JournalService& s) REQUIRES(s.m_forwardedLock) {
    return s.m_forwardedCallList;
  }
  static constexpr bool indexed = true;
  static NumberIndex& numbers(JournalService& s) REQUIRES(s.m_forwardedLock) { return s.m_forwardedNumbers; }
  static Semaphore& lock(JournalService& s) RETURN_CAPABILITY(s.m_forwardedLock) { return s.m_forwardedLock; }
  static std::string body(const ForwardedCallItem& i, bool del) {
    return Helper::createXMLForwardedCallItemBody(i, del);
  }
  static void appendEntry(const ForwardedCallItem& i, std::string& text, bool del) {
    Helper::createXMLForwardedCallItemBody(i, text, del);
  }
  static bool parse(const std::string& reply, std::deque<ForwardedCallItem>& l, std::vector<std::string>& skipped) {
    return Helper::parseStoredForwardedCallList(reply, l, skipped);
  }
  static std::string readMessage() { return Helper::readForwardedCallList(); }
  static bool ordered(const ForwardedCallItem& a, const ForwardedCallItem& b) { return isForwardedCallOrdered(a, b); }
  // The switch keeps no such list.
  static void reportToServer(JournalService&, const ForwardedCallItem&, PendingSwitchReports&) {}
};

// Callbacks live in memory only: no table, no store messages, no switch reports.
template <>
struct JournalListTraits<CallBackItem> {
  static constexpr bool stored = false;
  static std::deque<CallBackItem>& list(JournalService& s) REQUIRES(s.m_callBackLock) { return s.m_callBackList; }
  static constexpr bool indexed = false;  // no number index
  static Semaphore& lock(JournalService& s) RETURN_CAPABILITY(s.m_callBackLock) { return s.m_callBackLock; }
  static void reportToServer(JournalService&, const CallBackItem&, PendingSwitchReports&) {}
};

template <class Item>
Semaphore& JournalService::listLock() {
  return JournalListTraits<Item>::lock(*this);
}

template <class Item>
bool JournalService::copyList(std::deque<Item>& out) {
  using T = JournalListTraits<Item>;
  CriticalSection guard(T::lock(*this));
  out = T::list(*this);
  return true;
}

// The reader runs under the list's lock: the client server's reply writing (no waiting on a client
// there; the reply is queued after the lock is given).
template <class Item>
bool JournalService::readInPlace(const ListReader<Item>& read) {
  using T = JournalListTraits<Item>;
  CriticalSection guard(T::lock(*this));
  read(T::list(*this));
  return true;
}

template <class Item>
Item JournalService::frontEntry() {
  using T = JournalListTraits<Item>;
  CriticalSection guard(T::lock(*this));
  const auto& list = T::list(*this);
  return list.empty() ? Item() : list.front();
}

// Removes the first entry named `entryId`: notes its occurrences for the switch where it keeps the
// call log, deletes the stored row, erases it, then runs underLock(list) before the lock is given
// (to read what the observers are told). The switch is told once the lock is given. False when no
// entry has that id.
template <class Item, class UnderLock>
bool JournalService::eraseEntry(const std::string& entryId, UnderLock underLock) {
  using T = JournalListTraits<Item>;
  PendingSwitchReports reports(*this);  // sent after the guard below has given the lock
  CriticalSection guard(T::lock(*this));
  auto& list = T::list(*this);
  auto it = std::find_if(list.begin(), list.end(), [&](const Item& i) { return i.getEntryId() == entryId; });
  if (it == list.end()) return false;
  T::reportToServer(*this, *it, reports);
  if constexpr (T::stored) storeDelete(*it);
  leavingList(*it);
  list.erase(it);
  underLock(list);
  return true;
}

// Removes every entry whose id is in `entryIds`, with one store message for all of them; then runs
// underLock(list) before the lock is given, and tells the switch after. The ids of the entries
// removed; a set that names no entry changes nothing and sends nothing (an empty delete would
// empty the whole stored table): none.
template <class Item, class UnderLock>
std::vector<std::string> JournalService::eraseEntries(const std::set<std::string>& entryIds, UnderLock underLock) {
  using T = JournalListTraits<Item>;
  PendingSwitchReports reports(*this);  // sent after the guard below has given the lock
  CriticalSection guard(T::lock(*this));
  auto& list = T::list(*this);
  auto named = [&](const Item& item) { return entryIds.count(item.getEntryId()) != 0; };
  std::vector<const Item*> leaving;
  for (const Item& item : list) {
    if (!named(item)) continue;
    T::reportToServer(*this, item, reports);
    leaving.push_back(&item);
  }
  std::vector<std::string> erased;
  if (leaving.empty()) return erased;
  if constexpr (T::stored) storeDeletes(leaving);
  for (auto it = list.begin(); it != list.end();) {
    if (!named(*it)) {
      ++it;
      continue;
    }
    erased.push_back(it->getEntryId());
    leavingList(*it);
    it = list.erase(it);
  }
  underLock(list);
  return erased;
}

// Empties the list and its stored table (one delete without entries). Where the switch keeps the
// call log it is told of every occurrence, up to 10,000 requests, once the lock is given.
template <class Item>
void JournalService::eraseAllEntries() {
  using T = JournalListTraits<Item>;
  PendingSwitchReports reports(*this);  // sent after the guard below has given the lock
  CriticalSection guard(T::lock(*this));
  auto& list = T::list(*this);
  for (const Item& item : list) T::reportToServer(*this, item, reports);
  releaseIdsOf(list);
  list.clear();
  listChanged<Item>();
  if constexpr (T::stored) storeClear<Item>();
}

template <class Item>
void JournalService::updateStoredEntry(const Item& item, const std::string& reason) {
  using T = JournalListTraits<Item>;
  updateEntry(T::body(item, isDeleteRequest(reason)), reason, T::table);
}

template <class Item>
void JournalService::releaseIdsOf(const std::deque<Item>& list) {
  for (const Item& item : list) m_entryIds.release(item.getEntryId());
}

// The ids of a list read from the store are taken, so that no new entry gets one of them. An id
// that another entry holds already (a store written before ids were kept unique) is replaced by
// the next free one, which the entry keeps from now on. The caller holds the list's lock.
template <class Item>
void JournalService::holdLoadedIds(std::deque<Item>& list) {
  for (Item& item : list) {
    if (m_entryIds.hold(item.getEntryId())) continue;
    const std::string taken = item.getEntryId();
    m_entryIds.release(taken);
    item.setEntryId(m_entryIds.holdFree(taken));
    JLOG(journal::kCoreLog, 4, "%s():entry id %s is held by another entry; this one is now %s", __func__, taken.c_str(),
         item.getEntryId().c_str());
    listChanged<Item>();
    if constexpr (JournalListTraits<Item>::stored) storeWrite(item);
  }
}

// The ids in use, the list's number index (where it has one) and the count of unviewed missed
// entries follow entries in and out; any other change makes the index and the count stale. An
// entry arrives with the list order it has in the list.
template <class Item>
void JournalService::arrivingInList(const Item& item) {
  if (!m_entryIds.hold(item.getEntryId()))
    JLOG(journal::kCoreLog, 2, "%s():entry id %s is held by another entry", __func__, item.getEntryId().c_str());
  if constexpr (JournalListTraits<Item>::indexed) JournalListTraits<Item>::numbers(*this).add(item);
  if constexpr (std::is_same_v<Item, MissedCallItem>)
    if (m_unviewedMissed >= 0 && !item.getViewed()) ++m_unviewedMissed;
}

template <class Item>
void JournalService::leavingList(const Item& item) {
  m_entryIds.release(item.getEntryId());
  if constexpr (JournalListTraits<Item>::indexed) JournalListTraits<Item>::numbers(*this).remove(item);
  if constexpr (std::is_same_v<Item, MissedCallItem>)
    if (m_unviewedMissed > 0 && !item.getViewed()) --m_unviewedMissed;
}

// An entry merged with an occurrence stays in the list and keeps its id: mergingInList before the
// change, mergedInList once it has its new place. Its index keys move to its new order in place,
// and the unviewed count follows its viewed flag as it would for an entry leaving and arriving.
template <class Item>
void JournalService::mergingInList(const Item& item) {
  if constexpr (JournalListTraits<Item>::indexed) JournalListTraits<Item>::numbers(*this).detach(item);
  if constexpr (std::is_same_v<Item, MissedCallItem>)
    if (m_unviewedMissed > 0 && !item.getViewed()) --m_unviewedMissed;
}

template <class Item>
void JournalService::mergedInList(const Item& item) {
  if constexpr (JournalListTraits<Item>::indexed) JournalListTraits<Item>::numbers(*this).attach(item);
  if constexpr (std::is_same_v<Item, MissedCallItem>)
    if (m_unviewedMissed >= 0 && !item.getViewed()) ++m_unviewedMissed;
}

template <class Item>
void JournalService::listChanged() {
  if constexpr (JournalListTraits<Item>::indexed) JournalListTraits<Item>::numbers(*this).invalidate();
  if constexpr (std::is_same_v<Item, MissedCallItem>) m_unviewedMissed = -1;
}

// How changes reach the store (uses the traits above).
#include "JournalService/StoreChanges.h"
