// JournalServiceHelper: item bodies, lists and observer updates over the five entry types.
#include <gtest/gtest.h>

#include "framework/JournalServiceHelper.h"
#include "journal_helper_samples.h"

namespace {

using H = JournalServiceHelper;
using journal_samples::makeItem;
using journal_samples::nastyTexts;
using journal_samples::Ops;

// A store read reply holding `entries` (ENTRY fields).
std::string readReply(const std::string& entries) {
  return "<storeReply table=\"t\">" + H::createXMLField(H::RESULT, "ok") + entries + "</storeReply>";
}

template <class Item>
class JournalHelperItems : public ::testing::Test {};

using ItemTypes = ::testing::Types<MissedCallItem, ReceivedCallItem, DialledCallItem, ForwardedCallItem, CallBackItem>;
TYPED_TEST_SUITE(JournalHelperItems, ItemTypes);

TYPED_TEST(JournalHelperItems, BodiesWrittenIntoReadReplyParseBackInOrder) {
  using Item = TypeParam;
  const std::deque<Item> written = {makeItem<Item>("first", 0), makeItem<Item>("second", 20), Item()};
  std::string entries;
  for (const Item& item : written) Ops<Item>::append(item, entries, false);

  std::deque<Item> read = {makeItem<Item>("already there", 40)};
  ASSERT_TRUE(Ops<Item>::parseList(readReply(entries), read));
  ASSERT_EQ(read.size(), 4u);  // appended behind what the list held
  EXPECT_EQ(read[0], makeItem<Item>("already there", 40));
  for (size_t i = 0; i < written.size(); ++i) EXPECT_EQ(read[i + 1], written[i]) << "entry " << i;
}

TYPED_TEST(JournalHelperItems, EveryNastyTextSurvivesByteForByte) {
  using Item = TypeParam;
  for (const std::string& text : nastyTexts()) {
    const Item item = makeItem<Item>(text);
    Item parsed;
    ASSERT_TRUE(H::parseXMLItemBody(Ops<Item>::body(item, false), parsed)) << text.substr(0, 40);
    EXPECT_TRUE(parsed == item) << "text: " << text.substr(0, 40);

    std::deque<Item> list;
    std::string entries;
    Ops<Item>::append(item, entries, false);
    ASSERT_TRUE(Ops<Item>::parseList(readReply(entries), list));
    ASSERT_EQ(list.size(), 1u);
    EXPECT_TRUE(list.front() == item) << "text in list: " << text.substr(0, 40);
  }
}

TYPED_TEST(JournalHelperItems, AppendingOverloadAddsTheBodyAsOneEntryField) {
  using Item = TypeParam;
  const Item item = makeItem<Item>("<x>");
  std::string text = "prefix";
  Ops<Item>::append(item, text, true);
  EXPECT_EQ(text, "prefix" + H::createXMLField(H::ENTRY, Ops<Item>::body(item, true)));
  // The body is text inside the entry: none of its fields can be found as an element.
  std::string value;
  EXPECT_FALSE(H::getXMLValue(text.substr(6), H::ENTRYID, value));
  ASSERT_TRUE(H::getXMLValue(text.substr(6), H::ENTRY, value));
  EXPECT_EQ(value, Ops<Item>::body(item, true));
}

TYPED_TEST(JournalHelperItems, DeleteBodyNamesTheEntryAndNothingElse) {
  using Item = TypeParam;
  const Item item = makeItem<Item>("  del & <ete>  ");
  const std::string body = Ops<Item>::body(item, true);

  std::string value;
  ASSERT_TRUE(H::getXMLValue(body, H::ENTRYID, value));
  EXPECT_EQ(value, item.getEntryId());
  EXPECT_FALSE(H::getXMLValue(body, H::SURNAME, value));
  EXPECT_FALSE(H::getXMLValue(body, H::CALLINFO, value));

  Item parsed;
  ASSERT_TRUE(H::parseXMLItemBody(body, parsed));
  EXPECT_EQ(parsed.getEntryId(), item.getEntryId());
  EXPECT_TRUE(parsed.getSurname().empty());
  if constexpr (!std::is_same_v<Item, CallBackItem>) {
    ASSERT_TRUE(H::getXMLValue(body, H::UNIQUEID, value));
    EXPECT_EQ(value, item.getUniqueId());
    EXPECT_EQ(parsed.getUniqueId(), item.getUniqueId());
    EXPECT_TRUE(parsed.infos().empty());
  }
}

TYPED_TEST(JournalHelperItems, ClientListReplyParsesBack) {
  using Item = TypeParam;
  const std::deque<Item> list = {makeItem<Item>("a\"b", 0), makeItem<Item>("\xC3\xA9", 10)};
  std::deque<Item> parsed;
  ASSERT_TRUE(Ops<Item>::parseList(Ops<Item>::resp(list), parsed));
  EXPECT_EQ(parsed, list);

  std::deque<Item> none;
  EXPECT_TRUE(Ops<Item>::parseList(Ops<Item>::resp({}), none));
  EXPECT_TRUE(none.empty());
  EXPECT_FALSE(Ops<Item>::parseList(H::FAILURE, none));
}

TYPED_TEST(JournalHelperItems, ObserverUpdateParsesBackToItemIdAndAction) {
  using Item = TypeParam;
  const Item item = makeItem<Item>("obs <&>");
  for (int action = 0; action <= 3; ++action) {
    const std::string msg = Ops<Item>::obs(item, " id & <id> ", action);
    EXPECT_EQ(H::getObserverOperation(msg), Ops<Item>::obsOperation);
    Item parsed;
    std::string id;
    int parsedAction = -1;
    ASSERT_TRUE(Ops<Item>::parseObs(msg, parsed, id, parsedAction));
    EXPECT_EQ(parsed, item);
    EXPECT_EQ(id, " id & <id> ");
    EXPECT_EQ(parsedAction, action);
  }
  // An empty item with an empty id (a whole-list change) travels as well.
  Item parsed = item;
  std::string id = "x";
  int action = 0;
  ASSERT_TRUE(Ops<Item>::parseObs(Ops<Item>::obs(Item(), "", 3), parsed, id, action));
  EXPECT_EQ(parsed, Item());
  EXPECT_EQ(id, "");
}

TYPED_TEST(JournalHelperItems, ObserverParserRefusesOtherOperationsAndGarbage) {
  using Item = TypeParam;
  Item item;
  std::string id;
  int action = 0;
  EXPECT_FALSE(Ops<Item>::parseObs(H::obsReqMissedCallsCountUpdate(3), item, id, action));
  EXPECT_FALSE(Ops<Item>::parseObs("<journalEvent><operation>", item, id, action));
  EXPECT_FALSE(Ops<Item>::parseObs("", item, id, action));
  // A message of another entry type names another operation.
  const std::string other = std::is_same_v<Item, CallBackItem> ? H::obsReqMissedCallsUpdate(MissedCallItem(), "", 0)
                                                               : H::obsReqCallBacksUpdate(CallBackItem(), "", 0);
  EXPECT_FALSE(Ops<Item>::parseObs(other, item, id, action));
}

TYPED_TEST(JournalHelperItems, MalformedEntriesAreSkippedAndReported) {
  using Item = TypeParam;
  const Item good = makeItem<Item>("good");
  std::string entries;
  Ops<Item>::append(good, entries, false);
  entries += H::createXMLField(H::ENTRY, "<notAnItem/>");
  entries += H::createXMLField(H::ENTRY, "<" + std::string(H::MISSEDCALL) + "><unclosed>");
  // A number field that is not a number.
  std::string badNumber = Ops<Item>::body(good, false);
  const std::string tag = "<" + std::string(H::NUMBERTYPE) + ">";
  badNumber.replace(badNumber.find(tag) + tag.size(), 1, "two");
  entries += H::createXMLField(H::ENTRY, badNumber);

  std::deque<Item> list;
  EXPECT_FALSE(Ops<Item>::parseList(readReply(entries), list));
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list.front(), good);
}

