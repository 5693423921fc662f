// The switch's own call log, inbound: where the switch keeps the call log it sends each entry it
// adds or deletes as a private event, and the phone's lists follow. The work runs at a nice value
// 5 higher, on a thread of its own that the CSTA event thread waits for: the event thread's own
// priority is never touched, so nothing has to be restored (which a daemon that is not root could
// not do: it may lower its priority but not raise it again).
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <thread>

#include "JournalLog.h"
#include "JournalService.h"
#include "framework/CstaEvents.h"

using journal::kEventsLog;
using Entry = CallLogEntryEvent;

namespace {

// The nice value a call-log update runs with: 5 lower in priority, at most the lowest.
int loweredNiceValue(int old) { return old < 14 ? old + 5 : 20; }

// The nice value of the calling thread (Linux keeps one per thread).
int threadNiceValue() { return getpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid))); }

// Lowers the calling thread's priority; it is a thread of its own that ends with the work.
void lowerThisThreadsPriority() {
  const int old = threadNiceValue();
  JLOG(kEventsLog, 5, "%s():priority before setpriority: %d", "handleCallLogEntryEvent", old);
  setpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)), loweredNiceValue(old));
  JLOG(kEventsLog, 5, "%s():priority after setpriority: %d", "handleCallLogEntryEvent", threadNiceValue());
}

const std::string& text(const Entry& e, Entry::_FieldIndex index) { return e.field(index).text; }
Entry::_PresentationValue shown(const Entry& e, Entry::_FieldIndex index) { return e.field(index).presentation; }

}  // namespace

void JournalService::handleCSTAPrivateEvent(CSTAPrivateEvent* event) {
  JLOG(kEventsLog, 5, "%s():{%s}", __func__, event->getPrivateData().c_str());
  if (isSipSwitch() && !m_callLogEnabled) return;
  if (event->getEventType() != CSTAPrivateEvent::kPrivateEventCallLogEntry) return;
  CallLogEntryEvent entry = event->getCallLogEntry();
  handleCallLogEntryEvent(&entry);
}

void JournalService::handleCallLogEntryEvent(CallLogEntryEvent* event) {
  JLOG(kEventsLog, 5, "%s():TargetLog: %d, SubscriberNumber: %s", __func__, event->logTarget,
       event->subscriberNumber.c_str());
  try {
    std::thread worker([this, event] {
      lowerThisThreadsPriority();
      applyCallLogEntry(*event);
    });
    worker.join();
  } catch (const std::system_error& e) {
    JLOG(kEventsLog, 2, "%s():no thread for the call log entry (%s): applied at the event thread's priority", __func__,
         e.what());
    applyCallLogEntry(*event);
  }
  JLOG(kEventsLog, 5, "%s():priority after reset priority: %d", __func__, threadNiceValue());
}

void JournalService::applyCallLogEntry(const CallLogEntryEvent& event) {
  CriticalSection guard(m_callsLock);
  char randomId[9];
  // The switch's entry has no call id of its own: any 32 bits tell entries apart. Entries come
  // one at a time (the CSTA event thread waits for this one).
  static_cast<void>(std::snprintf(randomId, sizeof randomId, "%.8X",
                                  static_cast<unsigned>(std::rand())));  // NOLINT(concurrency-mt-unsafe)
  if (event.action == Entry::ACTION_ADD)
    addServerEntry(event, newEntryId(randomId));
  else if (event.action == Entry::ACTION_DELETE)
    removeServerEntry(event);
}

// The entry's six fields go to the entry rules in their order: time text (with the number's
// presentation), name, deflecting number and name, connected number and name.
void JournalService::addServerEntry(const CallLogEntryEvent& e, const std::string& entryId) {
  const std::string& number = e.subscriberNumber;
  switch (e.logTarget) {
    case Entry::LT_DIALLED:
    case Entry::LT_DIALLED_DIVERTED:
    case Entry::LT_DIALLED_OTHER:
      newDialledCallEntry(entryId, number, number, text(e, Entry::FIELD_NAME), text(e, Entry::FIELD_CONNECTED_NUMBER),
                          text(e, Entry::FIELD_CONNECTED_NAME), -1, -1, -1, e.logTarget,
                          shown(e, Entry::FIELD_DATE_TIME), shown(e, Entry::FIELD_NAME),
                          text(e, Entry::FIELD_DATE_TIME), e.timeFormat);
      if (e.logTarget == Entry::LT_DIALLED) searchRemoveMissedCallEntry(number);
      break;
    case Entry::LT_RECEIVED:
      newReceivedCallEntry(entryId, number, text(e, Entry::FIELD_NAME), text(e, Entry::FIELD_CONNECTED_NUMBER),
                           text(e, Entry::FIELD_CONNECTED_NAME), -1, -1, -1, e.logTarget,
                           shown(e, Entry::FIELD_DATE_TIME), shown(e, Entry::FIELD_NAME),
                           shown(e, Entry::FIELD_DEFLECT_NUMBER), text(e, Entry::FIELD_DEFLECT_NUMBER),
                           shown(e, Entry::FIELD_DEFLECT_NAME), text(e, Entry::FIELD_DEFLECT_NAME),
                           text(e, Entry::FIELD_DATE_TIME), e.timeFormat);
      searchRemoveMissedCallEntry(number);
      break;
    case Entry::LT_MISSED:
    case Entry::LT_MISSED_OTHER:
      newMissedCallEntry(entryId, number, text(e, Entry::FIELD_NAME), -1, e.logTarget, shown(e, Entry::FIELD_DATE_TIME),
                         shown(e, Entry::FIELD_NAME), shown(e, Entry::FIELD_DEFLECT_NUMBER),
                         text(e, Entry::FIELD_DEFLECT_NUMBER), shown(e, Entry::FIELD_DEFLECT_NAME),
                         text(e, Entry::FIELD_DEFLECT_NAME), text(e, Entry::FIELD_DATE_TIME), e.timeFormat, false);
      break;
    default:
      break;
  }
}

void JournalService::removeServerEntry(const CallLogEntryEvent& e) {
  const std::string& time = text(e, Entry::FIELD_DATE_TIME);
  switch (e.logTarget) {
    case Entry::LT_DIALLED:
    case Entry::LT_DIALLED_DIVERTED:
    case Entry::LT_DIALLED_OTHER:
      removeDialledCallEntry(e.subscriberNumber, time);
      break;
    case Entry::LT_RECEIVED:
      removeReceivedCallEntry(e.subscriberNumber, time);
      break;
    case Entry::LT_MISSED:
    case Entry::LT_MISSED_OTHER:
      removeMissedCallEntry(e.subscriberNumber, time);
      break;
    default:
      break;
  }
}
