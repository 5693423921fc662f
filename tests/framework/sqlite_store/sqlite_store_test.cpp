// SqliteDataAccessService on a real file, driven by the journal's message builders and parsers.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <algorithm>
#include <deque>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "Items.h"
#include "LogCapture.h"
#include "Printers.h"
#include "SqlRows.h"
#include "framework/JournalServiceHelper.h"
#include "sqlite_store/SqliteDataAccessService.h"

namespace {

using H = JournalServiceHelper;
using Rows = std::vector<std::string>;
const char* const kMissed = H::DAS_CALLLOGMISSEDCALLS;

std::string request(const char* table, const char* reason, const std::string& items = "") {
  std::string message = H::createXMLField(H::REASONFORMESSAGE, reason) + items;
  H::addXMLHeaderFooter(message, table);
  return message;
}

// A missed call with `occurrences` occurrences, newest first, whose texts carry `text`.
MissedCallItem missed(const std::string& entryId, const std::string& text, int occurrences) {
  auto item = makeEntry<MissedCallItem>(entryId, "4710" + text, "2024-03-09T10:11:12", occurrences);
  item.setSurname(text);
  item.setFirstname("F" + text);
  for (auto& info : item.infos()) info.deflectName = text;
  return item;
}

std::string entry(const MissedCallItem& item, bool isDelete = false) {
  return H::createXMLField(H::ENTRY, H::createXMLMissedCallItemBody(item, isDelete));
}

class SqliteStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = ::testing::TempDir() + "/sqlite_store_XXXXXX";
    ASSERT_NE(mkdtemp(dir.data()), nullptr);
    path = dir + "/journal.db";
    ASSERT_TRUE(store.open(path, error)) << error;
  }
  void TearDown() override {
    store.close();
    std::filesystem::remove_all(dir);
  }

  // The missed calls table, sorted by unique id.
  std::deque<MissedCallItem> readMissed(SqliteDataAccessService& from) {
    std::deque<MissedCallItem> list;
    EXPECT_TRUE(H::parseXMLMissedCallList(from.processRequest(H::readMissedCallList()), list));
    std::sort(list.begin(), list.end(),
              [](const auto& a, const auto& b) { return std::stoll(a.getUniqueId()) < std::stoll(b.getUniqueId()); });
    return list;
  }
  // Writes (or updates) `items` in one request; answers the reply's last unique id.
  std::string put(const std::string& items, const char* reason = H::WRITEREQUEST) {
    std::string id;
    EXPECT_TRUE(H::parseLastUniqueId(store.processRequest(request(kMissed, reason, items)), id));
    return id;
  }

  std::string dir, path, error;
  SqliteDataAccessService store;
};

TEST_F(SqliteStoreTest, RoundTripKeepsAwkwardTextsAndFillsReadableColumns) {
  const std::vector<std::string> texts = {"<a href=\"x\">&amp; 'q'</a>", "Müller ñ 日本\r\nzwei\r", "", " \t ",
                                          std::string(100000, 'x') + "]]><&"};
  std::deque<MissedCallItem> written;
  std::string batch;
  for (size_t i = 0; i < texts.size(); ++i) {
    written.push_back(missed("E" + std::to_string(i) + texts[i], texts[i], static_cast<int>(i)));
    written.back().setViewed(i % 2 == 1);
    batch += entry(written.back());
  }
  const std::string lastId = put(batch);
  const Rows ids = sqlRows(path, "SELECT unique_id FROM callLogMissedCalls ORDER BY unique_id");
  const Rows rows = sqlRows(path,
                            "SELECT entry_id, surname, number, time_date, occurrences, viewed"
                            " FROM callLogMissedCalls ORDER BY unique_id");
  ASSERT_EQ(rows.size(), written.size());
  EXPECT_EQ(ids.back(), lastId);
  for (size_t i = 0; i < written.size(); ++i) {
    written[i].setUniqueId(ids[i]);
    EXPECT_EQ(rows[i], written[i].getEntryId() + " " + texts[i] + " " + (i ? "4710" + texts[i] : "NULL") + " " +
                           (i ? "2024-03-09T10:11:12" : "NULL") + " " + std::to_string(i) + " " + (i % 2 ? "1" : "0"));
  }
  EXPECT_EQ(readMissed(store), written);

  // A body holding a raw carriage return: the reply gives it as a reference, which no reader folds.
  put("<entry>&lt;missedCall&gt;&lt;surname&gt;a&#13;b&lt;/surname&gt;&lt;/missedCall&gt;</entry>");
  EXPECT_EQ(store.processRequest(H::readMissedCallList()).find('\r'), std::string::npos);
  EXPECT_EQ(readMissed(store).back().getSurname(), "a\rb");
}

