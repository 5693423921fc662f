// The quick scan of item bodies: a body it accepts reads exactly as pugixml reads it, and it
// leaves every body it does not know to pugixml.
#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "Printers.h"
#include "framework/ItemScan.h"
#include "framework/JournalServiceHelperXml.h"

namespace {

using H = JournalServiceHelper;

// Reads `body` both ways; false in `scanned` when the scan left it to pugixml.
struct BothReads {
  bool scanned = false;
  bool scanRead = false;
  bool documentRead = false;
  MissedCallItem fromScan;
  MissedCallItem fromDocument;
};

BothReads readBoth(const std::string& body) {
  BothReads reads;
  journalxml::ItemScan scan;
  reads.scanned = scan.scan(body.data(), body.size());
  if (reads.scanned) reads.scanRead = journalxml::readItem(scan, reads.fromScan);
  pugi::xml_document doc;
  reads.documentRead = journalxml::parse(doc, body) && journalxml::readItem(doc.document_element(), reads.fromDocument);
  return reads;
}

MissedCallItem plainItem() {
  MissedCallItem item;
  item.setEntryId("2024-03-05T10:00:00Z0000000A");
  item.setUniqueId("12");
  item.setSurname("M\xC3\xBCller-Meyer");
  item.setViewed(true);
  item.setListOrder(40);
  for (int n = 0; n < 3; ++n) {
    MissedCallItem::MissedCallInfo info;
    info.entryId = "E" + std::to_string(n);
    info.number = "+49 89 " + std::to_string(700 + n);
    info.timeDate = "2024-03-05T10:0" + std::to_string(n) + ":00";
    info.logTarget = CallLogEntryEvent::LT_DIALLED_OTHER;
    info.completedElsewhere = n == 1;
    item.infos().push_back(info);
  }
  return item;
}

TEST(ItemScan, BodiesItAcceptsReadAsTheDocumentReadsThem) {
  std::string written;
  journalxml::writeItem(written, plainItem(), false);
  const std::vector<std::string> accepted = {
      written,
      "<missedCall><surname></surname><firstname/><callInfos/></missedCall>",
      "<missedCall><surname>  </surname><firstname>a\rb</firstname></missedCall>",
      // the reader looks for each field after the one before: a field out of order is not seen
      "<missedCall><surname>S</surname><entryId>E</entryId><foo>x</foo></missedCall>",
      "<missedCall><callInfos><callInfo number=\"1\" number=\"2\"/><callInfo/></callInfos></missedCall>",
      "<missedCall><callInfos><callInfo logTarget=\"7\"/></callInfos></missedCall>",
      // occurrences whose names differ from the one before at the same place: a longer name
      // starting with it, a shorter one, one more, one fewer
      "<missedCall><callInfos><callInfo number=\"1\" timeDate=\"t\"/><callInfo numberType=\"2\"/>"
      "<callInfo number=\"3\" time=\"x\" timeDate=\"v\"/><callInfo number=\"4\"/><callInfo/>"
      "<callInfo entryId=\"E\" number=\"5\"/></callInfos></missedCall>",
      "<missedCall><viewed>yes</viewed></missedCall>",
      "<dialledCall><entryId>E</entryId></dialledCall>",
  };
  for (const std::string& body : accepted) {
    const BothReads reads = readBoth(body);
    ASSERT_TRUE(reads.scanned) << body;
    EXPECT_EQ(reads.documentRead, reads.scanRead) << body;
    EXPECT_EQ(reads.fromDocument, reads.fromScan) << body;
  }
  EXPECT_TRUE(readBoth(written).scanRead);
  EXPECT_EQ(readBoth(written).fromScan, plainItem());
  EXPECT_FALSE(readBoth(accepted[5]).scanRead);
  const MissedCallItem varied = readBoth(accepted[6]).fromScan;
  ASSERT_EQ(6u, varied.infos().size());
  EXPECT_EQ("", varied.infos()[1].number);
  EXPECT_EQ(NumberType::NT(2), varied.infos()[1].numberType);
  EXPECT_EQ("v", varied.infos()[2].timeDate);
  EXPECT_EQ("5", varied.infos()[5].number);
}

TEST(ItemScan, BodiesItDoesNotKnowAreLeftToTheDocument) {
  static const char kWithNull[] = "<missedCall><entryId>E\0</entryId></missedCall>";
  const std::vector<std::string> refused = {
      "<missedCall><surname>a &amp; b</surname></missedCall>",
      "<?xml version=\"1.0\"?><missedCall/>",
      "<missedCall>\n<entryId>E</entryId></missedCall>",
      "<missedCall><surname><![CDATA[x]]></surname></missedCall>",
      "<missedCall><!-- c --><entryId>E</entryId></missedCall>",
      "<missedCall><callInfos><callInfo number='1'/></callInfos></missedCall>",
      "<missedCall><callInfos><callInfo number=\"1\tx\"/></callInfos></missedCall>",
      "<missedCall><callInfos><callInfo  number=\"1\"/></callInfos></missedCall>",
      "<missedCall><callInfos><other/></callInfos></missedCall>",
      "<missedCall><callInfos><callInfoX number=\"1\"/></callInfos></missedCall>",
      "<missedCall><callInfos><callInfo number=\"1\"/><callInfo number =\"2\"/></callInfos></missedCall>",
      "<missedCall><callInfos>text</callInfos></missedCall>",
      "<missedCall><surname a=\"1\">x</surname></missedCall>",
      "<missedCall><surname><b/></surname></missedCall>",
      "<missedCall><surname>x</surnam></missedCall>",
      "<missedCall x=\"1\"><entryId>E</entryId></missedCall>",
      "<missedCall><entryId>E</entryId></missedCall> ",
      "<missedCall><entryId>E</entryId>",
      std::string(kWithNull, sizeof kWithNull - 1),
  };
  for (const std::string& body : refused) EXPECT_FALSE(readBoth(body).scanned) << body;
  // Those pugixml reads are still read, through it.
  MissedCallItem item;
  ASSERT_TRUE(H::parseXMLItemBody(refused[0], item));
  EXPECT_EQ(item.getSurname(), "a & b");
  ASSERT_TRUE(H::parseXMLItemBody(refused[6], item));
  EXPECT_EQ(item.infos().front().number, "1 x");
  EXPECT_FALSE(H::parseXMLItemBody(refused[14], item));
}

// Lists are cut into entries by their frame; a reply in another frame is read as one document.
TEST(ItemScan, ListRepliesOutsideTheWrittenFrameReadTheSame) {
  std::deque<MissedCallItem> written = {plainItem(), plainItem()};
  written[1].setSurname("O'Brien & Sons");
  const std::string reply = H::respGetMissedCallList(written);
  std::string spaced = reply;
  spaced.insert(spaced.find("<entry>", spaced.find("</entry>")), "\n  ");
  for (const std::string& text : {reply, spaced}) {
    std::deque<MissedCallItem> read;
    ASSERT_TRUE(H::parseXMLMissedCallList(text, read)) << text;
    EXPECT_EQ(read, written);
  }

  std::string body;
  journalxml::writeItem(body, written[1], false);
  const std::string stored =
      "<storeReply table=\"callLogMissedCalls\"><result>ok</result><entry uniqueId=\"5\" size=\"" +
      std::to_string(body.size()) + "\">" + body + "</entry></storeReply>";
  std::deque<MissedCallItem> list;
  std::vector<std::string> skipped;
  ASSERT_TRUE(H::parseStoredMissedCallList(stored, list, skipped));
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].getSurname(), "O'Brien & Sons");
  EXPECT_EQ(list[0].getUniqueId(), "5");
  EXPECT_TRUE(skipped.empty());
}

}  // namespace
