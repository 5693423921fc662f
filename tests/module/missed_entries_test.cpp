// Missed calls filed under their party: merges, duplicates, the list limit, forward echoes, removal.
#include <gtest/gtest.h>

#include "Items.h"
#include "JournalHarness.h"
#include "RecordingObserver.h"
#include "framework/JournalServiceHelper.h"

namespace {

using Calls = std::vector<std::string>;

class MissedEntries : public ::testing::Test {
 protected:
  // Anna Berg is in the phonebook under her business number 100 and her mobile 101.
  void start(const std::string& softwareType) {
    phone.mgmt.setValue("software-type", softwareType);
    phone.store.setReply("<storeReply><result>ok</result><lastUniqueId>41</lastUniqueId></storeReply>");
    Contact anna;
    anna.setSurname("Berg");
    anna.setFirstname("Anna");
    for (auto [number, type] : {std::make_pair("100", NumberType::NT_BUSINESS), {"101", NumberType::NT_MOBILE}}) {
      anna.setNumber(number);
      anna.setNumberType(type);
      phone.directory.add(anna);
    }
    phone.start();
    phone.service->refreshCallLog();
    phone.service->subscribe(&observer);
    observer.take();
  }
  // A missed call from `number` at `time` seconds (or at the switch's `timeText`).
  bool missed(const std::string& id, const std::string& number, long time, const std::string& timeText = "",
              bool completedElsewhere = false) {
    return phone.service->newMissedCallEntry(id, number, "Net " + number, time, CallLogEntryEvent::LT_MISSED,
                                             CallLogEntryEvent::PV_SHOWN, CallLogEntryEvent::PV_SHOWN,
                                             CallLogEntryEvent::PV_NONE, "", CallLogEntryEvent::PV_NONE, "", timeText,
                                             CallLogEntryEvent::TF_LOCAL, completedElsewhere);
  }
  std::deque<MissedCallItem>& list() { return phone.peer().missedList(); }

