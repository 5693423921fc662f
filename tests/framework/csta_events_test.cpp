// CSTA events: double dispatch of every event type, the devices, causes and states they carry, the
// conference connections and the private event's call-log entry.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "framework/CstaEvents.h"

void PrintTo(const CSTADeviceID& device, std::ostream* os) { *os << device.number << " '" << device.name << "'"; }

namespace {

// Every event class, the handler it must reach and its name.
#define EVENT_TABLE(X)                                                                                           \
  X(CSTAServiceInitiatedEvent, handleCSTAServiceInitiatedEvent, "ServiceInitiatedEvent")                         \
  X(CSTAOriginatedEvent, handleCSTAOriginatedEvent, "OriginatedEvent")                                           \
  X(CSTAOfferedEvent, handleCSTAOfferedEvent, "OfferedEvent")                                                    \
  X(CSTADeliveredEvent, handleCSTADeliveredEvent, "DeliveredEvent")                                              \
  X(CSTABridgedEvent, handleCSTABridgedEvent, "BridgedEvent")                                                    \
  X(CSTADivertedEvent, handleCSTADivertedEvent, "DivertedEvent")                                                 \
  X(CSTAEstablishedEvent, handleCSTAEstablishedEvent, "EstablishedEvent")                                        \
  X(CSTAHeldEvent, handleCSTAHeldEvent, "HeldEvent")                                                             \
  X(CSTARetrievedEvent, handleCSTARetrievedEvent, "RetrievedEvent")                                              \
  X(CSTATransferredEvent, handleCSTATransferredEvent, "TransferredEvent")                                        \
  X(CSTAConnectionClearedEvent, handleCSTAConnectionClearedEvent, "ConnectionClearedEvent")                      \
  X(CSTAButtonPressEvent, handleCSTAButtonPressEvent, "ButtonPressEvent")                                        \
  X(CSTAHookswitchEvent, handleCSTAHookswitchEvent, "HookswitchEvent")                                           \
  X(CSTAServiceCompletionFailureEvent, handleCSTAServiceCompletionFailureEvent, "ServiceCompletionFailureEvent") \
  X(CSTAFailedEvent, handleCSTAFailedEvent, "FailedEvent")                                                       \
  X(CSTASwitchingFunctionDevicesEvent, handleCSTASwitchingFunctionDevices, "SwitchingFunctionDevicesEvent")      \
  X(CSTABackInServiceEvent, handleCSTABackInServiceEvent, "BackInServiceEvent")                                  \
  X(CSTAOutOfServiceEvent, handleCSTAOutOfServiceEvent, "OutOfServiceEvent")                                     \
  X(CSTAMonitorStopEvent, handleCSTAMonitorStopEvent, "MonitorStopEvent")                                        \
  X(CSTASystemStatusEvent, handleCSTASystemStatusEvent, "SystemStatusEvent")                                     \
  X(CSTAMessageWaitingEvent, handleCSTAMessageWaitingEvent, "MessageWaitingEvent")                               \
  X(CSTAForwardingEvent, handleCSTAForwardingEvent, "ForwardingEvent")                                           \
  X(CSTADoNotDisturbEvent, handleCSTADoNotDisturbEvent, "DoNotDisturbEvent")                                     \
  X(CSTAAgentLoggedOffEvent, handleCSTAAgentLoggedOffEvent, "AgentLoggedOffEvent")                               \
  X(CSTAAgentLoggedOnEvent, handleCSTAAgentLoggedOnEvent, "AgentLoggedOnEvent")                                  \
  X(CSTAAgentNotReadyEvent, handleCSTAAgentNotReadyEvent, "AgentNotReadyEvent")                                  \
  X(CSTAAgentReadyEvent, handleCSTAAgentReadyEvent, "AgentReadyEvent")                                           \
  X(CSTAAgentWorkingAfterCallEvent, handleCSTAAgentWorkingAfterCallEvent, "AgentWorkingAfterCallEvent")          \
  X(CSTAConferencedEvent, handleCSTAConferencedEvent, "ConferencedEvent")                                        \
  X(CSTANetworkReachedEvent, handleCSTANetworkReachedEvent, "NetworkReachedEvent")                               \
  X(CSTAConferenceMembershipEvent, handleCSTAConferenceMembershipEvent, "ConferenceMembershipEvent")             \
  X(CSTADisplayUpdatedEvent, handleCSTADisplayUpdatedEvent, "DisplayUpdatedEvent")                               \
  X(CSTACallInformationEvent, handleCSTACallInformationEvent, "CallInformationEvent")                            \
  X(CSTAQueuedEvent, handleCSTAQueuedEvent, "QueuedEvent")                                                       \
  X(CSTAPrivateEvent, handleCSTAPrivateEvent, "PrivateEvent")                                                    \
  X(CSTABusyLampFieldEvent, handleCSTABusyLampFieldEvent, "BusyLampFieldEvent")                                  \
  X(CSTAButtonInformationEvent, handleCSTAButtonInformationEvent, "ButtonInformationEvent")                      \
  X(CSTACallBackEvent, handleCSTACallBackEvent, "CallBackEvent")

// Records every handler call with the event it got.
class RecordingObserver : public CSTAEventObserverBase {
 public:
  std::vector<std::pair<std::string, const CSTAEvent*>> calls;
#define RECORD(Class, Handler, Name) \
  void Handler(Class* event) override { calls.emplace_back(#Handler, event); }
  EVENT_TABLE(RECORD)
#undef RECORD
};

struct Row {
  const char* handler;
  const char* name;
  std::function<std::unique_ptr<CSTAEvent>()> make;
};

TEST(CstaEvents, EveryEventReachesExactlyItsOwnHandlerAndNamesItself) {
#define ROW(Class, Handler, Name) {#Handler, Name, [] { return std::unique_ptr<CSTAEvent>(new Class); }},
  const std::vector<Row> rows = {EVENT_TABLE(ROW)};
#undef ROW
  ASSERT_EQ(rows.size(), 38u);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    RecordingObserver observer;
    const std::unique_ptr<CSTAEvent> event = row.make();
    event->dispatch(observer);
    ASSERT_EQ(observer.calls.size(), 1u);
    EXPECT_EQ(observer.calls[0].first, row.handler);
    EXPECT_EQ(observer.calls[0].second, event.get());
    EXPECT_STREQ(event->eventName(), row.name);
  }
}

// Reads a device getter with number and name outputs.
template <class Event, class Getter>
CSTADeviceID device(const Event& event, Getter getter) {
  CSTADeviceID d;
  (event.*getter)(d.number, d.name);
  return d;
}

TEST(CstaEvents, DeviceGettersGiveEachDeviceItsOwnNumberAndName) {
  const CSTADeviceID calling{"3301", "Anna"}, called{"3302", "Ben"}, other{"3303", "Cleo"}, last{"3304", "Dan"};
  CSTADeliveredEvent delivered;
  delivered.setCallingDevice(calling);
  delivered.setCalledDevice(called);
  delivered.setAlertingDevice(other);
  delivered.setLastRedirectionDevice(last);
  EXPECT_EQ(device(delivered, &CSTADeliveredEvent::getCallingDevice), calling);
  EXPECT_EQ(device(delivered, &CSTADeliveredEvent::getCalledDevice), called);
  EXPECT_EQ(device(delivered, &CSTADeliveredEvent::getAlertingDevice), other);
  EXPECT_EQ(device(delivered, &CSTADeliveredEvent::getLastRedirectionDevice), last);

  CSTAConferencedEvent conferenced;
  conferenced.setPrimaryOldCall({"A1", calling});
  conferenced.setSecondaryOldCall({"A2", called});
  EXPECT_EQ(device(conferenced, &CSTAConferencedEvent::getPrimaryoldcallDeviceID), calling);
  EXPECT_EQ(device(conferenced, &CSTAConferencedEvent::getSecondaryoldcallDeviceID), called);

  CSTACallInformationEvent information;
  information.setConnection({"FF000100000000002D65C85C1C750000", other});
  EXPECT_EQ(information.getConnectionCallID(), "FF000100000000002D65C85C1C750000");
  EXPECT_EQ(CSTADeviceID({information.getConnectionDeviceID(), information.getConnectionDeviceIDName()}), other);
}

TEST(CstaEvents, CausesAndLocalConnectionStatesCarryTheirEcmaNumbers) {
  // clang-format off
  const std::vector<int> causes = {
      EC_ACTIVE_PARTICIPATION, EC_CALL_FORWARD_IMMEDIATE, EC_CALL_FORWARD_BUSY, EC_CALL_FORWARD_NO_ANSWER,
      EC_CALL_FORWARD, EC_CALL_PICKUP, EC_DEST_NOT_OBTAINABLE, EC_DO_NOT_DISTURB, EC_INCOMPATIBLE_DESTINATION,
      EC_NEW_CALL, EC_RESOURCES_NOT_AVAILABLE, EC_VOICE_UNIT_INITIATOR, EC_BLOCKED, EC_DURATION_EXCEEDED,
      EC_NORMAL_CLEARING, EC_UNAUTHORISED_BEARER_SERVICE};
  // clang-format on
  EXPECT_EQ(causes, std::vector<int>({1, 6, 7, 8, 9, 11, 13, 14, 15, 22, 30, 34, 35, 40, 48, 87}));
  const std::vector<int> states = {CSTA_LCS_Null, CSTA_LCS_Initiated, CSTA_LCS_Alerting, CSTA_LCS_Connected,
                                   CSTA_LCS_Hold, CSTA_LCS_Queued,    CSTA_LCS_Fail};
  EXPECT_EQ(states, std::vector<int>({0, 1, 2, 3, 4, 5, 6}));

  CSTAEstablishedEvent event;  // an event the switch sent without them says so
  EXPECT_EQ(event.getCause(), EC_NONE);
  EXPECT_EQ(event.getLocalConnectionInfo(), CSTA_LCS_None);
}

TEST(CstaEvents, ConferenceConnectionsCountFromOneAndNameTheConferenceCall) {
  CSTAConferencedEvent event;
  EXPECT_EQ(event.getConferenceCallID(), "");
  event.addConferenceConnection({{"C7", {"3301", ""}}, {"A1", {"3301", ""}}});
  event.addConferenceConnection({{"C8", {"3302", ""}}, {"A2", {"3302", ""}}});
  EXPECT_EQ(event.getConferenceconnectionsNewconnectionCallID(1), "C7");
  EXPECT_EQ(event.getConferenceconnectionsNewconnectionCallID(2), "C8");
  EXPECT_EQ(event.getConferenceconnectionsNewconnectionCallID(0) + event.getConferenceconnectionsNewconnectionCallID(3),
            "");
  EXPECT_EQ(event.getConferenceCallID(), "C7");  // none set: the first connection's new call
  event.setConferenceCallID("C9");
  EXPECT_EQ(event.getConferenceCallID(), "C9");
}

TEST(CstaEvents, PrivateEventCarriesItsOwnCopyOfTheCallLogEntry) {
  CallLogEntryEvent entry;
  entry.action = CallLogEntryEvent::ACTION_DELETE;
  entry.logTarget = CallLogEntryEvent::LT_DIALLED_OTHER;
  entry.timeFormat = CallLogEntryEvent::TF_UTC;
  entry.subscriberNumber = "3301";
  for (int i = 0; i < CallLogEntryEvent::kFieldCount; ++i)
    entry.fields[i] = {i % 2 ? CallLogEntryEvent::PV_RESTRICTED : CallLogEntryEvent::PV_SHOWN,
                       "text" + std::to_string(i)};

  CSTAPrivateEvent event;
  EXPECT_NE(event.getEventType(), CSTAPrivateEvent::kPrivateEventCallLogEntry);  // no entry unless set
  event.setEventType(CSTAPrivateEvent::kPrivateEventCallLogEntry);
  event.setCallLogEntry(entry);
  const CallLogEntryEvent sent = entry;
  entry.subscriberNumber = "9999";
  const CallLogEntryEvent received = CSTAPrivateEvent(event).getCallLogEntry();
  EXPECT_TRUE(received == sent);
  EXPECT_EQ(received.field(CallLogEntryEvent::FIELD_CONNECTED_NAME).text, "text5");
  CallLogEntryEvent lastFieldDiffers = sent;
  lastFieldDiffers.fields[CallLogEntryEvent::kFieldCount - 1].presentation = CallLogEntryEvent::PV_NONE;
  EXPECT_FALSE(lastFieldDiffers == sent);
}

}  // namespace
