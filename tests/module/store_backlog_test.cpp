// Changes the store refused wait and are written in order when it works again: the store is not
// asked again for each change while it is known to fail, a retry on the service's timer finds it
// working, an entry whose write failed gets a row of its own, and its health is shown.
#include <gtest/gtest.h>

#include "ClientLists.h"
#include "Items.h"
#include "JournalHarness.h"
#include "LogCapture.h"
#include "RecordingObserver.h"
#include "framework/JournalServiceHelper.h"

namespace {

using H = JournalServiceHelper;
using Lines = std::vector<std::string>;

const std::string kStored = "<storeReply><result>ok</result><lastUniqueId>9</lastUniqueId></storeReply>";

class StoreBacklog : public ::testing::Test {
 protected:
  void SetUp() override {
    phone.store.setReply(kStored);
    phone.start();
    phone.service->refreshCallLog();
    phone.service->subscribe(&observer);
    phone.store.clear();
  }
  void missed(const std::string& id, const std::string& number, const std::string& time) {
    phone.service->newMissedCallEntry(id, number, "", -1, CallLogEntryEvent::LT_MISSED, CallLogEntryEvent::PV_SHOWN,
                                      CallLogEntryEvent::PV_SHOWN, CallLogEntryEvent::PV_NONE, "",
                                      CallLogEntryEvent::PV_NONE, "", time, CallLogEntryEvent::TF_LOCAL, false);
  }
  // Since the last call: "<reason> <entry id>[#<unique id>] ..." per store request ("<reason> -" for none).
  Lines sent() {
    Lines out;
    for (std::string request : phone.store.requests()) {
      std::string reason, body, line;
      H::getXMLValue(request, H::REASONFORMESSAGE, reason);
      line = reason;
      while (H::getAndRemoveXMLValue(request, H::ENTRY, body)) {
        MissedCallItem item;
        H::parseXMLItemBody(body, item);
        line += " " + item.getEntryId() + (item.getUniqueId().empty() ? "" : "#" + item.getUniqueId());
      }
      out.push_back(line == reason ? reason + " -" : line);
    }
    phone.store.clear();
    return out;
  }
  std::string storeState() {
    ManageableData data("store-state");
    phone.service->getData(data);
    std::string value;
    data.interogate("store-state", value);
    return value;
  }

  JournalHarness phone{{{"software-type", "Velmora KPX"}}};
  RecordingObserver observer;
};

TEST_F(StoreBacklog, ChangesWaitWithoutAskingTheStoreAndAreWrittenInOrderOnceARetryFindsItWorking) {
  LogCapture log;
  missed("A", "100", "2024-03-05T10:00:00");
  missed("B", "200", "2024-03-05T10:01:00");
  ASSERT_EQ(sent(), (Lines{"write A", "write B"}));
  observer.take();

  phone.store.setReply("failed");
  missed("C", "300", "2024-03-05T10:02:00");  // refused: the store is down from here on
  missed("D", "400", "2024-03-05T10:03:00");
  missed("C2", "300", "2024-03-05T10:04:00");  // C again: merged, moved to the front
  EXPECT_TRUE(phone.service->deleteMissedCall("A"));
  EXPECT_TRUE(phone.service->deleteMissedCall("D"));  // never stored: nothing to delete
  EXPECT_EQ(sent(), (Lines{"write C"}));
  EXPECT_EQ(observer.take().size(), 10u);  // the count and the entry of all five changes, at once
  EXPECT_EQ(storeState(), "failing since 2024-03-05T07:08:09: 2 changes not stored yet");
  EXPECT_EQ(phone.service->storeHealth().waitingChanges, 2u);  // A's row to delete, C to write

  phone.advance(999);
  EXPECT_EQ(Lines{}, sent());
  phone.advance(1);  // the first retry finds the store failing still: the next waits twice as long
  EXPECT_EQ(sent(), (Lines{"write -"}));
  phone.store.setReply(kStored);
  phone.advance(1999);
  EXPECT_EQ(Lines{}, sent());
  phone.advance(1);
  // Deletions first, then the entries as they are now, oldest first; C gets a row of its own.
  EXPECT_EQ(sent(), (Lines{"write -", "delete A#9", "write C"}));
  EXPECT_EQ("9", missedCalls(*phone.service).front().getUniqueId());
  EXPECT_EQ(storeState(), "ok");
  EXPECT_EQ(log.count("the store fails"), 1);
  EXPECT_TRUE(log.contains("the store works again: 2 changes written", fw::kLogError));

  missed("E", "500", "2024-03-05T10:05:00");  // straight to the store again
  EXPECT_EQ(sent(), (Lines{"write E"}));
}

TEST_F(StoreBacklog, AListWithChangesNotStoredIsNotReplacedByTheStoredOneAndAStopTriesOnceMore) {
  missed("A", "100", "2024-03-05T10:00:00");
  phone.store.setReply("failed");
  missed("B", "200", "2024-03-05T10:01:00");
  sent();
  phone.service->refreshCallLog();  // the missed list keeps B; the other lists are read
  EXPECT_EQ(2u, missedCalls(*phone.service).size());
  EXPECT_EQ(sent(), (Lines{"read -", "read -", "read -"}));  // dialled, received, settings

  phone.store.setReply(kStored);
  phone.service->shutdown();
  EXPECT_EQ(sent(), (Lines{"write -", "write B"}));
  EXPECT_EQ(storeState(), "ok");
}

}  // namespace
