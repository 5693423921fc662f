// The journal's store exchange: loading and purging stored lists, ids made unique on loading.
#include <gtest/gtest.h>

#include <set>

#include "ClientLists.h"
#include "CstaEventFactory.h"
#include "Items.h"
#include "JournalHarness.h"
#include "framework/JournalServiceHelper.h"
#include "memory_store/MemoryDataAccessService.h"

using Helper = JournalServiceHelper;

namespace {

// Writes the entries `append` gives to `table` of the store, as an earlier program left them.
template <class Append>
void writeToStore(MemoryDataAccessService& store, const char* table, Append append) {
  std::string message = Helper::createXMLField(Helper::REASONFORMESSAGE, Helper::WRITEREQUEST);
  append(message);
  Helper::addXMLHeaderFooter(message, table);
  ASSERT_NE("failed", store.processRequest(message));
}

// Loading sorts newest first and purges entries without occurrences, one delete each; entries
// without a place in their list (written before places were kept) are given one and written.
TEST(Persistence, LoadingSortsPurgesEmptyEntriesAndPlacesTheOthers) {
  JournalHarness phone(std::map<std::string, std::string>{{"software-type", "Velmora KPX"}});
  phone.store.setReply("<storeReply><result>ok</result></storeReply>");
  phone.start();
  std::string reply;
  for (const auto& entry : {makeEntry<MissedCallItem>("M-emptyA", "300", "2024-03-04T10:00:00", 0),
                            makeEntry<MissedCallItem>("M-old", "100", "2024-03-01T10:00:00"),
                            makeEntry<MissedCallItem>("M-emptyB", "400", "2024-03-02T10:00:00", 0),
                            makeEntry<MissedCallItem>("M-new", "200", "2024-03-05T10:00:00")})
    Helper::createXMLMissedCallItemBody(entry, reply, false);
  phone.store.clear();
  phone.service->processMissedCallDbXml("<storeReply><result>ok</result>" + reply + "</storeReply>");
  const auto list = missedCalls(*phone.service);
  ASSERT_EQ(2u, list.size());
  EXPECT_EQ("M-new", list[0].getEntryId());
  EXPECT_EQ("M-old", list[1].getEntryId());
  const auto requests = phone.store.requests();
  ASSERT_EQ(3u, requests.size());  // one delete per empty entry, then the places of the others
  for (size_t i : {0u, 1u}) EXPECT_NE(std::string::npos, requests[i].find("<reason>delete</reason>")) << requests[i];
  EXPECT_NE(std::string::npos, requests[2].find("<reason>write</reason>")) << requests[2];
  EXPECT_GT(list[0].getListOrder(), list[1].getListOrder());
  EXPECT_GT(list[1].getListOrder(), 0);
}

// A store written before ids were kept unique may hold one id in several lists: the load gives every
// entry but one the next free id, writes it back (a restart finds the same ids), and new entries
// take none of them.
TEST(Persistence, AnIdHeldTwiceInTheStoreIsMadeUniqueWhenLoadedAndKept) {
  const std::string shared = "2024-03-05T07:08:09Z00000000";
  MemoryDataAccessService store;
  writeToStore(store, Helper::DAS_CALLLOGMISSEDCALLS, [&](std::string& entries) {
    Helper::createXMLMissedCallItemBody(makeEntry<MissedCallItem>(shared, "100", "2024-03-05T07:08:09"), entries,
                                        false);
  });
  writeToStore(store, Helper::DAS_CALLLOGRECEIVEDCALLS, [&](std::string& entries) {
    Helper::createXMLReceivedCallItemBody(makeEntry<ReceivedCallItem>(shared, "200", "2024-03-05T07:08:09"), entries,
                                          false);
  });
  writeToStore(store, Helper::DAS_CALLLOGDIALLEDCALLS, [&](std::string& entries) {
    Helper::createXMLDialledCallItemBody(makeEntry<DialledCallItem>(shared, "300", "2024-03-05T07:08:09"), entries,
                                         false);
  });
  std::set<std::string> loaded;
  for (int start = 0; start < 2; ++start) {
    JournalHarness phone(std::map<std::string, std::string>{{"software-type", "Velmora SIP"}});
    phone.useStore(&store);
    phone.start();
    phone.service->refreshCallLog();
    const std::set<std::string> ids{missedCalls(*phone.service).front().getEntryId(),
                                    receivedCalls(*phone.service).front().getEntryId(),
                                    dialledCalls(*phone.service).front().getEntryId()};
    EXPECT_EQ(ids.size(), 3u);
    EXPECT_EQ(ids.count(shared), 1u);
    if (start == 1) {
      EXPECT_EQ(ids, loaded);  // kept across the restart
    }
    loaded = ids;
    // A failed call of this very second: its id "0" is taken, and so are the two given at the load.
    phone.service->deliverEvent(csta::failed("0", csta::dev("400"), csta::dev(csta::kOwnLine), EC_BUSY).get());
    const std::string fresh = missedCalls(*phone.service).front().getEntryId();
    EXPECT_EQ(fresh.substr(0, 20), "2024-03-05T07:08:09Z");
    EXPECT_EQ(loaded.count(fresh), 0u) << fresh;
    phone.service->deleteMissedCall(fresh);
  }
}

}  // namespace
