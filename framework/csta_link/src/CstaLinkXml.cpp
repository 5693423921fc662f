// The XML the link writes to the switch (requests, in the edition 4 namespace) and the reading of
// the switch's answers (by local name, any edition). docs/csta.md shows every request.
#include <cstring>
#include <pugixml.hpp>
#include <sstream>
#include <utility>
#include <vector>

#include "CstaLinkInternal.h"
#include "CstaXmlNodes.h"

namespace fw {
namespace link {
namespace {

using namespace csta_xml::nodes;

constexpr const char* kNamespace = "http://www.ecma-international.org/standards/ecma-323/csta/ed4";

// A request document: declaration and document element in our namespace.
class Request {
 public:
  explicit Request(const char* name) {
    pugi::xml_node declaration = m_document.append_child(pugi::node_declaration);
    declaration.append_attribute("version") = "1.0";
    declaration.append_attribute("encoding") = "UTF-8";
    m_root = m_document.append_child(name);
    m_root.append_attribute("xmlns") = kNamespace;
  }
  pugi::xml_node root() const { return m_root; }
  std::string text() const {
    std::ostringstream out;
    m_document.save(out, "", pugi::format_raw);
    return out.str();
  }

 private:
  pugi::xml_document m_document;
  pugi::xml_node m_root;
};

pugi::xml_node addText(pugi::xml_node parent, const char* name, const std::string& value) {
  pugi::xml_node node = parent.append_child(name);
  if (!value.empty()) node.text() = value.c_str();
  return node;
}

void addFlag(pugi::xml_node parent, const char* name, bool value) { addText(parent, name, value ? "true" : "false"); }

// ---- monitor filter ----

struct FilterGroup {
  const char* name;
  std::vector<const char*> elements;
};

const std::vector<FilterGroup>& filterGroups() {
  static const std::vector<FilterGroup> groups = {
      {"callcontrol",
       {"callCleared", "conferenced", "connectionCleared", "delivered", "digitsDialed", "diverted", "established",
        "failed", "held", "networkCapabilitiesChange", "networkReached", "offered", "originated", "queued", "retrieved",
        "serviceInitiated", "transferred"}},
      {"callAssociated",
       {"callInformation", "charging", "digitsGenerated", "telephonyTonesGenerated", "serviceCompletionFailure"}},
      {"physicalDeviceFeature",
       {"buttonInformation", "buttonPress", "displayUpdated", "hookswitch", "lampMode", "messageWaiting",
        "microphoneGain", "microphoneMute", "ringerStatus", "speakerMute", "speakerVolume"}},
      {"logicalDeviceFeature",
       {"agentBusy", "agentLoggedOn", "agentLoggedOff", "agentNotReady", "agentReady", "agentWorkingAfterCall",
        "autoAnswer", "autoWorkMode", "callBack", "callBackMessage", "callerIDStatus", "doNotDisturb", "forwarding",
        "routeingMode"}},
      {"maintenance", {"backInService", "deviceCapabilityChanged", "outOfService", "partiallyInService"}},
  };
  return groups;
}

// Categories that stand for a whole group, and categories that stand for one element of a group.
// Whole groups are applied first, so that a single element set beside its group keeps its own value.
const std::vector<std::pair<const char*, const char*>>& groupCategories() {
  static const std::vector<std::pair<const char*, const char*>> table = {{"callControl", "callcontrol"},
                                                                         {"callAssociated", "callAssociated"},
                                                                         {"physicalDevice", "physicalDeviceFeature"},
                                                                         {"logicalDevice", "logicalDeviceFeature"},
                                                                         {"system", "maintenance"}};
  return table;
}

struct ElementCategory {
  const char* category;
  const char* group;
  const char* element;
};

const std::vector<ElementCategory>& elementCategories() {
  static const std::vector<ElementCategory> table = {{"held", "callcontrol", "held"},
                                                     {"retrieved", "callcontrol", "retrieved"},
                                                     {"serviceInitiated", "callcontrol", "serviceInitiated"},
                                                     {"transferred", "callcontrol", "transferred"},
                                                     {"callOffering", "callcontrol", "offered"},
                                                     {"callInformation", "callAssociated", "callInformation"},
                                                     {"doNotDisturb", "logicalDeviceFeature", "doNotDisturb"}};
  return table;
}

// Writes the filter's groups under `parent`. A true element suppresses its events, as in the
// framework's filter. systemStatus has no place in a monitor filter (system status comes with
// SystemRegister) and is not written.
void appendFilter(pugi::xml_node parent, const CSTAMonitorFilter& filter) {
  const auto& settings = filter.settings();
  std::map<std::string, bool> values;  // "group/element" -> value
  for (const auto& [category, group] : groupCategories()) {
    const auto set = settings.find(category);
    if (set == settings.end()) continue;
    for (const FilterGroup& g : filterGroups())
      if (std::strcmp(g.name, group) == 0)
        for (const char* element : g.elements) values[std::string(group) + "/" + element] = set->second;
  }
  for (const ElementCategory& e : elementCategories()) {
    const auto set = settings.find(e.category);
    if (set != settings.end()) values[std::string(e.group) + "/" + e.element] = set->second;
  }
  for (const FilterGroup& g : filterGroups()) {
    pugi::xml_node groupNode;
    for (const char* element : g.elements) {
      const auto value = values.find(std::string(g.name) + "/" + element);
      if (value == values.end()) continue;
      if (!groupNode) groupNode = parent.append_child(g.name);
      addFlag(groupNode, element, value->second);
    }
  }
  // The switch's call-log entries travel in private events: private events are suppressed only
  // when every one of the two categories that is set suppresses them.
  const auto vendor = settings.find("vendorSpecific");
  const auto callLog = settings.find("callLogEntry");
  if (vendor != settings.end() || callLog != settings.end()) {
    const bool suppress =
        (vendor == settings.end() || vendor->second) && (callLog == settings.end() || callLog->second);
    addFlag(parent, "private", suppress);
  }
}

// ---- call-log entry ----

const char* actionName(CallLogEntryEvent::_Action action) {
  return action == CallLogEntryEvent::ACTION_DELETE ? "delete" : "add";
}

const char* logTargetName(CallLogEntryEvent::_LogTarget target) {
  static const char* const kNames[] = {"received", "missed",          "missedOther", "unused",
                                       "dialled",  "dialledDiverted", "dialledOther"};
  const int index = static_cast<int>(target);
  return index >= 0 && index < 7 ? kNames[index] : "received";
}

const char* presentationName(CallLogEntryEvent::_PresentationValue value) {
  switch (value) {
    case CallLogEntryEvent::PV_SHOWN:
      return "shown";
    case CallLogEntryEvent::PV_RESTRICTED:
      return "restricted";
    default:
      return "none";
  }
}

}  // namespace

std::string monitorStartXml(const std::string& device, const CSTAMonitorFilter* filter) {
  Request request("MonitorStart");
  addText(request.root().append_child("monitorObject"), "deviceObject", device);
  if (filter) appendFilter(request.root().append_child("requestedMonitorFilter"), *filter);
  return request.text();
}

std::string monitorStopXml(const std::string& crossRefId) {
  Request request("MonitorStop");
  addText(request.root(), "monitorCrossRefID", crossRefId);
  return request.text();
}

std::string changeMonitorFilterXml(const std::string& crossRefId, const CSTAMonitorFilter& filter) {
  Request request("ChangeMonitorFilter");
  addText(request.root(), "monitorCrossRefID", crossRefId);
  appendFilter(request.root().append_child("requestedFilterList"), filter);
  return request.text();
}

std::string systemRegisterXml() {
  Request request("SystemRegister");
  addFlag(request.root().append_child("requestTypes"), "systemStatus", true);
  // Every status is reported: no element of the status filter suppresses one.
  pugi::xml_node filter = request.root().append_child("requestedStatusFilter");
  for (const char* status : {"initializing", "enabled", "normal", "messagesLost", "disabled", "partiallyDisabled",
                             "overloadImminent", "overloadReached", "overloadRelieved"})
    addFlag(filter, status, false);
  return request.text();
}

std::string escapeXml(const CallLogEntryRequest& entry) {
  Request request("Escape");
  pugi::xml_node node = request.root().append_child("privateData").append_child("private").append_child("callLogEntry");
  addText(node, "action", actionName(entry.action));
  addText(node, "logTarget", logTargetName(entry.logTarget));
  addText(node, "timeFormat", entry.timeFormat == CallLogEntryEvent::TF_UTC ? "utc" : "local");
  addText(node, "subscriberNumber", entry.subscriberNumber);
  static const char* const kFields[CallLogEntryRequest::kFieldCount] = {"dateTime", "name", "deflectNumber",
                                                                        "deflectName", "connectedNumber"};
  for (int i = 0; i < CallLogEntryRequest::kFieldCount; ++i) {
    pugi::xml_node field = addText(node, kFields[i], entry.fields[i].text);
    field.append_attribute("presentation") = presentationName(entry.fields[i].presentation);
  }
  return request.text();
}

std::string documentElementName(const std::string& xml) {
  pugi::xml_document document;
  if (!document.load_buffer(xml.data(), xml.size())) return std::string();
  pugi::xml_node root = document.document_element();
  return root ? localName(root) : std::string();
}

std::unique_ptr<CSTAResponse> parseResponse(const std::string& requestName, const std::string& xml) {
  const bool monitorStart = requestName == "MonitorStart";
  auto error = [monitorStart]() -> std::unique_ptr<CSTAResponse> {
    if (monitorStart) return std::make_unique<CSTAMonitorStartResponse>("", true);
    return std::make_unique<CSTAGenericResponse>(true);
  };
  pugi::xml_document document;
  const pugi::xml_parse_result parsed = document.load_buffer(xml.data(), xml.size());
  pugi::xml_node root = parsed ? document.document_element() : pugi::xml_node();
  if (!root) {
    CSTA_LOG(kLogError, "%s: answer is not well-formed XML (%s)", requestName.c_str(), parsed.description());
    return error();
  }
  const std::string name = localName(root);
  if (name == "CSTAErrorCode") {
    pugi::xml_node reason = firstElement(root);
    CSTA_LOG(kLogError, "%s refused by the switch: %s %s", requestName.c_str(),
             reason ? localName(reason) : "(no reason)", reason ? trimmed(reason.child_value()).c_str() : "");
    return error();
  }
  if (name != requestName + "Response") {
    CSTA_LOG(kLogError, "%s: unexpected answer %s", requestName.c_str(), name.c_str());
    return error();
  }
  if (monitorStart) {
    const std::string id = trimmed(child(root, "monitorCrossRefID").child_value());
    if (id.empty()) {
      CSTA_LOG(kLogError, "MonitorStartResponse without a monitorCrossRefID");
      return error();
    }
    return std::make_unique<CSTAMonitorStartResponse>(id);
  }
  return std::make_unique<CSTAGenericResponse>(false);
}

}  // namespace link
}  // namespace fw
