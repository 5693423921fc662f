// SqliteDataAccessService: the schema of the store file, its version and the migration steps.
//
// The version is PRAGMA user_version (0 in a new file). A new file gets the current schema at
// once; an older one runs the steps from its version up, each step and the version it leaves
// in one transaction, so that a failed step leaves the file at the version before it.
//
// Versions:
//   1  the four call tables without `occurrences`, journalSettings
//   2  + occurrences: the number of occurrences in the row's body
//   3  + list_order: the entry's place in its list, from the body (null for bodies written before)
#include <cstdint>
#include <string>

#include "SqliteStore.h"
#include "framework/Logging.h"

using sqlitestore::Store;

namespace {

// The name of call table `t` (0 to kCallTableCount - 1).
std::string callTable(int t) { return storemessage::tableName(static_cast<sqlitestore::Table>(t)); }

static_assert(SqliteDataAccessService::kSchemaVersion == 3, "add the migration step to the new version");

// The current schema of one call table.
std::string createCallTableSql(const std::string& t) {
  std::string sql = "CREATE TABLE " + t +
                    " (unique_id INTEGER PRIMARY KEY AUTOINCREMENT, entry_id TEXT, surname TEXT, firstname TEXT,"
                    " number TEXT, time_date TEXT, occurrences INTEGER, viewed INTEGER, body TEXT NOT NULL,"
                    " list_order INTEGER);";
  sql += "CREATE INDEX " + t + "_entry_id ON " + t + " (entry_id);";
  return sql;
}

bool createSchema(Store& store) {
  std::string sql;
  for (int t = 0; t < sqlitestore::kCallTableCount; ++t) sql += createCallTableSql(callTable(t));
  sql += std::string("CREATE TABLE ") + storemessage::tableName(sqlitestore::kSettings) +
         " (name TEXT PRIMARY KEY, value TEXT);";
  return store.exec(sql.c_str());
}

// SQL function journal_occurrences(body): the number of occurrences in an item body, null when
// the body is not well-formed. Used by the migration to version 2.
void occurrencesFunction(sqlite3_context* context, int /*argc*/, sqlite3_value** argv) {
  const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(argv[0]));
  int64_t count = 0;
  if (!text || !storemessage::countOccurrences(text, static_cast<size_t>(sqlite3_value_bytes(argv[0])), count)) {
    sqlite3_result_null(context);
    return;
  }
  sqlite3_result_int64(context, count);
}

// 1 -> 2: adds `occurrences` to the call tables and counts them in the stored bodies.
bool addOccurrences(Store& store) {
  if (sqlite3_create_function(store.db, "journal_occurrences", 1,
                              SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_DIRECTONLY, nullptr, occurrencesFunction,
                              nullptr, nullptr) != SQLITE_OK) {
    return false;
  }
  std::string sql;
  for (int t = 0; t < sqlitestore::kCallTableCount; ++t) {
    const std::string table = callTable(t);
    sql += "ALTER TABLE " + table + " ADD COLUMN occurrences INTEGER;";
    sql += "UPDATE " + table + " SET occurrences = journal_occurrences(body);";
  }
  return store.exec(sql.c_str());
}

// 2 -> 3: adds `list_order`. Bodies written before hold no place in their list, so it stays null
// in the rows there are; the journal places those entries when it loads them.
bool addListOrder(Store& store) {
  std::string sql;
  for (int t = 0; t < sqlitestore::kCallTableCount; ++t)
    sql += "ALTER TABLE " + callTable(t) + " ADD COLUMN list_order INTEGER;";
  return store.exec(sql.c_str());
}

struct Migration {
  int from;  // the step takes a file from this version to the next
  bool (*run)(Store& store);
};
const Migration kMigrations[] = {
    {1, addOccurrences},
    {2, addListOrder},
};
static_assert(sizeof kMigrations / sizeof kMigrations[0] == SqliteDataAccessService::kSchemaVersion - 1,
              "one migration step per version");

// Runs `change` and sets the version to `version` in one transaction. On failure `error` gets
// SQLite's message, taken before the rollback replaces it.
bool inTransaction(Store& store, int version, bool (*change)(Store&), std::string& error) {
  Store::Transaction transaction(store);
  const std::string setVersion = "PRAGMA user_version = " + std::to_string(version);
  if (transaction.begin() && change(store) && store.exec(setVersion.c_str()) && transaction.commit()) return true;
  error = store.lastError();
  return false;
}

}  // namespace

bool sqlitestore::Store::readSchemaVersion(int& version, std::string& error) {
  std::string text;
  if (!queryText("PRAGMA user_version", text)) {
    error = "store file '" + path + "': " + lastError();
    return false;
  }
  version = std::stoi(text);
  if (version <= SqliteDataAccessService::kSchemaVersion) return true;
  error = "store file '" + path + "': schema version " + text + " is newer than this program knows (" +
          std::to_string(SqliteDataAccessService::kSchemaVersion) + ")";
  return false;
}

bool sqlitestore::Store::prepareSchema(int version, std::string& error) {
  const auto fail = [&](const std::string& what) {
    error = "store file '" + path + "': " + what;
    return false;
  };
  if (version == 0) {
    std::string tables;
    if (!queryText("SELECT count(*) FROM sqlite_master", tables)) return fail(lastError());
    if (tables != "0") return fail("holds tables but no schema version: not a journal store");
    std::string why;
    if (!inTransaction(*this, SqliteDataAccessService::kSchemaVersion, createSchema, why)) {
      return fail("cannot create the schema: " + why);
    }
    return true;
  }
  for (const Migration& step : kMigrations) {
    if (step.from != version) continue;
    std::string why;
    if (!inTransaction(*this, version + 1, step.run, why)) {
      return fail("migration from schema version " + std::to_string(version) + " failed: " + why);
    }
    ++version;
    logAppUni(sqlitestore::kLogHandle, __FILE__, fw::kLogNotable, __LINE__,
              "Store file '%s' migrated to schema version %d", path.c_str(), version);
  }
  return true;
}
