// JournalServiceHelper: fields, store message frame, value look-up and the pugixml plumbing
// shared by the other JournalServiceHelper sources.
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>

#include "framework/JournalServiceHelper.h"
#include "framework/JournalServiceHelperXml.h"
#include "framework/Utf8.h"

namespace journalxml {
namespace {

// Collects pugixml output into a string.
class StringWriter : public pugi::xml_writer {
 public:
  void write(const void* data, size_t size) override { out.append(static_cast<const char*>(data), size); }
  std::string out;
};

// No end-of-line folding, so a carriage return in a value stays one; blank-only text is kept
// where it is an element's whole content.
constexpr unsigned kParseFlags = (pugi::parse_default & ~pugi::parse_eol) | pugi::parse_ws_pcdata_single;
constexpr unsigned kPrintFlags = pugi::format_raw | pugi::format_no_declaration | pugi::format_no_empty_element_tags;

bool parseNumber(const char* text, long& value) {
  if (*text == '\0') return false;
  // Plain digits, as the journal writes them, without the locale-aware strtol.
  long number = 0;
  const char* end = text + std::strlen(text);
  const auto parsed = std::from_chars(text, end, number);
  if (parsed.ec == std::errc() && parsed.ptr == end) {
    if (number < -2147483648L || number > 2147483647L) return false;
    value = number;
    return true;
  }
  errno = 0;
  char* rest = nullptr;
  number = std::strtol(text, &rest, 10);
  if (errno != 0 || *rest != '\0' || number < -2147483648L || number > 2147483647L) return false;
  value = number;
  return true;
}

}  // namespace

bool parse(pugi::xml_document& doc, const std::string& text, bool keepDeclaration) {
  const unsigned flags = keepDeclaration ? (kParseFlags | pugi::parse_declaration) : kParseFlags;
  const pugi::xml_parse_result result = doc.load_buffer(text.data(), text.size(), flags, pugi::encoding_utf8);
  return result && doc.document_element();
}

bool parse(pugi::xml_document& doc, const char* text, size_t size) {
  const pugi::xml_parse_result result = doc.load_buffer(text, size, kParseFlags, pugi::encoding_utf8);
  return result && doc.document_element();
}

std::string print(const pugi::xml_node& node) {
  StringWriter writer;
  node.print(writer, "", kPrintFlags, pugi::encoding_utf8);
  // pugixml writes carriage returns as they are, and a conforming reader would fold them into
  // line feeds; as character references they survive any reader. Raw output has no carriage
  // return outside values.
  std::string out;
  out.reserve(writer.out.size());
  for (const char c : writer.out) {
    if (c == '\r') {
      out += "&#13;";
    } else {
      out += c;
    }
  }
  return out;
}

pugi::xml_node makeRoot(pugi::xml_document& doc, const char* rootName) { return doc.append_child(rootName); }

std::string wrap(const char* name, const std::string& innerXml) {
  return "<" + std::string(name) + ">" + innerXml + "</" + name + ">";
}

void addField(pugi::xml_node parent, const char* name, const std::string& value) {
  pugi::xml_node field = parent.append_child(name);
  if (!value.empty()) field.append_child(pugi::node_pcdata).set_value(value.c_str());
}

void addField(pugi::xml_node parent, const char* name, long value) { addField(parent, name, std::to_string(value)); }

void addField(pugi::xml_node parent, const char* name, bool value) {
  addField(parent, name, std::string(value ? JournalServiceHelper::TRUETEXT : JournalServiceHelper::FALSETEXT));
}

bool readField(const pugi::xml_node& parent, const char* name, std::string& value) {
  const pugi::xml_node field = parent.child(name);
  if (field) value = field.text().get();
  return true;
}

bool readField(const pugi::xml_node& parent, const char* name, long& value) {
  const pugi::xml_node field = parent.child(name);
  return !field || readValue(field.text().get(), value);
}

bool readField(const pugi::xml_node& parent, const char* name, bool& value) {
  const pugi::xml_node field = parent.child(name);
  return !field || readValue(field.text().get(), value);
}

bool readValue(const char* text, long& value) { return parseNumber(text, value); }

bool readValue(const char* text, bool& value) {
  if (std::strcmp(text, JournalServiceHelper::TRUETEXT) == 0 || std::strcmp(text, "1") == 0) {
    value = true;
  } else if (std::strcmp(text, JournalServiceHelper::FALSETEXT) == 0 || std::strcmp(text, "0") == 0) {
    value = false;
  } else {
    return false;
  }
  return true;
}

}  // namespace journalxml

