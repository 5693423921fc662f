// Internals of SqliteDataAccessService, shared by its three sources:
//   SqliteDataAccessService.cpp  the service, the connection, cached statements, transactions
//   SqliteStoreSchema.cpp        the schema, its versions and the migration steps
//   SqliteStoreRequests.cpp      store requests and the replies to them
// Not installed: nothing outside the framework sees sqlite3.
#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <string>

#include "sqlite_store/SqliteDataAccessService.h"
#include "store_requests/StoreRequest.h"

namespace sqlitestore {

// Log handle of the store.
constexpr const char* kLogHandle = "Data Access";

// The stored tables, named as in the requests (storemessage::tableName). Only kSettings holds no
// item bodies.
using storemessage::kCallTableCount;
using storemessage::kMissed;
using storemessage::kSettings;
using storemessage::kTableCount;
using storemessage::Table;

// Statements prepared once per table and kept while the store is open. For the settings table
// kInsert stores a setting (replacing its value) and kDeleteById deletes one by name.
enum Op {
  kInsert,
  kUpdateById,
  kUpdateKeepingEntryId,
  kDeleteById,
  kDeleteByEntryId,
  kDeleteAll,
  kSelectAll,
  kOpCount
};

// Resets a statement when leaving a scope, so that it holds no lock on the file.
class StatementUse {
 public:
  explicit StatementUse(sqlite3_stmt* statement) : m_statement(statement) {}
  ~StatementUse() {
    if (m_statement) sqlite3_reset(m_statement);
  }
  StatementUse(const StatementUse&) = delete;
  StatementUse& operator=(const StatementUse&) = delete;

 private:
  sqlite3_stmt* m_statement;
};

struct Store {
  using Durability = SqliteDataAccessService::Durability;

  Store() = default;
  ~Store();  // finalises the statements and closes the connection
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  // ---- Connection (SqliteDataAccessService.cpp) ----
  // Opens the file, sets WAL mode, the durability and the busy timeout, then brings the schema
  // up to date. `error` names the file.
  bool open(const std::string& path, Durability durability, std::string& error);
  // The cached statement of `op` on `table`, prepared on first use; null on failure.
  sqlite3_stmt* statement(Table table, Op op);
  // Runs SQL without results (which may hold several statements).
  bool exec(const char* sql);
  // The first column of the first row of `sql`, as text.
  bool queryText(const char* sql, std::string& value);
  // "<sqlite message>" of the last failure on the connection.
  std::string lastError() const;

  // A write transaction (BEGIN IMMEDIATE) that rolls back unless committed.
  class Transaction {
   public:
    explicit Transaction(Store& store) : m_store(store) {}
    ~Transaction();
    bool begin();
    bool commit();

   private:
    Store& m_store;
    bool m_open = false;
  };

  // ---- Schema (SqliteStoreSchema.cpp) ----
  // The file's schema version; a version newer than this code knows is an error. Reading it
  // is also the first access to the file, so a file that is not a database fails here.
  bool readSchemaVersion(int& version, std::string& error);
  // Creates the schema in a new file (version 0) or runs the migration steps from `version`.
  bool prepareSchema(int version, std::string& error);

  // ---- Requests (SqliteStoreRequests.cpp) ----
  // The reply to one store request; false with `why` set when it fails (then nothing changed).
  bool handle(const std::string& request, std::string& reply, std::string& why);

  sqlite3* db = nullptr;
  std::string path;
  // Size of the last read reply per table, reserved up front for the next one.
  size_t replySizeHint[kTableCount] = {};

 private:
  bool runCached(sqlite3_stmt*& statement, const char* sql);

  sqlite3_stmt* m_statements[kTableCount][kOpCount] = {};
  sqlite3_stmt* m_begin = nullptr;
  sqlite3_stmt* m_commit = nullptr;
  sqlite3_stmt* m_rollback = nullptr;
};

}  // namespace sqlitestore
