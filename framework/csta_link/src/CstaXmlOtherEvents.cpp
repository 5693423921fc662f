// CSTA XML event reading, continued: the events of the handler list that the journal leaves to the
// framework's empty handlers. They are read all the same, so that a recording or a switch that
// sends them is followed like any other, and a module that does handle them gets their values.
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "CstaXmlRead.h"

namespace csta_xml {
namespace read {
namespace {

using namespace nodes;

// ---- call control: a connection, its local state and the cause ----

template <class Event>
std::unique_ptr<CSTAEvent> connectionEvent(const pugi::xml_node& e, const char* connectionName,
                                           const char* deviceName) {
  auto event = make<Event>(e);
  event->setConnection(connection(e, connectionName, deviceName));
  event->setLocalConnectionInfo(localState(e));
  event->setCause(cause(e));
  return event;
}

std::unique_ptr<CSTAEvent> readServiceInitiated(const pugi::xml_node& e) {
  return connectionEvent<CSTAServiceInitiatedEvent>(e, "initiatedConnection", "initiatingDevice");
}

std::unique_ptr<CSTAEvent> readBridged(const pugi::xml_node& e) {
  return connectionEvent<CSTABridgedEvent>(e, "bridgedConnection", "bridgedAppearance");
}

std::unique_ptr<CSTAEvent> readHeld(const pugi::xml_node& e) {
  return connectionEvent<CSTAHeldEvent>(e, "heldConnection", "holdingDevice");
}

std::unique_ptr<CSTAEvent> readRetrieved(const pugi::xml_node& e) {
  return connectionEvent<CSTARetrievedEvent>(e, "retrievedConnection", "retrievingDevice");
}

std::unique_ptr<CSTAEvent> readNetworkReached(const pugi::xml_node& e) {
  auto event = make<CSTANetworkReachedEvent>(e);
  event->setConnection(connection(e, "outboundConnection", "networkInterfaceUsed"));
  event->setCallingDevice(device(child(e, "callingDevice")));
  event->setCalledDevice(device(child(e, "calledDevice")));
  event->setLocalConnectionInfo(localState(e));
  event->setCause(cause(e));
  return event;
}

std::unique_ptr<CSTAEvent> readConferenceMembership(const pugi::xml_node& e) {
  auto event = make<CSTAConferenceMembershipEvent>(e);
  event->setConnection(connection(e, "connection", "device"));
  event->setCause(cause(e));
  return event;
}

// The call a request failed on: primaryCall holds the device, its connection and its state.
std::unique_ptr<CSTAEvent> readServiceCompletionFailure(const pugi::xml_node& e) {
  auto event = make<CSTAServiceCompletionFailureEvent>(e);
  const pugi::xml_node primary = child(e, "primaryCall");
  CSTAConnectionID call = connection(child(primary, "connectionID"));
  if (call.device.number.empty()) call.device = device(child(primary, "deviceID"));
  event->setConnection(call);
  event->setLocalConnectionInfo(localState(primary, "localConnectionState"));
  event->setCause(cause(e));
  return event;
}

// ---- physical device features ----

std::unique_ptr<CSTAEvent> readButtonPress(const pugi::xml_node& e) {
  auto event = make<CSTAButtonPressEvent>(e);
  event->setDevice(device(child(e, "device")));
  event->setButtonID(text(child(e, "button")));
  return event;
}

std::unique_ptr<CSTAEvent> readButtonInformation(const pugi::xml_node& e) {
  auto event = make<CSTAButtonInformationEvent>(e);
  event->setDevice(device(child(e, "device")));
  event->setButtonID(text(child(e, "button")));
  event->setButtonLabel(partyText(text(child(e, "buttonLabel")), e));
  return event;
}

std::unique_ptr<CSTAEvent> readDisplayUpdated(const pugi::xml_node& e) {
  auto event = make<CSTADisplayUpdatedEvent>(e);
  event->setDevice(device(child(e, "device")));
  event->setContentsOfDisplay(partyText(text(child(e, "contentsOfDisplay")), e));
  return event;
}

std::unique_ptr<CSTAEvent> readBusyLampField(const pugi::xml_node& e) {
  auto event = make<CSTABusyLampFieldEvent>(e);
  event->setDevice(device(child(e, "device")));
  event->setLocalConnectionInfo(localState(e));
  return event;
}

// ---- logical device features ----

template <class Event>
std::unique_ptr<CSTAEvent> onOffEvent(const pugi::xml_node& e, const char* deviceName, const char* onName) {
  auto event = make<Event>(e);
  event->setDevice(device(child(e, deviceName)));
  event->setOn(flag(child(e, onName)));
  return event;
}

std::unique_ptr<CSTAEvent> readMessageWaiting(const pugi::xml_node& e) {
  return onOffEvent<CSTAMessageWaitingEvent>(e, "targetDevice", "messageWaitingOn");
}

std::unique_ptr<CSTAEvent> readDoNotDisturb(const pugi::xml_node& e) {
  return onOffEvent<CSTADoNotDisturbEvent>(e, "device", "doNotDisturbOn");
}

std::unique_ptr<CSTAEvent> readForwarding(const pugi::xml_node& e) {
  std::unique_ptr<CSTAEvent> event = onOffEvent<CSTAForwardingEvent>(e, "device", "forwardStatus");
  auto& forwarding = static_cast<CSTAForwardingEvent&>(*event);
  forwarding.setForwardingType(text(child(e, "forwardingType")));
  forwarding.setForwardTo(partyText(text(child(e, "forwardTo")), e));
  return event;
}

template <class Event>
std::unique_ptr<CSTAEvent> agentEvent(const pugi::xml_node& e) {
  auto event = make<Event>(e);
  event->setDevice(device(child(e, "agentDevice")));
  event->setAgentID(partyText(text(child(e, "agentID")), e));
  return event;
}

// ---- maintenance, monitoring and capabilities ----

template <class Event>
std::unique_ptr<CSTAEvent> maintenanceEvent(const pugi::xml_node& e) {
  auto event = make<Event>(e);
  event->setDevice(device(child(e, "device")));
  event->setCause(cause(e));
  return event;
}

// The switch ended a monitor (the switch's MonitorStop).
std::unique_ptr<CSTAEvent> readMonitorStop(const pugi::xml_node& e) {
  auto event = make<CSTAMonitorStopEvent>(e);
  event->setMonitorCrossRefID(text(child(e, "monitorCrossRefID")));
  event->setCause(cause(e));
  return event;
}

// The devices the switch serves: each entry of deviceList names one by its deviceID.
std::unique_ptr<CSTAEvent> readSwitchingFunctionDevices(const pugi::xml_node& e) {
  auto event = make<CSTASwitchingFunctionDevicesEvent>(e);
  std::vector<std::string> devices;
  for (pugi::xml_node entry = child(e, "deviceList").first_child(); entry; entry = entry.next_sibling()) {
    if (entry.type() != pugi::node_element) continue;
    const pugi::xml_node id = std::string(localName(entry)) == "deviceID" ? entry : child(entry, "deviceID");
    if (id) devices.push_back(partyText(text(id), id));
  }
  event->setDeviceList(std::move(devices));
  return event;
}

}  // namespace

void addOtherEventReaders(ReaderTable& table) {
  table.insert({
      {"ServiceInitiatedEvent", readServiceInitiated},
      {"BridgedEvent", readBridged},
      {"HeldEvent", readHeld},
      {"RetrievedEvent", readRetrieved},
      {"NetworkReachedEvent", readNetworkReached},
      {"ConferenceMembershipEvent", readConferenceMembership},
      {"ServiceCompletionFailureEvent", readServiceCompletionFailure},
      {"ButtonPressEvent", readButtonPress},
      {"ButtonInformationEvent", readButtonInformation},
      {"DisplayUpdatedEvent", readDisplayUpdated},
      {"BusyLampFieldEvent", readBusyLampField},
      {"MessageWaitingEvent", readMessageWaiting},
      {"DoNotDisturbEvent", readDoNotDisturb},
      {"ForwardingEvent", readForwarding},
      {"AgentLoggedOnEvent", agentEvent<CSTAAgentLoggedOnEvent>},
      {"AgentLoggedOffEvent", agentEvent<CSTAAgentLoggedOffEvent>},
      {"AgentReadyEvent", agentEvent<CSTAAgentReadyEvent>},
      {"AgentNotReadyEvent", agentEvent<CSTAAgentNotReadyEvent>},
      {"AgentWorkingAfterCallEvent", agentEvent<CSTAAgentWorkingAfterCallEvent>},
      {"BackInServiceEvent", maintenanceEvent<CSTABackInServiceEvent>},
      {"OutOfServiceEvent", maintenanceEvent<CSTAOutOfServiceEvent>},
      {"MonitorStop", readMonitorStop},
      {"SwitchingFunctionDevices", readSwitchingFunctionDevices},
  });
}

}  // namespace read
}  // namespace csta_xml
