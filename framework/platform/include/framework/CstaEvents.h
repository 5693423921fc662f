// The CSTA events the framework delivers to modules: one class per handler of
// CSTAEventObserverBase. Each event is a plain value: the CSTA service (or a test) builds it with
// the setters from the switch's message and hands it to CSTAEventIfc::deliverEvent, where the
// module lets it dispatch itself to the matching handler of its observer (double dispatch).
//
// Ownership and threads: the CSTA service creates each event, keeps it alive while deliverEvent
// runs and destroys it afterwards. Handlers copy what they need and never keep a pointer to the
// event. Events are delivered on the CSTA service's event thread, one at a time and in the order
// the switch sent them; an event is not shared between threads.
//
// Getters of a device give its number and name (CSTADeviceID). Getters whose name names an ECMA
// element (getOriginatedConnectionCallID, getDroppedConnectionDeviceID, ...) read that element's
// connection; getConnection() gives the whole connection of every event that has one.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "framework/CallLogEntryEvent.h"
#include "framework/Csta.h"
#include "framework/CstaEventValues.h"

#pragma GCC visibility push(default)

// The parts events share. Each is a plain value; events combine the parts their CSTA form has.

// Private (vendor) data of the switch, as text; any event may carry it.
class CSTAPrivateDataPart {
 public:
  const std::string& getPrivateData() const { return m_privateData; }
  void setPrivateData(std::string data) { m_privateData = std::move(data); }

 private:
  std::string m_privateData;
};

// The connection the event is about (ECMA names it per event: connection, droppedConnection, ...).
class CSTAConnectionPart {
 public:
  const CSTAConnectionID& getConnection() const { return m_connection; }
  void setConnection(CSTAConnectionID connection) { m_connection = std::move(connection); }

 private:
  CSTAConnectionID m_connection;
};

class CSTACausePart {
 public:
  CSTAEventCause getCause() const { return m_cause; }
  void setCause(CSTAEventCause cause) { m_cause = cause; }

 private:
  CSTAEventCause m_cause = EC_NONE;
};

class CSTALocalConnectionPart {
 public:
  CSTALocalConnectionState getLocalConnectionInfo() const { return m_state; }
  void setLocalConnectionInfo(CSTALocalConnectionState state) { m_state = state; }

 private:
  CSTALocalConnectionState m_state = CSTA_LCS_None;
};

// The calling and the called device of a call event.
class CSTACallPartiesPart {
 public:
  void getCallingDevice(std::string& number, std::string& name) const { m_calling.get(number, name); }
  void getCalledDevice(std::string& number, std::string& name) const { m_called.get(number, name); }
  void setCallingDevice(CSTADeviceID device) { m_calling = std::move(device); }
  void setCalledDevice(CSTADeviceID device) { m_called = std::move(device); }

 private:
  CSTADeviceID m_calling;
  CSTADeviceID m_called;
};

// The device that last redirected the call before it reached this one.
class CSTARedirectionPart {
 public:
  void getLastRedirectionDevice(std::string& number, std::string& name) const { m_device.get(number, name); }
  void setLastRedirectionDevice(CSTADeviceID device) { m_device = std::move(device); }

 private:
  CSTADeviceID m_device;
};

// The device a device event (feature, agent, maintenance, physical device) reports about.
class CSTADevicePart {
 public:
  void getDevice(std::string& number, std::string& name) const { m_device.get(number, name); }
  void setDevice(CSTADeviceID device) { m_device = std::move(device); }

 private:
  CSTADeviceID m_device;
};

// A feature or device event's on/off state (do not disturb set, message waiting, on hook, ...).
class CSTAOnOffPart {
 public:
  bool isOn() const { return m_on; }
  void setOn(bool on) { m_on = on; }

 private:
  bool m_on = false;
};

// An agent event's agent.
class CSTAAgentPart : public CSTADevicePart {
 public:
  const std::string& getAgentID() const { return m_agentId; }
  void setAgentID(std::string id) { m_agentId = std::move(id); }

 private:
  std::string m_agentId;
};

