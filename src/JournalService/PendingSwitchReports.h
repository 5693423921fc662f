// Reports to the switch's call log, worked out under a list lock and sent once the lock is given.
//
// Where the switch keeps the call log, each call the phone drops from its missed, received or
// dialled list is deleted there too: one escape request per call. Each request waits for the
// switch's answer, up to the link's time limit (5 s), so none is sent while a list lock is held:
// a slow switch would stall every client of that list, and a whole list takes up to 10,000 of
// them. Work under a list lock notes here what the switch is to delete; the requests go out once
// no list lock is held, in the order they were noted.
//
// Use: the function that takes the outermost list lock declares one before that lock's
// CriticalSection and hands it by reference to the work under the lock (nested list locks
// included). send() sends what was noted; the destructor sends what is left, after the guards
// declared later have given their locks. Belongs to the thread that declared it. Private to the
// module.
#pragma once

#include <list>
#include <vector>

#include "JournalService.h"
#include "framework/CstaRequests.h"

class PendingSwitchReports {
 public:
  explicit PendingSwitchReports(JournalService& journal) : m_journal(journal) {}
  ~PendingSwitchReports() { send(); }
  PendingSwitchReports(const PendingSwitchReports&) = delete;
  PendingSwitchReports& operator=(const PendingSwitchReports&) = delete;

  // The switch is to delete the call `info` (an occurrence of a missed, received or dialled
  // entry), or each call of `infos`, from its call log.
  template <class Info>
  void deleteCall(const Info& info) {
    m_requests.push_back(deleteRequestFor(info));
  }
  template <class Info>
  void deleteCalls(const std::vector<Info>& infos) {
    for (const Info& info : infos) deleteCall(info);
  }

  // Sends what was noted, in order, one request at a time, and forgets it. The caller holds no
  // list lock.
  void send() {
    std::vector<CallLogEntryRequest> requests;
    requests.swap(m_requests);
    for (CallLogEntryRequest& request : requests) m_journal.sendCSTAEscapeRequest(&request);
  }

 private:
  static CallLogEntryEvent::_LogTarget targetOf(const MissedCallItem::MissedCallInfo&) {
    return CallLogEntryEvent::LT_MISSED;
  }
  static CallLogEntryEvent::_LogTarget targetOf(const ReceivedCallItem::ReceivedCallInfo&) {
    return CallLogEntryEvent::LT_RECEIVED;
  }
  static CallLogEntryEvent::_LogTarget targetOf(const DialledCallItem::DialledCallInfo&) {
    return CallLogEntryEvent::LT_DIALLED;
  }

  // The delete request of one call: the switch finds it by number and time.
  template <class Info>
  static CallLogEntryRequest deleteRequestFor(const Info& info) {
    return CallLogEntryRequest(CallLogEntryEvent::ACTION_DELETE, targetOf(info), CallLogEntryEvent::TF_LOCAL,
                               info.number, CallLogEntryEvent::PV_SHOWN, info.timeDate, CallLogEntryEvent::PV_NONE,
                               nullptr, CallLogEntryEvent::PV_NONE, nullptr, CallLogEntryEvent::PV_NONE, nullptr,
                               CallLogEntryEvent::PV_NONE, nullptr);
  }

  JournalService& m_journal;
  std::vector<CallLogEntryRequest> m_requests;  // in the order noted
};
