#include "framework/Logging.h"

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
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

std::string body(const LogRecord& r) { return r.handle + " " + r.file + ":" + std::to_string(r.line) + " " + r.text; }

long long nowMs() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

// "TIME LEVEL handle file:line text", the level word padded so that the handles line up.
std::string readableLine(const LogRecord& r) {
  char word[16];
  std::snprintf(word, sizeof word, "%-7s", levelWord(r.level));
  return localTimeStamp(nowMs()) + " " + word + " " + body(r);
}

std::string journalLine(const LogRecord& r) { return "<" + std::to_string(syslogPriority(r.level)) + ">" + body(r); }

std::string trim(const std::string& s) {
  size_t b = s.find_first_not_of(" \t");
  if (b == std::string::npos) return "";
  size_t e = s.find_last_not_of(" \t");
  return s.substr(b, e - b + 1);
}

}  // namespace

LogSink::~LogSink() = default;

int syslogPriority(int level) {
  if (level <= kLogError) return 3;    // err
  if (level < kLogNotable) return 4;   // warning
  if (level == kLogNotable) return 5;  // notice
  return 7;                            // debug: trace and detail
}

const char* levelWord(int level) {
  if (level <= kLogError) return "error";
  if (level < kLogNotable) return "warning";
  if (level == kLogNotable) return "notice";
  return level == kLogTrace ? "trace" : "detail";
}

bool streamIsJournal(int fd) {
  const char* stream = std::getenv("JOURNAL_STREAM");
  unsigned long long device = 0, inode = 0;
  if (!stream || std::sscanf(stream, "%llu:%llu", &device, &inode) != 2) return false;
  struct stat info {};
  return fstat(fd, &info) == 0 && info.st_dev == device && info.st_ino == inode;
}

std::string localTimeStamp(long long epochMs) {
  const std::time_t seconds = static_cast<std::time_t>(epochMs / 1000);
  std::tm local{};
  localtime_r(&seconds, &local);
  char date[32], offset[8];
  std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
  std::strftime(offset, sizeof offset, "%z", &local);  // +hhmm: ISO 8601 writes +hh:mm
  char stamp[48];
  std::snprintf(stamp, sizeof stamp, "%s.%03d%.3s:%.2s", date, static_cast<int>(epochMs % 1000), offset, offset + 3);
  return stamp;
}

StderrSink::StderrSink() : m_journal(streamIsJournal(2)) {}

void StderrSink::write(const LogRecord& record) {
  std::string line = m_journal ? journalLine(record) : readableLine(record);
  std::fprintf(stderr, "%s\n", line.c_str());
}

FileSink::FileSink(const std::string& path) : m_file(std::fopen(path.c_str(), "a")) {
  if (!m_file) throw std::runtime_error("cannot open log file '" + path + "': " + std::strerror(errno));
}

FileSink::~FileSink() { std::fclose(m_file); }

void FileSink::write(const LogRecord& record) {
  std::string line = readableLine(record);
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

namespace {

bool parseLogThresholds(const std::string& spec, std::map<std::string, int>& parsed, std::string* error) {
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
  return true;
}

}  // namespace

bool checkLogThresholds(const std::string& spec, std::string* error) {
  std::map<std::string, int> parsed;
  return parseLogThresholds(spec, parsed, error);
}

bool setLogThresholds(const std::string& spec, std::string* error) {
  std::map<std::string, int> parsed;
  if (!parseLogThresholds(spec, parsed, error)) return false;
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
