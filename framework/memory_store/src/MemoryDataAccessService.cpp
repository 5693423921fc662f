// MemoryDataAccessService: store requests carried out on maps. The request is read whole
// (storemessage::parseStoreRequest) before the first change, then its changes are applied in
// request order; replies are written with store_requests/StoreReply.h.
#include "memory_store/MemoryDataAccessService.h"

#include <cstdint>
#include <exception>
#include <iterator>
#include <map>
#include <utility>

#include "framework/Logging.h"
#include "store_requests/StoreReply.h"
#include "store_requests/StoreRequest.h"

namespace {

using storemessage::StoreRequest;

constexpr const char* kLogHandle = "Data Access";

struct Row {
  std::string entryId;
  std::string body;  // as sent (a read leaves out an XML declaration)
};

}  // namespace

struct MemoryDataAccessService::Tables {
  std::map<int64_t, Row> rows[storemessage::kCallTableCount];
  int64_t lastRowId[storemessage::kCallTableCount] = {};  // ids are counted up and never reused
  std::map<std::string, std::string> settings;

  bool handle(const std::string& request, std::string& reply, std::string& why);
  void read(storemessage::Table table, std::string& reply) const;
  void changeSettings(StoreRequest& request);
  void deleteRows(const StoreRequest& request);
  int64_t writeRows(StoreRequest& request);  // the row written last, 0 when none
};

void MemoryDataAccessService::Tables::read(storemessage::Table table, std::string& reply) const {
  storemessage::appendReplyStart(reply, table);
  if (table == storemessage::kSettings) {
    for (const auto& [name, value] : settings) storemessage::appendStoredSetting(reply, name, value);
  } else {
    for (const auto& [id, row] : rows[table]) storemessage::appendStoredEntry(reply, id, row.body);
  }
  storemessage::appendReplyEnd(reply);
}

// write and update store each setting given; delete removes the ones named, or all.
void MemoryDataAccessService::Tables::changeSettings(StoreRequest& request) {
  const bool deletes = request.reason == storemessage::kDelete;
  if (deletes && request.settings.empty()) settings.clear();
  for (storemessage::Setting& setting : request.settings) {
    if (deletes)
      settings.erase(setting.name);
    else
      settings[setting.name] = std::move(setting.value);
  }
}

void MemoryDataAccessService::Tables::deleteRows(const StoreRequest& request) {
  std::map<int64_t, Row>& tableRows = rows[request.table];
  if (request.entries.empty()) tableRows.clear();
  for (const storemessage::Entry& entry : request.entries) {
    if (entry.uniqueId > 0) {
      tableRows.erase(entry.uniqueId);
    } else if (!entry.badUniqueId) {  // no unique id: every row of the entry id goes
      for (auto it = tableRows.begin(); it != tableRows.end();)
        it = it->second.entryId == entry.item.entryId ? tableRows.erase(it) : std::next(it);
    }
  }
}

// An entry that names its row replaces it; a write, or an update of a row that is not there,
// makes a new row.
int64_t MemoryDataAccessService::Tables::writeRows(StoreRequest& request) {
  std::map<int64_t, Row>& tableRows = rows[request.table];
  int64_t lastId = 0;
  for (storemessage::Entry& entry : request.entries) {
    auto found = entry.uniqueId > 0 ? tableRows.find(entry.uniqueId) : tableRows.end();
    if (found == tableRows.end()) found = tableRows.emplace(++lastRowId[request.table], Row{}).first;
    found->second = Row{std::move(entry.item.entryId), std::move(entry.body)};
    lastId = found->first;
  }
  return lastId;
}

bool MemoryDataAccessService::Tables::handle(const std::string& request, std::string& reply, std::string& why) {
  StoreRequest parsed;
  if (!storemessage::parseStoreRequest(request, parsed, why)) return false;
  int64_t lastId = 0;
  if (parsed.reason == storemessage::kRead) {
    read(parsed.table, reply);
    return true;
  }
  if (parsed.table == storemessage::kSettings) {
    changeSettings(parsed);
  } else if (parsed.reason == storemessage::kDelete) {
    deleteRows(parsed);
  } else {
    lastId = writeRows(parsed);
  }
  reply = storemessage::changeReply(parsed.table, lastId);
  return true;
}

MemoryDataAccessService::MemoryDataAccessService() : m_tables(std::make_unique<Tables>()) {}

MemoryDataAccessService::~MemoryDataAccessService() = default;

std::string MemoryDataAccessService::processRequest(const std::string& request) {
  std::string why;
  {
    fw::MutexLock guard(m_mutex);
    try {
      std::string reply;
      if (m_tables->handle(request, reply, why)) return reply;
    } catch (const std::exception& e) {  // out of memory
      why = e.what();
    }
  }
  logAppUni(kLogHandle, __FILE__, fw::kLogError, __LINE__, "Store request failed: %s", why.c_str());
  return "failed";
}
