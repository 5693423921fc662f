// SqliteDataAccessService: carries out store requests (read, write, update, delete of the call
// tables and the settings) and answers them. Message shapes: docs/store-protocol.md, "Store
// messages"; the request is read by storemessage::parseStoreRequest, the reply written with
// store_requests/StoreReply.h. A read reply is built in one string: the stored bodies are copied
// out of SQLite without a document in between.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "SqliteStore.h"
#include "framework/ResidentPages.h"
#include "store_requests/StoreReply.h"
#include "store_requests/StoreRequest.h"

namespace sqlitestore {
namespace {

using storemessage::Entry;
using storemessage::StoreRequest;

// Runs a statement that returns no rows.
bool stepDone(sqlite3_stmt* statement) { return statement && sqlite3_step(statement) == SQLITE_DONE; }

void bindText(sqlite3_stmt* statement, int index, const std::string& text) {
  sqlite3_bind_text(statement, index, text.c_str(), static_cast<int>(text.size()), SQLITE_STATIC);
}

// Parameters ?1 to ?9 of the insert and update statements: the readable columns, then the body.
// The number and time of the newest occurrence are null without one, viewed is null outside the
// missed calls, list_order null when the body has no place.
void bindRow(sqlite3_stmt* statement, Table table, const Entry& entry) {
  const storemessage::ItemFields& item = entry.item;
  bindText(statement, 1, item.entryId);
  bindText(statement, 2, item.surname);
  bindText(statement, 3, item.firstname);
  if (item.hasOccurrence) {
    bindText(statement, 4, item.number);
    bindText(statement, 5, item.timeDate);
  } else {
    sqlite3_bind_null(statement, 4);
    sqlite3_bind_null(statement, 5);
  }
  sqlite3_bind_int64(statement, 6, item.occurrences);
  if (table == kMissed) {
    sqlite3_bind_int(statement, 7, item.viewed ? 1 : 0);
  } else {
    sqlite3_bind_null(statement, 7);
  }
  bindText(statement, 8, entry.body);
  if (item.listOrder == 0) {
    sqlite3_bind_null(statement, 9);
  } else {
    sqlite3_bind_int64(statement, 9, item.listOrder);
  }
}

// ---- Call tables -----------------------------------------------------------------------------

// write and update. `lastId` is the row written last, 0 when none.
bool writeEntries(Store& store, const StoreRequest& request, int64_t& lastId) {
  const Table table = request.table;
  for (const Entry& entry : request.entries) {
    // An entry that names its row replaces it, for a write as for an update: an entry marked
    // viewed is written again, and a new entry may take over the row of one it pushed out.
    if (entry.uniqueId > 0) {
      // Most rewrites keep the entry id (a merge, a viewed mark): those leave its index alone, which
      // saves a page write per change.
      bool replaced = false;
      for (Op op : {kUpdateKeepingEntryId, kUpdateById}) {
        sqlite3_stmt* update = store.statement(table, op);
        StatementUse use(update);
        if (update) {
          bindRow(update, table, entry);
          sqlite3_bind_int64(update, 10, entry.uniqueId);
        }
        if (!stepDone(update)) return false;
        if ((replaced = sqlite3_changes(store.db) > 0)) break;
      }
      if (replaced) {
        lastId = entry.uniqueId;
        continue;
      }
    }
    // A write, or an update of a row that is not there: a new row.
    sqlite3_stmt* insert = store.statement(table, kInsert);
    StatementUse use(insert);
    if (insert) bindRow(insert, table, entry);
    if (!stepDone(insert)) return false;
    lastId = sqlite3_last_insert_rowid(store.db);
  }
  return true;
}

bool deleteEntries(Store& store, const StoreRequest& request) {
  const Table table = request.table;
  if (request.entries.empty()) {
    sqlite3_stmt* all = store.statement(table, kDeleteAll);
    StatementUse use(all);
    return stepDone(all);
  }
  for (const Entry& entry : request.entries) {
    if (entry.badUniqueId) continue;  // names no row that can exist
    sqlite3_stmt* statement = nullptr;
    if (entry.uniqueId > 0) {
      statement = store.statement(table, kDeleteById);
      if (statement) sqlite3_bind_int64(statement, 1, entry.uniqueId);
    } else {  // no unique id: the rows of the entry id
      statement = store.statement(table, kDeleteByEntryId);
      if (statement) bindText(statement, 1, entry.item.entryId);
    }
    StatementUse use(statement);
    if (!stepDone(statement)) return false;
  }
  return true;
}

// Room for a table's first read: the size of the whole file (no table's rows are larger, bar a few
// bytes of framing per row), up to a full list's worth. A reply grown by doubling would copy itself
// at every step and touch about twice its size; room reserved and never written is address space
// of its own mapping, which takes no memory.
size_t firstReadRoom(Store& store) {
  constexpr size_t kMostRoom = 16u << 20;
  std::string pages, pageSize;
  if (!store.queryText("PRAGMA page_count", pages) || !store.queryText("PRAGMA page_size", pageSize)) return 4096;
  const size_t fileBytes = std::strtoull(pages.c_str(), nullptr, 10) * std::strtoull(pageSize.c_str(), nullptr, 10);
  return std::min(std::max<size_t>(fileBytes, 4096), kMostRoom);
}

bool readEntries(Store& store, Table table, std::string& reply) {
  sqlite3_stmt* select = store.statement(table, kSelectAll);
  if (!select) return false;
  StatementUse use(select);
  reply.reserve(store.replySizeHint[table] ? store.replySizeHint[table] : firstReadRoom(store));
  storemessage::appendReplyStart(reply, table);
  // The reply's room is a fresh mapping: made resident ahead of the rows in a few calls rather
  // than a fault per page.
  size_t resident = 0;
  int rc;
  while ((rc = sqlite3_step(select)) == SQLITE_ROW) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(select, 1));
    storemessage::appendStoredEntry(reply, sqlite3_column_int64(select, 0), text ? text : "");
    fw::keepResidentAhead(reply, resident);
  }
  if (rc != SQLITE_DONE) return false;
  storemessage::appendReplyEnd(reply);
  store.replySizeHint[table] = reply.size() + reply.size() / 8;
  return true;
}

