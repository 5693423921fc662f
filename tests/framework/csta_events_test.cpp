#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "framework/CstaEvents.h"

void PrintTo(const CSTADeviceID& device, std::ostream* os) { *os << device.number << " '" << device.name << "'"; }

namespace {

// Every event type N: class CSTA<N>Event, handler handleCSTA<N>Event (but SwitchingFunctionDevices).
// clang-format off
#define EVENTS(X) X(ServiceInitiated) X(Originated) X(Offered) X(Delivered) X(Bridged) X(Diverted) X(Established) \
  X(Held) X(Retrieved) X(Transferred) X(ConnectionCleared) X(ButtonPress) X(Hookswitch) X(ServiceCompletionFailure) \
  X(Failed) X(BackInService) X(OutOfService) X(MonitorStop) X(SystemStatus) X(MessageWaiting) X(Forwarding)        \
  X(DoNotDisturb) X(AgentLoggedOff) X(AgentLoggedOn) X(AgentNotReady) X(AgentReady) X(AgentWorkingAfterCall)       \
  X(Conferenced) X(NetworkReached) X(ConferenceMembership) X(DisplayUpdated) X(CallInformation) X(Queued)          \
  X(Private) X(BusyLampField) X(ButtonInformation) X(CallBack)
// clang-format on

// Records every handler call: the type it handles and the event it got.
struct RecordingObserver : CSTAEventObserverBase {
  std::vector<std::pair<std::string, const CSTAEvent*>> calls;
#define RECORD_AS(Handler, N) \
  void Handler(CSTA##N##Event* event) override { calls.emplace_back(#N, event); }
#define RECORD(N) RECORD_AS(handleCSTA##N##Event, N)
  EVENTS(RECORD) RECORD_AS(handleCSTASwitchingFunctionDevices, SwitchingFunctionDevices)
#undef RECORD
#undef RECORD_AS
};

TEST(CstaEvents, EveryEventReachesExactlyItsOwnHandlerAndNamesItself) {
  using Row = std::pair<std::string, std::shared_ptr<CSTAEvent>>;
#define ROW(N) Row(#N, std::make_shared<CSTA##N##Event>()),
  const std::vector<Row> rows = {EVENTS(ROW) ROW(SwitchingFunctionDevices)};
#undef ROW
  ASSERT_EQ(rows.size(), 38u);
  for (const auto& [name, event] : rows) {
    RecordingObserver observer;
    event->dispatch(observer);
    EXPECT_EQ(observer.calls, decltype(observer.calls)({{name, event.get()}}));  // one call, to the right handler
    EXPECT_EQ(event->eventName(), name + "Event");
  }
}

TEST(CstaEvents, DeviceGettersGiveEachDeviceItsOwnNumberAndName) {
  const CSTADeviceID calling{"3301", "Anna"}, called{"3302", "Ben"}, other{"3303", "Cleo"}, last{"3304", "Dan"};
  auto device = [](const auto& event, auto getter) {
    CSTADeviceID d;
    (event.*getter)(d.number, d.name);
    return d;
  };
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
  EXPECT_EQ(std::vector<int>({EC_ACTIVE_PARTICIPATION, EC_CALL_FORWARD_IMMEDIATE, EC_CALL_FORWARD_BUSY,
                              EC_CALL_FORWARD_NO_ANSWER, EC_CALL_FORWARD, EC_CALL_PICKUP, EC_DEST_NOT_OBTAINABLE,
                              EC_DO_NOT_DISTURB, EC_INCOMPATIBLE_DESTINATION, EC_NEW_CALL, EC_RESOURCES_NOT_AVAILABLE,
                              EC_VOICE_UNIT_INITIATOR, EC_BLOCKED, EC_DURATION_EXCEEDED, EC_NORMAL_CLEARING,
                              EC_UNAUTHORISED_BEARER_SERVICE}),
            std::vector<int>({1, 6, 7, 8, 9, 11, 13, 14, 15, 22, 30, 34, 35, 40, 48, 87}));
  EXPECT_EQ(std::vector<int>({CSTA_LCS_Null, CSTA_LCS_Initiated, CSTA_LCS_Alerting, CSTA_LCS_Connected, CSTA_LCS_Hold,
                              CSTA_LCS_Queued, CSTA_LCS_Fail}),
            std::vector<int>({0, 1, 2, 3, 4, 5, 6}));
  CSTAEstablishedEvent event;  // an event the switch sent without them says so
  EXPECT_EQ(event.getCause(), EC_NONE);
  EXPECT_EQ(event.getLocalConnectionInfo(), CSTA_LCS_None);
}

TEST(CstaEvents, ConferenceConnectionsCountFromOneAndNameTheConferenceCall) {
  CSTAConferencedEvent event;
  EXPECT_EQ(event.getConferenceCallID(), "");
  event.addConferenceConnection({{"C7", {"3301", ""}}, {"A1", {"3301", ""}}});
  event.addConferenceConnection({{"C8", {"3302", ""}}, {"A2", {"3302", ""}}});
  std::string ids;
  for (int i = 0; i <= 3; ++i) ids += "[" + event.getConferenceconnectionsNewconnectionCallID(i) + "]";
  EXPECT_EQ(ids, "[][C7][C8][]");
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
  entry = sent;
  entry.fields[CallLogEntryEvent::kFieldCount - 1].presentation = CallLogEntryEvent::PV_NONE;
  EXPECT_FALSE(entry == sent);  // the comparison reaches the last field
}

}  // namespace
