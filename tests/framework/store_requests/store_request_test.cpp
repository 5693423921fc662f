// The reading of store requests both stores carry out: each fault named, rows a delete names.
// (What a read, a write and a settings update do is tested on the SQLite store: sqlite_store_test.cpp.)
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "framework/JournalServiceHelper.h"
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

}  // namespace
