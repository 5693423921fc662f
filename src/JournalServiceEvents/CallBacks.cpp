// Callbacks: the switch reports the callback requests of the phone's line (call me back when the
// party is free or answers). The callback list follows them: one entry per number, newest first,
// kept in memory only.
#include <cstdio>

#include "JournalService/ListAccess.h"
#include "framework/CstaEvents.h"

using journal::kEventsLog;

namespace {

CallBackItem::CallBackType mappedType(int type) {
  switch (type) {
    case CSTACallBackEvent::CB_TYPE_NO_REPLY:
      return CallBackItem::CBT_ON_NO_REPLY;
    case CSTACallBackEvent::CB_TYPE_BUSY:
      return CallBackItem::CBT_ON_BUSY;
    default:
      return CallBackItem::CBT_NONE;
  }
}

CallBackItem::CallBackState mappedState(int state) {
  switch (state) {
    case CSTACallBackEvent::CB_STATE_READY:
      return CallBackItem::CBS_READY;
    case CSTACallBackEvent::CB_STATE_SET:
    case CSTACallBackEvent::CB_STATE_WAITING:
      return CallBackItem::CBS_PENDING;
    default:
      return CallBackItem::CBS_NONE;
  }
}

}  // namespace

// The local date and time of now, or nothing without a clock.
std::string JournalService::callBackTimeDate() {
  if (!m_pClockSvc) return {};
  int day = 0, month = 0, year = 0, hour = 0, minute = 0, second = 0;
  m_pClockSvc->getCurrentDate(day, month, year);
  m_pClockSvc->getCurrentTime(hour, minute, second);
  char text[20];
  static_cast<void>(
      std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", year, month, day, hour, minute, second));
  return text;
}

// A callback is named by its number. The switch chooses numbers, so one may read like the id of an
// entry of the call lists: it then gets the next id that is free, as ids are unique over all lists.
std::string JournalService::holdCallBackId(const std::string& number) {
  if (m_entryIds.hold(number)) return number;
  m_entryIds.release(number);
  const std::string id = m_entryIds.holdFree(number);
  JLOG(kEventsLog, 4, "%s():the callback of %s is %s: its number is the id of another entry", __func__, number.c_str(),
       id.c_str());
  return id;
}

// The id of the callback of `number`; empty when there is none.
std::string JournalService::callBackIdOf(const std::string& number) {
  CriticalSection guard(m_callBackLock);
  for (const CallBackItem& item : m_callBackList)
    if (item.getNumber() == number) return item.getEntryId();
  return std::string();
}

void JournalService::handleCSTACallBackEvent(CSTACallBackEvent* event) {
  if (!event) return;
  std::string number, name;
  event->getSubjectDeviceID(number, name);
  const int state = event->getCallBackState();
  JLOG(kEventsLog, 5, "%s():number: %s, type: %d, state: %d", __func__, number.c_str(), event->getCallBackType(),
       state);
  if (state == CSTACallBackEvent::CB_STATE_CANCELLED) {  // gone: one callback, or all of them
    if (number.empty())
      deleteCallBackList();
    else
      deleteCallBack(callBackIdOf(number));
    return;
  }
  if (number.empty()) return;
  const CallBackItem::CallBackType type = mappedType(event->getCallBackType());
  const CallBackItem::CallBackState mapped = mappedState(state);
  const std::string timeDate = callBackTimeDate();
  Contact contact = lookUpParty(number, std::string());
  if (contact.getSurname().empty()) contact.setSurname(name);

  auto action = JournalServiceObserverIfc::NEW_ENTRY;
  size_t sizeBefore = 0, sizeAfter = 0;
  {
    CriticalSection guard(m_callBackLock);
    auto& list = m_callBackList;
    sizeBefore = list.size();
    auto found = std::find_if(list.begin(), list.end(),
                              [&](const CallBackItem& item) { return contactMatchesCallBack(item, contact); });
    if (found == list.end()) {
      list.push_front(CallBackItem(holdCallBackId(number), contact.getSurname(), contact.getFirstname(), number,
                                   contact.getNumberType(), timeDate, type, mapped, event->getDeviceID()));
    } else {
      // An update keeps the entry's names, and its type or state where the event brings none.
      CallBackItem updated = std::move(*found);
      list.erase(found);
      updated.setNumber(number);
      updated.setNumberType(contact.getNumberType());
      updated.setTimeDate(timeDate);
      if (type != CallBackItem::CBT_NONE) updated.setCallBackType(type);
      if (mapped != CallBackItem::CBS_NONE) updated.setCallBackState(mapped);
      updated.setDeviceId(event->getDeviceID());
      list.push_front(std::move(updated));
      action = JournalServiceObserverIfc::MERGED_ENTRY;
    }
    sizeAfter = list.size();
  }
  m_pObserverNotifier->updateCallbacks(getFrontCallbackCall(), number, action);
  if (sizeAfter != sizeBefore) m_pObserverNotifier->updateCallbackCount();
}
