// Fuzz target: one CSTA event document from the switch (csta_xml::parseCstaEvent), and the value
// readers it is built on. Promises checked: every text an event gives is well-formed, party texts
// keep at most kMaxPartyTextBytes, a cause is one the enumeration holds, and the event reaches a
// handler.
#include <cstdint>
#include <string>

#include "CstaEventChecks.h"
#include "FuzzSupport.h"
#include "csta_link/CstaXml.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::silenceLogs();
  const std::string text(reinterpret_cast<const char*>(data), size);
  fuzz::checkParsed(csta_xml::parseCstaEvent(text));

  const CSTADeviceID device = csta_xml::parseDeviceIdentifier(text);
  (void)device;
  const int cause = csta_xml::parseEventCause(text);
  FUZZ_CHECK(cause >= EC_NONE && cause <= kHighestEventCauseNumber, text);
  const int state = csta_xml::parseLocalConnectionState(text);
  FUZZ_CHECK(state >= CSTA_LCS_None && state <= CSTA_LCS_Fail, text);
  return 0;
}
