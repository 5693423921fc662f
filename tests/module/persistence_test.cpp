// The journal's store exchange: unique ids from write replies, loading and purging stored lists,
// and a store that fails or is missing.
#include <gtest/gtest.h>

#include "Items.h"
#include "JournalHarness.h"
#include "RecordingObserver.h"
#include "framework/JournalServiceHelper.h"
#include "framework/SqliteDataAccessService.h"

using Helper = JournalServiceHelper;

namespace {

// A read reply holding `items` in the given order.
std::string readReply(const std::vector<MissedCallItem>& items) {
  std::string entries;
  for (const auto& item : items) Helper::createXMLMissedCallItemBody(item, entries, false);
  return "<storeReply><result>ok</result>" + entries + "</storeReply>";
}

TEST(Persistence, WriteRepliesRenewTheUniqueIdAndFailuresChangeNothing) {
  JournalHarness phone;
  phone.start();
  auto item = makeEntry<MissedCallItem>("M1", "100", "2024-03-05T10:00:00");
  phone.store.setReply("<storeReply><result>ok</result><lastUniqueId>17</lastUniqueId></storeReply>");
  phone.service->updateMissedEntry(item, Helper::WRITEREQUEST);
  EXPECT_EQ(phone.service->lastUniqueId(), "17");
  EXPECT_TRUE(phone.peer().visitorCallLogChanged());

  phone.peer().setVisitorCallLogChanged(false);
  phone.store.setReply("failed");
  phone.service->updateMissedEntry(item, Helper::UPDATEREQUEST);
  EXPECT_EQ(phone.service->lastUniqueId(), "17");
  EXPECT_FALSE(phone.peer().visitorCallLogChanged());
  std::string sent = phone.store.requests().back(), body;
  ASSERT_TRUE(Helper::getXMLValue(sent, Helper::ENTRY, body));
  EXPECT_NE(body.find("<callInfos>"), std::string::npos);  // update carries the full body

  phone.service->updateMissedEntry(item, Helper::DELETEREQUEST);
  ASSERT_TRUE(Helper::getXMLValue(phone.store.requests().back(), Helper::ENTRY, body));
  EXPECT_EQ(body.find("<callInfos>"), std::string::npos);  // delete carries the delete body
}

TEST(Persistence, LoadingSortsNewestFirstAndPurgesEntriesWithoutOccurrences) {
  JournalHarness phone;
  phone.start();
  auto older = makeEntry<MissedCallItem>("M-old", "100", "2024-03-01T10:00:00");
  auto newer = makeEntry<MissedCallItem>("M-new", "200", "2024-03-05T10:00:00");
  auto emptyA = makeEntry<MissedCallItem>("M-emptyA", "300", "2024-03-04T10:00:00", 0);
  auto emptyB = makeEntry<MissedCallItem>("M-emptyB", "400", "2024-03-02T10:00:00", 0);
  phone.store.clear();
  phone.service->processMissedCallDbXml(readReply({emptyA, older, emptyB, newer}));

  std::deque<MissedCallItem> list;
  phone.service->getMissedCallList(list);
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0].getEntryId(), "M-new");
  EXPECT_EQ(list[1].getEntryId(), "M-old");
  auto requests = phone.store.requests();
  ASSERT_EQ(requests.size(), 2u);  // one delete per empty entry
  for (const auto& request : requests) {
    std::string reason;
    Helper::getXMLValue(request, Helper::REASONFORMESSAGE, reason);
    EXPECT_EQ(reason, Helper::DELETEREQUEST);
  }
}

