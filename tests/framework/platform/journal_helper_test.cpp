// JournalServiceHelper: item bodies, store messages, client requests and replies, observer messages.
#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <type_traits>
#include <vector>

#include "Printers.h"
#include "framework/JournalServiceHelper.h"

namespace {

using H = JournalServiceHelper;

// A text for field `k`: `text` at both ends exercises edge blanks and markup, `k` shows swapped fields.
std::string field(const std::string& text, int k) { return text + "#" + std::to_string(k) + text; }

// Every field set, to a value other than its default.
template <class Info>
Info makeInfo(const std::string& t, int n) {
  Info info;
  int k = 100 + n;
  for (CompactString* text :
       {&info.entryId, &info.number, &info.connectedNumber, &info.connectedSurname, &info.connectedFirstname})
    *text = field(t, k++);
  info.timeDate = "2024-03-0" + std::to_string(n + 1) + "T10:11:12";
  info.logTarget = CallLogEntryEvent::LT_DIALLED_OTHER;
  info.CallInfo::numberPresentation = CallLogEntryEvent::PV_RESTRICTED;
  info.CallInfo::namePresentation = CallLogEntryEvent::PV_SHOWN;
  info.numberType = NumberType::NT_MOBILE;
  info.connectedNumberType = NumberType::NT_HOME;
  if constexpr (std::is_base_of_v<TimeFormat, Info>) info.timeFormat = CallLogEntryEvent::TF_UTC;
  if constexpr (std::is_base_of_v<Duration, Info>) info.duration = field(t, k++);
  if constexpr (std::is_base_of_v<Deflect, Info>) {
    info.deflectNumber = field(t, k++);
    info.deflectName = field(t, k++);
    info.deflectNumberType = NumberType::NT_OTHER;
    info.Deflect::numberPresentation = CallLogEntryEvent::PV_SHOWN;
    info.Deflect::namePresentation = CallLogEntryEvent::PV_RESTRICTED;
  }
  if constexpr (std::is_same_v<Info, MissedCallItem::MissedCallInfo>) info.completedElsewhere = true;
  if constexpr (std::is_same_v<Info, DialledCallItem::DialledCallInfo>) {
    info.dialledNumber = field(t, k++);
    info.isFeatureAccessCode = true;
  }
  return info;
}

template <class Item>
Item makeItem(const std::string& t, int n = 0) {
  if constexpr (std::is_same_v<Item, CallBackItem>) {
    return CallBackItem(field(t, 1 + n), field(t, 2 + n), field(t, 3 + n), field(t, 4 + n), NumberType::NT_BUSINESS,
                        field(t, 5 + n), CallBackItem::CBT_ON_NO_REPLY, CallBackItem::CBS_READY, field(t, 6 + n));
  } else {
    Item item;
    item.setEntryId(field(t, 1 + n));
    item.setSurname(field(t, 2 + n));
    item.setFirstname(field(t, 3 + n));
    item.setUniqueId(field(t, 7 + n));
    item.setPictureClip(field(t, 8 + n));
    // Two occurrences in a definite order: the order must survive too.
    item.infos().push_back(makeInfo<typename Item::InfoList::value_type>(t, 1 + n));
    item.infos().push_back(makeInfo<typename Item::InfoList::value_type>(t, n));
    if constexpr (std::is_same_v<Item, MissedCallItem>) item.setViewed(true);
    if constexpr (std::is_same_v<Item, DialledCallItem>) item.setJournalSeviceGroupBy(field(t, 9 + n));
    return item;
  }
}

// The helper's operations for one entry type, so typed tests run over all five.
template <class Item>
struct Ops;
using S = std::string;
#define JOURNAL_OPS(Item, Name, Plural)                                                                      \
  template <>                                                                                                \
  struct Ops<Item> {                                                                                         \
    static S body(const Item& i, bool d) { return H::createXML##Name##ItemBody(i, d); }                      \
    static void append(const Item& i, S& t, bool d) { H::createXML##Name##ItemBody(i, t, d); }               \
    static bool parseList(const S& r, std::deque<Item>& l) { return H::parseXML##Name##List(r, l); }         \
    static S resp(const std::deque<Item>& l) { return H::respGet##Name##List(l); }                           \
    static S obs(const Item& i, const S& id, int a) { return H::obsReq##Plural(i, id, a); }                  \
    static bool parseObs(const S& m, Item& i, S& id, int& a) { return H::parseObsReq##Plural(m, i, id, a); } \
  };
JOURNAL_OPS(MissedCallItem, MissedCall, MissedCallsUpdate)
JOURNAL_OPS(ReceivedCallItem, ReceivedCall, ReceivedCallsUpdate)
JOURNAL_OPS(DialledCallItem, DialledCall, DialledCallsUpdate)
JOURNAL_OPS(ForwardedCallItem, ForwardedCall, ForwardedCallsUpdate)
JOURNAL_OPS(CallBackItem, CallBack, CallBacksUpdate)
#undef JOURNAL_OPS

// Texts that break naive XML handling.
const std::vector<std::string> kNastyTexts = {"",
                                              " ",
                                              "  leading and trailing  ",
                                              "<surname>&amp;</surname>",
                                              "a < b > c & d \" e ' f",
                                              "]]> <![CDATA[ x ]]>",
                                              "line one\nline two\r\nline three\r\ttab\t",
                                              "M\xC3\xBCller \xE6\x97\xA5 \xF0\x9F\x93\x9E",
                                              "&#60; &lt; &unknown;",
                                              std::string(100000, 'x') + "<&>" + std::string(1000, ' ')};

// A store read reply holding `entries` (ENTRY fields).
std::string readReply(const std::string& entries) {
  return "<storeReply table=\"t\">" + H::createXMLField(H::RESULT, "ok") + entries + "</storeReply>";
}

template <class Item>
class JournalHelperItems : public ::testing::Test {};
using ItemTypes = ::testing::Types<MissedCallItem, ReceivedCallItem, DialledCallItem, ForwardedCallItem, CallBackItem>;
TYPED_TEST_SUITE(JournalHelperItems, ItemTypes, );

TYPED_TEST(JournalHelperItems, EveryFieldRoundTripsAndMalformedEntriesAreSkipped) {
  using Item = TypeParam;
  using Op = Ops<Item>;
  std::deque<Item> written;
  std::string entries, id;
  int action = -1;
  for (size_t k = 0; k <= kNastyTexts.size(); ++k) {  // the observer update carries the text as its id
    const std::string text = k < kNastyTexts.size() ? kNastyTexts[k] : "";
    const Item& item = written.emplace_back(k < kNastyTexts.size() ? makeItem<Item>(text, 20 * k) : Item());
    Item parsed, observed;
    ASSERT_TRUE(H::parseXMLItemBody(Op::body(item, false), parsed)) << "text " << k;
    EXPECT_EQ(parsed, item) << k;
    ASSERT_TRUE(Op::parseObs(Op::obs(item, text, k % 4), observed, id, action)) << "text " << k;
    EXPECT_EQ(observed, item) << k;
    EXPECT_EQ(id, text) << k;
    EXPECT_EQ(action, static_cast<int>(k % 4)) << k;
    Op::append(item, entries, false);
  }
  std::deque<Item> read = {Item()}, replied;
  ASSERT_TRUE(Op::parseList(readReply(entries), read));    // a store read reply
  ASSERT_TRUE(Op::parseList(Op::resp(written), replied));  // the client's list reply
  read.pop_front();                                        // entries are appended behind what the list held
  EXPECT_EQ(read, written);
  EXPECT_EQ(replied, written);

  Item deleted, expected;  // a delete body names the entry and nothing else
  ASSERT_TRUE(H::parseXMLItemBody(Op::body(written[3], true), deleted));
  expected.setEntryId(written[3].getEntryId());
  if constexpr (!std::is_same_v<Item, CallBackItem>) expected.setUniqueId(written[3].getUniqueId());
  EXPECT_EQ(deleted, expected);
  EXPECT_FALSE(Op::parseObs(H::obsReqMissedCallsCountUpdate(3), deleted, id, action));

  // A malformed entry is skipped (and told); a malformed document gives nothing.
  entries = H::createXMLField(H::ENTRY, "<notAnItem/>") + H::createXMLField(H::ENTRY, "<missedCall><x>");
  Op::append(written[1], entries, false);
  std::deque<Item> list;
  EXPECT_FALSE(Op::parseList(readReply(entries), list));
  EXPECT_EQ(list, std::deque<Item>{written[1]});
  const std::string whole = readReply(entries);
  for (const std::string& bad :
       {std::string("<a></b>"), whole.substr(0, whole.size() / 2), std::string("\0<a/>", 5), H::FAILURE}) {
    EXPECT_FALSE(Op::parseList(bad, list)) << bad.substr(0, 30);
    EXPECT_EQ(list.size(), 1u) << bad.substr(0, 30);
  }
}

TEST(JournalHelperMessages, StoreTablesAreEscapedAndMethodCodesAndCountsParseBackAndGarbageIsRefused) {
  std::string message = H::createXMLField(H::REASONFORMESSAGE, H::DELETEREQUEST), id;
  H::addXMLHeaderFooter(message, "a\"b<c&d");
  EXPECT_NE(message.find("table=\"a&quot;b&lt;c&amp;d\""), std::string::npos) << message;

  const std::vector<std::string> ids = {"2024-01-01T00:00:00Z0000000A", "<&>", "", "2024-01-01T00:00:00Z0000000A"};
  for (int code = 1; code <= 32; ++code) {
    std::string request = H::createMethodRequest(code, ids);
    EXPECT_EQ(H::methodCode(H::methodName(code)), code);
    EXPECT_EQ(H::getMethodFromXMLMsg(request), code);
    std::vector<std::string> read;
    while (H::getAndRemoveXMLValue(request, H::ENTRYID, id)) read.push_back(id);
    EXPECT_EQ(read, ids);
  }
  for (const std::string& bad : {std::string(), std::string("<journalRequest><method>1</method></journalRequest>"),
                                 std::string("<journalRequest><method> getMissedCallList</method></journalRequest>")})
    EXPECT_EQ(H::getMethodFromXMLMsg(bad), 0) << bad;

  const std::string op = "<journalEvent><operation>missedCallsCountUpdate</operation>";
  unsigned int n = 5;
  for (const char* bad : {"", "-1", "4294967296", "3x"})
    EXPECT_FALSE(H::parseObsReqMissedCallsCountUpdate(op + "<count>" + bad + "</count></journalEvent>", n)) << bad;
  EXPECT_EQ(n, 5u);
  EXPECT_TRUE(H::parseObsReqMissedCallsCountUpdate(H::obsReqMissedCallsCountUpdate(~0u), n));
  EXPECT_EQ(n, ~0u);
}

// A number that names no value of its enumeration (a log target of 200, a number type of -1) makes
// the item unreadable, as a malformed field does: no such value reaches an entry.
TEST(JournalHelperEnumerations, NumbersOutsideAnEnumerationAreRefused) {
  const auto missed = [](const std::string& attribute) {
    MissedCallItem item;
    return H::parseXMLItemBody(
        "<missedCall><entryId>E</entryId><callInfos><callInfo " + attribute + "/></callInfos></missedCall>", item);
  };
  EXPECT_TRUE(missed("logTarget=\"6\" numberPresentation=\"2\" numberType=\"4\""));
  for (const char* bad : {"logTarget=\"7\"", "logTarget=\"200\"", "numberPresentation=\"3\"", "numberType=\"-1\"",
                          "timeFormat=\"2\"", "connectedNumberType=\"2147483647\""})
    EXPECT_FALSE(missed(bad)) << bad;
  CallBackItem callBack;
  EXPECT_FALSE(
      H::parseXMLItemBody("<callBack><entryId>E</entryId><callBackState>9</callBackState></callBack>", callBack));
}

// A store reply that a damaged row makes not well-formed is read entry by entry by the sizes; each
// entry is then read as it is in a well-formed reply: an item given as escaped text is taken, and a
// unique id attribute, also an empty one, replaces the body's.
TEST(JournalHelperStoredLists, EntriesReadByTheirSizesAreReadAsInAWellFormedReply) {
  const auto entry = [](const std::string& attributes, const std::string& content) {
    return "<entry" + attributes + " size=\"" + std::to_string(content.size()) + "\">" + content + "</entry>";
  };
  const std::string asText = "&lt;missedCall&gt;&lt;entryId&gt;T&lt;/entryId&gt;&lt;/missedCall&gt;";
  const std::string entries =
      entry(" uniqueId=\"3\"", asText) +
      entry(" uniqueId=\"\"", "<missedCall><uniqueId>7</uniqueId><entryId>E</entryId></missedCall>");
  const std::string damaged = entry(" uniqueId=\"9\"", "<missedCall><surname>a</missedCall>");
  for (const std::string& reply :
       {"<storeReply table=\"callLogMissedCalls\"><result>ok</result>" + entries + "</storeReply>",
        "<storeReply table=\"callLogMissedCalls\"><result>ok</result>" + entries + damaged + "</storeReply>"}) {
    std::deque<MissedCallItem> list;
    std::vector<std::string> skipped;
    ASSERT_TRUE(H::parseStoredMissedCallList(reply, list, skipped)) << reply;
    ASSERT_EQ(list.size(), 2u) << reply;
    EXPECT_EQ(list[0].getEntryId(), "T");
    EXPECT_EQ(list[0].getUniqueId(), "3");
    EXPECT_EQ(list[1].getUniqueId(), "");
  }
}

}  // namespace

namespace {

// The exact text of a body: short plain fields, markup in an element and in an attribute, and a
// value too long to be put together in one piece.
TEST(JournalHelperItemText, FieldsAreWrittenWithTheirReferencesAndLongValuesWhole) {
  MissedCallItem item;
  item.setEntryId("E1");
  item.setSurname("a<b>&c");
  MissedCallItem::MissedCallInfo info;
  info.number = "0301";
  info.connectedSurname = "say \"hi\"\tnow";
  item.infos().push_back(info);
  const std::string longName(300, 'n');
  item.setFirstname(longName);
  EXPECT_EQ("<missedCall><entryId>E1</entryId><surname>a&lt;b&gt;&amp;c</surname><firstname>" + longName +
                "</firstname><callInfos><callInfo number=\"0301\" connectedSurname=\"say &quot;hi&quot;&#9;now\"/>"
                "</callInfos></missedCall>",
            H::createXMLMissedCallItemBody(item, false));
}

}  // namespace
