#include "ObserverNotifier.h"

#include <algorithm>
#include <utility>

#include "JournalLog.h"
#include "JournalServiceIfc.h"
#include "JournalServiceObserverIfc.h"

using journal::kEventsLog;

namespace {

using ActionType = JournalServiceObserverIfc::ActionType;

ObserverNotifierIfc::ObserverData makeData(unsigned count, const std::string& id, ActionType action) {
  ObserverNotifierIfc::ObserverData data;
  data.count = count;
  data.id = id;
  data.action = action;
  return data;
}

const std::string kNoId;

// One detail line per dialled occurrence: the number dialled, or the party's number.
void logDialledNumbers(const DialledCallItem& item) {
  if (!loggingOnAppUni(kEventsLog, 6)) return;
  for (const auto& info : item.infos())
    JLOG(kEventsLog, 6, "\tnumber:%s\n", (info.dialledNumber.empty() ? info.number : info.dialledNumber).c_str());
}

}  // namespace

ObserverNotifier::ObserverNotifier() : lock(1, 1, false, "ObserverNotifier::lock") {}

ObserverNotifier::~ObserverNotifier() = default;

void ObserverNotifier::init(JournalServiceIfc* journal, const std::string& softwareType) {
  CriticalSection guard(lock);
  service = journal;
  isSipPhone = softwareType == journal::kSipSoftware;
  JLOG(kEventsLog, 5, "%s():software type '%s'", __func__, softwareType.c_str());
}

bool ObserverNotifier::subscribe(JournalServiceObserverIfc* observer, const DialledCallItem& lastDialled) {
  if (!observer) return false;
  CriticalSection guard(lock);
  observers.push_back(observer);
  observer->missedCallsCountUpdate(static_cast<int>(getUnviewedMissedCallsCount()));
  JLOG(kEventsLog, 6, "subscribe:%s:%s:%s:%d", lastDialled.getFirstname().c_str(), lastDialled.getSurname().c_str(), "",
       3);
  logDialledNumbers(lastDialled);
  JLOG(kEventsLog, 6, "subscribe:%d:%s:%d", static_cast<int>(lastDialled.infos().size()), "", 3);
  observer->dialledCallsUpdate(lastDialled, std::string(), JournalServiceObserverIfc::LIST_CHANGED);
  if (unsigned callbacks = getCallBackListSize()) observer->callBacksCountUpdate(static_cast<int>(callbacks));
  return true;
}

JournalServiceIfc* ObserverNotifier::getService() const {
  CriticalSection guard(lock);
  return service;
}

bool ObserverNotifier::isSip() const {
  CriticalSection guard(lock);
  return isSipPhone;
}

bool ObserverNotifier::unsubscribe(JournalServiceObserverIfc* observer) {
  CriticalSection guard(lock);
  auto it = std::find(observers.begin(), observers.end(), observer);
  if (it == observers.end()) return false;
  observers.erase(it);
  return true;
}

void ObserverNotifier::forEachObserver(Routine routine, const ObserverData& data) {
  CriticalSection guard(lock);
  for (JournalServiceObserverIfc* observer : observers) (this->*routine)(observer, data);
}

// ---- Updates ----------------------------------------------------------------------------------

void ObserverNotifier::updateMissedCallCountAndCalls() {
  forEachObserver(&ObserverNotifier::updateSingleMissedCallCountAndCalls,
                  makeData(0, kNoId, JournalServiceObserverIfc::LIST_CHANGED));
}

void ObserverNotifier::updateMissedCallCountAndCalls(unsigned count) {
  forEachObserver(&ObserverNotifier::updateSingleMissedCallCountAndCalls,
                  makeData(count, kNoId, JournalServiceObserverIfc::LIST_CHANGED));
}

void ObserverNotifier::updateMissedCallCountAndCalls(unsigned count, const std::string& id) {
  forEachObserver(&ObserverNotifier::updateSingleMissedCallCountAndCalls,
                  makeData(count, id, JournalServiceObserverIfc::DELETED_ENTRY));
}

void ObserverNotifier::updateMissedCallCountAndCalls(MissedCallItem item, unsigned count, const std::string& id,
                                                     ActionType action) {
  ObserverData data = makeData(count, id, action);
  data.missedCall = std::move(item);
  forEachObserver(&ObserverNotifier::updateSingleMissedCallCountAndCalls, data);
}

