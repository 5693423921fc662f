// The daemon and its database file from the outside: lists come back exactly as they were after a
// restart and a refresh (calls in one second, a waiting call, viewed flags), the socket is the
// owner's only and a second daemon on it is refused, and a database that fails for a while (locked
// by another program, a full disk) loses no call the daemon acknowledged and overwrites no earlier row.
#include <sys/mount.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "DaemonFixture.h"

using namespace e2e;

namespace {

const char kMissedRows[] = "select unique_id, entry_id, occurrences from callLogMissedCalls";

// The missed entries a client is shown, as "<unique id> <entry id> <occurrences>".
std::set<std::string> shownMissed(const json& lists) {
  std::set<std::string> out;
  for (const auto& e : lists["missed"])
    out.insert(e["uniqueId"].get<std::string>() + " " + e["entryId"].get<std::string>() + " " +
               std::to_string(e["infos"].size()));
  return out;
}

bool showsNumber(const json& lists, const std::string& number, size_t occurrences = 1) {
  for (const auto& e : lists["missed"])
    if (e["infos"][0]["number"] == number && e["infos"].size() == occurrences) return true;
  return false;
}

class StoreDaemonTest : public DaemonTest {
 protected:
  // Stops the daemon as its service manager would (its socket goes with it) and starts it again.
  void restartDaemon() {
    daemon->signal(SIGTERM);
    ASSERT_EQ(daemon->wait(15000), 0) << daemon->err();
    EXPECT_NE(access(socket.c_str(), F_OK), 0) << "socket left behind";
    const Subprocess::Result down = cli({"list"});
    EXPECT_EQ(down.code, 1);
    EXPECT_NE(down.err.find("is calljournald running?"), std::string::npos) << down.err;
    startDaemon();
  }
  // Missed calls of two parties stored before the fault; their rows must come through it as they are.
  std::set<std::string> callsBeforeTheFault(const std::string& db) {
    sendAll(missedCall("811", "0302220001"));
    sendAll(missedCall("812", "0302220002"));
    EXPECT_TRUE(eventually([&] { return storedRows(db, kMissedRows).size() == 2; })) << daemon->err();
    return storedRows(db, "select * from callLogMissedCalls");
  }
  // Calls during the fault: two new parties, the first of them again. All are shown at once.
  void callsDuringTheFault() {
    sendAll(missedCall("813", "0302220003"));
    sendAll(missedCall("814", "0302220004"));
    sendAll(missedCall("815", "0302220003"));
    EXPECT_TRUE(eventually([&] {
      const json now = lists();
      return showsNumber(now, "0302220003", 2) && showsNumber(now, "0302220004");
    })) << daemon->err();
    const Subprocess::Result status = cli({"status", "--json"});
    ASSERT_EQ(0, status.code) << status.err;
    const json values = json::parse(status.out);
    const std::string store = values["store-state"];
    EXPECT_EQ(0u, store.find("failing since ")) << store;
    EXPECT_NE("none", values["store-error"]) << values;  // the store's own words, e.g. "database is locked"
    EXPECT_TRUE(values["store-error-at"].is_string()) << values;
  }
  // Once the fault is gone: every entry shown is stored, the earlier rows untouched, and the lists
  // come back so after a restart.
  void expectEverythingStoredAndKept(const std::string& db, const std::set<std::string>& earlier) {
    std::set<std::string> shown, stored;
    EXPECT_TRUE(
        eventually([&] { return (shown = shownMissed(lists())) == (stored = storedRows(db, kMissedRows)); }, 40000))
        << ::testing::PrintToString(shown) << "\n"
        << ::testing::PrintToString(stored) << "\n"
        << daemon->err();
    EXPECT_EQ(shown.size(), 4u);
    const std::set<std::string> now = storedRows(db, "select * from callLogMissedCalls");
    for (const std::string& row : earlier) EXPECT_EQ(now.count(row), 1u) << row;
    EXPECT_NE(daemon->err().find("the store fails"), std::string::npos) << daemon->err();
    EXPECT_NE(daemon->err().find("the store works again"), std::string::npos) << daemon->err();
    const Subprocess::Result status = cli({"status", "--json"});
    ASSERT_EQ(0, status.code) << status.err;
    EXPECT_EQ("ok", json::parse(status.out)["store-state"]);
    EXPECT_EQ(db, json::parse(status.out)["store"]);
    const json before = lists();
    restartDaemon();
    EXPECT_EQ(lists(), before);
  }
};

TEST_F(StoreDaemonTest, ListsComeBackIdenticalAfterARestartAndARefresh) {
  startDaemon();
  playDay();  // a day of calls within about a second
  // Call waiting: the first caller still rings when the second calls and gives up first.
  const auto first = missedCall("801", "0301110001"), second = missedCall("802", "0301110002");
  sendAll({first[0], second[0], second[1], second[2], first[1], first[2]});
  sendAll(missedCall("803", "0301110003"));
  sendAll(missedCall("804", "0301110004"));
  json shown;
  ASSERT_TRUE(eventually([&] {
    shown = lists();
    return !shown["missed"].empty() && shown["missed"][0]["infos"][0]["number"] == "0301110004";
  })) << daemon->err();
  std::string viewed;
  for (const auto& e : shown["missed"])
    if (e["infos"][0]["number"] == "0301110002") viewed = e["entryId"].get<std::string>();
  ASSERT_EQ(cli({"mark-viewed", viewed}).code, 0);

  const json before = lists();
  const std::string lastDialled = cli({"last-dialled"}).out;
  ASSERT_EQ(cli({"refresh"}).code, 0);
  EXPECT_EQ(lists(), before);
  struct stat socketFile {};
  ASSERT_EQ(stat(socket.c_str(), &socketFile), 0);
  EXPECT_EQ(socketFile.st_mode & 0777, 0600u);  // the owner's only
  const Subprocess::Result another = Subprocess::run({CALLJOURNALD_PATH, "--config", dir + "/calljournald.conf"});
  EXPECT_EQ(another.code, 1);
  EXPECT_NE(another.err.find("another journal daemon is serving"), std::string::npos) << another.err;
  restartDaemon();
  const json after = lists();
  EXPECT_EQ(after, before) << after.dump(1) << "\n" << before.dump(1);
  EXPECT_EQ(cli({"last-dialled"}).out, lastDialled);
}

TEST_F(StoreDaemonTest, ADatabaseLockedByAnotherProgramLosesNoCallAndOverwritesNoRow) {
  startDaemon();
  const std::string db = dir + "/journal.db";
  const std::set<std::string> earlier = callsBeforeTheFault(db);

  sqlite3* other = nullptr;
  ASSERT_EQ(sqlite3_open(db.c_str(), &other), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(other, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(other);
  const auto lockedAt = std::chrono::steady_clock::now();
  callsDuringTheFault();
  EXPECT_EQ(storedRows(db, kMissedRows).size(), 2u);  // nothing got through the lock
  std::this_thread::sleep_until(lockedAt + std::chrono::seconds(10));
  EXPECT_EQ(sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr), SQLITE_OK);
  sqlite3_close(other);

  expectEverythingStoredAndKept(db, earlier);
}

// The database on a small file system of its own, which the test fills.
class SmallDiskDaemonTest : public StoreDaemonTest {
 protected:
  void SetUp() override {
    StoreDaemonTest::SetUp();
    disk = dir + "/disk";
    ASSERT_EQ(mkdir(disk.c_str(), 0700), 0);
    if (mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=1m") != 0)
      GTEST_SKIP() << "cannot mount a small tmpfs here (" << std::strerror(errno) << ")";
    mounted = true;
    std::ifstream in(dir + "/calljournald.conf");
    std::string config((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::string database = "database = " + dir + "/journal.db";
    ASSERT_NE(config.find(database), std::string::npos);
    config.replace(config.find(database), database.size(), "database = " + disk + "/journal.db");
    std::ofstream(dir + "/calljournald.conf") << config;
  }
  void TearDown() override {
    daemon.reset();
    if (mounted) umount(disk.c_str());
    StoreDaemonTest::TearDown();
  }
  // Fills the file system to its last byte.
  void fill() {
    std::ofstream filler(disk + "/filler", std::ios::binary);
    const std::string chunk(4096, 'f');
    while (filler.write(chunk.data(), chunk.size()) && filler.flush()) {
    }
    filler.clear();
    while (filler.put('f') && filler.flush()) {
    }
  }

  std::string disk;
  bool mounted = false;
};

TEST_F(SmallDiskDaemonTest, AFullDiskLosesNoCallAndOverwritesNoRow) {
  startDaemon();
  const std::string db = disk + "/journal.db";
  const std::set<std::string> earlier = callsBeforeTheFault(db);

  fill();
  callsDuringTheFault();
  EXPECT_EQ(storedRows(db, kMissedRows).size(), 2u);  // nothing fitted on the disk
  ASSERT_EQ(std::remove((disk + "/filler").c_str()), 0);

  expectEverythingStoredAndKept(db, earlier);
}

}  // namespace
