// The promises of a parsed CSTA event, checked by the event and frame targets.
#pragma once

#include <string>

#include "FuzzSupport.h"
#include "csta_link/CstaXml.h"
#include "framework/CstaEvents.h"

namespace fuzz {

inline void checkParty(const std::string& number, const std::string& name) {
  FUZZ_CHECK(isCleanText(number) && number.size() <= csta_xml::kMaxPartyTextBytes, number);
  FUZZ_CHECK(isCleanText(name) && name.size() <= csta_xml::kMaxPartyTextBytes, name);
}

inline void checkParty(const CSTADeviceID& device) { checkParty(device.number, device.name); }

// Reads the event's values through the parts it is made of.
inline void checkEvent(const CSTAEvent& event) {
  if (const auto* p = dynamic_cast<const CSTAPrivateDataPart*>(&event))
    FUZZ_CHECK(isCleanText(p->getPrivateData()), "private data");
  if (const auto* c = dynamic_cast<const CSTAConnectionPart*>(&event)) {
    FUZZ_CHECK(isCleanText(c->getConnection().callId), c->getConnection().callId);
    checkParty(c->getConnection().device);
  }
  std::string number, name;
  if (const auto* d = dynamic_cast<const CSTADevicePart*>(&event)) {
    d->getDevice(number, name);
    checkParty(number, name);
  }
  if (const auto* parties = dynamic_cast<const CSTACallPartiesPart*>(&event)) {
    parties->getCallingDevice(number, name);
    checkParty(number, name);
    parties->getCalledDevice(number, name);
    checkParty(number, name);
  }
  if (const auto* cause = dynamic_cast<const CSTACausePart*>(&event))
    FUZZ_CHECK(cause->getCause() >= EC_NONE && cause->getCause() <= kHighestEventCauseNumber, "cause");
  if (const auto* state = dynamic_cast<const CSTALocalConnectionPart*>(&event))
    FUZZ_CHECK(state->getLocalConnectionInfo() >= CSTA_LCS_None && state->getLocalConnectionInfo() <= CSTA_LCS_Fail,
               "local connection state");
  if (const auto* p = dynamic_cast<const CSTAPrivateEvent*>(&event)) {
    const CallLogEntryEvent& entry = p->getCallLogEntry();
    checkParty(entry.subscriberNumber, "");
    for (const auto& field : entry.fields) checkParty(field.text, "");
  }
}

inline void checkParsed(const csta_xml::CstaParseResult& parsed) {
  FUZZ_CHECK((parsed.kind == csta_xml::CstaParseResult::Event) == (parsed.event != nullptr), parsed.elementName);
  if (!parsed.event) return;
  checkEvent(*parsed.event);
  CSTAEventObserverBase handlers;  // the framework's empty handlers
  parsed.event->dispatch(handlers);
}

}  // namespace fuzz
