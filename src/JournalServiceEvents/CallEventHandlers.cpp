// The CSTA call events of the phone's own line, turned into call tracking steps: each handler reads
// the call and its parties from the event, decides whether the event matters, and hands a state, a
// direction and the parties to onCallEvent under m_callsLock.
//
// Two roads: a KPX switch (or a SIP switch whose call log is off) reports calls one way, a SIP
// switch with the call log on another (sipRoad()). Handlers of only one road return at once on the
// other.
#include <cstdlib>

#include "JournalLog.h"
#include "JournalService.h"
#include "framework/CstaEvents.h"

using journal::kEventsLog;
using Call = JournalService::Call;

namespace {

struct Party {
  std::string number;
  std::string name;
};

// A device of the event, read with one of its device getters.
template <class Event, class Getter>
Party party(const Event& event, Getter getter) {
  Party p;
  (event.*getter)(p.number, p.name);
  return p;
}

bool isForwardingCause(CSTAEventCause cause) {
  return cause == EC_CALL_FORWARD_IMMEDIATE || cause == EC_CALL_FORWARD_BUSY || cause == EC_CALL_FORWARD_NO_ANSWER ||
         cause == EC_CALL_FORWARD;
}

}  // namespace

bool JournalService::isSipSwitch() const { return m_flavour == Flavour::Sip; }

bool JournalService::isKpxSoftware() const { return m_flavour == Flavour::Kpx; }

bool JournalService::sipRoad() const { return isSipSwitch() && m_callLogEnabled; }

bool JournalService::ignoreEventByCause(CSTAEventCause cause) {
  return cause == EC_DEST_NOT_OBTAINABLE || cause == EC_DO_NOT_DISTURB;
}

void JournalService::trackEvent(Call::states_t state, Call::directions_t direction, const std::string& callId,
                                const std::string& remote, const std::string& remoteName, const std::string& diverted,
                                const std::string& divertedName, bool treatAsIncoming) {
  CriticalSection guard(m_callsLock);
  onCallEvent(findCallFromId(callId), state, direction, callId, remote, remoteName, diverted, divertedName,
              treatAsIncoming);
}

void JournalService::handleCSTAOriginatedEvent(CSTAOriginatedEvent* event) {
  const std::string& callId = event->getOriginatedConnectionCallID();
  const Party calling = party(*event, &CSTACallPartiesPart::getCallingDevice),
              called = party(*event, &CSTACallPartiesPart::getCalledDevice);
  const CSTAEventCause cause = event->getCause();
  if (!sipRoad()) {
    JLOG(kEventsLog, 5, "%s():{%s} Calling: %s, Called: %s, Name: %s", __func__, callId.c_str(), calling.number.c_str(),
         called.number.c_str(), called.name.c_str());
    if (!m_localCallLog || ignoreEventByCause(cause)) return;
    JLOG(kEventsLog, 5, "%s():event not ignored", __func__);
    trackEvent(Call::Originated, Call::Outgoing, callId, called.number, called.name);
    return;
  }
  JLOG(kEventsLog, 5, "%s():{%s} Cause: %d Calling: %s, Called: %s", __func__, callId.c_str(), cause,
       calling.number.c_str(), called.number.c_str());
  if (cause == EC_CALL_PICKUP || cause == EC_RESOURCES_NOT_AVAILABLE || cause == EC_VOICE_UNIT_INITIATOR) {
    // The phone answers a call ringing elsewhere: the outgoing leg stands for an incoming call.
    trackEvent(Call::Originated, Call::Outgoing, callId, {}, {}, {}, {}, true);
  } else if (!ignoreEventByCause(cause) && cause != EC_INCOMPATIBLE_DESTINATION) {
    trackEvent(Call::Originated, Call::Outgoing, callId, called.number);
  }
}

void JournalService::handleCSTAOfferedEvent(CSTAOfferedEvent* event) {
  const std::string& callId = event->getOfferedConnectionCallID();
  JLOG(kEventsLog, 5, "%s():{%s}", __func__, callId.c_str());
  if ((isSipSwitch() && !sipRoad()) || !m_localCallLog) return;
  trackEvent(Call::Offered, Call::Incoming, callId);
}

void JournalService::handleCSTAQueuedEvent(CSTAQueuedEvent* event) {
  const std::string& callId = event->getCallID();
  const Party calling = party(*event, &CSTACallPartiesPart::getCallingDevice),
              called = party(*event, &CSTACallPartiesPart::getCalledDevice);
  JLOG(kEventsLog, 5, "%s():{%s} Calling: %s, Name: %s, Called: %s, Name: %s", __func__, callId.c_str(),
       calling.number.c_str(), calling.name.c_str(), called.number.c_str(), called.name.c_str());
  if ((isSipSwitch() && !sipRoad()) || !m_localCallLog) return;
  trackEvent(Call::Delivered, Call::Incoming, callId, calling.number, calling.name);
}

