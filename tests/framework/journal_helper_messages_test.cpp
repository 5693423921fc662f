// JournalServiceHelper: fields, the store message frame, value look-up, client requests and
// replies, observer counts, and the library's set-up.
#include <gtest/gtest.h>

#include <climits>
#include <set>

#include "framework/JournalServiceHelper.h"
#include "journal_helper_samples.h"

namespace {

using H = JournalServiceHelper;
using journal_samples::makeItem;
using journal_samples::nastyTexts;

TEST(JournalHelperFields, FieldValuesComeBackExactly) {
  for (const std::string& text : nastyTexts()) {
    const std::string field = H::createXMLField(H::SURNAME, text);
    std::string value = "stale";
    ASSERT_TRUE(H::getXMLValue(field, H::SURNAME, value)) << text.substr(0, 40);
    EXPECT_EQ(value, text);
  }
}

TEST(JournalHelperFields, MarkupInValuesIsEscapedNotInterpreted) {
  const std::string field = H::createXMLField(H::SURNAME, "<entryId>1</entryId> & more");
  EXPECT_EQ(field.find("<entryId>"), std::string::npos);
  std::string value;
  EXPECT_FALSE(H::getXMLValue(field, H::ENTRYID, value));
  EXPECT_EQ(H::createXMLField(H::SURNAME, static_cast<const char*>(nullptr)), H::createXMLField(H::SURNAME, ""));
}

TEST(JournalHelperStoreFrame, StoreRequestAsTheServiceComposesIt) {
  const DialledCallItem first = makeItem<DialledCallItem>("1");
  const DialledCallItem second = makeItem<DialledCallItem>("2", 30);
  std::string message = H::createXMLField(H::REASONFORMESSAGE, H::DELETEREQUEST);
  H::createXMLDialledCallItemBody(first, message, true);
  H::createXMLDialledCallItemBody(second, message, true);
  H::addXMLHeaderFooter(message, H::DAS_CALLLOGDIALLEDCALLS);

  EXPECT_EQ(message.rfind("<?xml", 0), 0u);
  EXPECT_NE(message.find(std::string("table=\"") + H::DAS_CALLLOGDIALLEDCALLS + "\""), std::string::npos);
  std::string reason;
  ASSERT_TRUE(H::getXMLValue(message, H::REASONFORMESSAGE, reason));
  EXPECT_EQ(reason, H::DELETEREQUEST);

  // The store's side: take the entries one by one, in order, and read the ids of each body.
  std::vector<std::string> uniqueIds;
  std::string body;
  while (H::getAndRemoveXMLValue(message, H::ENTRY, body)) {
    std::string id;
    ASSERT_TRUE(H::getXMLValue(body, H::UNIQUEID, id));
    uniqueIds.push_back(id);
  }
  EXPECT_EQ(uniqueIds, (std::vector<std::string>{first.getUniqueId(), second.getUniqueId()}));
  ASSERT_TRUE(H::getXMLValue(message, H::REASONFORMESSAGE, reason));  // the rest is intact
}

TEST(JournalHelperStoreFrame, TableNameIsEscapedAndMessageKept) {
  std::string message = H::createXMLField(H::CALL_LOG_ENABLED, "false");
  H::addXMLHeaderFooter(message, "a\"b<c>&d");
  std::string value;
  ASSERT_TRUE(H::getXMLValue(message, H::CALL_LOG_ENABLED, value));
  EXPECT_EQ(value, "false");
  EXPECT_NE(message.find("a&quot;b&lt;c"), std::string::npos);
  EXPECT_NE(message.find("&amp;d"), std::string::npos);
}

TEST(JournalHelperStoreFrame, ReadMessagesAskEachTableForAllRows) {
  const std::vector<std::pair<std::string, const char*>> reads = {
      {H::readMissedCallList(), H::DAS_CALLLOGMISSEDCALLS},
      {H::readDialledCallList(), H::DAS_CALLLOGDIALLEDCALLS},
      {H::readReceivedCallList(), H::DAS_CALLLOGRECEIVEDCALLS},
      {H::readForwardedCallList(), H::DAS_CALLLOGFORWARDEDCALLS}};
  std::set<std::string> distinct;
  for (const auto& [message, table] : reads) {
    std::string reason;
    ASSERT_TRUE(H::getXMLValue(message, H::REASONFORMESSAGE, reason));
    EXPECT_EQ(reason, H::READREQUEST);
    EXPECT_NE(message.find(std::string("\"") + table + "\""), std::string::npos) << table;
    EXPECT_FALSE(H::getXMLValue(message, H::ENTRY, reason));
    distinct.insert(message);
  }
  EXPECT_EQ(distinct.size(), 4u);
}

TEST(JournalHelperStoreFrame, LastUniqueIdOfAWriteReply) {
  std::string id = "old";
  const std::string reply = "<storeReply table=\"t\"><result>ok</result><lastUniqueId> 42&amp;x </lastUniqueId></storeReply>";
  EXPECT_TRUE(H::parseLastUniqueId(reply, id));
  EXPECT_EQ(id, " 42&x ");
  for (const std::string& bad : {std::string("failed"), std::string("<storeReply><result>ok</result></storeReply>"),
                                 std::string("<storeReply><lastUniqueId></lastUniqueId></storeReply>"),
                                 std::string("<storeReply><lastUniqueId>7")}) {
    id = "old";
    EXPECT_FALSE(H::parseLastUniqueId(bad, id)) << bad;
    EXPECT_EQ(id, "");
  }
}

TEST(JournalHelperValues, GetXMLValueFindsTheFirstElementAtAnyDepth) {
  const std::string xml = "<settings><group><callLogEnabled>  true </callLogEnabled></group>"
                          "<callLogEnabled>false</callLogEnabled><missedLogging/></settings>";
  std::string value = "unchanged";
  ASSERT_TRUE(H::getXMLValue(xml, H::CALL_LOG_ENABLED, value));
  EXPECT_EQ(value, "  true ");
  ASSERT_TRUE(H::getXMLValue(xml, H::MISSED_LOGGING, value));
  EXPECT_EQ(value, "");
  value = "unchanged";
  EXPECT_FALSE(H::getXMLValue(xml, H::DELETE_MISSED_WHEN_CALLED, value));
  EXPECT_FALSE(H::getXMLValue("<settings><callLogEnabled>true</settings>", H::CALL_LOG_ENABLED, value));
  EXPECT_FALSE(H::getXMLValue("failed", H::CALL_LOG_ENABLED, value));
  EXPECT_EQ(value, "unchanged");
}

TEST(JournalHelperValues, GetAndRemoveTakesElementsOneByOne) {
  std::string xml = "<?xml version=\"1.0\"?><journalRequest><method>deleteCalls</method>"
                    "<args><entryId>b &lt;2&gt;</entryId></args><entryId>a</entryId><entryId> </entryId></journalRequest>";
  std::vector<std::string> ids;
  std::string id;
  while (H::getAndRemoveXMLValue(xml, H::ENTRYID, id)) ids.push_back(id);
  EXPECT_EQ(ids, (std::vector<std::string>{"b <2>", "a", " "}));
  EXPECT_EQ(H::getMethodFromXMLMsg(xml), H::DELETE_CALLS);
  EXPECT_EQ(xml.rfind("<?xml", 0), 0u);  // the declaration stays

  std::string broken = "<journalRequest><entryId>a</entryId>";
  EXPECT_FALSE(H::getAndRemoveXMLValue(broken, H::ENTRYID, id));
  EXPECT_EQ(broken, "<journalRequest><entryId>a</entryId>");
}

TEST(JournalHelperMethods, EveryCodeRoundTripsThroughItsName) {
  std::set<std::string> names;
  for (int code = 1; code <= 32; ++code) {
    const std::string name = H::methodName(code);
    ASSERT_FALSE(name.empty()) << code;
    names.insert(name);
    EXPECT_EQ(H::methodCode(name), code);
    EXPECT_EQ(H::getMethodFromXMLMsg(H::createMethodRequest(code)), code);
  }
  EXPECT_EQ(names.size(), 32u);
  EXPECT_EQ(H::methodName(H::GET_MISSED_CALL_LIST), "getMissedCallList");
  EXPECT_EQ(H::methodName(H::DELETE_CALLS), "deleteCalls");
}

TEST(JournalHelperMethods, RequestsCarryTheirEntryIds) {
  const std::vector<std::string> ids = {"2024-01-01T00:00:00Z0000000A", "<&>", "", "2024-01-01T00:00:00Z0000000A"};
  std::string request = H::createMethodRequest(H::SET_MISSED_CALL_LIST_AS_VIEWED, ids);
  std::vector<std::string> read;
  std::string id;
  while (H::getAndRemoveXMLValue(request, H::ENTRYID, id)) read.push_back(id);
  EXPECT_EQ(read, ids);
  EXPECT_EQ(H::getMethodFromXMLMsg(request), H::SET_MISSED_CALL_LIST_AS_VIEWED);
}

TEST(JournalHelperMethods, GarbageGivesMethodZero) {
  EXPECT_TRUE(H::createMethodRequest(0).empty());
  EXPECT_TRUE(H::createMethodRequest(33).empty());
  EXPECT_TRUE(H::createMethodRequest(-1).empty());
  for (const std::string& bad :
       {std::string(), std::string("failed"), std::string("<journalRequest>"),
        std::string("<journalRequest><method>1</method></journalRequest>"),
        std::string("<journalRequest><method>nope</method></journalRequest>"),
        std::string("<journalRequest><method> getMissedCallList</method></journalRequest>"),
        std::string("<journalRequest><entryId>getMissedCallList</entryId></journalRequest>"), H::FAILURE}) {
    EXPECT_EQ(H::getMethodFromXMLMsg(bad), 0) << bad;
  }
}

TEST(JournalHelperReplies, BoolRepliesAndFailureAreTold) {
  bool value = false;
  ASSERT_TRUE(H::parseRespBool(H::respBool(true), value));
  EXPECT_TRUE(value);
  ASSERT_TRUE(H::parseRespBool(H::respBool(false), value));
  EXPECT_FALSE(value);
  EXPECT_NE(H::FAILURE, H::respBool(false));
  value = true;
  EXPECT_FALSE(H::parseRespBool(H::FAILURE, value));
  EXPECT_FALSE(H::parseRespBool("", value));
  EXPECT_FALSE(H::parseRespBool("<journalResponse/>", value));
  EXPECT_FALSE(H::parseRespBool("<other><result>true</result></other>", value));
  EXPECT_TRUE(value);
}

TEST(JournalHelperReplies, LastNumberDialledParsesBack) {
  const DialledCallItem item = makeItem<DialledCallItem>("last ");
  DialledCallItem parsed;
  ASSERT_TRUE(H::parseRespGetLastNumberDialled(H::respGetLastNumberDialled(item), parsed));
  EXPECT_EQ(parsed, item);
  EXPECT_FALSE(H::parseRespGetLastNumberDialled(H::FAILURE, parsed));
  EXPECT_FALSE(H::parseRespGetLastNumberDialled(H::respGetDialledCallList({}), parsed));
}

TEST(JournalHelperObserver, CountsParseBackWithTheirOperation) {
  for (const unsigned int count : {0u, 7u, static_cast<unsigned int>(-1)}) {
    unsigned int parsed = 12345;
    const std::string missed = H::obsReqMissedCallsCountUpdate(count);
    const std::string callbacks = H::obsReqCallBacksCountUpdate(count);
    ASSERT_TRUE(H::parseObsReqMissedCallsCountUpdate(missed, parsed));
    EXPECT_EQ(parsed, count);
    ASSERT_TRUE(H::parseObsReqCallBacksCountUpdate(callbacks, parsed));
    EXPECT_EQ(parsed, count);
    EXPECT_EQ(H::getObserverOperation(missed), H::OBS_MISSEDCALLSCOUNTUPDATE);
    EXPECT_EQ(H::getObserverOperation(callbacks), H::OBS_CALLBACKSCOUNTUPDATE);
    EXPECT_FALSE(H::parseObsReqMissedCallsCountUpdate(callbacks, parsed));
    EXPECT_FALSE(H::parseObsReqCallBacksCountUpdate(missed, parsed));
  }
}

TEST(JournalHelperObserver, MalformedCountsAreRefused) {
  unsigned int parsed = 5;
  for (const std::string& bad : {std::string("<journalEvent><operation>missedCallsCountUpdate</operation></journalEvent>"),
                                 std::string("<journalEvent><operation>missedCallsCountUpdate</operation><count>-1</count></journalEvent>"),
                                 std::string("<journalEvent><operation>missedCallsCountUpdate</operation><count>4294967296</count></journalEvent>"),
                                 std::string("<journalEvent><operation>missedCallsCountUpdate</operation><count>3x</count></journalEvent>"),
                                 std::string("<other><operation>missedCallsCountUpdate</operation><count>3</count></other>"),
                                 std::string("<journalEvent>"), std::string()}) {
    EXPECT_FALSE(H::parseObsReqMissedCallsCountUpdate(bad, parsed)) << bad;
  }
  EXPECT_EQ(parsed, 5u);
  EXPECT_EQ(H::getObserverOperation("<journalEvent>"), "");
}

TEST(JournalHelperLifecycle, InitAndFinitAreIdempotent) {
  H::init();
  H::init();
  EXPECT_TRUE(H::isInitialised());
  EXPECT_EQ(H::methodCode("refreshCallLog"), H::REFRESH_CALL_LOG);
  H::finit();
  H::finit();
  EXPECT_FALSE(H::isInitialised());
  // Used after finit, the library sets itself up again.
  EXPECT_EQ(H::methodCode("subscribe"), H::SUBSCRIBE);
  EXPECT_TRUE(H::isInitialised());
  H::finit();
}

}  // namespace
