// SqliteDataAccessService: store requests (read, write, update, delete of the call tables and the
// settings) and the replies to them. Message shapes: docs/store-protocol.md, "Store messages".
//
// Requests are parsed with pugixml. A read reply is built by hand in one string: the stored
// bodies are copied out of SQLite and escaped once, without a document in between.
#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "SqliteStore.h"
#include "framework/JournalServiceHelper.h"
#include "framework/JournalServiceHelperXml.h"
#include "store_requests/StoreMessageParts.h"

namespace sqlitestore {
namespace {

using H = JournalServiceHelper;
using storemessage::fieldText;
using storemessage::isReadableItem;
using storemessage::isSetting;
using storemessage::named;
using storemessage::parseRowId;
using storemessage::withoutDeclaration;

enum Reason { kRead, kWrite, kUpdate, kDelete };

struct Request {
  Table table = kMissed;
  Reason reason = kRead;
  std::vector<pugi::xml_node> items;  // the elements after the reason: entries or settings
};

// The frame: root, table, reason, and the elements that follow.
bool parseRequest(const pugi::xml_document& doc, Request& request, std::string& why) {
  const pugi::xml_node root = doc.document_element();
  if (!named(root, H::STOREREQUEST)) {
    why = std::string("root element <") + root.name() + "> is not a store request";
    return false;
  }
  const char* table = root.attribute(H::TABLE).value();
  int t = 0;
  while (t < kTableCount && std::strcmp(kTables[t].name, table) != 0) ++t;
  if (t == kTableCount) {
    why = std::string("unknown table '") + table + "'";
    return false;
  }
  request.table = static_cast<Table>(t);

  static constexpr const char* kReasons[] = {H::READREQUEST, H::WRITEREQUEST, H::UPDATEREQUEST, H::DELETEREQUEST};
  const pugi::xml_node reason = root.first_child();
  if (!reason || reason.type() != pugi::node_element || !named(reason, H::REASONFORMESSAGE)) {
    why = "the request does not start with a reason";
    return false;
  }
  int r = 0;
  while (r < 4 && std::strcmp(kReasons[r], reason.child_value()) != 0) ++r;
  if (r == 4) {
    why = std::string("unknown reason '") + reason.child_value() + "'";
    return false;
  }
  request.reason = static_cast<Reason>(r);

  for (pugi::xml_node item = reason.next_sibling(); item; item = item.next_sibling()) {
    if (item.type() != pugi::node_element) {
      why = "text between the elements of the request";
      return false;
    }
    request.items.push_back(item);
  }
  if (request.reason == kRead && !request.items.empty()) {
    why = "a read takes no entries";
    return false;
  }
  return true;
}

// The item body an entry holds: its text (or CDATA), never markup.
bool entryBody(const pugi::xml_node& entry, const char*& body, std::string& why) {
  if (!named(entry, H::ENTRY)) {
    why = std::string("unexpected element <") + entry.name() + ">";
    return false;
  }
  const pugi::xml_node content = entry.first_child();
  if (content &&
      ((content.type() != pugi::node_pcdata && content.type() != pugi::node_cdata) || content.next_sibling())) {
    why = "an entry holds markup instead of an escaped item body";
    return false;
  }
  body = content ? content.value() : "";
  return true;
}

// Parses an entry's body, which must be an item body of the table's type.
bool parseBody(const char* body, Table table, pugi::xml_document& doc, std::string& why) {
  if (!journalxml::parse(doc, body, std::strlen(body))) {
    why = "an entry's item body is not well-formed";
    return false;
  }
  if (!named(doc.document_element(), kTables[table].bodyRoot)) {
    why = std::string("an entry's item body is a <") + doc.document_element().name() + ">, not a <" +
          kTables[table].bodyRoot + ">";
    return false;
  }
  return true;
}

// Runs a statement that returns no rows.
bool stepDone(sqlite3_stmt* statement) { return statement && sqlite3_step(statement) == SQLITE_DONE; }

void bindText(sqlite3_stmt* statement, int index, const char* text) {
  if (text) {
    sqlite3_bind_text(statement, index, text, -1, SQLITE_STATIC);
  } else {
    sqlite3_bind_null(statement, index);
  }
}

// Parameters ?1 to ?9 of the insert and update statements.
void bindRow(sqlite3_stmt* statement, const Columns& columns, const char* body) {
  bindText(statement, 1, columns.entryId);
  bindText(statement, 2, columns.surname);
  bindText(statement, 3, columns.firstname);
  bindText(statement, 4, columns.number);
  bindText(statement, 5, columns.timeDate);
  sqlite3_bind_int64(statement, 6, columns.occurrences);
  if (columns.viewed < 0) {
    sqlite3_bind_null(statement, 7);
  } else {
    sqlite3_bind_int(statement, 7, columns.viewed);
  }
  sqlite3_bind_text(statement, 8, body, -1, SQLITE_STATIC);
  if (columns.listOrder == 0) {
    sqlite3_bind_null(statement, 9);
  } else {
    sqlite3_bind_int64(statement, 9, columns.listOrder);
  }
}

void appendReplyStart(std::string& reply, Table table) {
  reply += "<storeReply table=\"";
  reply += kTables[table].name;
  reply += "\"><result>ok</result>";
}

// ---- Call tables -----------------------------------------------------------------------------

// write and update. `lastId` is the row written last, 0 when none.
bool writeEntries(Store& store, const Request& request, int64_t& lastId, std::string& why) {
  const Table table = request.table;
  for (const pugi::xml_node& entry : request.items) {
    const char* body = nullptr;
    pugi::xml_document doc;
    if (!entryBody(entry, body, why) || !parseBody(body, table, doc, why)) return false;
    const pugi::xml_node root = doc.document_element();
    if (!isReadableItem(root)) {
      why = std::string("an entry's item body is not a readable <") + root.name() + "> (a field out of its range)";
      return false;
    }
    const Columns columns = readColumns(root, table);
    // Reads hand bodies out as they are stored; a raw carriage return, which a reader would fold
    // into a line feed, is stored as a reference instead.
    std::string normalized;
    if (std::strchr(body, '\r')) {
      normalized = journalxml::print(doc);
      body = normalized.c_str();
    }

    int64_t id = 0;
    // An entry that names its row replaces it, for a write as for an update: an entry marked
    // viewed is written again, and a new entry may take over the row of one it pushed out.
    if (parseRowId(fieldText(root, H::UNIQUEID), id)) {
      // Most rewrites keep the entry id (a merge, a viewed mark): those leave its index alone, which
      // saves a page write per change.
      bool replaced = false;
      for (Op op : {kUpdateKeepingEntryId, kUpdateById}) {
        sqlite3_stmt* update = store.statement(table, op);
        StatementUse use(update);
        if (update) {
          bindRow(update, columns, body);
          sqlite3_bind_int64(update, 10, id);
        }
        if (!stepDone(update)) return false;
        if ((replaced = sqlite3_changes(store.db) > 0)) break;
      }
      if (replaced) {
        lastId = id;
        continue;
      }
    }
    // A write, or an update of a row that is not there: a new row.
    sqlite3_stmt* insert = store.statement(table, kInsert);
    StatementUse use(insert);
    if (insert) bindRow(insert, columns, body);
    if (!stepDone(insert)) return false;
    lastId = sqlite3_last_insert_rowid(store.db);
  }
  return true;
}

bool deleteEntries(Store& store, const Request& request, std::string& why) {
  const Table table = request.table;
  if (request.items.empty()) {
    sqlite3_stmt* all = store.statement(table, kDeleteAll);
    StatementUse use(all);
    return stepDone(all);
  }
  for (const pugi::xml_node& entry : request.items) {
    const char* body = nullptr;
    pugi::xml_document doc;
    if (!entryBody(entry, body, why) || !parseBody(body, table, doc, why)) return false;
    const pugi::xml_node root = doc.document_element();
    const char* uniqueId = fieldText(root, H::UNIQUEID);
    sqlite3_stmt* statement = nullptr;
    if (uniqueId && *uniqueId) {
      int64_t id = 0;
      if (!parseRowId(uniqueId, id)) continue;  // names no row that can exist
      statement = store.statement(table, kDeleteById);
      if (statement) sqlite3_bind_int64(statement, 1, id);
    } else {
      statement = store.statement(table, kDeleteByEntryId);
      const char* entryId = fieldText(root, H::ENTRYID);
      if (statement) sqlite3_bind_text(statement, 1, entryId ? entryId : "", -1, SQLITE_STATIC);
    }
    StatementUse use(statement);
    if (!stepDone(statement)) return false;
  }
  return true;
}

bool readEntries(Store& store, Table table, std::string& reply) {
  sqlite3_stmt* select = store.statement(table, kSelectAll);
  if (!select) return false;
  StatementUse use(select);
  reply.reserve(std::max<size_t>(store.replySizeHint[table], 4096));
  appendReplyStart(reply, table);
  int rc;
  while ((rc = sqlite3_step(select)) == SQLITE_ROW) {
    char id[24];
    const auto idEnd = std::to_chars(id, id + sizeof id, sqlite3_column_int64(select, 0)).ptr;
    // Stored bodies were checked to be well-formed items when written: they go out as the
    // entry's element, copied without escaping. The size lets a reader still take the other
    // entries when a row was damaged since (edited by hand, a disk fault).
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(select, 1));
    const std::string_view body = withoutDeclaration(text ? text : "");
    char size[24];
    const auto sizeEnd = std::to_chars(size, size + sizeof size, body.size()).ptr;
    reply += "<entry uniqueId=\"";
    reply.append(id, idEnd);
    reply += "\" size=\"";
    reply.append(size, sizeEnd);
    reply += "\">";
    reply.append(body);
    reply += "</entry>";
  }
  if (rc != SQLITE_DONE) return false;
  reply += "</storeReply>";
  store.replySizeHint[table] = reply.size() + reply.size() / 8;
  return true;
}

// ---- Settings --------------------------------------------------------------------------------

bool checkSetting(const pugi::xml_node& setting, std::string& why) {
  if (!isSetting(setting.name())) {
    why = std::string("unknown setting <") + setting.name() + ">";
    return false;
  }
  if (setting.find_child([](const pugi::xml_node& child) { return child.type() == pugi::node_element; })) {
    why = std::string("setting <") + setting.name() + "> holds markup";
    return false;
  }
  return true;
}

// write and update store each setting given; delete removes the ones named, or all.
bool changeSettings(Store& store, const Request& request, std::string& why) {
  if (request.reason == kDelete && request.items.empty()) {
    sqlite3_stmt* all = store.statement(kSettings, kDeleteAll);
    StatementUse use(all);
    return stepDone(all);
  }
  for (const pugi::xml_node& setting : request.items) {
    if (!checkSetting(setting, why)) return false;
    sqlite3_stmt* statement = store.statement(kSettings, request.reason == kDelete ? kDeleteById : kInsert);
    StatementUse use(statement);
    if (statement) {
      sqlite3_bind_text(statement, 1, setting.name(), -1, SQLITE_STATIC);
      if (request.reason != kDelete) sqlite3_bind_text(statement, 2, setting.child_value(), -1, SQLITE_STATIC);
    }
    if (!stepDone(statement)) return false;
  }
  return true;
}

bool readSettings(Store& store, std::string& reply) {
  sqlite3_stmt* select = store.statement(kSettings, kSelectAll);
  if (!select) return false;
  StatementUse use(select);
  appendReplyStart(reply, kSettings);
  int rc;
  while ((rc = sqlite3_step(select)) == SQLITE_ROW) {
    const auto* name = reinterpret_cast<const char*>(sqlite3_column_text(select, 0));
    if (!name || !isSetting(name)) continue;  // only what a request can have stored
    const auto* value = reinterpret_cast<const char*>(sqlite3_column_text(select, 1));
    reply += '<';
    reply += name;
    reply += '>';
    appendEscaped(reply, value ? value : "", static_cast<size_t>(sqlite3_column_bytes(select, 1)));
    reply += "</";
    reply += name;
    reply += '>';
  }
  if (rc != SQLITE_DONE) return false;
  reply += "</storeReply>";
  return true;
}

}  // namespace

