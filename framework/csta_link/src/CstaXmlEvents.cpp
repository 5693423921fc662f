// CSTA XML event reading: one event document of the switch -> the framework's event object.
// Elements are matched by local name, so that any ECMA-323 edition (or none) reads the same;
// elements this reader does not know, vendor data among them, are passed over. This file reads
// the events the journal acts on; CstaXmlOtherEvents.cpp the rest of the handler list.
#include <strings.h>
#include <cstring>
#include <memory>
#include <pugixml.hpp>
#include <string>

#include "CstaXmlRead.h"

namespace csta_xml {
namespace {

using namespace nodes;
using namespace read;

// True for a document element in no namespace or in an ECMA-323 edition 2 to 6 namespace.
bool ecmaNamespace(const pugi::xml_node& root) {
  const char* name = root.name();
  const char* colon = std::strrchr(name, ':');
  const std::string attribute = colon ? "xmlns:" + std::string(name, colon - name) : std::string("xmlns");
  const std::string ns = root.attribute(attribute.c_str()).value();
  if (ns.empty()) return true;
  for (const char* base : {"http://www.ecma.ch/standards/ecma-323/csta/ed",
                           "http://www.ecma-international.org/standards/ecma-323/csta/ed"}) {
    const std::size_t length = std::strlen(base);
    if (ns.size() == length + 1 && ns.compare(0, length, base) == 0 && ns[length] >= '2' && ns[length] <= '6')
      return true;
  }
  return false;
}

template <class Event>
void setParties(Event& target, const pugi::xml_node& event) {
  target.setCallingDevice(device(child(event, "callingDevice")));
  target.setCalledDevice(device(child(event, "calledDevice")));
}

// ---- call-log entry in a private event ----

// A value given by name or by its decimal number; -1 when it is neither.
int enumValue(const pugi::xml_node& node, std::initializer_list<const char*> names) {
  const std::string value = text(node);
  int index = 0;
  for (const char* name : names) {
    if (value == name || value == std::to_string(index)) return index;
    ++index;
  }
  return -1;
}

bool callLogEntry(const pugi::xml_node& node, CallLogEntryEvent& entry) {
  const int action = enumValue(child(node, "action"), {"add", "delete"});
  const int target = enumValue(child(node, "logTarget"), {"received", "missed", "missedOther", "unused", "dialled",
                                                          "dialledDiverted", "dialledOther"});
  pugi::xml_node formatNode = child(node, "timeFormat");
  const int format = formatNode ? enumValue(formatNode, {"local", "utc"}) : 0;
  if (action < 0 || target < 0 || format < 0) return false;
  entry.action = static_cast<CallLogEntryEvent::_Action>(action);
  entry.logTarget = static_cast<CallLogEntryEvent::_LogTarget>(target);
  entry.timeFormat = static_cast<CallLogEntryEvent::_TFormat>(format);
  entry.subscriberNumber = partyText(text(child(node, "subscriberNumber")), node);
  static const char* const kFields[CallLogEntryEvent::kFieldCount] = {
      "dateTime", "name", "deflectNumber", "deflectName", "connectedNumber", "connectedName"};
  for (int i = 0; i < CallLogEntryEvent::kFieldCount; ++i) {
    pugi::xml_node field = child(node, kFields[i]);
    CallLogEntryEvent::Field& out = entry.fields[i];
    out.text = field ? partyText(field.child_value(), field) : "";
    pugi::xml_attribute presentation = field.attribute("presentation");
    const std::string value = presentation.value();
    if (value == "shown" || value == "1") {
      out.presentation = CallLogEntryEvent::PV_SHOWN;
    } else if (value == "restricted" || value == "2") {
      out.presentation = CallLogEntryEvent::PV_RESTRICTED;
    } else if (presentation) {
      out.presentation = CallLogEntryEvent::PV_NONE;
    } else {
      out.presentation = out.text.empty() ? CallLogEntryEvent::PV_NONE : CallLogEntryEvent::PV_SHOWN;
    }
  }
  return true;
}

// ---- one reader per event ----

std::unique_ptr<CSTAEvent> readOriginated(const pugi::xml_node& e) {
  auto event = make<CSTAOriginatedEvent>(e);
  event->setConnection(connection(e, "originatedConnection", "callingDevice"));
  setParties(*event, e);
  event->setLocalConnectionInfo(localState(e));
  event->setCause(cause(e));
  return event;
}

std::unique_ptr<CSTAEvent> readOffered(const pugi::xml_node& e) {
  auto event = make<CSTAOfferedEvent>(e);
  event->setConnection(connection(e, "offeredConnection", "offeredDevice"));
  setParties(*event, e);
  event->setLastRedirectionDevice(redirectionDevice(child(e, "lastRedirectionDevice")));
  event->setCause(cause(e));
  return event;
}

std::unique_ptr<CSTAEvent> readDelivered(const pugi::xml_node& e) {
  auto event = make<CSTADeliveredEvent>(e);
  event->setConnection(connection(e, "connection", "alertingDevice"));
  event->setAlertingDevice(device(child(e, "alertingDevice")));
  setParties(*event, e);
  event->setLastRedirectionDevice(redirectionDevice(child(e, "lastRedirectionDevice")));
  event->setLocalConnectionInfo(localState(e));
  event->setCause(cause(e));
  return event;
}

std::unique_ptr<CSTAEvent> readQueued(const pugi::xml_node& e) {
  auto event = make<CSTAQueuedEvent>(e);
  event->setConnection(connection(e, "queuedConnection", nullptr));
  event->setQueueDevice(device(child(e, "queue")));
  setParties(*event, e);
  event->setLastRedirectionDevice(redirectionDevice(child(e, "lastRedirectionDevice")));
  event->setCause(cause(e));
  return event;
}

std::unique_ptr<CSTAEvent> readEstablished(const pugi::xml_node& e) {
  auto event = make<CSTAEstablishedEvent>(e);
  event->setConnection(connection(e, "establishedConnection", "answeringDevice"));
  event->setAnsweringDevice(device(child(e, "answeringDevice")));
  setParties(*event, e);
  event->setLastRedirectionDevice(redirectionDevice(child(e, "lastRedirectionDevice")));
  event->setLocalConnectionInfo(localState(e));
  event->setCause(cause(e));
  return event;
}

std::unique_ptr<CSTAEvent> readDiverted(const pugi::xml_node& e) {
  auto event = make<CSTADivertedEvent>(e);
  event->setConnection(connection(e, "connection", "divertingDevice"));
  event->setNewDestinationDevice(device(child(e, "newDestination")));
  setParties(*event, e);
  event->setLastRedirectionDevice(redirectionDevice(child(e, "lastRedirectionDevice")));
  event->setLocalConnectionInfo(localState(e));
  event->setCause(cause(e));
  return event;
}

std::unique_ptr<CSTAEvent> readFailed(const pugi::xml_node& e) {
  auto event = make<CSTAFailedEvent>(e);
  event->setConnection(connection(e, "failedConnection", "failingDevice"));
  setParties(*event, e);
  event->setLastRedirectionDevice(redirectionDevice(child(e, "lastRedirectionDevice")));
  event->setLocalConnectionInfo(localState(e));
  event->setCause(cause(e));
  return event;
}

std::unique_ptr<CSTAEvent> readConnectionCleared(const pugi::xml_node& e) {
  auto event = make<CSTAConnectionClearedEvent>(e);
  event->setConnection(connection(e, "droppedConnection", "releasingDevice"));
  event->setLocalConnectionInfo(localState(e));
  event->setCause(cause(e));
  return event;
}

std::unique_ptr<CSTAEvent> readTransferred(const pugi::xml_node& e) {
  auto event = make<CSTATransferredEvent>(e);
  event->setConnection(connection(e, "primaryOldCall", "transferringDevice"));
  event->setSecondaryOldCall(connection(child(e, "secondaryOldCall")));
  const CSTADeviceID transferredTo = device(child(e, "transferredToDevice"));
  event->setTransferredToDevice(transferredTo);
  event->setRemotePartyName(transferredTo.name);
  event->setLocalConnectionInfo(localState(e));
  event->setCause(cause(e));
  return event;
}

std::unique_ptr<CSTAEvent> readConferenced(const pugi::xml_node& e) {
  auto event = make<CSTAConferencedEvent>(e);
  event->setPrimaryOldCall(connection(child(e, "primaryOldCall")));
  event->setSecondaryOldCall(connection(child(e, "secondaryOldCall")));
  if (pugi::xml_node list = child(e, "conferenceConnections")) {
    for (pugi::xml_node item = list.first_child(); item; item = item.next_sibling()) {
      if (item.type() != pugi::node_element) continue;
      pugi::xml_node newConnection = child(item, "newConnection");
      pugi::xml_node oldConnection = child(item, "oldConnection");
      if (!newConnection && !oldConnection) continue;
      event->addConferenceConnection({connection(newConnection), connection(oldConnection)});
    }
  }
  event->setLocalConnectionInfo(localState(e));
  event->setCause(cause(e));
  return event;
}

std::unique_ptr<CSTAEvent> readCallInformation(const pugi::xml_node& e) {
  auto event = make<CSTACallInformationEvent>(e);
  event->setConnection(connection(e, "connection", "device"));
  setParties(*event, e);
  return event;
}

std::unique_ptr<CSTAEvent> readHookswitch(const pugi::xml_node& e) {
  auto event = make<CSTAHookswitchEvent>(e);
  event->setDevice(device(child(e, "device")));
  event->setOn(flag(child(e, "hookswitchOnHook")));
  return event;
}

std::unique_ptr<CSTAEvent> readCallBack(const pugi::xml_node& e) {
  auto event = make<CSTACallBackEvent>(e);
  event->setSubjectDeviceID(device(child(e, "targetDevice")));
  event->setDeviceID(device(child(e, "originatingDevice")).number);
  event->setCallBackState(flag(child(e, "callBackSetCanceled")) ? CSTACallBackEvent::CB_STATE_CANCELLED
                                                                : CSTACallBackEvent::CB_STATE_SET);
  return event;
}

std::unique_ptr<CSTAEvent> readPrivate(const pugi::xml_node& e) {
  auto event = make<CSTAPrivateEvent>(e);
  pugi::xml_node data = privateData(e);
  if (event->getPrivateData().empty()) event->setPrivateData(innerXml(data));
  if (pugi::xml_node entryNode = descendant(data, "callLogEntry")) {
    CallLogEntryEvent entry;
    if (callLogEntry(entryNode, entry)) {
      event->setEventType(CSTAPrivateEvent::kPrivateEventCallLogEntry);
      event->setCallLogEntry(entry);
    }
  }
  return event;
}

std::unique_ptr<CSTAEvent> readSystemStatus(const pugi::xml_node& e) {
  namespace texts = communicationsServiceTexts;
  static const char* const kStates[] = {
      texts::systemState_initializing,     texts::systemState_enabled,         texts::systemState_normal,
      texts::systemState_messagesLost,     texts::systemState_disabled,        texts::systemState_partiallyDisabled,
      texts::systemState_overloadImminent, texts::systemState_overloadReached, texts::systemState_overloadRelieved};
  auto event = make<CSTASystemStatusEvent>(e);
  std::string status = text(child(e, "systemStatus"));
  for (const char* state : kStates)
    if (strcasecmp(status.c_str(), state) == 0) status = state;
  event->setSystemStatus(status);
  return event;
}

ReaderTable callEventReaders() {
  return {
      {"OriginatedEvent", readOriginated},   {"OfferedEvent", readOffered},
      {"DeliveredEvent", readDelivered},     {"QueuedEvent", readQueued},
      {"EstablishedEvent", readEstablished}, {"DivertedEvent", readDiverted},
      {"FailedEvent", readFailed},           {"ConnectionClearedEvent", readConnectionCleared},
      {"TransferedEvent", readTransferred},  {"TransferredEvent", readTransferred},
      {"ConferencedEvent", readConferenced}, {"CallInformationEvent", readCallInformation},
      {"HookswitchEvent", readHookswitch},   {"CallBackEvent", readCallBack},
      {"PrivateEvent", readPrivate},         {"SystemStatus", readSystemStatus},
  };
}

const ReaderTable& readers() {
  static const ReaderTable table = [] {
    ReaderTable all = callEventReaders();
    addOtherEventReaders(all);
    return all;
  }();
  return table;
}

}  // namespace

CstaParseResult parseCstaEvent(const std::string& xml) {
  CstaParseResult result;
  pugi::xml_document document;
  const pugi::xml_parse_result parsed = document.load_buffer(xml.data(), xml.size());
  if (!parsed) {
    result.kind = CstaParseResult::Malformed;
    result.error = std::string(parsed.description()) + " at offset " + std::to_string(parsed.offset);
    return result;
  }
  pugi::xml_node root = document.document_element();
  if (!root) {
    result.kind = CstaParseResult::Malformed;
    result.error = "no document element";
    return result;
  }
  result.elementName = localName(root);
  result.monitorCrossRefId = text(child(root, "monitorCrossRefID"));
  const auto& table = readers();
  const auto reader = table.find(result.elementName);
  if (reader == table.end() || !ecmaNamespace(root)) return result;
  result.event = reader->second(root);
  result.kind = CstaParseResult::Event;
  return result;
}

std::string systemStatusResponseXml() {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
         "<SystemStatusResponse xmlns=\"http://www.ecma-international.org/standards/ecma-323/csta/ed3\"/>";
}

}  // namespace csta_xml
