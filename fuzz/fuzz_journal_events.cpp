// Fuzz target: the switch's CSTA events as the journal's event handlers get them. The input's
// first byte chooses the phone (Phone::setMode: flavour, whose call log, the journal's settings);
// the rest is a series of event documents, each ended by a line that starts with "%%", optionally
// followed by the seconds the phone's clock moves before the next document ("%%30"). Each document
// goes through the CSTA service's parser to the journal's handlers as from the switch, on a
// running journal in replay mode (FuzzPhone.h). Promises checked after each input: those of
// JournalChecks.h (no list beyond its limits, entry ids unique over all lists, well-formed replies,
// the store holding what the lists hold); the sanitizers check the rest.
#include <cctype>
#include <cstdint>
#include <string>

#include "FuzzPhone.h"

namespace {

constexpr size_t kMaxDocuments = 256;
constexpr int64_t kMaxStepSeconds = 9999999;  // seven digits: about 115 days

// The seconds a separator line gives: the digits right after "%%", at most seven of them.
int64_t stepSeconds(const std::string& text, size_t at) {
  int64_t seconds = 0;
  for (size_t i = at; i < text.size() && i < at + 7 && std::isdigit(static_cast<unsigned char>(text[i])); ++i)
    seconds = seconds * 10 + (text[i] - '0');
  return seconds < kMaxStepSeconds ? seconds : kMaxStepSeconds;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  fuzz::Phone& phone = fuzz::Phone::instance();
  phone.beginInput();
  phone.setMode(data[0]);
  const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  size_t start = 0;
  for (size_t documents = 0; start < text.size() && documents < kMaxDocuments; ++documents) {
    size_t separator = text.compare(start, 2, "%%") == 0 ? start : text.find("\n%%", start);
    const size_t end = separator == std::string::npos ? text.size() : separator;
    phone.deliver(text.substr(start, end - start));
    if (separator == std::string::npos) break;
    const size_t marks = text.find("%%", separator) + 2;
    phone.advance(stepSeconds(text, marks));
    const size_t lineEnd = text.find('\n', marks);
    start = lineEnd == std::string::npos ? text.size() : lineEnd + 1;
  }
  phone.endInput();
  return 0;
}