// Fields left out of a body are at their default: an empty text, a flag that is false.
Columns readColumns(const pugi::xml_node& bodyRoot, Table table) {
  const auto text = [](const pugi::xml_node& parent, const char* name) {
    const char* value = fieldText(parent, name);
    return value ? value : "";
  };
  Columns columns;
  columns.entryId = text(bodyRoot, H::ENTRYID);
  columns.surname = text(bodyRoot, H::SURNAME);
  columns.firstname = text(bodyRoot, H::FIRSTNAME);
  const pugi::xml_node newest = bodyRoot.child(H::CALLINFOS).child(H::CALLINFO);
  if (newest) {
    columns.number = newest.attribute(H::NUMBER).value();  // occurrences keep their fields in attributes
    columns.timeDate = newest.attribute(H::TIMEDATE).value();
  }
  columns.occurrences = countOccurrences(bodyRoot);
  const char* listOrder = fieldText(bodyRoot, H::LISTORDER);
  if (listOrder) {
    const char* end = listOrder + std::strlen(listOrder);
    const auto parsed = std::from_chars(listOrder, end, columns.listOrder);
    if (parsed.ec != std::errc() || parsed.ptr != end) columns.listOrder = 0;
  }
  if (table == kMissed) {
    columns.viewed = 0;
    const char* viewed = fieldText(bodyRoot, H::VIEWED);
    if (viewed && (std::strcmp(viewed, H::TRUETEXT) == 0 || std::strcmp(viewed, "1") == 0)) columns.viewed = 1;
    if (viewed && (std::strcmp(viewed, H::FALSETEXT) == 0 || std::strcmp(viewed, "0") == 0)) columns.viewed = 0;
  }
  return columns;
}

