// SqliteDataAccessService: the service object, the connection with its cached statements, and
// write transactions.
#include "sqlite_store/SqliteDataAccessService.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <string>

#include "SqliteStore.h"
#include "framework/Logging.h"

using sqlitestore::kLogHandle;

namespace sqlitestore {
namespace {

// The readable columns in the order of the statements' parameters ?1 to ?9.
constexpr const char* kRowColumns =
    "entry_id, surname, firstname, number, time_date, occurrences, viewed, body, list_order";

std::string callTableSql(const char* table, Op op) {
  const std::string t = table;
  switch (op) {
    case kInsert:
      return "INSERT INTO " + t + " (" + kRowColumns + ") VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9)";
    case kUpdateById:
      return "UPDATE " + t +
             " SET entry_id = ?1, surname = ?2, firstname = ?3, number = ?4, time_date = ?5,"
             " occurrences = ?6, viewed = ?7, body = ?8, list_order = ?9 WHERE unique_id = ?10";
    case kUpdateKeepingEntryId:  // leaves the entry id index alone
      return "UPDATE " + t +
             " SET surname = ?2, firstname = ?3, number = ?4, time_date = ?5,"
             " occurrences = ?6, viewed = ?7, body = ?8, list_order = ?9 WHERE unique_id = ?10 AND entry_id IS ?1";
    case kDeleteById:
      return "DELETE FROM " + t + " WHERE unique_id = ?1";
    case kDeleteByEntryId:
      return "DELETE FROM " + t + " WHERE entry_id = ?1";
    case kDeleteAll:
      return "DELETE FROM " + t;
    case kSelectAll:
      return "SELECT unique_id, body FROM " + t;
    case kOpCount:
      break;
  }
  return "";
}

std::string settingsSql(const char* table, Op op) {
  const std::string t = table;
  switch (op) {
    case kInsert:
      return "INSERT OR REPLACE INTO " + t + " (name, value) VALUES (?1, ?2)";
    case kDeleteById:
      return "DELETE FROM " + t + " WHERE name = ?1";
    case kDeleteAll:
      return "DELETE FROM " + t;
    case kSelectAll:
      return "SELECT name, value FROM " + t;
    default:
      return "";
  }
}

// The call history is personal data: the store file is made its owner's alone (0600), whatever
// the umask gave it or an older version left; SQLite gives the -wal, -shm and -journal files it
// makes later the main file's mode. A folder that other users may write into is not changed (it
// may be shared) but logged: someone there could replace the file before the next start.
void keepFileToOwner(const std::string& file) {
  if (chmod(file.c_str(), S_IRUSR | S_IWUSR) != 0) {
    logAppUni(kLogHandle, __FILE__, fw::kLogError, __LINE__, "Cannot make the store file %s owner-only: %s",
              file.c_str(), std::strerror(errno));
  }
  const std::string::size_type slash = file.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : file.substr(0, slash);
  struct stat info {};
  if (stat(folder.c_str(), &info) == 0 && (info.st_mode & (S_IWGRP | S_IWOTH)) != 0 && (info.st_mode & S_ISVTX) == 0) {
    logAppUni(kLogHandle, __FILE__, fw::kLogError, __LINE__,
              "The store's folder %s may be written by other users (mode %04o): they could replace the call "
              "history; make it owner-only (chmod 700 %s)",
              folder.c_str(), static_cast<unsigned>(info.st_mode & 07777), folder.c_str());
  }
}

}  // namespace
}  // namespace sqlitestore

// ---- Store: connection and statements ------------------------------------------------------

sqlitestore::Store::~Store() {
  for (auto& row : m_statements)
    for (sqlite3_stmt* statement : row) sqlite3_finalize(statement);
  sqlite3_finalize(m_begin);
  sqlite3_finalize(m_commit);
  sqlite3_finalize(m_rollback);
  sqlite3_close_v2(db);
}

bool sqlitestore::Store::open(const std::string& filePath, Durability durability, std::string& error) {
  path = filePath;
  const auto fail = [&](const std::string& what) {
    error = "store file '" + path + "': " + what;
    return false;
  };
  // One thread at a time uses the connection (the service's lock), so SQLite's own mutexes
  // are not needed.
  const int rc =
      sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
  if (rc != SQLITE_OK) return fail("cannot open: " + (db ? lastError() : std::string(sqlite3_errstr(rc))));
  sqlite3_busy_timeout(db, SqliteDataAccessService::kBusyTimeoutMs);
  if (const char* file = sqlite3_db_filename(db, "main"); file && *file) keepFileToOwner(file);

  // A file this code cannot use is refused before anything in it changes.
  int version = 0;
  if (!readSchemaVersion(version, error)) return false;
  std::string mode;
  if (!queryText("PRAGMA journal_mode = WAL", mode)) return fail(lastError());
  if (mode != "wal") return fail("cannot use write-ahead logging (journal mode stays '" + mode + "')");
  if (!exec(durability == SqliteDataAccessService::Full ? "PRAGMA synchronous = FULL"
                                                        : "PRAGMA synchronous = NORMAL")) {
    return fail(lastError());
  }
  return prepareSchema(version, error);
}

