// The configuration changes while the journal works: the software type (read by every event, timer
// and client request), the journal's own settings and the phone's user change on their threads
// while calls (called back, missed and forwarded), the switch's call log and callbacks come in,
// clients read, mark, age and delete, and screens subscribe and refresh. Under the thread sanitizer
// (the tsan preset) any value read across threads without a lock is reported; everywhere the lock
// order must hold, the journal must follow the flavour set last and its lists equal its store's.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <tuple>

#include "ClientLists.h"
#include "CstaEventFactory.h"
#include "JournalHarness.h"
#include "Printers.h"
#include "RecordingObserver.h"
#include "framework/LockOrder.h"
#include "memory_store/MemoryDataAccessService.h"

namespace {

constexpr int kRounds = 40;
const std::string kKpx = "Velmora KPX", kSip = "Velmora SIP";

void setJournalValue(JournalService& journal, const std::string& key, const std::string& value) {
  ManageableData data;
  data.populate(key, value);
  journal.setData(data);
}

// What each thread does in round `round`.
// The configuration: the software type, read again on a change, and now and then another user.
void changeConfiguration(JournalHarness& phone, int round) {
  phone.mgmt.setValue("software-type", round % 2 ? kSip : kKpx);
  phone.mgmt.setValue("reg-number", std::to_string(3100 + round));
  if (round % 5 == 0) phone.mgmt.setValue("mobility-user-data-update", std::to_string(round));  // all read again
}
// A client's management changes of the journal's settings.
void changeJournalSettings(JournalService& journal, int round) {
  setJournalValue(journal, "missed-logging", round % 2 ? "1" : "0");
  setJournalValue(journal, "delete-missed-when-called", round % 3 ? "1" : "0");
  if (round % 10 == 9) setJournalValue(journal, "call-log-enabled", round % 20 == 9 ? "false" : "true");
}
// The switch's events: calls missed, made and forwarded, its call log and callbacks; then the
// clock moves, and the auto-save and the call table's sweep run on the way.
void switchEventsAndTime(JournalHarness& phone, int round) {
  using namespace csta;
  auto deliver = [&](std::unique_ptr<CSTAEvent> e) { phone.service->deliverEvent(e.get()); };
  const std::string n = std::to_string(round), party = std::to_string(500 + round % 7);
  deliver(delivered("in" + n, CSTA_LCS_Alerting, dev(party), dev(kOwnLine)));
  deliver(cleared("in" + n, round % 4 ? EC_NONE : EC_DURATION_EXCEEDED));
  deliver(originated("out" + n, dev(party)));
  deliver(delivered("out" + n, CSTA_LCS_Connected, dev(kOwnLine), dev(party), dev(party)));
  deliver(established("out" + n, dev(kOwnLine), dev(party), dev(party)));
  deliver(cleared("out" + n));
  deliver(delivered("fw" + n, CSTA_LCS_Alerting, dev(party), dev(kOwnLine)));  // forwarded after the missed call
  deliver(diverted("fw" + n, EC_CALL_FORWARD_NO_ANSWER, dev(party), dev(kOwnLine), dev("700")));
  deliver(
      callLogEntry(CallLogEntryEvent::ACTION_ADD, CallLogEntryEvent::LT_MISSED, dev("77" + n), "2024-03-05T08:00:00"));
  deliver(callBack(dev(party), CSTACallBackEvent::CB_TYPE_BUSY, CSTACallBackEvent::CB_STATE_SET));
  deliver(callBack(dev(party), CSTACallBackEvent::CB_TYPE_BUSY, CSTACallBackEvent::CB_STATE_CANCELLED));
  phone.advance(20 * 60 * 1000);
}
// A client reading, marking, ageing and deleting.
void clientRequests(JournalService& journal) {
  std::deque<MissedCallItem> missed;
  journal.getMissedCallList(missed);
  if (!missed.empty()) journal.deleteCalls({missed.back().getEntryId()});
  if (!missed.empty()) journal.setMissedCallListAsViewed({missed.front().getEntryId()});
  if (!missed.empty()) journal.ageMissedCall(missed.front().getEntryId());
  DialledCallItem last;
  journal.getLastDialledNumber(last);
  journal.countUnviewedMissedCalls();
}
// A screen coming, refreshing and going.
void screenComesAndGoes(JournalService& journal) {
  RecordingObserver remote;
  journal.subscribe(&remote);
  journal.refreshCallLog();
  journal.unsubscribe(&remote);
}

// The four call lists as a client reads them.
auto callLists(JournalService& journal) {
  return std::make_tuple(missedCalls(journal), dialledCalls(journal), receivedCalls(journal), forwardedCalls(journal));
}

TEST(SettingsChange, WhileCallsReadsAndSubscriptionsRunKeepsLockOrderAndEndsOnTheLastFlavour) {
  fw::LockOrderChecker::clearReports();
  MemoryDataAccessService store;
  JournalHarness phone({{"software-type", kKpx}, {"mac-addr", "00:1A:2B:3C:4D:5E"}, {"server-based-features", "true"}});
  phone.useStore(&store);
  phone.start();
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
  threads.push_back(rounds([&](int round) { changeConfiguration(phone, round); }));
  threads.push_back(rounds([&](int round) { changeJournalSettings(journal, round); }));
  threads.push_back(rounds([&](int round) { switchEventsAndTime(phone, round); }));
  threads.push_back(rounds([&](int) { clientRequests(journal); }));
  threads.push_back(rounds([&](int) { screenComesAndGoes(journal); }));
  go = true;
  for (auto& thread : threads) thread.join();
  phone.mgmt.setValue("software-type", kSip);
  phone.mgmt.setValue("reg-number", "3100");
  phone.mgmt.drainNotifications();
  phone.advance(0);

  EXPECT_TRUE(fw::LockOrderChecker::reports().empty()) << fw::LockOrderChecker::reports().front().message;
  EXPECT_EQ(kSip, journal.softwareType());
  // The journal follows the flavour set last: a SIP switch says where a missed call was diverted from.
  setJournalValue(journal, "call-log-enabled", "true");
  journal.deliverEvent(
      csta::delivered("last", CSTA_LCS_Alerting, csta::dev("600"), csta::dev(csta::kOwnLine), {}, csta::dev("601"))
          .get());
  journal.deliverEvent(csta::cleared("last").get());
  const auto missed = missedCalls(journal);
  ASSERT_NE(0u, missed.size());
  ASSERT_EQ(1u, missed.front().infos().size());
  EXPECT_EQ("601", missed.front().infos().front().connectedNumber);

  // What the screen shows is what a restart would load.
  const auto shown = callLists(journal);
  journal.loadCallListsFromDb();
  EXPECT_EQ(shown, callLists(journal));
}

}  // namespace
