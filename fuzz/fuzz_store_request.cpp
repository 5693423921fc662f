// Fuzz target: one store message (docs/store-protocol.md) answered by both stores, the SQLite
// store on a scratch file and the in-memory store; then the table the message named is read back
// from both as the journal loads a list (parseStored...CallList). Promises checked: every answer
// is "failed" or well-formed XML; both stores agree on whether a request is carried out and hold
// the same entries; every row a store took reads back whole; and the sizes a read reply gives
// let the reply be read entry by entry as when a damaged row makes it not well-formed (the same
// entries either way). The SQLite file starts afresh every few thousand inputs so that it does
// not grow without end.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <memory>
#include <pugixml.hpp>
#include <string>
#include <tuple>
#include <vector>

#include "FuzzSupport.h"
#include "framework/JournalServiceHelper.h"
#include "memory_store/MemoryDataAccessService.h"
#include "sqlite_store/SqliteDataAccessService.h"

namespace {

using H = JournalServiceHelper;

constexpr int kInputsPerFile = 5000;

struct Stores {
  std::unique_ptr<SqliteDataAccessService> sqlite;
  std::unique_ptr<MemoryDataAccessService> memory;
  int inputs = 0;

  void renew() {
    const std::string path = fuzz::scratchDirectory() + "/store.db";
    sqlite.reset();
    for (const char* suffix : {"", "-wal", "-shm"}) std::remove((path + suffix).c_str());
    sqlite = std::make_unique<SqliteDataAccessService>(SqliteDataAccessService::Normal);
    std::string error;
    FUZZ_CHECK(sqlite->open(path, error), error);
    memory = std::make_unique<MemoryDataAccessService>();
    inputs = 0;
  }
};

// A store answers a request it did not carry out with the bare text "failed".
bool failed(const std::string& reply) { return reply == "failed"; }

// What both stores must agree on for each entry of a table.
using Row = std::tuple<std::string, std::string, int64_t, size_t>;  // unique id, entry id, order, occurrences

template <class Item>
std::vector<Row> rowsOf(const std::deque<Item>& list) {
  std::vector<Row> rows;
  for (const Item& item : list)
    rows.emplace_back(item.getUniqueId(), item.getEntryId(), item.getListOrder(), item.infos().size());
  std::sort(rows.begin(), rows.end());
  return rows;
}

// The reply made not well-formed in its root's start tag, which the reading by sizes passes over.
std::string withBrokenRoot(const std::string& reply) {
  const std::string root = std::string("<") + H::STOREREPLY;
  if (reply.compare(0, root.size(), root) != 0) return std::string();
  return root + " \x01" + reply.substr(root.size());
}

// The rows of one table as the journal reads them from `store`, checked: all of them readable,
// the same when read by the entries' sizes.
template <class Item>
std::vector<Row> readTable(DataAccessServiceIfc& store, const std::string& readMessage,
                           bool (*parse)(const std::string&, std::deque<Item>&, std::vector<std::string>&)) {
  const std::string reply = store.processRequest(readMessage);
  std::deque<Item> list;
  std::vector<std::string> skipped;
  FUZZ_CHECK(parse(reply, list, skipped), reply);
  FUZZ_CHECK(skipped.empty(), "row " + skipped.front() + " unreadable in " + reply);
  std::deque<Item> byFrame;
  const std::string broken = withBrokenRoot(reply);
  FUZZ_CHECK(parse(broken, byFrame, skipped), reply);
  FUZZ_CHECK(skipped.empty(), "row " + skipped.front() + " unreadable by its size in " + reply);
  FUZZ_CHECK(rowsOf(byFrame) == rowsOf(list), reply);
  return rowsOf(list);
}

template <class Item>
void compareTables(Stores& stores, const std::string& readMessage,
                   bool (*parse)(const std::string&, std::deque<Item>&, std::vector<std::string>&)) {
  const std::vector<Row> sqlite = readTable(*stores.sqlite, readMessage, parse);
  const std::vector<Row> memory = readTable(*stores.memory, readMessage, parse);
  FUZZ_CHECK(sqlite == memory, "the stores hold " + std::to_string(sqlite.size()) + " and " +
                                   std::to_string(memory.size()) + " rows of " + readMessage);
}

// The table a request names, read back from both stores.
void compareTableOf(Stores& stores, const std::string& request) {
  pugi::xml_document doc;
  if (!doc.load_buffer(request.data(), request.size())) return;
  const std::string table = doc.child(H::STOREREQUEST).attribute(H::TABLE).value();
  if (table == H::DAS_CALLLOGMISSEDCALLS)
    compareTables(stores, H::readMissedCallList(), &H::parseStoredMissedCallList);
  else if (table == H::DAS_CALLLOGDIALLEDCALLS)
    compareTables(stores, H::readDialledCallList(), &H::parseStoredDialledCallList);
  else if (table == H::DAS_CALLLOGRECEIVEDCALLS)
    compareTables(stores, H::readReceivedCallList(), &H::parseStoredReceivedCallList);
  else if (table == H::DAS_CALLLOGFORWARDEDCALLS)
    compareTables(stores, H::readForwardedCallList(), &H::parseStoredForwardedCallList);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::silenceLogs();
  static Stores* const stores = new Stores();
  if (!stores->sqlite || ++stores->inputs > kInputsPerFile) stores->renew();
  const std::string request(reinterpret_cast<const char*>(data), size);
  const std::string fromSqlite = stores->sqlite->processRequest(request);
  const std::string fromMemory = stores->memory->processRequest(request);
  FUZZ_CHECK(failed(fromSqlite) || fuzz::isWellFormedXml(fromSqlite), fromSqlite);
  FUZZ_CHECK(failed(fromMemory) || fuzz::isWellFormedXml(fromMemory), fromMemory);
  FUZZ_CHECK(failed(fromSqlite) == failed(fromMemory), request + "\nSQLite: " + fromSqlite + "\nmemory: " + fromMemory);
  compareTableOf(*stores, request);
  return 0;
}
