// Call tracking: each call event of the phone's own line is merged into the call's record, moves
// the call through its states, and a call that ends is filed as a missed, received, dialled or
// forwarded entry (or as nothing). The event handlers call in holding m_callsLock.
#include "JournalLog.h"
#include "JournalService.h"

using journal::kEventsLog;
using Call = JournalService::Call;

namespace {

constexpr auto kNone = CallLogEntryEvent::PV_NONE;
constexpr auto kShown = CallLogEntryEvent::PV_SHOWN;
constexpr auto kLocalTime = CallLogEntryEvent::TF_LOCAL;

char yesNo(bool b) { return b ? 'Y' : 'N'; }

// Unknown directions take the other side's: an event without one keeps the record's, and a
// record without one learns it from the event.
void reconcileDirection(Call& call, Call::directions_t& direction) {
  if (direction == Call::UnknownDirection)
    direction = call.direction;
  else if (call.direction == Call::UnknownDirection)
    call.direction = direction;
}

void fillIfEmpty(std::string& field, const std::string& value) {
  if (field.empty()) field = value;
}

// The party and its name, the name only while the record has none for that same party.
void fillParty(std::string& party, std::string& name, const std::string& eventParty, const std::string& eventName) {
  fillIfEmpty(party, eventParty);
  if (party == eventParty && name.empty()) name = eventName;
}

void setIfGiven(std::string& field, const std::string& value) {
  if (!value.empty()) field = value;
}

}  // namespace

// Finds or makes the record of `callId`; null when the event is to be dropped.
Call* JournalService::trackCall(Call* call, Call::states_t state, Call::directions_t direction,
                                const std::string& callId) {
  if (call) return call;
  if (state == Call::Cleared) return nullptr;  // the end of a call never tracked
  if (callId.empty()) return nullptr;
  call = new Call(direction, callId);
  Call*& slot = m_calls[callId];
  delete slot;  // a record the event passed over (a failure without a call of its own) is replaced
  slot = call;
  armCallSweep();
  return call;
}

bool JournalService::onCallEvent(Call* pCall, Call::states_t state, Call::directions_t direction, std::string callId,
                                 std::string remoteParty, std::string remotePartyName, std::string divertedParty,
                                 std::string divertedPartyName, bool treatAsIncoming) {
  CallParties parties{remoteParty, remotePartyName, divertedParty, divertedPartyName};
  if (isSipSwitch()) return onSipCallEvent(pCall, state, direction, callId, parties, treatAsIncoming);
  return onKpxCallEvent(pCall, state, direction, callId, parties);
}

bool JournalService::onKpxCallEvent(Call* pCall, Call::states_t state, Call::directions_t direction,
                                    const std::string& callId, const CallParties& event) {
  JLOG(kEventsLog, 5, "%s():onCallEvent", __func__);
  if (!pCall && state != Call::Cleared && callId.empty()) {
    JLOG(kEventsLog, 5, "%s():Call identifier is empty", __func__);
    return false;
  }
  pCall = trackCall(pCall, state, direction, callId);
  if (!pCall) return false;
  pCall->lastEventTime = getCurrentTimeSec();
  reconcileDirection(*pCall, direction);
  Call& call = *pCall;
  if (!event.diverted.empty()) {
    // The record's remote party follows the diversion target; the diverted fields keep the party
    // that the event reported as remote.
    if (call.remoteParty.empty() || call.remoteParty != event.diverted) {
      call.remoteParty = event.diverted;
      call.remotePartyName = event.divertedName;
    }
    call.divertedParty = event.remote;
    call.divertedPartyName = event.remoteName;
  } else {
    fillParty(call.remoteParty, call.remotePartyName, event.remote, event.remoteName);
    if (state == Call::Established && call.state != Call::Established) {
      call.divertedParty = event.remote.empty() ? call.remoteParty : event.remote;
      setIfGiven(call.divertedPartyName, event.remoteName);
    }
  }
  return setCallState(pCall, state, direction);
}

