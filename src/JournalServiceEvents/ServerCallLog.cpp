// Reports to the switch's call log: where the switch keeps the call log, every occurrence the
// phone drops is deleted there too, one escape request per occurrence.
#include "JournalLog.h"
#include "JournalService.h"
#include "framework/CstaRequests.h"

using journal::kEventsLog;

namespace {

CallLogEntryEvent::_LogTarget targetOf(const MissedCallItem::MissedCallInfo&) { return CallLogEntryEvent::LT_MISSED; }
CallLogEntryEvent::_LogTarget targetOf(const ReceivedCallItem::ReceivedCallInfo&) {
  return CallLogEntryEvent::LT_RECEIVED;
}
CallLogEntryEvent::_LogTarget targetOf(const DialledCallItem::DialledCallInfo&) {
  return CallLogEntryEvent::LT_DIALLED;
}

// The delete request of one occurrence: the switch finds it by number and time.
template <class Info>
CallLogEntryRequest deleteRequestFor(const Info& info) {
  return CallLogEntryRequest(CallLogEntryEvent::ACTION_DELETE, targetOf(info), CallLogEntryEvent::TF_LOCAL, info.number,
                             CallLogEntryEvent::PV_SHOWN, info.timeDate, CallLogEntryEvent::PV_NONE, nullptr,
                             CallLogEntryEvent::PV_NONE, nullptr, CallLogEntryEvent::PV_NONE, nullptr,
                             CallLogEntryEvent::PV_NONE, nullptr);
}

}  // namespace

bool JournalService::sendCSTAEscapeRequest(CallLogEntryRequest* entry) {
  CSTAEscapeRequest request;
  JLOG(kEventsLog, 5, "%s():send CSTAEscapeRequest", __func__);
  request.setEventType(CSTAEscapeRequest::kPrivateRequestCallLogEntry);
  if (entry) request.setCallLogEntry(*entry);
  if (m_pCSTASvc) m_pCSTASvc->sendRequest(request);
  if (request.getResponseCode() != 0) {
    JLOG(kEventsLog, 2, "sendCSTAEscapeRequest() : response code is error");
    return false;
  }
  JLOG(kEventsLog, 5, "sendCSTAEscapeRequest() : response code is ok");
  return true;
}

bool JournalService::sendMissedCallLogEntryRequest(MissedCallItem::MissedCallInfo const* info) {
  CallLogEntryRequest entry = deleteRequestFor(*info);
  sendCSTAEscapeRequest(&entry);
  return true;
}

bool JournalService::sendReceivedCallLogEntryRequest(ReceivedCallItem::ReceivedCallInfo const* info) {
  CallLogEntryRequest entry = deleteRequestFor(*info);
  sendCSTAEscapeRequest(&entry);
  return true;
}

bool JournalService::sendDialledCallLogEntryRequest(DialledCallItem::DialledCallInfo const* info) {
  CallLogEntryRequest entry = deleteRequestFor(*info);
  sendCSTAEscapeRequest(&entry);
  return true;
}

template <class Info>
void JournalService::sendCallLogEntryRequests(const std::list<Info>& infos) {
  for (const Info& info : infos) {
    CallLogEntryRequest entry = deleteRequestFor(info);
    sendCSTAEscapeRequest(&entry);
  }
}

void JournalService::sendMissedCallLogEntryRequests(MissedCallItem::InfoList const& infos) {
  sendCallLogEntryRequests(infos);
}
void JournalService::sendReceivedCallLogEntryRequests(ReceivedCallItem::InfoList const& infos) {
  sendCallLogEntryRequests(infos);
}
void JournalService::sendDialledCallLogEntryRequests(DialledCallItem::InfoList const& infos) {
  sendCallLogEntryRequests(infos);
}

// An entry keeps its ten newest occurrences: adding one to a full entry drops the oldest, which
// the switch must forget too, unless a newer occurrence of the same number stays behind.
void JournalService::sendCSTACAllLogEntryDeleteRequest(DialledCallItem::InfoList const& previous,
                                                       DialledCallItem::DialledCallInfo const& added) {
  if (!m_serverCallLog || previous.size() < kMaxCallInfos) return;
  auto kept = previous.begin();
  std::advance(kept, kMaxCallInfos - 1);
  for (auto dropped = kept; dropped != previous.end(); ++dropped) {
    bool stillShown = dropped->number == added.number ||
                      std::any_of(previous.begin(), kept, [&](const DialledCallItem::DialledCallInfo& info) {
                        return info.number == dropped->number;
                      });
    if (!stillShown) sendDialledCallLogEntryRequest(&*dropped);
  }
}
