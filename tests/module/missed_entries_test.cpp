// Missed calls filed under their party: repeated occurrences, merges, removal by any occurrence.
#include <gtest/gtest.h>

#include "Items.h"
#include "JournalHarness.h"
#include "RecordingObserver.h"
#include "framework/JournalServiceHelper.h"

namespace {

using Calls = std::vector<std::string>;

class MissedEntries : public ::testing::Test {
 protected:
  // Anna Berg is in the phonebook under number 100.
  void start(const std::string& softwareType) {
    phone.mgmt.setValue("software-type", softwareType);
    phone.store.setReply("<storeReply><result>ok</result><lastUniqueId>41</lastUniqueId></storeReply>");
    Contact anna;
    anna.setSurname("Berg");
    anna.setNumber("100");
    anna.setNumberType(NumberType::NT_BUSINESS);
    phone.directory.add(anna);
    phone.start();
    phone.service->refreshCallLog();
    phone.service->subscribe(&observer);
    observer.take();
  }
  // A missed call from `number` at `time` seconds (or at the switch's `timeText`).
  bool missed(const std::string& id, const std::string& number, long time, const std::string& timeText = "") {
    return phone.service->newMissedCallEntry(id, number, "Net " + number, time, CallLogEntryEvent::LT_MISSED,
                                             CallLogEntryEvent::PV_SHOWN, CallLogEntryEvent::PV_SHOWN,
                                             CallLogEntryEvent::PV_NONE, "", CallLogEntryEvent::PV_NONE, "", timeText,
                                             CallLogEntryEvent::TF_LOCAL, false);
  }
  std::deque<MissedCallItem>& list() { return phone.peer().missedList(); }

  JournalHarness phone;
  RecordingObserver observer;
};

// The phonebook's name, else the network's; the same occurrence of a party again is refused.
TEST_F(MissedEntries, KpxRefusesARepeatedOccurrence) {
  start("Velmora KPX");
  EXPECT_TRUE(missed("E1", "100", -1, "2024-03-05T10:00:00"));
  EXPECT_TRUE(missed("E2", "555", -1, "2024-03-05T10:01:00"));
  observer.take();
  EXPECT_FALSE(missed("E3", "100", -1, "2024-03-05T10:00:00"));
  EXPECT_EQ(observer.take(), Calls{});
  ASSERT_EQ(list().size(), 2u);
  EXPECT_EQ(list()[1].infos().size(), 1u);
  EXPECT_EQ(list()[1].getSurname(), "Berg");
  EXPECT_EQ(list()[0].getSurname(), "Net 555");
}

TEST_F(MissedEntries, SipMergesEveryDeliveryAndResetsViewed) {
  start("Velmora SIP");
  missed("E1", "555", 1000);
  list()[0].setViewed(true);
  missed("E2", "555", 1000);
  ASSERT_EQ(list().size(), 1u);
  EXPECT_EQ(list()[0].infos().size(), 2u);
  EXPECT_FALSE(list()[0].getViewed());
  EXPECT_EQ(list()[0].infos().front().logTarget, CallLogEntryEvent::LT_RECEIVED);  // SIP ignores switch log data
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
