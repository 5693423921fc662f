// The values of CSTA event elements: texts, parties, connections, causes, states, private data.
#include <algorithm>

#include "CstaXmlRead.h"
#include "framework/Logging.h"
#include "framework/Utf8.h"

namespace csta_xml {
namespace read {
namespace {

using namespace nodes;

constexpr const char* kLogHandle = "CSTA Service";
// How much of a cut-off text a log line shows.
constexpr std::size_t kShownCut = 48;

// The local name of the document element `node` belongs to, for log lines.
std::string eventOf(const pugi::xml_node& node) {
  const pugi::xml_node root = firstElement(node.root());
  return root ? localName(root) : "CSTA document";
}

// `raw` made well-formed and cut to kMaxPartyTextBytes; `fullSize` is the size of the whole text
// when `raw` is only its start.
std::string bounded(const std::string& raw, const pugi::xml_node& where, int level, const char* what,
                    std::size_t fullSize = 0) {
  std::string text = fw::utf8::sanitize(raw);
  if (text.size() <= kMaxPartyTextBytes) return text;
  const std::size_t size = std::max(fullSize, text.size());
  std::string cut = fw::utf8::truncate(text, kMaxPartyTextBytes);
  const bool more = !fw::utf8::truncate(cut, kShownCut).empty();
  logAppUni(kLogHandle, __FILE__, level, __LINE__, "%s: %s of %zu bytes cut to %zu; cut off: \"%s\"%s",
            eventOf(where).c_str(), what, size, text.size(), cut.c_str(), more ? "..." : "");
  return text;
}

}  // namespace

std::string text(const pugi::xml_node& node) {
  return node ? fw::utf8::sanitize(trimmed(node.child_value())) : std::string();
}

std::string partyText(const std::string& raw, const pugi::xml_node& where) {
  return bounded(raw, where, fw::kLogNotable, "a party text");
}

std::string logText(const std::string& raw, const pugi::xml_node& where) {
  return bounded(raw, where, fw::kLogTrace, "private data");
}

bool flag(const pugi::xml_node& node) {
  const std::string value = text(node);
  return value == "true" || value == "1";
}

namespace {

// A device identifier's number and name as parties: well-formed and bounded.
CSTADeviceID party(const char* identifier, const pugi::xml_node& where) {
  CSTADeviceID device = parseDeviceIdentifier(identifier);
  device.number = partyText(device.number, where);
  device.name = partyText(device.name, where);
  return device;
}

}  // namespace

CSTADeviceID device(const pugi::xml_node& node) {
  if (!node) return CSTADeviceID();
  if (pugi::xml_node id = child(node, "deviceIdentifier")) return party(id.child_value(), id);
  if (child(node, "notKnown")) return CSTADeviceID{communicationsServiceTexts::noNumberProvided, std::string()};
  if (child(node, "restricted")) return CSTADeviceID();
  // Some switches leave out the deviceIdentifier level.
  return party(node.child_value(), node);
}

CSTADeviceID redirectionDevice(const pugi::xml_node& node) {
  if (!node) return CSTADeviceID();
  if (pugi::xml_node dialled = child(node, "numberDialed")) return party(dialled.child_value(), dialled);
  if (pugi::xml_node id = child(node, "deviceIdentifier")) return party(id.child_value(), id);
  return CSTADeviceID();
}

CSTAConnectionID connection(const pugi::xml_node& node) {
  CSTAConnectionID result;
  if (!node) return result;
  result.callId = text(child(node, "callID"));
  if (pugi::xml_node id = child(node, "deviceID")) result.device = party(id.child_value(), id);
  return result;
}

CSTAConnectionID connection(const pugi::xml_node& event, const char* connectionName, const char* deviceName) {
  CSTAConnectionID result = connection(child(event, connectionName));
  if (result.device.number.empty() && deviceName) result.device = device(child(event, deviceName));
  return result;
}

CSTAEventCause cause(const pugi::xml_node& event) {
  pugi::xml_node node = child(event, "cause");
  return node ? parseEventCause(node.child_value()) : EC_NONE;
}

CSTALocalConnectionState localState(const pugi::xml_node& event, const char* element) {
  pugi::xml_node node = child(event, element);
  return node ? parseLocalConnectionState(node.child_value()) : CSTA_LCS_None;
}

pugi::xml_node privateData(const pugi::xml_node& event) {
  if (pugi::xml_node extensions = child(event, "extensions"))
    if (pugi::xml_node data = child(extensions, "privateData")) return data;
  return child(event, "privateData");
}

std::string callStatus(const pugi::xml_node& event) {
  pugi::xml_node data = privateData(event);
  return data ? text(descendant(data, "callStatus")) : std::string();
}

namespace {

// Keeps what is written up to a limit and passes over the rest: a vendor's private data may be
// as large as a frame, and only its start is kept.
class BoundedWriter : public pugi::xml_writer {
 public:
  explicit BoundedWriter(std::size_t limit) : m_limit(limit) {}
  void write(const void* data, std::size_t size) override {
    if (out.size() < m_limit) out.append(static_cast<const char*>(data), std::min(size, m_limit - out.size()));
    total += size;
  }
  std::string out;
  std::size_t total = 0;

 private:
  std::size_t m_limit;
};

}  // namespace

std::string innerXml(const pugi::xml_node& node) {
  // A little more than is kept, so that a cut is seen and logged.
  BoundedWriter writer(kMaxPartyTextBytes + kShownCut + 1);
  for (pugi::xml_node c = node.first_child(); c; c = c.next_sibling())
    c.print(writer, "", pugi::format_raw | pugi::format_no_declaration);
  return bounded(writer.out, node, fw::kLogTrace, "private data", writer.total);
}

}  // namespace read
}  // namespace csta_xml
