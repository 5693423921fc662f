// Client operations on the lists: what they change, send to the store and the switch, and tell each observer.
#include <gtest/gtest.h>

#include "Items.h"
#include "JournalHarness.h"
#include "RecordingObserver.h"
#include "framework/JournalServiceHelper.h"

using Calls = std::vector<std::string>;
using Helper = JournalServiceHelper;

namespace {

// A started KPX phone whose store accepts everything, with one subscribed observer.
class ListOperations : public ::testing::Test {
 protected:
  void SetUp() override {
    phone.store.setReply("<storeReply><result>ok</result><lastUniqueId>7</lastUniqueId></storeReply>");
    phone.start();
    phone.service->refreshCallLog();  // loads the (empty) stored lists once
    ASSERT_TRUE(phone.service->subscribe(&observer));
    auto peer = phone.peer();
    peer.missedList() = {makeEntry<MissedCallItem>("M1", "100", "2024-03-05T10:00:00", 2),
                         makeEntry<MissedCallItem>("M2", "200", "2024-03-05T09:00:00"),
                         makeEntry<MissedCallItem>("M3", "300", "2024-03-05T08:00:00")};
    peer.missedList()[1].setViewed(true);
    peer.dialledList() = {makeEntry<DialledCallItem>("D1", "100", "2024-03-05T10:00:00"),
                          makeEntry<DialledCallItem>("D2", "200", "2024-03-05T09:00:00")};
    peer.receivedList() = {makeEntry<ReceivedCallItem>("R1", "100", "2024-03-05T10:00:00"),
                           makeEntry<ReceivedCallItem>("D2", "200", "2024-03-05T09:00:00")};
    peer.forwardedList() = {makeEntry<ForwardedCallItem>("F1", "100", "2024-03-05T10:00:00")};
    observer.take();
    phone.store.clear();
  }
  // "<reason> <table> <number of entries>" of each store request since the last call.
  Calls storeRequests() {
    Calls out;
    for (const std::string& request : phone.store.requests()) {
      std::string reason, table = request.substr(request.find("table=\"") + 7);
      Helper::getXMLValue(request, Helper::REASONFORMESSAGE, reason);
      size_t entries = 0;
      for (size_t at = request.find("<entry>"); at != std::string::npos; at = request.find("<entry>", at + 1)) ++entries;
      out.push_back(reason + " " + table.substr(0, table.find('"')) + " " + std::to_string(entries));
    }
    phone.store.clear();
    return out;
  }

