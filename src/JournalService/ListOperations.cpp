// The list operations offered to clients: reads, deletions of one entry, a set or a whole list,
// and the viewed marking of missed calls. Each works under its list's lock, writes the change to
// the store, gives the lock and only then tells the observers: the notifier reads lists under its
// own lock, so calling it with a list lock held could invert the lock order.
#include "JournalService/ListAccess.h"

using journal::kCoreLog;

namespace {
const std::string kNoId;
}  // namespace

// ---- Reads ------------------------------------------------------------------------------------

bool JournalService::getMissedCallList(std::deque<MissedCallItem>& list) { return copyList(list); }
bool JournalService::getDialledCallList(std::deque<DialledCallItem>& list) { return copyList(list); }
bool JournalService::getReceivedCallList(std::deque<ReceivedCallItem>& list) { return copyList(list); }
bool JournalService::getForwardedCallList(std::deque<ForwardedCallItem>& list) { return copyList(list); }
bool JournalService::readMissedCallList(const ListReader<MissedCallItem>& read) { return readInPlace(read); }
bool JournalService::readDialledCallList(const ListReader<DialledCallItem>& read) { return readInPlace(read); }
bool JournalService::readReceivedCallList(const ListReader<ReceivedCallItem>& read) { return readInPlace(read); }
bool JournalService::readForwardedCallList(const ListReader<ForwardedCallItem>& read) { return readInPlace(read); }
bool JournalService::getCallBackList(std::deque<CallBackItem>& list) {
  JLOG(kCoreLog, 5, "JournalService::getCallBackList()");
  return copyList(list);
}

MissedCallItem JournalService::getFrontMissedCall() { return frontEntry<MissedCallItem>(); }
DialledCallItem JournalService::getFrontDialledCall() { return frontEntry<DialledCallItem>(); }
ReceivedCallItem JournalService::getFrontReceivedCall() { return frontEntry<ReceivedCallItem>(); }
ForwardedCallItem JournalService::getFrontForwardedCall() { return frontEntry<ForwardedCallItem>(); }
CallBackItem JournalService::getFrontCallbackCall() { return frontEntry<CallBackItem>(); }

bool JournalService::getLastDialledNumber(DialledCallItem& item) {
  CriticalSection guard(m_dialledLock);
  if (m_dialledCallList.empty()) return false;
  item = m_dialledCallList.front();
  return true;
}

unsigned JournalService::getUnviewedMissedCallsCount() const {
  if (m_unviewedMissed < 0)
    m_unviewedMissed = std::count_if(m_missedCallList.begin(), m_missedCallList.end(),
                                     [](const MissedCallItem& item) { return !item.getViewed(); });
  return static_cast<unsigned>(m_unviewedMissed);
}

bool JournalService::markViewed(MissedCallItem& item) {
  if (item.getViewed()) return false;
  item.setViewed(true);
  if (m_unviewedMissed > 0) --m_unviewedMissed;
  return true;
}

unsigned JournalService::countUnviewedMissedCalls() {
  CriticalSection guard(m_missedLock);
  return getUnviewedMissedCallsCount();
}

// ---- Single deletions -------------------------------------------------------------------------

bool JournalService::deleteMissedCall(const std::string& entryId) {
  JLOG(kCoreLog, 5, "JournalService::deleteMissedCall: entryId = %s", entryId.c_str());
  unsigned unviewed = 0;
  bool found = eraseEntry<MissedCallItem>(entryId, [&](const std::deque<MissedCallItem>&) REQUIRES(m_missedLock) {
    JLOG(kCoreLog, 5, "JournalService::deleteMissedCall: entry found");
    unviewed = getUnviewedMissedCallsCount();
  });
  if (found) m_pObserverNotifier->updateMissedCallCountAndCalls(unviewed, entryId);
  return found;
}

bool JournalService::deleteDialledCall(const std::string& entryId) {
  JLOG(kCoreLog, 5, "JournalService::deleteDialledCall: entryId = %s", entryId.c_str());
  DialledCallItem newFront;
  bool found = eraseEntry<DialledCallItem>(entryId, [&](const std::deque<DialledCallItem>& list) {
    JLOG(kCoreLog, 5, "JournalService::deleteDialledCall: entry found");
    if (!list.empty()) newFront = list.front();
  });
  if (found) m_pObserverNotifier->updateDialledCalls(newFront, entryId);
  return found;
}

bool JournalService::deleteReceivedCall(const std::string& entryId) {
  JLOG(kCoreLog, 5, "JournalService::deleteReceivedCall: entryId = %s", entryId.c_str());
  bool found = eraseEntry<ReceivedCallItem>(entryId, [](const std::deque<ReceivedCallItem>&) {
    JLOG(kCoreLog, 5, "JournalService::deleteReceivedCall: entry found");
  });
  if (found) m_pObserverNotifier->updateReceivedCalls(entryId);
  return found;
}

