// Call records through their states: refused transitions, direction conflicts, records that stay
// or go, and which list a finished call lands in on each switch flavour.
#include <gtest/gtest.h>

#include "CstaEventFactory.h"
#include "JournalHarness.h"
#include "RecordingObserver.h"

namespace {

using namespace csta;
using Call = JournalService::Call;

class CallTracking : public ::testing::Test {
 protected:
  void start(const std::string& softwareType) {
    phone.mgmt.setValue("software-type", softwareType);
    phone.start();
  }
  void deliver(std::unique_ptr<CSTAEvent> event) { phone.service->deliverEvent(event.get()); }
  Call* call(const std::string& id) { return phone.service->findCallFromId(id); }
  // Sizes of the missed, received, dialled and forwarded lists, as "m r d f".
  std::string lists() {
    auto p = phone.peer();
    return std::to_string(p.missedList().size()) + " " + std::to_string(p.receivedList().size()) + " " +
           std::to_string(p.dialledList().size()) + " " + std::to_string(p.forwardedList().size());
  }
  void ringIn(const std::string& id, const std::string& from) {
    deliver(delivered(id, CSTA_LCS_Alerting, dev(from, "Net " + from), dev(kOwnLine)));
  }

  JournalHarness phone;
};

TEST_F(CallTracking, StatesOnlyMoveForwardAndAConflictingDirectionEndsTheRecord) {
  start("Velmora KPX");
  ringIn("7", "200");
  ASSERT_NE(call("7"), nullptr);
  EXPECT_EQ(call("7")->state, Call::Delivered);
  deliver(established("7", dev("200"), dev(kOwnLine), dev(kOwnLine)));
  EXPECT_EQ(call("7")->state, Call::Established);
  EXPECT_NE(call("7")->connectTime, -1);
  ringIn("7", "200");  // ringing again after the answer is refused
  EXPECT_EQ(call("7")->state, Call::Established);
  // A later marking as missed is still taken (7 > 3).
  phone.service->onCallEvent(call("7"), Call::MarkedMissed, Call::Incoming, "7");
  EXPECT_EQ(call("7")->state, Call::MarkedMissed);

  ringIn("8", "201");
  deliver(delivered("8", CSTA_LCS_Connected, dev(kOwnLine), dev("201")));  // outgoing: ambiguous
  EXPECT_EQ(call("8"), nullptr);
  EXPECT_EQ(lists(), "0 0 0 0");
}

TEST_F(CallTracking, EventsThatMakeNoRecord) {
  start("Velmora KPX");
  deliver(cleared("9"));  // the end of a call never seen
  deliver(delivered("", CSTA_LCS_Alerting, dev("200"), dev(kOwnLine)));
  deliver(delivered("10", CSTA_LCS_Alerting, dev("200"), dev(kOwnLine), {}, {}, EC_NONE,
                    communicationsServiceTexts::content_callstatus_ReminderCall));
  deliver(originated("11", dev("300"), EC_DEST_NOT_OBTAINABLE));
  deliver(originated("12", dev("300"), EC_DO_NOT_DISTURB));
  EXPECT_EQ(phone.service->getNumberOfCalls(), 0);
  // A failure without a call of its own is filed at once and leaves nothing behind.
  deliver(failed("0", dev("200"), dev(kOwnLine), EC_BUSY));
  EXPECT_EQ(phone.service->getNumberOfCalls(), 0);
  EXPECT_EQ(lists(), "1 0 0 0");
}

TEST_F(CallTracking, SipOutgoingCallDivertedToTheDialledNumberKeepsItsRecord) {
  start("Velmora SIP");
  deliver(originated("30", dev("400")));
  ASSERT_NE(call("30"), nullptr);
  EXPECT_EQ(call("30")->dialled, "400");
  deliver(diverted("30", EC_CALL_FORWARD_NO_ANSWER, dev(kOwnLine), dev("400"), dev("401")));
  ASSERT_NE(call("30"), nullptr);
  EXPECT_EQ(lists(), "0 0 0 0");
  deliver(cleared("30"));
  EXPECT_EQ(call("30"), nullptr);
  EXPECT_EQ(lists(), "0 0 1 0");
}

TEST_F(CallTracking, PickedUpCallIsTreatedAsIncomingAndEstablishedTwice) {
  start("Velmora SIP");
  deliver(originated("40", dev("500"), EC_CALL_PICKUP));
  ASSERT_NE(call("40"), nullptr);
  EXPECT_TRUE(call("40")->treatAsIncoming);
  deliver(established("40", dev("500"), dev(kOwnLine), dev("500", "Eve"), EC_CALL_PICKUP));
  const long first = call("40")->connectTime;
  phone.advance(3000);
  deliver(established("40", dev("500"), dev(kOwnLine), dev("500", "Eve"), EC_CALL_PICKUP));
  EXPECT_EQ(call("40")->connectTime, first + 3);  // the flag wins over "already established"
  deliver(cleared("40"));
  EXPECT_EQ(lists(), "0 1 0 0");
}

TEST_F(CallTracking, SipDivertedEventOfAnUnknownCallNeedsServerBasedFeatures) {
  start("Velmora SIP");
  deliver(diverted("50", EC_CALL_FORWARD_IMMEDIATE, dev("600"), dev(kOwnLine), dev("700")));
  EXPECT_EQ(lists(), "0 0 0 0");
  phone.peer().setServerBasedFeatures(true);
  deliver(diverted("50", EC_CALL_FORWARD_IMMEDIATE, dev("600"), dev(kOwnLine), dev("700")));
  EXPECT_EQ(lists(), "0 0 0 1");
  EXPECT_EQ(phone.service->getNumberOfCalls(), 0);
}

// Calling back a party that had called: the party's missed entry goes before the dialled entry is
// announced, and observers hear of both in that order.
TEST_F(CallTracking, TalkedCallBackRemovesTheMissedEntryAndAnnouncesItFirst) {
  start("Velmora KPX");
  ringIn("60", "200");
  deliver(cleared("60"));
  RecordingObserver screen;
  phone.service->subscribe(&screen);
  screen.take();
  deliver(originated("61", dev("200")));
  deliver(delivered("61", CSTA_LCS_Connected, dev(kOwnLine), dev("200")));
  deliver(established("61", dev(kOwnLine), dev("200"), dev("200")));
  phone.advance(2000);
  deliver(cleared("61"));
  const auto calls = screen.take();
  ASSERT_EQ(calls.size(), 3u);
  EXPECT_EQ(calls[0], "missedCount 0");
  EXPECT_EQ(calls[1].rfind("missed |", 0), 0u) << calls[1];  // no item: the entry was removed
  EXPECT_EQ(calls[2].rfind("dialled ", 0), 0u) << calls[2];
  EXPECT_EQ(lists(), "0 0 1 0");
}

}  // namespace
