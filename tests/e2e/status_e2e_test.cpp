// The daemon's status and its link messages from the outside: `calljournal status` (its exit code
// for health checks and its typed JSON) while the switch simulator runs, stops and comes back, with
// no switch at all and with no daemon; `calljournal watch` hearing the link go down and come back;
// and a client that did not ask for link messages getting none.
#include <chrono>
#include <thread>

#include "DaemonFixture.h"

namespace e2e {
namespace {

// The daemon's status as `calljournal status --json` gives it, with the exit code.
struct Status {
  int code = -1;
  json values;
};

class StatusTest : public DaemonTest {
 protected:
  Status status() {
    Subprocess::Result r = cli({"status", "--json"});
    Status s;
    s.code = r.code;
    s.values = json::parse(r.out, nullptr, false);
    return s;
  }
  // Waits until the journal follows the line (the monitor's answer is read after its request).
  bool followsTheLine() {
    return eventually([&] { return status().code == 0; });
  }
  // Waits until the wall clock is a second past `isoTime`, so that a change after it shows.
  static void waitPastSecondOf(const std::string& isoTime) {
    eventually([&] { return isoTimeNow().substr(0, 19) > isoTime.substr(0, 19); }, 3000);
  }
  static std::string isoTimeNow() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local);
    return text;
  }
};

TEST_F(StatusTest, ExitCodeAndLinkFollowTheSwitchGoingDownAndComingBack) {
  startDaemon();
  ASSERT_TRUE(followsTheLine()) << daemon->err();
  Status up = status();
  EXPECT_EQ(true, up.values["following"]);
  EXPECT_EQ(true, up.values["link"]);
  EXPECT_EQ(true, up.values["monitor"]);
  EXPECT_EQ(true, up.values["lists-loaded"]);
  EXPECT_EQ("127.0.0.1:" + std::to_string(sim.port()), up.values["switch"]);
  EXPECT_FALSE(up.values.contains("not-following"));
  const std::string upSince = up.values["link-since"];

  waitPastSecondOf(upSince);
  sim.dropConnection();
  Status down;
  ASSERT_TRUE(eventually([&] { return (down = status()).code == 3; })) << daemon->err();
  EXPECT_EQ(false, down.values["following"]);
  EXPECT_EQ(false, down.values["link"]);
  EXPECT_EQ(false, down.values["monitor"]);
  EXPECT_EQ("closed by the switch", down.values["link-reason"]);
  EXPECT_EQ(0u, down.values["not-following"].get<std::string>().find("the switch link is down")) << down.values;
  const std::string downSince = down.values["link-since"];
  EXPECT_GT(downSince, upSince);

  waitPastSecondOf(downSince);
  sim.restore();
  ASSERT_TRUE(followsTheLine()) << daemon->err();
  const Status back = status();
  EXPECT_EQ(true, back.values["link"]);
  EXPECT_GT(back.values["link-since"].get<std::string>(), downSince);
  EXPECT_FALSE(back.values.contains("link-reason"));
}

TEST_F(StatusTest, JsonGivesTypedCountsOfTheListsTheStoreAndTheClients) {
  startDaemon();
  ASSERT_TRUE(followsTheLine()) << daemon->err();
  sendAll(missedCall("4711", "0301112222"));
  sendAll(missedCall("4712", "0301113333"));
  ASSERT_TRUE(eventually([&] { return missedNumbers().size() == 2; })) << daemon->err();
  Status s = status();
  EXPECT_EQ(0, s.code);
  EXPECT_EQ(2, s.values["missed"]);
  EXPECT_EQ(2, s.values["missed-unviewed"]);
  EXPECT_EQ(0, s.values["received"]);
  EXPECT_EQ(0, s.values["callbacks"]);
  EXPECT_EQ(dir + "/journal.db", s.values["store"]);
  EXPECT_EQ("ok", s.values["store-state"]);
  EXPECT_EQ("none", s.values["store-error"]);
  EXPECT_FALSE(s.values.contains("store-error-at"));
  EXPECT_EQ(1, s.values["clients"]);  // the status request's own connection
  EXPECT_EQ(64, s.values["clients-max"]);
  EXPECT_TRUE(s.values["uptime"].is_number_unsigned()) << s.values;
  EXPECT_TRUE(s.values["started"].is_string()) << s.values;

  const std::string first = lists()["missed"][0]["entryId"];
  ASSERT_EQ(0, cli({"mark-viewed", first}).code);
  s = status();
  EXPECT_EQ(2, s.values["missed"]);
  EXPECT_EQ(1, s.values["missed-unviewed"]);

  const Subprocess::Result table = cli({"status"});
  EXPECT_EQ(0, table.code);
  EXPECT_EQ(1u, linesWith(table.out, "missed-unviewed  1").size()) << table.out;
  EXPECT_EQ(1u, linesWith(table.out, "following        yes").size()) << table.out;
}

TEST_F(StatusTest, NoSwitchConfiguredIsNotFollowingAndSaysSo) {
  writeConfig("software-type = Velmora SIP\n");
  launch();
  const Status s = status();
  EXPECT_EQ(3, s.code);
  EXPECT_EQ(false, s.values["following"]);
  EXPECT_EQ("no switch configured", s.values["not-following"]);
  EXPECT_EQ("none", s.values["switch"]);
  EXPECT_EQ(false, s.values["link"]);
  EXPECT_EQ("no switch", s.values["monitor-state"]);
  const Subprocess::Result table = cli({"status"});
  EXPECT_EQ(3, table.code);
  EXPECT_EQ(1u, linesWith(table.out, "not-following    no switch configured").size()) << table.out;
}