// Base of each event class: dispatches to the handler that takes the event's own class and names
// the event by the class's kEventName (the class name without "CSTA", e.g. "DeliveredEvent").
template <class Self, void (CSTAEventObserverBase::*Handler)(Self*)>
class CSTAEventOf : public CSTAEvent, public CSTAPrivateDataPart {
 public:
  void dispatch(CSTAEventObserverBase& observer) override { (observer.*Handler)(static_cast<Self*>(this)); }
  const char* eventName() const override { return Self::kEventName; }
};

// Names an event class and its handler once, so that the two cannot disagree.
#define CSTA_EVENT_BASE(Name) CSTAEventOf<CSTA##Name, &CSTAEventObserverBase::handleCSTA##Name>

// ---- Call control events -----------------------------------------------------------------------

class CSTAServiceInitiatedEvent : public CSTA_EVENT_BASE(ServiceInitiatedEvent),
                                  public CSTAConnectionPart,
                                  public CSTALocalConnectionPart,
                                  public CSTACausePart {
 public:
  static constexpr const char* kEventName = "ServiceInitiatedEvent";
};

class CSTAOriginatedEvent : public CSTA_EVENT_BASE(OriginatedEvent),
                            public CSTAConnectionPart,
                            public CSTACallPartiesPart,
                            public CSTALocalConnectionPart,
                            public CSTACausePart {
 public:
  static constexpr const char* kEventName = "OriginatedEvent";
  const std::string& getOriginatedConnectionCallID() const { return getConnection().callId; }
};

class CSTAOfferedEvent : public CSTA_EVENT_BASE(OfferedEvent),
                         public CSTAConnectionPart,
                         public CSTACallPartiesPart,
                         public CSTARedirectionPart,
                         public CSTACausePart {
 public:
  static constexpr const char* kEventName = "OfferedEvent";
  const std::string& getOfferedConnectionCallID() const { return getConnection().callId; }
};

class CSTADeliveredEvent : public CSTA_EVENT_BASE(DeliveredEvent),
                           public CSTAConnectionPart,
                           public CSTACallPartiesPart,
                           public CSTARedirectionPart,
                           public CSTALocalConnectionPart,
                           public CSTACausePart {
 public:
  static constexpr const char* kEventName = "DeliveredEvent";
  const std::string& getCallID() const { return getConnection().callId; }
  void getAlertingDevice(std::string& number, std::string& name) const { m_alerting.get(number, name); }
  void setAlertingDevice(CSTADeviceID device) { m_alerting = std::move(device); }

 private:
  CSTADeviceID m_alerting;
};

class CSTAQueuedEvent : public CSTA_EVENT_BASE(QueuedEvent),
                        public CSTAConnectionPart,
                        public CSTACallPartiesPart,
                        public CSTARedirectionPart,
                        public CSTACausePart {
 public:
  static constexpr const char* kEventName = "QueuedEvent";
  const std::string& getCallID() const { return getConnection().callId; }
  void getQueueDevice(std::string& number, std::string& name) const { m_queue.get(number, name); }
  void setQueueDevice(CSTADeviceID device) { m_queue = std::move(device); }

 private:
  CSTADeviceID m_queue;
};

class CSTAEstablishedEvent : public CSTA_EVENT_BASE(EstablishedEvent),
                             public CSTAConnectionPart,
                             public CSTACallPartiesPart,
                             public CSTARedirectionPart,
                             public CSTALocalConnectionPart,
                             public CSTACausePart {
 public:
  static constexpr const char* kEventName = "EstablishedEvent";
  const std::string& getCallID() const { return getConnection().callId; }
  void getAnsweringDevice(std::string& number, std::string& name) const { m_answering.get(number, name); }
  void setAnsweringDevice(CSTADeviceID device) { m_answering = std::move(device); }

 private:
  CSTADeviceID m_answering;
};

