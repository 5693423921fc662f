#include "framework/LocalMgmt.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "framework/Logging.h"

MgmtAgentIfc::~MgmtAgentIfc() = default;
LocalMgmtIfc::~LocalMgmtIfc() = default;

namespace {

const char* const kBlanks = " \t\r";

std::string trimBlanks(const std::string& text) {
  size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string::npos) return "";
  size_t last = text.find_last_not_of(kBlanks);
  return text.substr(first, last - first + 1);
}

bool isIgnoredLine(const std::string& trimmed) { return trimmed.empty() || trimmed[0] == '#'; }

std::string lineError(const std::string& origin, int lineNumber, const std::string& what) {
  return origin + ":" + std::to_string(lineNumber) + ": " + what;
}

// Turns the text right of '=' into the value: an unquoted value is taken as it stands (already
// trimmed); a quoted one loses its quotes and keeps everything between them.
bool unquoteValue(const std::string& raw, std::string& value, std::string& what) {
  if (raw.empty() || raw[0] != '"') {
    value = raw;
    return true;
  }
  size_t closing = raw.find('"', 1);
  if (closing == std::string::npos) {
    what = "unterminated quoted value";
    return false;
  }
  if (closing + 1 != raw.size()) {
    what = "unexpected text after quoted value";
    return false;
  }
  value = raw.substr(1, closing - 1);
  return true;
}

bool readWholeFile(const std::string& path, std::string& text, std::string& error) {
  std::FILE* file = std::fopen(path.c_str(), "r");
  if (!file) {
    error = path + ": cannot open: " + std::strerror(errno);
    return false;
  }
  char buffer[4096];
  size_t count;
  while ((count = std::fread(buffer, 1, sizeof buffer, file)) > 0) text.append(buffer, count);
  bool failed = std::ferror(file) != 0;
  int readErrno = errno;
  std::fclose(file);
  if (failed) {
    error = path + ": cannot read: " + std::strerror(readErrno);
    return false;
  }
  return true;
}

}  // namespace

FileLocalMgmt::FileLocalMgmt() : m_notifier(std::make_unique<fw::WorkQueue>("mgmt-notify")) {}

FileLocalMgmt::~FileLocalMgmt() {
  drainNotifications();
  m_notifier.reset();
}

bool FileLocalMgmt::parse(const std::string& text, const std::string& origin,
                          std::map<std::string, std::string>& values, std::string& error) {
  std::map<std::string, std::string> parsed;
  size_t start = 0;
  int lineNumber = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    std::string line = trimBlanks(text.substr(start, end - start));
    start = end + 1;
    ++lineNumber;
    if (isIgnoredLine(line)) continue;

    size_t equals = line.find('=');
    std::string key = equals == std::string::npos ? "" : trimBlanks(line.substr(0, equals));
    if (key.empty()) {
      error = lineError(origin, lineNumber, "expected 'key = value'");
      return false;
    }
    std::string value, what;
    if (!unquoteValue(trimBlanks(line.substr(equals + 1)), value, what)) {
      error = lineError(origin, lineNumber, what);
      return false;
    }
    if (!parsed.emplace(key, value).second) {
      error = lineError(origin, lineNumber, "duplicate key '" + key + "'");
      return false;
    }
  }
  values = std::move(parsed);
  return true;
}

bool FileLocalMgmt::readFile(const std::string& path, std::map<std::string, std::string>& values, std::string& error) {
  std::string text;
  return readWholeFile(path, text, error) && parse(text, path, values, error);
}

bool FileLocalMgmt::loadFile(const std::string& path, std::string& error) {
  std::map<std::string, std::string> parsed;
  if (!readFile(path, parsed, error)) {
    logAppUni("Framework", __FILE__, fw::kLogError, __LINE__, "configuration not loaded: %s", error.c_str());
    return false;
  }
  {
    fw::MutexLock guard(m_mutex);
    m_path = path;
  }
  replaceValues(parsed);
  logAppUni("Framework", __FILE__, fw::kLogNotable, __LINE__, "configuration %s: %zu values", path.c_str(),
            parsed.size());
  return true;
}

void FileLocalMgmt::replaceValues(const std::map<std::string, std::string>& values) {
  // What `values` no longer holds is removed in the same step.
  fw::MutexLock guard(m_mutex);
  std::set<std::string> removed;
  for (const auto& entry : m_values)
    if (!values.count(entry.first)) removed.insert(entry.first);
  applyLocked(values, removed);
}

bool FileLocalMgmt::reload(std::string& error) {
  std::string path;
  {
    fw::MutexLock guard(m_mutex);
    path = m_path;
  }
  if (path.empty()) {
    error = "no configuration file loaded";
    return false;
  }
  return loadFile(path, error);
}

void FileLocalMgmt::setValue(const std::string& key, const std::string& value) {
  if (key.empty()) return;
  apply({{key, value}}, {});
}

bool FileLocalMgmt::value(const std::string& key, std::string& value) const {
  fw::MutexLock guard(m_mutex);
  auto it = m_values.find(key);
  if (it == m_values.end()) return false;
  value = it->second;
  return true;
}

std::map<std::string, std::string> FileLocalMgmt::values() const {
  fw::MutexLock guard(m_mutex);
  return m_values;
}

void FileLocalMgmt::setDefault(const std::string& key, const std::string& value) {
  if (key.empty()) return;
  fw::MutexLock guard(m_mutex);
  std::string before;
  const bool had = inForceLocked(key, before);
  m_defaults[key] = value;
  if (!m_values.count(key) && (!had || before != value)) queueNotificationsLocked(key, true, value);
}