void ObserverNotifier::updateMissedCallCount(unsigned count) {
  forEachObserver(&ObserverNotifier::updateSingleMissedCallCount,
                  makeData(count, kNoId, JournalServiceObserverIfc::LIST_CHANGED));
}

void ObserverNotifier::updateDialledCalls(const DialledCallItem& item) {
  updateDialledCalls(item, kNoId, JournalServiceObserverIfc::LIST_CHANGED);
}

void ObserverNotifier::updateDialledCalls(const DialledCallItem& item, const std::string& id) {
  updateDialledCalls(item, id, JournalServiceObserverIfc::DELETED_ENTRY);
}

void ObserverNotifier::updateDialledCalls(DialledCallItem item, const std::string& id, ActionType action) {
  ObserverData data = makeData(0, id, action);
  data.dialledCall = std::move(item);
  forEachObserver(&ObserverNotifier::updateSingleDialledCalls, data);
}

void ObserverNotifier::updateReceivedCalls() {
  updateReceivedCalls(ReceivedCallItem(), kNoId, JournalServiceObserverIfc::LIST_CHANGED);
}

void ObserverNotifier::updateReceivedCalls(const std::string& id) {
  updateReceivedCalls(ReceivedCallItem(), id, JournalServiceObserverIfc::DELETED_ENTRY);
}

void ObserverNotifier::updateReceivedCalls(ReceivedCallItem item, const std::string& id, ActionType action) {
  ObserverData data = makeData(0, id, action);
  data.receivedCall = std::move(item);
  forEachObserver(&ObserverNotifier::updateSingleReceivedCalls, data);
}

void ObserverNotifier::updateForwardedCalls() {
  updateForwardedCalls(ForwardedCallItem(), kNoId, JournalServiceObserverIfc::LIST_CHANGED);
}

void ObserverNotifier::updateForwardedCalls(const std::string& id) {
  updateForwardedCalls(ForwardedCallItem(), id, JournalServiceObserverIfc::DELETED_ENTRY);
}

void ObserverNotifier::updateForwardedCalls(ForwardedCallItem item, const std::string& id, ActionType action) {
  ObserverData data = makeData(0, id, action);
  data.forwardedCall = std::move(item);
  forEachObserver(&ObserverNotifier::updateSingleForwardedCalls, data);
}

void ObserverNotifier::updateAllExceptCallbacks(unsigned count) {
  forEachObserver(&ObserverNotifier::updateSingleAllExceptCallbacks,
                  makeData(count, kNoId, JournalServiceObserverIfc::LIST_CHANGED));
}

void ObserverNotifier::updateAll(unsigned count) {
  forEachObserver(&ObserverNotifier::updateSingleAll, makeData(count, kNoId, JournalServiceObserverIfc::LIST_CHANGED));
}

void ObserverNotifier::updateCallbacks(const CallBackItem& item, const std::string& id, ActionType action) {
  ObserverData data = makeData(0, id, action);
  data.callBack = item;
  forEachObserver(&ObserverNotifier::updateSingleCallbacks, data);
}

void ObserverNotifier::updateCallbackCount() {
  forEachObserver(&ObserverNotifier::updateSingleCallbackCount,
                  makeData(0, kNoId, JournalServiceObserverIfc::LIST_CHANGED));
}

void ObserverNotifier::updateCallbacksAndCount() {
  forEachObserver(&ObserverNotifier::updateSingleCallbacksAndCount,
                  makeData(0, kNoId, JournalServiceObserverIfc::LIST_CHANGED));
}

void ObserverNotifier::updateCallbacksAndCount(const std::string& id) {
  forEachObserver(&ObserverNotifier::updateSingleCallbacksAndCount,
                  makeData(0, id, JournalServiceObserverIfc::DELETED_ENTRY));
}

// ---- What one observer receives ---------------------------------------------------------------

void ObserverNotifier::updateSingleMissedCallCount(JournalServiceObserverIfc* observer, const ObserverData& data) {
  JLOG(kEventsLog, 6, "updateSingleMissedCallCount:%d:%s:%s:%d", data.count, data.missedCall.getEntryId().c_str(),
       data.id.c_str(), data.action);
  observer->missedCallsCountUpdate(static_cast<int>(data.count));
}