TEST_F(SqliteStoreTest, DeletesByUniqueIdByEntryIdAndWholeTable) {
  std::vector<std::string> ids;
  for (int i = 0; i < 4; ++i) ids.push_back(put(entry(missed("E" + std::to_string(i), "t", 1))));
  const std::string dialled =
      H::createXMLField(H::ENTRY, H::createXMLDialledCallItemBody(DialledCallItem("D1", "", "", {}), false));
  ASSERT_NE(store.processRequest(request(H::DAS_CALLLOGDIALLEDCALLS, H::WRITEREQUEST, dialled)), "failed");

  MissedCallItem byId("E2", "", "", {}, false);  // the unique id decides, not the entry id
  byId.setUniqueId(ids[0]);
  const MissedCallItem byEntryId("E3", "", "", {}, false);
  EXPECT_EQ(store.processRequest(request(kMissed, H::DELETEREQUEST, entry(byId, true) + entry(byEntryId, true))),
            "<storeReply table=\"callLogMissedCalls\"><result>ok</result></storeReply>");
  EXPECT_EQ(sqlRows(path, "SELECT unique_id, entry_id FROM callLogMissedCalls ORDER BY unique_id"),
            (Rows{ids[1] + " E1", ids[2] + " E2"}));

  EXPECT_NE(store.processRequest(request(kMissed, H::DELETEREQUEST)), "failed");
  EXPECT_EQ(std::deque<MissedCallItem>{}, readMissed(store));
  EXPECT_EQ(sqlRows(path, "SELECT entry_id FROM callLogDialledCalls"), (Rows{"D1"}));
  // Ids of deleted rows are not given again: the journal may still hold them.
  EXPECT_GT(std::stoll(put(entry(missed("E4", "t", 1)))), std::stoll(ids[3]));
}

