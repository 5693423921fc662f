// Clients of the daemon as users meet them: a screen that subscribes twice and goes away, the
// counts `calljournal watch` prints, and what the CLI says about the ids it was given.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <sstream>

#include "DaemonFixture.h"

using namespace e2e;

namespace {

const std::string kNs = " xmlns=\"http://www.ecma-international.org/standards/ecma-323/csta/ed4\"";

// A callback request set (or cancelled) at the switch for `number`.
std::string callBack(const std::string& number, bool cancelled) {
  return "<CallBackEvent" + kNs + "><monitorCrossRefID/><originatingDevice><deviceIdentifier>N&lt;3100&gt;" +
         "</deviceIdentifier></originatingDevice><targetDevice><deviceIdentifier>N&lt;" + number +
         "&gt;</deviceIdentifier></targetDevice><callBackSetCanceled>" + (cancelled ? "true" : "false") +
         "</callBackSetCanceled></CallBackEvent>";
}

// The values of `key` in the JSON lines of `text` that hold it, in order.
std::vector<int> countsIn(const std::string& text, const std::string& key) {
  std::vector<int> counts;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const json j = json::parse(line, nullptr, false);
    if (j.is_object() && j.contains(key)) counts.push_back(j[key].get<int>());
  }
  return counts;
}

class ClientsDaemonTest : public DaemonTest {
 protected:
  void sendAll(const std::vector<std::string>& events) {
    for (const std::string& event : events) ASSERT_TRUE(sim.sendEvent(event));
  }
  // A connection to the daemon's socket that sends `bytes` and is left open; its descriptor.
  int rawConnection(const std::string& bytes) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socket.c_str(), sizeof address.sun_path - 1);
    EXPECT_EQ(0, ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address));
    EXPECT_EQ(static_cast<ssize_t>(bytes.size()), ::write(fd, bytes.data(), bytes.size()));
    return fd;
  }
  size_t missedEntries() {
    const json all = lists();
    return all.contains("missed") ? all["missed"].size() : 0;
  }
};

}  // namespace

TEST_F(ClientsDaemonTest, AConnectionThatSubscribedTwiceAndWentAwayLeavesNothingBehind) {
  startDaemon();
  {
    fw::JournalClient screen = connectTo(socket);
    std::string reply, error;
    for (int i = 0; i < 2; ++i) {
      ASSERT_TRUE(screen.call(Helper::createMethodRequest(Helper::SUBSCRIBE), reply, error)) << error;
      EXPECT_EQ(Helper::respBool(true), reply);
    }
  }  // the connection closes with both subscriptions
  fw::JournalClient watcher = connectTo(socket);
  std::string reply, error;
  ASSERT_TRUE(watcher.call(Helper::createMethodRequest(Helper::SUBSCRIBE), reply, error)) << error;

  sendAll(missedCall("4711", "0301112222"));  // a change of a list: every subscriber is told
  ASSERT_TRUE(eventually([&] { return missedEntries() == 1; })) << daemon->err();
  EXPECT_TRUE(daemon->running()) << daemon->err();
  std::string message;
  bool told = false;
  while (!told && watcher.nextEvent(message, error, 5000)) {
    MissedCallItem item;
    std::string id;
    int action = -1;
    told = Helper::parseObsReqMissedCallsUpdate(message, item, id, action) && action == 0;
  }
  EXPECT_TRUE(told) << error;
  fw::JournalClient newcomer = connectTo(socket);
  ASSERT_TRUE(newcomer.call(Helper::createMethodRequest(Helper::SUBSCRIBE), reply, error)) << error;
  EXPECT_EQ(Helper::respBool(true), reply);
}

TEST_F(ClientsDaemonTest, WatchPrintsTheCountsTheDaemonSends) {
  startDaemon();
  Subprocess watch({CALLJOURNAL_PATH, "--socket", socket, "watch", "--json"});
  ASSERT_TRUE(watch.start());
  ASSERT_TRUE(eventually([&] { return !countsIn(watch.out(), "unviewedMissed").empty(); })) << watch.err();

  sendAll(missedCall("4711", "0301112222"));
  sendAll(missedCall("4712", "0303334444"));
  sendAll({callBack("0305556666", false), callBack("0307778888", false), callBack("0307778888", true)});
  ASSERT_TRUE(eventually([&] { return countsIn(watch.out(), "callbacks").size() == 3; })) << watch.out();

  const std::vector<int> missed = countsIn(watch.out(), "unviewedMissed");
  ASSERT_EQ(3u, missed.size()) << watch.out();
  EXPECT_EQ(0, missed[0]);  // told on subscribing
  EXPECT_EQ(1, missed[1]);
  EXPECT_EQ(2, missed[2]);
  const std::vector<int> callbacks = countsIn(watch.out(), "callbacks");
  EXPECT_EQ(1, callbacks[0]);
  EXPECT_EQ(2, callbacks[1]);
  EXPECT_EQ(1, callbacks[2]);
}

TEST_F(ClientsDaemonTest, ClientsBeyondTheConnectionLimitAreRefusedAndTheRestServed) {
  std::ofstream(dir + "/calljournald.conf", std::ios::app) << "client-max-connections = 3\n";
  startDaemon();
  // Three clients that announce a frame of 4 MiB and send nothing more hold every place.
  std::vector<int> holders;
  // A connection the daemon refused (the start-up probe may still hold a place) ends at once.
  while (holders.size() < 3) {
    const int fd = rawConnection(std::string("\x00\x40\x00\x00", 4));
    pollfd ended{fd, POLLIN, 0};
    if (poll(&ended, 1, 300) == 0) {
      holders.push_back(fd);
    } else {
      close(fd);
    }
  }
  Subprocess::Result refused = cli({"list", "missed"});
  EXPECT_EQ(1, refused.code) << refused.out << refused.err << daemon->err();
  close(holders.back());
  ASSERT_TRUE(eventually([&] { return cli({"list", "missed"}).code == 0; })) << daemon->err();
  Subprocess::Result config = cli({"config", "get", "client-max-connections"});
  EXPECT_NE(config.out.find("client-max-connections = 3"), std::string::npos) << config.out;
  EXPECT_TRUE(daemon->running());
  for (int fd : holders) close(fd);
}
