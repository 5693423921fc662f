// Client operations on the lists: what they change, send to the store and the switch, and tell each observer.
#include <gtest/gtest.h>

#include "ClientLists.h"
#include "CstaEventFactory.h"
#include "Items.h"
#include "JournalHarness.h"
#include "Printers.h"
#include "RecordingObserver.h"
#include "framework/JournalServiceHelper.h"

using Calls = std::vector<std::string>;
using E = CallLogEntryEvent;
using H = JournalServiceHelper;

namespace {

// A started KPX phone whose store accepts everything, with one subscribed observer, and lists as
// the store's replies give them (a forwarded list too, which only SIP phones read, for its operations).
class ListOperations : public ::testing::Test {
 protected:
  void SetUp() override {
    phone.store.setReply("<storeReply><result>ok</result><lastUniqueId>7</lastUniqueId></storeReply>");
    phone.start();
    phone.service->refreshCallLog();  // loads the (empty) stored lists once
    ASSERT_TRUE(phone.service->subscribe(&observer));
    const std::string t10 = "2024-03-05T10:00:00", t9 = "2024-03-05T09:00:00";
    auto viewed = makeEntry<MissedCallItem>("M2", "200", t9);
    viewed.setViewed(true);
    phone.loadAsStored(&JournalService::processMissedCallDbXml, &H::createXMLMissedCallItemBody,
                       {makeEntry<MissedCallItem>("M1", "100", t10, 2), viewed,
                        makeEntry<MissedCallItem>("M3", "300", "2024-03-05T08:00:00")});
    phone.loadAsStored(&JournalService::processDialledCallDbXml, &H::createXMLDialledCallItemBody,
                       {makeEntry<DialledCallItem>("D1", "100", t10), makeEntry<DialledCallItem>("D2", "200", t9)});
    phone.loadAsStored(&JournalService::processReceivedCallDbXml, &H::createXMLReceivedCallItemBody,
                       {makeEntry<ReceivedCallItem>("R1", "100", t10), makeEntry<ReceivedCallItem>("R2", "200", t9)});
    phone.loadAsStored(&JournalService::processForwardedCallDbXml, &H::createXMLForwardedCallItemBody,
                       {makeEntry<ForwardedCallItem>("F1", "100", t10)});
    sent();
  }
  void deliver(std::unique_ptr<CSTAEvent> event) { phone.service->deliverEvent(event.get()); }
  // The switch reports a callback set on `number`'s line: the journal names it by the number.
  void callBackSetOn(const std::string& number) {
    deliver(csta::callBack(csta::dev(number), CSTACallBackEvent::CB_TYPE_BUSY, CSTACallBackEvent::CB_STATE_SET));
  }
  // Since the last call: "<reason> <table> <number of entries>" of each store request, then the observer's calls.
  Calls sent() {
    Calls out;
    for (std::string request : phone.store.requests()) {
      std::string reason, table = request.substr(request.find("table=\"") + 7), body;
      H::getXMLValue(request, H::REASONFORMESSAGE, reason);
      int entries = 0;
      while (H::getAndRemoveXMLValue(request, H::ENTRY, body)) ++entries;
      out.push_back(reason + " " + table.substr(0, table.find('"')) + " " + std::to_string(entries));
    }
    phone.store.clear();
    for (std::string& call : observer.take()) out.push_back(std::move(call));
    return out;
  }