bool FileLocalMgmt::defaultValue(const std::string& key, std::string& value) const {
  fw::MutexLock guard(m_mutex);
  auto it = m_defaults.find(key);
  if (it == m_defaults.end()) return false;
  value = it->second;
  return true;
}

std::map<std::string, std::string> FileLocalMgmt::defaults() const {
  fw::MutexLock guard(m_mutex);
  return m_defaults;
}

bool FileLocalMgmt::inForceLocked(const std::string& key, std::string& value) const {
  for (const auto* source : {&m_values, &m_defaults}) {
    auto it = source->find(key);
    if (it == source->end()) continue;
    value = it->second;
    return true;
  }
  return false;
}

MgmtAgentIfc* FileLocalMgmt::agent(const std::string& agentId) const {
  fw::MutexLock guard(m_mutex);
  auto it = m_agents.find(agentId);
  return it == m_agents.end() ? nullptr : it->second;
}

void FileLocalMgmt::drainNotifications() {
  // On the notification thread the queue cannot wait for the task that is asking.
  if (m_notifier->onQueueThread()) return;
  m_notifier->drain();
}

void FileLocalMgmt::forget(MgmtAgentIfc* agent) {
  {
    fw::MutexLock guard(m_mutex);
    for (auto it = m_agents.begin(); it != m_agents.end();)
      it = it->second == agent ? m_agents.erase(it) : std::next(it);
    for (auto it = m_observers.begin(); it != m_observers.end();)
      it = it->second == agent ? m_observers.erase(it) : std::next(it);
  }
  // Deliveries still queued for the agent find it no longer observing and skip it; draining
  // also waits for a delivery that is running right now.
  drainNotifications();
}

bool FileLocalMgmt::readData(ManageableData& data) {
  fw::MutexLock guard(m_mutex);
  bool filled = false;
  for (const std::string& key : data.getRootIds()) {
    std::string value;
    if (!inForceLocked(key, value)) continue;
    data.populate(key, value);
    filled = true;
  }
  return filled;
}

bool FileLocalMgmt::publishData(ManageableData& data) {
  std::map<std::string, std::string> changes;
  for (const std::string& key : data.getRootIds()) {
    std::string value;
    if (!key.empty() && data.interogate(key, value)) changes[key] = value;
  }
  if (changes.empty()) return false;
  apply(changes, {});
  return true;
}

bool FileLocalMgmt::registerAgent(const std::string& agentId, MgmtAgentIfc* agent, bool serveData) {
  if (agentId.empty() || !agent) return false;
  {
    fw::MutexLock guard(m_mutex);
    m_agents[agentId] = agent;
  }
  logAppUni("Framework", __FILE__, fw::kLogTrace, __LINE__, "management agent %s registered%s", agentId.c_str(),
            serveData ? " (serves data)" : "");
  return true;
}

bool FileLocalMgmt::unregisterAgent(const std::string& agentId) {
  fw::MutexLock guard(m_mutex);
  return m_agents.erase(agentId) != 0;
}

bool FileLocalMgmt::observe(const std::string& key, MgmtAgentIfc* agent) {
  if (key.empty() || !agent) return false;
  fw::MutexLock guard(m_mutex);
  if (!isObservingLocked(key, agent)) m_observers.emplace(key, agent);
  return true;
}

bool FileLocalMgmt::isObservingLocked(const std::string& key, MgmtAgentIfc* agent) const {
  auto range = m_observers.equal_range(key);
  for (auto it = range.first; it != range.second; ++it)
    if (it->second == agent) return true;
  return false;
}

void FileLocalMgmt::apply(const std::map<std::string, std::string>& changes, const std::set<std::string>& removed) {
  fw::MutexLock guard(m_mutex);
  applyLocked(changes, removed);
}

// Deliveries are queued while m_mutex is held so that two concurrent writers' notifications reach
// the queue in the order their values were stored. Posting takes only the queue's own lock, which
// is never held while a task runs, so no agent is ever called under m_mutex.
void FileLocalMgmt::applyLocked(const std::map<std::string, std::string>& changes,
                                const std::set<std::string>& removed) {
  for (const auto& change : changes) {
    std::string before;
    const bool had = inForceLocked(change.first, before);
    m_values[change.first] = change.second;
    if (!had || before != change.second) queueNotificationsLocked(change.first, true, change.second);
  }
  for (const std::string& key : removed) {
    auto it = m_values.find(key);
    if (it == m_values.end()) continue;
    const std::string before = it->second;
    m_values.erase(it);
    std::string now;
    const bool has = inForceLocked(key, now);
    if (!has || now != before) queueNotificationsLocked(key, has, now);
  }
}

void FileLocalMgmt::queueNotificationsLocked(const std::string& key, bool hasValue, const std::string& value) {
  auto range = m_observers.equal_range(key);
  for (auto it = range.first; it != range.second; ++it) {
    MgmtAgentIfc* observer = it->second;
    m_notifier->post([this, key, hasValue, value, observer] { deliver(key, hasValue, value, observer); });
  }
}

void FileLocalMgmt::deliver(const std::string& key, bool hasValue, const std::string& value, MgmtAgentIfc* observer) {
  {
    fw::MutexLock guard(m_mutex);
    if (!isObservingLocked(key, observer)) return;  // forgotten since the change was queued
  }
  ManageableData data(key);
  if (hasValue) data.populate(key, value);
  observer->manageableDataChanged(data);
}
