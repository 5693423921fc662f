// The daemon's start-up and its link to the switch, end to end: a switch that is not there yet or
// goes away mid-day, events that come the moment the monitor runs, the system registration, the
// default software type, refused configurations and reloads, and the client socket's folder.
#include <sys/stat.h>

#include <pugixml.hpp>
#include <regex>

#include "DaemonFixture.h"

using namespace e2e;

namespace {

// A loopback port that nothing listens on right now: a switch simulator's, once it is gone.
int freePort() { return SwitchSimulator().port(); }

SwitchSimulator::Options switchOn(int port) {
  SwitchSimulator::Options options;
  options.port = port;
  return options;
}

// Occurrences per party and list, as "list:number" -> count.
std::map<std::string, std::size_t> occurrences(const json& lists) {
  std::map<std::string, std::size_t> out;
  for (const char* list : {"missed", "received", "dialled", "forwarded"})
    for (const auto& e : lists[list])
      out[std::string(list) + ":" + e["infos"][0]["number"].get<std::string>()] += e["infos"].size();
  return out;
}

}  // namespace

// A daemon whose configuration the test writes, and whose switch (when it has one) the test starts
// on a port of its choosing.
class StartupFixture : public DaemonTest {
 protected:
  // What `calljournal replay` makes of the events [0, end) of the day's trace.
  json replayed(std::size_t end = SIZE_MAX) {
    pugi::xml_document trace;
    EXPECT_TRUE(trace.load_file(kTrace.c_str()));
    std::size_t index = 0;
    pugi::xml_node root = trace.document_element();
    for (pugi::xml_node event = root.child("event"), next; event; event = next) {
      next = event.next_sibling("event");
      if (index++ >= end) root.remove_child(event);
    }
    const std::string path = dir + "/part.xml";
    trace.save_file(path.c_str());
    Subprocess::Result r = cli({"replay", path, "--json", "--phonebook", std::string(EXAMPLES_DIR) + "/phonebook.csv"});
    EXPECT_EQ(r.code, 0) << r.err;
    return r.code == 0 ? json::parse(r.out) : json();
  }
  // The daemon's value of `key` and where it comes from, as "value (source)".
  std::string configured(const std::string& key) {
    Subprocess::Result r = cli({"config", "get", key});
    EXPECT_EQ(r.code, 0) << r.err;
    std::smatch m;
    const std::string line = lastLine(r.out);
    if (!std::regex_match(line, m, std::regex("(.*) = (.*)   \\((.*)\\)")) || m[1] != key) return line;
    return m[2].str() + " (" + m[3].str() + ")";
  }
};

// ---- the switch link ----

using SwitchLinkDaemonTest = StartupFixture;

TEST_F(SwitchLinkDaemonTest, ASwitchThatAppearsAfterTheDaemonGetsTheMonitorAndTheDaysCalls) {
  const int port = freePort();
  ASSERT_GT(port, 0);
  writeConfig("software-type = Velmora SIP\nsystem-identifier = 0\nserver-based-features = true\n", port);
  launch();
  std::this_thread::sleep_for(std::chrono::seconds(2));
  SwitchSimulator late(switchOn(port));
  ASSERT_TRUE(late.waitForRequest("MonitorStart", 20000)) << daemon->err();
  std::string error;
  ASSERT_GT(late.playTrace(kTrace, 0, error), 0) << error;

  const auto expected = shape(replayed());
  std::set<std::string> got;
  EXPECT_TRUE(eventually([&] { return (got = shape(lists())) == expected; })) << ::testing::PrintToString(got) << "\n"
                                                                              << ::testing::PrintToString(expected);

  // Said once at the default threshold while the switch was away, and once when the monitor ran.
  const std::string address = "127.0.0.1:" + std::to_string(port);
  const auto unreachable = linesWith(daemon->err(), "cannot be reached");
  ASSERT_EQ(1u, unreachable.size()) << daemon->err();
  EXPECT_NE(unreachable[0].find(address), std::string::npos) << unreachable[0];
  EXPECT_TRUE(std::regex_search(unreachable[0], std::regex("next attempt in [0-9.]+ s"))) << unreachable[0];
  EXPECT_EQ(1u, linesWith(daemon->err(), "monitor of 3100 runs").size()) << daemon->err();
}

