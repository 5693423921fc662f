// The journal's management agent and settings: clearing the call log, reject reasons, values set at run time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ClientLists.h"
#include "CstaEventFactory.h"
#include "JournalHarness.h"
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
  // The value read for `key`, or "<none>" when it was not populated.
  std::string get(const std::string& key) {
    ManageableData data;
    data.setRootId(key);
    phone.service->getData(data);
    std::string value;
    return data.interogate(key, value) ? value : "<none>";
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
  void deliver(std::unique_ptr<CSTAEvent> event) { phone.service->deliverEvent(event.get()); }
  // A call from `party` that the user answers and ends.
  void answeredCall(const std::string& callId, const std::string& party) {
    deliver(csta::delivered(callId, CSTA_LCS_Alerting, csta::dev(party), csta::dev(csta::kOwnLine)));
    deliver(csta::established(callId, csta::dev(party), csta::dev(csta::kOwnLine), csta::dev(csta::kOwnLine)));
    deliver(csta::cleared(callId));
  }

  JournalHarness phone;
};

TEST_F(ManagementData, ClearingOrDisablingTheCallLogEmptiesTheListsAndRefusedWritesCarryTheirReason) {
  start();
  phone.service->refreshCallLog();
  deliver(csta::failed("0", csta::dev("100"), csta::dev(csta::kOwnLine), EC_BUSY));  // a missed call
  deliver(csta::callBack(csta::dev("100"), CSTACallBackEvent::CB_TYPE_BUSY, CSTACallBackEvent::CB_STATE_SET));
  ASSERT_EQ(1u, missedCalls(*phone.service).size());
  EXPECT_EQ(Result(true, ""), set("clear-calllog", "true"));
  EXPECT_EQ(0u, missedCalls(*phone.service).size());
  EXPECT_EQ(1u, callBacks(*phone.service).size());  // callbacks are no call log
  answeredCall("17", "100");
  ASSERT_EQ(1u, receivedCalls(*phone.service).size());
  EXPECT_EQ(Result(true, ""), set("call-log-enabled", "false"));
  EXPECT_EQ(0u, receivedCalls(*phone.service).size());

  EXPECT_EQ(Result(false, "4: Data invalid (clear-calllog) for JournalService"), set("clear-calllog", "false"));
  EXPECT_EQ("4: Data invalid (volume) for JournalService", set("volume", "3").second);
  phone.store.clear();
  EXPECT_EQ(Result(false, "10: callLogEnabled value is not changed"), set("call-log-enabled", "false"));
  EXPECT_EQ(1u, phone.store.requests().size());  // the unchanged value is written all the same
  phone.store.setReply("failed");
  EXPECT_EQ(Result(false, ""), set("call-log-enabled", "true"));
  EXPECT_EQ("false", get("call-log-enabled"));  // the store refused it
}

// With server based features a SIP phone files the forward of a call it had not seen ring.
TEST_F(ManagementData, ServerBasedFeaturesSwitchedOnTakeEffect) {
  start("Velmora SIP");
  phone.service->refreshCallLog();
  const auto forwardOfAnUnseenCall = [&](const std::string& callId) {
    deliver(csta::diverted(callId, EC_CALL_FORWARD_IMMEDIATE, csta::dev("555"), csta::dev(csta::kOwnLine),
                           csta::dev("7000")));
  };
  forwardOfAnUnseenCall("21");
  EXPECT_EQ(0u, forwardedCalls(*phone.service).size());
  notify("server-based-features", "true");
  forwardOfAnUnseenCall("22");
  EXPECT_EQ(1u, forwardedCalls(*phone.service).size());
}

TEST_F(ManagementData, SipPhonesMonitorWithoutFilterAndPublishTheStoredSettingsOnAUserChange) {
  start("Velmora SIP", "<missedLogging>false</missedLogging>");
  EXPECT_FALSE(phone.csta.lastStartHadFilter());
  EXPECT_EQ(sent("ChangeMonitorFilter"), 0);

  RecordingObserver observer;
  phone.service->subscribe(&observer);
  observer.take();
  notify("mobility-user-data-update", "1");
  EXPECT_THAT(observer.take(), ::testing::Contains("forwarded ||3"));  // a full refresh
  std::string published;
  EXPECT_TRUE(phone.mgmt.value("missed-logging", published));
  EXPECT_EQ("1", published);  // logging off
}

}  // namespace
