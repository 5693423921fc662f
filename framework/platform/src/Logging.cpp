#include "framework/Logging.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <map>
#include <stdexcept>

namespace fw {
namespace {

struct LoggerState {
  Mutex mutex;  // leaf: guards thresholds and sink; the sink is called under it
  std::map<std::string, int, std::less<>> thresholds GUARDED_BY(mutex);
  int defaultThreshold GUARDED_BY(mutex) = kLogNotable;
  // The highest threshold of all handles: a line above it is dropped without taking the mutex,
  // which most trace lines are. Written under the mutex.
  std::atomic<int> highest{kLogNotable};
  std::shared_ptr<LogSink> sink GUARDED_BY(mutex) = std::make_shared<StderrSink>();
};

LoggerState& state() {
  static LoggerState* s = new LoggerState;  // never destroyed: logging works during exit
  return *s;
}

void refreshHighestLocked(LoggerState& s) REQUIRES(s.mutex) {
  int highest = s.defaultThreshold;
  for (const auto& entry : s.thresholds) highest = std::max(highest, entry.second);
  s.highest.store(highest, std::memory_order_relaxed);
}

int thresholdLocked(LoggerState& s, const char* handle) REQUIRES(s.mutex) {
  auto it = s.thresholds.find(std::string_view(handle ? handle : ""));
  return it == s.thresholds.end() ? s.defaultThreshold : it->second;
}

const char* baseName(const char* path) {
  const char* slash = path ? std::strrchr(path, '/') : nullptr;
  return slash ? slash + 1 : (path ? path : "");
}

std::string formatLine(const LogRecord& r) {
  char head[64];
  std::snprintf(head, sizeof head, "<%d> ", r.level);
  return head + r.handle + " " + r.file + ":" + std::to_string(r.line) + " " + r.text;
}

std::string trim(const std::string& s) {
  size_t b = s.find_first_not_of(" \t");
  if (b == std::string::npos) return "";
  size_t e = s.find_last_not_of(" \t");
  return s.substr(b, e - b + 1);
}

}  // namespace

LogSink::~LogSink() = default;

void StderrSink::write(const LogRecord& record) {
  std::string line = formatLine(record);
  std::fprintf(stderr, "%s\n", line.c_str());
}

FileSink::FileSink(const std::string& path) : m_file(std::fopen(path.c_str(), "a")) {
  if (!m_file) throw std::runtime_error("cannot open log file '" + path + "': " + std::strerror(errno));
}

FileSink::~FileSink() { std::fclose(m_file); }

void FileSink::write(const LogRecord& record) {
  std::string line = formatLine(record);
  std::fprintf(m_file, "%s\n", line.c_str());
  std::fflush(m_file);
}

void MemorySink::write(const LogRecord& record) {
  MutexLock guard(m_mutex);
  m_records.push_back(record);
}

std::vector<LogRecord> MemorySink::records() const {
  MutexLock guard(m_mutex);
  return m_records;
}

bool MemorySink::contains(const std::string& needle, int level) const {
  MutexLock guard(m_mutex);
  for (const auto& r : m_records)
    if (r.text.find(needle) != std::string::npos && (level < 0 || r.level == level)) return true;
  return false;
}

void MemorySink::clear() {
  MutexLock guard(m_mutex);
  m_records.clear();
}

void setLogThreshold(const std::string& handle, int level) {
  auto& s = state();
  fw::MutexLock guard(s.mutex);
  s.thresholds[handle] = level;
  refreshHighestLocked(s);
}

void setDefaultLogThreshold(int level) {
  auto& s = state();
  fw::MutexLock guard(s.mutex);
  s.defaultThreshold = level;
  refreshHighestLocked(s);
}

int logThreshold(const std::string& handle) {
  auto& s = state();
  fw::MutexLock guard(s.mutex);
  return thresholdLocked(s, handle.c_str());
}

bool setLogThresholds(const std::string& spec, std::string* error) {
  std::map<std::string, int> parsed;
  size_t pos = 0;
  while (pos <= spec.size()) {
    size_t comma = spec.find(',', pos);
    std::string item = trim(spec.substr(pos, comma == std::string::npos ? std::string::npos : comma - pos));
    pos = comma == std::string::npos ? spec.size() + 1 : comma + 1;
    if (item.empty()) continue;
    size_t eq = item.rfind('=');
    std::string handle = eq == std::string::npos ? "" : trim(item.substr(0, eq));
    std::string level = eq == std::string::npos ? "" : trim(item.substr(eq + 1));
    char* end = nullptr;
    long value = level.empty() ? -1 : std::strtol(level.c_str(), &end, 10);
    if (handle.empty() || level.empty() || *end != '\0' || value < 0 || value > 9) {
      if (error) *error = "log levels: expected 'handle=level' with a level from 0 to 9, got '" + item + "'";
      return false;
    }
    parsed[handle] = static_cast<int>(value);
  }
  for (const auto& [handle, level] : parsed) {
    if (handle == "*")
      setDefaultLogThreshold(level);
    else
      setLogThreshold(handle, level);
  }
  return true;
}

std::shared_ptr<LogSink> setLogSink(std::shared_ptr<LogSink> sink) {
  auto& s = state();
  fw::MutexLock guard(s.mutex);
  if (!sink) sink = std::make_shared<StderrSink>();
  std::swap(s.sink, sink);
  return sink;
}

}  // namespace fw

bool loggingOnAppUni(const char* handle, int level) {
  auto& s = fw::state();
  if (level > s.highest.load(std::memory_order_relaxed)) return false;
  fw::MutexLock guard(s.mutex);
  return level <= fw::thresholdLocked(s, handle);
}

void logAppUni(const char* handle, const char* file, int level, int line, const char* format, ...) {
  auto& s = fw::state();
  if (level > s.highest.load(std::memory_order_relaxed)) return;
  {
    fw::MutexLock guard(s.mutex);
    if (level > fw::thresholdLocked(s, handle)) return;
  }
  fw::LogRecord record;
  record.handle = handle ? handle : "";
  record.file = fw::baseName(file);
  record.level = level;
  record.line = line;
  char buffer[1024];
  va_list args;
  va_start(args, format);
  int n = std::vsnprintf(buffer, sizeof buffer, format, args);
  va_end(args);
  if (n >= static_cast<int>(sizeof buffer)) {
    std::string big(static_cast<size_t>(n) + 1, '\0');
    va_start(args, format);
    std::vsnprintf(big.data(), big.size(), format, args);
    va_end(args);
    big.resize(static_cast<size_t>(n));
    record.text = std::move(big);
  } else if (n > 0) {
    record.text.assign(buffer, static_cast<size_t>(n));
  }
  fw::MutexLock guard(s.mutex);
  s.sink->write(record);
}