bool JournalService::onSipCallEvent(Call* pCall, Call::states_t state, Call::directions_t direction,
                                    const std::string& callId, const CallParties& event, bool treatAsIncoming) {
  JLOG(kEventsLog, 5,
       "%s():callid: '%s', state: %d, remoteparty: '%s', remotepartyname: '%s', divertedparty: '%s', "
       "divertedpartyname: '%s'",
       __func__, callId.c_str(), state, event.remote.c_str(), event.remoteName.c_str(), event.diverted.c_str(),
       event.divertedName.c_str());
  if (pCall) {
    JLOG(kEventsLog, 5,
         "%s():current pCall %p contents: dialled:'%s'remoteparty: '%s', remotepartyname: '%s', divertedparty: "
         "'%s', divertedpartyname: '%s'",
         __func__, static_cast<void*>(pCall), pCall->dialled.c_str(), pCall->remoteParty.c_str(),
         pCall->remotePartyName.c_str(), pCall->divertedParty.c_str(), pCall->divertedPartyName.c_str());
  } else if (state != Call::Cleared && callId.empty()) {
    JLOG(kEventsLog, 5,
         "%s():state: %i, direction: %i, call id: %s, remote party: %s, remote name: %s, diverted party: %s, "
         "diverted name: %s",
         __func__, state, direction, callId.c_str(), event.remote.c_str(), event.remoteName.c_str(),
         event.diverted.c_str(), event.divertedName.c_str());
    return false;
  }
  pCall = trackCall(pCall, state, direction, callId);
  if (!pCall) return false;
  pCall->lastEventTime = getCurrentTimeSec();
  Call& call = *pCall;
  if (treatAsIncoming) call.treatAsIncoming = true;  // never cleared again
  reconcileDirection(call, direction);
  if (event.diverted.empty())
    mergeSipParties(call, state, event);
  else
    mergeSipDiversion(call, state, direction, event);
  return setCallState(pCall, state, direction);
}

// An event that names no diversion: the first digits dialled, or the remote party.
void JournalService::mergeSipParties(Call& call, Call::states_t state, const CallParties& event) {
  if (state == Call::Originated && call.dialled.empty()) {
    call.dialled = event.remote;
    return;
  }
  fillParty(call.firstParty, call.firstPartyName, event.remote, event.remoteName);
  fillParty(call.remoteParty, call.remotePartyName, event.remote, event.remoteName);
  if (state == Call::Established && call.divertedParty.empty()) {
    call.divertedParty = event.remote.empty() ? call.remoteParty : event.remote;
    setIfGiven(call.divertedPartyName, event.remoteName);
  } else if (state == Call::Diverted && call.direction == Call::Outgoing) {
    fillIfEmpty(call.firstParty, event.remote);
    if (call.firstParty == event.remote) call.firstPartyName = event.remoteName;
  }
}

// An event that names where the call went (or came from, for a redirected incoming call).
void JournalService::mergeSipDiversion(Call& call, Call::states_t state, Call::directions_t direction,
                                       const CallParties& event) {
  if (state == Call::Diverted || state == Call::Failed) {
    if (call.remoteParty.empty() || call.remoteParty != event.diverted) {
      call.remoteParty = event.remote;
      setIfGiven(call.remotePartyName, event.remoteName);
    }
  } else if (call.remoteParty.empty()) {
    call.remoteParty = event.remote;
    setIfGiven(call.remotePartyName, event.remoteName);
  }
  call.divertedParty = event.diverted;
  setIfGiven(call.divertedPartyName, event.divertedName);
  if (state != Call::Diverted && state != Call::Failed && direction == Call::Incoming) {
    call.firstParty = event.diverted;
    setIfGiven(call.firstPartyName, event.divertedName);
  }
}

