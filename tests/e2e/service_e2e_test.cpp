// calljournald under a service manager: the readiness, reload and stop messages it sends to
// NOTIFY_SOCKET (as systemd's Type=notify reads them), and the modes of the files it keeps the
// call history in.
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cstddef>

#include "DaemonFixture.h"

namespace e2e {
namespace {

// A datagram socket bound where the daemon is told to send its notifications: a path, or an
// abstract socket name when `path` begins with '@'.
class NotifySocket {
 public:
  explicit NotifySocket(const std::string& path) : m_path(path) {
    m_fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    socklen_t size = sizeof address;
    if (path[0] == '@') {
      address.sun_path[0] = '\0';
      size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
    }
    m_bound = m_fd >= 0 && ::bind(m_fd, reinterpret_cast<sockaddr*>(&address), size) == 0;
  }
  ~NotifySocket() {
    if (m_fd >= 0) ::close(m_fd);
  }
  NotifySocket(const NotifySocket&) = delete;
  NotifySocket& operator=(const NotifySocket&) = delete;

  bool bound() const { return m_bound; }
  const std::string& path() const { return m_path; }

  // The next message, or "" when none came within `timeoutMs`.
  std::string next(int timeoutMs = 15000) {
    pollfd readable{m_fd, POLLIN, 0};
    if (::poll(&readable, 1, timeoutMs) != 1) return "";
    char buffer[4096];
    const ssize_t n = ::recv(m_fd, buffer, sizeof buffer, 0);
    return n > 0 ? std::string(buffer, static_cast<std::size_t>(n)) : std::string();
  }

 private:
  std::string m_path;
  int m_fd = -1;
  bool m_bound = false;
};

std::string firstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

unsigned modeOf(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return 0;
  return info.st_mode & 07777;
}

class ServiceManagerTest : public DaemonTest {
 protected:
  // Starts the daemon with NOTIFY_SOCKET naming `notify`; does not wait for anything.
  void startNotifying(const NotifySocket& notify) {
    ::setenv("NOTIFY_SOCKET", notify.path().c_str(), 1);
    daemon = std::make_unique<Subprocess>(
        std::vector<std::string>{CALLJOURNALD_PATH, "--config", dir + "/calljournald.conf"});
    const bool started = daemon->start();
    ::unsetenv("NOTIFY_SOCKET");
    ASSERT_TRUE(started);
  }

  // One missed call filed and stored by a daemon run that has ended.
  void storeOneMissedCall() {
    startDaemon();
    sendAll(missedCall("1", "0301112222"));
    ASSERT_TRUE(eventually([&] { return missedNumbers().size() == 1; }));
    daemon->signal(SIGTERM);
    ASSERT_EQ(0, daemon->wait(15000));
  }
};

TEST_F(ServiceManagerTest, ReadyComesOnceClientsAreServedAndTheListsAreRead) {
  storeOneMissedCall();
  NotifySocket notify(dir + "/notify.sock");
  ASSERT_TRUE(notify.bound());
  startNotifying(notify);

  const std::string ready = notify.next();
  EXPECT_EQ("READY=1", firstLine(ready)) << daemon->err();
  EXPECT_EQ(1u, linesWith(ready, "STATUS=serving clients on " + socket).size()) << ready;
  // At that moment, without retrying: the socket answers and the stored entry is in the list.
  Subprocess::Result listed = cli({"list", "missed", "--json"});
  ASSERT_EQ(0, listed.code) << listed.err;
  EXPECT_EQ(1u, json::parse(listed.out)["missed"].size());

  daemon->signal(SIGHUP);
  EXPECT_EQ("RELOADING=1", firstLine(notify.next()));
  EXPECT_EQ("READY=1", firstLine(notify.next()));

  daemon->signal(SIGTERM);
  EXPECT_EQ("STOPPING=1", firstLine(notify.next()));
  EXPECT_EQ(0, daemon->wait(15000));
}

// A manager may name an abstract socket ('@' for the leading zero byte): the same messages reach it.
TEST_F(ServiceManagerTest, AnAbstractNotifySocketReceivesTheMessages) {
  NotifySocket notify("@calljournald-notify-" + std::to_string(::getpid()));
  ASSERT_TRUE(notify.bound());
  startNotifying(notify);

  EXPECT_EQ("READY=1", firstLine(notify.next())) << daemon->err();
  daemon->signal(SIGTERM);
  EXPECT_EQ("STOPPING=1", firstLine(notify.next()));
  EXPECT_EQ(0, daemon->wait(15000));
}

// The call history is personal data: whatever the umask the daemon was started with, what it
// makes of the database is its user's alone.
TEST_F(ServiceManagerTest, TheDatabaseAndItsFolderAreTheDaemonUsersAlone) {
  const std::string state = dir + "/state";
  const mode_t previous = ::umask(022);
  launch({}, {"--set", "database=" + state + "/journal/journal.db"});
  ::umask(previous);
  ASSERT_TRUE(sim.waitForRequest("MonitorStart", 15000, 1)) << daemon->err();
  sendAll(missedCall("1", "0301112222"));
  ASSERT_TRUE(eventually([&] { return missedNumbers().size() == 1; }));

  EXPECT_EQ(0700u, modeOf(state));
  EXPECT_EQ(0700u, modeOf(state + "/journal"));
  EXPECT_EQ(0600u, modeOf(state + "/journal/journal.db"));
  EXPECT_EQ(0600u, modeOf(state + "/journal/journal.db-wal"));
  EXPECT_EQ(0600u, modeOf(state + "/journal/journal.db-shm"));
}

// A database an older version left readable by others is closed to them at the next start; a
// folder others may write into is left as it is (it may be shared) and named in the log.
TEST_F(ServiceManagerTest, AnOpenDatabaseIsClosedAtStartAndAnOpenFolderIsLogged) {
  storeOneMissedCall();
  ASSERT_EQ(0, ::chmod((dir + "/journal.db").c_str(), 0644));
  ASSERT_EQ(0, ::chmod(dir.c_str(), 0777));
  startDaemon();

  EXPECT_EQ(0600u, modeOf(dir + "/journal.db"));
  EXPECT_EQ(0777u, modeOf(dir));
  EXPECT_EQ(1u, linesWith(daemon->err(), "The store's folder " + dir + " may be written by other users").size())
      << daemon->err();
}

}  // namespace
}  // namespace e2e
