// The table of live calls, keyed by CSTA call identifier, and the sweep that lets go of calls (and
// conferences) whose end never came.
#include <algorithm>

#include "JournalLog.h"
#include "JournalService.h"

namespace {

using CallTable = std::map<std::string, JournalService::Call*>;

// True when a call that went into `conference` (and, for SIP, has not ended) is in `calls`.
bool holdsTrackedCall(const CallTable& calls, const JournalService::KPXConference& conference) {
  return std::any_of(conference.members.begin(), conference.members.end(),
                     [&](const JournalService::KPXConferencedCallID* m) { return calls.count(m->callId) != 0; });
}

bool holdsTrackedCall(const CallTable& calls, const JournalService::SipConference& conference) {
  return std::any_of(
      conference.members.begin(), conference.members.end(),
      [&](const JournalService::SipConference::Member& m) { return !m.cleared && calls.count(m.callId) != 0; });
}

}  // namespace

JournalService::Call::Call(directions_t const& dir, std::string const& id)
    : direction(dir), callId(id), startTime(JournalService::getCurrentTimeSec()), lastEventTime(startTime) {}

JournalService::Call* JournalService::findCallFromId(std::string callId) {
  auto it = m_calls.find(callId);
  return it == m_calls.end() ? nullptr : it->second;
}

bool JournalService::removeCall(std::string callId) {
  auto it = m_calls.find(callId);
  if (it == m_calls.end()) return false;
  delete it->second;
  m_calls.erase(it);
  return true;
}

void JournalService::removeAllCalls() {
  for (auto& entry : m_calls) {
    delete entry.second;
    JLOG(journal::kEventsLog, 5, "%s():removeAllCalls - Call removed", __func__);
  }
  m_calls.clear();
}

int JournalService::countTrackedCalls() {
  CriticalSection guard(m_callsLock);
  return getNumberOfCalls();
}

void JournalService::armCallSweep() {
  if (!m_pContext || m_callSweepTimer != -1) return;
  m_callSweepTimer = m_pContext->createTimer(this, kCallSweepIntervalMs);
  if (m_callSweepTimer == -1) JLOG(journal::kEventsLog, 2, "%s():could not create the call sweep timer", __func__);
}

// Idle time is measured on the phone's clock, which a replay moves with its trace; a clock that
// went back counts from where it stands now.
void JournalService::sweepIdleCalls() {
  CriticalSection guard(m_callsLock);
  const int hours = m_callRecordMaxIdleHours;
  const long now = getCurrentTimeSec();
  for (auto it = m_calls.begin(); it != m_calls.end();) {
    Call& call = *it->second;
    if (now < call.lastEventTime) call.lastEventTime = now;
    if (now == -1 || now - call.lastEventTime < hours * 3600L) {
      ++it;
      continue;
    }
    JLOG(journal::kEventsLog, 4, "%s():{%s} no event for %d h: call record let go (state %d, remote party %s)",
         __func__, call.callId.c_str(), hours, call.state, call.remoteParty.c_str());
    delete it->second;
    it = m_calls.erase(it);
  }
  dropConferencesWithoutCalls();
  if (!m_pContext || m_callSweepTimer == -1) return;
  if (m_calls.empty() && getNumberOfConferences() == 0 && m_sipConferences.empty()) {
    m_pContext->deleteTimer(m_callSweepTimer);
    m_callSweepTimer = -1;
  } else {
    m_pContext->restartTimer(m_callSweepTimer);
  }
}

// A conference none of whose calls is tracked any more will end no call: its record goes.
void JournalService::dropConferencesWithoutCalls() {
  for (auto& slot : m_conferences) {
    if (!slot || holdsTrackedCall(m_calls, *slot)) continue;
    JLOG(journal::kEventsLog, 4, "%s():{%s} conference without tracked calls let go", __func__,
         slot->conferenceCallId.c_str());
    slot.reset();
  }
  while (!m_conferences.empty() && !m_conferences.back()) m_conferences.pop_back();
  for (auto it = m_sipConferences.begin(); it != m_sipConferences.end();)
    it = holdsTrackedCall(m_calls, *it) ? std::next(it) : m_sipConferences.erase(it);
}
