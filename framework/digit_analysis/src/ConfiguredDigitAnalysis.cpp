// ConfiguredDigitAnalysis: feature access codes from a configuration value.
#include "digit_analysis/ConfiguredDigitAnalysis.h"

#include <sstream>

#include "framework/Logging.h"
#include "framework/ManageableData.h"

namespace {

constexpr const char* kLogHandle = "Digit Analysis";

std::vector<std::string> parseCodes(const std::string& list) {
  std::vector<std::string> codes;
  std::istringstream entries(list);
  for (std::string entry; std::getline(entries, entry, ',');) {
    const size_t first = entry.find_first_not_of(" \t");
    if (first == std::string::npos) continue;
    codes.push_back(entry.substr(first, entry.find_last_not_of(" \t") - first + 1));
  }
  return codes;
}

}  // namespace

ConfiguredDigitAnalysis::ConfiguredDigitAnalysis() = default;

ConfiguredDigitAnalysis::ConfiguredDigitAnalysis(LocalMgmtIfc& mgmt) {
  ManageableData data(kConfigKey);
  std::string list;
  if (mgmt.readData(data) && data.interogate(kConfigKey, list)) configure(list);
}

ConfiguredDigitAnalysis::~ConfiguredDigitAnalysis() = default;

void ConfiguredDigitAnalysis::configure(const std::string& list) {
  std::vector<std::string> codes = parseCodes(list);
  const size_t count = codes.size();
  {
    fw::WriterLock lock(m_mutex);
    m_codes.swap(codes);
  }
  logAppUni(kLogHandle, __FILE__, fw::kLogNotable, __LINE__, "%s(): %zu feature access codes: %s", __func__, count,
            list.c_str());
}

std::vector<std::string> ConfiguredDigitAnalysis::codes() const {
  fw::ReaderLock lock(m_mutex);
  return m_codes;
}

bool ConfiguredDigitAnalysis::isFeatureAccessCode(const std::string& digits) {
  fw::ReaderLock lock(m_mutex);
  for (const std::string& code : m_codes)
    if (digits.compare(0, code.size(), code) == 0) return true;
  return false;
}
