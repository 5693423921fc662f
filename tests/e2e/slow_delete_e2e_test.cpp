// Requests of several clients at once. One client's whole-list delete waits on a slow switch and
// another client is served meanwhile: the switch keeps the call log (system identifier 2), so
// deleting the missed list tells it to forget each call, one Escape request at a time, on the
// request of the client that deleted; while the switch holds its answer to the first of them, a
// second client reads the missed list. And two clients change the daemon's settings at once.
// Under the thread sanitizer the daemon's own reports fail the tests too.
#include <atomic>
#include <chrono>
#include <iostream>
#include <thread>

#include "DaemonFixture.h"

using namespace e2e;

namespace {

// A missed call of `number` that the switch's call log adds.
std::string missedLogEntry(const std::string& number, const std::string& time) {
  return "<PrivateEvent" + kNs +
         "><monitorCrossRefID/><privateData><private><callLogEntry><action>add</action><logTarget>missed"
         "</logTarget><timeFormat>local</timeFormat><subscriberNumber>" +
         number + "</subscriberNumber><dateTime>" + time + "</dateTime></callLogEntry></private></privateData>" +
         "</PrivateEvent>";
}

// The thread sanitizer's reports in a daemon's output (none in a build without it).
std::vector<std::string> raceReports(const std::string& output) { return linesWith(output, "ThreadSanitizer"); }

// The subscriber numbers of the switch's received Escape requests, in order.
std::multiset<std::string> reportedNumbers(const std::vector<SwitchSimulator::Received>& escapes) {
  std::multiset<std::string> numbers;
  for (const auto& escape : escapes) {
    const std::size_t start = escape.xml.find("<subscriberNumber>");
    const std::size_t end = escape.xml.find("</subscriberNumber>");
    if (start == std::string::npos || end == std::string::npos) continue;
    const std::size_t from = start + std::string("<subscriberNumber>").size();
    numbers.insert(escape.xml.substr(from, end - from));
  }
  return numbers;
}

class SlowDeleteDaemonTest : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    // The link waits long for an answer: the switch answers only when the test lets it.
    writeConfig("software-type = Velmora KPX\nsystem-identifier = 2\ncsta-request-timeout-ms = 30000\n", sim.port());
  }
};

}  // namespace

TEST_F(SlowDeleteDaemonTest, AClientReadsTheMissedListWhileAnotherClientsWholeListDeleteWaitsOnTheSwitch) {
  startDaemon();
  sendAll({missedLogEntry("3701", "2026-04-01T09:00:00"), missedLogEntry("3702", "2026-04-01T09:10:00"),
           missedLogEntry("3703", "2026-04-01T09:20:00")});
  ASSERT_TRUE(eventually([&] { return lists()["missed"].size() == 3; })) << daemon->err();

  sim.holdAnswers("Escape");
  Subprocess deleter({CALLJOURNAL_PATH, "--socket", socket, "delete", "--all", "--list", "missed"});
  ASSERT_TRUE(deleter.start());
  ASSERT_TRUE(sim.waitForRequest("Escape", 15000)) << daemon->err();  // the delete waits on the switch now

  fw::JournalClient reader = connectTo(socket);
  std::string reply, error;
  const auto start = std::chrono::steady_clock::now();
  const bool answered =
      reader.call(Helper::createMethodRequest(JournalServiceHelper::GET_MISSED_CALL_LIST), reply, error, 10000);
  const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
  const size_t reportsWhenAnswered = sim.requests("Escape").size();
  sim.releaseAnswers("Escape");
  std::cout << "[   INFO   ] read of the missed list during the delete: " << took.count()
            << " ms (the switch held its answer)\n";

  ASSERT_TRUE(answered) << error;
  EXPECT_EQ(1u, reportsWhenAnswered);  // the switch still held its answer to the first report
  std::deque<MissedCallItem> missed;
  ASSERT_TRUE(Helper::parseXMLMissedCallList(reply, missed)) << reply;
  EXPECT_EQ(0u, missed.size());  // the entries left the list before the switch was told

  EXPECT_EQ(0, deleter.wait(20000)) << deleter.err();
  EXPECT_EQ("deleted 3 entries from the missed list", lastLine(deleter.out()));
  ASSERT_TRUE(sim.waitForRequest("Escape", 15000, 3)) << daemon->err();
  EXPECT_EQ((std::multiset<std::string>{"3701", "3702", "3703"}), reportedNumbers(sim.requests("Escape")));
  EXPECT_EQ(std::vector<std::string>(), raceReports(daemon->err()));
}

// The log levels are a running setting of the daemon itself, applied by the request that sets them.
TEST_F(SlowDeleteDaemonTest, TwoClientsChangeTheLogLevelsAtTheSameTime) {
  launch();
  const std::string ok = "<mgmtResponse><result>ok</result>";
  std::atomic<int> applied{0};
  auto change = [&](const std::string& levels) {
    const std::string set =
        "<mgmtRequest><operation>set</operation><key>log-levels</key><value>" + levels + "</value></mgmtRequest>";
    fw::JournalClient client;
    std::string reply, error;
    if (!client.connect(socket, error)) return;
    for (int i = 0; i < 20; ++i)
      if (client.call(set, reply, error) && reply.compare(0, ok.size(), ok) == 0) ++applied;
  };
  std::thread first(change, "*=4"), second(change, "*=2");
  first.join();
  second.join();
  EXPECT_EQ(40, applied.load());
  EXPECT_EQ(std::vector<std::string>(), raceReports(daemon->err()));
}
