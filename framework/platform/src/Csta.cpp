#include "framework/Csta.h"
#include "framework/CstaRequests.h"

CSTAEvent::~CSTAEvent() = default;
CSTAEventIfc::~CSTAEventIfc() = default;
CSTAEventObserverBase::~CSTAEventObserverBase() = default;
CSTAResponse::~CSTAResponse() = default;
CSTARequest::~CSTARequest() = default;
CSTAServiceIfc::~CSTAServiceIfc() = default;

void CSTARequest::setResponse(int code, CSTAResponse* response) {
  m_responseCode = code;
  m_response.reset(response);
}

// Handlers a service does not override ignore their events.
void CSTAEventObserverBase::handleCSTAServiceInitiatedEvent(CSTAServiceInitiatedEvent*) {}
void CSTAEventObserverBase::handleCSTAOriginatedEvent(CSTAOriginatedEvent*) {}
void CSTAEventObserverBase::handleCSTAOfferedEvent(CSTAOfferedEvent*) {}
void CSTAEventObserverBase::handleCSTADeliveredEvent(CSTADeliveredEvent*) {}
void CSTAEventObserverBase::handleCSTABridgedEvent(CSTABridgedEvent*) {}
void CSTAEventObserverBase::handleCSTADivertedEvent(CSTADivertedEvent*) {}
void CSTAEventObserverBase::handleCSTAEstablishedEvent(CSTAEstablishedEvent*) {}
void CSTAEventObserverBase::handleCSTAHeldEvent(CSTAHeldEvent*) {}
void CSTAEventObserverBase::handleCSTARetrievedEvent(CSTARetrievedEvent*) {}
void CSTAEventObserverBase::handleCSTATransferredEvent(CSTATransferredEvent*) {}
void CSTAEventObserverBase::handleCSTAConnectionClearedEvent(CSTAConnectionClearedEvent*) {}
void CSTAEventObserverBase::handleCSTAButtonPressEvent(CSTAButtonPressEvent*) {}
void CSTAEventObserverBase::handleCSTAHookswitchEvent(CSTAHookswitchEvent*) {}
void CSTAEventObserverBase::handleCSTAServiceCompletionFailureEvent(CSTAServiceCompletionFailureEvent*) {}
void CSTAEventObserverBase::handleCSTAFailedEvent(CSTAFailedEvent*) {}
void CSTAEventObserverBase::handleCSTASwitchingFunctionDevices(CSTASwitchingFunctionDevicesEvent*) {}
void CSTAEventObserverBase::handleCSTABackInServiceEvent(CSTABackInServiceEvent*) {}
void CSTAEventObserverBase::handleCSTAOutOfServiceEvent(CSTAOutOfServiceEvent*) {}
void CSTAEventObserverBase::handleCSTAMonitorStopEvent(CSTAMonitorStopEvent*) {}
void CSTAEventObserverBase::handleCSTASystemStatusEvent(CSTASystemStatusEvent*) {}
void CSTAEventObserverBase::handleCSTAMessageWaitingEvent(CSTAMessageWaitingEvent*) {}
void CSTAEventObserverBase::handleCSTAForwardingEvent(CSTAForwardingEvent*) {}
void CSTAEventObserverBase::handleCSTADoNotDisturbEvent(CSTADoNotDisturbEvent*) {}
void CSTAEventObserverBase::handleCSTAAgentLoggedOffEvent(CSTAAgentLoggedOffEvent*) {}
void CSTAEventObserverBase::handleCSTAAgentLoggedOnEvent(CSTAAgentLoggedOnEvent*) {}
void CSTAEventObserverBase::handleCSTAAgentNotReadyEvent(CSTAAgentNotReadyEvent*) {}
void CSTAEventObserverBase::handleCSTAAgentReadyEvent(CSTAAgentReadyEvent*) {}
void CSTAEventObserverBase::handleCSTAAgentWorkingAfterCallEvent(CSTAAgentWorkingAfterCallEvent*) {}
void CSTAEventObserverBase::handleCSTAConferencedEvent(CSTAConferencedEvent*) {}
void CSTAEventObserverBase::handleCSTANetworkReachedEvent(CSTANetworkReachedEvent*) {}
void CSTAEventObserverBase::handleCSTAConferenceMembershipEvent(CSTAConferenceMembershipEvent*) {}
void CSTAEventObserverBase::handleCSTADisplayUpdatedEvent(CSTADisplayUpdatedEvent*) {}
void CSTAEventObserverBase::handleCSTACallInformationEvent(CSTACallInformationEvent*) {}
void CSTAEventObserverBase::handleCSTAQueuedEvent(CSTAQueuedEvent*) {}
void CSTAEventObserverBase::handleCSTAPrivateEvent(CSTAPrivateEvent*) {}
void CSTAEventObserverBase::handleCSTABusyLampFieldEvent(CSTABusyLampFieldEvent*) {}
void CSTAEventObserverBase::handleCSTAButtonInformationEvent(CSTAButtonInformationEvent*) {}
void CSTAEventObserverBase::handleCSTACallBackEvent(CSTACallBackEvent*) {}

CallLogEntryRequest::CallLogEntryRequest(CallLogEntryEvent::_Action a, CallLogEntryEvent::_LogTarget target,
                                         CallLogEntryEvent::_TFormat format, std::string number,
                                         CallLogEntryEvent::_PresentationValue p1, std::string s1,
                                         CallLogEntryEvent::_PresentationValue p2, const std::string* s2,
                                         CallLogEntryEvent::_PresentationValue p3, const std::string* s3,
                                         CallLogEntryEvent::_PresentationValue p4, const std::string* s4,
                                         CallLogEntryEvent::_PresentationValue p5, const std::string* s5)
    : action(a), logTarget(target), timeFormat(format), subscriberNumber(std::move(number)) {
  fields[0] = {p1, std::move(s1)};
  const std::string* texts[] = {s2, s3, s4, s5};
  const CallLogEntryEvent::_PresentationValue presentations[] = {p2, p3, p4, p5};
  for (int i = 0; i < 4; ++i) fields[i + 1] = {presentations[i], texts[i] ? *texts[i] : std::string()};
}

namespace {
// A call-log entry as the switch sends it and as the phone reports it: the same fields.
template <class Entry>
bool sameEntry(const Entry& a, const Entry& b) {
  if (a.action != b.action || a.logTarget != b.logTarget || a.timeFormat != b.timeFormat ||
      a.subscriberNumber != b.subscriberNumber)
    return false;
  for (int i = 0; i < Entry::kFieldCount; ++i)
    if (!(a.fields[i] == b.fields[i])) return false;
  return true;
}
}  // namespace

bool CallLogEntryRequest::operator==(const CallLogEntryRequest& o) const { return sameEntry(*this, o); }
bool CallLogEntryEvent::operator==(const CallLogEntryEvent& o) const { return sameEntry(*this, o); }