  JournalHarness phone;
  RecordingObserver observer;
};

TEST_F(MissedEntries, KpxFilesByPartyMergesAndRefusesARepeatedOccurrence) {
  start("Velmora KPX");
  EXPECT_TRUE(missed("E1", "100", -1, "2024-03-05T10:00:00"));
  EXPECT_TRUE(missed("E2", "555", -1, "2024-03-05T10:01:00"));
  ASSERT_EQ(list().size(), 2u);
  // The phonebook's name, else the network's; stamped with the store's id.
  EXPECT_EQ(list()[1].getSurname() + "|" + list()[0].getSurname() + "|" + list()[0].getUniqueId(), "Berg|Net 555|41");
  EXPECT_EQ(observer.take(), (Calls{"missedCount 1", "missed E1||0", "missedCount 2", "missed E2||0"}));

  EXPECT_FALSE(missed("E3", "100", -1, "2024-03-05T10:00:00"));  // the same occurrence again
  EXPECT_TRUE(observer.take().empty());
  EXPECT_TRUE(missed("E4", "101", -1, "2024-03-05T10:02:00"));  // Anna on her mobile: same person
  ASSERT_EQ(list().size(), 2u);
  EXPECT_TRUE(list()[0].getEntryId() == "E1" && list()[0].infos().size() == 2u);
  EXPECT_EQ(observer.take(), (Calls{"missedCount 2", "missed E1|41|1"}));
}

TEST_F(MissedEntries, SipMergesEveryDeliveryAndResetsViewed) {
  start("Velmora SIP");
  missed("E1", "555", 1000);
  list()[0].setViewed(true);
  missed("E2", "555", 1000);
  ASSERT_EQ(list().size(), 1u);
  EXPECT_TRUE(list()[0].infos().size() == 2u && !list()[0].getViewed());
  EXPECT_EQ(list()[0].infos().front().logTarget, CallLogEntryEvent::LT_RECEIVED);  // SIP ignores switch log data
}

TEST_F(MissedEntries, CallsCompletedElsewhereAndForwardEchoesAreNotFiled) {
  start("Velmora KPX");
  phone.peer().setMissedLogging(false);
  EXPECT_TRUE(missed("E1", "555", -1, "", true));
  EXPECT_TRUE(list().empty());

  // Within 5 s of a forward a missed call is the forward's echo.
  phone.peer().setServerBasedFeatures(true);
  phone.peer().forwardedList() = {makeEntry<ForwardedCallItem>("F1", "555", "2024-03-05T07:08:00")};
  const long now = JournalService::getCurrentTimeSec();
  for (long ago : {3L, 6L}) {
    phone.peer().setLastForwardedTimeSec(now - ago);
    EXPECT_TRUE(missed("E" + std::to_string(ago), "555", now));
    EXPECT_EQ(list().size(), ago == 3 ? 0u : 1u) << ago;
    EXPECT_EQ(phone.peer().lastMissedTimeSec(), ago == 3 ? -1 : now) << ago;
  }
}

TEST_F(MissedEntries, AFullListDropsItsOldestAndReusesItsStorageRecord) {
  start("Velmora KPX");
  for (int n = 0; n < 1000; ++n) {
    list().push_back(
        makeEntry<MissedCallItem>("M" + std::to_string(n), std::to_string(2000 + n), "2024-03-01T10:00:00"));
    list().back().setUniqueId(std::to_string(n + 1));
  }
  missed("E-new", "555", -1, "2024-03-05T10:00:00");
  ASSERT_EQ(list().size(), 1000u);
  EXPECT_EQ(list().back().getEntryId(), "M998");
  EXPECT_EQ(list().front().getUniqueId(), "41");  // written under "1000", stamped with the reply's id
  EXPECT_NE(phone.store.requests().back().find("&lt;uniqueId&gt;1000&lt;/uniqueId&gt;"), std::string::npos);
  EXPECT_EQ(observer.take().back(), "missed E-new|1000|0");
}

TEST_F(MissedEntries, ReachingThePartyRemovesItsEntryByAnyOccurrence) {
  start("Velmora KPX");
  missed("E1", "555", -1, "2024-03-05T10:00:00");
  missed("E2", "556", -1, "2024-03-05T10:01:00");
  list()[1].infos().push_back(list()[1].infos().front());
  list()[1].infos().back().number = "557";  // an older occurrence from another number
  observer.take();
  EXPECT_TRUE(phone.service->searchRemoveMissedCallEntry("557"));
  ASSERT_EQ(list().size(), 1u);
  EXPECT_EQ(list()[0].getEntryId(), "E2");
  EXPECT_EQ(observer.take(), (Calls{"missedCount 1", "missed |41|2"}));
  EXPECT_FALSE(phone.service->searchRemoveMissedCallEntry("557"));
}

// A search skips a list that holds no occurrence of the number: entries that came from the store,
// that a client deleted or that were filed again must all be seen.
TEST_F(MissedEntries, SearchesSeeEntriesHoweverTheListsChanged) {
  start("Velmora KPX");
  EXPECT_FALSE(phone.service->searchRemoveMissedCallEntry("555"));
  missed("E1", "555", -1, "2024-03-05T10:00:00");
  EXPECT_TRUE(phone.service->deleteMissedCall("E1"));
  EXPECT_FALSE(phone.service->searchRemoveMissedCallEntry("555"));
  missed("E2", "555", -1, "2024-03-05T10:02:00");
  EXPECT_TRUE(phone.service->searchRemoveMissedCallEntry("555"));

  std::string missedReply, receivedReply;
  JournalServiceHelper::createXMLMissedCallItemBody(makeEntry<MissedCallItem>("M1", "777", "2024-03-05T09:00:00"),
                                                    missedReply, false);
  JournalServiceHelper::createXMLReceivedCallItemBody(makeEntry<ReceivedCallItem>("R1", "778", "2024-03-05T09:00:00"),
                                                      receivedReply, false);
  phone.service->processMissedCallDbXml("<storeReply><result>ok</result>" + missedReply + "</storeReply>");
  phone.service->processReceivedCallDbXml("<storeReply><result>ok</result>" + receivedReply + "</storeReply>");
  EXPECT_TRUE(phone.service->searchRemoveMissedCallEntry("777"));
  const auto none = CallLogEntryEvent::PV_NONE;
  phone.service->newReceivedCallEntry("R2", "778", "", "", "", 1000, -1, -1, CallLogEntryEvent::LT_RECEIVED, none, none,
                                      none, "", none, "", "", CallLogEntryEvent::TF_LOCAL);
  ASSERT_EQ(phone.peer().receivedList().size(), 1u);  // merged into the loaded entry
  EXPECT_EQ(phone.peer().receivedList()[0].infos().size(), 2u);
}

}  // namespace
