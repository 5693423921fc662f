// Conferences: calls joined into a conference go on as one conference call, whose clearing stands
// for the end of several earlier calls. The journal remembers which calls went into each
// conference so that each still ends in its own entry, however many conferences there are at
// once: a KPX switch's conferences with their members in slots, a SIP switch's in records of the
// calls it joined. A record goes when the last of its calls has ended.
#include <algorithm>
#include <iterator>

#include "JournalLog.h"
#include "JournalService.h"
#include "framework/CstaEvents.h"

using journal::kEventsLog;
using Call = JournalService::Call;

namespace {

bool isNoCall(const std::string& callId) { return callId.empty() || callId == "0"; }

}  // namespace

JournalService::KPXConference::~KPXConference() {
  for (KPXConferencedCallID* member : members) delete member;
}

int JournalService::getNumberOfConferences() const {
  int count = 0;
  for (const auto& slot : m_conferences) count += slot != nullptr;
  return count;
}

bool JournalService::getNewConferenceIDIndex(int& index) {
  for (index = 0; index < static_cast<int>(m_conferences.size()); ++index) {
    if (!m_conferences[index]) return true;
  }
  m_conferences.emplace_back();
  return true;
}

bool JournalService::searchConferenceIDIndex(std::string const& conferenceCallId, int& index) const {
  for (index = 0; index < static_cast<int>(m_conferences.size()); ++index) {
    if (m_conferences[index] && m_conferences[index]->conferenceCallId == conferenceCallId) return true;
  }
  index = -1;
  return false;
}

bool JournalService::searchDeviceIDInConference(int index, std::string const& deviceId,
                                                std::list<KPXConferencedCallID*>::iterator& it) {
  auto& members = m_conferences[index]->members;
  it = std::find_if(members.begin(), members.end(),
                    [&](const KPXConferencedCallID* member) { return member->deviceId == deviceId; });
  return it != members.end();
}

void JournalService::removeAllConferences() {
  for (auto& slot : m_conferences) {
    if (!slot) continue;
    JLOG(kEventsLog, 5, "%s():Conference removed", __func__);
    slot.reset();
  }
  m_conferences.clear();
}

void JournalService::handleCSTAConferencedEvent(CSTAConferencedEvent* event) {
  JLOG(kEventsLog, 5, "%s():{Calls ID %s and %s become %s}", __func__, event->getPrimaryoldcallCallID().c_str(),
       event->getSecondaryoldcallCallID().c_str(), event->getConferenceconnectionsNewconnectionCallID(1).c_str());
  if ((isSipSwitch() && !m_callLogEnabled) || !m_localCallLog) return;
  CriticalSection guard(m_callsLock);
  if (isSipSwitch())
    trackSipConference(*event);
  else
    trackKpxConference(*event);
}

// A SIP switch names the conference call in the event's first new connection. A conference that
// grows keeps its record and takes in the calls that joined it.
void JournalService::trackSipConference(const CSTAConferencedEvent& event) {
  const std::string conferenceId = event.getConferenceconnectionsNewconnectionCallID(1);
  auto record = std::find_if(m_sipConferences.begin(), m_sipConferences.end(),
                             [&](const SipConference& c) { return c.newCallId == conferenceId; });
  if (record == m_sipConferences.end()) {
    m_sipConferences.push_back(SipConference{conferenceId, {}});
    record = std::prev(m_sipConferences.end());
  }
  for (const std::string& joined : {event.getPrimaryoldcallCallID(), event.getSecondaryoldcallCallID()}) {
    const bool known = std::any_of(record->members.begin(), record->members.end(),
                                   [&](const SipConference::Member& m) { return m.callId == joined; });
    if (!isNoCall(joined) && joined != conferenceId && !known) record->members.push_back({joined, false});
  }
  if (record->members.empty()) m_sipConferences.erase(record);
}

bool JournalService::isConferenceMember(int index, const std::string& callId) const {
  const auto& members = m_conferences[index]->members;
  return std::any_of(members.begin(), members.end(),
                     [&](const KPXConferencedCallID* member) { return member->callId == callId; });
}

