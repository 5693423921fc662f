// Start-up of the journal service (services, configuration, logging mode, agent) and its plug-in path.
#include <gtest/gtest.h>

#include <tuple>

#include "JournalHarness.h"
#include "LogCapture.h"
#include "ObserverNotifier.h"
#include "framework/PluginLoader.h"

namespace {

using Values = std::map<std::string, std::string>;

const Values kKpxPhone = {
    {"software-type", "Velmora KPX"}, {"mac-addr", "00:1A:2B:3C:4D:5E"}, {"system-identifier", "0"},
    {"sntp-tz-offset", "-60"},        {"daylight-save", "true"},         {"daylight-save-minutes", "60"},
    {"call-log-control", "local"},    {"reg-number", "3301"},            {"server-based-features", "true"},
};

TEST(Startup, FindsEveryServiceAndReadsTheConfiguration) {
  JournalHarness phone(kKpxPhone);
  phone.start();
  auto peer = phone.peer();
  EXPECT_TRUE(peer.csta() == &phone.csta && peer.store() == &phone.store && peer.directory() == &phone.directory &&
              peer.localMgmt() == &phone.mgmt && peer.mobility() == &phone.mobility &&
              JournalService::m_pClockSvc == &phone.clock && phone.service->getDigitAnalysisService() == &phone.digits);
  EXPECT_EQ(peer.softwareType() + "|" + peer.callLogControl() + "|" + peer.regNumber(), "Velmora KPX|local|3301");
  EXPECT_EQ(std::make_tuple(peer.tzOffset(), peer.daylightSaveMinutes(), peer.serverBasedFeatures()),
            std::make_tuple(-60, 60, true));
  auto* notifier = dynamic_cast<ObserverNotifier*>(peer.notifier());
  EXPECT_TRUE(notifier && notifier->getService() == phone.service.get() && !notifier->isSip());
  EXPECT_EQ(phone.mgmt.agent("JournalMgmtId"), phone.service.get());
}

TEST(Startup, SettingsDefaultWhenAbsentOrOffAndSipSoftwareTellsTheNotifier) {
  JournalHarness phone(Values{{"software-type", "Velmora SIP"}, {"daylight-save", "false"},
                              {"daylight-save-minutes", "60"}, {"server-based-features", "1"}});
  phone.start();
  auto peer = phone.peer();
  // Minutes count only while daylight saving is "true"; only the exact text "true" switches features on.
  EXPECT_EQ(std::make_tuple(peer.daylightSaveMinutes(), peer.tzOffset(), peer.serverBasedFeatures(),
                            peer.systemIdentifier()),
            std::make_tuple(0, 0, false, 0));
  auto* notifier = dynamic_cast<ObserverNotifier*>(peer.notifier());
  EXPECT_TRUE(notifier && notifier->isSip() && notifier->getService() == phone.service.get());
}

TEST(Startup, LoggingModeFollowsTheSystemIdentifier) {
  // The identifier, then whether the call log is local, on the server, mixed.
  const std::tuple<const char*, bool, bool, bool> modes[] = {
      {"0", true, false, false}, {"1", true, false, true}, {"2", false, true, false}, {"7", true, false, false}};
  for (const auto& [identifier, local, server, mixed] : modes) {
    JournalHarness phone(Values{{"system-identifier", identifier}});
    phone.start();
    auto peer = phone.peer();
    EXPECT_EQ(std::make_tuple(peer.localCallLog(), peer.serverCallLog(), peer.mixedCallLog()),
              std::make_tuple(local, server, mixed))
        << identifier;
  }
}

TEST(Startup, WithoutCstaConfigurationIsNotReadAndAServiceOfTheWrongInterfaceIsNotTaken) {
  JournalHarness phone(kKpxPhone, kAllServices & ~kCstaService & ~kClockService);
  phone.context.registerService("ClockServiceIfc", &phone.mobility);  // not a clock
  phone.start();
  EXPECT_EQ(phone.peer().softwareType(), "");  // the values are read with the event set-up
  EXPECT_TRUE(phone.peer().localCallLog());    // but the mode is derived
  EXPECT_EQ(phone.mgmt.agent("JournalMgmtId"), phone.service.get());
  EXPECT_EQ(JournalService::m_pClockSvc, nullptr);
}

TEST(Startup, NullContextSkipsLookUpsAndTimers) {
  LogCapture log;
  JournalService service(nullptr);
  service.initWithContext(nullptr);
  EXPECT_TRUE(log.contains("NULL Context", 2));
  EXPECT_FALSE(log.contains("Cannot find"));
  EXPECT_TRUE(JournalServiceTestPeer(service).initialTimer() == -1 && JournalServiceTestPeer(service).localCallLog());
  EXPECT_EQ(service.findService("ClockServiceIfc"), nullptr);
}

TEST(CallTable, FindRemoveAndDestructionFreeTheCallsAndResetTheClock) {
  JournalHarness phone;
  phone.start();
  auto peer = phone.peer();
  auto* call = new JournalService::Call(JournalService::Call::Incoming, "77");
  EXPECT_EQ(std::make_tuple(call->state, call->startTime, call->connectTime, call->endTime),
            std::make_tuple(JournalService::Call::NoState, phone.clock.getCurrentTimeSec(), -1L, -1L));
  peer.calls()["77"] = call;
  EXPECT_TRUE(phone.service->findCallFromId("77") == call && phone.service->findCallFromId("78") == nullptr);
  EXPECT_TRUE(!phone.service->removeCall("78") && phone.service->removeCall("77"));
  EXPECT_EQ(phone.service->getNumberOfCalls(), 0);

  LogCapture log;
  for (const char* id : {"a", "b"}) peer.calls()[id] = new JournalService::Call(JournalService::Call::Incoming, id);
  phone.service->removeAllCalls();
  EXPECT_EQ(phone.service->getNumberOfCalls(), 0);
  EXPECT_EQ(log.count("removeAllCalls():removeAllCalls - Call removed"), 2);
  for (const char* id : {"c", "d"}) peer.calls()[id] = new JournalService::Call(JournalService::Call::Outgoing, id);
  phone.context.cancelTimers(phone.service.get());
  phone.mgmt.forget(phone.service.get());
  phone.service.reset();
  EXPECT_EQ(log.count("removeAllCalls():removeAllCalls - Call removed"), 4);
  EXPECT_EQ(JournalService::m_pClockSvc, nullptr);
  phone.service = std::make_unique<JournalService>(nullptr);
}

TEST(LumaUX, OnlyVariantsThreeAndFour) {
  JournalService service(nullptr);
  for (int variant = 0; variant <= 5; ++variant) {
    HardwareVersion::setHWSubPlatformVariant(variant);
    EXPECT_EQ(service.isUsingLumaUX(), variant == 3 || variant == 4) << variant;
  }
  HardwareVersion::setHWSubPlatformVariant(0);
}

#ifdef JOURNAL_PLUGIN_PATH
// Load the module, create the service, initialise it with all services and with none, destroy it.
// Without services each look-up is logged and start-up goes on with no timer and no agent.
TEST(Plugin, LoadCreateInitialiseDestroy) {
  std::string error;
  auto plugin = fw::Plugin::load(JOURNAL_PLUGIN_PATH, error);
  ASSERT_TRUE(plugin) << error;
  for (unsigned services : {unsigned(kAllServices), 0u}) {
    LogCapture log;
    JournalHarness phone(kKpxPhone, services);
    std::unique_ptr<Executable> service(plugin->create<Executable>("createJournalService", &error));
    ASSERT_TRUE(service) << error;
    auto* agent = dynamic_cast<MgmtAgentIfc*>(service.get());
    EXPECT_TRUE(dynamic_cast<JournalServiceIfc*>(service.get()) != nullptr && agent != nullptr);
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
#endif

}  // namespace
