#include "framework/ClockService.h"

#include <cctype>
#include <cstdio>
#include <ctime>

#include "framework/Logging.h"

ClockServiceIfc::~ClockServiceIfc() = default;

namespace fw {
namespace {

const int64_t kSecondsPerDay = 86400;
const char* const kDefaultLocalTime = "2000-01-01T00:00:00";

int64_t floorDiv(int64_t value, int64_t divisor) {
  int64_t quotient = value / divisor;
  if ((value % divisor != 0) && ((value < 0) != (divisor < 0))) --quotient;
  return quotient;
}

// Days since 1970-01-01 of a proleptic Gregorian date. Years are counted in 400-year eras that
// start on March 1st, so that the leap day is the last day of a counted year.
int64_t daysFromCivil(int64_t year, int month, int day) {
  year -= month <= 2 ? 1 : 0;
  const int64_t era = floorDiv(year, 400);
  const int64_t yearOfEra = year - era * 400;                                               // [0, 399]
  const int64_t dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;  // [0, 365]
  const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;   // [0, 146096]
  return era * 146097 + dayOfEra - 719468;
}

void civilFromDays(int64_t days, CivilTime& civil) {
  days += 719468;
  const int64_t era = floorDiv(days, 146097);
  const int64_t dayOfEra = days - era * 146097;
  const int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const int64_t shiftedMonth = (5 * dayOfYear + 2) / 153;  // 0 = March
  civil.day = static_cast<int>(dayOfYear - (153 * shiftedMonth + 2) / 5 + 1);
  civil.month = static_cast<int>(shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9);
  civil.year = static_cast<int>(yearOfEra + era * 400 + (civil.month <= 2 ? 1 : 0));
}

bool isLeapYear(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int daysInMonth(int year, int month) {
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && isLeapYear(year) ? 29 : kDays[month - 1];
}

// Reads the decimal number at text[pos, pos + width); every character must be a digit.
bool readDigits(const std::string& text, size_t pos, size_t width, int& number) {
  number = 0;
  for (size_t i = pos; i < pos + width; ++i) {
    if (!std::isdigit(static_cast<unsigned char>(text[i]))) return false;
    number = number * 10 + (text[i] - '0');
  }
  return true;
}

bool hasSeparators(const std::string& text) {
  return text[4] == '-' && text[7] == '-' && text[10] == 'T' && text[13] == ':' && text[16] == ':';
}

bool isValidCivil(const CivilTime& c) {
  return c.month >= 1 && c.month <= 12 && c.day >= 1 && c.day <= daysInMonth(c.year, c.month) && c.hour <= 23 &&
         c.minute <= 59 && c.second <= 59;
}

}  // namespace

CivilTime civilFromSeconds(int64_t seconds) {
  CivilTime civil;
  const int64_t days = floorDiv(seconds, kSecondsPerDay);
  const int64_t secondOfDay = seconds - days * kSecondsPerDay;
  civilFromDays(days, civil);
  civil.hour = static_cast<int>(secondOfDay / 3600);
  civil.minute = static_cast<int>(secondOfDay % 3600 / 60);
  civil.second = static_cast<int>(secondOfDay % 60);
  return civil;
}

int64_t secondsFromCivil(const CivilTime& civil) {
  return daysFromCivil(civil.year, civil.month, civil.day) * kSecondsPerDay + civil.hour * 3600LL +
         civil.minute * 60LL + civil.second;
}

std::string formatCivil(const CivilTime& civil) {
  char text[80];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", civil.year, civil.month, civil.day, civil.hour,
                civil.minute, civil.second);
  return text;
}

bool parseCivil(const std::string& text, CivilTime& civil) {
  if (text.size() != 19 || !hasSeparators(text)) return false;
  CivilTime parsed;
  if (!readDigits(text, 0, 4, parsed.year) || !readDigits(text, 5, 2, parsed.month) ||
      !readDigits(text, 8, 2, parsed.day) || !readDigits(text, 11, 2, parsed.hour) ||
      !readDigits(text, 14, 2, parsed.minute) || !readDigits(text, 17, 2, parsed.second))
    return false;
  if (!isValidCivil(parsed)) return false;
  civil = parsed;
  return true;
}

}  // namespace fw

