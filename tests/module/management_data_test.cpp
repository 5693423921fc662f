// The journal's management agent and settings: key coding, reject reasons, stored and observed values.
#include <gtest/gtest.h>

#include "Items.h"
#include "JournalHarness.h"
#include "LogCapture.h"
#include "RecordingObserver.h"

namespace {

using Result = std::pair<bool, std::string>;

class ManagementData : public ::testing::Test {
 protected:
  void start(const std::string& software = "Velmora KPX", const std::string& settings = "") {
    phone.mgmt.setValue("software-type", software);
    phone.store.setReply("<storeReply><result>ok</result>" + settings + "</storeReply>");
    phone.start();
  }
  // The value read for keys[at] when all `keys` are read at once, or "<none>" when it was not populated.
  std::string get(const std::vector<std::string>& keys, size_t at = 0) {
    ManageableData data;
    for (const auto& key : keys) data.setRootId(key);
    phone.service->getData(data);
    std::string value;
    return data.interogate(keys[at], value) ? value : "<none>";
  }
  // Writes one key; returns the result and its reject reason (empty when none).
  Result set(const std::string& key, const std::string& value) {
    ManageableData data;
    data.populate(key, value);
    bool result = phone.service->setData(data);
    return {result, data.getRejectReasons().empty() ? "" : data.getRejectReasons().front().reason};
  }
  void notify(const std::string& key, const std::string& value) {
    phone.mgmt.setValue(key, value);
    phone.mgmt.drainNotifications();
  }
  long sent(const std::string& request) {
    auto sent = phone.csta.sent();
    return std::count(sent.begin(), sent.end(), request);
  }

  JournalHarness phone;
};

TEST_F(ManagementData, MissedLoggingIsCodedTheOtherWayRoundAndAnUnknownKeyStopsARead) {
  start();
  EXPECT_EQ(get({"missed-logging"}), "0");  // logging on
  EXPECT_EQ(set("missed-logging", "1"), Result(true, ""));
  EXPECT_FALSE(phone.peer().missedLogging());
  EXPECT_EQ(get({"missed-logging"}), "1");
  EXPECT_EQ(set("delete-missed-when-called", "1"), Result(true, ""));
  EXPECT_EQ(get({"delete-missed-when-called"}), "1");
  EXPECT_EQ(set("delete-missed-when-called", "yes"), Result(true, ""));  // anything but "1" is off
  EXPECT_FALSE(phone.peer().deleteMissedWhenCalled());
  EXPECT_EQ(get({"clear-calllog"}), "false");
  EXPECT_EQ(get({"call-log-enabled", "unknown", "missed-logging"}), "true");
  EXPECT_EQ(get({"call-log-enabled", "unknown", "missed-logging"}, 2), "<none>");
}

TEST_F(ManagementData, ClearingOrDisablingTheCallLogEmptiesTheListsAndRefusedWritesCarryTheirReason) {
  start();
  phone.service->refreshCallLog();
  phone.peer().missedList() = {makeEntry<MissedCallItem>("M1", "100", "2024-03-05T10:00:00")};
  phone.peer().callBackList() = {makeCallBack("C1", "100")};
  EXPECT_EQ(set("clear-calllog", "true"), Result(true, ""));
  EXPECT_TRUE(phone.peer().missedList().empty());
  EXPECT_EQ(phone.peer().callBackList().size(), 1u);
  phone.peer().receivedList() = {makeEntry<ReceivedCallItem>("R1", "100", "2024-03-05T10:00:00")};
  EXPECT_EQ(set("call-log-enabled", "false"), Result(true, ""));
  EXPECT_TRUE(phone.peer().receivedList().empty());

  EXPECT_EQ(set("clear-calllog", "false"), Result(false, "4: Data invalid (clear-calllog) for JournalService"));
  EXPECT_EQ(set("volume", "3").second, "4: Data invalid (volume) for JournalService");
  phone.store.clear();
  EXPECT_EQ(set("call-log-enabled", "false"), Result(false, "10: callLogEnabled value is not changed"));
  EXPECT_EQ(phone.store.requests().size(), 1u);  // the unchanged value is written all the same
  phone.store.setReply("failed");
  EXPECT_EQ(set("call-log-enabled", "true"), Result(false, ""));
  EXPECT_FALSE(phone.peer().callLogEnabled());  // the store refused it
}

TEST_F(ManagementData, CallLogAccessStartsAndStopsTheMonitorAndObservedValuesAreReadAgain) {
  LogCapture log;
  start();
  EXPECT_TRUE(phone.service->eventsStarted());
  EXPECT_TRUE(phone.csta.lastStartHadFilter());
  notify("disable-access-calllog", "1");
  EXPECT_FALSE(phone.service->eventsStarted());
  notify("disable-access-calllog", "2");
  EXPECT_TRUE(log.contains("Events already stopped"));
  notify("disable-access-calllog", "0");
  EXPECT_TRUE(phone.service->eventsStarted());
  EXPECT_TRUE(phone.peer().listsLoaded());  // the refresh that follows
  notify("disable-access-calllog", "7");
  EXPECT_EQ(sent("MonitorStart"), 2);
  EXPECT_EQ(sent("MonitorStop"), 1);
  EXPECT_EQ(sent("ChangeMonitorFilter"), 1);

  phone.peer().setVisitorCallLogChanged(true);
  phone.mgmt.setValue("server-based-features", "true");
  phone.mgmt.setValue("mobility-current-user", "alice");
  notify("system-identifier", "2");
  EXPECT_TRUE(phone.peer().serverBasedFeatures());
  EXPECT_TRUE(phone.peer().serverCallLog());
  EXPECT_FALSE(phone.peer().visitorCallLogChanged());
}

TEST_F(ManagementData, SipPhonesMonitorWithoutFilterAndPublishTheStoredSettingsOnAUserChange) {
  start("Velmora SIP", "<missedLogging>false</missedLogging>");
  EXPECT_FALSE(phone.csta.lastStartHadFilter());
  EXPECT_EQ(sent("ChangeMonitorFilter"), 0);

  RecordingObserver observer;
  phone.service->subscribe(&observer);
  observer.take();
  notify("mobility-user-data-update", "1");
  auto calls = observer.take();
  EXPECT_NE(std::find(calls.begin(), calls.end(), "forwarded ||3"), calls.end());  // a full refresh
  std::string published;
  EXPECT_TRUE(phone.mgmt.value("missed-logging", published));
  EXPECT_EQ(published, "1");  // logging off
}

}  // namespace
