// Every CSTA event dispatches itself to its own handler of the observer and names itself.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "framework/CstaEvents.h"

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
  for (const auto& [name, event] : rows) {
    RecordingObserver observer;
    event->dispatch(observer);
    EXPECT_EQ(observer.calls, decltype(observer.calls)({{name, event.get()}}));  // one call, to the right handler
    EXPECT_EQ(event->eventName(), name + "Event");
  }
}

}  // namespace
