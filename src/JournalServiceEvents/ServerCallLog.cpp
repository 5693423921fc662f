// Reports to the switch's call log: where the switch keeps the call log, every occurrence the
// phone drops is deleted there too, one escape request per occurrence. Each request waits for the
// switch's answer; work under a list lock notes its reports in a PendingSwitchReports instead,
// which sends them once the lock is given.
#include "JournalLog.h"
#include "JournalService.h"
#include "JournalService/PendingSwitchReports.h"
#include "framework/CstaRequests.h"

using journal::kEventsLog;

namespace {

// The delete requests of one call, or of each call of a list, sent at once.
template <class Info>
void reportNow(JournalService& journal, const Info& info) {
  PendingSwitchReports reports(journal);
  reports.deleteCall(info);
  reports.send();
}
template <class Info>
void reportNow(JournalService& journal, const std::vector<Info>& infos) {
  PendingSwitchReports reports(journal);
  reports.deleteCalls(infos);
  reports.send();
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

// Each sends at once: the caller holds no list lock.
bool JournalService::sendMissedCallLogEntryRequest(MissedCallItem::MissedCallInfo const* info) {
  reportNow(*this, *info);
  return true;
}

bool JournalService::sendReceivedCallLogEntryRequest(ReceivedCallItem::ReceivedCallInfo const* info) {
  reportNow(*this, *info);
  return true;
}

bool JournalService::sendDialledCallLogEntryRequest(DialledCallItem::DialledCallInfo const* info) {
  reportNow(*this, *info);
  return true;
}

void JournalService::sendMissedCallLogEntryRequests(MissedCallItem::InfoList const& infos) { reportNow(*this, infos); }
void JournalService::sendReceivedCallLogEntryRequests(ReceivedCallItem::InfoList const& infos) {
  reportNow(*this, infos);
}
void JournalService::sendDialledCallLogEntryRequests(DialledCallItem::InfoList const& infos) {
  reportNow(*this, infos);
}

void JournalService::sendCSTACAllLogEntryDeleteRequest(DialledCallItem::InfoList const& previous,
                                                       DialledCallItem::DialledCallInfo const& added) {
  PendingSwitchReports reports(*this);
  reportCallsPushedOut(previous, added, reports);
  reports.send();
}

// An entry keeps its ten newest occurrences: adding one to a full entry drops the oldest, which
// the switch must forget too, unless a newer occurrence of the same number stays behind.
void JournalService::reportCallsPushedOut(DialledCallItem::InfoList const& previous,
                                          DialledCallItem::DialledCallInfo const& added,
                                          PendingSwitchReports& reports) {
  if (!m_serverCallLog || previous.size() < kMaxCallInfos) return;
  auto kept = previous.begin();
  std::advance(kept, kMaxCallInfos - 1);
  for (auto dropped = kept; dropped != previous.end(); ++dropped) {
    bool stillShown = dropped->number == added.number ||
                      std::any_of(previous.begin(), kept, [&](const DialledCallItem::DialledCallInfo& info) {
                        return info.number == dropped->number;
                      });
    if (!stillShown) reports.deleteCall(*dropped);
  }
}
