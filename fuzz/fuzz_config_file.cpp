// Fuzz target: the configuration file ("key = value" lines) as the daemon reads it: the values
// (FileLocalMgmt::parse), the host's settings taken from them, the log thresholds and the feature
// access codes. Promises checked: a refusal names the line; an accepted file gives keys without
// surrounding blanks.
#include <cstdint>
#include <map>
#include <string>

#include "FuzzSupport.h"
#include "HostSettings.h"
#include "digit_analysis/ConfiguredDigitAnalysis.h"
#include "framework/LocalMgmt.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::silenceLogs();
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::map<std::string, std::string> values;
  std::string error;
  if (!FileLocalMgmt::parse(text, "journal.conf", values, error)) {
    FUZZ_CHECK(error.rfind("journal.conf:", 0) == 0, error);
    return 0;
  }
  for (const auto& [key, value] : values) {
    FUZZ_CHECK(!key.empty() && key.front() != ' ' && key.back() != ' ', key);
    (void)value;
  }
  host::Settings settings;
  if (host::readSettings(values, settings, error))
    FUZZ_CHECK(settings.requestTimeoutMs > 0 && settings.switchPort >= 0 && settings.switchPort <= 65535, text);
  if (const auto levels = values.find("log-levels"); levels != values.end()) {
    fw::setLogThresholds(levels->second, &error);
    fw::setLogThresholds("*=4", nullptr);
  }
  if (const auto codes = values.find("feature-access-codes"); codes != values.end()) {
    ConfiguredDigitAnalysis analysis;
    analysis.configure(codes->second);
    for (const std::string& code : analysis.codes()) FUZZ_CHECK(analysis.isFeatureAccessCode(code), code);
  }
  return 0;
}
