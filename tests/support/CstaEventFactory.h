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

inline std::unique_ptr<CSTAQueuedEvent> queued(const std::string& callId, CSTADeviceID calling, CSTADeviceID called) {
  auto e = std::make_unique<CSTAQueuedEvent>();
  e->setConnection(ownConnection(callId));
  e->setCallingDevice(std::move(calling));
  e->setCalledDevice(std::move(called));
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

inline std::unique_ptr<CSTAConnectionClearedEvent> cleared(const std::string& callId, CSTAEventCause cause = EC_NONE) {
  auto e = std::make_unique<CSTAConnectionClearedEvent>();
  e->setConnection(ownConnection(callId));
  e->setLocalConnectionInfo(CSTA_LCS_Null);
  e->setCause(cause);
  return e;
}

inline std::unique_ptr<CSTATransferredEvent> transferred(const std::string& callId, CSTADeviceID transferredTo,
                                                         std::string remotePartyName) {
  auto e = std::make_unique<CSTATransferredEvent>();
  e->setConnection(ownConnection(callId));
  e->setTransferredToDevice(std::move(transferredTo));
  e->setRemotePartyName(std::move(remotePartyName));
  e->setCause(EC_TRANSFER);
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

}  // namespace csta
