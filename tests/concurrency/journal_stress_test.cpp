// The journal under load from several threads at once, on the real SQLite store: management
// events that reload every list and refresh all observers, client deletions, viewed marking and
// ageing, subscriptions, and refreshes. The lock-order checker must stay silent (no lock order is
// ever inverted, even where this run happened not to deadlock), and afterwards the lists in
// memory must equal what the store holds.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <thread>

#include "Items.h"
#include "JournalHarness.h"
#include "RecordingObserver.h"
#include "framework/JournalServiceHelper.h"
#include "framework/LockOrder.h"
#include "framework/SqliteDataAccessService.h"

using Helper = JournalServiceHelper;

namespace {

constexpr int kRounds = 60;
constexpr int kEntriesPerList = 40;

std::string idOf(const char* list, int n) { return std::string(list) + std::to_string(n); }

// Writes full lists of entries to the store through the service, one message per list.
void seedStore(JournalService& service) {
  std::string missed, dialled, received, forwarded;
  for (int n = 0; n < kEntriesPerList; ++n) {
    std::string time = "2024-03-05T10:" + std::to_string(10 + n) + ":00";
    std::string number = std::to_string(100 + n);
    Helper::createXMLMissedCallItemBody(makeEntry<MissedCallItem>(idOf("M", n), number, time, 2), missed, false);
    Helper::createXMLDialledCallItemBody(makeEntry<DialledCallItem>(idOf("D", n), number, time), dialled, false);
    Helper::createXMLReceivedCallItemBody(makeEntry<ReceivedCallItem>(idOf("R", n), number, time), received, false);
    Helper::createXMLForwardedCallItemBody(makeEntry<ForwardedCallItem>(idOf("F", n), number, time), forwarded,
                                           false);
  }
  service.updateEntries(missed, Helper::WRITEREQUEST, Helper::DAS_CALLLOGMISSEDCALLS);
  service.updateEntries(dialled, Helper::WRITEREQUEST, Helper::DAS_CALLLOGDIALLEDCALLS);
  service.updateEntries(received, Helper::WRITEREQUEST, Helper::DAS_CALLLOGRECEIVEDCALLS);
  service.updateEntries(forwarded, Helper::WRITEREQUEST, Helper::DAS_CALLLOGFORWARDEDCALLS);
}

template <class Item>
std::vector<std::string> idsOf(const std::deque<Item>& list) {
  std::vector<std::string> ids;
  for (const Item& item : list) ids.push_back(item.getEntryId());
  return ids;
}

class JournalStress : public ::testing::Test {
 protected:
  void SetUp() override {
    fw::LockOrderChecker::clearReports();
    char dir[] = "/tmp/journal-stress-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    m_dir = dir;
    std::string error;
    ASSERT_TRUE(store.open(m_dir + "/journal.db", SqliteDataAccessService::Normal, error)) << error;
  }
  void TearDown() override { std::system(("rm -rf '" + m_dir + "'").c_str()); }

  SqliteDataAccessService store;
  std::string m_dir;
};

TEST_F(JournalStress, ConcurrentChangesKeepTheLockOrderAndTheStoreInStep) {
  JournalHarness phone(std::map<std::string, std::string>{{"software-type", "Velmora SIP"}});
  phone.useStore(&store);
  phone.start();
  seedStore(*phone.service);
  phone.service->refreshCallLog();
  JournalService& journal = *phone.service;

  RecordingObserver screen;
  journal.subscribe(&screen);
  std::atomic<bool> go{false};
  auto rounds = [&](auto body) {
    return std::thread([&go, body] {
      while (!go) std::this_thread::yield();
      for (int round = 0; round < kRounds; ++round) body(round);
    });
  };

  std::vector<std::thread> threads;
  threads.push_back(rounds([&](int round) {  // management events, delivered on their own thread
    phone.mgmt.setValue("mobility-user-data-update", std::to_string(round));
  }));
  threads.push_back(rounds([&](int round) {  // a client deleting entries and sets
    journal.deleteCalls({idOf("R", round % kEntriesPerList), idOf("D", (round * 7) % kEntriesPerList)});
    journal.deleteMissedCallList(std::set<std::string>{idOf("M", round % kEntriesPerList)});
    journal.deleteForwardedCall(idOf("F", round % kEntriesPerList));
  }));
  threads.push_back(rounds([&](int round) {  // the screen marking missed calls viewed
    journal.setMissedCallListAsViewed({idOf("M", (round * 3) % kEntriesPerList)});
    journal.ageMissedCall(idOf("M", (round * 5) % kEntriesPerList));
  }));
  threads.push_back(rounds([&](int) {  // remote clients coming and going, and refreshing
    RecordingObserver remote;
    journal.subscribe(&remote);
    journal.refreshCallLog();
    journal.unsubscribe(&remote);
  }));
  go = true;
  for (auto& thread : threads) thread.join();
  phone.mgmt.drainNotifications();

  EXPECT_TRUE(fw::LockOrderChecker::reports().empty())
      << fw::LockOrderChecker::reports().front().message;
  EXPECT_FALSE(screen.calls().empty());

  // What the screen shows is what a restart would load.
  std::deque<MissedCallItem> missedBefore, missedAfter;
  std::deque<ReceivedCallItem> receivedBefore, receivedAfter;
  journal.getMissedCallList(missedBefore);
  journal.getReceivedCallList(receivedBefore);
  journal.loadCallListsFromDb();
  journal.getMissedCallList(missedAfter);
  journal.getReceivedCallList(receivedAfter);
  EXPECT_EQ(idsOf(missedBefore), idsOf(missedAfter));
  EXPECT_EQ(idsOf(receivedBefore), idsOf(receivedAfter));
  for (size_t i = 0; i < std::min(missedBefore.size(), missedAfter.size()); ++i)
    EXPECT_EQ(missedBefore[i].getViewed(), missedAfter[i].getViewed()) << missedBefore[i].getEntryId();
}

}  // namespace
