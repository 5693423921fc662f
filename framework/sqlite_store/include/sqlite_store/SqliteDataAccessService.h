// The journal's store on an SQLite file: a DataAccessServiceIfc that answers the store messages
// of docs/store-protocol.md ("Store messages"). Register it with the context under
// "DataAccessServiceIfc" after a successful open().
//
// The file holds one table per stored list (callLogMissedCalls, callLogDialledCalls,
// callLogReceivedCalls, callLogForwardedCalls), one row per entry, and journalSettings. Each row
// keeps the item body as it was sent (column `body`, which holds all occurrences) beside columns
// taken from it for people reading the file with the sqlite3 shell: entry_id, surname,
// firstname, number and time_date of the newest occurrence, occurrences (their count), viewed
// (missed calls only, NULL elsewhere) and list_order (the entry's place in its list). The row id
// `unique_id` is the entry's unique id; a read gives it on each entry as attribute `uniqueId`, so
// stored bodies are never rewritten, and each entry's length as attribute `size`.
//
// Schema versions are kept in PRAGMA user_version. open() brings an older file up to the
// current version one step at a time, each step in its own transaction, and refuses a file of
// a newer version than this code knows.
//
// Every request is one transaction: a request that fails changes nothing and is answered with
// "failed"; the reason is logged under "Data Access" at level 2.
//
// Thread-safe. All calls are serialised on one SQLite connection by a framework Semaphore used
// as a lock ("SqliteDataAccessService"). That lock is a leaf: the journal takes it while it
// holds its list locks, and nothing else is locked while it is held (the logger's own leaf
// mutex aside).
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "framework/Executable.h"
#include "framework/Semaphore.h"
#include "framework/Services.h"
#include "framework/ThreadAnnotations.h"

#pragma GCC visibility push(default)

namespace sqlitestore {
struct Store;  // the connection, its statements and the request handling (framework/sqlite_store/src)
}  // namespace sqlitestore

class SqliteDataAccessService : public Service, public DataAccessServiceIfc {
 public:
  // How hard a commit waits for the disk. Both run the file in WAL mode.
  //   Full:   synchronous=FULL; a change that was answered is on disk.
  //   Normal: synchronous=NORMAL; faster commits; a power loss may lose the last commits but
  //           never corrupts the file.
  enum Durability { Full, Normal };

  // The schema version this code writes; open() migrates older files up to it.
  static constexpr int kSchemaVersion = 3;
  // How long a statement waits for a lock held by another connection to the same file.
  static constexpr int kBusyTimeoutMs = 5000;

  explicit SqliteDataAccessService(Durability durability = Full);
  ~SqliteDataAccessService() override;
  SqliteDataAccessService(const SqliteDataAccessService&) = delete;
  SqliteDataAccessService& operator=(const SqliteDataAccessService&) = delete;

  // Opens the store file at `path`, creating it with the current schema when it is new and
  // migrating it when it is older. A store that was open is closed first. On failure the store
  // stays closed and `error` names the file and the fault. The file is made owner-only (0600).
  bool open(const std::string& path, std::string& error);
  bool open(const std::string& path, Durability durability, std::string& error);
  void close();
  bool isOpen();

  std::string processRequest(const std::string& request) override;

  // The last failure of the store (a request or an open that failed) and when it happened; kept
  // after the store works again. `text` is empty when nothing has failed since construction.
  struct LastError {
    std::string text;
    std::chrono::system_clock::time_point at;
  };
  LastError lastError();

 private:
  void noteError(const std::string& text) REQUIRES(m_lock);

  Semaphore m_lock;  // leaf lock, see above
  Durability m_durability GUARDED_BY(m_lock);
  LastError m_lastError GUARDED_BY(m_lock);
  std::unique_ptr<sqlitestore::Store> m_store GUARDED_BY(m_lock);  // null while closed
};

#pragma GCC visibility pop
