// The runtime every program runs the journal module in: what it registers, the order of start and
// stop, plug-ins it refuses, and the phone's clock on manual time.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "framework/JournalRuntime.h"

namespace {

using Log = std::vector<std::string>;

// A module's service that writes what happens to it into `log`; at init it arms a one-minute
// timer and registers a management agent, as the journal does.
class LoggedService : public Service, public MgmtAgentIfc {
 public:
  explicit LoggedService(Log& log) : m_log(log) {}
  ~LoggedService() override { m_log.push_back("service deleted"); }
  void init(Context& context) override {
    m_log.push_back("init");
    for (const char* name : {"JournalServiceIfc", "LocalMgmtIfc", "ClockServiceIfc", "DataAccessServiceIfc"})
      if (context.findService(name)) found.push_back(name);
    context.createTimer(this, 60000);
    if (auto* mgmt = dynamic_cast<LocalMgmtIfc*>(context.findService("LocalMgmtIfc")))
      mgmt->registerAgent("LoggedAgent", this, true);
  }
  void shutdown() override { m_log.push_back("shutdown"); }
  void timerEvent(int) override { ++fired; }

  std::vector<std::string> found;  // the services the module found at init
  std::atomic<int> fired{0};

 private:
  Log& m_log;
};

class LoggedInvoker : public Invoker {
 public:
  explicit LoggedInvoker(Log& log) : m_log(log) {}
  ~LoggedInvoker() override { m_log.push_back("invoker deleted"); }
  // Answers with the request and who sent it.
  void handleMessage(Executable*, const char* message, int length, InvokerResponse* response) override {
    response->setResponse(std::string(message, static_cast<size_t>(length)) + " from " + response->getClientId());
    response->complete();
  }
  void initInvoker(FrameworkContext*) override { m_log.push_back("invoker initialised"); }

 private:
  Log& m_log;
};

struct Runtime : ::testing::Test {
  // A manual runtime with a logged module; the store's name stands for a service the caller gives.
  LoggedService& linkModule(fw::JournalRuntime& runtime) {
    auto service = std::make_unique<LoggedService>(log);
    LoggedService& linked = *service;
    runtime.provide("DataAccessServiceIfc", &store);
    runtime.useModule(std::move(service), std::make_unique<LoggedInvoker>(log));
    return linked;
  }
  LoggedService& startModule(fw::JournalRuntime& runtime) {
    LoggedService& service = linkModule(runtime);
    std::string error;
    EXPECT_TRUE(runtime.start(error)) << error;
    return service;
  }

  Log log;
  Service store;
};

TEST_F(Runtime, StopsWhatCallsTheModuleFirstThenTheModuleThenWhatItUsed) {
  fw::JournalRuntime runtime(fw::JournalRuntime::Clock::Manual, "2024-03-05T10:00:00");
  LoggedService& service = linkModule(runtime);
  for (const char* step : {"switch stopped", "clients stopped"})
    runtime.onStop(fw::JournalRuntime::StopPhase::BeforeModule, [this, step] { log.push_back(step); });
  for (const char* step : {"store closed", "log closed"})
    runtime.onStop(fw::JournalRuntime::StopPhase::AfterModule, [this, step] { log.push_back(step); });
  std::string error;
  ASSERT_TRUE(runtime.start(error)) << error;
  EXPECT_EQ(service.found,
            (std::vector<std::string>{"JournalServiceIfc", "LocalMgmtIfc", "ClockServiceIfc", "DataAccessServiceIfc"}));
  EXPECT_EQ(runtime.mgmt().agent("LoggedAgent"), &service);
  EXPECT_EQ(runtime.context().armedTimers(), 1u);

  runtime.stop();
  runtime.stop();  // once only
  EXPECT_EQ(log, (Log{"init", "invoker initialised", "clients stopped", "switch stopped", "shutdown", "service deleted",
                      "invoker deleted", "log closed", "store closed"}));
  EXPECT_EQ(runtime.context().findService("JournalServiceIfc"), nullptr);
  EXPECT_EQ(runtime.context().armedTimers(), 0u);
  EXPECT_EQ(runtime.mgmt().agent("LoggedAgent"), nullptr);
}

TEST_F(Runtime, AModuleNeverStartedIsDeletedWithoutItsLastWritesAndNothingStartsWithoutAModule) {
  {
    fw::JournalRuntime runtime(fw::JournalRuntime::Clock::Manual);
    linkModule(runtime);
  }
  EXPECT_EQ(log, (Log{"service deleted", "invoker deleted"}));

  fw::JournalRuntime runtime(fw::JournalRuntime::Clock::System);
  std::string error;
  EXPECT_FALSE(runtime.start(error));
  EXPECT_EQ(error, "no journal module to start");
}

TEST_F(Runtime, RequestsAreAnsweredInProcessOnceTheModuleRuns) {
  fw::JournalRuntime runtime(fw::JournalRuntime::Clock::Manual);
  linkModule(runtime);
  std::string reply = "untouched";
  EXPECT_FALSE(runtime.request("<read/>", reply));
  EXPECT_EQ(reply, "untouched");
  std::string error;
  ASSERT_TRUE(runtime.start(error)) << error;
  EXPECT_TRUE(runtime.request("<read/>", reply));
  EXPECT_EQ(reply, "<read/> from local");
}

TEST_F(Runtime, APlugInWithoutTheJournalsFactoryIsRefusedNamingTheFile) {
  fw::JournalRuntime runtime(fw::JournalRuntime::Clock::Manual);
  std::string error;
  EXPECT_FALSE(runtime.loadPlugin(FW_TEST_PLUGIN_PATH, error));
  EXPECT_EQ(error.rfind(std::string(FW_TEST_PLUGIN_PATH) + ": no journal service (", 0), 0u) << error;
  EXPECT_NE(error.find("createJournalService"), std::string::npos) << error;
  EXPECT_EQ(runtime.service(), nullptr);
}

TEST_F(Runtime, SettingTheClockFiresTheTimersDueBeforeAndRefusesWhatIsNoTime) {
  fw::JournalRuntime runtime(fw::JournalRuntime::Clock::Manual, "2024-03-05T10:00:00");
  LoggedService& service = startModule(runtime);
  std::string error;
  ASSERT_TRUE(runtime.setLocalTime("2024-03-05T10:02:00", error)) << error;
  runtime.settle();
  EXPECT_EQ(service.fired, 1);
  EXPECT_EQ(runtime.clock().formatTimeDate(runtime.clock().getCurrentTimeSec()), "2024-03-05T10:02:00");

  EXPECT_FALSE(runtime.setLocalTime("10:03", error));
  EXPECT_EQ(error, "\"10:03\" is not a time (YYYY-MM-DDThh:mm:ss)");
  EXPECT_EQ(runtime.clock().formatTimeDate(runtime.clock().getCurrentTimeSec()), "2024-03-05T10:02:00");
}

// A clock on a source of its own moves without the context's timers.
TEST_F(Runtime, AClockOnItsOwnSourceLeavesTheTimersWhereTheyAre) {
  fw::ManualTimeSource callTime;
  fw::JournalRuntime runtime(fw::JournalRuntime::Clock::Manual, "2024-03-05T10:00:00", &callTime);
  LoggedService& service = startModule(runtime);
  std::string error;
  ASSERT_TRUE(runtime.setLocalTime("2024-03-05T11:00:00", error)) << error;
  runtime.settle();
  EXPECT_EQ(service.fired, 0);
  EXPECT_EQ(callTime.nowMs(), 3600000);
  EXPECT_EQ(runtime.manualTime()->nowMs(), 0);
}

}  // namespace