TYPED_TEST(JournalHelperItems, MalformedDocumentsAppendNothing) {
  using Item = TypeParam;
  std::string entries;
  Ops<Item>::append(makeItem<Item>("x"), entries, false);
  const std::string whole = readReply(entries);
  for (const std::string& bad : {std::string(), std::string("failed"), std::string("<"),
                                 std::string("<a></b>"), whole.substr(0, whole.size() / 2),
                                 std::string("\0<a/>", 5)}) {
    std::deque<Item> list;
    EXPECT_FALSE(Ops<Item>::parseList(bad, list)) << bad.substr(0, 30);
    EXPECT_TRUE(list.empty());
    Item item;
    EXPECT_FALSE(H::parseXMLItemBody(bad, item));
  }
}

// The store may hand the row's unique id on the entry instead of inside the body.
TEST(JournalHelperStore, UniqueIdOnTheEntryOverridesTheBody) {
  MissedCallItem item = makeItem<MissedCallItem>("u");
  item.setUniqueId("");
  const std::string body = H::createXMLMissedCallItemBody(item, false);
  // Written as a store would, with a character reference in the attribute.
  std::string entry = H::createXMLField(H::ENTRY, body);
  entry.insert(1 + std::string(H::ENTRY).size(), " uniqueId=\"17&amp;4\"");
  const std::string reply = readReply(entry);
  std::deque<MissedCallItem> list;
  ASSERT_TRUE(H::parseXMLMissedCallList(reply, list));
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list.front().getUniqueId(), "17&4");
  item.setUniqueId("17&4");
  EXPECT_EQ(list.front(), item);
}

}  // namespace
