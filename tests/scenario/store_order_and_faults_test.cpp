// The lists and their store file over restarts: a list comes back in exactly the order it had
// (calls in one second, a waiting call, an entry re-placed in the middle), on the SQLite store and
// the in-memory one; and a damaged or oversized store file loads all it can, within the lists'
// limits. (A store that fails for a while is tested end to end: tests/e2e/store_e2e_test.cpp.)
#include "LogCapture.h"
#include "ScenarioFixture.h"
#include "memory_store/MemoryDataAccessService.h"

namespace {

using namespace scenario;

const CSTADeviceID kA = dev("601", "Net A"), kB = dev("602", "Net B2"), kC = dev("603", "Net C"),
                   kD = dev("604", "Net D"), kE = dev("605", "Net E"), kF = dev("606", "Net F");

// The stored lists as a client reads them, each entry as its full item body (viewed flag, unique
// id and place in the list included), and the last dialled entry.
template <class Item>
Lines bodies(const std::deque<Item>& list) {
  Lines out;
  for (const Item& item : list) {
    std::string body;
    if constexpr (std::is_same_v<Item, MissedCallItem>) body = H::createXMLMissedCallItemBody(item, false);
    if constexpr (std::is_same_v<Item, ReceivedCallItem>) body = H::createXMLReceivedCallItemBody(item, false);
    if constexpr (std::is_same_v<Item, DialledCallItem>) body = H::createXMLDialledCallItemBody(item, false);
    if constexpr (std::is_same_v<Item, ForwardedCallItem>) body = H::createXMLForwardedCallItemBody(item, false);
    out.push_back(body);
  }
  return out;
}

class StoreScenario : public Scenario {
 protected:
  // The phone goes down and comes back on the same store (the SQLite file closed and opened again).
  void restart(const std::string& software, Executable* on = nullptr) {
    phone.reset();
    if (!on) {
      store.close();
      std::string error;
      ASSERT_TRUE(store.open(dir + "/journal.db", SqliteDataAccessService::Normal, error)) << error;
    }
    start(software, {}, on);
  }
  std::map<std::string, Lines> lists() {
    std::map<std::string, Lines> out;
    forEachList([&](const char* kind, const auto& list) { out[kind] = bodies(list); });
    DialledCallItem last;
    phone->service->getLastDialledNumber(last);
    out["last dialled"] = {H::createXMLDialledCallItemBody(last, false)};
    return out;
  }
};

// ---- Order over restarts -------------------------------------------------------------------------

class Order : public StoreScenario, public ::testing::WithParamInterface<std::tuple<std::string, bool>> {
 protected:
  MemoryDataAccessService memory;
  Executable* chosen() { return std::get<1>(GetParam()) ? &memory : nullptr; }
};

TEST_P(Order, ListsComeBackInTheOrderTheyHadAfterARestartAndARefresh) {
  const std::string software = std::get<0>(GetParam());
  start(software, {}, chosen());
  // One second of a busy phone: A rings, B waits and gives up first, then A; C and D are dialled,
  // E and F answered with F waiting and ending first; Anna calls from her office.
  play(ringing("31", kA) + ringing("32", kB) + clearing("32", 0) + clearing("31", 0));
  play(dialling("33", kC) + clearing("33", 0) + dialling("34", kD) + clearing("34", 0));
  play(ringing("35", kE) + talked("35", kE, kLine, kLine, 0, 0) + ringing("36", kF) +
       Script{{0, csta::established("36", kF, kLine, kLine)}, {0, csta::cleared("36")}, {0, csta::cleared("35")}});
  play(ringing("37", kAnnaOffice) + clearing("37", 0));
  // Two minutes later Anna calls from her mobile (her entry moves to the front); the switch then
  // deletes that occurrence from its call log, which puts her entry back among the others.
  play(ringing("38", kAnnaMobile, 120) + clearing("38", 0));
  ASSERT_TRUE(phone->service->removeMissedCallEntry("+4930555101", "2024-03-05T08:00:00"));
  std::deque<MissedCallItem> missed;
  phone->service->getMissedCallList(missed);
  ASSERT_EQ(missed.size(), 3u);
  phone->service->setMissedCallListAsViewed({missed.at(1).getEntryId()});
  std::deque<ReceivedCallItem> received;
  phone->service->getReceivedCallList(received);
  ASSERT_EQ(received.size(), 2u);
  ASSERT_TRUE(phone->service->deleteCalls({received.back().getEntryId()}));  // a client deletes E's entry

  const auto before = lists();
  EXPECT_NE(before.at("last dialled")[0].find("number=\"604\""), std::string::npos);  // D was dialled last
  restart(software, chosen());
  EXPECT_EQ(lists(), before);
  phone->service->refreshCallLog();
  EXPECT_EQ(lists(), before);
}

INSTANTIATE_TEST_SUITE_P(Stores, Order, ::testing::Combine(::testing::Values(kKpx, kSip), ::testing::Bool()),
                         [](const auto& info) {
                           return std::string(std::get<0>(info.param) == kSip ? "Sip" : "Kpx") +
                                  (std::get<1>(info.param) ? "_Memory" : "_Sqlite");
                         });

// ---- Damaged and oversized store files -------------------------------------------------------------

TEST_F(StoreScenario, ARowThatIsNotAWellFormedEntryIsSkippedAndNamedAndTheOthersLoad) {
  start(kKpx);
  play(ringing("51", kA) + clearing("51", 5) + ringing("52", kB, 60) + clearing("52", 5) + ringing("53", kC, 60) +
       clearing("53", 5));
  const Lines before = lines(entries());
  ASSERT_EQ(before.size(), 3u);
  phone.reset();
  store.close();
  const Lines damaged = sqlRows(dir + "/journal.db", "select unique_id from callLogMissedCalls where number = '602'");
  ASSERT_EQ(damaged.size(), 1u);
  sqlRows(dir + "/journal.db", "update callLogMissedCalls set body = substr(body, 1, 40) where number = '602'");

  LogCapture log;
  restart(kKpx);
  EXPECT_EQ(lines(entries()), (Lines{before[0], before[2]}));
  EXPECT_TRUE(log.contains("table callLogMissedCalls: row " + damaged[0] + " is not a well-formed entry; skipped",
                           fw::kLogError));
  // A caller whose entry loaded calls again: still one row for them.
  play(ringing("54", kA, 60) + clearing("54", 5));
  EXPECT_EQ(sqlRows(dir + "/journal.db", "select count(*) from callLogMissedCalls where number = '601'"), Lines{"1"});
  EXPECT_EQ(sqlRows(dir + "/journal.db", "select count(*) from callLogMissedCalls"), Lines{"3"});
}

TEST_F(StoreScenario, AListLongerThanItsLimitAndAnEntryWithTooManyOccurrencesAreCutBackAndStoredSo) {
  seed("missed", 1003);  // X0 the oldest
  std::string message = H::createXMLField(H::REASONFORMESSAGE, H::WRITEREQUEST);
  H::createXMLMissedCallItemBody(makeEntry<MissedCallItem>("Y", "30000", "2024-03-02T10:00:00", 12), message, false);
  H::addXMLHeaderFooter(message, H::DAS_CALLLOGMISSEDCALLS);
  ASSERT_NE(store.processRequest(message), "failed");

  start(kKpx);
  std::deque<MissedCallItem> missed;
  phone->service->getMissedCallList(missed);
  ASSERT_EQ(missed.size(), 1000u);
  EXPECT_EQ(missed.front().getEntryId(), "Y");
  EXPECT_EQ(missed.front().infos().size(), kMaxCallInfos);
  EXPECT_EQ(missed.back().getEntryId(), "X4");
  EXPECT_EQ(sqlRows(dir + "/journal.db", "select count(*), max(occurrences) from callLogMissedCalls"),
            Lines{"1000 10"});
  EXPECT_EQ(kept(entries()), stored());
}

}  // namespace
