// Outside input that real switches and clients produce, or that a hostile one could: standard
// events the journal does not act on, documents that are no event, deep nesting, bytes that are
// not UTF-8. The programs run as a user runs them: calljournal replay on trace files, and
// calljournald with stacks of 2 MB per thread, as on the phone, fed by the switch simulator.
#include <fstream>
#include <string>
#include <vector>

#include "DaemonFixture.h"
#include "SmallStack.h"
#include "framework/Utf8.h"

namespace {

using namespace e2e;

// Runs a command with the stack limit of the phone's threads (2 MB), which also sets the default
// stack of every thread the program starts.
const std::vector<std::string> kPhoneStacks = {"/bin/sh", "-c", "ulimit -s 2048 && exec \"$0\" \"$@\""};

// calljournal replay as a user runs it, in the fixture's folder (no daemon is started).
class TraceReplayTest : public DaemonTest {
 protected:
  // Writes a trace of `events`, one step a second from 08:00:00.
  std::string writeTrace(const std::vector<std::string>& events) {
    const std::string path = dir + "/trace.xml";
    std::ofstream out(path);
    out << "<cstaTrace>\n";
    for (size_t i = 0; i < events.size(); ++i)
      out << "  <event at=\"2026-03-10T08:00:" << (i < 10 ? "0" : "") << i << "\">" << events[i] << "</event>\n";
    out << "</cstaTrace>\n";
    return path;
  }
  Subprocess::Result replay(const std::string& trace, bool json) {
    std::vector<std::string> argv = {CALLJOURNAL_PATH, "replay", trace, "--db", dir + "/j.db"};
    if (json) argv.push_back("--json");
    argv.insert(argv.begin(), kPhoneStacks.begin(), kPhoneStacks.end());
    return Subprocess::run(argv, 60000);
  }
};

// A recording of a real switch: the missed call's events among events the journal leaves to the
// framework's empty handlers, and two documents that are no CSTA event.
TEST_F(TraceReplayTest, StandardEventsTheJournalDoesNotActOnAreReplayedAndNonEventsSkippedWithANotice) {
  const std::vector<std::string> call = missedCall("FF000100000000002D65C85C1C750000", "0301234567");
  const std::string conn = "<callID>77</callID><deviceID>N&lt;3100&gt;</deviceID>";
  const std::string trace = writeTrace({
      "<ServiceInitiatedEvent" + kNs + "><monitorCrossRefID/><initiatedConnection>" + conn +
          "</initiatedConnection><localConnectionInfo>initiated</localConnectionInfo><cause>newCall</cause>"
          "</ServiceInitiatedEvent>",
      call[0],
      "<HeldEvent" + kNs + "><monitorCrossRefID/><heldConnection>" + conn +
          "</heldConnection><localConnectionInfo>hold</localConnectionInfo></HeldEvent>",
      "<MonitorStartResponse" + kNs + "><monitorCrossRefID>5</monitorCrossRefID></MonitorStartResponse>",
      "<RetrievedEvent" + kNs + "><monitorCrossRefID/><retrievedConnection>" + conn +
          "</retrievedConnection>"
          "</RetrievedEvent>",
      "<BridgedEvent" + kNs + "><monitorCrossRefID/><bridgedConnection>" + conn + "</bridgedConnection></BridgedEvent>",
      "<v:KeepAlive xmlns:v=\"urn:vendor:pbx\"><v:seq>1</v:seq></v:KeepAlive>",
      call[1],
      call[2],
  });
  const Subprocess::Result text = replay(trace, false);
  ASSERT_EQ(text.code, 0) << text.err;
  EXPECT_NE(text.out.find("Replayed 7 events of " + trace), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("Skipped 2 documents that are not a CSTA event the journal reads:\n  " + trace + ":5:"),
            std::string::npos)
      << text.out;
  EXPECT_NE(text.out.find(trace + ":8:"), std::string::npos) << text.out;

  const Subprocess::Result asJson = replay(trace, true);
  ASSERT_EQ(asJson.code, 0) << asJson.err;
  const json lists = json::parse(asJson.out);
  ASSERT_EQ(lists["missed"].size(), 1u) << asJson.out;
  EXPECT_EQ(lists["missed"][0]["infos"][0]["number"], "0301234567");
  EXPECT_NE(asJson.err.find("Skipped 2 documents"), std::string::npos) << asJson.err;
}

TEST_F(TraceReplayTest, AMalformedTraceIsRefusedWithItsPlaceAndWritesNothing) {
  std::ofstream(dir + "/bad.xml") << "<cstaTrace>\n  <event at=\"2024-03-05T07:00:00\">\n    <DeliveredEvent>\n"
                                  << "</cstaTrace>\n";
  const Subprocess::Result run = replay(dir + "/bad.xml", false);
  EXPECT_EQ(1, run.code);
  EXPECT_EQ("calljournal: trace refused: " + dir + "/bad.xml:4:3: not well-formed XML: Start-end tags mismatch",
            lastLine(run.err));
  EXPECT_NE(access((dir + "/j.db").c_str(), F_OK), 0);
}

// A trace of some megabytes whose event nests its private data half a million levels deep.
TEST_F(TraceReplayTest, ADeeplyNestedEventIsReplayedLikeAnyOther) {
  std::vector<std::string> call = missedCall("FF01", "0301234567");
  const std::string callStatus =
      "<extensions><privateData><private>" + nested("v", 500000) + "</private></privateData></extensions>";
  call[0].insert(call[0].find("</DeliveredEvent>"), callStatus);
  const Subprocess::Result run = replay(writeTrace(call), true);
  ASSERT_EQ(0, run.code) << run.err;
  const json lists = json::parse(run.out);
  ASSERT_EQ(1u, lists["missed"].size()) << run.out;
  EXPECT_EQ(lists["missed"][0]["infos"][0]["number"], "0301234567");
}

// The daemon with the phone's 2 MB thread stacks.
using HostileInputDaemonTest = DaemonTest;

// Requests the daemon cannot serve are answered FAILURE, a frame from the switch shorter than its
// header costs only the link, a wrong command line ends with code 2; the daemon goes on.
TEST_F(HostileInputDaemonTest, BadRequestsAndABrokenFrameFromTheSwitchLeaveTheDaemonServing) {
  startDaemon(kPhoneStacks);
  fw::JournalClient client = connectTo(socket);
  std::string reply, error;
  for (const std::string& bad : {std::string("<journalRequest><method>noSuchMethod</method></journalRequest>"),
                                 std::string("<journalRequest><method>getMissed"), std::string(),
                                 Helper::createMethodRequest(Helper::DELETE_DIALLED_CALL, {"no-such-id"})}) {
    ASSERT_TRUE(client.call(bad, reply, error)) << error;
    EXPECT_EQ(reply, Helper::FAILURE) << bad;
  }
  const size_t monitors = sim.requests("MonitorStart").size();
  ASSERT_TRUE(
      sim.sendRaw(std::string("\x00\x00\x00\x03"
                              "9999",
                              8)));
  ASSERT_TRUE(sim.waitForRequest("MonitorStart", 30000, monitors + 1)) << daemon->err();
  sendAll(missedCall("FF05", "0304444444"));
  EXPECT_TRUE(eventually([&] { return missedNumbers() == std::vector<std::string>{"0304444444"}; }));
  EXPECT_EQ(cli({"config", "get", "no-such-setting"}).code, 1);
  EXPECT_EQ(cli({"delete"}).code, 2);
  EXPECT_EQ(cli({"frobnicate"}).code, 2);
}

// A frame of nearly a megabyte whose private data nests 140,000 levels deep, and a client request
// whose entry id does: both are answered and the daemon goes on.
TEST_F(HostileInputDaemonTest, DeepNestingFromTheSwitchAndFromAClientLeavesTheDaemonRunning) {
  startDaemon(kPhoneStacks);
  std::vector<std::string> deep = missedCall("FF02", "0301111111");
  deep[0].insert(deep[0].find("</DeliveredEvent>"),
                 "<extensions><privateData><private>" + nested("v", 140000) + "</private></privateData></extensions>");
  ASSERT_GT(deep[0].size(), 950000u);
  sendAll(deep);
  EXPECT_TRUE(eventually([&] { return missedNumbers() == std::vector<std::string>{"0301111111"}; })) << daemon->err();

  std::string request = Helper::createMethodRequest(Helper::DELETE_CALLS, {"no-such-id"});
  request.insert(request.find("</journalRequest>"), "<entryId>" + nested("x", 140000) + "</entryId>");
  fw::JournalClient client = connectTo(socket);
  std::string reply, error;
  ASSERT_TRUE(client.call(request, reply, error, 30000)) << error << daemon->err();
  EXPECT_EQ(reply, Helper::respBool(false));  // read and answered: no entry has those ids
  EXPECT_TRUE(daemon->running());
  EXPECT_EQ(std::vector<std::string>{"0301111111"}, missedNumbers());
}

// A caller's name with bytes that are not UTF-8 and a name far too long: the entry holds
// well-formed text of a bounded length, and the lists can be read and printed as JSON.
TEST_F(HostileInputDaemonTest, NamesFromTheSwitchAreWellFormedAndBounded) {
  startDaemon(kPhoneStacks);
  std::vector<std::string> latin1 = missedCall("FF03", "0302222222");
  const std::string caller = "N&lt;0302222222&gt;";
  latin1[0].replace(latin1[0].find(caller), caller.size(), caller + ";displayName=M\xFCller%FF");
  std::vector<std::string> longName = missedCall("FF04", "0303333333");
  const std::string other = "N&lt;0303333333&gt;";
  longName[0].replace(longName[0].find(other), other.size(), other + ";displayName=" + std::string(5000, 'A'));
  sendAll(latin1);
  sendAll(longName);
  ASSERT_TRUE(eventually([&] {
    return missedNumbers() == std::vector<std::string>{"0303333333", "0302222222"};
  })) << daemon->err();
  const json shown = lists();
  const std::string kReplaced = fw::utf8::kReplacement;
  EXPECT_EQ("M" + kReplaced + "ller" + kReplaced, shown["missed"][1]["surname"]);
  EXPECT_EQ(256u, shown["missed"][0]["surname"].get<std::string>().size());
}

}  // namespace
