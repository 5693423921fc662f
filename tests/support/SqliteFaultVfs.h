// A fault-injecting SQLite VFS for tests: a thin layer over the process's default VFS that
// forwards everything, but can be switched to fail every write of a database, its WAL or its
// journal with SQLITE_FULL (a full disk) or SQLITE_IOERR_WRITE (a failing disk). Reads and the
// shared-memory index keep working, as they do on a real full disk.
//
// While a SqliteFaultVfs object lives it is the default VFS, so a store opened in that time (the
// real SqliteDataAccessService) goes through it. One object at a time; make it before opening the
// store and destroy it after the store is closed. setFault may be called from any thread.
#pragma once

#include <sqlite3.h>

#include <atomic>

class SqliteFaultVfs {
 public:
  enum Fault { kNone, kDiskFull, kIoError };

  SqliteFaultVfs();
  ~SqliteFaultVfs();
  SqliteFaultVfs(const SqliteFaultVfs&) = delete;
  SqliteFaultVfs& operator=(const SqliteFaultVfs&) = delete;

  void setFault(Fault fault) { s_fault = fault; }
  // Writes refused since the object was made.
  int refusedWrites() const { return s_refused; }

 private:
  friend struct SqliteFaultVfsFile;
  static std::atomic<Fault> s_fault;
  static std::atomic<int> s_refused;
  sqlite3_vfs m_vfs{};
  sqlite3_vfs* m_base = nullptr;
};
