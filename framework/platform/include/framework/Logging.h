// Logging of the framework and of every module it loads.
//
// A log line carries a handle (the subsystem, e.g. "Journal Service"), a level (2 error,
// 4 notable event, 5 trace of operations, 6 detail) and printf-style text. Each handle has a
// threshold, set at run time; a line is written when its level is at or below the threshold of
// its handle (handles without their own threshold use the default threshold, 4).
//
// Lines go to one sink at a time: stderr (the default), a file, or a MemorySink that tests read.
// All functions are thread-safe; the sink is called under the logger's own mutex, which is a
// leaf lock (nothing else is ever taken while it is held).
#pragma once

#include <cstdarg>
#include <memory>
#include <string>
#include <vector>

#include "framework/Mutex.h"

#pragma GCC visibility push(default)

// True when a line of `level` for `handle` would be written.
bool loggingOnAppUni(const char* handle, int level);

// Writes one line when loggingOnAppUni(handle, level); `file` and `line` name the caller.
void logAppUni(const char* handle, const char* file, int level, int line, const char* format, ...)
    __attribute__((format(printf, 5, 6)));

namespace fw {

enum LogLevel { kLogError = 2, kLogNotable = 4, kLogTrace = 5, kLogDetail = 6 };

struct LogRecord {
  std::string handle;
  std::string file;
  int level = 0;
  int line = 0;
  std::string text;
};

class LogSink {
 public:
  virtual ~LogSink();
  virtual void write(const LogRecord& record) = 0;
};

// Writes "LEVEL handle file:line text" lines to stderr.
class StderrSink : public LogSink {
 public:
  void write(const LogRecord& record) override;
};

// Appends the same lines to a file; throws std::runtime_error when it cannot be opened.
class FileSink : public LogSink {
 public:
  explicit FileSink(const std::string& path);
  ~FileSink() override;
  void write(const LogRecord& record) override;

 private:
  std::FILE* m_file;
};

// Keeps every record in memory for tests.
class MemorySink : public LogSink {
 public:
  void write(const LogRecord& record) override;
  std::vector<LogRecord> records() const;
  // True when some record's text contains `needle` (and, if given, has that level).
  bool contains(const std::string& needle, int level = -1) const;
  void clear();

 private:
  mutable Mutex m_mutex;  // leaf lock
  std::vector<LogRecord> m_records GUARDED_BY(m_mutex);
};

// Run-time configuration of the logger.
void setLogThreshold(const std::string& handle, int level);
void setDefaultLogThreshold(int level);
int logThreshold(const std::string& handle);
// Parses "Journal Service=6, Journal Service Events=5, *=4" (a "*" sets the default).
// Returns false and leaves the thresholds unchanged on a malformed text, naming the fault in `error`.
bool setLogThresholds(const std::string& spec, std::string* error);
// Replaces the sink; a null sink restores stderr. Returns the previous sink.
std::shared_ptr<LogSink> setLogSink(std::shared_ptr<LogSink> sink);

}  // namespace fw

#pragma GCC visibility pop
