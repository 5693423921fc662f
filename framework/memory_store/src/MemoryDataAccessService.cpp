// MemoryDataAccessService: store requests answered from maps. Requests are parsed with pugixml,
// every entry is checked (and its body parsed) before the first change, then the changes are
// applied in request order.
#include "memory_store/MemoryDataAccessService.h"

#include <charconv>
#include <cstdint>
#include <cstring>
#include <exception>
#include <map>
#include <string_view>
#include <vector>

#include "framework/JournalServiceHelper.h"
#include "framework/JournalServiceHelperXml.h"
#include "framework/Logging.h"
#include "store_requests/StoreMessageParts.h"

namespace {

using H = JournalServiceHelper;
using storemessage::fieldText;
using storemessage::isReadableItem;
using storemessage::isSetting;
using storemessage::named;
using storemessage::parseRowId;
using storemessage::withoutDeclaration;

constexpr const char* kLogHandle = "Data Access";

struct CallTable {
  const char* name;      // the requests' `table` attribute
  const char* bodyRoot;  // root element of the item bodies it keeps
};
constexpr int kCallTableCount = 4;
const CallTable kCallTables[kCallTableCount] = {
    {H::DAS_CALLLOGMISSEDCALLS, H::MISSEDCALL},
    {H::DAS_CALLLOGDIALLEDCALLS, H::DIALLEDCALL},
    {H::DAS_CALLLOGRECEIVEDCALLS, H::RECEIVEDCALL},
    {H::DAS_CALLLOGFORWARDEDCALLS, H::FORWARDEDCALL},
};
constexpr int kSettingsTable = kCallTableCount;

enum Reason { kRead, kWrite, kUpdate, kDelete };

struct Row {
  std::string entryId;
  std::string body;  // as sent, without an XML declaration
};

// One entry of a write or delete, checked and ready to apply.
struct Change {
  int64_t id = 0;           // the row the body names; 0 when it names none
  bool namesBadId = false;  // a unique id that no row can have (a delete of it does nothing)
  std::string entryId;
  std::string body;
};

// An ENTRY element holding one item body of the table's type as text; one to be written must be
// an item the journal reads back.
bool checkEntry(const pugi::xml_node& entry, int table, bool forWriting, Change& change, std::string& why) {
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
  const char* body = content ? content.value() : "";
  pugi::xml_document doc;
  if (!journalxml::parse(doc, body, std::strlen(body))) {
    why = "an entry's item body is not well-formed";
    return false;
  }
  const pugi::xml_node root = doc.document_element();
  if (!named(root, kCallTables[table].bodyRoot)) {
    why = std::string("an entry's item body is a <") + root.name() + ">, not a <" + kCallTables[table].bodyRoot + ">";
    return false;
  }
  if (forWriting && !isReadableItem(root)) {
    why = std::string("an entry's item body is not a readable <") + root.name() + "> (a field out of its range)";
    return false;
  }
  const char* uniqueId = fieldText(root, H::UNIQUEID);
  change.namesBadId = uniqueId && *uniqueId && !parseRowId(uniqueId, change.id);
  const char* entryId = fieldText(root, H::ENTRYID);
  change.entryId = entryId ? entryId : "";
  // Reads hand bodies out as markup; a raw carriage return, which a reader would fold into a line
  // feed, is kept as a reference instead.
  change.body = std::strchr(body, '\r') ? journalxml::print(doc) : std::string(withoutDeclaration(body));
  return true;
}

void appendReplyStart(std::string& reply, const char* table) {
  reply += "<storeReply table=\"";
  reply += table;
  reply += "\"><result>ok</result>";
}

}  // namespace

struct MemoryDataAccessService::Tables {
  std::map<int64_t, Row> rows[kCallTableCount];
  int64_t lastRowId[kCallTableCount] = {};  // ids are counted up and never reused
  std::map<std::string, std::string> settings;

  bool handle(const std::string& request, std::string& reply, std::string& why);
  void readRows(int table, std::string& reply) const;
  void readSettings(std::string& reply) const;
};

void MemoryDataAccessService::Tables::readRows(int table, std::string& reply) const {
  for (const auto& [id, row] : rows[table]) {
    reply += "<entry uniqueId=\"";
    reply += std::to_string(id);
    reply += "\" size=\"";
    reply += std::to_string(row.body.size());
    reply += "\">";
    reply += row.body;
    reply += "</entry>";
  }
}

