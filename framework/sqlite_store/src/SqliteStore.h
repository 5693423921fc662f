// Internals of SqliteDataAccessService, shared by its three sources:
//   SqliteDataAccessService.cpp  the service, the connection, cached statements, transactions
//   SqliteStoreSchema.cpp        the schema, its versions and the migration steps
//   SqliteStoreRequests.cpp      store requests and the replies to them
// Not installed: nothing outside the framework sees sqlite3 or pugixml.
#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <pugixml.hpp>
#include <string>

#include "framework/JournalServiceHelperXml.h"
#include "sqlite_store/SqliteDataAccessService.h"

namespace sqlitestore {

// Log handle of the store.
constexpr const char* kLogHandle = "Data Access";

// The stored tables, in the order of kTables. Only kSettings holds no item bodies.
enum Table { kMissed, kDialled, kReceived, kForwarded, kSettings, kTableCount };
constexpr int kCallTableCount = kSettings;

struct TableInfo {
  const char* name;      // table name in the file and in the requests' `table` attribute
  const char* bodyRoot;  // root element of the item bodies it keeps; null for the settings
};
extern const TableInfo kTables[kTableCount];

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

// The readable columns of a call table row, taken from its item body. A field missing from the
// body is null. Pointers are into the body's document.
struct Columns {
  const char* entryId = nullptr;
  const char* surname = nullptr;
  const char* firstname = nullptr;
  const char* number = nullptr;    // of the newest occurrence
  const char* timeDate = nullptr;  // of the newest occurrence
  int64_t occurrences = 0;
  int viewed = -1;        // 1, 0, or -1 for null (not a missed call, or no valid flag)
  int64_t listOrder = 0;  // the entry's place in its list; 0 (null) when the body has none
};
Columns readColumns(const pugi::xml_node& bodyRoot, Table table);
// Number of occurrences (callInfo elements) in an item body's root element.
int64_t countOccurrences(const pugi::xml_node& bodyRoot);

// Appends `size` bytes of `text` as XML character data: & < > escaped, carriage returns and
// the other control characters but tab and line feed as character references.
using journalxml::appendEscaped;

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
