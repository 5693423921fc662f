// Fuzz target: one management message ("calljournal config get|set") answered by the running
// journal's management handler (FuzzJournal.h). Promises checked: the reply is a well-formed
// management reply of clean text that the command-line client reads back; after it the journal's
// promises (JournalChecks.h). The office day is then put back for the next input.
#include <cstdint>
#include <string>

#include "FuzzJournal.h"
#include "Management.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string message(reinterpret_cast<const char*>(data), size);
  fuzz::OfficeDay& day = fuzz::OfficeDay::instance();
  const std::string reply = fuzz::journal().handleManagement(message);
  FUZZ_CHECK(fuzz::isCleanText(reply), reply);
  host::ManagementReply parsed;
  FUZZ_CHECK(host::parseManagementReply(reply, parsed), reply);
  day.checkAndRestore();
  return 0;
}
