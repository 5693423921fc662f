// What the daemon's reload (SIGHUP) works out of the configuration file read again: which values
// wait for the next start, and the log lines of every value that changed. The reload itself is
// in JournalHost.cpp. Runs on the program's main thread, as the rest of JournalHost.
#include <sys/stat.h>

#include "JournalHost.h"
#include "SettingTable.h"
#include "framework/LocalMgmt.h"
#include "framework/Logging.h"

namespace host {

namespace {

constexpr const char* kLog = "Journal Host";
#define HOSTLOG(level, ...) logAppUni(kLog, __FILE__, (level), __LINE__, __VA_ARGS__)

// The value of `key` the configuration `values` put in force: the configured one, else the default.
std::string inForce(const std::map<std::string, std::string>& values, const SettingInfo& setting) {
  auto it = values.find(setting.key);
  return it != values.end() && !it->second.empty() ? it->second : defaultValue(setting);
}

std::string shown(const std::string& value) { return value.empty() ? "(none)" : value; }

// Logs each setting whose value in force changed from `before` to `after`; those in `waiting`
// as taking effect at the next start. The journal's switches are logged where they are applied.
}  // namespace

void logConfigurationChanges(const std::map<std::string, std::string>& before,
                             const std::map<std::string, std::string>& after,
                             const std::map<std::string, std::string>& waiting) {
  std::size_t count = 0;
  const SettingInfo* table = settingTable(count);
  for (std::size_t i = 0; i < count; ++i) {
    const SettingInfo& setting = table[i];
    if (isJournalSwitch(setting.key)) continue;
    const std::string old = inForce(before, setting);
    if (auto it = waiting.find(setting.key); it != waiting.end()) {
      HOSTLOG(4, "configuration: %s changed from %s to %s; it takes effect at the next start", setting.key,
              shown(old).c_str(), shown(it->second).c_str());
      continue;
    }
    const std::string now = inForce(after, setting);
    if (old == now) continue;
    HOSTLOG(4, "configuration: %s changed from %s to %s%s", setting.key, shown(old).c_str(), shown(now).c_str(),
            setting.effect == SettingEffect::AtStart ? "; it takes effect at the next start" : "");
  }
}

std::map<std::string, std::string> JournalHost::waitingForStart() const {
  fw::MutexLock guard(m_waitingMutex);
  return m_waitingForStart;
}

std::map<std::string, std::string> JournalHost::holdStartOnlyValues(const std::map<std::string, std::string>& running,
                                                                    std::map<std::string, std::string>& values) const {
  std::map<std::string, std::string> waiting;
  std::size_t count = 0;
  const SettingInfo* table = settingTable(count);
  for (std::size_t i = 0; i < count; ++i) {
    const SettingInfo& setting = table[i];
    const bool startOnly = setting.owner == SettingOwner::Daemon && setting.effect == SettingEffect::AtStart;
    // A phonebook cannot be taken away while the daemon runs: its contacts stay until the next start.
    const bool droppedPhonebook =
        std::string(setting.key) == "phonebook" && !m_settings.phonebook.empty() && inForce(values, setting).empty();
    if (!startOnly && !droppedPhonebook) continue;
    const std::string now = inForce(running, setting), next = inForce(values, setting);
    if (now == next) continue;
    waiting[setting.key] = next;
    if (auto it = running.find(setting.key); it != running.end())
      values[setting.key] = it->second;
    else
      values.erase(setting.key);
  }
  return waiting;
}

}  // namespace host