TEST_F(SwitchLinkDaemonTest, ASwitchStoppedMidDayAndStartedAgainGetsTheRestOfTheDayOnce) {
  const std::size_t split = 21;  // the calls before 11:05 have ended
  const int port = freePort();
  ASSERT_GT(port, 0);
  writeConfig("software-type = Velmora SIP\nsystem-identifier = 0\nserver-based-features = true\n", port);
  auto first = std::make_unique<SwitchSimulator>(switchOn(port));
  launch();
  ASSERT_TRUE(first->waitForRequest("MonitorStart", 15000)) << daemon->err();
  std::string error;
  ASSERT_EQ(21, first->playTrace(kTrace, 0, error, 0, split)) << error;
  const auto morning = occurrences(replayed(split));
  ASSERT_TRUE(eventually([&] { return occurrences(lists()) == morning; })) << daemon->err();

  first.reset();
  ASSERT_TRUE(eventually([&] { return daemon->err().find("lost") != std::string::npos; })) << daemon->err();
  SwitchSimulator again(switchOn(port));
  ASSERT_TRUE(again.waitForRequest("MonitorStart", 20000)) << daemon->err();
  ASSERT_EQ(25, again.playTrace(kTrace, 0, error, split)) << error;

  const auto day = occurrences(replayed());
  std::map<std::string, std::size_t> got;
  EXPECT_TRUE(eventually([&] { return (got = occurrences(lists())) == day; })) << ::testing::PrintToString(got) << "\n"
                                                                               << ::testing::PrintToString(day);
}

TEST_F(SwitchLinkDaemonTest, ACallSentTheMomentTheMonitorRunsIsFiledOnceOverManyRestarts) {
  writeConfig("software-type = Velmora SIP\nsystem-identifier = 0\n", sim.port());
  const int restarts = 8;
  for (int i = 1; i <= restarts; ++i) {
    sim.setEventsAfterMonitorStart(missedCall(std::to_string(700 + i), "0301111111"));
    launch();
    ASSERT_TRUE(sim.waitForRequest("MonitorStart", 15000, static_cast<std::size_t>(i))) << daemon->err();
    json now;
    const std::size_t expected = std::min(i, 10);
    EXPECT_TRUE(eventually([&] {
      now = lists();
      return now["missed"].size() == 1 && now["missed"][0]["infos"].size() == expected;
    })) << "start "
        << i << ": " << now["missed"].dump();
    ASSERT_EQ(1u, now["missed"].size()) << "start " << i;
    EXPECT_EQ(expected, now["missed"][0]["infos"].size()) << "start " << i;
    daemon->signal(SIGKILL);
    daemon->wait(5000);
  }
  EXPECT_EQ(0u, sim.requests("SystemRegister").size());  // a SIP phone does not register
}

