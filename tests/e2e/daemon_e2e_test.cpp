// The programs end to end: the day's calls reach the lists and the subscribers, the lists survive a
// link drop and a killed daemon, bad input never crashes it, and a malformed trace is refused.
#include "DaemonFixture.h"

using namespace e2e;

TEST_F(DaemonTest, CallsReachListsAndSubscribersAndADeletionReachesEverySubscriber) {
  startDaemon();
  Subprocess watch({CALLJOURNAL_PATH, "--socket", socket, "watch"});
  ASSERT_TRUE(watch.start());
  // A new subscriber is first told the counts: then the watch is in place.
  ASSERT_TRUE(eventually([&] { return watch.out().find("unviewedMissed") != std::string::npos; })) << watch.err();
  fw::JournalClient second = connectTo(socket);
  std::string reply, error, message;
  ASSERT_TRUE(second.call(Helper::createMethodRequest(Helper::SUBSCRIBE), reply, error)) << error;
  ASSERT_EQ(reply, Helper::respBool(true));

  playDay();
  Subprocess::Result replay = Subprocess::run(
      {CALLJOURNAL_PATH, "replay", kTrace, "--json", "--phonebook", std::string(EXAMPLES_DIR) + "/phonebook.csv"});
  ASSERT_EQ(replay.code, 0) << replay.err;
  const auto expected = shape(json::parse(replay.out));
  ASSERT_FALSE(expected.empty());
  json now;
  std::set<std::string> got;
  ASSERT_TRUE(eventually([&] { return (got = shape(now = lists())) == expected; }))
      << ::testing::PrintToString(got) << "\n"
      << ::testing::PrintToString(expected);
  EXPECT_TRUE(eventually([&] { return watch.out().find("received new") != std::string::npos; })) << watch.out();

  // The day's call ids are hexadecimal, which give every entry filed in one second the same id;
  // a call with a decimal id has one of its own.
  for (const std::string& event : missedCall("777", "0309999999")) ASSERT_TRUE(sim.sendEvent(event));
  std::string id;
  ASSERT_TRUE(eventually([&] {
    const json all = lists();
    for (const auto& e : all["missed"])
      if (e["infos"][0]["number"] == "0309999999") id = e["entryId"].get<std::string>();
    return !id.empty();
  }));
  Subprocess::Result del = cli({"delete", id});
  ASSERT_EQ(del.code, 0) << del.err;
  bool seen = false;
  while (!seen && second.nextEvent(message, error, 5000)) {
    MissedCallItem item;
    std::string got;
    int action = -1;
    seen = Helper::parseObsReqMissedCallsUpdate(message, item, got, action) && got == id && action == 2;
  }
  EXPECT_TRUE(seen) << error;
  EXPECT_TRUE(eventually([&] { return watch.out().find("missed deleted") != std::string::npos; })) << watch.out();
  EXPECT_EQ(cli({"delete", id}).code, 1);  // gone
}

TEST_F(DaemonTest, ListsSurviveALinkDropAndADaemonKilledAndRestarted) {
  startDaemon();
  sim.dropConnection();
  sim.restore();
  ASSERT_TRUE(sim.waitForRequest("MonitorStart", 30000, ++monitorStarts)) << daemon->err();
  for (const std::string& event : missedCall("5A01", "0301234567")) ASSERT_TRUE(sim.sendEvent(event));
  json before;
  ASSERT_TRUE(eventually([&] { return (before = lists())["missed"].size() == 1; })) << daemon->err();
  EXPECT_EQ(before["unviewedMissed"], 1);

  daemon->signal(SIGKILL);
  daemon->wait(5000);
  startDaemon();  // over the socket file the killed daemon left
  json after = lists();
  EXPECT_EQ(after["missed"], before["missed"]);
  Subprocess::Result second = Subprocess::run({CALLJOURNALD_PATH, "--config", dir + "/calljournald.conf"});
  EXPECT_EQ(second.code, 1);
  EXPECT_NE(second.err.find("another journal daemon is serving"), std::string::npos) << second.err;

  daemon->signal(SIGTERM);
  EXPECT_EQ(daemon->wait(10000), 0) << daemon->err();
  EXPECT_NE(access(socket.c_str(), F_OK), 0) << "socket left behind";
  Subprocess::Result r = cli({"list"});
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("is calljournald running?"), std::string::npos) << r.err;
}

