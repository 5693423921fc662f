// Start-up of the journal service: services found by name, configuration read, logging mode,
// management agent; and the plug-in path the framework takes to load and run it.
#include <gtest/gtest.h>

#include "JournalHarness.h"
#include "LogCapture.h"
#include "ObserverNotifier.h"
#include "framework/PluginLoader.h"

namespace {

const std::map<std::string, std::string> kKpxPhone = {
    {"software-type", "Velmora KPX"}, {"mac-addr", "00:1A:2B:3C:4D:5E"}, {"system-identifier", "0"},
    {"sntp-tz-offset", "-60"},        {"daylight-save", "true"},         {"daylight-save-minutes", "60"},
    {"call-log-control", "local"},    {"reg-number", "3301"},            {"server-based-features", "true"},
};

TEST(Startup, FindsEveryServiceAndReadsTheConfiguration) {
  LogCapture log;
  JournalHarness phone(kKpxPhone);
  phone.start();
  auto peer = phone.peer();
  EXPECT_TRUE(peer.csta() == &phone.csta && peer.store() == &phone.store && peer.directory() == &phone.directory &&
              peer.localMgmt() == &phone.mgmt && peer.mobility() == &phone.mobility);
  EXPECT_EQ(JournalService::m_pClockSvc, &phone.clock);
  EXPECT_EQ(phone.service->getDigitAnalysisService(), &phone.digits);
  EXPECT_FALSE(log.contains("Cannot find"));

  EXPECT_EQ(peer.softwareType(), "Velmora KPX");
  EXPECT_EQ(peer.tzOffset(), -60);
  EXPECT_EQ(peer.daylightSaveMinutes(), 60);
  EXPECT_EQ(peer.callLogControl(), "local");
  EXPECT_EQ(peer.regNumber(), "3301");
  EXPECT_TRUE(peer.serverBasedFeatures());
  EXPECT_TRUE(log.contains("readLocalMgmtData():software-type = Velmora KPX"));

  auto* notifier = dynamic_cast<ObserverNotifier*>(peer.notifier());
  ASSERT_NE(notifier, nullptr);
  EXPECT_EQ(notifier->getService(), phone.service.get());
  EXPECT_FALSE(notifier->isSip());

  EXPECT_EQ(phone.mgmt.agent("JournalMgmtId"), phone.service.get());
  EXPECT_FALSE(peer.visitorCallLogChanged());
}

TEST(Startup, SettingsDefaultWhenValuesAreAbsentOrOff) {
  JournalHarness phone({{"daylight-save", "false"}, {"daylight-save-minutes", "60"}, {"server-based-features", "1"}});
  phone.start();
  auto peer = phone.peer();
  EXPECT_EQ(peer.daylightSaveMinutes(), 0);  // minutes count only while daylight saving is "true"
  EXPECT_EQ(peer.tzOffset(), 0);
  EXPECT_FALSE(peer.serverBasedFeatures());  // only the exact text "true" switches it on
  EXPECT_EQ(peer.softwareType(), "");
  EXPECT_EQ(peer.systemIdentifier(), 0);
}

TEST(Startup, SipSoftwareTellsTheNotifier) {
  JournalHarness phone(std::map<std::string, std::string>{{"software-type", "Velmora SIP"}});
  phone.start();
  auto* notifier = dynamic_cast<ObserverNotifier*>(phone.peer().notifier());
  ASSERT_NE(notifier, nullptr);
  EXPECT_TRUE(notifier->isSip());
  EXPECT_EQ(notifier->getService(), phone.service.get());
}

struct ModeCase {
  const char* systemIdentifier;
  bool local, server, mixed;
};

class LoggingMode : public ::testing::TestWithParam<ModeCase> {};

TEST_P(LoggingMode, DerivedFromTheSystemIdentifier) {
  const ModeCase& c = GetParam();
  JournalHarness phone(std::map<std::string, std::string>{{"system-identifier", c.systemIdentifier}});
  phone.start();
  auto peer = phone.peer();
  EXPECT_EQ(peer.localCallLog(), c.local);
  EXPECT_EQ(peer.serverCallLog(), c.server);
  EXPECT_EQ(peer.mixedCallLog(), c.mixed);
}

INSTANTIATE_TEST_SUITE_P(SystemIdentifiers, LoggingMode,
                         ::testing::Values(ModeCase{"0", true, false, false}, ModeCase{"1", true, false, true},
                                           ModeCase{"2", false, true, false}, ModeCase{"7", true, false, false}));

TEST(Startup, WithoutCstaServiceConfigurationIsNotReadButModeIsDerived) {
  JournalHarness phone(kKpxPhone, kAllServices & ~kCstaService);
  phone.start();
  auto peer = phone.peer();
  EXPECT_EQ(peer.softwareType(), "");  // the values are read with the event set-up
  EXPECT_TRUE(peer.localCallLog());
  EXPECT_EQ(phone.mgmt.agent("JournalMgmtId"), phone.service.get());
}

TEST(Startup, WithNoServicesEveryLookUpIsLoggedAndStartUpCarriesOn) {
  LogCapture log;
  JournalHarness phone(kKpxPhone, 0);
  phone.start();
  for (const char* name : {"CSTAServiceIfc", "DataAccessServiceIfc", "DirectoryServiceIfc", "LocalMgmtIfc",
                           "ClockServiceIfc", "DigitAnalysisServiceIfc"})
    EXPECT_TRUE(log.contains(std::string("Cannot find ") + name, 2)) << name;
  EXPECT_TRUE(log.contains("Cannot find mobility service", 2));
  EXPECT_EQ(JournalService::m_pClockSvc, nullptr);
  EXPECT_EQ(phone.context.armedTimers(), 0u);  // no MAC address without local management
  EXPECT_TRUE(phone.peer().localCallLog());
  EXPECT_EQ(phone.mgmt.agent("JournalMgmtId"), nullptr);
}

TEST(Startup, NullContextSkipsLookUpsAndTimers) {
  LogCapture log;
  JournalService service(nullptr);
  service.initWithContext(nullptr);
  EXPECT_TRUE(log.contains("NULL Context", 2));
  EXPECT_FALSE(log.contains("Cannot find"));
  JournalServiceTestPeer peer(service);
  EXPECT_EQ(peer.initialTimer(), -1);
  EXPECT_TRUE(peer.localCallLog());
  EXPECT_EQ(service.findService("ClockServiceIfc"), nullptr);
}

TEST(Startup, LookUpOfAServiceOfTheWrongInterfaceGivesNull) {
  JournalHarness phone({}, kAllServices & ~kClockService);
  phone.context.registerService("ClockServiceIfc", &phone.mobility);  // not a clock
  phone.start();
  EXPECT_EQ(JournalService::m_pClockSvc, nullptr);
}

TEST(Destruction, FreesTrackedCallsAndResetsTheClock) {
  JournalHarness phone;
  phone.start();
  auto peer = phone.peer();
  peer.calls()["1"] = new JournalService::Call(JournalService::Call::Incoming, "1");
  peer.calls()["2"] = new JournalService::Call(JournalService::Call::Outgoing, "2");
  EXPECT_EQ(phone.service->getNumberOfCalls(), 2);
  EXPECT_NE(JournalService::m_pClockSvc, nullptr);
  phone.context.cancelTimers(phone.service.get());
  phone.mgmt.forget(phone.service.get());
  phone.service.reset();  // the sanitizers see any call record left behind
  EXPECT_EQ(JournalService::m_pClockSvc, nullptr);
  phone.service = std::make_unique<JournalService>(nullptr);
}

TEST(CallTable, FindRemoveAndStartTime) {
  JournalHarness phone;
  phone.start();
  auto peer = phone.peer();
  auto* call = new JournalService::Call(JournalService::Call::Incoming, "77");
  EXPECT_EQ(call->state, JournalService::Call::NoState);
  EXPECT_EQ(call->startTime, phone.clock.getCurrentTimeSec());
  EXPECT_EQ(call->connectTime, -1);
  EXPECT_EQ(call->endTime, -1);
  peer.calls()["77"] = call;
  EXPECT_EQ(phone.service->findCallFromId("77"), call);
  EXPECT_EQ(phone.service->findCallFromId("78"), nullptr);
  EXPECT_FALSE(phone.service->removeCall("78"));
  EXPECT_TRUE(phone.service->removeCall("77"));
  EXPECT_EQ(phone.service->getNumberOfCalls(), 0);

  LogCapture log;
  peer.calls()["a"] = new JournalService::Call(JournalService::Call::Incoming, "a");
  peer.calls()["b"] = new JournalService::Call(JournalService::Call::Incoming, "b");
  phone.service->removeAllCalls();
  EXPECT_EQ(phone.service->getNumberOfCalls(), 0);
  EXPECT_EQ(log.count("removeAllCalls():removeAllCalls - Call removed"), 2);
}

TEST(LumaUX, VariantsFourAndThree) {
  JournalService service(nullptr);
  for (int variant : {0, 1, 2, 5}) {
    HardwareVersion::setHWSubPlatformVariant(variant);
    EXPECT_FALSE(service.isUsingLumaUX()) << variant;
  }
  for (int variant : {3, 4}) {
    HardwareVersion::setHWSubPlatformVariant(variant);
    EXPECT_TRUE(service.isUsingLumaUX()) << variant;
  }
  HardwareVersion::setHWSubPlatformVariant(0);
}

#ifdef JOURNAL_PLUGIN_PATH
// The framework's road: load the module, make the service through its factory, initialise it
// with all services and with none, destroy it.
TEST(Plugin, LoadCreateInitialiseDestroy) {
  std::string error;
  auto plugin = fw::Plugin::load(JOURNAL_PLUGIN_PATH, error);
  ASSERT_TRUE(plugin) << error;
  for (unsigned services : {unsigned(kAllServices), 0u}) {
    JournalHarness phone(kKpxPhone, services);
    std::unique_ptr<Executable> service(plugin->create<Executable>("createJournalService", &error));
    ASSERT_TRUE(service) << error;
    EXPECT_NE(dynamic_cast<JournalServiceIfc*>(service.get()), nullptr);
    EXPECT_NE(dynamic_cast<MgmtAgentIfc*>(service.get()), nullptr);
    service->init(phone.context);
    EXPECT_EQ(phone.context.armedTimers(), services ? 1u : 0u);
    if (services) {
      EXPECT_EQ(phone.mgmt.agent("JournalMgmtId"), dynamic_cast<MgmtAgentIfc*>(service.get()));
    }
    phone.context.cancelTimers(service.get());
    phone.mgmt.forget(dynamic_cast<MgmtAgentIfc*>(service.get()));
    service.reset();
  }
}
#endif

}  // namespace
