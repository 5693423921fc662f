// The reading of store requests both stores carry out, and the replies they write.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "framework/JournalServiceHelper.h"
#include "store_requests/StoreReply.h"
#include "store_requests/StoreRequest.h"

namespace {

using H = JournalServiceHelper;
using storemessage::parseStoreRequest;
using storemessage::StoreRequest;

// A request as the journal sends it: `items` follow the reason.
std::string request(const char* table, const char* reason, const std::string& items = "") {
  std::string message = H::createXMLField(H::REASONFORMESSAGE, reason) + items;
  H::addXMLHeaderFooter(message, table);
  return message;
}

// An ENTRY holding `body` as escaped text.
std::string entry(const std::string& body) { return H::createXMLField(H::ENTRY, body); }

TEST(StoreRequest, EachFaultIsNamed) {
  const char* const missed = H::DAS_CALLLOGMISSEDCALLS;
  const std::string good = entry("<missedCall><entryId>E1</entryId></missedCall>");
  struct Case {
    const char* name;
    std::string request;
    std::string error;
  };
  const std::vector<Case> cases = {
      {"not well-formed", "<storeRequest table=\"callLogMissedCalls\"><reason>write</reason>",
       "the request is not well-formed"},
      {"other root", "<storeReply table=\"callLogMissedCalls\"><reason>read</reason></storeReply>",
       "root element <storeReply> is not a store request"},
      {"unknown table", request("callLogMissing", H::WRITEREQUEST, good), "unknown table 'callLogMissing'"},
      {"no reason", "<storeRequest table=\"callLogMissedCalls\">" + good + "</storeRequest>",
       "the request does not start with a reason"},
      {"unknown reason", request(missed, "rewrite", good), "unknown reason 'rewrite'"},
      {"text between elements", request(missed, H::WRITEREQUEST, "x" + good),
       "text between the elements of the request"},
      {"read with entries", request(missed, H::READREQUEST, good), "a read takes no entries"},
      {"setting in a call table", request(missed, H::WRITEREQUEST, good + "<missedLogging>true</missedLogging>"),
       "table callLogMissedCalls, write: unexpected element <missedLogging>"},
      {"markup in an entry", request(missed, H::UPDATEREQUEST, "<entry><missedCall/></entry>"),
       "table callLogMissedCalls, update: an entry holds markup instead of an escaped item body"},
      {"body not well-formed", request(missed, H::WRITEREQUEST, entry("<missedCall>")),
       "table callLogMissedCalls, write: an entry's item body is not well-formed"},
      {"body of another table", request(missed, H::DELETEREQUEST, entry("<dialledCall/>")),
       "table callLogMissedCalls, delete: an entry's item body is a <dialledCall>, not a <missedCall>"},
      {"body the journal cannot read",
       request(missed, H::WRITEREQUEST, entry("<missedCall><viewed>maybe</viewed></missedCall>")),
       "table callLogMissedCalls, write: an entry's item body is not a readable <missedCall> (a field out of its "
       "range)"},
      {"unknown setting",
       request(H::SETTINGS_SCHEMA, H::UPDATEREQUEST, "<callLogEnabled>true</callLogEnabled><volume>3</volume>"),
       "table journalSettings, update: unknown setting <volume>"},
      {"markup in a setting", request(H::SETTINGS_SCHEMA, H::WRITEREQUEST, "<missedLogging><b/></missedLogging>"),
       "table journalSettings, write: setting <missedLogging> holds markup"},
  };
  for (const Case& c : cases) {
    StoreRequest parsed;
    std::string error;
    EXPECT_FALSE(parseStoreRequest(c.request, parsed, error)) << c.name;
    EXPECT_EQ(c.error, error) << c.name;
  }
}

TEST(StoreRequest, ReadNamesTheTable) {
  StoreRequest parsed;
  std::string error;
  ASSERT_TRUE(parseStoreRequest(H::readForwardedCallList(), parsed, error)) << error;
  EXPECT_EQ(storemessage::kForwarded, parsed.table);
  EXPECT_EQ(storemessage::kRead, parsed.reason);
  EXPECT_EQ(0u, parsed.entries.size());
}

// A write keeps each body and reads the fields a store shows beside it; a raw carriage return is
// kept as a reference, so that no reader folds it.
TEST(StoreRequest, WriteGivesEachBodyAndItsFields) {
  const std::string named =
      "<missedCall><uniqueId>7</uniqueId><entryId>E1</entryId><surname>a\rb</surname><viewed>true</viewed>"
      "<listOrder>2097152</listOrder><callInfos><callInfo number=\"4711\" timeDate=\"2024-03-01T10:11:12\"/>"
      "<callInfo number=\"4712\"/></callInfos></missedCall>";
  const std::string fresh = "<missedCall><entryId>E2</entryId></missedCall>";
  StoreRequest parsed;
  std::string error;
  ASSERT_TRUE(parseStoreRequest(request(H::DAS_CALLLOGMISSEDCALLS, H::WRITEREQUEST, entry(named) + entry(fresh)),
                                parsed, error))
      << error;
  EXPECT_EQ(storemessage::kMissed, parsed.table);
  EXPECT_EQ(storemessage::kWrite, parsed.reason);
  ASSERT_EQ(2u, parsed.entries.size());
  const storemessage::Entry& first = parsed.entries[0];
  EXPECT_EQ(7, first.uniqueId);
  EXPECT_EQ(std::string::npos, first.body.find('\r'));
  EXPECT_NE(std::string::npos, first.body.find("a&#13;b"));
  EXPECT_EQ("E1", first.item.entryId);
  EXPECT_EQ("a\rb", first.item.surname);
  EXPECT_EQ("4711", first.item.number);  // the newest occurrence's
  EXPECT_EQ("2024-03-01T10:11:12", first.item.timeDate);
  EXPECT_EQ(2, first.item.occurrences);
  EXPECT_EQ(2097152, first.item.listOrder);
  EXPECT_TRUE(first.item.viewed);
  const storemessage::Entry& second = parsed.entries[1];
  EXPECT_EQ(0, second.uniqueId);
  EXPECT_EQ(fresh, second.body);
  EXPECT_FALSE(second.item.hasOccurrence);
  EXPECT_EQ(0, second.item.listOrder);
}

// A delete names rows by unique id, or by entry id when it has none; a unique id no row can have
// is marked, so that it removes nothing.
TEST(StoreRequest, DeleteNamesRowsByUniqueIdOrEntryId) {
  StoreRequest parsed;
  std::string error;
  const std::string entries = entry("<dialledCall><uniqueId>5</uniqueId><entryId>E5</entryId></dialledCall>") +
                              entry("<dialledCall><entryId>E6</entryId></dialledCall>") +
                              entry("<dialledCall><uniqueId>1false</uniqueId></dialledCall>");
  ASSERT_TRUE(parseStoreRequest(request(H::DAS_CALLLOGDIALLEDCALLS, H::DELETEREQUEST, entries), parsed, error))
      << error;
  EXPECT_EQ(storemessage::kDelete, parsed.reason);
  ASSERT_EQ(3u, parsed.entries.size());
  EXPECT_EQ(5, parsed.entries[0].uniqueId);
  EXPECT_EQ(0, parsed.entries[1].uniqueId);
  EXPECT_FALSE(parsed.entries[1].badUniqueId);
  EXPECT_EQ("E6", parsed.entries[1].item.entryId);
  EXPECT_TRUE(parsed.entries[2].badUniqueId);
  EXPECT_EQ("", parsed.entries[0].body);  // a delete keeps nothing
}

TEST(StoreRequest, UpdateOfSettingsGivesNamesAndValues) {
  StoreRequest parsed;
  std::string error;
  ASSERT_TRUE(parseStoreRequest(
      request(H::SETTINGS_SCHEMA, H::UPDATEREQUEST, "<missedLogging>false</missedLogging><callLogEnabled/>"), parsed,
      error))
      << error;
  EXPECT_EQ(storemessage::kSettings, parsed.table);
  EXPECT_EQ(storemessage::kUpdate, parsed.reason);
  ASSERT_EQ(2u, parsed.settings.size());
  EXPECT_EQ(H::MISSED_LOGGING, parsed.settings[0].name);
  EXPECT_EQ("false", parsed.settings[0].value);
  EXPECT_EQ(H::CALL_LOG_ENABLED, parsed.settings[1].name);
  EXPECT_EQ("", parsed.settings[1].value);
}

TEST(StoreReply, ReadEntriesCarryTheirSizeWithoutDeclaration) {
  std::string reply;
  storemessage::appendReplyStart(reply, storemessage::kMissed);
  storemessage::appendStoredEntry(reply, 3, "<?xml version=\"1.0\"?><missedCall/>");
  storemessage::appendStoredSetting(reply, H::MISSED_LOGGING, "a<b");
  storemessage::appendReplyEnd(reply);
  EXPECT_EQ(
      "<storeReply table=\"callLogMissedCalls\"><result>ok</result><entry uniqueId=\"3\" size=\"13\"><missedCall/>"
      "</entry><missedLogging>a&lt;b</missedLogging></storeReply>",
      reply);
  EXPECT_EQ("<storeReply table=\"journalSettings\"><result>ok</result></storeReply>",
            storemessage::changeReply(storemessage::kSettings, 0));
  EXPECT_EQ("<storeReply table=\"callLogDialledCalls\"><result>ok</result><lastUniqueId>17</lastUniqueId></storeReply>",
            storemessage::changeReply(storemessage::kDialled, 17));
}

}  // namespace