void JournalService::handleCSTADeliveredEvent(CSTADeliveredEvent* event) {
  const std::string& callId = event->getCallID();
  JLOG(kEventsLog, 5, "%s():{%s}", __func__, callId.c_str());
  if (sipRoad())
    trackSipDelivery(*event);
  else
    trackDelivery(*event);
}

void JournalService::trackDelivery(const CSTADeliveredEvent& event) {
  const std::string& callId = event.getCallID();
  const Party calling = party(event, &CSTACallPartiesPart::getCallingDevice),
              called = party(event, &CSTACallPartiesPart::getCalledDevice);
  JLOG(kEventsLog, 5, "%s():{%s} Calling: %s, Name: %s, Called: %s, Name: %s", __func__, callId.c_str(),
       calling.number.c_str(), calling.name.c_str(), called.number.c_str(), called.name.c_str());
  if (!m_localCallLog) return;
  const CSTALocalConnectionState state = event.getLocalConnectionInfo();
  if (state == CSTA_LCS_Null || state == CSTA_LCS_Alerting) {
    // A reminder rung by the switch itself is no call from anybody.
    if (event.getPrivateData() != communicationsServiceTexts::content_callstatus_ReminderCall)
      trackEvent(Call::Delivered, Call::Incoming, callId, calling.number, calling.name);
  } else if (state == CSTA_LCS_Connected) {
    trackEvent(Call::Delivered, Call::Outgoing, callId, called.number, called.name);
  } else {
    JLOG(kEventsLog, 5, "%s():{%s} Unknown Local Connection Info %d", __func__, callId.c_str(), state);
  }
}

void JournalService::trackSipDelivery(const CSTADeliveredEvent& event) {
  const std::string& callId = event.getCallID();
  const CSTALocalConnectionState state = event.getLocalConnectionInfo();
  if (state == CSTA_LCS_Null || state == CSTA_LCS_Alerting) {
    JLOG(kEventsLog, 5, "%s():CSTA_LCS_Null/CSTA_LCS_Alerting", __func__);
    const Party calling = party(event, &CSTACallPartiesPart::getCallingDevice),
                redirecting = party(event, &CSTARedirectionPart::getLastRedirectionDevice);
    trackEvent(Call::Delivered, Call::Incoming, callId, calling.number, calling.name, redirecting.number,
               redirecting.name);
  } else if (state == CSTA_LCS_Connected || state == CSTA_LCS_Queued) {
    JLOG(kEventsLog, 5, "%s():CSTA_LCS_Connected/CSTA_LCS_Queued", __func__);
    const Party alerting = party(event, &CSTADeliveredEvent::getAlertingDevice);
    if (isForwardingCause(event.getCause())) {
      // The far end forwarded our call: it now rings at the alerting device.
      const Party called = party(event, &CSTACallPartiesPart::getCalledDevice);
      trackEvent(isUsingLumaUX() ? Call::Diverted : Call::Delivered, Call::Outgoing, callId, called.number, called.name,
                 alerting.number, alerting.name);
    } else {
      trackEvent(Call::Delivered, Call::Outgoing, callId, alerting.number, alerting.name);
    }
  } else {
    JLOG(kEventsLog, 5, "%s():{%s} Unknown Local Connection Info %d", __func__, callId.c_str(), state);
  }
}

void JournalService::handleCSTAEstablishedEvent(CSTAEstablishedEvent* event) {
  const std::string& callId = event->getCallID();
  JLOG(kEventsLog, 5, "%s():{%s}", __func__, callId.c_str());
  const Party calling = party(*event, &CSTACallPartiesPart::getCallingDevice),
              called = party(*event, &CSTACallPartiesPart::getCalledDevice),
              answering = party(*event, &CSTAEstablishedEvent::getAnsweringDevice);
  const bool sip = sipRoad();
  if (!sip) {
    JLOG(kEventsLog, 5, "%s():{%s} Calling: %s, Name: %s, Called: %s, Name: %s, Answered: %s, Name: %s", __func__,
         callId.c_str(), calling.number.c_str(), calling.name.c_str(), called.number.c_str(), called.name.c_str(),
         answering.number.c_str(), answering.name.c_str());
    if (!m_localCallLog) return;
  }
  CriticalSection guard(m_callsLock);
  Call* call = findCallFromId(callId);
  if (!call && !sip) {
    // A call first seen when it is answered is an incoming one.
    JLOG(kEventsLog, 5, "%s():{%s} Number: %s, Name: %s", __func__, callId.c_str(), calling.number.c_str(),
         calling.name.c_str());
    onCallEvent(call, Call::Established, Call::Incoming, callId, calling.number, calling.name);
  } else if (!call || call->direction == Call::UnknownDirection) {
    JLOG(kEventsLog, 5, "%s():{%s} Unknown direction", __func__, callId.c_str());
  } else if (call->direction == Call::Incoming) {
    onCallEvent(call, Call::Established, Call::Incoming, callId, calling.number, calling.name);
  } else if (sip) {
    onCallEvent(call, Call::Established, Call::Outgoing, callId, answering.number, answering.name, {}, {},
                event->getCause() == EC_CALL_PICKUP);
  } else {
    const Party& reached = m_mixedCallLog ? answering : called;
    onCallEvent(call, Call::Established, Call::Outgoing, callId, reached.number, reached.name);
  }
}

