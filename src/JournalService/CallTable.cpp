// The table of live calls, keyed by CSTA call identifier.
#include "JournalLog.h"
#include "JournalService.h"

JournalService::Call::Call(directions_t const& dir, std::string const& id)
    : direction(dir), callId(id), startTime(JournalService::getCurrentTimeSec()) {}

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
