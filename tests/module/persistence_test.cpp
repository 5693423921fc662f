// The journal's store exchange: unique ids, loading and purging stored lists, ids made unique on loading.
#include <gtest/gtest.h>

#include <set>

#include "CstaEventFactory.h"
#include "Items.h"
#include "JournalHarness.h"
#include "framework/JournalServiceHelper.h"
#include "memory_store/MemoryDataAccessService.h"

using Helper = JournalServiceHelper;

namespace {

TEST(Persistence, WriteRepliesRenewTheUniqueIdAndLoadingSortsPurgesAndSurvivesFailures) {
  JournalHarness phone(std::map<std::string, std::string>{{"software-type", "Velmora KPX"}});
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

  // Loading sorts newest first and purges entries without occurrences, one delete each; entries
  // without a place in their list (written before places were kept) are given one and written.
  phone.store.setReply("<storeReply><result>ok</result></storeReply>");
  std::string reply;
  for (const auto& entry : {makeEntry<MissedCallItem>("M-emptyA", "300", "2024-03-04T10:00:00", 0),
                            makeEntry<MissedCallItem>("M-old", "100", "2024-03-01T10:00:00"),
                            makeEntry<MissedCallItem>("M-emptyB", "400", "2024-03-02T10:00:00", 0),
                            makeEntry<MissedCallItem>("M-new", "200", "2024-03-05T10:00:00")})
    Helper::createXMLMissedCallItemBody(entry, reply, false);
  phone.store.clear();
  phone.service->processMissedCallDbXml("<storeReply><result>ok</result>" + reply + "</storeReply>");
  auto& list = phone.peer().missedList();
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0].getEntryId() + "," + list[1].getEntryId(), "M-new,M-old");
  const auto requests = phone.store.requests();
  ASSERT_EQ(requests.size(), 3u);  // one delete per empty entry, then the places of the others
  for (size_t i : {0u, 1u}) EXPECT_NE(requests[i].find("<reason>delete</reason>"), std::string::npos) << requests[i];
  EXPECT_NE(requests[2].find("<reason>write</reason>"), std::string::npos) << requests[2];
  EXPECT_GT(list[0].getListOrder(), list[1].getListOrder());
  EXPECT_GT(list[1].getListOrder(), 0);

  // A failing store leaves the lists as they are; only SIP phones read forwarded calls.
  phone.store.setReply("failed");
  for (auto [software, reads] : {std::make_pair("Velmora KPX", 3u), {"Velmora SIP", 4u}}) {
    phone.peer().setSoftwareType(software);
    phone.store.clear();
    phone.service->loadCallListsFromDb();
    EXPECT_EQ(list.size(), 2u) << software;
    EXPECT_EQ(phone.store.requests().size(), reads) << software;
  }
}

// A store written before ids were kept unique may hold one id in several lists: the load gives every
// entry but one the next free id, writes it back (a restart finds the same ids), and new entries
// take none of them.
TEST(Persistence, AnIdHeldTwiceInTheStoreIsMadeUniqueWhenLoadedAndKept) {
  const std::string shared = "2024-03-05T07:08:09Z00000000";
  MemoryDataAccessService store;
  std::set<std::string> loaded;
  for (int start = 0; start < 2; ++start) {
    JournalHarness phone(std::map<std::string, std::string>{{"software-type", "Velmora SIP"}});
    phone.useStore(&store);
    phone.start();
    if (start == 0) {
      std::string missed, received, dialled;
      Helper::createXMLMissedCallItemBody(makeEntry<MissedCallItem>(shared, "100", "2024-03-05T07:08:09"), missed,
                                          false);
      Helper::createXMLReceivedCallItemBody(makeEntry<ReceivedCallItem>(shared, "200", "2024-03-05T07:08:09"), received,
                                            false);
      Helper::createXMLDialledCallItemBody(makeEntry<DialledCallItem>(shared, "300", "2024-03-05T07:08:09"), dialled,
                                           false);
      phone.service->updateEntries(missed, Helper::WRITEREQUEST, Helper::DAS_CALLLOGMISSEDCALLS);
      phone.service->updateEntries(received, Helper::WRITEREQUEST, Helper::DAS_CALLLOGRECEIVEDCALLS);
      phone.service->updateEntries(dialled, Helper::WRITEREQUEST, Helper::DAS_CALLLOGDIALLEDCALLS);
    }
    phone.service->refreshCallLog();
    auto peer = phone.peer();
    const std::set<std::string> ids{peer.missedList().front().getEntryId(), peer.receivedList().front().getEntryId(),
                                    peer.dialledList().front().getEntryId()};
    EXPECT_EQ(ids.size(), 3u);
    EXPECT_EQ(ids.count(shared), 1u);
    if (start == 1) {
      EXPECT_EQ(ids, loaded);  // kept across the restart
    }
    loaded = ids;
    // A failed call of this very second: its id "0" is taken, and so are the two given at the load.
    phone.service->deliverEvent(csta::failed("0", csta::dev("400"), csta::dev(csta::kOwnLine), EC_BUSY).get());
    const std::string fresh = phone.service->getFrontMissedCall().getEntryId();
    EXPECT_EQ(fresh.substr(0, 20), "2024-03-05T07:08:09Z");
    EXPECT_EQ(loaded.count(fresh), 0u) << fresh;
    phone.service->deleteMissedCall(fresh);
  }
}

}  // namespace
