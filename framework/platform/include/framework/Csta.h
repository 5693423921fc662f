// The CSTA service as modules see it: events of monitored devices are delivered to a
// CSTAEventIfc; each event dispatches itself to the matching handler of a CSTAEventObserverBase
// (double dispatch), whose handlers do nothing unless overridden. Requests go out through
// CSTAServiceIfc::sendRequest and carry their response back.
//
// The event classes are in CstaEvents.h, the requests the journal sends in CstaRequests.h.
#pragma once

#include <memory>
#include <string>

#pragma GCC visibility push(default)

class CSTAEventObserverBase;

class CSTAServiceInitiatedEvent;
class CSTAOriginatedEvent;
class CSTAOfferedEvent;
class CSTADeliveredEvent;
class CSTABridgedEvent;
class CSTADivertedEvent;
class CSTAEstablishedEvent;
class CSTAHeldEvent;
class CSTARetrievedEvent;
class CSTATransferredEvent;
class CSTAConnectionClearedEvent;
class CSTAButtonPressEvent;
class CSTAHookswitchEvent;
class CSTAServiceCompletionFailureEvent;
class CSTAFailedEvent;
class CSTASwitchingFunctionDevicesEvent;
class CSTABackInServiceEvent;
class CSTAOutOfServiceEvent;
class CSTAMonitorStopEvent;
class CSTASystemStatusEvent;
class CSTAMessageWaitingEvent;
class CSTAForwardingEvent;
class CSTADoNotDisturbEvent;
class CSTAAgentLoggedOffEvent;
class CSTAAgentLoggedOnEvent;
class CSTAAgentNotReadyEvent;
class CSTAAgentReadyEvent;
class CSTAAgentWorkingAfterCallEvent;
class CSTAConferencedEvent;
class CSTANetworkReachedEvent;
class CSTAConferenceMembershipEvent;
class CSTADisplayUpdatedEvent;
class CSTACallInformationEvent;
class CSTAQueuedEvent;
class CSTAPrivateEvent;
class CSTABusyLampFieldEvent;
class CSTAButtonInformationEvent;
class CSTACallBackEvent;

// Base of every event: dispatches itself to its handler.
class CSTAEvent {
 public:
  virtual ~CSTAEvent();
  virtual void dispatch(CSTAEventObserverBase& observer) = 0;
  virtual const char* eventName() const = 0;
};

// Receives the events of a monitor.
class CSTAEventIfc {
 public:
  virtual ~CSTAEventIfc();
  virtual void deliverEvent(CSTAEvent* event) = 0;
};

// One handler per event type, in the framework's slot order; each default does nothing.
class CSTAEventObserverBase {
 public:
  virtual ~CSTAEventObserverBase();
  virtual void handleCSTAServiceInitiatedEvent(CSTAServiceInitiatedEvent* event);
  virtual void handleCSTAOriginatedEvent(CSTAOriginatedEvent* event);
  virtual void handleCSTAOfferedEvent(CSTAOfferedEvent* event);
  virtual void handleCSTADeliveredEvent(CSTADeliveredEvent* event);
  virtual void handleCSTABridgedEvent(CSTABridgedEvent* event);
  virtual void handleCSTADivertedEvent(CSTADivertedEvent* event);
  virtual void handleCSTAEstablishedEvent(CSTAEstablishedEvent* event);
  virtual void handleCSTAHeldEvent(CSTAHeldEvent* event);
  virtual void handleCSTARetrievedEvent(CSTARetrievedEvent* event);
  virtual void handleCSTATransferredEvent(CSTATransferredEvent* event);
  virtual void handleCSTAConnectionClearedEvent(CSTAConnectionClearedEvent* event);
  virtual void handleCSTAButtonPressEvent(CSTAButtonPressEvent* event);
  virtual void handleCSTAHookswitchEvent(CSTAHookswitchEvent* event);
  virtual void handleCSTAServiceCompletionFailureEvent(CSTAServiceCompletionFailureEvent* event);
  virtual void handleCSTAFailedEvent(CSTAFailedEvent* event);
  virtual void handleCSTASwitchingFunctionDevices(CSTASwitchingFunctionDevicesEvent* event);
  virtual void handleCSTABackInServiceEvent(CSTABackInServiceEvent* event);
  virtual void handleCSTAOutOfServiceEvent(CSTAOutOfServiceEvent* event);
  virtual void handleCSTAMonitorStopEvent(CSTAMonitorStopEvent* event);
  virtual void handleCSTASystemStatusEvent(CSTASystemStatusEvent* event);
  virtual void handleCSTAMessageWaitingEvent(CSTAMessageWaitingEvent* event);
  virtual void handleCSTAForwardingEvent(CSTAForwardingEvent* event);
  virtual void handleCSTADoNotDisturbEvent(CSTADoNotDisturbEvent* event);
  virtual void handleCSTAAgentLoggedOffEvent(CSTAAgentLoggedOffEvent* event);
  virtual void handleCSTAAgentLoggedOnEvent(CSTAAgentLoggedOnEvent* event);
  virtual void handleCSTAAgentNotReadyEvent(CSTAAgentNotReadyEvent* event);
  virtual void handleCSTAAgentReadyEvent(CSTAAgentReadyEvent* event);
  virtual void handleCSTAAgentWorkingAfterCallEvent(CSTAAgentWorkingAfterCallEvent* event);
  virtual void handleCSTAConferencedEvent(CSTAConferencedEvent* event);
  virtual void handleCSTANetworkReachedEvent(CSTANetworkReachedEvent* event);
  virtual void handleCSTAConferenceMembershipEvent(CSTAConferenceMembershipEvent* event);
  virtual void handleCSTADisplayUpdatedEvent(CSTADisplayUpdatedEvent* event);
  virtual void handleCSTACallInformationEvent(CSTACallInformationEvent* event);
  virtual void handleCSTAQueuedEvent(CSTAQueuedEvent* event);
  virtual void handleCSTAPrivateEvent(CSTAPrivateEvent* event);
  virtual void handleCSTABusyLampFieldEvent(CSTABusyLampFieldEvent* event);
  virtual void handleCSTAButtonInformationEvent(CSTAButtonInformationEvent* event);
  virtual void handleCSTACallBackEvent(CSTACallBackEvent* event);
};

// A request to the switch. sendRequest fills the response code (0: a response arrived) and, when
// one arrived, the response, which the request owns.
class CSTAResponse {
 public:
  virtual ~CSTAResponse();
  virtual bool isError() const = 0;
};

class CSTARequest {
 public:
  CSTARequest() = default;
  CSTARequest(const CSTARequest&) = delete;
  CSTARequest& operator=(const CSTARequest&) = delete;
  virtual ~CSTARequest();
  virtual const char* requestName() const = 0;
  int getResponseCode() const { return m_responseCode; }
  CSTAResponse* getResponse() const { return m_response.get(); }
  // Used by the CSTA service: takes ownership of `response`.
  void setResponse(int code, CSTAResponse* response);

 private:
  int m_responseCode = -1;
  std::unique_ptr<CSTAResponse> m_response;
};

class CSTAServiceIfc {
 public:
  virtual ~CSTAServiceIfc();
  // Sends `request` and waits (up to the service's time limit) for its response.
  virtual void sendRequest(CSTARequest& request) = 0;
};

#pragma GCC visibility pop
