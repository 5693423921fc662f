// The journal under load from several threads at once on the real SQLite store. The lock-order
// checker must stay silent, and afterwards the lists in memory must equal what the store holds.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>
#include <tuple>

#include "CstaEventFactory.h"
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

std::string idOf(const char* list, int n) { return std::string(list) + std::to_string(n % kEntriesPerList); }

// Writes full lists of entries to the store through the service, one message per list.
void seedStore(JournalService& service) {
  std::string missed, dialled, received, forwarded;
  for (int n = 0; n < kEntriesPerList; ++n) {
    const std::string time = "2024-03-05T10:" + std::to_string(10 + n) + ":00", nr = std::to_string(100 + n);
    Helper::createXMLMissedCallItemBody(makeEntry<MissedCallItem>(idOf("M", n), nr, time, 2), missed, false);
    Helper::createXMLDialledCallItemBody(makeEntry<DialledCallItem>(idOf("D", n), nr, time), dialled, false);
    Helper::createXMLReceivedCallItemBody(makeEntry<ReceivedCallItem>(idOf("R", n), nr, time), received, false);
    Helper::createXMLForwardedCallItemBody(makeEntry<ForwardedCallItem>(idOf("F", n), nr, time), forwarded, false);
  }
  service.updateEntries(missed, Helper::WRITEREQUEST, Helper::DAS_CALLLOGMISSEDCALLS);
  service.updateEntries(dialled, Helper::WRITEREQUEST, Helper::DAS_CALLLOGDIALLEDCALLS);
  service.updateEntries(received, Helper::WRITEREQUEST, Helper::DAS_CALLLOGRECEIVEDCALLS);
  service.updateEntries(forwarded, Helper::WRITEREQUEST, Helper::DAS_CALLLOGFORWARDEDCALLS);
}

TEST(JournalStress, ConcurrentChangesKeepTheLockOrderAndTheStoreInStep) {
  fw::LockOrderChecker::clearReports();
  std::string dir = ::testing::TempDir() + "/journal-stress-XXXXXX", error;
  ASSERT_NE(mkdtemp(dir.data()), nullptr);
  SqliteDataAccessService store;
  ASSERT_TRUE(store.open(dir + "/journal.db", SqliteDataAccessService::Normal, error)) << error;
  // The calls come after the seeded entries and a second apart: a list read back from the store is
  // sorted by time, and the lists in memory must read back in their own order.
  JournalHarness phone(std::map<std::string, std::string>{{"software-type", "Velmora SIP"}}, kAllServices,
                       "2024-03-06T00:00:00");
  phone.useStore(&store);
  phone.start();
  JournalService& journal = *phone.service;
  phone.peer().setDeleteMissedWhenCalled(true);
  phone.peer().setServerBasedFeatures(true);
  seedStore(journal);
  journal.refreshCallLog();

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
    journal.deleteCalls({idOf("R", round), idOf("D", round * 7)});
    journal.deleteMissedCallList(std::set<std::string>{idOf("M", round)});
    journal.deleteForwardedCall(idOf("F", round));
  }));
  threads.push_back(rounds([&](int round) {  // the screen marking missed calls viewed
    journal.setMissedCallListAsViewed({idOf("M", round * 3)});
    journal.ageMissedCall(idOf("M", round * 5));
  }));
  threads.push_back(rounds([&](int) {  // remote clients coming and going, and refreshing
    RecordingObserver remote;
    journal.subscribe(&remote);
    journal.refreshCallLog();
    journal.unsubscribe(&remote);
  }));
  threads.push_back(rounds([&](int round) {  // the phone's calls and the switch's events
    using namespace csta;
    auto deliver = [&](std::unique_ptr<CSTAEvent> e) { journal.deliverEvent(e.get()); };
    phone.time.advance(1000);
    const std::string n = std::to_string(round), party = std::to_string(100 + round % kEntriesPerList);
    // Calling back a party that had called: its missed entry goes, a dialled entry comes.
    deliver(originated("out" + n, dev(party)));
    deliver(delivered("out" + n, CSTA_LCS_Connected, dev(kOwnLine), dev(party), dev(party)));
    deliver(established("out" + n, dev(kOwnLine), dev(party), dev(party)));
    deliver(cleared("out" + n));
    // A caller missed, then the same caller forwarded: the missed occurrence is taken back.
    const std::string caller = std::to_string(900 + round);
    deliver(delivered("in" + n, CSTA_LCS_Alerting, dev(caller), dev(kOwnLine)));
    deliver(cleared("in" + n));
    deliver(delivered("fw" + n, CSTA_LCS_Alerting, dev(caller), dev(kOwnLine)));
    deliver(diverted("fw" + n, EC_CALL_FORWARD_NO_ANSWER, dev(caller), dev(kOwnLine), dev("700")));
    // The switch's call log adds a received call, and a callback comes and goes.
    deliver(callLogEntry(CallLogEntryEvent::ACTION_ADD, CallLogEntryEvent::LT_RECEIVED, dev("800" + n),
                         "2024-03-06T01:00:" + std::string(round < 10 ? "0" : "") + n));
    deliver(callBack(dev(caller), CSTACallBackEvent::CB_TYPE_BUSY, CSTACallBackEvent::CB_STATE_SET));
    deliver(callBack(dev(caller), CSTACallBackEvent::CB_TYPE_BUSY, CSTACallBackEvent::CB_STATE_CANCELLED));
  }));
  go = true;
  for (auto& thread : threads) thread.join();
  phone.mgmt.drainNotifications();
  EXPECT_TRUE(fw::LockOrderChecker::reports().empty()) << fw::LockOrderChecker::reports().front().message;
  EXPECT_FALSE(screen.calls().empty());

  // What the screen shows is what a restart would load.
  auto lists = [peer = phone.peer()]() mutable {
    return std::make_tuple(peer.missedList(), peer.dialledList(), peer.receivedList(), peer.forwardedList());
  };
  const auto shown = lists();
  journal.loadCallListsFromDb();
  EXPECT_EQ(lists(), shown);
  std::filesystem::remove_all(dir);
}

}  // namespace
