// Changes of a list that a client makes with the command-line client, seen from the outside: the
// entries they name go and the others stay, a subscribed screen hears of the change once, and the
// database file keeps the result over a restart of the daemon. Deleting several entries of one list
// with `calljournal delete-calls`, and marking every missed entry viewed with `calljournal
// mark-viewed` (no ids). The screen's messages cross the daemon's threads: the suite also runs
// under the thread sanitizer.
#include "DaemonFixture.h"

using namespace e2e;

namespace {

class ListChangesDaemonTest : public DaemonTest {
 protected:
  // Under the thread sanitizer the daemon reports a race on its stderr (and a stopped one exits
  // with a code other than 0, which restartDaemon checks).
  void TearDown() override {
    if (daemon) {
      EXPECT_EQ(0u, linesWith(daemon->err(), "ThreadSanitizer").size()) << daemon->err();
    }
    DaemonTest::TearDown();
  }
  // Stops the daemon as its service manager would and starts it again on the same files.
  void restartDaemon() {
    daemon->signal(SIGTERM);
    ASSERT_EQ(0, daemon->wait(15000)) << daemon->err();
    startDaemon();
  }
  // The missed entries' ids, newest first.
  std::vector<std::string> missedIds() {
    const json all = lists();  // held: a range over a part of a temporary would dangle
    std::vector<std::string> ids;
    for (const auto& e : all["missed"]) ids.push_back(e["entryId"]);
    return ids;
  }
  // How many missed entries the lists show viewed.
  int viewedMissed() {
    const json all = lists();
    int viewed = 0;
    for (const auto& e : all["missed"]) viewed += e["viewed"] == true;
    return viewed;
  }
  // "missed-unviewed" of `calljournal status --json`.
  int unviewedInStatus() {
    const Subprocess::Result r = cli({"status", "--json"});
    EXPECT_EQ(0, r.code) << r.err;
    const json values = json::parse(r.out, nullptr, false);
    return values.is_object() && values.contains("missed-unviewed") ? values["missed-unviewed"].get<int>() : -1;
  }
  std::set<std::string> storedMissedIds() {
    return storedRows(dir + "/journal.db", "select entry_id from callLogMissedCalls");
  }
  // Missed calls of `count` parties, 0301110001 onwards; waits until the lists show them all.
  void missedCallsOf(int count) {
    for (int i = 1; i <= count; ++i) sendAll(missedCall(std::to_string(900 + i), "030111000" + std::to_string(i)));
    ASSERT_TRUE(eventually([&] { return missedNumbers().size() == static_cast<size_t>(count); })) << daemon->err();
  }
};

// The observer messages a subscribed connection receives until one with operation `last`.
std::vector<std::string> messagesUntil(fw::JournalClient& screen, const std::string& last) {
  std::vector<std::string> messages;
  std::string message, error;
  while (screen.nextEvent(message, error, 10000)) {
    messages.push_back(message);
    if (Helper::getObserverOperation(message) == last) break;
  }
  return messages;
}

size_t countOperation(const std::vector<std::string>& messages, const std::string& operation) {
  size_t n = 0;
  for (const std::string& m : messages) n += Helper::getObserverOperation(m) == operation;
  return n;
}

// The last of `messages` with `operation` (empty when none has it).
std::string lastWith(const std::vector<std::string>& messages, const std::string& operation) {
  std::string found;
  for (const std::string& m : messages)
    if (Helper::getObserverOperation(m) == operation) found = m;
  return found;
}

}  // namespace

TEST_F(ListChangesDaemonTest, DeletingSeveralEntriesOfOneListRemovesExactlyThoseAndTellsTheScreenOnce) {
  startDaemon();
  missedCallsOf(4);
  const std::vector<std::string> ids = missedIds();
  ASSERT_EQ(4u, ids.size());
  fw::JournalClient screen = connectTo(socket);
  std::string reply, error;
  ASSERT_TRUE(screen.call(Helper::createMethodRequest(Helper::SUBSCRIBE), reply, error)) << error;
  messagesUntil(screen, Helper::OBS_MISSEDCALLSCOUNTUPDATE);  // told on subscribing

  const Subprocess::Result deleted = cli({"delete-calls", ids[0], ids[2], ids[3]});
  EXPECT_EQ(0, deleted.code) << deleted.err;
  EXPECT_EQ(3u, linesWith(deleted.out, "from the missed list").size()) << deleted.out;
  EXPECT_EQ(std::vector<std::string>{ids[1]}, missedIds());

  // A callback set afterwards marks the end of what the deletion told the screen.
  sendAll({callBack("0305556666", false)});
  const std::vector<std::string> told = messagesUntil(screen, Helper::OBS_CALLBACKSCOUNTUPDATE);
  ASSERT_EQ(1u, countOperation(told, Helper::OBS_MISSEDCALLSUPDATE)) << ::testing::PrintToString(told);
  MissedCallItem item;
  std::string id;
  int action = -1;
  ASSERT_TRUE(Helper::parseObsReqMissedCallsUpdate(lastWith(told, Helper::OBS_MISSEDCALLSUPDATE), item, id, action));
  EXPECT_EQ(3, action);  // the list changed: read it again
  unsigned count = 99;
  ASSERT_TRUE(Helper::parseObsReqMissedCallsCountUpdate(lastWith(told, Helper::OBS_MISSEDCALLSCOUNTUPDATE), count));
  EXPECT_EQ(1u, count);

  restartDaemon();
  EXPECT_EQ(std::vector<std::string>{ids[1]}, missedIds());
  EXPECT_EQ(std::set<std::string>{ids[1]}, storedMissedIds());
}

TEST_F(ListChangesDaemonTest, MarkingEveryMissedEntryViewedLeavesNoneUnviewedAlsoAfterARestart) {
  startDaemon();
  missedCallsOf(3);
  const std::vector<std::string> ids = missedIds();
  ASSERT_EQ(3u, ids.size());
  ASSERT_EQ(0, cli({"mark-viewed", ids[1]}).code);
  ASSERT_EQ(2, unviewedInStatus());

  const Subprocess::Result marked = cli({"mark-viewed"});
  EXPECT_EQ(0, marked.code) << marked.err;
  EXPECT_EQ("marked 3 missed entries viewed\n", marked.out);
  EXPECT_EQ(0, unviewedInStatus());
  EXPECT_EQ(3, viewedMissed());
  const Subprocess::Result table = cli({"status"});
  EXPECT_EQ(1u, linesWith(table.out, "missed-unviewed  0").size()) << table.out;

  restartDaemon();
  EXPECT_EQ(0, unviewedInStatus());
  EXPECT_EQ(3, viewedMissed());
  EXPECT_EQ(3u, missedIds().size());
  EXPECT_EQ(std::set<std::string>{"0"},
            storedRows(dir + "/journal.db", "select count(*) from callLogMissedCalls where viewed = 0"));
}