namespace {

// First element named `tag` in document order, at any depth.
pugi::xml_node findElement(const pugi::xml_document& doc, const char* tag) {
  const std::string wanted = tag ? tag : "";
  return doc.find_node(
      [&wanted](const pugi::xml_node& node) { return node.type() == pugi::node_element && wanted == node.name(); });
}

// Removes `node` with everything below it. pugixml frees a removed subtree by recursing per
// level; taking the leaves off one at a time keeps a deeply nested request from exhausting the
// stack.
void removeSubtree(pugi::xml_node node) {
  pugi::xml_node current = node;
  for (;;) {
    while (current.first_child()) current = current.first_child();
    if (current == node) break;
    pugi::xml_node parent = current.parent();
    parent.remove_child(current);
    current = parent;
  }
  node.parent().remove_child(node);
}

// An element's text as it may travel on: well-formed UTF-8.
std::string textOf(const pugi::xml_node& node) { return fw::utf8::sanitize(node.text().get()); }

std::string readMessage(const char* table) {
  std::string message =
      JournalServiceHelper::createXMLField(JournalServiceHelper::REASONFORMESSAGE, JournalServiceHelper::READREQUEST);
  JournalServiceHelper::addXMLHeaderFooter(message, table);
  return message;
}

}  // namespace

std::string JournalServiceHelper::createXMLField(const char* name, const std::string& value) {
  std::string field;
  field.reserve(value.size() + 2 * std::strlen(name) + 5);
  field += '<';
  field += name;
  field += '>';
  journalxml::appendEscaped(field, value);
  field += "</";
  field += name;
  field += '>';
  return field;
}

std::string JournalServiceHelper::createXMLField(const char* name, const char* value) {
  return createXMLField(name, std::string(value ? value : ""));
}

void JournalServiceHelper::addXMLHeaderFooter(std::string& message, const std::string& table) {
  static const std::string kOpen =
      std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?><") + STOREREQUEST + " " + TABLE + "=\"";
  static const std::string kClose = std::string("</") + STOREREQUEST + ">";
  std::string framed;
  framed.reserve(kOpen.size() + table.size() + message.size() + kClose.size() + 8);
  framed += kOpen;
  journalxml::appendEscapedAttribute(framed, table.data(), table.size());
  framed += "\">";
  framed += message;
  framed += kClose;
  message = std::move(framed);
}

bool JournalServiceHelper::getXMLValue(const std::string& xml, const char* tag, std::string& value) {
  pugi::xml_document doc;
  if (!journalxml::parse(doc, xml)) return false;
  const pugi::xml_node node = findElement(doc, tag);
  if (!node) return false;
  value = textOf(node);
  return true;
}

bool JournalServiceHelper::getAndRemoveXMLValue(std::string& xml, const char* tag, std::string& value) {
  pugi::xml_document doc;
  if (!journalxml::parse(doc, xml, true)) return false;
  pugi::xml_node node = findElement(doc, tag);
  if (!node) return false;
  value = textOf(node);
  removeSubtree(node);
  xml = journalxml::print(doc);
  return true;
}

bool JournalServiceHelper::getXMLValues(const std::string& xml, const char* tag, std::vector<std::string>& values) {
  pugi::xml_document doc;
  if (!journalxml::parse(doc, xml)) return false;
  const std::string wanted = tag ? tag : "";
  doc.find_node([&](const pugi::xml_node& node) {
    if (node.type() == pugi::node_element && wanted == node.name()) values.push_back(textOf(node));
    return false;  // on to the next
  });
  return true;
}

bool JournalServiceHelper::parseLastUniqueId(const std::string& reply, std::string& id) {
  id.clear();
  // A store's answer to a write, "<storeReply ...>...<lastUniqueId>digits</lastUniqueId></storeReply>",
  // is read without building a document: every change waits for it.
  static const std::string kOpen = std::string("<") + LASTUNIQUEID + ">";
  static const std::string kClose = std::string("</") + LASTUNIQUEID + ">";
  static const std::string kReplyEnd = std::string("</") + STOREREPLY + ">";
  const size_t open = reply.find(kOpen);
  const size_t close = open == std::string::npos ? open : reply.find(kClose, open);
  const bool endsAsReply = reply.size() >= kReplyEnd.size() &&
                           reply.compare(reply.size() - kReplyEnd.size(), kReplyEnd.size(), kReplyEnd) == 0;
  if (close != std::string::npos && endsAsReply && reply.find(kOpen, close) == std::string::npos) {
    const size_t begin = open + kOpen.size();
    if (close > begin &&
        std::all_of(reply.begin() + begin, reply.begin() + close, [](char c) { return c >= '0' && c <= '9'; })) {
      id.assign(reply, begin, close - begin);
      return true;
    }
  }
  return getXMLValue(reply, LASTUNIQUEID, id) && !id.empty();
}

std::string JournalServiceHelper::readMissedCallList() { return readMessage(DAS_CALLLOGMISSEDCALLS); }
std::string JournalServiceHelper::readDialledCallList() { return readMessage(DAS_CALLLOGDIALLEDCALLS); }
std::string JournalServiceHelper::readReceivedCallList() { return readMessage(DAS_CALLLOGRECEIVEDCALLS); }
std::string JournalServiceHelper::readForwardedCallList() { return readMessage(DAS_CALLLOGFORWARDEDCALLS); }