// The diverting device is the connection's device.
class CSTADivertedEvent : public CSTA_EVENT_BASE(DivertedEvent),
                          public CSTAConnectionPart,
                          public CSTACallPartiesPart,
                          public CSTARedirectionPart,
                          public CSTALocalConnectionPart,
                          public CSTACausePart {
 public:
  static constexpr const char* kEventName = "DivertedEvent";
  const std::string& getDivertedConnectionCallID() const { return getConnection().callId; }
  void getNewDestinationDevice(std::string& number, std::string& name) const { m_newDestination.get(number, name); }
  void setNewDestinationDevice(CSTADeviceID device) { m_newDestination = std::move(device); }

 private:
  CSTADeviceID m_newDestination;
};

// The failing device is the connection's device.
class CSTAFailedEvent : public CSTA_EVENT_BASE(FailedEvent),
                        public CSTAConnectionPart,
                        public CSTACallPartiesPart,
                        public CSTARedirectionPart,
                        public CSTALocalConnectionPart,
                        public CSTACausePart {
 public:
  static constexpr const char* kEventName = "FailedEvent";
  const std::string& getFailedConnectionCallID() const { return getConnection().callId; }
};

// The releasing device is the dropped connection's device.
class CSTAConnectionClearedEvent : public CSTA_EVENT_BASE(ConnectionClearedEvent),
                                   public CSTAConnectionPart,
                                   public CSTALocalConnectionPart,
                                   public CSTACausePart {
 public:
  static constexpr const char* kEventName = "ConnectionClearedEvent";
  const std::string& getDroppedConnectionCallID() const { return getConnection().callId; }
  const std::string& getDroppedConnectionDeviceID() const { return getConnection().device.number; }
};

// The connection is the transferring device's primary old call.
class CSTATransferredEvent : public CSTA_EVENT_BASE(TransferredEvent),
                             public CSTAConnectionPart,
                             public CSTALocalConnectionPart,
                             public CSTACausePart {
 public:
  static constexpr const char* kEventName = "TransferredEvent";
  const std::string& getPrimaryOldCallConnectionCallID() const { return getConnection().callId; }
  const CSTAConnectionID& getSecondaryOldCall() const { return m_secondaryOldCall; }
  void setSecondaryOldCall(CSTAConnectionID connection) { m_secondaryOldCall = std::move(connection); }
  void getTransferredToDevice(std::string& number, std::string& name) const { m_transferredTo.get(number, name); }
  void setTransferredToDevice(CSTADeviceID device) { m_transferredTo = std::move(device); }
  // The name the switch gives for the party the call is now connected with.
  const std::string& getRemotePartyName() const { return m_remotePartyName; }
  void setRemotePartyName(std::string name) { m_remotePartyName = std::move(name); }

 private:
  CSTAConnectionID m_secondaryOldCall;
  CSTADeviceID m_transferredTo;
  std::string m_remotePartyName;
};

// One entry of a conference's connection list: a member's connection in the conference call and
// the connection it had before.
struct CSTAConferenceConnection {
  CSTAConnectionID newConnection;
  CSTAConnectionID oldConnection;
};

class CSTAConferencedEvent : public CSTA_EVENT_BASE(ConferencedEvent),
                             public CSTALocalConnectionPart,
                             public CSTACausePart {
 public:
  static constexpr const char* kEventName = "ConferencedEvent";
  const std::string& getPrimaryoldcallCallID() const { return m_primaryOldCall.callId; }
  const std::string& getSecondaryoldcallCallID() const { return m_secondaryOldCall.callId; }
  void getPrimaryoldcallDeviceID(std::string& number, std::string& name) const {
    m_primaryOldCall.device.get(number, name);
  }
  void getSecondaryoldcallDeviceID(std::string& number, std::string& name) const {
    m_secondaryOldCall.device.get(number, name);
  }
  void setPrimaryOldCall(CSTAConnectionID connection) { m_primaryOldCall = std::move(connection); }
  void setSecondaryOldCall(CSTAConnectionID connection) { m_secondaryOldCall = std::move(connection); }

  // The call the conference goes on in: as set, else the new call of the first conference connection.
  std::string getConferenceCallID() const;
  void setConferenceCallID(std::string callId) { m_conferenceCallId = std::move(callId); }

  // The new call of the index-th conference connection, counted from 1; empty when there is none.
  std::string getConferenceconnectionsNewconnectionCallID(int index) const;
  const std::vector<CSTAConferenceConnection>& getConferenceConnections() const { return m_connections; }
  void addConferenceConnection(CSTAConferenceConnection connection) { m_connections.push_back(std::move(connection)); }

 private:
  CSTAConnectionID m_primaryOldCall;
  CSTAConnectionID m_secondaryOldCall;
  std::string m_conferenceCallId;
  std::vector<CSTAConferenceConnection> m_connections;
};

