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
  return static_cast<unsigned>(std::count_if(m_missedCallList.begin(), m_missedCallList.end(),
                                             [](const MissedCallItem& item) { return !item.getViewed(); }));
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
// Each acts on the entries the set names and on no other; a set naming none changes nothing and
// tells nobody. The reply stays true either way.

bool JournalService::deleteMissedCallList(const std::set<std::string>& entryIds) {
  JLOG(kCoreLog, 5, "JournalService::deleteMissedCallList");
  unsigned unviewed = 0;
  auto countUnviewed = [&](const std::deque<MissedCallItem>&)
                           REQUIRES(m_missedLock) { unviewed = getUnviewedMissedCallsCount(); };
  if (eraseEntries<MissedCallItem>(entryIds, countUnviewed))
    m_pObserverNotifier->updateMissedCallCountAndCalls(unviewed);
  return true;
}

bool JournalService::deleteDialledCallList(const std::set<std::string>& entryIds) {
  JLOG(kCoreLog, 5, "JournalService::deleteDialledCallList by set");
  DialledCallItem newFront;
  if (eraseEntries<DialledCallItem>(entryIds, [&](const std::deque<DialledCallItem>& list) {
        if (!list.empty()) newFront = list.front();
      }))
    m_pObserverNotifier->updateDialledCalls(newFront);
  return true;
}

bool JournalService::deleteReceivedCallList(const std::set<std::string>& entryIds) {
  JLOG(kCoreLog, 5, "JournalService::deleteReceivedCallList");
  if (eraseEntries<ReceivedCallItem>(entryIds, [](const std::deque<ReceivedCallItem>&) {}))
    m_pObserverNotifier->updateReceivedCalls();
  return true;
}

bool JournalService::deleteForwardedCallList(const std::set<std::string>& entryIds) {
  JLOG(kCoreLog, 5, "JournalService::deleteForwardedCallList");
  if (eraseEntries<ForwardedCallItem>(entryIds, [](const std::deque<ForwardedCallItem>&) {}))
    m_pObserverNotifier->updateForwardedCalls();
  return true;
}

bool JournalService::deleteCallBackList(const std::set<std::string>& entryIds) {
  JLOG(kCoreLog, 5, "JournalService::deleteCallBackList by set");
  if (eraseEntries<CallBackItem>(entryIds, [](const std::deque<CallBackItem>&) {}))
    m_pObserverNotifier->updateCallbacksAndCount();
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

bool JournalService::deleteCalls(const std::set<std::string>& entryIds) {
  bool deletedAny = false;
  for (const std::string& id : entryIds)
    if (deleteReceivedCall(id) || deleteDialledCall(id) || deleteMissedCall(id) || deleteForwardedCall(id))
      deletedAny = true;
  return deletedAny;
}

// ---- Viewed marking ---------------------------------------------------------------------------

// Marks the entries the set names, and no other; observers hear the count that remains. A set
// naming no entry changes nothing and tells nobody.
bool JournalService::setMissedCallListAsViewed(const std::set<std::string>& entryIds) {
  JLOG(kCoreLog, 5, "setMissedCallListAsViewed");
  unsigned unviewed = 0;
  {
    CriticalSection guard(m_missedLock);
    std::vector<MissedCallItem*> marked;
    for (MissedCallItem& item : m_missedCallList) {
      if (entryIds.count(item.getEntryId()) == 0) continue;
      item.setViewed(true);
      marked.push_back(&item);
    }
    if (marked.empty()) return true;
    storeWriteSet(marked);
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
    it->setViewed(true);
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
