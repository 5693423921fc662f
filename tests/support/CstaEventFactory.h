// Builds the CSTA call events a switch sends for the phone's own line, as the CSTA service would
// from the switch's messages, for tests and benchmarks that drive the journal through
// deliverEvent. Each builder fills the fields the journal reads; the connection's device is the
// phone's own line (kOwnLine).
#pragma once

#include <memory>
#include <string>

#include "framework/CstaEvents.h"

namespace csta {

constexpr const char* kOwnLine = "3100";

inline CSTADeviceID dev(std::string number, std::string name = {}) { return {std::move(number), std::move(name)}; }

inline CSTAConnectionID ownConnection(const std::string& callId) { return {callId, dev(kOwnLine)}; }

inline std::unique_ptr<CSTAOriginatedEvent> originated(const std::string& callId, CSTADeviceID called,
                                                       CSTAEventCause cause = EC_NONE) {
  auto e = std::make_unique<CSTAOriginatedEvent>();
  e->setConnection(ownConnection(callId));
  e->setCallingDevice(dev(kOwnLine));
  e->setCalledDevice(std::move(called));
  e->setCause(cause);
  return e;
}

inline std::unique_ptr<CSTAOfferedEvent> offered(const std::string& callId, CSTADeviceID calling) {
  auto e = std::make_unique<CSTAOfferedEvent>();
  e->setConnection(ownConnection(callId));
  e->setCallingDevice(std::move(calling));
  e->setCalledDevice(dev(kOwnLine));
  return e;
}

// Alerting at the phone (incoming: local state alerting) or at the far end (outgoing: connected).
inline std::unique_ptr<CSTADeliveredEvent> delivered(const std::string& callId, CSTALocalConnectionState state,
                                                     CSTADeviceID calling, CSTADeviceID called,
                                                     CSTADeviceID alerting = {}, CSTADeviceID lastRedirection = {},
                                                     CSTAEventCause cause = EC_NONE, std::string privateData = {}) {
  auto e = std::make_unique<CSTADeliveredEvent>();
  e->setConnection(ownConnection(callId));
  e->setLocalConnectionInfo(state);
  e->setCallingDevice(std::move(calling));
  e->setCalledDevice(std::move(called));
  e->setAlertingDevice(std::move(alerting));
  e->setLastRedirectionDevice(std::move(lastRedirection));
  e->setCause(cause);
  e->setPrivateData(std::move(privateData));
  return e;
}

inline std::unique_ptr<CSTAEstablishedEvent> established(const std::string& callId, CSTADeviceID calling,
                                                         CSTADeviceID called, CSTADeviceID answering,
                                                         CSTAEventCause cause = EC_NONE) {
  auto e = std::make_unique<CSTAEstablishedEvent>();
  e->setConnection(ownConnection(callId));
  e->setLocalConnectionInfo(CSTA_LCS_Connected);
  e->setCallingDevice(std::move(calling));
  e->setCalledDevice(std::move(called));
  e->setAnsweringDevice(std::move(answering));
  e->setCause(cause);
  return e;
}

inline std::unique_ptr<CSTADivertedEvent> diverted(const std::string& callId, CSTAEventCause cause,
                                                   CSTADeviceID calling, CSTADeviceID called,
                                                   CSTADeviceID newDestination) {
  auto e = std::make_unique<CSTADivertedEvent>();
  e->setConnection(ownConnection(callId));
  e->setCause(cause);
  e->setCallingDevice(std::move(calling));
  e->setCalledDevice(std::move(called));
  e->setNewDestinationDevice(std::move(newDestination));
  return e;
}

inline std::unique_ptr<CSTAFailedEvent> failed(const std::string& callId, CSTADeviceID calling, CSTADeviceID called,
                                               CSTAEventCause cause, CSTADeviceID lastRedirection = {}) {
  auto e = std::make_unique<CSTAFailedEvent>();
  e->setConnection(ownConnection(callId));
  e->setCallingDevice(std::move(calling));
  e->setCalledDevice(std::move(called));
  e->setCause(cause);
  e->setLastRedirectionDevice(std::move(lastRedirection));
  return e;
}

// The connection of `device` (by default the phone's own) in `callId` was cleared.
inline std::unique_ptr<CSTAConnectionClearedEvent> cleared(const std::string& callId, CSTAEventCause cause = EC_NONE,
                                                           const std::string& device = kOwnLine) {
  auto e = std::make_unique<CSTAConnectionClearedEvent>();
  e->setConnection({callId, dev(device)});
  e->setLocalConnectionInfo(CSTA_LCS_Null);
  e->setCause(cause);
  return e;
}

// Call information about the connection of `device` in `callId`, with the switch's private data
// (a call status text, or anything else when it carries the party's name).
inline std::unique_ptr<CSTACallInformationEvent> callInformation(const std::string& callId, CSTADeviceID device,
                                                                 std::string privateData) {
  auto e = std::make_unique<CSTACallInformationEvent>();
  e->setConnection({callId, std::move(device)});
  e->setPrivateData(std::move(privateData));
  return e;
}

// The user joined the calls `primary` and `secondary` (each an old call with its remote party)
// into a conference that goes on in `conferenceId`.
inline std::unique_ptr<CSTAConferencedEvent> conferenced(const std::string& conferenceId, CSTAConnectionID primary,
                                                         CSTAConnectionID secondary) {
  auto e = std::make_unique<CSTAConferencedEvent>();
  e->addConferenceConnection({ownConnection(conferenceId), ownConnection(primary.callId)});
  e->setPrimaryOldCall(std::move(primary));
  e->setSecondaryOldCall(std::move(secondary));
  e->setLocalConnectionInfo(CSTA_LCS_Connected);
  e->setCause(EC_CONFERENCE);
  return e;
}

// An entry of the switch's own call log: `action` on list `target` for `party` at `time`, with the
// party that diverted the call and the one that answered it when there were. Texts that are given
// are shown; the time's field carries the number's presentation.
inline std::unique_ptr<CSTAPrivateEvent> callLogEntry(CallLogEntryEvent::_Action action,
                                                      CallLogEntryEvent::_LogTarget target, const CSTADeviceID& party,
                                                      const std::string& time, const CSTADeviceID& deflecting = {},
                                                      const CSTADeviceID& connected = {},
                                                      int eventType = CSTAPrivateEvent::kPrivateEventCallLogEntry) {
  using E = CallLogEntryEvent;
  E entry;
  entry.action = action;
  entry.logTarget = target;
  entry.subscriberNumber = party.number;
  const std::string texts[E::kFieldCount] = {
      time, party.name, deflecting.number, deflecting.name, connected.number, connected.name};
  for (int i = 0; i < E::kFieldCount; ++i)
    entry.fields[i] = {(i == E::FIELD_DATE_TIME ? party.number : texts[i]).empty() ? E::PV_NONE : E::PV_SHOWN,
                       texts[i]};
  auto e = std::make_unique<CSTAPrivateEvent>();
  e->setEventType(eventType);
  e->setCallLogEntry(entry);
  return e;
}

// A callback that the switch keeps for `party`, with the switch's type and state values.
inline std::unique_ptr<CSTACallBackEvent> callBack(CSTADeviceID party, int type, int state,
                                                   std::string deviceId = kOwnLine) {
  auto e = std::make_unique<CSTACallBackEvent>();
  e->setSubjectDeviceID(std::move(party));
  e->setDeviceID(std::move(deviceId));
  e->setCallBackType(type);
  e->setCallBackState(state);
  return e;
}

// The switch's system status, one of the communicationsServiceTexts::systemState_... texts.
inline std::unique_ptr<CSTASystemStatusEvent> systemStatus(std::string status) {
  auto e = std::make_unique<CSTASystemStatusEvent>();
  e->setSystemStatus(std::move(status));
  return e;
}

}  // namespace csta