namespace {

// The fields of a text written by formatTimeDate; all zero for a text that does not parse.
fw::CivilTime parsedOrZero(const std::string& text) {
  fw::CivilTime parsed;
  fw::parseCivil(text, parsed);
  return parsed;
}

void timeOfDay(const fw::CivilTime& civil, int& hour, int& minute, int& second) {
  hour = civil.hour;
  minute = civil.minute;
  second = civil.second;
}

void dateOf(const fw::CivilTime& civil, int& day, int& month, int& year) {
  day = civil.day;
  month = civil.month;
  year = civil.year;
}

}  // namespace

void ClockServiceBase::getCurrentTime(int& hour, int& minute, int& second) {
  timeOfDay(nowCivil(), hour, minute, second);
}

void ClockServiceBase::getTimeFromString(const std::string& text, int& hour, int& minute, int& second) {
  timeOfDay(parsedOrZero(text), hour, minute, second);
}

void ClockServiceBase::getCurrentDate(int& day, int& month, int& year) { dateOf(nowCivil(), day, month, year); }

void ClockServiceBase::getDateFromString(const std::string& text, int& day, int& month, int& year) {
  dateOf(parsedOrZero(text), day, month, year);
}

// Both clocks count local wall-clock seconds (see getCurrentTimeSec), so the text is the plain
// calendar reading of `seconds` with no time-zone conversion.
std::string ClockServiceBase::formatTimeDate(long seconds) { return fw::formatCivil(fw::civilFromSeconds(seconds)); }

// The seconds are those of the local wall-clock reading taken as if it were UTC, not the POSIX
// time: formatTimeDate(getCurrentTimeSec()) then shows the local time without knowing the zone,
// and differences between two readings are plain elapsed seconds except across a change of the
// zone's offset (daylight saving).
long SystemClockService::getCurrentTimeSec() { return static_cast<long>(fw::secondsFromCivil(nowCivil())); }

fw::CivilTime SystemClockService::nowCivil() {
  std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  fw::CivilTime civil;
  civil.year = local.tm_year + 1900;
  civil.month = local.tm_mon + 1;
  civil.day = local.tm_mday;
  civil.hour = local.tm_hour;
  civil.minute = local.tm_min;
  civil.second = local.tm_sec > 59 ? 59 : local.tm_sec;  // a leap second reads as :59
  return civil;
}

SettableClockService::SettableClockService(fw::ManualTimeSource& time, const std::string& localTime)
    : m_time(time), m_anchorMs(time.nowMs()) {
  fw::CivilTime start;
  if (!fw::parseCivil(localTime, start)) {
    if (!localTime.empty())
      logAppUni("Framework", __FILE__, fw::kLogError, __LINE__, "clock: malformed start time '%s', starting at %s",
                localTime.c_str(), fw::kDefaultLocalTime);
    fw::parseCivil(fw::kDefaultLocalTime, start);
  }
  m_anchorSeconds = fw::secondsFromCivil(start);
}

bool SettableClockService::setLocalTime(const std::string& localTime) {
  fw::CivilTime civil;
  if (!fw::parseCivil(localTime, civil)) return false;
  const int64_t nowMs = m_time.nowMs();  // read outside m_mutex, which stays a leaf
  fw::MutexLock guard(m_mutex);
  m_anchorSeconds = fw::secondsFromCivil(civil);
  m_anchorMs = nowMs;
  return true;
}

long SettableClockService::getCurrentTimeSec() { return static_cast<long>(nowSeconds()); }

fw::CivilTime SettableClockService::nowCivil() { return fw::civilFromSeconds(nowSeconds()); }

int64_t SettableClockService::nowSeconds() {
  int64_t anchorSeconds, anchorMs;
  {
    fw::MutexLock guard(m_mutex);
    anchorSeconds = m_anchorSeconds;
    anchorMs = m_anchorMs;
  }
  // Read after the anchors: the source never goes back, so the elapsed time is never negative.
  const int64_t elapsedMs = m_time.nowMs() - anchorMs;
  return anchorSeconds + fw::floorDiv(elapsedMs, 1000);
}
