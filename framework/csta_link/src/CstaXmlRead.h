// The values of CSTA event elements, found by local name, and the table of event readers: shared
// by the call event readers (CstaXmlEvents.cpp) and the readers of the other events of the
// handler list (CstaXmlOtherEvents.cpp). Private to the framework.
//
// Every text taken from a document is well-formed UTF-8 (fw::utf8::sanitize); numbers and names of
// parties are cut to kMaxPartyTextBytes, each cut logged at level 4 under "CSTA Service" with the
// event's name and the start of what was cut.
#pragma once

#include <map>
#include <memory>
#include <pugixml.hpp>
#include <string>

#include "CstaXmlNodes.h"
#include "csta_link/CstaXml.h"
#include "framework/CstaEvents.h"

namespace csta_xml {
namespace read {

// The element's text, trimmed and well-formed; empty for a missing element.
std::string text(const pugi::xml_node& node);
// A party's number or name taken from `where`: well-formed, cut to kMaxPartyTextBytes.
std::string partyText(const std::string& raw, const pugi::xml_node& where);
// Raw text of the switch that is kept only for logging: well-formed, cut to kMaxPartyTextBytes
// (logged at level 5).
std::string logText(const std::string& raw, const pugi::xml_node& where);
// "true" or "1".
bool flag(const pugi::xml_node& node);

// A calling, called, alerting, ... device: its deviceIdentifier, or notKnown (a party without a
// number: the framework's "no number provided" text), or restricted (withheld: empty).
CSTADeviceID device(const pugi::xml_node& node);
// The last redirection device: a number dialled, else nothing.
CSTADeviceID redirectionDevice(const pugi::xml_node& node);
// callID and deviceID of a connection element.
CSTAConnectionID connection(const pugi::xml_node& node);
// The event's connection `connectionName`; when the switch left out its deviceID, the event's own
// device `deviceName` (if any) stands in.
CSTAConnectionID connection(const pugi::xml_node& event, const char* connectionName, const char* deviceName);
// The event's cause (EC_NONE without one) and local connection state (CSTA_LCS_None without one).
CSTAEventCause cause(const pugi::xml_node& event);
CSTALocalConnectionState localState(const pugi::xml_node& event, const char* element = "localConnectionInfo");

// The event's private data element (inside extensions, or directly in the event).
pugi::xml_node privateData(const pugi::xml_node& event);
// The event's private data text: the call status a switch marks calls with, else empty.
std::string callStatus(const pugi::xml_node& event);
// The start of the XML inside `node`, as written, bounded as logText.
std::string innerXml(const pugi::xml_node& node);

// A new event of class Event with the event's private data text set.
template <class Event>
std::unique_ptr<Event> make(const pugi::xml_node& event) {
  auto result = std::make_unique<Event>();
  result->setPrivateData(callStatus(event));
  return result;
}

// Readers of the event documents, by local name of the document element.
using Reader = std::unique_ptr<CSTAEvent> (*)(const pugi::xml_node& event);
using ReaderTable = std::map<std::string, Reader>;

// Adds the readers of the events the journal leaves to the framework's empty handlers (held,
// retrieved, device features, agents, maintenance, ...).
void addOtherEventReaders(ReaderTable& table);

}  // namespace read
}  // namespace csta_xml