  JournalHarness phone{{{"software-type", "Velmora KPX"}}};
  RecordingObserver observer;
};

TEST_F(ListOperations, SingleDeletionsStoreTheDeleteAndTellObservers) {
  auto& journal = *phone.service;
  EXPECT_TRUE(journal.deleteMissedCall("M1"));
  EXPECT_TRUE(journal.deleteDialledCall("D1"));
  EXPECT_TRUE(journal.deleteReceivedCall("R1"));
  EXPECT_TRUE(journal.deleteForwardedCall("F1"));
  // M2 was viewed already; the new first dialled entry comes along.
  EXPECT_EQ(sent(), (Calls{"delete callLogMissedCalls 1", "delete callLogDialledCalls 1",
                           "delete callLogReceivedCalls 1", "delete callLogForwardedCalls 1", "missedCount 1",
                           "missed |M1|2", "dialled D2|D1|2", "received |R1|2", "forwarded |F1|2"}));
  callBackSetOn("100");
  sent();
  EXPECT_FALSE(journal.deleteMissedCall("M1"));  // M1 is unknown now: nothing stored, nobody told
  EXPECT_TRUE(journal.deleteCallBack("100"));
  EXPECT_EQ(sent(), (Calls{"callbacks |100|2", "callbackCount 0"}));  // callbacks are never stored
}

TEST_F(ListOperations, AgeingViewedMarkingAndSetDeletionsSendOneMessageAndSkipUnknownIds) {
  auto& journal = *phone.service;
  EXPECT_TRUE(journal.ageMissedCall("M3"));
  EXPECT_FALSE(journal.ageMissedCall("nobody"));
  EXPECT_EQ(sent(), (Calls{"write callLogMissedCalls 1", "missedCount 1", "missed M3||1"}));
  journal.setMissedCallListAsViewed({});
  EXPECT_EQ(Calls{}, sent());
  journal.setMissedCallListAsViewed({"M1", "M3"});  // M3 is viewed already: only M1 is written
  EXPECT_EQ(sent(), (Calls{"write callLogMissedCalls 1", "missedCount 0", "missed ||3"}));
  EXPECT_EQ(journal.countUnviewedMissedCalls(), 0u);
  journal.setMissedCallListAsViewed({"nobody"});  // names no entry: nothing written, nobody told
  EXPECT_EQ(sent(), Calls{});

  EXPECT_TRUE(journal.deleteMissedCallList(std::set<std::string>{"M1", "M3", "nobody"}));
  EXPECT_EQ(sent(), (Calls{"delete callLogMissedCalls 2", "missedCount 0", "missed ||3"}));
  const auto missed = missedCalls(journal);
  ASSERT_EQ(1u, missed.size());
  EXPECT_EQ("M2", missed.front().getEntryId());
  // A set naming no entry changes nothing: the store is sent nothing (an empty delete would empty the
  // stored table) and nobody is told.
  EXPECT_TRUE(journal.deleteDialledCallList(std::set<std::string>{"nobody"}));
  EXPECT_EQ(sent(), Calls{});
  journal.deleteDialledCallList(std::set<std::string>{"D1"});
  EXPECT_EQ(sent(), (Calls{"delete callLogDialledCalls 1", "dialled D2||3"}));

  // deleteCalls finds each id in whichever list holds it.
  EXPECT_FALSE(journal.deleteCalls({}));
  EXPECT_FALSE(journal.deleteCalls({"unknown"}));
  EXPECT_TRUE(journal.deleteCalls({"R2", "F1", "unknown"}));
  EXPECT_EQ(1u, receivedCalls(journal).size());
  EXPECT_EQ(1u, dialledCalls(journal).size());
  EXPECT_EQ(0u, forwardedCalls(journal).size());
}

TEST_F(ListOperations, DeletingCallsOfSeveralListsSendsOneMessageAndOneUpdatePerList) {
  auto& journal = *phone.service;
  EXPECT_TRUE(journal.deleteCalls({"M1", "M3", "R1", "R2", "D2", "unknown"}));
  // As the set deletions: one delete of the list's named entries, then one update of the list; the
  // dialled list lost one entry and is told of it by its id, as its single deletion tells it.
  EXPECT_EQ(sent(),
            (Calls{"delete callLogReceivedCalls 2", "delete callLogDialledCalls 1", "delete callLogMissedCalls 2",
                   "received ||3", "dialled D1|D2|2", "missedCount 0", "missed ||3"}));
  EXPECT_EQ(1u, missedCalls(journal).size());
  EXPECT_EQ(0u, receivedCalls(journal).size());
  EXPECT_EQ(1u, dialledCalls(journal).size());
  // Unviewed missed entries are counted as before: M1 and M3 went, the viewed M2 stays.
  EXPECT_EQ(0u, journal.countUnviewedMissedCalls());
}

TEST_F(ListOperations, DroppedOccurrencesAreReportedWhereTheSwitchKeepsTheCallLog) {
  phone.service->deleteMissedCall("M2");
  EXPECT_EQ(std::vector<CallLogEntryRequest>{}, phone.csta.escapes());
  phone.mgmt.setValue("system-identifier", "2");  // from now on the switch keeps the call log
  phone.mgmt.drainNotifications();
  phone.service->deleteMissedCall("M1");
  phone.service->deleteForwardedCall("F1");  // the switch keeps no forwarded list
  phone.service->deleteReceivedCallList();
  // A merge into a full dialled entry pushes its oldest occurrence out, unless its number stays.
  auto full = makeEntry<DialledCallItem>("D9", "900", "2024-03-05T10:00:00", kMaxCallInfos);
  for (const char* number : {"901", "900"}) {
    full.infos().back().number = number;
    phone.service->sendCSTACAllLogEntryDeleteRequest(full.infos(), full.infos().front());
  }
  const auto drop = [](E::_LogTarget target, const std::string& number, const std::string& time) {
    return CallLogEntryRequest(E::ACTION_DELETE, target, E::TF_LOCAL, number, E::PV_SHOWN, "2024-03-05T" + time,
                               E::PV_NONE, nullptr, E::PV_NONE, nullptr, E::PV_NONE, nullptr, E::PV_NONE, nullptr);
  };
  EXPECT_EQ(phone.csta.escapes(),  // two occurrences of M1, both received entries, the pushed-out occurrence
            (std::vector<CallLogEntryRequest>{
                drop(E::LT_MISSED, "100", "10:00:00"), drop(E::LT_MISSED, "100", "10:58:00"),
                drop(E::LT_RECEIVED, "100", "10:00:00"), drop(E::LT_RECEIVED, "200", "09:00:00"),
                drop(E::LT_DIALLED, "901", "10:50:00")}));
}

TEST_F(ListOperations, NewSubscribersGetTheirStartUpMessagesAndDoubleSubscriptionsDoubleUpdates) {
  auto& journal = *phone.service;
  RecordingObserver late, later;
  ASSERT_TRUE(journal.subscribe(&late));
  EXPECT_EQ(late.take(), (Calls{"missedCount 2", "dialled D1||3"}));  // no callbacks, no count
  callBackSetOn("100");
  observer.take();
  EXPECT_TRUE(journal.subscribe(&later));
  EXPECT_TRUE(journal.subscribe(&observer));
  EXPECT_FALSE(journal.subscribe(nullptr));
  EXPECT_EQ(later.take(), (Calls{"missedCount 2", "dialled D1||3", "callbackCount 1"}));
  journal.deleteReceivedCall("R1");
  EXPECT_EQ(observer.take(),
            (Calls{"missedCount 2", "dialled D1||3", "callbackCount 1", "received |R1|2", "received |R1|2"}));
  EXPECT_TRUE(journal.unsubscribe(&observer));
  journal.deleteReceivedCall("R2");
  EXPECT_EQ(observer.take(), Calls{"received |R2|2"});
  EXPECT_TRUE(journal.unsubscribe(&observer));
  EXPECT_FALSE(journal.unsubscribe(&observer));
}

}  // namespace