class CSTABridgedEvent : public CSTA_EVENT_BASE(BridgedEvent),
                         public CSTAConnectionPart,
                         public CSTALocalConnectionPart,
                         public CSTACausePart {
 public:
  static constexpr const char* kEventName = "BridgedEvent";
};

class CSTAHeldEvent : public CSTA_EVENT_BASE(HeldEvent),
                      public CSTAConnectionPart,
                      public CSTALocalConnectionPart,
                      public CSTACausePart {
 public:
  static constexpr const char* kEventName = "HeldEvent";
};

class CSTARetrievedEvent : public CSTA_EVENT_BASE(RetrievedEvent),
                           public CSTAConnectionPart,
                           public CSTALocalConnectionPart,
                           public CSTACausePart {
 public:
  static constexpr const char* kEventName = "RetrievedEvent";
};

class CSTANetworkReachedEvent : public CSTA_EVENT_BASE(NetworkReachedEvent),
                                public CSTAConnectionPart,
                                public CSTACallPartiesPart,
                                public CSTALocalConnectionPart,
                                public CSTACausePart {
 public:
  static constexpr const char* kEventName = "NetworkReachedEvent";
};

// A device's membership in a conference call changed; the connection is the device's.
class CSTAConferenceMembershipEvent : public CSTA_EVENT_BASE(ConferenceMembershipEvent),
                                      public CSTAConnectionPart,
                                      public CSTACausePart {
 public:
  static constexpr const char* kEventName = "ConferenceMembershipEvent";
};

// ---- Call associated events ----------------------------------------------------------------------

class CSTACallInformationEvent : public CSTA_EVENT_BASE(CallInformationEvent),
                                 public CSTAConnectionPart,
                                 public CSTACallPartiesPart {
 public:
  static constexpr const char* kEventName = "CallInformationEvent";
  const std::string& getConnectionCallID() const { return getConnection().callId; }
  const std::string& getConnectionDeviceID() const { return getConnection().device.number; }
  const std::string& getConnectionDeviceIDName() const { return getConnection().device.name; }
};

// A callback that a device set on another party changed. The subject device is the party to be
// called back, the device id the device that set the callback (as text).
class CSTACallBackEvent : public CSTA_EVENT_BASE(CallBackEvent) {
 public:
  static constexpr const char* kEventName = "CallBackEvent";
  // The values getCallBackType and getCallBackState give.
  enum CallBackType { CB_TYPE_NONE = 0, CB_TYPE_NO_REPLY = 1, CB_TYPE_BUSY = 2 };
  enum CallBackState {
    CB_STATE_SET = 0,        // just set, waiting for the party
    CB_STATE_CANCELLED = 1,  // cancelled or done: the callback is gone
    CB_STATE_READY = 2,      // the party is free now
    CB_STATE_WAITING = 3     // still waiting for the party
  };

  void getSubjectDeviceID(std::string& number, std::string& name) const { m_subject.get(number, name); }
  void setSubjectDeviceID(CSTADeviceID device) { m_subject = std::move(device); }
  const std::string& getDeviceID() const { return m_deviceId; }
  void setDeviceID(std::string id) { m_deviceId = std::move(id); }
  int getCallBackType() const { return m_type; }
  void setCallBackType(int type) { m_type = type; }
  int getCallBackState() const { return m_state; }
  void setCallBackState(int state) { m_state = state; }

 private:
  CSTADeviceID m_subject;
  std::string m_deviceId;
  int m_type = CB_TYPE_NONE;
  int m_state = CB_STATE_SET;
};

// ---- Device feature, physical device and agent events -------------------------------------------