void ObserverNotifier::updateSingleMissedCallCountAndCalls(JournalServiceObserverIfc* observer,
                                                           const ObserverData& data) {
  JLOG(kEventsLog, 6, "updateSingleMissedCallCountAndCalls:%d:%s:%s:%d", data.count,
       data.missedCall.getEntryId().c_str(), data.id.c_str(), data.action);
  observer->missedCallsCountUpdate(static_cast<int>(data.count));
  observer->missedCallsUpdate(data.missedCall, data.id, data.action);
}

void ObserverNotifier::updateSingleDialledCalls(JournalServiceObserverIfc* observer, const ObserverData& data) {
  JLOG(kEventsLog, 6, "updateSingleDialledCalls:%s:%s:%s:%d", data.dialledCall.getFirstname().c_str(),
       data.dialledCall.getSurname().c_str(), data.id.c_str(), data.action);
  logDialledNumbers(data.dialledCall);
  observer->dialledCallsUpdate(data.dialledCall, data.id, data.action);
}

void ObserverNotifier::updateSingleReceivedCalls(JournalServiceObserverIfc* observer, const ObserverData& data) {
  JLOG(kEventsLog, 6, "updateSingleReceivedCalls:%s:%s:%d", data.receivedCall.getEntryId().c_str(), data.id.c_str(),
       data.action);
  observer->receivedCallsUpdate(data.receivedCall, data.id, data.action);
}

void ObserverNotifier::updateSingleForwardedCalls(JournalServiceObserverIfc* observer, const ObserverData& data) {
  JLOG(kEventsLog, 6, "updateSingleForwardedCalls:%s:%s:%d", data.forwardedCall.getEntryId().c_str(), data.id.c_str(),
       data.action);
  observer->forwardedCallsUpdate(data.forwardedCall, data.id, data.action);
}

void ObserverNotifier::updateSingleCallbacks(JournalServiceObserverIfc* observer, const ObserverData& data) {
  JLOG(kEventsLog, 6, "updateSingleCallbacks:%s:%s:%d", data.callBack.getEntryId().c_str(), data.id.c_str(),
       data.action);
  observer->callBacksUpdate(data.callBack, data.id, data.action);
}

void ObserverNotifier::updateSingleCallbackCount(JournalServiceObserverIfc* observer, const ObserverData&) {
  unsigned count = getCallBackListSize();
  JLOG(kEventsLog, 6, "updateSingleCallbackCount:%d", count);
  observer->callBacksCountUpdate(static_cast<int>(count));
}

void ObserverNotifier::updateSingleCallbacksAndCount(JournalServiceObserverIfc* observer, const ObserverData& data) {
  updateSingleCallbacks(observer, data);
  updateSingleCallbackCount(observer, data);
}

void ObserverNotifier::updateSingleAllExceptCallbacks(JournalServiceObserverIfc* observer, const ObserverData& data) {
  updateSingleMissedCallCountAndCalls(observer, data);
  updateSingleDialledCalls(observer, data);
  updateSingleReceivedCalls(observer, data);
  updateSingleForwardedCalls(observer, data);
}

// The full refresh: the dialled update carries the list's first entry; the forwarded list is sent
// on SIP phones only (other phones do not show it).
void ObserverNotifier::updateSingleAll(JournalServiceObserverIfc* observer, const ObserverData& data) {
  updateSingleMissedCallCountAndCalls(observer, data);
  ObserverData dialled = makeData(0, kNoId, JournalServiceObserverIfc::LIST_CHANGED);
  std::deque<DialledCallItem> list;
  if (service) service->getDialledCallList(list);
  if (!list.empty()) dialled.dialledCall = list.front();
  updateSingleDialledCalls(observer, dialled);
  updateSingleReceivedCalls(observer, data);
  if (isSipPhone) updateSingleForwardedCalls(observer, data);
  updateSingleCallbacksAndCount(observer, data);
}

// ---- Counts -----------------------------------------------------------------------------------

unsigned ObserverNotifier::getUnviewedMissedCallsCount() {
  std::deque<MissedCallItem> list;
  if (service) service->getMissedCallList(list);
  return static_cast<unsigned>(
      std::count_if(list.begin(), list.end(), [](const MissedCallItem& item) { return !item.getViewed(); }));
}

unsigned ObserverNotifier::getCallBackListSize() {
  std::deque<CallBackItem> list;
  if (service) service->getCallBackList(list);
  return static_cast<unsigned>(list.size());
}
