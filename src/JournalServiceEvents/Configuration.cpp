// The phone-wide values the journal reads from the local management store and observes.
#include <cstdlib>

#include "JournalLog.h"
#include "JournalService.h"

using journal::kEventsLog;

namespace {

// Keys observed for changes, in the order the observations are made.
const char* const kObservedKeys[] = {
    "sntp-tz-offset",
    "daylight-save",
    "daylight-save-minutes",
    "disable-access-calllog",
    "mobility-user-data-update",
    "mobility-current-user",
    "server-based-features",
    "system-identifier",
    "call-log-control",
    "reg-number",
    "call-record-max-idle-hours",
};

enum ReadGroup : unsigned { kTimeZoneGroup = 1, kDaylightGroup = 2, kSystemGroup = 4, kCallTableGroup = 8 };

int toInt(const std::string& text) { return static_cast<int>(std::strtol(text.c_str(), nullptr, 10)); }

}  // namespace

void JournalService::setSoftwareType(const std::string& softwareType) {
  CriticalSection guard(m_softwareTypeLock);
  m_softwareType = softwareType;
  m_flavour = softwareType == journal::kSipSoftware   ? Flavour::Sip
              : softwareType == journal::kKpxSoftware ? Flavour::Kpx
                                                      : Flavour::Other;
}

std::string JournalService::softwareType() const {
  CriticalSection guard(m_softwareTypeLock);
  return m_softwareType;
}

bool JournalService::getKVDBValue(const char* tag, std::string& value) {
  if (!m_pLocalMgmt || !tag) return false;
  ManageableData data(tag);
  if (!m_pLocalMgmt->readData(data)) return false;
  return data.interogate(tag, value);
}

void JournalService::readLocalMgmtData(unsigned groups) {
  std::string value;
  if (groups & kTimeZoneGroup) {
    m_tzOffset = 0;
    if (getKVDBValue("sntp-tz-offset", value)) m_tzOffset = toInt(value);
  }
  if (groups & kDaylightGroup) {
    m_daylightSaveMinutes = 0;
    std::string daylight;
    if (getKVDBValue("daylight-save", daylight) && daylight == "true" && getKVDBValue("daylight-save-minutes", value))
      m_daylightSaveMinutes = toInt(value);
  }
  if (groups & kSystemGroup) {
    m_systemIdentifier = 0;
    if (getKVDBValue("system-identifier", value)) m_systemIdentifier = toInt(value);
    JLOG(kEventsLog, 5, "%s():system-identifier = %d", __func__, m_systemIdentifier.load());
    std::string softwareType;
    getKVDBValue("software-type", softwareType);
    setSoftwareType(softwareType);
    JLOG(kEventsLog, 5, "%s():software-type = %s", __func__, softwareType.c_str());
    m_callLogControl.clear();
    getKVDBValue("call-log-control", m_callLogControl);
    JLOG(kEventsLog, 5, "%s():call-log-control = %s", __func__, m_callLogControl.c_str());
    m_regNumber.clear();
    getKVDBValue("reg-number", m_regNumber);
    JLOG(kEventsLog, 5, "%s():reg-number = %s", __func__, m_regNumber.c_str());
    m_serverBasedFeatures = getKVDBValue("server-based-features", value) && value == "true";
    JLOG(kEventsLog, 5, "%s():server-based-features = %d", __func__, m_serverBasedFeatures.load());
    deriveLoggingMode();
    changeMonitorFilter();
  }
  if (groups & kCallTableGroup) readCallRecordMaxIdleHours();
}

// Hours without an event after which a call's record is let go: a positive number, else the default.
void JournalService::readCallRecordMaxIdleHours() {
  std::string value;
  int hours = kDefaultCallRecordMaxIdleHours;
  if (getKVDBValue("call-record-max-idle-hours", value)) {
    char* end = nullptr;
    const long read = std::strtol(value.c_str(), &end, 10);
    if (end != value.c_str() && *end == '\0' && read > 0 && read <= 24 * 365) {
      hours = static_cast<int>(read);
    } else {
      JLOG(kEventsLog, 2, "%s():call-record-max-idle-hours \"%s\" is not a number of hours; %d used", __func__,
           value.c_str(), hours);
    }
  }
  m_callRecordMaxIdleHours = hours;
}

void JournalService::observeManageableData(const char* key) {
  if (!m_pLocalMgmt || !key) {
    JLOG(kEventsLog, 5, "%s(): localManagement not available or tagName is NULL", __func__);
    return;
  }
  if (!m_pLocalMgmt->observe(key, this)) JLOG(kEventsLog, 5, "%s():'%s' not observeable", __func__, key);
}

void JournalService::initEvents() {
  if (!m_pLocalMgmt) {
    JLOG(kEventsLog, 5, "%s(): localManagement not available ", __func__);
    return;
  }
  readLocalMgmtData(kTimeZoneGroup | kDaylightGroup | kSystemGroup | kCallTableGroup);
  for (const char* key : kObservedKeys) observeManageableData(key);
}
