// A switch simulator's trace of calls with the parties of full lists (BenchPhone.h's
// partyNumber): the CSTA XML events the switch sends for the phone's own line, as the simulator
// (cstaswitchsim --trace) plays them. Each call is one of four kinds and files into one list.
#pragma once

#include <cstdio>
#include <fstream>
#include <string>

namespace bench {

enum class CallKind { Missed, Received, Dialled, Forwarded };

namespace trace {

constexpr const char* kOwnLine = "3100";
constexpr const char* kForwardTarget = "7000";
const std::string kNs = " xmlns=\"http://www.ecma-international.org/standards/ecma-323/csta/ed4\"";

inline std::string device(const std::string& number) {
  return "<deviceIdentifier>N&lt;" + number + "&gt;</deviceIdentifier>";
}
inline std::string connection(const std::string& callId) {
  return "<callID>" + callId + "</callID><deviceID>N&lt;" + kOwnLine + "&gt;</deviceID>";
}
// One event of the trace; the times are not read when the simulator plays without a pace.
inline std::string event(const std::string& element, const std::string& body) {
  return "<event at=\"2026-03-10T08:00:00\"><" + element + kNs + "><monitorCrossRefID>1</monitorCrossRefID>" + body +
         "</" + element + "></event>\n";
}

inline std::string deliveredIncoming(const std::string& callId, const std::string& party) {
  return event("DeliveredEvent", "<connection>" + connection(callId) + "</connection><alertingDevice>" +
                                     device(kOwnLine) + "</alertingDevice><callingDevice>" + device(party) +
                                     "</callingDevice><calledDevice>" + device(kOwnLine) +
                                     "</calledDevice><localConnectionInfo>alerting</localConnectionInfo>"
                                     "<cause>newCall</cause>");
}
inline std::string established(const std::string& callId, const std::string& calling, const std::string& called) {
  return event("EstablishedEvent", "<establishedConnection>" + connection(callId) +
                                       "</establishedConnection><answeringDevice>" + device(called) +
                                       "</answeringDevice><callingDevice>" + device(calling) +
                                       "</callingDevice><calledDevice>" + device(called) +
                                       "</calledDevice><localConnectionInfo>connected</localConnectionInfo>");
}
inline std::string cleared(const std::string& callId, const char* cause) {
  return event("ConnectionClearedEvent", "<droppedConnection>" + connection(callId) +
                                             "</droppedConnection><releasingDevice>" + device(kOwnLine) +
                                             "</releasingDevice><localConnectionInfo>null</localConnectionInfo>"
                                             "<cause>" +
                                             cause + "</cause>");
}

// The events of one call of `kind` with `party`.
inline std::string call(CallKind kind, const std::string& callId, const std::string& party) {
  switch (kind) {
    case CallKind::Missed:
      return deliveredIncoming(callId, party) + cleared(callId, "normalClearing");
    case CallKind::Received:
      return deliveredIncoming(callId, party) + established(callId, party, kOwnLine) +
             cleared(callId, "normalClearing");
    case CallKind::Dialled:
      return event("OriginatedEvent", "<originatedConnection>" + connection(callId) +
                                          "</originatedConnection><callingDevice>" + device(kOwnLine) +
                                          "</callingDevice><calledDevice>" + device(party) + "</calledDevice>") +
             event("DeliveredEvent", "<connection>" + connection(callId) + "</connection><alertingDevice>" +
                                         device(party) + "</alertingDevice><callingDevice>" + device(kOwnLine) +
                                         "</callingDevice><calledDevice>" + device(party) +
                                         "</calledDevice><localConnectionInfo>connected</localConnectionInfo>") +
             established(callId, kOwnLine, party) + cleared(callId, "normalClearing");
    case CallKind::Forwarded:
      return deliveredIncoming(callId, party) +
             event("DivertedEvent", "<connection>" + connection(callId) + "</connection><divertingDevice>" +
                                        device(kOwnLine) + "</divertingDevice><newDestination>" +
                                        device(kForwardTarget) + "</newDestination><callingDevice>" + device(party) +
                                        "</callingDevice><calledDevice>" + device(kOwnLine) +
                                        "</calledDevice><localConnectionInfo>null</localConnectionInfo>"
                                        "<cause>callForwardNoAnswer</cause>") +
             cleared(callId, "redirected");
  }
  return {};
}

}  // namespace trace

// A call id of its own for call number `n`, as the switch's hexadecimal ids look.
inline std::string callId(int n) {
  char id[40];
  std::snprintf(id, sizeof id, "FF00010000000000BE7C0A11%08X", static_cast<unsigned>(n));
  return id;
}

// Writes a trace of `calls` calls to `path`: `partyOf(i)` gives call i's kind and party number.
template <class PartyOf>
bool writeTrace(const std::string& path, int calls, PartyOf partyOf) {
  std::ofstream out(path);
  out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<cstaTrace>\n";
  for (int i = 0; i < calls; ++i) {
    const auto [kind, party] = partyOf(i);
    out << trace::call(kind, callId(i), party);
  }
  out << "</cstaTrace>\n";
  return static_cast<bool>(out);
}

}  // namespace bench