// The switch refuses the first MonitorStart and the link starts the monitor later: the journal
// holds no id of it, so when call-log access is taken away the host stops it; given back, the
// journal starts its own, which it then stops itself.
TEST_F(SwitchLinkDaemonTest, AMonitorRefusedAtFirstStopsWhenCallLogAccessIsTakenAway) {
  const auto configure = [&](const std::string& access) {
    writeConfig("software-type = Velmora SIP\nsystem-identifier = 0\ndisable-access-calllog = " + access + "\n",
                sim.port());
    daemon->signal(SIGHUP);
  };
  writeConfig("software-type = Velmora SIP\nsystem-identifier = 0\n", sim.port());
  sim.setAnswer("MonitorStart", SwitchSimulator::Answer::Error);
  launch();
  ASSERT_TRUE(sim.waitForRequest("MonitorStart", 15000)) << daemon->err();
  sim.setAnswer("MonitorStart", SwitchSimulator::Answer::Normal);
  ASSERT_TRUE(eventually([&] { return !sim.currentMonitorId().empty(); })) << daemon->err();
  sendAll(missedCall("801", "0301111111"));
  ASSERT_TRUE(eventually([&] { return lists()["missed"].size() == 1; })) << daemon->err();

  configure("1");
  ASSERT_TRUE(sim.waitForRequest("MonitorStop", 15000)) << daemon->err();
  EXPECT_EQ("", sim.currentMonitorId());
  // The line follows the switch's answer.
  EXPECT_TRUE(eventually([&] { return linesWith(daemon->err(), "no longer wanted: stopped").size() == 1; }))
      << daemon->err();

  const std::size_t starts = sim.requests("MonitorStart").size();
  configure("0");
  ASSERT_TRUE(sim.waitForRequest("MonitorStart", 15000, starts + 1)) << daemon->err();
  ASSERT_TRUE(eventually([&] { return !sim.currentMonitorId().empty(); })) << daemon->err();
  sendAll(missedCall("802", "0302222222"));
  EXPECT_TRUE(eventually([&] { return lists()["missed"].size() == 2; })) << daemon->err();

  configure("2");
  ASSERT_TRUE(sim.waitForRequest("MonitorStop", 15000, 2)) << daemon->err();
  EXPECT_EQ("", sim.currentMonitorId());
  EXPECT_EQ(starts + 1, sim.requests("MonitorStart").size());
  EXPECT_EQ(1u, linesWith(daemon->err(), "no longer wanted").size()) << daemon->err();
}

// ---- start-up and configuration ----

using DaemonStartupTest = StartupFixture;

// A KPX phone registers for system status and monitors with a filter (a SIP phone does neither).
TEST_F(DaemonStartupTest, WithoutASoftwareTypeTheDaemonIsAKpxPhoneAndCountsForNewSubscribers) {
  writeConfig("", sim.port());
  launch();
  ASSERT_TRUE(sim.waitForRequest("MonitorStart", 15000)) << daemon->err();
  EXPECT_EQ("Velmora KPX (default)", configured("software-type"));
  ASSERT_TRUE(sim.waitForRequest("SystemRegister", 15000));
  EXPECT_EQ(1u, sim.requests("SystemRegister").size());
  EXPECT_EQ(1u, linesWith(daemon->err(), "JournalService::CSTASystemRegister - register with CSTA Service").size())
      << daemon->err();
  EXPECT_NE(sim.requests("MonitorStart").at(0).xml.find("requestedMonitorFilter"), std::string::npos);

  for (const std::string& event : missedCall("801", "0302222222")) ASSERT_TRUE(sim.sendEvent(event));
  ASSERT_TRUE(sim.sendEvent(callBack("0303333333", false)));
  ASSERT_TRUE(eventually([&] { return lists()["missed"].size() == 1; })) << daemon->err();

  fw::JournalClient subscriber = connectTo(socket);
  std::string reply, error, message;
  ASSERT_TRUE(subscriber.call(Helper::createMethodRequest(Helper::SUBSCRIBE), reply, error)) << error;
  unsigned missed = 0, callbacks = 0;
  bool missedTold = false, callbacksTold = false;
  while ((!missedTold || !callbacksTold) && subscriber.nextEvent(message, error, 5000)) {
    missedTold = missedTold || Helper::parseObsReqMissedCallsCountUpdate(message, missed);
    callbacksTold = callbacksTold || Helper::parseObsReqCallBacksCountUpdate(message, callbacks);
  }
  EXPECT_EQ(1u, missed);
  EXPECT_EQ(1u, callbacks);
}

