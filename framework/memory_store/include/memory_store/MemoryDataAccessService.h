// The journal's store kept in memory: a DataAccessServiceIfc that answers the store messages of
// docs/store-protocol.md ("Store messages") as SqliteDataAccessService does, but holds the rows in
// maps and loses them with the process. For measurements and tools that want the journal's own
// cost without a disk or an SQL engine in the way; register it under "DataAccessServiceIfc".
//
// The same rules as the SQLite store: one map of rows per call table (unique ids are row ids,
// counted up and never reused), bodies kept as sent and handed back as the entry's element with
// the id as attribute `uniqueId`, and the three settings. A request is checked whole before
// anything changes: a request that fails changes nothing and is answered with "failed"; the
// reason is logged under "Data Access" at level 2.
//
// Thread-safe: requests are serialised by m_mutex, a leaf lock (the journal calls in while holding
// its list locks; nothing but the logger's own leaf mutex is taken while it is held).
#pragma once

#include <memory>
#include <string>

#include "framework/Executable.h"
#include "framework/Mutex.h"
#include "framework/Services.h"

#pragma GCC visibility push(default)

class MemoryDataAccessService : public Service, public DataAccessServiceIfc {
 public:
  MemoryDataAccessService();
  ~MemoryDataAccessService() override;
  MemoryDataAccessService(const MemoryDataAccessService&) = delete;
  MemoryDataAccessService& operator=(const MemoryDataAccessService&) = delete;

  std::string processRequest(const std::string& request) override;

 private:
  struct Tables;  // framework/memory_store/src

  fw::Mutex m_mutex;  // leaf lock, guards m_tables
  std::unique_ptr<Tables> m_tables PT_GUARDED_BY(m_mutex);
};

#pragma GCC visibility pop
