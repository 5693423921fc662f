// Pieces both stores (SQLite and in-memory) use to read a store request: element names, field
// texts, row ids, the settings they keep, and bodies kept without their XML declaration.
// Private to the framework.
#pragma once

#include <charconv>
#include <cstdint>
#include <cstring>
#include <string_view>

#include <pugixml.hpp>

#include "framework/CallItems.h"
#include "framework/JournalServiceHelper.h"
#include "framework/JournalServiceHelperXml.h"

namespace storemessage {

inline bool named(const pugi::xml_node& node, const char* name) { return std::strcmp(node.name(), name) == 0; }

// Text of child `name`, or null when there is no such child.
inline const char* fieldText(const pugi::xml_node& parent, const char* name) {
  const pugi::xml_node field = parent.child(name);
  return field ? field.child_value() : nullptr;
}

// A unique id as stored: a positive decimal row id. `id` is set only when `text` is one: a text
// that only starts like one ("1false") names no row.
inline bool parseRowId(const char* text, int64_t& id) {
  if (!text || *text == '\0') return false;
  const char* end = text + std::strlen(text);
  int64_t read = 0;
  const auto result = std::from_chars(text, end, read);
  if (result.ec != std::errc() || result.ptr != end || read <= 0) return false;
  id = read;
  return true;
}

inline bool isSetting(const char* name) {
  using H = JournalServiceHelper;
  return std::strcmp(name, H::CALL_LOG_ENABLED) == 0 || std::strcmp(name, H::MISSED_LOGGING) == 0 ||
         std::strcmp(name, H::DELETE_MISSED_WHEN_CALLED) == 0;
}

// Whether the journal reads `root` as an item of its type: every field that must be a number is
// one, every enumeration in range. A body it could not read would come back from every read as a
// damaged row, so a store refuses to keep it.
inline bool isReadableItem(const pugi::xml_node& root) {
  using H = JournalServiceHelper;
  const auto reads = [&root](auto item) { return journalxml::readItem(root, item); };
  if (named(root, H::MISSEDCALL)) return reads(MissedCallItem());
  if (named(root, H::DIALLEDCALL)) return reads(DialledCallItem());
  if (named(root, H::RECEIVEDCALL)) return reads(ReceivedCallItem());
  if (named(root, H::FORWARDEDCALL)) return reads(ForwardedCallItem());
  return false;
}

// A body as stored, without an XML declaration in front (one cannot stand inside an element).
inline std::string_view withoutDeclaration(const char* body) {
  std::string_view text(body);
  if (text.compare(0, 5, "<?xml") == 0) {
    const size_t end = text.find("?>");
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 2);
  }
  return text;
}

}  // namespace storemessage