void JournalService::trackKpxConference(const CSTAConferencedEvent& event) {
  const std::string conferenceId = event.getConferenceCallID();
  const std::string& primary = event.getPrimaryoldcallCallID();
  const std::string& secondary = event.getSecondaryoldcallCallID();
  std::string primaryDevice, secondaryDevice, name;
  event.getPrimaryoldcallDeviceID(primaryDevice, name);
  event.getSecondaryoldcallDeviceID(secondaryDevice, name);
  JLOG(kEventsLog, 4,
       "confCallID = %s, primaryOldCallID = %s, primaryOldDeviceIDNumber = %s, secondaryOldCallID = %s, "
       "secondaryOldDeviceIDNumber = %s",
       conferenceId.c_str(), primary.c_str(), primaryDevice.c_str(), secondary.c_str(), secondaryDevice.c_str());
  int index = -1;
  if (!searchConferenceIDIndex(conferenceId, index)) {
    if (isNoCall(primary)) {
      JLOG(kEventsLog, 5, "%s():new conference but primaryOldCallID is empty", "handleCSTAConferencedEvent");
      return;
    }
    getNewConferenceIDIndex(index);
    auto conference = std::make_unique<KPXConference>();
    conference->conferenceCallId = conferenceId;
    conference->members.push_back(new KPXConferencedCallID{primary, primaryDevice});
    if (!isNoCall(secondary) && secondary != conferenceId)
      conference->members.push_back(new KPXConferencedCallID{secondary, secondaryDevice});
    m_conferences[index] = std::move(conference);
    return;
  }
  if (isNoCall(primary)) {
    JLOG(kEventsLog, 4, "conference already exists and primaryOldCallID is empty");
    return;
  }
  // A growing conference takes in every call that joined it and is not in it yet: each of them
  // ends when its leg, or the conference, ends.
  for (const auto& [joined, device] : {std::pair{primary, primaryDevice}, std::pair{secondary, secondaryDevice}}) {
    if (isNoCall(joined) || joined == conferenceId) continue;
    if (isConferenceMember(index, joined)) {
      JLOG(kEventsLog, 3, "{%s} already entered in conference", joined.c_str());
      continue;
    }
    m_conferences[index]->members.push_back(new KPXConferencedCallID{joined, device});
  }
}

void JournalService::endConferencedCall(const std::string& callId) {
  onCallEvent(findCallFromId(callId), Call::Cleared, Call::UnknownDirection, callId);
}

// A KPX clearing of a conference call: the member whose device left ends; without such a member
// the conference itself ended, and all its calls with it. False when no conference has this id.
bool JournalService::clearKpxConference(const std::string& callId, const std::string& deviceId) {
  int index = -1;
  if (!searchConferenceIDIndex(callId, index)) return false;
  auto& members = m_conferences[index]->members;
  std::list<KPXConferencedCallID*>::iterator member;
  if (searchDeviceIDInConference(index, deviceId, member)) {
    const std::string memberCallId = (*member)->callId;
    delete *member;
    members.erase(member);
    endConferencedCall(memberCallId);
  } else {
    while (!members.empty()) {
      const std::string memberCallId = members.front()->callId;
      delete members.front();
      members.pop_front();
      endConferencedCall(memberCallId);
    }
  }
  if (members.empty()) m_conferences[index].reset();
  while (!m_conferences.empty() && !m_conferences.back()) m_conferences.pop_back();
  return true;
}

// A SIP clearing of the conference call: the leg "D<old call id>" names which joined call ended;
// a leg of none ends the first not yet ended. False when the clearing is no conference's.
bool JournalService::clearSipConference(const std::string& callId, const std::string& deviceId) {
  auto record = std::find_if(m_sipConferences.begin(), m_sipConferences.end(),
                             [&](const SipConference& c) { return c.newCallId == callId; });
  if (record == m_sipConferences.end()) return false;
  auto& members = record->members;
  auto leaving = std::find_if(members.begin(), members.end(),
                              [&](const SipConference::Member& m) { return !m.cleared && deviceId == "D" + m.callId; });
  if (leaving == members.end())
    leaving = std::find_if(members.begin(), members.end(), [](const SipConference::Member& m) { return !m.cleared; });
  const std::string ended = leaving == members.end() ? std::string() : leaving->callId;
  if (leaving != members.end()) leaving->cleared = true;
  if (std::all_of(members.begin(), members.end(), [](const SipConference::Member& m) { return m.cleared; }))
    m_sipConferences.erase(record);
  if (!ended.empty()) endConferencedCall(ended);
  return true;
}
