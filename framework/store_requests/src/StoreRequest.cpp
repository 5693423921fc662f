// The reading of a store request: the frame (root, table, reason, the elements after the reason),
// then each entry's item body or each setting. Parsed with pugixml under the journal's flags, which
// keep every byte of character data.
#include "store_requests/StoreRequest.h"

#include <charconv>
#include <cstring>
#include <pugixml.hpp>

#include "framework/CallItems.h"
#include "framework/ItemScan.h"
#include "framework/JournalServiceHelper.h"
#include "framework/JournalServiceHelperXml.h"

namespace storemessage {
namespace {

using H = JournalServiceHelper;

struct TableInfo {
  const char* name;
  const char* bodyRoot;
};
constexpr TableInfo kTables[kTableCount] = {
    {H::DAS_CALLLOGMISSEDCALLS, H::MISSEDCALL},
    {H::DAS_CALLLOGDIALLEDCALLS, H::DIALLEDCALL},
    {H::DAS_CALLLOGRECEIVEDCALLS, H::RECEIVEDCALL},
    {H::DAS_CALLLOGFORWARDEDCALLS, H::FORWARDEDCALL},
    {H::SETTINGS_SCHEMA, nullptr},
};
constexpr const char* kReasons[] = {H::READREQUEST, H::WRITEREQUEST, H::UPDATEREQUEST, H::DELETEREQUEST};
constexpr int kReasonCount = sizeof kReasons / sizeof kReasons[0];

bool named(const pugi::xml_node& node, const char* name) { return std::strcmp(node.name(), name) == 0; }

// Text of child `name`, or null when there is no such child.
const char* fieldText(const pugi::xml_node& parent, const char* name) {
  const pugi::xml_node field = parent.child(name);
  return field ? field.child_value() : nullptr;
}

// A unique id as stored: a positive decimal row id. `id` is set only when `text` is one: a text
// that only starts like one ("1false") names no row.
bool parseRowId(const char* text, int64_t& id) {
  if (!text || *text == '\0') return false;
  const char* end = text + std::strlen(text);
  int64_t read = 0;
  const auto result = std::from_chars(text, end, read);
  if (result.ec != std::errc() || result.ptr != end || read <= 0) return false;
  id = read;
  return true;
}

// Whether the journal reads `root` as an item of its type: every field that must be a number is
// one, every enumeration in range. A body it could not read would come back from every read as a
// damaged row, so a store refuses to keep it.
template <class Root>
bool isReadableItem(const Root& root, const char* name) {
  const auto reads = [&root](auto item) { return journalxml::readItem(root, item); };
  if (std::strcmp(name, H::MISSEDCALL) == 0) return reads(MissedCallItem());
  if (std::strcmp(name, H::DIALLEDCALL) == 0) return reads(DialledCallItem());
  if (std::strcmp(name, H::RECEIVEDCALL) == 0) return reads(ReceivedCallItem());
  if (std::strcmp(name, H::FORWARDEDCALL) == 0) return reads(ForwardedCallItem());
  return false;
}

int64_t occurrencesIn(const pugi::xml_node& root) {
  int64_t count = 0;
  for (pugi::xml_node info = root.child(H::CALLINFOS).child(H::CALLINFO); info; info = info.next_sibling(H::CALLINFO))
    ++count;
  return count;
}

// The list order (0 when there is none or it is no number) and the viewed flag; null for a field
// the body leaves out.
void readOrderAndViewed(const char* listOrder, const char* viewed, ItemFields& fields) {
  if (listOrder) {
    const char* end = listOrder + std::strlen(listOrder);
    const auto parsed = std::from_chars(listOrder, end, fields.listOrder);
    if (parsed.ec != std::errc() || parsed.ptr != end) fields.listOrder = 0;
  }
  fields.viewed = viewed && (std::strcmp(viewed, H::TRUETEXT) == 0 || std::strcmp(viewed, "1") == 0);
}

// Fields left out of a body are at their default: an empty text, a flag that is false.
void readFields(const pugi::xml_node& root, ItemFields& fields) {
  const auto text = [&root](const char* name) {
    const char* value = fieldText(root, name);
    return value ? value : "";
  };
  fields.surname = text(H::SURNAME);
  fields.firstname = text(H::FIRSTNAME);
  const pugi::xml_node newest = root.child(H::CALLINFOS).child(H::CALLINFO);
  fields.hasOccurrence = !newest.empty();
  if (newest) {
    fields.number = newest.attribute(H::NUMBER).value();  // occurrences keep their fields in attributes
    fields.timeDate = newest.attribute(H::TIMEDATE).value();
  }
  fields.occurrences = occurrencesIn(root);
  readOrderAndViewed(fieldText(root, H::LISTORDER), fieldText(root, H::VIEWED), fields);
}

// The same fields from a scanned body.
void readScannedFields(const journalxml::ItemScan& scan, ItemFields& fields) {
  const auto text = [&scan](const char* name) {
    const char* value = scan.fieldText(name);
    return value ? value : "";
  };
  fields.surname = text(H::SURNAME);
  fields.firstname = text(H::FIRSTNAME);
  const journalxml::ItemScan::Field* infos = scan.firstInfos();
  fields.occurrences = infos ? infos->count : 0;
  fields.hasOccurrence = fields.occurrences > 0;
  if (fields.hasOccurrence) {
    const journalxml::ItemScan::Info& newest = scan.infos()[infos->first];
    const char* number = scan.attribute(newest, H::NUMBER);
    const char* timeDate = scan.attribute(newest, H::TIMEDATE);
    fields.number = number ? number : "";
    fields.timeDate = timeDate ? timeDate : "";
  }
  readOrderAndViewed(scan.fieldText(H::LISTORDER), scan.fieldText(H::VIEWED), fields);
}

// The frame: root, table, reason, and that only elements follow the reason (a read: none).
bool readFrame(const pugi::xml_node& root, StoreRequest& request, pugi::xml_node& reason, std::string& error) {
  if (!named(root, H::STOREREQUEST)) {
    error = std::string("root element <") + root.name() + "> is not a store request";
    return false;
  }
  const char* table = root.attribute(H::TABLE).value();
  int t = 0;
  while (t < kTableCount && std::strcmp(kTables[t].name, table) != 0) ++t;
  if (t == kTableCount) {
    error = std::string("unknown table '") + table + "'";
    return false;
  }
  request.table = static_cast<Table>(t);

  reason = root.first_child();
  if (!reason || reason.type() != pugi::node_element || !named(reason, H::REASONFORMESSAGE)) {
    error = "the request does not start with a reason";
    return false;
  }
  int r = 0;
  while (r < kReasonCount && std::strcmp(kReasons[r], reason.child_value()) != 0) ++r;
  if (r == kReasonCount) {
    error = std::string("unknown reason '") + reason.child_value() + "'";
    return false;
  }
  request.reason = static_cast<Reason>(r);

  bool hasItems = false;
  for (pugi::xml_node item = reason.next_sibling(); item; item = item.next_sibling()) {
    if (item.type() != pugi::node_element) {
      error = "text between the elements of the request";
      return false;
    }
    hasItems = true;
  }
  if (request.reason == kRead && hasItems) {
    error = "a read takes no entries";
    return false;
  }
  return true;
}

// The item body an entry holds: its text (or CDATA), never markup.
bool entryBody(const pugi::xml_node& entry, const char*& body, std::string& error) {
  if (!named(entry, H::ENTRY)) {
    error = std::string("unexpected element <") + entry.name() + ">";
    return false;
  }
  const pugi::xml_node content = entry.first_child();
  if (content &&
      ((content.type() != pugi::node_pcdata && content.type() != pugi::node_cdata) || content.next_sibling())) {
    error = "an entry holds markup instead of an escaped item body";
    return false;
  }
  body = content ? content.value() : "";
  return true;
}

// A body in the journal's own shape, read from a scan without a document: false, with `entry`
// to be filled anew, when the scan does not know the body or finds a fault, which the document
// then names.
bool readScannedEntry(const char* body, const StoreRequest& request, Entry& entry) {
  thread_local journalxml::ItemScan scan;
  // A raw carriage return makes the body written anew from a document.
  if (std::strchr(body, '\r') || !scan.scan(body, std::strlen(body))) return false;
  if (std::strcmp(scan.rootName(), kTables[request.table].bodyRoot) != 0) return false;
  const bool writes = request.reason != kDelete;
  if (writes && !isReadableItem(scan, scan.rootName())) return false;
  const char* uniqueId = scan.fieldText(H::UNIQUEID);
  entry.badUniqueId = uniqueId && *uniqueId && !parseRowId(uniqueId, entry.uniqueId);
  const char* entryId = scan.fieldText(H::ENTRYID);
  entry.item.entryId = entryId ? entryId : "";
  if (writes) {
    readScannedFields(scan, entry.item);
    entry.body = body;
  }
  return true;
}

// An ENTRY element holding one item body of the table's type as text; one to be written must be
// an item the journal reads back.
bool readEntry(const pugi::xml_node& element, const StoreRequest& request, Entry& entry, std::string& error) {
  const char* body = nullptr;
  if (!entryBody(element, body, error)) return false;
  if (readScannedEntry(body, request, entry)) return true;
  entry = Entry();
  pugi::xml_document doc;
  if (!journalxml::parse(doc, body, std::strlen(body))) {
    error = "an entry's item body is not well-formed";
    return false;
  }
  const pugi::xml_node root = doc.document_element();
  const char* wanted = kTables[request.table].bodyRoot;
  if (!named(root, wanted)) {
    error = std::string("an entry's item body is a <") + root.name() + ">, not a <" + wanted + ">";
    return false;
  }
  const bool writes = request.reason != kDelete;
  if (writes && !isReadableItem(root, root.name())) {
    error = std::string("an entry's item body is not a readable <") + root.name() + "> (a field out of its range)";
    return false;
  }
  const char* uniqueId = fieldText(root, H::UNIQUEID);
  entry.badUniqueId = uniqueId && *uniqueId && !parseRowId(uniqueId, entry.uniqueId);
  const char* entryId = fieldText(root, H::ENTRYID);
  entry.item.entryId = entryId ? entryId : "";
  if (writes) {
    readFields(root, entry.item);
    // Reads hand bodies out as they are kept; a raw carriage return, which a reader would fold
    // into a line feed, is kept as a reference instead.
    entry.body = std::strchr(body, '\r') ? journalxml::print(doc) : std::string(body);
  }
  return true;
}

bool readSetting(const pugi::xml_node& element, const StoreRequest& request, Setting& setting, std::string& error) {
  if (!isSetting(element.name())) {
    error = std::string("unknown setting <") + element.name() + ">";
    return false;
  }
  if (element.find_child([](const pugi::xml_node& child) { return child.type() == pugi::node_element; })) {
    error = std::string("setting <") + element.name() + "> holds markup";
    return false;
  }
  setting.name = element.name();
  if (request.reason != kDelete) setting.value = element.child_value();
  return true;
}

// The entries or settings after the reason, in order; a fault is named after the table and reason.
bool readItems(const pugi::xml_node& reason, StoreRequest& request, std::string& error) {
  size_t count = 0;
  for (pugi::xml_node item = reason.next_sibling(); item; item = item.next_sibling()) ++count;
  if (request.table == kSettings) {
    request.settings.resize(count);
  } else {
    request.entries.resize(count);
  }
  size_t i = 0;
  for (pugi::xml_node item = reason.next_sibling(); item; item = item.next_sibling(), ++i) {
    const bool ok = request.table == kSettings ? readSetting(item, request, request.settings[i], error)
                                               : readEntry(item, request, request.entries[i], error);
    if (!ok) {
      error = describeRequest(request) + error;
      return false;
    }
  }
  return true;
}

}  // namespace

const char* tableName(Table table) { return kTables[table].name; }

const char* bodyRoot(Table table) { return kTables[table].bodyRoot; }

const char* reasonName(Reason reason) { return kReasons[reason]; }

bool isSetting(std::string_view name) {
  return name == H::CALL_LOG_ENABLED || name == H::MISSED_LOGGING || name == H::DELETE_MISSED_WHEN_CALLED;
}

bool parseStoreRequest(const std::string& text, StoreRequest& request, std::string& error) {
  request = StoreRequest();
  pugi::xml_document doc;
  if (!journalxml::parse(doc, text)) {
    error = "the request is not well-formed";
    return false;
  }
  pugi::xml_node reason;
  return readFrame(doc.document_element(), request, reason, error) && readItems(reason, request, error);
}

std::string describeRequest(const StoreRequest& request) {
  return std::string("table ") + tableName(request.table) + ", " + reasonName(request.reason) + ": ";
}

bool countOccurrences(const char* body, size_t size, int64_t& count) {
  pugi::xml_document doc;
  if (!journalxml::parse(doc, body, size)) return false;
  count = occurrencesIn(doc.document_element());
  return true;
}

}  // namespace storemessage
