// MemoryDataAccessService, driven by the journal's message builders and parsers.
#include <gtest/gtest.h>

#include <deque>
#include <string>

#include "Items.h"
#include "LogCapture.h"
#include "framework/JournalServiceHelper.h"
#include "framework/MemoryDataAccessService.h"

namespace {

using H = JournalServiceHelper;

std::string request(const char* table, const char* reason, const std::string& items = "") {
  std::string message = H::createXMLField(H::REASONFORMESSAGE, reason) + items;
  H::addXMLHeaderFooter(message, table);
  return message;
}

std::string entry(const MissedCallItem& item, bool isDelete = false) {
  return H::createXMLField(H::ENTRY, H::createXMLMissedCallItemBody(item, isDelete));
}

class MemoryStoreTest : public ::testing::Test {
 protected:
  std::deque<MissedCallItem> readMissed() {
    std::deque<MissedCallItem> list;
    EXPECT_TRUE(H::parseXMLMissedCallList(store.processRequest(H::readMissedCallList()), list));
    return list;
  }
  std::string put(const std::string& items, const char* reason = H::WRITEREQUEST) {
    std::string id;
    EXPECT_TRUE(H::parseLastUniqueId(store.processRequest(request(H::DAS_CALLLOGMISSEDCALLS, reason, items)), id));
    return id;
  }

  MemoryDataAccessService store;
};

TEST_F(MemoryStoreTest, WritesGiveNewRowsAndReadsGiveThemBackWithTheirIds) {
  auto a = makeEntry<MissedCallItem>("E1", "4711", "2024-03-09T10:11:12", 3);
  auto b = makeEntry<MissedCallItem>("E2", "<&\"\r\n>", "2024-03-09T10:11:13");
  EXPECT_EQ(put(entry(a) + entry(b)), "2");
  a.setUniqueId("1");
  b.setUniqueId("2");
  EXPECT_EQ(readMissed(), (std::deque<MissedCallItem>{a, b}));
  // Other tables are kept apart.
  std::deque<DialledCallItem> dialled;
  EXPECT_TRUE(H::parseXMLDialledCallList(store.processRequest(H::readDialledCallList()), dialled));
  EXPECT_TRUE(dialled.empty());
}

TEST_F(MemoryStoreTest, AnEntryNamingItsRowReplacesItAndIdsAreNeverReused) {
  auto a = makeEntry<MissedCallItem>("E1", "4711", "2024-03-09T10:11:12");
  const std::string id = put(entry(a));
  a.setSurname("changed");
  a.setUniqueId(id);
  EXPECT_EQ(put(entry(a), H::UPDATEREQUEST), id);
  EXPECT_EQ(readMissed(), std::deque<MissedCallItem>{a});

  auto b = makeEntry<MissedCallItem>("E2", "4712", "2024-03-09T10:11:13");
  b.setUniqueId("99");  // names no row: a new one
  EXPECT_EQ(put(entry(b)), "2");
  store.processRequest(request(H::DAS_CALLLOGMISSEDCALLS, H::DELETEREQUEST));
  EXPECT_TRUE(readMissed().empty());
  EXPECT_EQ(put(entry(b)), "3");
}

TEST_F(MemoryStoreTest, DeletesByUniqueIdOrElseByEntryId) {
  auto a = makeEntry<MissedCallItem>("E1", "1", "2024-03-09T10:11:12");
  auto b = makeEntry<MissedCallItem>("E2", "2", "2024-03-09T10:11:12");
  auto c = makeEntry<MissedCallItem>("E2", "3", "2024-03-09T10:11:12");
  put(entry(a) + entry(b) + entry(c));
  a.setUniqueId("1");
  auto byEntryId = makeEntry<MissedCallItem>("E2", "", "");
  auto badId = a;
  badId.setUniqueId("x");  // names no row that can exist: nothing goes
  store.processRequest(request(H::DAS_CALLLOGMISSEDCALLS, H::DELETEREQUEST, entry(badId, true)));
  EXPECT_EQ(readMissed().size(), 3u);
  store.processRequest(request(H::DAS_CALLLOGMISSEDCALLS, H::DELETEREQUEST, entry(byEntryId, true)));
  EXPECT_EQ(readMissed(), std::deque<MissedCallItem>{a});
  store.processRequest(request(H::DAS_CALLLOGMISSEDCALLS, H::DELETEREQUEST, entry(a, true)));
  EXPECT_TRUE(readMissed().empty());
}

TEST_F(MemoryStoreTest, KeepsTheSettings) {
  LogCapture log;
  const char* table = H::SETTINGS_SCHEMA;
  EXPECT_NE(store.processRequest(request(table, H::UPDATEREQUEST, H::createXMLField(H::MISSED_LOGGING, "false"))),
            "failed");
  std::string value;
  EXPECT_TRUE(H::getXMLValue(store.processRequest(request(table, H::READREQUEST)), H::MISSED_LOGGING, value));
  EXPECT_EQ(value, "false");
  store.processRequest(request(table, H::DELETEREQUEST, H::createXMLField(H::MISSED_LOGGING, "")));
  EXPECT_FALSE(H::getXMLValue(store.processRequest(request(table, H::READREQUEST)), H::MISSED_LOGGING, value));
  EXPECT_EQ(store.processRequest(request(table, H::UPDATEREQUEST, H::createXMLField("colour", "red"))), "failed");
  EXPECT_TRUE(log.contains("unknown setting <colour>", 2));
}

TEST_F(MemoryStoreTest, ARequestThatFailsChangesNothing) {
  LogCapture log;
  const auto good = makeEntry<MissedCallItem>("E1", "4711", "2024-03-09T10:11:12");
  const std::string wrongType = H::createXMLField(
      H::ENTRY, H::createXMLDialledCallItemBody(makeEntry<DialledCallItem>("E2", "1", "2024-03-09T10:11:12"), false));
  for (const std::string& bad : {wrongType, H::createXMLField(H::ENTRY, "<missedCall>"), std::string("<other/>")}) {
    EXPECT_EQ(store.processRequest(request(H::DAS_CALLLOGMISSEDCALLS, H::WRITEREQUEST, entry(good) + bad)), "failed");
  }
  EXPECT_EQ(store.processRequest("<storeRequest"), "failed");
  EXPECT_EQ(store.processRequest(request("noSuchTable", H::READREQUEST)), "failed");
  EXPECT_EQ(store.processRequest(request(H::DAS_CALLLOGMISSEDCALLS, H::READREQUEST, entry(good))), "failed");
  EXPECT_TRUE(readMissed().empty());
  EXPECT_TRUE(log.contains("Store request failed: an entry's item body is a <dialledCall>, not a <missedCall>", 2));
}

}  // namespace
