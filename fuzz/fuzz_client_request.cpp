// Fuzz target: what a client sends the daemon. The input is a stream of frames as on the client
// socket (a 4-byte big-endian length, then the message); each message goes where the client
// server sends it (management requests to the management handler, everything else to the
// journal's request invoker) on the running journal (FuzzJournal.h). Promises checked: every reply
// is well-formed XML of clean text (or empty, for a request answered without text), and after the
// input the journal's promises (JournalChecks.h: lists within their limits, entry ids unique, the
// store holding what the lists hold); then the office day is put back for the next input.
#include <cstdint>
#include <string>

#include "ClientMessages.h"
#include "FuzzJournal.h"
#include "Management.h"

namespace {
constexpr size_t kMaxFrame = 4u << 20;  // the client server's default limit
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  host::JournalHost& journal = fuzz::journal();
  fuzz::OfficeDay& day = fuzz::OfficeDay::instance();
  for (size_t at = 0; at + 4 <= size;) {
    const size_t length =
        (size_t{data[at]} << 24) | (size_t{data[at + 1]} << 16) | (size_t{data[at + 2]} << 8) | size_t{data[at + 3]};
    at += 4;
    if (length > kMaxFrame) break;  // the server closes such a connection
    const std::string message(reinterpret_cast<const char*>(data + at), std::min(length, size - at));
    at += message.size();
    const bool management = fw::clientserver::rootElementName(message) == host::kManagementRequest;
    const std::string reply = management ? journal.handleManagement(message) : journal.request(message);
    if (reply.empty() && !management) continue;
    FUZZ_CHECK(fuzz::isWellFormedXml(reply), reply);
    FUZZ_CHECK(fuzz::isCleanText(reply), reply);
  }
  day.checkAndRestore();
  return 0;
}
