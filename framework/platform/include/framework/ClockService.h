// The phone's clock: local time of day, date, time in seconds, and the time-and-date text of
// journal entries ("%04d-%02d-%02dT%02d:%02d:%02d", e.g. "2024-03-05T07:08:09").
//
// SystemClockService reads the system clock in local time. SettableClockService runs on a
// ManualTimeSource: its time is a local wall-clock time set by the caller plus the time the source
// has advanced since, computed without the machine's time zone, so tests and trace replay give the
// same texts everywhere. Both are thread-safe.
#pragma once

#include <cstdint>
#include <string>

#include "framework/Executable.h"
#include "framework/Mutex.h"
#include "framework/TimeSource.h"

#pragma GCC visibility push(default)

class ClockServiceIfc {
 public:
  virtual ~ClockServiceIfc();
  virtual void getCurrentTime(int& hour, int& minute, int& second) = 0;
  // Reads the time of day of a text written by formatTimeDate; all zero for another text.
  virtual void getTimeFromString(const std::string& text, int& hour, int& minute, int& second) = 0;
  // Seconds since 1970-01-01T00:00:00 of the phone's local time.
  virtual long getCurrentTimeSec() = 0;
  virtual void getCurrentDate(int& day, int& month, int& year) = 0;
  // Reads the date of a text written by formatTimeDate; all zero for another text.
  virtual void getDateFromString(const std::string& text, int& day, int& month, int& year) = 0;
  virtual std::string formatTimeDate(long seconds) = 0;
};

namespace fw {

struct CivilTime {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
};

// Calendar arithmetic without time zones (proleptic Gregorian, seconds since 1970-01-01).
CivilTime civilFromSeconds(int64_t seconds);
int64_t secondsFromCivil(const CivilTime& civil);
std::string formatCivil(const CivilTime& civil);
// Parses exactly "YYYY-MM-DDThh:mm:ss" (trailing text is refused); false leaves `civil` unchanged.
bool parseCivil(const std::string& text, CivilTime& civil);

}  // namespace fw

// Shared parse and format code of both clocks; subclasses say what "now" is.
class ClockServiceBase : public Service, public ClockServiceIfc {
 public:
  void getCurrentTime(int& hour, int& minute, int& second) override;
  void getTimeFromString(const std::string& text, int& hour, int& minute, int& second) override;
  void getCurrentDate(int& day, int& month, int& year) override;
  void getDateFromString(const std::string& text, int& day, int& month, int& year) override;
  std::string formatTimeDate(long seconds) override;

 protected:
  virtual fw::CivilTime nowCivil() = 0;
};

class SystemClockService : public ClockServiceBase {
 public:
  long getCurrentTimeSec() override;

 protected:
  fw::CivilTime nowCivil() override;
};

class SettableClockService : public ClockServiceBase {
 public:
  // Starts at `localTime` ("YYYY-MM-DDThh:mm:ss"; 2000-01-01T00:00:00 when empty or malformed).
  explicit SettableClockService(fw::ManualTimeSource& time, const std::string& localTime = "");
  // Moves the wall clock to `localTime` at the source's current instant; false for a bad text.
  bool setLocalTime(const std::string& localTime);
  long getCurrentTimeSec() override;

 protected:
  fw::CivilTime nowCivil() override;

 private:
  int64_t nowSeconds();

  fw::ManualTimeSource& m_time;
  fw::Mutex m_mutex;  // leaf; guards the two anchors
  int64_t m_anchorSeconds GUARDED_BY(m_mutex) = 0;
  int64_t m_anchorMs GUARDED_BY(m_mutex) = 0;
};

#pragma GCC visibility pop