TEST_F(SqliteStoreTest, SettingsAreReplacedAndFailuresAnswerFailedLogAndChangeNothing) {
  LogCapture log;
  const auto send = [&](const char* reason, const std::string& items = "") {
    return store.processRequest(request(H::SETTINGS_SCHEMA, reason, items));
  };
  const auto field = [](const char* name, const char* value) { return H::createXMLField(name, value); };
  EXPECT_EQ(send(H::READREQUEST), "<storeReply table=\"journalSettings\"><result>ok</result></storeReply>");
  EXPECT_NE(send(H::UPDATEREQUEST, field(H::MISSED_LOGGING, "false") + field(H::CALL_LOG_ENABLED, "true")), "failed");
  EXPECT_NE(send(H::WRITEREQUEST, field(H::MISSED_LOGGING, "true")), "failed");

  MissedCallItem kept = missed("E1", "kept", 2);
  kept.setUniqueId(put(entry(kept)));
  const std::string before = store.processRequest(H::readMissedCallList());
  const std::string wrongType = H::createXMLField(H::ENTRY, H::createXMLDialledCallItemBody(DialledCallItem(), false));
  const std::string good = entry(missed("E2", "new", 1));
  const std::vector<std::string> bad = {
      "<storeRequest table=\"callLogMissedCalls\"><reason>write</reason>",
      request("callLogMissing", H::WRITEREQUEST, good),
      request(kMissed, "rewrite", good),
      request(kMissed, H::WRITEREQUEST, good + wrongType),
      request(kMissed, H::WRITEREQUEST, good + "<entry>&lt;missedCall&gt;</entry>"),
      request(kMissed, H::UPDATEREQUEST, "<entry><missedCall/></entry>"),
      request(kMissed, H::DELETEREQUEST, entry(kept, true) + wrongType),
      // An unknown setting spoils the whole request.
      request(H::SETTINGS_SCHEMA, H::UPDATEREQUEST, field(H::CALL_LOG_ENABLED, "false") + field("volume", "3")),
  };
  for (const std::string& message : bad) EXPECT_EQ(store.processRequest(message), "failed") << message;
  EXPECT_EQ(store.processRequest(H::readMissedCallList()), before);
  EXPECT_EQ(log.count("Store request failed"), static_cast<int>(bad.size()));
  EXPECT_TRUE(log.contains("unknown table 'callLogMissing'", fw::kLogError));

  const std::string reply = send(H::READREQUEST);
  std::string on, enabled, absent;
  EXPECT_TRUE(H::getXMLValue(reply, H::MISSED_LOGGING, on)) << reply;
  EXPECT_EQ(on, "true");
  EXPECT_TRUE(H::getXMLValue(reply, H::CALL_LOG_ENABLED, enabled)) << reply;
  EXPECT_EQ(enabled, "true");
  EXPECT_FALSE(H::getXMLValue(reply, H::DELETE_MISSED_WHEN_CALLED, absent)) << reply;
}

// A body of the right root that the journal's reader would not take (a field that must be a
// number is none, an enumeration out of range) would come back as a damaged row: it is refused.
TEST_F(SqliteStoreTest, ABodyTheJournalCannotReadIsRefused) {
  const std::string before = store.processRequest(H::readMissedCallList());
  const std::vector<std::string> unreadable = {
      "&lt;missedCall&gt;&lt;entryId&gt;E1&lt;/entryId&gt;&lt;listOrder&gt;10(8576&lt;/listOrder&gt;&lt;/"
      "missedCall&gt;",
      "&lt;missedCall&gt;&lt;entryId&gt;E2&lt;/entryId&gt;&lt;viewed&gt;maybe&lt;/viewed&gt;&lt;/missedCall&gt;",
      "&lt;missedCall&gt;&lt;callInfos&gt;&lt;callInfo logTarget=\"99\"/&gt;&lt;/callInfos&gt;&lt;/missedCall&gt;"};
  for (const std::string& body : unreadable) {
    EXPECT_EQ(store.processRequest(request(kMissed, H::WRITEREQUEST, "<entry>" + body + "</entry>")), "failed") << body;
    EXPECT_EQ(store.processRequest(request(kMissed, H::UPDATEREQUEST, "<entry>" + body + "</entry>")), "failed")
        << body;
  }
  EXPECT_EQ(store.processRequest(H::readMissedCallList()), before);
}