TEST_F(DaemonStartupTest, EveryStartUpFaultEndsWithOneLineAndExitCodeOne) {
  const std::string base = dir + "/calljournald.conf";
  writeConfig("");
  std::ofstream(dir + "/afile") << "x";
  ::mkdir((dir + "/adir").c_str(), 0700);
  const SwitchSimulator busy;  // a port that is taken
  const std::string busyPort = std::to_string(busy.port());

  struct Case {
    std::string set, expected;
  };
  const std::vector<Case> cases = {
      {"log-file=" + dir + "/missing/calljournald.log", dir + "/missing/calljournald.log"},
      {"log-file=" + dir + "/adir", dir + "/adir"},
      {"database=" + dir + "/afile/journal.db", dir + "/afile"},
      {"database=" + dir + "/adir", dir + "/adir"},
      {"phonebook=" + dir + "/missing.csv", dir + "/missing.csv"},
      {"phonebook=" + dir + "/adir", dir + "/adir"},
      {"client-tcp=127.0.0.1:" + busyPort, "127.0.0.1:" + busyPort},
  };
  for (const Case& c : cases) {
    Subprocess::Result r = Subprocess::run({CALLJOURNALD_PATH, "--config", base, "--set", c.set});
    EXPECT_EQ(1, r.code) << c.set << "\n" << r.err;
    const std::string line = lastLine(r.err);
    EXPECT_EQ(0u, line.rfind("calljournald: ", 0)) << c.set << ": " << line;
    EXPECT_NE(line.find(c.expected), std::string::npos) << c.set << ": " << line;
    EXPECT_EQ(0u, linesWith(r.err, "terminate called").size()) << c.set << "\n" << r.err;
  }
}

TEST_F(DaemonStartupTest, ARefusedReloadChangesNothingAndAGoodOneIsTaken) {
  writeConfig("software-type = Velmora SIP\nreg-number = 1111\nlog-levels = *=4\n", sim.port());
  launch();
  ASSERT_TRUE(sim.waitForRequest("MonitorStart", 15000)) << daemon->err();
  ASSERT_EQ("1111 (configuration)", configured("reg-number"));

  // The new file has one bad value beside good ones.
  std::ofstream(dir + "/calljournald.conf")
      << "software-type = Velmora KPX\nreg-number = 2222\nlog-levels = *=5\nswitch = junk\nmonitored-device = 3100\n"
      << "database = " << dir << "/journal.db\nclient-socket = " << socket << "\n";
  daemon->signal(SIGHUP);
  ASSERT_TRUE(eventually([&] { return daemon->err().find("reload failed") != std::string::npos; })) << daemon->err();
  EXPECT_EQ("1111 (configuration)", configured("reg-number"));
  EXPECT_EQ("Velmora SIP (configuration)", configured("software-type"));
  EXPECT_EQ("*=4 (configuration)", configured("log-levels"));
  EXPECT_EQ("127.0.0.1:" + std::to_string(sim.port()) + " (configuration)", configured("switch"));

  // A file that cannot be opened for logging is refused the same way.
  writeConfig("software-type = Velmora SIP\nreg-number = 3333\nlog-file = " + dir + "/missing/log\n", sim.port());
  daemon->signal(SIGHUP);
  ASSERT_TRUE(eventually([&] { return linesWith(daemon->err(), "reload failed").size() == 2; })) << daemon->err();
  EXPECT_EQ("1111 (configuration)", configured("reg-number"));

  // A good file is taken; a client's setting of the journal is kept beside it.
  writeConfig("software-type = Velmora SIP\nreg-number = 4444\n", sim.port());
  daemon->signal(SIGHUP);
  EXPECT_TRUE(eventually([&] { return configured("reg-number") == "4444 (configuration)"; })) << daemon->err();
  const Subprocess::Result set = cli({"config", "set", "missed-logging", "false"});
  EXPECT_EQ(0, set.code) << set.err;
  EXPECT_EQ("off (journal)", configured("missed-logging"));
}

