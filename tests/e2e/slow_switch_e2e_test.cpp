// A slow switch and the daemon's clients. The switch keeps the call log (system identifier 2) and
// reports a dialled call to a party that has a missed entry: the journal takes that entry away and
// tells the switch to forget each of its calls, one Escape request at a time. While the switch
// holds its answer to the first of them, a client reads the missed list and is answered.
#include <chrono>
#include <iostream>

#include "DaemonFixture.h"

using namespace e2e;

namespace {

// An entry the switch's call log adds, for the party 3777.
std::string switchLogEntry(const std::string& target, const std::string& time) {
  return "<PrivateEvent" + kNs +
         "><monitorCrossRefID/><privateData><private><callLogEntry><action>add</action><logTarget>" + target +
         "</logTarget><timeFormat>local</timeFormat><subscriberNumber>3777</subscriberNumber><dateTime>" + time +
         "</dateTime><name>Dora</name></callLogEntry></private></privateData></PrivateEvent>";
}

class SlowSwitchDaemonTest : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    // The link waits long for an answer: the switch answers only when the test lets it.
    writeConfig("software-type = Velmora KPX\nsystem-identifier = 2\ncsta-request-timeout-ms = 30000\n", sim.port());
  }
};

}  // namespace

TEST_F(SlowSwitchDaemonTest, AClientReadsTheMissedListWhileTheSwitchHoldsItsAnswerToAReport) {
  startDaemon();
  sendAll({switchLogEntry("missed", "2026-04-01T09:00:00"), switchLogEntry("missed", "2026-04-01T09:10:00"),
           switchLogEntry("missed", "2026-04-01T09:20:00")});
  ASSERT_TRUE(eventually([&] {
    const json missed = lists()["missed"];
    return missed.size() == 1 && missed[0]["infos"].size() == 3;
  })) << daemon->err();

  sim.holdAnswers("Escape");
  sendAll({switchLogEntry("dialled", "2026-04-01T10:00:00")});  // the party was reached
  ASSERT_TRUE(sim.waitForRequest("Escape", 15000)) << daemon->err();

  fw::JournalClient reader = connectTo(socket);
  std::string reply, error;
  const auto start = std::chrono::steady_clock::now();
  const bool answered =
      reader.call(Helper::createMethodRequest(JournalServiceHelper::GET_MISSED_CALL_LIST), reply, error, 10000);
  const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
  const size_t reportsWhenAnswered = sim.requests("Escape").size();
  sim.releaseAnswers("Escape");
  std::cout << "[   INFO   ] read of the missed list: " << took.count() << " ms (the switch held its answer)\n";

  ASSERT_TRUE(answered) << error;
  EXPECT_EQ(1u, reportsWhenAnswered);                                    // the switch still held its answer
  EXPECT_EQ(Helper::respGetMissedCallList({}), reply);                   // the entry went before the reports
  EXPECT_TRUE(sim.waitForRequest("Escape", 15000, 3)) << daemon->err();  // one per call of the entry
  EXPECT_TRUE(eventually([&] { return lists()["dialled"].size() == 1; })) << daemon->err();
}