TEST_F(SqliteStoreTest, MigratesAVersion1FileAndRefusesNewerVersionsAndFilesItCannotUse) {
  const std::string old = dir + "/old.db", newer = dir + "/newer.db", garbage = dir + "/garbage.db";
  std::string schema = "CREATE TABLE journalSettings (name TEXT PRIMARY KEY, value TEXT); PRAGMA user_version = 1;";
  for (const char* table : {H::DAS_CALLLOGMISSEDCALLS, H::DAS_CALLLOGDIALLEDCALLS, H::DAS_CALLLOGRECEIVEDCALLS,
                            H::DAS_CALLLOGFORWARDEDCALLS})
    schema += std::string("CREATE TABLE ") + table +
              " (unique_id INTEGER PRIMARY KEY AUTOINCREMENT, entry_id TEXT, surname TEXT, firstname TEXT,"
              " number TEXT, time_date TEXT, viewed INTEGER, body TEXT NOT NULL);";
  MissedCallItem item = missed("E1", "old <&>", 3);
  char* insert = sqlite3_mprintf("INSERT INTO callLogMissedCalls (entry_id, body) VALUES ('E1', %Q)",
                                 H::createXMLMissedCallItemBody(item, false).c_str());
  sqlRows(old, schema + insert);
  sqlite3_free(insert);
  ASSERT_TRUE(store.open(old, error)) << error;
  EXPECT_EQ(sqlRows(old, "PRAGMA user_version; SELECT unique_id, occurrences, list_order FROM callLogMissedCalls"),
            (Rows{"3", "1 3 NULL"}));
  item.setUniqueId("1");
  EXPECT_EQ(readMissed(store), std::deque<MissedCallItem>{item});

  sqlRows(newer, "PRAGMA user_version = 4");
  std::ofstream(garbage) << std::string(4096, 'g');
  for (const std::string& bad : {garbage, dir + "/missing/journal.db", newer}) {
    EXPECT_FALSE(store.open(bad, error));
    EXPECT_NE(error.find("'" + bad + "'"), std::string::npos) << error;
    EXPECT_FALSE(store.isOpen());
  }
  EXPECT_NE(error.find("schema version 4"), std::string::npos) << error;
  EXPECT_EQ(store.processRequest(H::readMissedCallList()), "failed");
  EXPECT_EQ(sqlRows(newer, "PRAGMA journal_mode"), (Rows{"delete"}));  // left as it was
}

TEST_F(SqliteStoreTest, ADamagedRowCostsTheReaderOnlyThatEntry) {
  std::vector<std::string> ids;
  for (int i = 0; i < 4; ++i) {
    MissedCallItem item = missed("E" + std::to_string(i), "t", 2);
    item.setListOrder(100 - i);
    ids.push_back(put(entry(item)));
  }
  EXPECT_EQ(sqlRows(path, "SELECT list_order FROM callLogMissedCalls ORDER BY unique_id"),
            (Rows{"100", "99", "98", "97"}));
  // Well-formed but no item (read as a whole reply), then cut short (read entry by entry).
  const std::string rowOf1 = " WHERE unique_id = " + ids[1], rowOf2 = " WHERE unique_id = " + ids[2];
  for (const std::string& damage : {"UPDATE callLogMissedCalls SET body = '<missedCall><viewed>maybe</viewed>"
                                    "</missedCall>'" +
                                        rowOf1,
                                    "UPDATE callLogMissedCalls SET body = substr(body, 1, 30)" + rowOf2}) {
    sqlRows(path, damage);
    std::deque<MissedCallItem> list;
    std::vector<std::string> skipped;
    ASSERT_TRUE(H::parseStoredMissedCallList(store.processRequest(H::readMissedCallList()), list, skipped));
    EXPECT_EQ(list.front().getEntryId(), "E0");
    EXPECT_EQ(list.back().getEntryId(), "E3");
    EXPECT_EQ(list.back().getListOrder(), 97);
    EXPECT_EQ(skipped.front(), ids[1]);
  }
  std::deque<MissedCallItem> list;
  std::vector<std::string> skipped;
  ASSERT_TRUE(H::parseStoredMissedCallList(store.processRequest(H::readMissedCallList()), list, skipped));
  EXPECT_EQ(list.size(), 2u);
  EXPECT_EQ(skipped, (std::vector<std::string>{ids[1], ids[2]}));
  // Without the entries' sizes a reply that is not well-formed cannot be read at all.
  std::string reply = store.processRequest(H::readMissedCallList());
  for (size_t at = reply.find(" size=\""); at != std::string::npos; at = reply.find(" size=\""))
    reply.erase(at, reply.find('"', at + 7) + 1 - at);
  EXPECT_FALSE(H::parseStoredMissedCallList(reply, list, skipped));
  EXPECT_EQ(list.size(), 2u);
  EXPECT_FALSE(H::parseStoredMissedCallList("failed", list, skipped));
}

}  // namespace
