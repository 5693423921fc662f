// MemoryDataAccessService, driven by the journal's message builders and parsers.
#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "Items.h"
#include "LogCapture.h"
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
std::string entry(const MissedCallItem& item, bool isDelete = false) {
  return H::createXMLField(H::ENTRY, H::createXMLMissedCallItemBody(item, isDelete));
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

TEST_F(MemoryStoreTest, WritesReplacesReadsAndDeletesRowsWithIdsNeverReused) {
  auto a = makeEntry<MissedCallItem>("E1", "4711", "2024-03-09T10:11:12", 3);
  auto b = makeEntry<MissedCallItem>("E2", "<&\"\r\n>", "2024-03-09T10:11:13");
  auto c = makeEntry<MissedCallItem>("E2", "4712", "2024-03-09T10:11:14");
  auto badId = a;  // for a delete whose unique id names no row that can exist: nothing goes
  EXPECT_EQ(put(entry(a) + entry(b)), "2");
  for (auto [item, id] : {std::pair{&a, "1"}, {&b, "2"}, {&c, "99"}, {&badId, "x"}}) item->setUniqueId(id);
  a.setSurname("changed");
  EXPECT_EQ(put(entry(a), H::UPDATEREQUEST), "1");  // an entry naming its row replaces it
  EXPECT_EQ(put(entry(c)), "3");                    // c names no row: a new one
  c.setUniqueId("3");
  std::deque<DialledCallItem> dialled;  // other tables are kept apart
  EXPECT_TRUE(H::parseXMLDialledCallList(store.processRequest(H::readDialledCallList()), dialled) && dialled.empty());
  // A delete goes by unique id (b, not c of the same entry id), or else by entry id; with no entry
  // it empties the table.
  const std::pair<std::string, Missed> steps[] = {{entry(badId, true), {a, b, c}},
                                                  {entry(b, true), {a, c}},
                                                  {entry(makeEntry<MissedCallItem>("E2", "", ""), true), {a}},
                                                  {"", {}}};
  for (const auto& [items, left] : steps) {
    store.processRequest(request(H::DELETEREQUEST, items));
    EXPECT_EQ(readMissed(), left) << items;
  }
  EXPECT_EQ(put(entry(c)), "4");  // ids are never reused
}

TEST_F(MemoryStoreTest, KeepsTheSettingsAndARequestThatFailsChangesNothing) {
  LogCapture log;
  const auto setting = [&](const char* reason, const std::string& items = "") {
    return store.processRequest(request(reason, items, H::SETTINGS_SCHEMA));
  };
  std::string value;
  EXPECT_NE(setting(H::UPDATEREQUEST, H::createXMLField(H::MISSED_LOGGING, "false")), "failed");
  EXPECT_TRUE(H::getXMLValue(setting(H::READREQUEST), H::MISSED_LOGGING, value) && value == "false") << value;
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
  EXPECT_TRUE(readMissed().empty());
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
  EXPECT_TRUE(readMissed().empty());
}

}  // namespace