bool JournalService::setCallState(Call* pCall, Call::states_t state, Call::directions_t direction) {
  if (!pCall) {
    JLOG(kEventsLog, 5, "%s():pCall is NULL", __func__);
    return false;
  }
  Call& call = *pCall;
  if (call.direction != direction) {
    JLOG(kEventsLog, 3, "{%s} Ambiguous direction", call.callId.c_str());
    removeCall(call.callId);
    return false;
  }
  JLOG(kEventsLog, 5, "%s():{%s} State: %d, Old State: %d, Direction: %d, TreatAsIncoming: %c", __func__,
       call.callId.c_str(), state, call.state, direction, yesNo(call.treatAsIncoming));
  const Call::states_t old = call.state;
  switch (state) {
    case Call::Originated:
    case Call::Offered:
    case Call::Delivered:
    case Call::MarkedMissed:
      if (state <= old) {
        JLOG(kEventsLog, 5, "%s():Wrong call transition", __func__);
        return false;
      }
      if (old != Call::Diverted) call.state = state;
      return true;
    case Call::Established:
      return establishCall(call, direction);
    case Call::Diverted:
      if (direction != Call::Incoming && !call.treatAsIncoming)
        return isUsingLumaUX() ? createCallEntry(pCall, state) : true;
      JLOG(kEventsLog, 5, "%s():Forwarded - will create call entry now", __func__);
      return createCallEntry(pCall, state);
    case Call::Cleared:
      JLOG(kEventsLog, 5, "%s():Cleared - will create call entry now", __func__);
      if (call.connectTime != -1) call.endTime = getCurrentTimeSec();
      return createCallEntry(pCall, old);  // the entry follows the state the call reached
    case Call::Failed:
      JLOG(kEventsLog, 5, "%s():Failed - will create call entry now", __func__);
      return createCallEntry(pCall, state);
    default:
      JLOG(kEventsLog, 5, "%s():Unknown Call State", __func__);
      return false;
  }
}

bool JournalService::establishCall(Call& call, Call::directions_t direction) {
  const Call::states_t old = call.state;
  // Calling a party back clears the party's missed entry, if the user wants that.
  if (m_deleteMissedWhenCalled && direction == Call::Outgoing && (old == Call::Originated || old == Call::Delivered))
    findAndDeleteMissedEntryWhenCalled(&call);
  if (old <= Call::Delivered || call.treatAsIncoming) {  // NoState .. Delivered
    call.connectTime = getCurrentTimeSec();
    if (old != Call::Diverted) call.state = Call::Established;
    return true;
  }
  if (old == Call::Established) return true;
  JLOG(kEventsLog, 5, "%s():Unexpected JS Call State(%d)", __func__, old);
  JLOG(kEventsLog, 5, "%s():Unknown Call State", __func__);
  return false;
}

bool JournalService::createCallEntry(Call const* pCall, Call::states_t state) {
  if (isSipSwitch()) return createSipCallEntry(*pCall, state);
  return createKpxCallEntry(*pCall, state);
}

// Missed, received, dialled and forwarded entries from a finished call: each fills in what the
// flavour's table gives and leaves the rest to the entry rules.
// A SIP switch says where the call was diverted from and whether another device took it.
void JournalService::fileMissedCall(const Call& call, bool sip) {
  const std::string none;
  newMissedCallEntry(newEntryId(call.callId), call.remoteParty, call.remotePartyName, call.startTime,
                     CallLogEntryEvent::LT_MISSED, kNone, kNone, kNone, sip ? call.divertedParty : none, kNone,
                     sip ? call.divertedPartyName : none, none, kLocalTime, sip && call.completedElsewhere);
}

void JournalService::fileReceivedCall(const Call& call) {
  newReceivedCallEntry(newEntryId(call.callId), call.remoteParty, call.remotePartyName, call.divertedParty,
                       call.divertedPartyName, call.startTime, call.connectTime, call.endTime,
                       CallLogEntryEvent::LT_RECEIVED, kShown, kShown, kShown, std::string(), kShown, std::string(),
                       std::string(), kLocalTime);
}

void JournalService::fileForwardedCall(const Call& call) {
  newForwardedCallEntry(newEntryId(call.callId), call.remoteParty, call.remotePartyName, call.divertedParty,
                        call.divertedPartyName, call.startTime, call.connectTime, call.endTime);
}

bool JournalService::fileUnknownState(const Call& call) {
  JLOG(kEventsLog, 5, "%s():{%s} Unknown Call State: %d, Remote Party: %s", __func__, call.callId.c_str(), call.state,
       call.remoteParty.c_str());
  removeCall(call.callId);
  return false;
}