bool JournalService::deleteForwardedCall(const std::string& entryId) {
  JLOG(kCoreLog, 5, "JournalService::deleteForwardedCall: entryId = %s", entryId.c_str());
  bool found = eraseEntry<ForwardedCallItem>(entryId, [](const std::deque<ForwardedCallItem>&) {});
  if (found) m_pObserverNotifier->updateForwardedCalls(entryId);
  return found;
}

bool JournalService::deleteCallBack(const std::string& entryId) {
  JLOG(kCoreLog, 5, "JournalService::deleteCallBack: entryId = %s", entryId.c_str());
  bool found = eraseEntry<CallBackItem>(entryId, [](const std::deque<CallBackItem>&) {});
  if (found) m_pObserverNotifier->updateCallbacksAndCount(entryId);
  return found;
}

// ---- Set deletions ----------------------------------------------------------------------------
// Each acts on the entries the set names and on no other, with one store message for them and one
// update of the list for the observers; a set naming none changes nothing and tells nobody. The
// reply stays true either way.

template <class Item>
bool JournalService::deleteNamedEntries(const std::set<std::string>& entryIds, bool tellSingleById) {
  // One entry removed is told by its id, as its single deletion tells it, when the caller asks so.
  const auto told = [tellSingleById](const std::vector<std::string>& erased) {
    return tellSingleById && erased.size() == 1 ? erased.front() : kNoId;
  };
  if constexpr (std::is_same_v<Item, MissedCallItem>) {
    unsigned unviewed = 0;
    auto countUnviewed = [&](const std::deque<MissedCallItem>&)
                             REQUIRES(m_missedLock) { unviewed = getUnviewedMissedCallsCount(); };
    const auto erased = eraseEntries<MissedCallItem>(entryIds, countUnviewed);
    if (erased.empty()) return false;
    if (told(erased).empty())
      m_pObserverNotifier->updateMissedCallCountAndCalls(unviewed);
    else
      m_pObserverNotifier->updateMissedCallCountAndCalls(unviewed, told(erased));
  } else if constexpr (std::is_same_v<Item, DialledCallItem>) {
    DialledCallItem newFront;
    const auto erased = eraseEntries<DialledCallItem>(entryIds, [&](const std::deque<DialledCallItem>& list) {
      if (!list.empty()) newFront = list.front();
    });
    if (erased.empty()) return false;
    if (told(erased).empty())
      m_pObserverNotifier->updateDialledCalls(newFront);
    else
      m_pObserverNotifier->updateDialledCalls(newFront, told(erased));
  } else {
    const auto erased = eraseEntries<Item>(entryIds, [](const std::deque<Item>&) {});
    if (erased.empty()) return false;
    const std::string id = told(erased);
    if constexpr (std::is_same_v<Item, ReceivedCallItem>) {
      if (id.empty())
        m_pObserverNotifier->updateReceivedCalls();
      else
        m_pObserverNotifier->updateReceivedCalls(id);
    }
    if constexpr (std::is_same_v<Item, ForwardedCallItem>) {
      if (id.empty())
        m_pObserverNotifier->updateForwardedCalls();
      else
        m_pObserverNotifier->updateForwardedCalls(id);
    }
    if constexpr (std::is_same_v<Item, CallBackItem>) m_pObserverNotifier->updateCallbacksAndCount();
  }
  return true;
}

bool JournalService::deleteMissedCallList(const std::set<std::string>& entryIds) {
  JLOG(kCoreLog, 5, "JournalService::deleteMissedCallList");
  deleteNamedEntries<MissedCallItem>(entryIds);
  return true;
}

bool JournalService::deleteDialledCallList(const std::set<std::string>& entryIds) {
  JLOG(kCoreLog, 5, "JournalService::deleteDialledCallList by set");
  deleteNamedEntries<DialledCallItem>(entryIds);
  return true;
}

bool JournalService::deleteReceivedCallList(const std::set<std::string>& entryIds) {
  JLOG(kCoreLog, 5, "JournalService::deleteReceivedCallList");
  deleteNamedEntries<ReceivedCallItem>(entryIds);
  return true;
}

bool JournalService::deleteForwardedCallList(const std::set<std::string>& entryIds) {
  JLOG(kCoreLog, 5, "JournalService::deleteForwardedCallList");
  deleteNamedEntries<ForwardedCallItem>(entryIds);
  return true;
}

bool JournalService::deleteCallBackList(const std::set<std::string>& entryIds) {
  JLOG(kCoreLog, 5, "JournalService::deleteCallBackList by set");
  deleteNamedEntries<CallBackItem>(entryIds);
  return true;
}

// ---- Whole lists ------------------------------------------------------------------------------

bool JournalService::deleteMissedCallList() {
  JLOG(kCoreLog, 5, "JournalServiceHelper::deleteMissedCallList");
  eraseAllEntries<MissedCallItem>();
  m_pObserverNotifier->updateMissedCallCountAndCalls();
  return true;
}