int64_t countOccurrences(const pugi::xml_node& bodyRoot) {
  int64_t count = 0;
  for (pugi::xml_node info = bodyRoot.child(H::CALLINFOS).child(H::CALLINFO); info;
       info = info.next_sibling(H::CALLINFO)) {
    ++count;
  }
  return count;
}

}  // namespace sqlitestore

bool sqlitestore::Store::handle(const std::string& request, std::string& reply, std::string& why) {
  using namespace sqlitestore;
  pugi::xml_document doc;
  Request parsed;
  if (!journalxml::parse(doc, request)) {
    why = "the request is not well-formed";
    return false;
  }
  if (!parseRequest(doc, parsed, why)) return false;
  const auto context = [&parsed]() {
    static constexpr const char* kReasonNames[] = {H::READREQUEST, H::WRITEREQUEST, H::UPDATEREQUEST, H::DELETEREQUEST};
    return std::string("table ") + kTables[parsed.table].name + ", " + kReasonNames[parsed.reason] + ": ";
  };

  if (parsed.reason == kRead) {
    const bool ok = parsed.table == kSettings ? readSettings(*this, reply) : readEntries(*this, parsed.table, reply);
    if (!ok) why = context() + lastError();
    return ok;
  }

  Transaction transaction(*this);
  int64_t lastId = 0;
  std::string fault;  // set when the request itself is at fault, else SQLite's message is used
  bool ok = transaction.begin();
  if (ok) {
    if (parsed.table == kSettings) {
      ok = changeSettings(*this, parsed, fault);
    } else if (parsed.reason == kDelete) {
      ok = deleteEntries(*this, parsed, fault);
    } else {
      ok = writeEntries(*this, parsed, lastId, fault);
    }
  }
  if (!ok || !transaction.commit()) {
    why = context() + (fault.empty() ? lastError() : fault);
    return false;  // the transaction rolls back
  }
  appendReplyStart(reply, parsed.table);
  if (lastId > 0) {
    reply += "<lastUniqueId>";
    reply += std::to_string(lastId);
    reply += "</lastUniqueId>";
  }
  reply += "</storeReply>";
  return true;
}
