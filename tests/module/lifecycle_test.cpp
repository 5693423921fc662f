// The journal module as the framework loads it: created through its plug-in factory and started
// with all services or with none.
#include <gtest/gtest.h>

#include "JournalHarness.h"
#include "LogCapture.h"
#include "framework/PluginLoader.h"

namespace {

// Without services each look-up is logged and start-up goes on with no timer and no agent.
TEST(Plugin, LoadCreateInitialiseDestroy) {
  std::string error;
  auto plugin = fw::Plugin::load(JOURNAL_PLUGIN_PATH, error);
  ASSERT_TRUE(plugin) << error;
  for (unsigned services : {unsigned(kAllServices), 0u}) {
    LogCapture log;
    JournalHarness phone({{"software-type", "Velmora KPX"}, {"mac-addr", "00:1A:2B:3C:4D:5E"}}, services);
    std::unique_ptr<Executable> service(plugin->create<Executable>("createJournalService", &error));
    ASSERT_TRUE(service) << error;
    auto* agent = dynamic_cast<MgmtAgentIfc*>(service.get());
    ASSERT_NE(agent, nullptr);
    EXPECT_NE(dynamic_cast<JournalServiceIfc*>(service.get()), nullptr);
    service->init(phone.context);
    for (const char* name : {"CSTAServiceIfc", "DataAccessServiceIfc", "DirectoryServiceIfc", "LocalMgmtIfc",
                             "ClockServiceIfc", "DigitAnalysisServiceIfc", "mobility service"})
      EXPECT_EQ(log.contains(std::string("Cannot find ") + name, 2), services == 0) << name;
    EXPECT_EQ(phone.context.armedTimers(), services ? 1u : 0u);
    EXPECT_EQ(phone.mgmt.agent("JournalMgmtId"), services ? agent : nullptr);
    phone.context.cancelTimers(service.get());
    phone.mgmt.forget(agent);
    service.reset();
  }
}

}  // namespace