bool JournalService::deleteDialledCallList() {
  JLOG(kCoreLog, 5, "JournalServiceHelper::deleteDialledCallList all");
  eraseAllEntries<DialledCallItem>();
  m_pObserverNotifier->updateDialledCalls(DialledCallItem());
  return true;
}

bool JournalService::deleteReceivedCallList() {
  JLOG(kCoreLog, 5, "JournalServiceHelper::deleteReceivedCallList");
  eraseAllEntries<ReceivedCallItem>();
  m_pObserverNotifier->updateReceivedCalls();
  return true;
}

bool JournalService::deleteForwardedCallList() {
  JLOG(kCoreLog, 5, "JournalServiceHelper::deleteForwardedCallList");
  eraseAllEntries<ForwardedCallItem>();
  m_pObserverNotifier->updateForwardedCalls();
  return true;
}

bool JournalService::deleteCallBackList() {
  JLOG(kCoreLog, 5, "JournalServiceHelper::deleteCallBackList all");
  eraseAllEntries<CallBackItem>();
  m_pObserverNotifier->updateCallbacksAndCount();
  return true;
}

bool JournalService::deleteCallLists() {
  deleteMissedCallList();
  deleteDialledCallList();
  deleteReceivedCallList();
  if (isSipSwitch()) deleteForwardedCallList();
  return true;  // callbacks are kept on purpose: they are pending actions, not history
}

// Ids are unique across the lists: each list deletes the ids it holds as a set deletion does, with
// one store message and one update of each list that held any (a list that lost one entry is told
// as that entry's single deletion tells it). False when no list held any.
bool JournalService::deleteCalls(const std::set<std::string>& entryIds) {
  bool deletedAny = deleteNamedEntries<ReceivedCallItem>(entryIds, true);
  deletedAny |= deleteNamedEntries<DialledCallItem>(entryIds, true);
  deletedAny |= deleteNamedEntries<MissedCallItem>(entryIds, true);
  deletedAny |= deleteNamedEntries<ForwardedCallItem>(entryIds, true);
  return deletedAny;
}

// ---- Viewed marking ---------------------------------------------------------------------------

// Marks the entries the set names, and no other; observers hear the count that remains. Only the
// entries that were not viewed yet are written. A set naming no entry changes nothing and tells
// nobody.
bool JournalService::setMissedCallListAsViewed(const std::set<std::string>& entryIds) {
  JLOG(kCoreLog, 5, "setMissedCallListAsViewed");
  unsigned unviewed = 0;
  {
    CriticalSection guard(m_missedLock);
    std::vector<MissedCallItem*> marked;
    bool named = false;
    for (MissedCallItem& item : m_missedCallList) {
      if (entryIds.count(item.getEntryId()) == 0) continue;
      named = true;
      if (markViewed(item)) marked.push_back(&item);
    }
    if (!named) return true;
    if (!marked.empty()) storeWriteSet(marked);
    unviewed = getUnviewedMissedCallsCount();
  }
  m_pObserverNotifier->updateMissedCallCountAndCalls(unviewed);
  return true;
}

bool JournalService::ageMissedCall(const std::string& entryId) {
  JLOG(kCoreLog, 5, "ageMissedCall");
  MissedCallItem aged;
  unsigned unviewed = 0;
  {
    CriticalSection guard(m_missedLock);
    auto it = std::find_if(m_missedCallList.begin(), m_missedCallList.end(),
                           [&](const MissedCallItem& item) { return item.getEntryId() == entryId; });
    if (it == m_missedCallList.end()) return false;
    markViewed(*it);
    storeWrite(*it);
    aged = *it;
    unviewed = getUnviewedMissedCallsCount();
  }
  m_pObserverNotifier->updateMissedCallCountAndCalls(aged, unviewed, kNoId, JournalServiceObserverIfc::MERGED_ENTRY);
  return true;
}

bool JournalService::resetUserData() {
  JLOG(kCoreLog, 5, "JournalService::resetUserData");
  deleteCallLists();
  if (!isSipSwitch()) return true;
  // SIP phones also return the journal's settings to their factory state.
  std::string reason;
  if (!m_callLogEnabled && updateEnabledState("true", reason)) publishCallLogEnableState();
  if (!m_missedLogging && updateMissedLoggingState("true", reason)) publishMissedLoggingState();
  if (m_deleteMissedWhenCalled && updateDeleteMissedWhenCalledState("false", reason))
    publishDeleteMissedWhenCalledState();
  return true;
}

// ---- Observers --------------------------------------------------------------------------------

bool JournalService::subscribe(JournalServiceObserverIfc* observer) {
  if (!m_listsLoaded) loadCallListsFromDb();
  return m_pObserverNotifier->subscribe(observer, getFrontDialledCall());
}

bool JournalService::unsubscribe(JournalServiceObserverIfc* observer) {
  return m_pObserverNotifier->unsubscribe(observer);
}