class CSTAButtonPressEvent : public CSTA_EVENT_BASE(ButtonPressEvent), public CSTADevicePart {
 public:
  static constexpr const char* kEventName = "ButtonPressEvent";
  const std::string& getButtonID() const { return m_buttonId; }
  void setButtonID(std::string id) { m_buttonId = std::move(id); }

 private:
  std::string m_buttonId;
};

class CSTAButtonInformationEvent : public CSTA_EVENT_BASE(ButtonInformationEvent), public CSTADevicePart {
 public:
  static constexpr const char* kEventName = "ButtonInformationEvent";
  const std::string& getButtonID() const { return m_buttonId; }
  void setButtonID(std::string id) { m_buttonId = std::move(id); }
  const std::string& getButtonLabel() const { return m_label; }
  void setButtonLabel(std::string label) { m_label = std::move(label); }

 private:
  std::string m_buttonId;
  std::string m_label;
};

// On: the hookswitch is on hook.
class CSTAHookswitchEvent : public CSTA_EVENT_BASE(HookswitchEvent), public CSTADevicePart, public CSTAOnOffPart {
 public:
  static constexpr const char* kEventName = "HookswitchEvent";
};

class CSTADisplayUpdatedEvent : public CSTA_EVENT_BASE(DisplayUpdatedEvent), public CSTADevicePart {
 public:
  static constexpr const char* kEventName = "DisplayUpdatedEvent";
  const std::string& getContentsOfDisplay() const { return m_contents; }
  void setContentsOfDisplay(std::string contents) { m_contents = std::move(contents); }

 private:
  std::string m_contents;
};

// On: a message is waiting at the device.
class CSTAMessageWaitingEvent : public CSTA_EVENT_BASE(MessageWaitingEvent),
                                public CSTADevicePart,
                                public CSTAOnOffPart {
 public:
  static constexpr const char* kEventName = "MessageWaitingEvent";
};

// On: do not disturb is set at the device.
class CSTADoNotDisturbEvent : public CSTA_EVENT_BASE(DoNotDisturbEvent), public CSTADevicePart, public CSTAOnOffPart {
 public:
  static constexpr const char* kEventName = "DoNotDisturbEvent";
};

// On: forwarding of the given type (ECMA-323 text, e.g. "forwardImmediate") is set to forwardTo.
class CSTAForwardingEvent : public CSTA_EVENT_BASE(ForwardingEvent), public CSTADevicePart, public CSTAOnOffPart {
 public:
  static constexpr const char* kEventName = "ForwardingEvent";
  const std::string& getForwardingType() const { return m_type; }
  void setForwardingType(std::string type) { m_type = std::move(type); }
  const std::string& getForwardTo() const { return m_forwardTo; }
  void setForwardTo(std::string destination) { m_forwardTo = std::move(destination); }

 private:
  std::string m_type;
  std::string m_forwardTo;
};

// The state of another device's line, shown on a busy lamp field key.
class CSTABusyLampFieldEvent : public CSTA_EVENT_BASE(BusyLampFieldEvent),
                               public CSTADevicePart,
                               public CSTALocalConnectionPart {
 public:
  static constexpr const char* kEventName = "BusyLampFieldEvent";
};

class CSTAAgentLoggedOnEvent : public CSTA_EVENT_BASE(AgentLoggedOnEvent), public CSTAAgentPart {
 public:
  static constexpr const char* kEventName = "AgentLoggedOnEvent";
};

class CSTAAgentLoggedOffEvent : public CSTA_EVENT_BASE(AgentLoggedOffEvent), public CSTAAgentPart {
 public:
  static constexpr const char* kEventName = "AgentLoggedOffEvent";
};

class CSTAAgentReadyEvent : public CSTA_EVENT_BASE(AgentReadyEvent), public CSTAAgentPart {
 public:
  static constexpr const char* kEventName = "AgentReadyEvent";
};

class CSTAAgentNotReadyEvent : public CSTA_EVENT_BASE(AgentNotReadyEvent), public CSTAAgentPart {
 public:
  static constexpr const char* kEventName = "AgentNotReadyEvent";
};