// ---- the client socket's folder of a daemon that is not root ----

class SocketFolderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to run the daemon as another user";
    if (access("/usr/bin/setpriv", X_OK) != 0) GTEST_SKIP() << "setpriv is not installed";
    char pattern[] = "/tmp/journal-folder-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir = pattern;
    ASSERT_EQ(0, ::chown(dir.c_str(), kNobody, kNobody));
    Subprocess::Result probe =
        Subprocess::run({kSetpriv[0], kSetpriv[1], kSetpriv[2], kSetpriv[3], CALLJOURNALD_PATH, "--help"});
    if (probe.code != 0) GTEST_SKIP() << "the build cannot be run as user " << kNobody << ": " << probe.err;
    std::system(("rm -rf '" + sharedFolder + "'").c_str());
  }
  void TearDown() override {
    if (!dir.empty()) std::system(("rm -rf '" + dir + "' '" + sharedFolder + "'").c_str());
  }
  // Runs the daemon as the user, without a client-socket setting, with `environment` ("-u NAME"
  // or "NAME=VALUE"), until it serves (then stops it) or gives up: its exit code and stderr.
  Subprocess::Result daemonAsNobody(const std::vector<std::string>& environment) {
    std::vector<std::string> argv(std::begin(kSetpriv), std::end(kSetpriv));
    argv.push_back("/usr/bin/env");
    argv.insert(argv.end(), environment.begin(), environment.end());
    argv.insert(argv.end(), {CALLJOURNALD_PATH, "--set", "database=" + dir + "/journal.db"});
    Subprocess daemon(argv);
    Subprocess::Result result;
    if (!daemon.start()) return result;
    eventually([&] { return !daemon.running() || daemon.err().find("serving clients on") != std::string::npos; });
    if (daemon.running()) daemon.signal(SIGTERM);
    result.code = daemon.wait(10000);
    result.err = daemon.err();
    return result;
  }

  static constexpr uid_t kNobody = 65534;
  static constexpr const char* kSetpriv[] = {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
  const std::string sharedFolder = "/tmp/calljournal-65534";
  std::string dir;
};

TEST_F(SocketFolderTest, AFolderOfAnotherUserIsRefusedAndTheRuntimeFolderIsUsed) {
  // Made by someone else (root here) and open to everyone, then the user's own but open to others.
  ASSERT_EQ(0, ::mkdir(sharedFolder.c_str(), 0777));
  ASSERT_EQ(0, ::chmod(sharedFolder.c_str(), 0777));
  for (uid_t owner : {uid_t(0), kNobody}) {
    ASSERT_EQ(0, ::chown(sharedFolder.c_str(), owner, owner));
    Subprocess::Result refused = daemonAsNobody({"-u", "XDG_RUNTIME_DIR"});
    EXPECT_EQ(1, refused.code) << refused.err;
    EXPECT_NE(lastLine(refused.err).find("the socket folder " + sharedFolder), std::string::npos) << refused.err;
  }

  // Owner-only: used.
  ASSERT_EQ(0, ::chmod(sharedFolder.c_str(), 0700));
  Subprocess::Result own = daemonAsNobody({"-u", "XDG_RUNTIME_DIR"});
  EXPECT_EQ(0, own.code) << own.err;
  EXPECT_NE(own.err.find("serving clients on " + sharedFolder + "/calljournal.sock"), std::string::npos) << own.err;

  // With a runtime folder the shared one is not used at all.
  ASSERT_EQ(0, ::chown(sharedFolder.c_str(), 0, 0));
  Subprocess::Result runtime = daemonAsNobody({"XDG_RUNTIME_DIR=" + dir});
  EXPECT_EQ(0, runtime.code) << runtime.err;
  EXPECT_NE(runtime.err.find("serving clients on " + dir + "/calljournal.sock"), std::string::npos) << runtime.err;
}