void JournalService::handleCSTADivertedEvent(CSTADivertedEvent* event) {
  if (!sipRoad()) return;
  const std::string& callId = event->getDivertedConnectionCallID();
  const CSTAEventCause cause = event->getCause();
  JLOG(kEventsLog, 5, "%s():{%s}, cause = %d", __func__, callId.c_str(), cause);
  CriticalSection guard(m_callsLock);
  Call* call = findCallFromId(callId);
  if (!call && callId != "0" && !m_serverBasedFeatures) {
    JLOG(kEventsLog, 5, "%s():callID = '%s' - server based features are off, IGNORE", __func__, callId.c_str());
    return;
  }
  const Call::directions_t direction = call ? call->direction : Call::Incoming;
  const bool treatAsIncoming = call && call->treatAsIncoming;
  const bool forwardedHere =
      (cause == EC_CALL_FORWARD || cause == EC_CALL_FORWARD_BUSY) && direction == Call::UnknownDirection;
  if (forwardedHere || direction == Call::Incoming || treatAsIncoming) {
    // The party that called us, and where the call went.
    const Party calling = party(*event, &CSTACallPartiesPart::getCallingDevice),
                destination = party(*event, &CSTADivertedEvent::getNewDestinationDevice);
    onCallEvent(call, Call::Diverted, Call::Incoming, callId, calling.number, calling.name, destination.number,
                destination.name);
  } else {
    const Party called = party(*event, &CSTACallPartiesPart::getCalledDevice);
    onCallEvent(call, Call::Diverted, Call::Outgoing, callId, called.number, called.name);
  }
}

// Only a failure that has no call of its own is filed here: it ends at once as a missed call.
void JournalService::handleCSTAFailedEvent(CSTAFailedEvent* event) {
  const std::string& callId = event->getFailedConnectionCallID();
  const Party calling = party(*event, &CSTACallPartiesPart::getCallingDevice),
              called = party(*event, &CSTACallPartiesPart::getCalledDevice),
              redirecting = party(*event, &CSTARedirectionPart::getLastRedirectionDevice);
  const CSTAEventCause cause = event->getCause();
  if (sipRoad()) {
    JLOG(kEventsLog, 5, "%s():{%s} Calling: (%s Name: %s), Called: %s Cause: %d Forwarding: (%s Name: %s)", __func__,
         callId.c_str(), calling.number.c_str(), calling.name.c_str(), called.number.c_str(), cause,
         redirecting.number.c_str(), redirecting.name.c_str());
    if (callId != "0" && cause != 0 && cause != EC_ACTIVE_PARTICIPATION) return;
    CriticalSection guard(m_callsLock);
    onCallEvent(nullptr, Call::Failed, Call::Incoming, "0", calling.number, calling.name, redirecting.number,
                redirecting.name);
    return;
  }
  JLOG(kEventsLog, 5, "%s():{%s} Calling: %s, Name: %s, Called: %s, Name: %s", __func__, callId.c_str(),
       calling.number.c_str(), calling.name.c_str(), called.number.c_str(), called.name.c_str());
  if (!m_localCallLog || callId != "0") return;
  CriticalSection guard(m_callsLock);
  onCallEvent(nullptr, Call::Failed, Call::Incoming, "0", calling.number, calling.name);
}