// ---- Settings --------------------------------------------------------------------------------

// write and update store each setting given; delete removes the ones named, or all.
bool changeSettings(Store& store, const StoreRequest& request) {
  const bool deletes = request.reason == storemessage::kDelete;
  if (deletes && request.settings.empty()) {
    sqlite3_stmt* all = store.statement(kSettings, kDeleteAll);
    StatementUse use(all);
    return stepDone(all);
  }
  for (const storemessage::Setting& setting : request.settings) {
    sqlite3_stmt* statement = store.statement(kSettings, deletes ? kDeleteById : kInsert);
    StatementUse use(statement);
    if (statement) {
      bindText(statement, 1, setting.name);
      if (!deletes) bindText(statement, 2, setting.value);
    }
    if (!stepDone(statement)) return false;
  }
  return true;
}

bool readSettings(Store& store, std::string& reply) {
  sqlite3_stmt* select = store.statement(kSettings, kSelectAll);
  if (!select) return false;
  StatementUse use(select);
  storemessage::appendReplyStart(reply, kSettings);
  int rc;
  while ((rc = sqlite3_step(select)) == SQLITE_ROW) {
    const auto* name = reinterpret_cast<const char*>(sqlite3_column_text(select, 0));
    if (!name || !storemessage::isSetting(name)) continue;  // only what a request can have stored
    const auto* value = reinterpret_cast<const char*>(sqlite3_column_text(select, 1));
    storemessage::appendStoredSetting(
        reply, name, std::string_view(value ? value : "", static_cast<size_t>(sqlite3_column_bytes(select, 1))));
  }
  if (rc != SQLITE_DONE) return false;
  storemessage::appendReplyEnd(reply);
  return true;
}

}  // namespace
}  // namespace sqlitestore

bool sqlitestore::Store::handle(const std::string& request, std::string& reply, std::string& why) {
  using namespace sqlitestore;
  StoreRequest parsed;
  if (!storemessage::parseStoreRequest(request, parsed, why)) return false;

  if (parsed.reason == storemessage::kRead) {
    const bool ok = parsed.table == kSettings ? readSettings(*this, reply) : readEntries(*this, parsed.table, reply);
    if (!ok) why = storemessage::describeRequest(parsed) + lastError();
    return ok;
  }

  Transaction transaction(*this);
  int64_t lastId = 0;
  bool ok = transaction.begin();
  if (ok) {
    if (parsed.table == kSettings) {
      ok = changeSettings(*this, parsed);
    } else if (parsed.reason == storemessage::kDelete) {
      ok = deleteEntries(*this, parsed);
    } else {
      ok = writeEntries(*this, parsed, lastId);
    }
  }
  if (!ok || !transaction.commit()) {
    why = storemessage::describeRequest(parsed) + lastError();
    return false;  // the transaction rolls back
  }
  reply = storemessage::changeReply(parsed.table, lastId);
  return true;
}