  JournalHarness phone{{{"software-type", "Velmora KPX"}}};
  RecordingObserver observer;
};

TEST_F(ListOperations, SingleDeletionsStoreTheDeleteAndTellObservers) {
  EXPECT_TRUE(phone.service->deleteMissedCall("M1"));
  EXPECT_EQ(observer.take(), (Calls{"missedCount 1", "missed |M1|2"}));  // M2 was viewed already
  EXPECT_TRUE(phone.service->deleteDialledCall("D1"));
  EXPECT_EQ(observer.take(), Calls{"dialled D2|D1|2"});  // the new first entry comes along
  EXPECT_TRUE(phone.service->deleteReceivedCall("R1"));
  EXPECT_TRUE(phone.service->deleteForwardedCall("F1"));
  EXPECT_EQ(observer.take(), (Calls{"received |R1|2", "forwarded |F1|2"}));
  EXPECT_EQ(storeRequests(), (Calls{"delete callLogMissedCalls 1", "delete callLogDialledCalls 1",
                                    "delete callLogReceivedCalls 1", "delete callLogForwardedCalls 1"}));

  EXPECT_FALSE(phone.service->deleteMissedCall("M1"));  // unknown now: nothing stored, nobody told
  phone.peer().callBackList() = {makeCallBack("C1", "100")};
  EXPECT_TRUE(phone.service->deleteCallBack("C1"));
  EXPECT_TRUE(storeRequests().empty());  // callbacks are never stored
  EXPECT_EQ(observer.take(), (Calls{"callbacks |C1|2", "callbackCount 0"}));
}

TEST_F(ListOperations, SetDeletionsSendOneMessageAndSkipUnknownIds) {
  EXPECT_TRUE(phone.service->deleteMissedCallList(std::set<std::string>{"M1", "M3", "nobody"}));
  EXPECT_EQ(storeRequests(), Calls{"delete callLogMissedCalls 2"});
  EXPECT_EQ(observer.take(), (Calls{"missedCount 0", "missed ||3"}));
  ASSERT_EQ(phone.peer().missedList().size(), 1u);
  EXPECT_EQ(phone.peer().missedList().front().getEntryId(), "M2");

  // An empty delete would empty the stored table: a set naming no entry sends nothing.
  phone.service->deleteDialledCallList(std::set<std::string>{"nobody"});
  EXPECT_TRUE(storeRequests().empty());
  phone.service->deleteDialledCallList(std::set<std::string>{"D1"});
  EXPECT_EQ(storeRequests(), Calls{"delete callLogDialledCalls 1"});
  EXPECT_EQ(observer.take(), (Calls{"dialled D1||3", "dialled D2||3"}));

  // deleteCalls tries the received, dialled, missed and forwarded lists in turn.
  EXPECT_FALSE(phone.service->deleteCalls({}));
  EXPECT_TRUE(phone.service->deleteCalls({"D2", "F1", "unknown"}));
  EXPECT_EQ(phone.peer().receivedList().size(), 1u);  // D2 went from the received list only
  EXPECT_EQ(phone.peer().dialledList().size(), 1u);
  EXPECT_TRUE(phone.peer().forwardedList().empty());
  EXPECT_FALSE(phone.service->deleteCalls({"unknown"}));
}

TEST_F(ListOperations, AgeingAndViewedMarkingWriteTheNamedEntries) {
  EXPECT_TRUE(phone.service->ageMissedCall("M3"));
  EXPECT_EQ(storeRequests(), Calls{"write callLogMissedCalls 1"});
  EXPECT_EQ(observer.take(), (Calls{"missedCount 1", "missed M3||1"}));
  EXPECT_FALSE(phone.service->ageMissedCall("nobody"));

  phone.service->setMissedCallListAsViewed({});
  EXPECT_TRUE(storeRequests().empty());
  EXPECT_TRUE(observer.take().empty());
  phone.service->setMissedCallListAsViewed({"M1", "M3"});
  EXPECT_EQ(storeRequests(), Calls{"write callLogMissedCalls 2"});
  EXPECT_EQ(observer.take(), (Calls{"missedCount 0", "missed ||3"}));
  EXPECT_EQ(phone.service->countUnviewedMissedCalls(), 0u);
  phone.service->setMissedCallListAsViewed({"nobody"});  // still one (empty) write and a notification
  EXPECT_EQ(storeRequests(), Calls{"write callLogMissedCalls 0"});
  EXPECT_EQ(observer.take(), (Calls{"missedCount 0", "missed ||3"}));
}

TEST_F(ListOperations, DroppedOccurrencesAreReportedWhereTheSwitchKeepsTheCallLog) {
  phone.service->deleteMissedCall("M2");
  EXPECT_TRUE(phone.csta.escapes().empty());

  phone.peer().setServerCallLog(true);
  phone.service->deleteMissedCall("M1");
  phone.service->deleteForwardedCall("F1");  // the switch keeps no forwarded list
  phone.service->deleteReceivedCallList();
  auto escapes = phone.csta.escapes();
  ASSERT_EQ(escapes.size(), 4u);  // two occurrences of M1, two received entries
  EXPECT_EQ(escapes[0].action, CallLogEntryEvent::ACTION_DELETE);
  EXPECT_EQ(escapes[0].logTarget, CallLogEntryEvent::LT_MISSED);
  EXPECT_EQ(escapes[0].subscriberNumber, "100");
  EXPECT_EQ(escapes[0].fields[0].text, "2024-03-05T10:00:00");
  EXPECT_EQ(escapes[0].fields[0].presentation, CallLogEntryEvent::PV_SHOWN);
  EXPECT_EQ(escapes[1].fields[0].text, "2024-03-05T10:58:00");
  EXPECT_EQ(escapes[3].logTarget, CallLogEntryEvent::LT_RECEIVED);
  EXPECT_EQ(escapes[3].fields[1].presentation, CallLogEntryEvent::PV_NONE);

  // A merge into a full dialled entry pushes its oldest occurrence out, unless its number stays.
  auto full = makeEntry<DialledCallItem>("D9", "900", "2024-03-05T10:00:00", kMaxCallInfos);
  full.infos().back().number = "901";
  phone.service->sendCSTACAllLogEntryDeleteRequest(full.infos(), full.infos().front());
  ASSERT_EQ(phone.csta.escapes().size(), 5u);
  EXPECT_EQ(phone.csta.escapes().back().subscriberNumber, "901");
  EXPECT_EQ(phone.csta.escapes().back().logTarget, CallLogEntryEvent::LT_DIALLED);
  full.infos().back().number = "900";
  phone.service->sendCSTACAllLogEntryDeleteRequest(full.infos(), full.infos().front());
  EXPECT_EQ(phone.csta.escapes().size(), 5u);
}

TEST_F(ListOperations, NewSubscribersGetTheirStartUpMessagesAndDoubleSubscriptionsDoubleUpdates) {
  RecordingObserver late, later;
  ASSERT_TRUE(phone.service->subscribe(&late));
  EXPECT_EQ(late.take(), (Calls{"missedCount 2", "dialled D1||3"}));  // no callbacks, no count
  phone.peer().callBackList() = {makeCallBack("C1", "100")};
  phone.service->subscribe(&later);
  EXPECT_EQ(later.take(), (Calls{"missedCount 2", "dialled D1||3", "callbackCount 1"}));
  EXPECT_FALSE(phone.service->subscribe(nullptr));

  phone.service->subscribe(&observer);
  observer.take();
  phone.service->deleteReceivedCall("R1");
  EXPECT_EQ(observer.take(), (Calls{"received |R1|2", "received |R1|2"}));
  EXPECT_TRUE(phone.service->unsubscribe(&observer));
  phone.service->deleteReceivedCall("D2");
  EXPECT_EQ(observer.take(), Calls{"received |D2|2"});
  EXPECT_TRUE(phone.service->unsubscribe(&observer));
  EXPECT_FALSE(phone.service->unsubscribe(&observer));
}

TEST_F(ListOperations, FullRefreshesAndClearingAllListsIncludeForwardedCallsOnSipPhonesOnly) {
  auto peer = phone.peer();
  peer.notifier()->updateAll(4);
  EXPECT_EQ(observer.take(), (Calls{"missedCount 4", "missed ||3", "dialled D1||3", "received ||3", "callbacks ||3",
                                    "callbackCount 0"}));
  peer.notifier()->updateAllExceptCallbacks(4);
  EXPECT_EQ(observer.take(), (Calls{"missedCount 4", "missed ||3", "dialled ||3", "received ||3", "forwarded ||3"}));

  peer.callBackList() = {makeCallBack("C1", "100")};
  EXPECT_TRUE(phone.service->deleteCallLists());
  EXPECT_EQ(storeRequests(),
            (Calls{"delete callLogMissedCalls 0", "delete callLogDialledCalls 0", "delete callLogReceivedCalls 0"}));
  EXPECT_EQ(observer.take(), (Calls{"missedCount 0", "missed ||3", "dialled ||3", "received ||3"}));
  EXPECT_TRUE(peer.missedList().empty() && peer.dialledList().empty() && peer.receivedList().empty());
  EXPECT_EQ(peer.forwardedList().size(), 1u);
  EXPECT_EQ(peer.callBackList().size(), 1u);  // callbacks are kept

  peer.setSoftwareType("Velmora SIP");
  peer.notifier()->init(phone.service.get(), "Velmora SIP");
  phone.service->deleteCallLists();
  EXPECT_TRUE(peer.forwardedList().empty());
  EXPECT_EQ(storeRequests().back(), "delete callLogForwardedCalls 0");
  EXPECT_EQ(observer.take().back(), "forwarded ||3");
  peer.notifier()->updateAll(0);
  EXPECT_EQ(observer.take().at(4), "forwarded ||3");
}

}  // namespace