class CSTAAgentWorkingAfterCallEvent : public CSTA_EVENT_BASE(AgentWorkingAfterCallEvent), public CSTAAgentPart {
 public:
  static constexpr const char* kEventName = "AgentWorkingAfterCallEvent";
};

// ---- Maintenance, monitoring and system events ---------------------------------------------------

class CSTABackInServiceEvent : public CSTA_EVENT_BASE(BackInServiceEvent), public CSTADevicePart, public CSTACausePart {
 public:
  static constexpr const char* kEventName = "BackInServiceEvent";
};

class CSTAOutOfServiceEvent : public CSTA_EVENT_BASE(OutOfServiceEvent), public CSTADevicePart, public CSTACausePart {
 public:
  static constexpr const char* kEventName = "OutOfServiceEvent";
};

// The failed request's call: the connection is the primary call's.
class CSTAServiceCompletionFailureEvent : public CSTA_EVENT_BASE(ServiceCompletionFailureEvent),
                                          public CSTAConnectionPart,
                                          public CSTALocalConnectionPart,
                                          public CSTACausePart {
 public:
  static constexpr const char* kEventName = "ServiceCompletionFailureEvent";
};

// The devices the switch serves, by identifier.
class CSTASwitchingFunctionDevicesEvent
    : public CSTAEventOf<CSTASwitchingFunctionDevicesEvent,
                         &CSTAEventObserverBase::handleCSTASwitchingFunctionDevices> {
 public:
  static constexpr const char* kEventName = "SwitchingFunctionDevicesEvent";
  const std::vector<std::string>& getDeviceList() const { return m_devices; }
  void setDeviceList(std::vector<std::string> devices) { m_devices = std::move(devices); }

 private:
  std::vector<std::string> m_devices;
};

// The switch ended a monitor.
class CSTAMonitorStopEvent : public CSTA_EVENT_BASE(MonitorStopEvent), public CSTACausePart {
 public:
  static constexpr const char* kEventName = "MonitorStopEvent";
  const std::string& getMonitorCrossRefID() const { return m_crossRefId; }
  void setMonitorCrossRefID(std::string id) { m_crossRefId = std::move(id); }

 private:
  std::string m_crossRefId;
};

// A feature whose state the switch reports with a system status.
struct CSTASystemStatusFeatureData {
  std::string featureName;
  std::string action;
  std::string deactivation;
  std::string status;
  std::string availability;
  std::string buttonId;
};

// The switch's system status: one of the communicationsServiceTexts::systemState_... texts.
class CSTASystemStatusEvent : public CSTA_EVENT_BASE(SystemStatusEvent) {
 public:
  static constexpr const char* kEventName = "SystemStatusEvent";
  const std::string& getSystemStatus() const { return m_status; }
  void setSystemStatus(std::string status) { m_status = std::move(status); }
  const std::string& getSystemStatusInfo() const { return m_info; }
  void setSystemStatusInfo(std::string info) { m_info = std::move(info); }
  const CSTASystemStatusFeatureData& getSystemStatusFeatureData() const { return m_featureData; }
  void setSystemStatusFeatureData(CSTASystemStatusFeatureData data) { m_featureData = std::move(data); }

 private:
  std::string m_status;
  std::string m_info;
  CSTASystemStatusFeatureData m_featureData;
};

// A vendor event. Its private data is the switch's text; an event of type
// kPrivateEventCallLogEntry carries an entry of the switch's call log.
class CSTAPrivateEvent : public CSTA_EVENT_BASE(PrivateEvent) {
 public:
  static constexpr const char* kEventName = "PrivateEvent";
  static constexpr int kPrivateEventCallLogEntry = 0;
  static constexpr int kPrivateEventUnknown = -1;

  int getEventType() const { return m_eventType; }
  void setEventType(int type) { m_eventType = type; }
  const CallLogEntryEvent& getCallLogEntry() const { return m_callLogEntry; }
  void setCallLogEntry(const CallLogEntryEvent& entry) { m_callLogEntry = entry; }

 private:
  int m_eventType = kPrivateEventUnknown;
  CallLogEntryEvent m_callLogEntry;
};

#undef CSTA_EVENT_BASE

#pragma GCC visibility pop
