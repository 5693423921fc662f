// Fuzz target: one store message (docs/store-protocol.md) answered by both stores, the SQLite
// store on a scratch file and the in-memory store. Promises checked: every answer is "failed" or
// well-formed XML, and both stores agree on whether a request is carried out. The SQLite file starts afresh
// every few thousand inputs so that it does not grow without end.
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "FuzzSupport.h"
#include "framework/JournalServiceHelper.h"
#include "framework/MemoryDataAccessService.h"
#include "framework/SqliteDataAccessService.h"

namespace {

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
  return 0;
}
