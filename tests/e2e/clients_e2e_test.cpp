// Clients of the daemon as users meet them: a screen that subscribes twice and goes away, the
// counts and changes `calljournal watch` prints, and what the CLI says about the ids it was given.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <sstream>

#include "DaemonFixture.h"

using namespace e2e;

namespace {

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
  ASSERT_TRUE(eventually([&] { return missedNumbers().size() == 1; })) << daemon->err();
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
  // The list's own connection holds the free place until the daemon has seen it close.
  Subprocess::Result config;
  EXPECT_TRUE(eventually([&] {
    return (config = cli({"config", "get", "client-max-connections"})).code == 0;
  })) << config.err;
  EXPECT_NE(config.out.find("client-max-connections = 3"), std::string::npos) << config.out;
  EXPECT_TRUE(daemon->running());
  for (int fd : holders) close(fd);
}

TEST_F(ClientsDaemonTest, TheCliActsOnKnownIdsOnlyAndSaysWhatItRemovedFromWhichList) {
  startDaemon();
  sendAll(missedCall("4711", "0301112222"));
  sendAll(missedCall("4712", "0303334444"));
  ASSERT_TRUE(eventually([&] { return missedNumbers().size() == 2; })) << daemon->err();
  const json before = lists();
  const std::string first = before["missed"][0]["entryId"], second = before["missed"][1]["entryId"];
  Subprocess watch({CALLJOURNAL_PATH, "--socket", socket, "watch"});  // a subscriber hears of the deletion
  ASSERT_TRUE(watch.start());
  ASSERT_TRUE(eventually([&] { return !linesWith(watch.out(), "unviewedMissed").empty(); })) << watch.err();

  Subprocess::Result unknown = cli({"delete-calls", first, "no-such-id"});
  EXPECT_EQ(1, unknown.code);
  EXPECT_NE(unknown.err.find("no entry with id no-such-id in a call list; nothing was deleted"), std::string::npos)
      << unknown.err;
  EXPECT_EQ(before, lists());
  Subprocess::Result wrongList = cli({"delete", "--list", "received", first});
  EXPECT_EQ(1, wrongList.code);
  EXPECT_NE(wrongList.err.find("no entry with id " + first + " in the received list"), std::string::npos)
      << wrongList.err;
  EXPECT_EQ(1, cli({"mark-viewed", "no-such-id"}).code);
  EXPECT_EQ(1, cli({"age", "no-such-id"}).code);
  EXPECT_EQ(before, lists());

  Subprocess::Result viewed = cli({"mark-viewed", second});
  EXPECT_EQ(0, viewed.code) << viewed.err;
  EXPECT_NE(viewed.out.find("marked 1 missed entry viewed"), std::string::npos) << viewed.out;
  Subprocess::Result deleted = cli({"delete-calls", first});
  EXPECT_EQ(0, deleted.code) << deleted.err;
  EXPECT_EQ("deleted " + first + " from the missed list: 0303334444\n", deleted.out);
  EXPECT_TRUE(eventually([&] { return !linesWith(watch.out(), "missed deleted").empty(); })) << watch.out();
  EXPECT_EQ(linesWith(watch.out(), "missed deleted"), std::vector<std::string>{"missed deleted " + first});
  const json after = lists();
  ASSERT_EQ(1u, after["missed"].size());
  EXPECT_EQ(second, after["missed"][0]["entryId"]);
  EXPECT_EQ(true, after["missed"][0]["viewed"]);
}

namespace {

// A daemon that answers in its own way: every request gets `reply`, a subscription is answered
// true and followed by `event`, then the connection closes. Serves one client at a time.
class OddDaemon {
 public:
  OddDaemon(std::string path, std::string reply, std::string event)
      : m_path(std::move(path)), m_reply(std::move(reply)), m_event(std::move(event)) {
    m_listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, m_path.c_str(), sizeof address.sun_path - 1);
    EXPECT_EQ(0, bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address));
    EXPECT_EQ(0, listen(m_listener, 4));
    m_thread = std::thread([this] { serve(); });
  }
  ~OddDaemon() {
    shutdown(m_listener, SHUT_RDWR);
    close(m_listener);
    m_thread.join();
  }

 private:
  static bool readFrame(int fd, std::string& payload) {
    unsigned char header[4];
    if (recv(fd, header, 4, MSG_WAITALL) != 4) return false;
    payload.resize((size_t{header[0]} << 24) | (size_t{header[1]} << 16) | (size_t{header[2]} << 8) | header[3]);
    return payload.empty() || recv(fd, &payload[0], payload.size(), MSG_WAITALL) == ssize_t(payload.size());
  }
  static void writeFrame(int fd, const std::string& payload) {
    const auto n = static_cast<uint32_t>(payload.size());
    const std::string framed = std::string{char(n >> 24), char(n >> 16), char(n >> 8), char(n)} + payload;
    EXPECT_EQ(ssize_t(framed.size()), send(fd, framed.data(), framed.size(), MSG_NOSIGNAL));
  }
  void serve() {
    for (int fd; (fd = accept(m_listener, nullptr, nullptr)) >= 0; close(fd)) {
      for (std::string request; readFrame(fd, request);) {
        if (request.find(">subscribe<") == std::string::npos) {
          writeFrame(fd, m_reply);
          continue;
        }
        writeFrame(fd, Helper::respBool(true));
        writeFrame(fd, m_event);
        break;
      }
    }
  }
  std::string m_path, m_reply, m_event;
  int m_listener = -1;
  std::thread m_thread;
};

}  // namespace

TEST(MisbehavingDaemonTest, TheCliNeverAbortsWhateverTheDaemonAnswers) {
  char pattern[] = "/tmp/journal-odd-XXXXXX";
  ASSERT_NE(nullptr, mkdtemp(pattern));
  const std::string path = std::string(pattern) + "/odd.sock";
  MissedCallItem item("2024-03-05T07:08:09Z00000001", "M\xFF\xFEller", "", {}, false);
  {
    OddDaemon odd(path, Helper::respGetMissedCallList({item}), Helper::obsReqMissedCallsUpdate(item, "", 0));
    Subprocess::Result list = Subprocess::run({CALLJOURNAL_PATH, "--socket", path, "list", "missed", "--json"});
    EXPECT_EQ(0, list.code) << list.err;
    EXPECT_NE(list.out.find("M\xEF\xBF\xBD\xEF\xBF\xBDller"), std::string::npos) << list.out;  // U+FFFD twice
    Subprocess::Result watch = Subprocess::run({CALLJOURNAL_PATH, "--socket", path, "watch", "--json"});
    EXPECT_EQ(1, watch.code) << watch.err;  // the daemon went away after its message
    EXPECT_NE(watch.out.find("M\xEF\xBF\xBD\xEF\xBF\xBDller"), std::string::npos) << watch.out;
  }
  {
    OddDaemon odd(path + "2", "<journalResponse><list>&broken", "<journalEvent>\x01");
    for (const char* command : {"list", "mark-viewed", "last-dialled", "refresh", "delete-calls"}) {
      std::vector<std::string> args = {CALLJOURNAL_PATH, "--socket", path + "2", command};
      if (std::string(command) == "delete-calls") args.push_back("some-id");
      Subprocess::Result r = Subprocess::run(args);
      EXPECT_EQ(1, r.code) << command << ": " << r.err;
    }
  }
  std::system(("rm -rf '" + std::string(pattern) + "'").c_str());
}