TEST_F(StatusTest, ADaemonThatCannotBeReachedIsNotFollowing) {
  const Subprocess::Result r = cli({"status", "--json"});
  EXPECT_EQ(3, r.code);
  const json values = json::parse(r.out, nullptr, false);
  EXPECT_EQ(false, values["following"]);
  EXPECT_NE(r.err.find("is calljournald running?"), std::string::npos) << r.err;
}

// ---- Watchers of the link (threads of the daemon: also run under the thread sanitizer) ----

class LinkWatchDaemonTest : public DaemonTest {
 protected:
  // The link's listener and the watchers run on the daemon's threads: under the thread sanitizer
  // the daemon reports any race on its stderr.
  void TearDown() override {
    if (daemon) {
      EXPECT_EQ(0u, linesWith(daemon->err(), "ThreadSanitizer").size()) << daemon->err();
    }
    DaemonTest::TearDown();
  }
  std::unique_ptr<Subprocess> watch(const std::vector<std::string>& extra = {}) {
    std::vector<std::string> args = {CALLJOURNAL_PATH, "--socket", socket, "watch"};
    args.insert(args.end(), extra.begin(), extra.end());
    auto process = std::make_unique<Subprocess>(args);
    EXPECT_TRUE(process->start());
    return process;
  }
  static std::size_t count(const Subprocess& process, const std::string& part) {
    return linesWith(process.out(), part).size();
  }
  // The JSON lines of `process` that tell of the link.
  static std::vector<json> linkObjects(const Subprocess& process) {
    std::vector<json> objects;
    for (const std::string& line : linesWith(process.out(), "\"link\"")) objects.push_back(json::parse(line));
    return objects;
  }
};

TEST_F(LinkWatchDaemonTest, WatchPrintsTheLinkGoingDownAndComingBack) {
  startDaemon();
  ASSERT_TRUE(eventually([&] { return cli({"status"}).code == 0; })) << daemon->err();
  auto text = watch();
  auto objects = watch({"--json"});
  const std::string up = "switch link up, monitor running (since ";
  ASSERT_TRUE(eventually([&] { return count(*text, up) == 1 && linkObjects(*objects).size() == 1; }))
      << text->out() << objects->out();

  sim.dropConnection();
  ASSERT_TRUE(eventually([&] { return count(*text, "switch link down: ") == 1; })) << text->out();
  EXPECT_EQ(1u, count(*text, "switch link down: closed by the switch (since ")) << text->out();
  ASSERT_TRUE(eventually([&] { return linkObjects(*objects).size() == 2; })) << objects->out();
  const json down = linkObjects(*objects)[1];
  EXPECT_EQ(false, down["link"]);
  EXPECT_EQ(false, down["monitor"]);
  EXPECT_EQ("closed by the switch", down["reason"]);

  sim.restore();
  ASSERT_TRUE(eventually([&] { return count(*text, up) == 2; })) << text->out();
  const std::string out = text->out();
  EXPECT_LT(out.find("switch link down: "), out.rfind(up)) << out;
  ASSERT_TRUE(eventually([&] { return linkObjects(*objects).back()["monitor"] == true; })) << objects->out();
  EXPECT_EQ(true, linkObjects(*objects).back()["link"]);
}

TEST_F(LinkWatchDaemonTest, WatchForSomeSecondsPrintsWhatCameAndEndsWithCodeZero) {
  startDaemon();
  ASSERT_TRUE(eventually([&] { return cli({"status"}).code == 0; })) << daemon->err();
  Subprocess::Result r = cli({"watch", "--for", "1"});
  EXPECT_EQ(0, r.code) << r.err;
  EXPECT_EQ(1u, linesWith(r.out, "switch link up, monitor running (since ").size()) << r.out;
  EXPECT_EQ(1u, linesWith(r.err, "watching the journal for 1 s; Ctrl-C stops sooner").size()) << r.err;
}

TEST_F(LinkWatchDaemonTest, OnlyClientsThatAskedHearOfTheLink) {
  startDaemon();
  fw::JournalClient screen = connectTo(socket);  // the phone's screen: the journal's news only
  fw::JournalClient watcher = connectTo(socket);
  std::string reply, error, message;
  ASSERT_TRUE(screen.call(Helper::createMethodRequest(Helper::SUBSCRIBE), reply, error)) << error;
  ASSERT_TRUE(watcher.call("<mgmtRequest><operation>subscribe-link</operation></mgmtRequest>", reply, error)) << error;
  EXPECT_EQ(0u, reply.find("<mgmtResponse><result>ok</result>")) << reply;

  sim.dropConnection();
  bool heardDown = false;
  while (!heardDown && watcher.nextEvent(message, error, 10000))
    heardDown = message.find("<link>false</link>") != std::string::npos;
  EXPECT_TRUE(heardDown) << error;
  watcher.close();  // its watcher goes with the connection; the next change must not reach it
  sim.restore();
  ASSERT_TRUE(eventually([&] { return cli({"status"}).code == 0; })) << daemon->err();

  sendAll(missedCall("4711", "0301112222"));
  std::vector<std::string> heard;
  bool counted = false;
  while (!counted && screen.nextEvent(message, error, 10000)) {
    heard.push_back(message);
    counted = message.find("<operation>missedCallsCountUpdate</operation><count>1</count>") != std::string::npos;
  }
  ASSERT_TRUE(counted) << error;
  for (const std::string& m : heard) EXPECT_EQ(std::string::npos, m.find("hostEvent")) << m;
}

}  // namespace
}  // namespace e2e
