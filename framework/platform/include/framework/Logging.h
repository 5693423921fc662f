// Logging of the framework and of every module it loads.
//
// A log line carries a handle (the subsystem, e.g. "Journal Service"), a level (2 error,
// 4 notable event, 5 trace of operations, 6 detail) and printf-style text. Each handle has a
// threshold, set at run time; a line is written when its level is at or below the threshold of
// its handle (handles without their own threshold use the default threshold, 4).
//
// Lines go to one sink at a time: stderr (the default), a file, or a MemorySink that tests read.
// Stderr read by the service manager's journal (JOURNAL_STREAM names it) gets a syslog priority
// prefix per line ("<3>" error, "<5>" notable event, "<7>" trace and detail), which the journal
// keeps as the line's priority; on a terminal, a pipe or in a file each line starts with the
// local time (ISO 8601 with milliseconds and offset) and a level word.
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

// Writes "<PRIORITY>handle file:line text" lines to stderr when the service manager's journal
// reads it, else "TIME LEVEL handle file:line text" (decided when the sink is made).
class StderrSink : public LogSink {
 public:
  StderrSink();
  void write(const LogRecord& record) override;

 private:
  bool m_journal;
};

// Appends "TIME LEVEL handle file:line text" lines to a file, opened (created when missing) for
// appending; throws std::runtime_error when it cannot be opened. A log rotation renames the file
// and has the owner make a new sink for the path.
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

// The syslog priority journald files a line of `level` under: 3 error, 5 notice, 7 debug.
int syslogPriority(int level);
// "error", "warning", "notice", "trace" or "detail".
const char* levelWord(int level);
// True when JOURNAL_STREAM names the device and inode of the file open as `fd`: the service
// manager's journal reads what is written to it.
bool streamIsJournal(int fd);
// `epochMs` (milliseconds since the epoch) as local time: "2026-03-02T09:15:04.250+01:00".
std::string localTimeStamp(long long epochMs);

// Run-time configuration of the logger.
void setLogThreshold(const std::string& handle, int level);
void setDefaultLogThreshold(int level);
int logThreshold(const std::string& handle);
// Parses "Journal Service=6, Journal Service Events=5, *=4" (a "*" sets the default).
// Returns false and leaves the thresholds unchanged on a malformed text, naming the fault in `error`.
bool setLogThresholds(const std::string& spec, std::string* error);
// Whether setLogThresholds would take `spec`; false naming the fault in `error`. Changes nothing.
bool checkLogThresholds(const std::string& spec, std::string* error);
// Replaces the sink; a null sink restores stderr. Returns the previous sink.
std::shared_ptr<LogSink> setLogSink(std::shared_ptr<LogSink> sink);

}  // namespace fw

#pragma GCC visibility pop