void MemoryDataAccessService::Tables::readSettings(std::string& reply) const {
  for (const auto& [name, value] : settings) {
    reply += '<' + name + '>';
    journalxml::appendEscaped(reply, value);
    reply += "</" + name + '>';
  }
}

bool MemoryDataAccessService::Tables::handle(const std::string& request, std::string& reply, std::string& why) {
  pugi::xml_document doc;
  if (!journalxml::parse(doc, request)) {
    why = "the request is not well-formed";
    return false;
  }
  const pugi::xml_node root = doc.document_element();
  if (!named(root, H::STOREREQUEST)) {
    why = std::string("root element <") + root.name() + "> is not a store request";
    return false;
  }
  const char* tableName = root.attribute(H::TABLE).value();
  int table = 0;
  while (table < kCallTableCount && std::strcmp(kCallTables[table].name, tableName) != 0) ++table;
  if (table == kCallTableCount && std::strcmp(tableName, H::SETTINGS_SCHEMA) != 0) {
    why = std::string("unknown table '") + tableName + "'";
    return false;
  }
  static constexpr const char* kReasons[] = {H::READREQUEST, H::WRITEREQUEST, H::UPDATEREQUEST, H::DELETEREQUEST};
  const pugi::xml_node reasonNode = root.first_child();
  if (!reasonNode || reasonNode.type() != pugi::node_element || !named(reasonNode, H::REASONFORMESSAGE)) {
    why = "the request does not start with a reason";
    return false;
  }
  int reason = 0;
  while (reason < 4 && std::strcmp(kReasons[reason], reasonNode.child_value()) != 0) ++reason;
  if (reason == 4) {
    why = std::string("unknown reason '") + reasonNode.child_value() + "'";
    return false;
  }
  std::vector<pugi::xml_node> items;
  for (pugi::xml_node item = reasonNode.next_sibling(); item; item = item.next_sibling()) {
    if (item.type() != pugi::node_element) {
      why = "text between the elements of the request";
      return false;
    }
    items.push_back(item);
  }
  if (reason == kRead && !items.empty()) {
    why = "a read takes no entries";
    return false;
  }

  const char* replyTable = table == kSettingsTable ? H::SETTINGS_SCHEMA : kCallTables[table].name;
  if (reason == kRead) {
    appendReplyStart(reply, replyTable);
    if (table == kSettingsTable)
      readSettings(reply);
    else
      readRows(table, reply);
    reply += "</storeReply>";
    return true;
  }

  int64_t lastId = 0;
  if (table == kSettingsTable) {
    for (const pugi::xml_node& setting : items) {
      if (!isSetting(setting.name())) {
        why = std::string("unknown setting <") + setting.name() + ">";
        return false;
      }
      if (setting.find_child([](const pugi::xml_node& child) { return child.type() == pugi::node_element; })) {
        why = std::string("setting <") + setting.name() + "> holds markup";
        return false;
      }
    }
    if (reason == kDelete && items.empty()) settings.clear();
    for (const pugi::xml_node& setting : items) {
      if (reason == kDelete)
        settings.erase(setting.name());
      else
        settings[setting.name()] = setting.child_value();
    }
  } else {
    std::vector<Change> changes(items.size());
    for (size_t i = 0; i < items.size(); ++i) {
      if (!checkEntry(items[i], table, reason != kDelete, changes[i], why)) return false;
    }
    std::map<int64_t, Row>& tableRows = rows[table];
    if (reason == kDelete && changes.empty()) tableRows.clear();
    for (Change& change : changes) {
      if (reason == kDelete) {
        if (change.id > 0) {
          tableRows.erase(change.id);
        } else if (!change.namesBadId) {  // no unique id: every row of the entry id goes
          for (auto it = tableRows.begin(); it != tableRows.end();)
            it = it->second.entryId == change.entryId ? tableRows.erase(it) : std::next(it);
        }
        continue;
      }
      // An entry that names its row replaces it; a write, or an update of a row that is not
      // there, makes a new row.
      auto found = change.id > 0 ? tableRows.find(change.id) : tableRows.end();
      if (found == tableRows.end()) found = tableRows.emplace(++lastRowId[table], Row{}).first;
      found->second = Row{std::move(change.entryId), std::move(change.body)};
      lastId = found->first;
    }
  }
  appendReplyStart(reply, replyTable);
  if (lastId > 0) reply += "<lastUniqueId>" + std::to_string(lastId) + "</lastUniqueId>";
  reply += "</storeReply>";
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
