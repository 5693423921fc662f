// Conferences: calls joined into a conference go on as one conference call, whose clearing stands
// for the end of several earlier calls. The journal remembers which calls went into each
// conference so that each still ends in its own entry. A KPX switch keeps up to two conferences
// with their members; a SIP switch one pending record of the two calls it joined.
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

bool JournalService::getNewConferenceIDIndex(int& index) const {
  for (index = 0; index < kMaxConferences; ++index) {
    if (!m_conferences[index]) return true;
  }
  return false;
}

bool JournalService::searchConferenceIDIndex(std::string const& conferenceCallId, int& index) const {
  for (index = 0; index < kMaxConferences; ++index) {
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
}

void JournalService::handleCSTAConferencedEvent(CSTAConferencedEvent* event) {
  JLOG(kEventsLog, 5, "%s():{Calls ID %s and %s become %s}", __func__, event->getPrimaryoldcallCallID().c_str(),
       event->getSecondaryoldcallCallID().c_str(), event->getConferenceconnectionsNewconnectionCallID(1).c_str());
  if ((isSipSwitch() && !m_callLogEnabled) || !m_localCallLog) return;
  if (isSipSwitch()) {
    // A pending record of an earlier conference is replaced (and freed).
    m_sipConference = std::make_unique<SipConference>(
        SipConference{event->getConferenceconnectionsNewconnectionCallID(1), event->getPrimaryoldcallCallID(),
                      event->getSecondaryoldcallCallID(), false, false});
    return;
  }
  CriticalSection guard(m_callsLock);
  trackKpxConference(*event);
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
    if (!getNewConferenceIDIndex(index)) {
      JLOG(kEventsLog, 5, "%s():new conference not possible - max. number already reached",
           "handleCSTAConferencedEvent");
    } else if (isNoCall(primary)) {
      JLOG(kEventsLog, 5, "%s():new conference but primaryOldCallID is empty", "handleCSTAConferencedEvent");
    } else {
      auto conference = std::make_unique<KPXConference>();
      conference->conferenceCallId = conferenceId;
      conference->members.push_back(new KPXConferencedCallID{primary, primaryDevice});
      if (!isNoCall(secondary)) conference->members.push_back(new KPXConferencedCallID{secondary, secondaryDevice});
      m_conferences[index] = std::move(conference);
    }
    return;
  }
  if (isNoCall(primary)) {
    JLOG(kEventsLog, 4, "conference already exists and primaryOldCallID is empty");
    return;
  }
  std::list<KPXConferencedCallID*>::iterator member;
  if (searchDeviceIDInConference(index, primaryDevice, member))
    JLOG(kEventsLog, 3, "primaryOldDeviceIDNumber already entered in conference");
  else
    m_conferences[index]->members.push_back(new KPXConferencedCallID{primary, primaryDevice});
  // A growing conference takes in only the call that joined it.
  if (!isNoCall(secondary)) JLOG(kEventsLog, 3, "existing conference gets expanded but secondaryOldCallID exists");
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
  return true;
}

// A SIP clearing of the conference call: the leg "D<old call id>" names which joined call ended;
// a leg of neither ends the first not yet ended. False when the clearing is not the conference's.
bool JournalService::clearSipConference(const std::string& callId, const std::string& deviceId) {
  if (!m_sipConference || m_sipConference->newCallId != callId) return false;
  SipConference& record = *m_sipConference;
  const bool primaryLeg = deviceId == "D" + record.primaryOldCallId && !record.primaryCleared;
  const bool secondaryLeg = !primaryLeg && deviceId == "D" + record.secondaryOldCallId && !record.secondaryCleared;
  if (primaryLeg || (!secondaryLeg && !record.primaryCleared)) {
    record.primaryCleared = true;
    endConferencedCall(record.primaryOldCallId);
  } else if (!record.secondaryCleared) {
    record.secondaryCleared = true;
    endConferencedCall(record.secondaryOldCallId);
  }
  if (record.primaryCleared && record.secondaryCleared) m_sipConference.reset();
  return true;
}