std::string sqlitestore::Store::lastError() const { return db ? sqlite3_errmsg(db) : "not open"; }

bool sqlitestore::Store::exec(const char* sql) { return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK; }

bool sqlitestore::Store::queryText(const char* sql, std::string& value) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) != SQLITE_OK) return false;
  const int rc = sqlite3_step(statement);
  if (rc == SQLITE_ROW) {
    const unsigned char* text = sqlite3_column_text(statement, 0);
    value = text ? reinterpret_cast<const char*>(text) : "";
  }
  sqlite3_finalize(statement);
  return rc == SQLITE_ROW;
}

sqlite3_stmt* sqlitestore::Store::statement(sqlitestore::Table table, sqlitestore::Op op) {
  sqlite3_stmt*& cached = m_statements[table][op];
  if (cached) return cached;
  const char* name = storemessage::tableName(table);
  const std::string sql =
      table == sqlitestore::kSettings ? sqlitestore::settingsSql(name, op) : sqlitestore::callTableSql(name, op);
  if (sql.empty()) return nullptr;
  sqlite3_prepare_v3(db, sql.c_str(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT, &cached, nullptr);
  return cached;
}

bool sqlitestore::Store::runCached(sqlite3_stmt*& statement, const char* sql) {
  if (!statement && sqlite3_prepare_v3(db, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr) != SQLITE_OK) {
    return false;
  }
  sqlitestore::StatementUse use(statement);
  return sqlite3_step(statement) == SQLITE_DONE;
}

sqlitestore::Store::Transaction::~Transaction() {
  if (m_open) m_store.runCached(m_store.m_rollback, "ROLLBACK");
}

bool sqlitestore::Store::Transaction::begin() {
  m_open = m_store.runCached(m_store.m_begin, "BEGIN IMMEDIATE");
  return m_open;
}

bool sqlitestore::Store::Transaction::commit() {
  if (!m_store.runCached(m_store.m_commit, "COMMIT")) return false;  // the destructor rolls back
  m_open = false;
  return true;
}

// ---- The service ---------------------------------------------------------------------------

SqliteDataAccessService::SqliteDataAccessService(Durability durability)
    : m_lock(1, 1, false, "SqliteDataAccessService"), m_durability(durability) {}

SqliteDataAccessService::~SqliteDataAccessService() { close(); }

bool SqliteDataAccessService::open(const std::string& path, std::string& error) {
  Durability durability;
  {
    CriticalSection guard(m_lock);
    durability = m_durability;
  }
  return open(path, durability, error);
}

bool SqliteDataAccessService::open(const std::string& path, Durability durability, std::string& error) {
  CriticalSection guard(m_lock);
  m_store.reset();
  m_durability = durability;
  auto store = std::make_unique<sqlitestore::Store>();
  if (!store->open(path, durability, error)) {
    logAppUni(kLogHandle, __FILE__, fw::kLogError, __LINE__, "Cannot open the store: %s", error.c_str());
    noteError(error);
    return false;
  }
  m_store = std::move(store);
  return true;
}

void SqliteDataAccessService::close() {
  CriticalSection guard(m_lock);
  m_store.reset();
}

bool SqliteDataAccessService::isOpen() {
  CriticalSection guard(m_lock);
  return m_store != nullptr;
}

std::string SqliteDataAccessService::processRequest(const std::string& request) {
  CriticalSection guard(m_lock);
  std::string why = "store not open";
  if (m_store) {
    try {
      std::string reply;
      if (m_store->handle(request, reply, why)) return reply;
    } catch (const std::exception& e) {  // out of memory; the transaction has rolled back
      why = e.what();
    }
  }
  logAppUni(kLogHandle, __FILE__, fw::kLogError, __LINE__, "Store request failed: %s", why.c_str());
  noteError(why);
  return "failed";
}

void SqliteDataAccessService::noteError(const std::string& text) {
  m_lastError.text = text;
  m_lastError.at = std::chrono::system_clock::now();
}

SqliteDataAccessService::LastError SqliteDataAccessService::lastError() {
  CriticalSection guard(m_lock);
  return m_lastError;
}
