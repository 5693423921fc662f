// MemoryDataAccessService, driven by the journal's message builders and parsers. (Its rows are
// also written, replaced, deleted and read back by the store scenarios on this store.)
#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "Items.h"
#include "LogCapture.h"
#include "Printers.h"
#include "framework/JournalServiceHelper.h"
#include "framework/MemoryDataAccessService.h"

namespace {

using H = JournalServiceHelper;
using Missed = std::deque<MissedCallItem>;

std::string request(const char* reason, const std::string& items = "", const char* table = H::DAS_CALLLOGMISSEDCALLS) {
  std::string message = H::createXMLField(H::REASONFORMESSAGE, reason) + items;
  H::addXMLHeaderFooter(message, table);
  return message;
}
std::string entry(const MissedCallItem& item) {
  return H::createXMLField(H::ENTRY, H::createXMLMissedCallItemBody(item, false));
}
struct MemoryStoreTest : ::testing::Test {
  Missed readMissed() {
    Missed list;
    EXPECT_TRUE(H::parseXMLMissedCallList(store.processRequest(H::readMissedCallList()), list));
    return list;
  }
  std::string put(const std::string& items, const char* reason = H::WRITEREQUEST) {
    std::string id;
    return H::parseLastUniqueId(store.processRequest(request(reason, items)), id) ? id : "no id";
  }
  MemoryDataAccessService store;
};

// A delete without a unique id goes by entry id, one without an entry empties the table; row ids
// are never given again: the journal may still hold them.
TEST_F(MemoryStoreTest, DeletesByEntryIdOrWholeAndNeverGivesARowIdAgain) {
  const MissedCallItem first = makeEntry<MissedCallItem>("E1", "4711", "2024-03-09T10:11:12"),
                       second = makeEntry<MissedCallItem>("E2", "4712", "2024-03-09T10:11:13");
  EXPECT_EQ(put(entry(first) + entry(first) + entry(second)), "3");
  store.processRequest(request(H::DELETEREQUEST, entry(first)));
  ASSERT_EQ(readMissed().size(), 1u);
  EXPECT_EQ(readMissed()[0].getEntryId(), "E2");
  store.processRequest(request(H::DELETEREQUEST));
  EXPECT_EQ(readMissed().size(), 0u);
  EXPECT_EQ(put(entry(first)), "4");
}

TEST_F(MemoryStoreTest, KeepsTheSettingsAndARequestThatFailsChangesNothing) {
  LogCapture log;
  const auto setting = [&](const char* reason, const std::string& items = "") {
    return store.processRequest(request(reason, items, H::SETTINGS_SCHEMA));
  };
  std::string value;
  EXPECT_NE(setting(H::UPDATEREQUEST, H::createXMLField(H::MISSED_LOGGING, "false")), "failed");
  EXPECT_TRUE(H::getXMLValue(setting(H::READREQUEST), H::MISSED_LOGGING, value));
  EXPECT_EQ(value, "false");
  setting(H::DELETEREQUEST, H::createXMLField(H::MISSED_LOGGING, ""));
  EXPECT_FALSE(H::getXMLValue(setting(H::READREQUEST), H::MISSED_LOGGING, value));
  const std::string good = entry(makeEntry<MissedCallItem>("E1", "4711", "2024-03-09T10:11:12")),
                    wrongType = H::createXMLField(
                        H::ENTRY, H::createXMLDialledCallItemBody(makeEntry<DialledCallItem>("D", "1", "2024"), false));
  for (const std::string& bad : {request(H::WRITEREQUEST, good + wrongType), request(H::WRITEREQUEST, good + "<x/>"),
                                 request(H::WRITEREQUEST, good + H::createXMLField(H::ENTRY, "<missedCall>")),
                                 request(H::READREQUEST, good), request(H::READREQUEST, "", "noSuchTable"),
                                 request(H::UPDATEREQUEST, H::createXMLField("colour", "red"), H::SETTINGS_SCHEMA),
                                 std::string("<storeRequest")})
    EXPECT_EQ(store.processRequest(bad), "failed") << bad;
  EXPECT_EQ(Missed{}, readMissed());
  EXPECT_TRUE(log.contains("unknown setting <colour>", 2));
  EXPECT_TRUE(log.contains("Store request failed: an entry's item body is a <dialledCall>, not a <missedCall>", 2));
}

// A unique id that only starts like a row id ("1false") names no row: the entry is a new row, as
// in the SQLite store, and row 1 stays as it was.
TEST_F(MemoryStoreTest, AUniqueIdThatIsNoRowIdNamesNoRow) {
  auto first = makeEntry<MissedCallItem>("E1", "4711", "2024-03-09T10:11:12");
  auto second = makeEntry<MissedCallItem>("E2", "4712", "2024-03-09T10:11:13");
  second.setUniqueId("1false");
  EXPECT_EQ(put(entry(first)), "1");
  EXPECT_EQ(put(entry(second), H::UPDATEREQUEST), "2");
  const Missed rows = readMissed();
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0].getEntryId(), "E1");
}

// A body the journal's reader would not take would come back as a damaged row: it is refused.
TEST_F(MemoryStoreTest, ABodyTheJournalCannotReadIsRefused) {
  const std::vector<std::string> unreadable = {
      "&lt;missedCall&gt;&lt;entryId&gt;E1&lt;/entryId&gt;&lt;listOrder&gt;10(8576&lt;/listOrder&gt;&lt;/"
      "missedCall&gt;",
      "&lt;missedCall&gt;&lt;callInfos&gt;&lt;callInfo logTarget=\"99\"/&gt;&lt;/callInfos&gt;&lt;/missedCall&gt;"};
  for (const std::string& body : unreadable)
    EXPECT_EQ(store.processRequest(request(H::WRITEREQUEST, "<entry>" + body + "</entry>")), "failed") << body;
  EXPECT_EQ(Missed{}, readMissed());
}

}  // namespace