void JournalService::handleCSTAConnectionClearedEvent(CSTAConnectionClearedEvent* event) {
  const std::string& callId = event->getDroppedConnectionCallID();
  const CSTAEventCause cause = event->getCause();
  JLOG(kEventsLog, 5, "%s():{%s}, event cause: %d", __func__, callId.c_str(), cause);
  if ((isSipSwitch() && !m_callLogEnabled) || !m_localCallLog) return;
  CriticalSection guard(m_callsLock);
  // The clearing of a conference call ends the calls that went into it.
  const std::string& device = event->getDroppedConnectionDeviceID();
  if (isSipSwitch() ? clearSipConference(callId, device) : clearKpxConference(callId, device)) return;
  Call* call = findCallFromId(callId);
  if (call && cause == EC_DURATION_EXCEEDED) {
    JLOG(kEventsLog, 5, "%s():Call was completed elsewhere", __func__);
    call->completedElsewhere = true;
  }
  onCallEvent(call, Call::Cleared, Call::UnknownDirection, callId);
}

// The call goes on with the party it was transferred to: no new state, new parties.
void JournalService::handleCSTATransferredEvent(CSTATransferredEvent* event) {
  if (isSipSwitch() && !sipRoad()) return;
  CriticalSection guard(m_callsLock);
  Call* call = findCallFromId(event->getPrimaryOldCallConnectionCallID());
  if (!call) return;
  Party to = party(*event, &CSTATransferredEvent::getTransferredToDevice);
  to.name = event->getRemotePartyName();
  call->remoteParty = call->divertedParty = to.number;
  call->remotePartyName = call->divertedPartyName = to.name;
}

void JournalService::handleCSTACallInformationEvent(CSTACallInformationEvent* event) {
  if (isSipSwitch() && !sipRoad()) return;
  const std::string& callId = event->getConnectionCallID();
  const std::string& number = event->getConnectionDeviceID();
  const std::string& name = event->getConnectionDeviceIDName();
  JLOG(kEventsLog, 5, "%s():{%s} Calling: %s, Name: %s", __func__, callId.c_str(), number.c_str(), name.c_str());
  if (!m_localCallLog) return;
  const std::string& data = event->getPrivateData();
  if (data == communicationsServiceTexts::content_callstatus_MissedCall)
    markCallMissed(callId, number, name);
  else if (!data.empty())
    refreshRemotePartyName(callId, number, name);
}

// The switch says a call was missed: one it never showed as a call ("-1") is filed at once, a
// ringing incoming call is marked so that its end files it as missed.
void JournalService::markCallMissed(const std::string& callId, const std::string& number, const std::string& name) {
  if (callId == "-1") {
    JLOG(kEventsLog, 5, "%s():{%s} create new missed call entry", __func__, callId.c_str());
    char id[16];
    // The switch gives no call id: any 32 bits tell the entry apart. Events come one at a time on
    // the CSTA thread, so rand()'s shared state is not contended.
    static_cast<void>(
        std::snprintf(id, sizeof id, "%.8X", static_cast<unsigned>(std::rand())));  // NOLINT(concurrency-mt-unsafe)
    const auto none = CallLogEntryEvent::PV_NONE;
    CriticalSection guard(m_callsLock);
    newMissedCallEntry(newEntryId(id), number, name, getCurrentTimeSec(), CallLogEntryEvent::LT_MISSED, none, none,
                       none, std::string(), none, std::string(), std::string(), CallLogEntryEvent::TF_LOCAL, false);
    return;
  }
  JLOG(kEventsLog, 5, "%s():{%s} mark call as missed", __func__, callId.c_str());
  CriticalSection guard(m_callsLock);
  Call* call = findCallFromId(callId);
  if (call && call->direction == Call::Incoming && call->state == Call::Delivered)
    onCallEvent(call, Call::MarkedMissed, Call::Incoming, callId);
  else
    JLOG(kEventsLog, 5, "%s():{%s} CSTA Event not plausible", __func__, callId.c_str());
}

// Other private data may bring the remote party's name late: the record takes it, in its own
// state (which setCallState refuses as a repeat for the early states, after the merge).
void JournalService::refreshRemotePartyName(const std::string& callId, const std::string& number,
                                            const std::string& name) {
  JLOG(kEventsLog, 5, "%s(): maybe RemotePartyName available", __func__);
  CriticalSection guard(m_callsLock);
  Call* call = findCallFromId(callId);
  if (!call) {
    JLOG(kEventsLog, 3, "{%s} CSTA Event not plausible", callId.c_str());
    return;
  }
  if (call->remoteParty != number) return;
  const std::string remoteParty = call->remoteParty;  // the record may be gone after the event
  onCallEvent(call, call->state, call->direction, callId, remoteParty, name);
  JLOG(kEventsLog, 5, "%s():{%s} RemotePartyName: %s", __func__, callId.c_str(), name.c_str());
}

void JournalService::handleCSTAHookswitchEvent(CSTAHookswitchEvent*) {}
