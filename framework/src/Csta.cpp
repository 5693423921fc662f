#include "framework/Csta.h"

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