bool JournalService::createKpxCallEntry(const Call& call, Call::states_t state) {
  JLOG(kEventsLog, 5, "%s():createCallEntry", __func__);
  if (!fileKpxCall(call, state)) return fileUnknownState(call);
  removeCall(call.callId);
  return true;
}

// Files a finished call of a KPX switch by its direction and the state it reached; false for a
// call that belongs to no list.
bool JournalService::fileKpxCall(const Call& call, Call::states_t state) {
  if (call.direction == Call::Outgoing) {
    if (state == Call::NoState) return false;
    newDialledCallEntry(newEntryId(call.callId), std::string(), call.remoteParty, call.remotePartyName,
                        call.divertedParty, call.divertedPartyName, call.startTime, call.connectTime, call.endTime,
                        CallLogEntryEvent::LT_DIALLED, kShown, kShown, std::string(), kLocalTime);
    return true;
  }
  if (call.direction != Call::Incoming) return false;
  switch (state) {
    case Call::Delivered:
      if (m_mixedCallLog) {
        JLOG(kEventsLog, 5, "%s():{%s} Call not marked as missed - no entry in missed call list", "createCallEntry",
             call.callId.c_str());
      } else {
        fileMissedCall(call, false);
      }
      return true;
    case Call::Established:
      if (call.remoteParty == communicationsServiceTexts::noNumberProvided) {
        JLOG(kEventsLog, 5, "%s():{%s} No Number Provided - no entry in received call list", "createCallEntry",
             call.callId.c_str());
      } else {
        fileReceivedCall(call);
      }
      return true;
    case Call::Diverted:
      fileForwardedCall(call);
      return true;
    case Call::Failed:
    case Call::MarkedMissed:
      fileMissedCall(call, false);
      return true;
    default:
      return false;
  }
}

bool JournalService::createSipCallEntry(const Call& call, Call::states_t state) {
  JLOG(kEventsLog, 5, "%s():{%s} State: %d, Direction: %d TreatAsIncoming %c", __func__, call.callId.c_str(), state,
       call.direction, yesNo(call.treatAsIncoming));
  const bool incoming = call.direction == Call::Incoming || call.treatAsIncoming;
  if (!incoming && call.direction == Call::Outgoing && state == Call::Diverted) return fileDivertedDialledCall(call);
  if (!fileSipCall(call, state, incoming)) return fileUnknownState(call);
  removeCall(call.callId);
  return true;
}

// Files a finished call of a SIP switch; a call taken as incoming (picked up) is filed as one.
// False for a call that belongs to no list.
bool JournalService::fileSipCall(const Call& call, Call::states_t state, bool incoming) {
  if (!incoming) {
    if (call.direction != Call::Outgoing || state == Call::NoState) return false;
    newDialledCallEntry(newEntryId(call.callId), call.dialled, call.firstParty, call.firstPartyName, call.divertedParty,
                        call.divertedPartyName, call.startTime, call.connectTime, call.endTime,
                        CallLogEntryEvent::LT_DIALLED, kShown, kShown, std::string(), kLocalTime);
    return true;
  }
  switch (state) {
    case Call::Delivered:
    case Call::Failed:
      fileMissedCall(call, true);
      return true;
    case Call::Established:
      fileReceivedCall(call);
      return true;
    case Call::Diverted:
      fileForwardedCall(call);
      return true;
    default:
      return false;
  }
}

// An outgoing call that the far end diverted: filed as diverted when it went somewhere else than
// the number dialled; the record stays for the call's later events.
bool JournalService::fileDivertedDialledCall(const Call& call) {
  if (call.divertedParty.empty() || call.divertedParty == call.dialled || call.divertedParty == call.firstParty)
    return true;
  newDialledCallEntry(newEntryId(call.callId), call.dialled, call.firstParty, call.firstPartyName, call.divertedParty,
                      call.divertedPartyName, call.startTime, -1, -1, CallLogEntryEvent::LT_DIALLED_DIVERTED, kNone,
                      kNone, std::string(), kLocalTime);
  return true;
}
