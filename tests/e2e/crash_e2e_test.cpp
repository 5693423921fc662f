// The daemon killed with SIGKILL at random moments under live switch traffic, also while it
// starts, and started again: after each restart every change that a subscribed observer was told
// of is in the database and served, no party has two entries, and the database is intact.
#include <atomic>
#include <mutex>
#include <random>

#include "DaemonFixture.h"

using namespace e2e;

namespace {

// What observers were told of one missed entry: its party and how many occurrences it had.
struct Announced {
  std::string number;
  size_t occurrences = 0;
};

class CrashTest : public DaemonTest {
 protected:
  ~CrashTest() override { stopTraffic(); }

  // Calls from 400 parties, one after the other, each party calling again now and then; sent
  // whenever the daemon is connected, dropped while it is not.
  void startTraffic() {
    traffic = std::thread([this] {
      std::mt19937 random(seed + 1);
      for (unsigned call = 1; !stopping; ++call) {
        const unsigned party = random() % 5 == 0 && call > 10 ? random() % call % 400 : call % 400;
        const std::string number = "0309" + std::to_string(1000000 + party);
        for (const std::string& event : missedCall(std::to_string(100000 + call), number)) {
          if (!sim.sendEvent(event)) std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
      }
    });
  }
  void stopTraffic() {
    stopping = true;
    if (traffic.joinable()) traffic.join();
    stopObserver();
  }

  // A subscriber writing down every missed entry it is told of, until the connection ends.
  void startObserver() {
    stopObserver();
    observerStop = false;
    observer = std::thread([this] {
      fw::JournalClient client;
      std::string error, reply, message;
      if (!client.connect(socket, error) || !client.call(Helper::createMethodRequest(Helper::SUBSCRIBE), reply, error))
        return;
      while (!observerStop) {
        if (!client.nextEvent(message, error, 100)) {
          if (!error.empty()) return;  // the daemon was killed
          continue;
        }
        MissedCallItem item;
        std::string id;
        int action = -1;
        if (!Helper::parseObsReqMissedCallsUpdate(message, item, id, action) || action > 1) continue;
        if (item.infos().empty()) continue;
        std::lock_guard<std::mutex> guard(mutex);
        announced[item.getEntryId()] = {item.infos().front().number, item.infos().size()};
      }
    });
  }
  void stopObserver() {
    observerStop = true;
    if (observer.joinable()) observer.join();
  }

  void kill() {
    daemon->signal(SIGKILL);
    daemon->wait(5000);
  }

  // The missed table as stored: entry id -> occurrences.
  std::map<std::string, size_t> storedMissed() {
    std::map<std::string, size_t> rows;
    for (const std::string& row : sqlRows(dir + "/journal.db", "SELECT entry_id, occurrences FROM callLogMissedCalls"))
      rows[row.substr(0, row.find(' '))] = std::stoul(row.substr(row.find(' ') + 1));
    return rows;
  }

  // Everything the observer was told is stored and served; each party has one entry.
  void checkNothingLost(int round) {
    SCOPED_TRACE("after restart " + std::to_string(round) + ", seed " + std::to_string(seed));
    EXPECT_EQ(std::vector<std::string>{"ok"}, sqlRows(dir + "/journal.db", "PRAGMA integrity_check"));
    const std::map<std::string, size_t> stored = storedMissed();
    const json served = lists();
    std::map<std::string, size_t> servedEntries;
    std::map<std::string, int> entriesOfNumber;
    for (const auto& entry : served["missed"]) {
      servedEntries[entry["entryId"]] = entry["infos"].size();
      ++entriesOfNumber[entry["infos"][0]["number"]];
    }
    for (const auto& [number, entries] : entriesOfNumber) EXPECT_EQ(1, entries) << number;
    std::lock_guard<std::mutex> guard(mutex);
    for (const auto& [id, told] : announced) {
      const auto row = stored.find(id);
      ASSERT_NE(stored.end(), row) << id << " (" << told.number << ") announced, not stored";
      EXPECT_LE(told.occurrences, row->second) << id;
      const auto entry = servedEntries.find(id);
      ASSERT_NE(servedEntries.end(), entry) << id << " (" << told.number << ") announced, not served";
      EXPECT_LE(told.occurrences, entry->second) << id;
    }
  }

  const unsigned seed = static_cast<unsigned>(std::random_device()());
  std::thread traffic, observer;
  std::atomic<bool> stopping{false}, observerStop{false};
  std::mutex mutex;                            // guards `announced`
  std::map<std::string, Announced> announced;  // by entry id
};

}  // namespace

TEST_F(CrashTest, KilledAtRandomUnderTrafficLosesNothingAnnounced) {
  constexpr int kKills = 20;
  std::mt19937 random(seed);
  startDaemon();
  startTraffic();
  for (int round = 1; round <= kKills; ++round) {
    startObserver();
    std::this_thread::sleep_for(std::chrono::milliseconds(100 + random() % 500));
    kill();
    stopObserver();
    if (round % 4 == 0) {  // killed again while it starts
      daemon = std::make_unique<Subprocess>(
          std::vector<std::string>{CALLJOURNALD_PATH, "--config", dir + "/calljournald.conf"});
      ASSERT_TRUE(daemon->start());
      std::this_thread::sleep_for(std::chrono::milliseconds(random() % 150));
      kill();
    }
    startDaemon();
    checkNothingLost(round);
    if (HasFatalFailure()) break;
  }
  stopTraffic();
  std::lock_guard<std::mutex> guard(mutex);
  EXPECT_LT(50u, announced.size()) << "too little traffic reached the journal to tell anything";
}
