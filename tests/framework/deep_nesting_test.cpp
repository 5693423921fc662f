// Deeply nested input in every XML reader of the framework: each is read (or refused) on a thread
// with a small stack, so that a walk that recurses per level of the input cannot pass unnoticed.
// (The trace reader's deep event: TraceReplayTest.ADeeplyNestedEventIsReplayedLikeAnyOther.)
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <deque>
#include <string>

#include "SmallStack.h"
#include "csta_link/CstaXml.h"
#include "framework/CstaEvents.h"
#include "framework/JournalServiceHelper.h"
#include "sqlite_store/SqliteDataAccessService.h"

namespace {

constexpr std::size_t kLevels = 200000;
const std::string kNs = " xmlns=\"http://www.ecma-international.org/standards/ecma-323/csta/ed4\"";

std::string deliveredWithDeepPrivateData() {
  return "<DeliveredEvent" + kNs +
         "><monitorCrossRefID>1</monitorCrossRefID><connection><callID>FF01</callID></connection>"
         "<extensions><privateData><private>" +
         nested("v", kLevels, "<callStatus>MissedCall</callStatus>") + "</private></privateData></extensions>" +
         "<localConnectionInfo>alerting</localConnectionInfo></DeliveredEvent>";
}

TEST(DeepNesting, CstaEventPrivateDataIsSearchedWithoutRecursion) {
  std::string status, privateText;
  int privateType = 0;
  ASSERT_TRUE(runOnSmallStack([&] {
    const csta_xml::CstaParseResult delivered = csta_xml::parseCstaEvent(deliveredWithDeepPrivateData());
    if (delivered.event) status = dynamic_cast<const CSTADeliveredEvent&>(*delivered.event).getPrivateData();
    const csta_xml::CstaParseResult vendor =
        csta_xml::parseCstaEvent("<PrivateEvent" + kNs + "><privateData><private>" + nested("v", kLevels) +
                                 "</private></privateData></PrivateEvent>");
    if (const auto* p = dynamic_cast<const CSTAPrivateEvent*>(vendor.event.get())) {
      privateType = p->getEventType();
      privateText = p->getPrivateData();
    }
  }));
  EXPECT_EQ(status, "MissedCall");
  EXPECT_EQ(privateType, CSTAPrivateEvent::kPrivateEventUnknown);
  EXPECT_EQ(privateText.substr(0, 15), "<private><v><v>");  // only the start of a deep vendor tree is kept
  EXPECT_EQ(privateText.size(), csta_xml::kMaxPartyTextBytes);
}

TEST(DeepNesting, NestedNameAndUriFormsOfADeviceIdentifier) {
  std::string text;
  for (std::size_t i = 0; i < kLevels; ++i) text += "\"n\" <";
  text += "sip:2001@pbx" + std::string(kLevels, '>');
  CSTADeviceID device;
  ASSERT_TRUE(runOnSmallStack([&] { device = csta_xml::parseDeviceIdentifier(text); }));
  EXPECT_EQ(device.name, "n");
}

TEST(DeepNesting, ClientRequestEntryIdsAndListReplies) {
  using H = JournalServiceHelper;
  std::string request = H::createMethodRequest(H::DELETE_CALLS, {"a", "b"});
  request.insert(request.find("</journalRequest>"), "<entryId>" + nested("x", kLevels) + "</entryId>");
  std::vector<std::string> ids;
  std::size_t entries = 0;
  ASSERT_TRUE(runOnSmallStack([&] {
    H::getXMLValues(request, H::ENTRYID, ids);
    std::string copy = request, id;
    while (H::getAndRemoveXMLValue(copy, H::ENTRYID, id)) {
    }
    std::deque<MissedCallItem> list;
    H::parseXMLMissedCallList(
        "<journalResponse><result>true</result><entry>" + nested("missedCall", kLevels) + "</entry></journalResponse>",
        list);
    entries = list.size();
  }));
  EXPECT_EQ(ids, (std::vector<std::string>{"a", "b", ""}));
  EXPECT_EQ(entries, 1u);  // an entry with an element it does not know, read all the same
}

TEST(DeepNesting, StoreRequestsWithADeepBodyAreAnswered) {
  char path[] = "/tmp/deep-store-XXXXXX";
  const int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  close(fd);
  SqliteDataAccessService sqlite(SqliteDataAccessService::Normal);
  std::string error;
  ASSERT_TRUE(sqlite.open(path, error)) << error;
  using H = JournalServiceHelper;
  std::string request =
      H::createXMLField(H::REASONFORMESSAGE, H::WRITEREQUEST) +
      H::createXMLField(H::ENTRY, "<missedCall><entryId>E1</entryId>" + nested("x", kLevels) + "</missedCall>");
  H::addXMLHeaderFooter(request, H::DAS_CALLLOGMISSEDCALLS);
  std::string fromSqlite;
  ASSERT_TRUE(runOnSmallStack([&] { fromSqlite = sqlite.processRequest(request); }));
  EXPECT_NE(fromSqlite.find("<lastUniqueId>1</lastUniqueId>"), std::string::npos) << fromSqlite.substr(0, 200);
  sqlite.close();
  std::remove(path);
  std::remove((std::string(path) + "-wal").c_str());
  std::remove((std::string(path) + "-shm").c_str());
}

}  // namespace