TEST(Persistence, AFailedReadLeavesTheListAndOnlySipPhonesLoadForwardedCalls) {
  JournalHarness phone(std::map<std::string, std::string>{{"software-type", "Velmora KPX"}});
  phone.start();
  phone.peer().missedList() = {makeEntry<MissedCallItem>("M1", "100", "2024-03-05T10:00:00")};
  phone.store.clear();
  phone.service->loadCallListsFromDb();  // the recording store answers "failed"
  EXPECT_EQ(phone.peer().missedList().size(), 1u);
  EXPECT_EQ(phone.store.requestCount(), 3u);

  phone.peer().setSoftwareType("Velmora SIP");
  phone.store.clear();
  phone.service->loadCallListsFromDb();
  EXPECT_EQ(phone.store.requestCount(), 4u);
}

TEST(Persistence, WithoutAStoreListsStillChangeAndObserversAreTold) {
  JournalHarness phone({}, kAllServices & ~kStoreService);
  phone.start();
  RecordingObserver observer;
  phone.service->refreshCallLog();
  phone.service->subscribe(&observer);
  phone.peer().receivedList() = {makeEntry<ReceivedCallItem>("R1", "100", "2024-03-05T10:00:00")};
  EXPECT_EQ(phone.service->processRequest("<anything/>"), "failed");
  EXPECT_TRUE(phone.service->deleteReceivedCall("R1"));
  EXPECT_TRUE(phone.peer().receivedList().empty());
  EXPECT_EQ(observer.calls().back(), "received |R1|2");
  EXPECT_FALSE(phone.peer().visitorCallLogChanged());
}

// A SIP phone (all four lists are stored) on a store file of a temporary directory.
struct PhoneOnFile {
  explicit PhoneOnFile(const std::string& path) {
    std::string error;
    EXPECT_TRUE(store.open(path, error)) << error;
    phone.useStore(&store);
    phone.start();
    phone.service->refreshCallLog();
  }
  SqliteDataAccessService store;
  JournalHarness phone{std::map<std::string, std::string>{{"software-type", "Velmora SIP"}}};
};

template <class Item>
void write(JournalService& service, std::vector<Item>& items) {
  for (Item& item : items) {
    if constexpr (std::is_same_v<Item, MissedCallItem>) service.updateMissedEntry(item, Helper::WRITEREQUEST);
    if constexpr (std::is_same_v<Item, ForwardedCallItem>) service.updateForwardedEntry(item, Helper::WRITEREQUEST);
    item.setUniqueId(service.lastUniqueId());
  }
}

TEST(Persistence, ListsComeBackFromTheFileNewestFirstAfterARestart) {
  char dir[] = "/tmp/journal-persistence-XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  const std::string path = std::string(dir) + "/journal.db";
  std::vector<MissedCallItem> missed = {makeEntry<MissedCallItem>("M-old", "100", "2024-03-01T10:00:00", 3),
                                        makeEntry<MissedCallItem>("M-new", "2<&>\"3", "2024-03-05T10:00:00"),
                                        makeEntry<MissedCallItem>("M-empty", "300", "2024-03-04T10:00:00", 0)};
  missed[1].setViewed(true);
  std::vector<ForwardedCallItem> forwarded = {makeEntry<ForwardedCallItem>("F1", "100", "2024-03-02T10:00:00")};
  {
    PhoneOnFile before(path);
    write(*before.phone.service, missed);
    write(*before.phone.service, forwarded);
  }
  PhoneOnFile after(path);
  std::deque<MissedCallItem> missedList;
  std::deque<ForwardedCallItem> forwardedList;
  after.phone.service->getMissedCallList(missedList);
  after.phone.service->getForwardedCallList(forwardedList);
  EXPECT_EQ(missedList, (std::deque<MissedCallItem>{missed[1], missed[0]}));  // newest first, empty one purged
  EXPECT_EQ(forwardedList, std::deque<ForwardedCallItem>(forwarded.begin(), forwarded.end()));

  std::deque<MissedCallItem> stored;  // the purge reached the file
  Helper::parseXMLMissedCallList(after.store.processRequest(Helper::readMissedCallList()), stored);
  EXPECT_EQ(stored.size(), 2u);
  std::system(("rm -rf '" + std::string(dir) + "'").c_str());
}

}  // namespace
