// Missed entries found by any occurrence's number, however the lists changed.
#include <gtest/gtest.h>

#include "ClientLists.h"
#include "Items.h"
#include "JournalHarness.h"
#include "RecordingObserver.h"
#include "framework/JournalServiceHelper.h"

namespace {

using Calls = std::vector<std::string>;

// A KPX phone whose store accepts everything, with one subscribed observer.
class MissedEntries : public ::testing::Test {
 protected:
  void SetUp() override {
    phone.store.setReply("<storeReply><result>ok</result><lastUniqueId>41</lastUniqueId></storeReply>");
    phone.start();
    phone.service->refreshCallLog();
    phone.service->subscribe(&observer);
  }
  // A missed call from `number` at `time`.
  void missed(const std::string& id, const std::string& number, const std::string& time) {
    phone.service->newMissedCallEntry(id, number, "Net " + number, -1, CallLogEntryEvent::LT_MISSED,
                                      CallLogEntryEvent::PV_SHOWN, CallLogEntryEvent::PV_SHOWN,
                                      CallLogEntryEvent::PV_NONE, "", CallLogEntryEvent::PV_NONE, "", time,
                                      CallLogEntryEvent::TF_LOCAL, false);
  }

  JournalHarness phone{{{"software-type", "Velmora KPX"}}};
  RecordingObserver observer;
};

Contact phonebookContact(const std::string& number, const std::string& surname, const std::string& firstname) {
  Contact contact;
  contact.setNumber(number);
  contact.setSurname(surname);
  contact.setFirstname(firstname);
  contact.setNumberType(NumberType::NT_MOBILE);
  return contact;
}

TEST_F(MissedEntries, ReachingThePartyRemovesItsEntryByAnyOccurrence) {
  // Anna is in the phonebook under two numbers: her calls from both make one entry.
  phone.directory.add(phonebookContact("556", "Berg", "Anna"));
  phone.directory.add(phonebookContact("557", "Berg", "Anna"));
  missed("E1", "555", "2024-03-05T10:00:00");
  missed("E2", "557", "2024-03-05T10:01:00");
  missed("E3", "556", "2024-03-05T10:02:00");
  ASSERT_EQ(2u, missedCalls(*phone.service).size());
  observer.take();
  EXPECT_TRUE(phone.service->searchRemoveMissedCallEntry("557"));  // the older occurrence of Anna's entry
  ASSERT_EQ(1u, missedCalls(*phone.service).size());
  EXPECT_EQ("E1", missedCalls(*phone.service)[0].getEntryId());
  EXPECT_EQ((Calls{"missedCount 1", "missed |41|2"}), observer.take());
  EXPECT_FALSE(phone.service->searchRemoveMissedCallEntry("557"));
}

// A search skips a list that holds no occurrence of the number: entries that came from the store,
// that a client deleted or that were filed again must all be seen.
TEST_F(MissedEntries, SearchesSeeEntriesHoweverTheListsChanged) {
  EXPECT_FALSE(phone.service->searchRemoveMissedCallEntry("555"));
  missed("E1", "555", "2024-03-05T10:00:00");
  EXPECT_TRUE(phone.service->deleteMissedCall("E1"));
  EXPECT_FALSE(phone.service->searchRemoveMissedCallEntry("555"));
  missed("E2", "555", "2024-03-05T10:02:00");
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
  ASSERT_EQ(1u, receivedCalls(*phone.service).size());  // merged into the loaded entry
  EXPECT_EQ(2u, receivedCalls(*phone.service)[0].infos().size());
}

}  // namespace
