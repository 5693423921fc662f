// Pieces shared by the benchmarks: a temporary directory and the raw single-row SQLite commit
// that bounds every journal write on the real store.
#pragma once

#include <sqlite3.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace bench {

// Ends the benchmark with `error` unless `ok`: a set-up that failed measures nothing.
inline void check(bool ok, const std::string& error) {
  if (ok) return;
  std::fprintf(stderr, "%s\n", error.c_str());
  std::abort();
}

// A directory of its own under TMPDIR (or /tmp), removed with everything in it.
class TempDir {
 public:
  TempDir() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base ? base : "/tmp") + "/journal-bench-XXXXXX";
    char* made = mkdtemp(pattern.data());
    if (!made) std::abort();
    m_path = made;
  }
  ~TempDir() { std::system(("rm -rf '" + m_path + "'").c_str()); }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  std::string file(const std::string& name) const { return m_path + "/" + name; }

 private:
  std::string m_path;
};

inline void exec(sqlite3* db, const char* sql) {
  char* error = nullptr;
  if (sqlite3_exec(db, sql, nullptr, nullptr, &error) != SQLITE_OK) {
    std::fprintf(stderr, "%s: %s\n", sql, error ? error : "?");
    std::abort();
  }
}

// A table of one text column with the store's durability settings: one INSERT committed on its
// own is the physical bound of one journal write.
class RawTable {
 public:
  RawTable(const std::string& path, bool normal) {
    if (sqlite3_open(path.c_str(), &m_db) != SQLITE_OK) std::abort();
    exec(m_db, "PRAGMA journal_mode=WAL");
    exec(m_db, normal ? "PRAGMA synchronous=NORMAL" : "PRAGMA synchronous=FULL");
    exec(m_db, "CREATE TABLE t(id INTEGER PRIMARY KEY AUTOINCREMENT, body TEXT)");
    sqlite3_prepare_v2(m_db, "INSERT INTO t(body) VALUES(?)", -1, &m_insert, nullptr);
  }
  ~RawTable() {
    sqlite3_finalize(m_insert);
    sqlite3_close(m_db);
  }
  RawTable(const RawTable&) = delete;
  RawTable& operator=(const RawTable&) = delete;
  // Grows the write-ahead log to the size a busy store's log keeps (SQLite checkpoints at 1000
  // pages) and has the next commit start again at its beginning: the commits that follow write
  // into space the file already has, as a running store's do, instead of growing the file with
  // each sync.
  void growLog() {
    exec(m_db, "BEGIN");
    const std::string filler(3000, 'x');
    for (int i = 0; i < 1400; ++i) commitOne(filler);
    exec(m_db, "COMMIT");
    exec(m_db, "DELETE FROM t");
    exec(m_db, "PRAGMA wal_checkpoint(RESTART)");
  }
  void commitOne(const std::string& body) {
    sqlite3_bind_text(m_insert, 1, body.data(), static_cast<int>(body.size()), SQLITE_STATIC);
    if (sqlite3_step(m_insert) != SQLITE_DONE) std::abort();
    sqlite3_reset(m_insert);
  }

 private:
  sqlite3* m_db = nullptr;
  sqlite3_stmt* m_insert = nullptr;
};

// Raw single-row commits per second with the store's default durability (synchronous=FULL) into
// a new file at `path` whose log has grown first (RawTable::growLog), as a running store's has:
// `body` committed on its own, over `seconds` and at least 200 times.
inline double rawCommitsPerSecond(const std::string& path, const std::string& body, double seconds) {
  using Clock = std::chrono::steady_clock;
  RawTable table(path, false);
  table.growLog();
  long commits = 0;
  const auto start = Clock::now();
  double elapsed = 0;
  while (elapsed < seconds || commits < 200) {
    table.commitOne(body);
    ++commits;
    elapsed = std::chrono::duration<double>(Clock::now() - start).count();
  }
  return commits / elapsed;
}

}  // namespace bench