TEST_F(DaemonTest, BadClientInputGetsFailureOrAClosedConnectionNeverACrash) {
  startDaemon();
  fw::JournalClient client = connectTo(socket);
  std::string reply, error;
  ASSERT_TRUE(client.call("<journalRequest><method>noSuchMethod</method></journalRequest>", reply, error));
  EXPECT_EQ(reply, Helper::FAILURE);
  ASSERT_TRUE(client.call("<journalRequest><method>getMissed", reply, error));
  EXPECT_EQ(reply, Helper::FAILURE);
  ASSERT_TRUE(client.call(Helper::createMethodRequest(Helper::DELETE_DIALLED_CALL, {"no-such-id"}), reply, error));
  EXPECT_EQ(reply, Helper::FAILURE);

  fw::JournalClient oversize = connectTo(socket);
  EXPECT_FALSE(oversize.call(std::string(5u << 20, 'x'), reply, error, 5000));
  fw::JournalClient broken = connectTo(socket);
  ASSERT_TRUE(broken.send(std::string(), error));  // an empty request is answered FAILURE

  ASSERT_TRUE(client.call(Helper::createMethodRequest(Helper::GET_MISSED_CALL_LIST), reply, error)) << error;
  EXPECT_NE(reply, Helper::FAILURE);
  ASSERT_TRUE(
      sim.sendRaw(std::string("\x00\x00\x00\x03"
                              "9999",
                              8)));  // a frame shorter than its header
  ASSERT_TRUE(sim.waitForRequest("MonitorStart", 30000, ++monitorStarts)) << daemon->err();
  EXPECT_TRUE(daemon->running());

  EXPECT_EQ(cli({"config", "get", "no-such-setting"}).code, 1);
  EXPECT_EQ(cli({"delete"}).code, 2);
  EXPECT_EQ(cli({"frobnicate"}).code, 2);
  Subprocess::Result set = cli({"config", "set", "missed-logging", "false"});
  EXPECT_EQ(set.code, 0) << set.err;
  Subprocess::Result get = cli({"config", "get", "missed-logging", "software-type"});
  EXPECT_NE(get.out.find("software-type = Velmora SIP"), std::string::npos) << get.out;
  EXPECT_NE(get.out.find("missed-logging = 1"), std::string::npos) << get.out;  // "1": not logged

  // SIGHUP reads the file again; an unknown event from the switch is skipped.
  ASSERT_TRUE(
      sim.sendEvent("<FancyNewEvent xmlns=\"http://www.ecma-international.org/standards/ecma-323/csta/ed6\"/>"));
  std::ofstream(dir + "/calljournald.conf", std::ios::app) << "reg-number = 4242\n";
  daemon->signal(SIGHUP);
  EXPECT_TRUE(eventually([&] { return cli({"config", "get", "reg-number"}).out.find("4242") != std::string::npos; }));
  EXPECT_TRUE(daemon->running());
}

TEST(ReplayTest, AMalformedTraceIsRefusedWithItsPlaceAndWritesNothing) {
  char pattern[] = "/tmp/journal-replay-XXXXXX";
  ASSERT_NE(mkdtemp(pattern), nullptr);
  const std::string dir = pattern;
  std::ofstream(dir + "/bad.xml") << "<cstaTrace>\n  <event at=\"2024-03-05T07:00:00\">\n    <DeliveredEvent>\n"
                                  << "</cstaTrace>\n";
  Subprocess::Result r = Subprocess::run({CALLJOURNAL_PATH, "replay", dir + "/bad.xml", "--db", dir + "/j.db"});
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("bad.xml:"), std::string::npos) << r.err;
  EXPECT_NE(access((dir + "/j.db").c_str(), F_OK), 0);
  std::system(("rm -rf '" + dir + "'").c_str());
}
