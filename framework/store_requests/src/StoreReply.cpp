// The writing of store replies, by hand in one string: no document in between.
#include "store_requests/StoreReply.h"

#include <charconv>

#include "framework/JournalServiceHelperXml.h"

namespace storemessage {
namespace {

// A body as kept, without an XML declaration in front (one cannot stand inside an element).
std::string_view withoutDeclaration(std::string_view body) {
  if (body.compare(0, 5, "<?xml") == 0) {
    const size_t end = body.find("?>");
    body.remove_prefix(end == std::string_view::npos ? body.size() : end + 2);
  }
  return body;
}

void appendNumber(std::string& reply, int64_t value) {
  char digits[24];
  reply.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
}

}  // namespace

void appendReplyStart(std::string& reply, Table table) {
  reply += "<storeReply table=\"";
  reply += tableName(table);
  reply += "\"><result>ok</result>";
}

void appendStoredEntry(std::string& reply, int64_t uniqueId, std::string_view body) {
  body = withoutDeclaration(body);
  reply += "<entry uniqueId=\"";
  appendNumber(reply, uniqueId);
  reply += "\" size=\"";
  appendNumber(reply, static_cast<int64_t>(body.size()));
  reply += "\">";
  reply.append(body);
  reply += "</entry>";
}

void appendStoredSetting(std::string& reply, std::string_view name, std::string_view value) {
  reply += '<';
  reply.append(name);
  reply += '>';
  journalxml::appendEscaped(reply, value.data(), value.size());
  reply += "</";
  reply.append(name);
  reply += '>';
}

void appendReplyEnd(std::string& reply) { reply += "</storeReply>"; }

std::string changeReply(Table table, int64_t lastUniqueId) {
  std::string reply;
  appendReplyStart(reply, table);
  if (lastUniqueId > 0) {
    reply += "<lastUniqueId>";
    appendNumber(reply, lastUniqueId);
    reply += "</lastUniqueId>";
  }
  appendReplyEnd(reply);
  return reply;
}

}  // namespace storemessage
