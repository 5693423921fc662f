// The dialling plan's feature access codes, taken from the phone's configuration: a
// DigitAnalysisServiceIfc that answers true when the dialled digits start with one of the
// configured codes. Register it with the context under "DigitAnalysisServiceIfc".
//
// The codes are one configuration value, a comma-separated list:
//   feature-access-codes = *21, *61, #, **
// Blanks around each code are dropped and empty entries ignored, so "*21,, *61 ," is two codes.
// No value means no feature access codes.
//
// Thread-safe: configure() may run while look-ups do. m_mutex is a leaf lock held only to read or
// replace the list; nothing is logged while it is held.
#pragma once

#include <string>
#include <vector>

#include "framework/Executable.h"
#include "framework/LocalMgmt.h"
#include "framework/Mutex.h"
#include "framework/Services.h"

#pragma GCC visibility push(default)

class ConfiguredDigitAnalysis : public Service, public DigitAnalysisServiceIfc {
 public:
  static constexpr const char* kConfigKey = "feature-access-codes";

  // No codes until configure() is called.
  ConfiguredDigitAnalysis();
  // The codes of kConfigKey in `mgmt`; none when the key has no value.
  explicit ConfiguredDigitAnalysis(LocalMgmtIfc& mgmt);
  ~ConfiguredDigitAnalysis() override;

  // Replaces the codes with those of `list` (the format above).
  void configure(const std::string& list);
  std::vector<std::string> codes() const;

  bool isFeatureAccessCode(const std::string& digits) override;

 private:
  mutable fw::SharedMutex m_mutex;  // leaf lock, guards m_codes
  std::vector<std::string> m_codes GUARDED_BY(m_mutex);
};

#pragma GCC visibility pop
