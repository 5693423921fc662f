#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <vector>

#include "framework/ClockService.h"
#include "framework/TimeSource.h"

namespace {

using fw::CivilTime;

const int64_t kHourMs = 3600 * 1000;

void expectSameCivil(const CivilTime& actual, const CivilTime& expected) {
  EXPECT_EQ(actual.year, expected.year);
  EXPECT_EQ(actual.month, expected.month);
  EXPECT_EQ(actual.day, expected.day);
  EXPECT_EQ(actual.hour, expected.hour);
  EXPECT_EQ(actual.minute, expected.minute);
  EXPECT_EQ(actual.second, expected.second);
}

// gmtime_r is an independent reading of the same calendar (time_t is 64 bits here).
CivilTime civilFromGmtime(int64_t seconds) {
  std::time_t t = static_cast<std::time_t>(seconds);
  std::tm tm{};
  gmtime_r(&t, &tm);
  CivilTime civil;
  civil.year = tm.tm_year + 1900;
  civil.month = tm.tm_mon + 1;
  civil.day = tm.tm_mday;
  civil.hour = tm.tm_hour;
  civil.minute = tm.tm_min;
  civil.second = tm.tm_sec;
  return civil;
}

// ---- Calendar arithmetic and the time-and-date text ----

struct KnownInstant {
  const char* text;
  int64_t seconds;
};

// Reference points: epoch, its eve, leap days (2024 is a leap year, 1600 is, 2100 and 1900 are
// not), and the first second past the signed 32-bit range.
const KnownInstant kKnownInstants[] = {
    {"1970-01-01T00:00:00", 0},
    {"1969-12-31T23:59:59", -1},
    {"2000-01-01T00:00:00", 946684800},
    {"2024-02-29T12:34:56", 1709210096},
    {"1900-03-01T00:00:00", -2203891200},
    {"2100-03-01T00:00:00", 4107542400},
    {"1600-02-29T06:00:00", -11670976800},
    {"2038-01-19T03:14:08", 2147483648},
};

TEST(CivilTime, KnownInstantsConvertBothWays) {
  for (const auto& known : kKnownInstants) {
    SCOPED_TRACE(known.text);
    EXPECT_EQ(fw::formatCivil(fw::civilFromSeconds(known.seconds)), known.text);
    CivilTime parsed;
    ASSERT_TRUE(fw::parseCivil(known.text, parsed));
    EXPECT_EQ(fw::secondsFromCivil(parsed), known.seconds);
  }
}

TEST(CivilTime, AgreesWithGmtimeAcrossFourCenturies) {
  // From 1801 to 2199 with a step that visits every hour, minute and second value in turn.
  const int64_t first = -5333126400;  // 1801-01-01T00:00:00
  const int64_t last = 7258118400;    // 2200-01-01T00:00:00
  const int64_t step = 86400 * 3 + 3600 * 5 + 60 * 7 + 11;
  for (int64_t seconds = first; seconds < last; seconds += step) {
    CivilTime civil = fw::civilFromSeconds(seconds);
    expectSameCivil(civil, civilFromGmtime(seconds));
    ASSERT_EQ(fw::secondsFromCivil(civil), seconds) << fw::formatCivil(civil);
    CivilTime parsed;
    ASSERT_TRUE(fw::parseCivil(fw::formatCivil(civil), parsed)) << fw::formatCivil(civil);
    ASSERT_EQ(fw::secondsFromCivil(parsed), seconds);
  }
}

TEST(CivilTime, EveryDayOfLeapAndCommonYearsFollowsTheDayBefore) {
  // Each midnight is one calendar day after the previous one: the day goes up by one, or a new
  // month (or year) starts on the 1st after the month's last day.
  const int64_t start = fw::secondsFromCivil({1999, 12, 31, 0, 0, 0});
  CivilTime previous = fw::civilFromSeconds(start);
  for (int64_t day = 1; day <= 366 * 2; ++day) {
    CivilTime civil = fw::civilFromSeconds(start + day * 86400);
    bool nextDay = civil.year == previous.year && civil.month == previous.month && civil.day == previous.day + 1;
    bool nextMonth = civil.day == 1 && ((civil.year == previous.year && civil.month == previous.month + 1) ||
                                        (civil.year == previous.year + 1 && civil.month == 1 && previous.month == 12));
    ASSERT_TRUE(nextDay || nextMonth) << fw::formatCivil(previous) << " -> " << fw::formatCivil(civil);
    previous = civil;
  }
  int daysInFebruary2024 = 0;
  for (int64_t day = 0; day < 40; ++day) {
    CivilTime civil = fw::civilFromSeconds(fw::secondsFromCivil({2024, 2, 1, 0, 0, 0}) + day * 86400);
    if (civil.month == 2) ++daysInFebruary2024;
  }
  EXPECT_EQ(daysInFebruary2024, 29);
}

TEST(CivilTime, NegativeSecondsRoundDownToThePreviousDay) {
  expectSameCivil(fw::civilFromSeconds(-86400), {1969, 12, 31, 0, 0, 0});
  expectSameCivil(fw::civilFromSeconds(-86401), {1969, 12, 30, 23, 59, 59});
  expectSameCivil(fw::civilFromSeconds(-1), {1969, 12, 31, 23, 59, 59});
}

TEST(CivilTime, ParseAcceptsTheBoundariesOfEveryField) {
  CivilTime civil;
  EXPECT_TRUE(fw::parseCivil("2023-12-31T23:59:59", civil));
  expectSameCivil(civil, {2023, 12, 31, 23, 59, 59});
  EXPECT_TRUE(fw::parseCivil("2024-01-01T00:00:00", civil));
  expectSameCivil(civil, {2024, 1, 1, 0, 0, 0});
  EXPECT_TRUE(fw::parseCivil("2000-02-29T00:00:00", civil));  // divisible by 400: leap year
  EXPECT_TRUE(fw::parseCivil("2023-04-30T00:00:00", civil));
}

TEST(CivilTime, ParseRefusesMalformedTextsAndLeavesTheResultAlone) {
  const std::vector<std::string> refused = {
      "2024-02-30T00:00:00",   // no such day
      "2023-02-29T00:00:00",   // not a leap year
      "1900-02-29T00:00:00",   // century, not a leap year
      "2023-04-31T00:00:00",   // April has 30 days
      "2024-3-05T07:08:09",    // digits missing
      "2024-03-05T07:08:09Z",  // trailing text
      "2024-03-05T07:08:09 ",  // trailing blank
      " 2024-03-05T07:08:0",   // leading blank, right length
      "2024-03-05 07:08:09",   // wrong separator
      "2024/03/05T07:08:09",
      "2024-0a-05T07:08:09",   // letter in a digit place
      "abcd-ef-ghTij:kl:mn",
      "2024-+3-05T07:08:09",
      "2024-00-05T07:08:09",
      "2024-13-05T07:08:09",
      "2024-03-00T07:08:09",
      "2024-03-05T24:00:00",
      "2024-03-05T23:60:00",
      "2024-03-05T23:59:60",
      "",
  };
  const CivilTime before{1111, 2, 3, 4, 5, 6};
  for (const auto& text : refused) {
    SCOPED_TRACE("'" + text + "'");
    CivilTime civil = before;
    EXPECT_FALSE(fw::parseCivil(text, civil));
    expectSameCivil(civil, before);
  }
}

// ---- SettableClockService ----

std::string nowText(SettableClockService& clock) { return clock.formatTimeDate(clock.getCurrentTimeSec()); }

TEST(SettableClock, StartsAtTheGivenLocalTime) {
  fw::ManualTimeSource source(123456);
  SettableClockService clock(source, "2024-03-05T07:08:09");
  EXPECT_EQ(nowText(clock), "2024-03-05T07:08:09");
  int hour = -1, minute = -1, second = -1, day = -1, month = -1, year = -1;
  clock.getCurrentTime(hour, minute, second);
  clock.getCurrentDate(day, month, year);
  EXPECT_EQ(hour, 7);
  EXPECT_EQ(minute, 8);
  EXPECT_EQ(second, 9);
  EXPECT_EQ(day, 5);
  EXPECT_EQ(month, 3);
  EXPECT_EQ(year, 2024);
}

TEST(SettableClock, StartsAtTheTurnOf2000WithoutAUsableText) {
  fw::ManualTimeSource source;
  SettableClockService unset(source);
  SettableClockService malformed(source, "2024-02-30T00:00:00");
  EXPECT_EQ(nowText(unset), "2000-01-01T00:00:00");
  EXPECT_EQ(nowText(malformed), "2000-01-01T00:00:00");
}

TEST(SettableClock, FollowsTheTimeSource) {
  fw::ManualTimeSource source(5000);
  SettableClockService clock(source, "2024-01-31T23:30:00");
  source.advance(kHourMs);
  EXPECT_EQ(nowText(clock), "2024-02-01T00:30:00");  // across midnight and a month end
  source.advance(28 * 24 * kHourMs);
  EXPECT_EQ(nowText(clock), "2024-02-29T00:30:00");  // leap day
  source.advance(24 * kHourMs);
  EXPECT_EQ(nowText(clock), "2024-03-01T00:30:00");
}

TEST(SettableClock, CountsOnlyWholeElapsedSeconds) {
  fw::ManualTimeSource source(700);
  SettableClockService clock(source, "2023-12-31T23:59:59");
  source.advance(999);
  EXPECT_EQ(nowText(clock), "2023-12-31T23:59:59");
  source.advance(1);
  EXPECT_EQ(nowText(clock), "2024-01-01T00:00:00");  // across a year end
  source.advance(1999);
  EXPECT_EQ(nowText(clock), "2024-01-01T00:00:01");
}

TEST(SettableClock, SetLocalTimeMovesTheClockFromTheCurrentInstant) {
  fw::ManualTimeSource source;
  SettableClockService clock(source, "2024-03-05T07:08:09");
  source.advance(10 * kHourMs + 500);
  ASSERT_TRUE(clock.setLocalTime("1999-12-31T23:00:00"));
  EXPECT_EQ(nowText(clock), "1999-12-31T23:00:00");
  source.advance(kHourMs);
  EXPECT_EQ(nowText(clock), "2000-01-01T00:00:00");
}

TEST(SettableClock, SetLocalTimeRefusesABadTextAndKeepsRunning) {
  fw::ManualTimeSource source;
  SettableClockService clock(source, "2024-03-05T07:08:09");
  source.advance(60 * 1000);
  EXPECT_FALSE(clock.setLocalTime("2024-03-05T07:08"));
  EXPECT_FALSE(clock.setLocalTime("yesterday"));
  EXPECT_EQ(nowText(clock), "2024-03-05T07:09:09");
  source.advance(60 * 1000);
  EXPECT_EQ(nowText(clock), "2024-03-05T07:10:09");
}

TEST(SettableClock, FieldsReadFromAFormattedTimeAreThoseOfTheInstant) {
  fw::ManualTimeSource source;
  SettableClockService clock(source);
  for (int64_t seconds : {int64_t{0}, int64_t{-1}, int64_t{951782400}, int64_t{1709210096}, int64_t{4107542399}}) {
    std::string text = clock.formatTimeDate(static_cast<long>(seconds));
    SCOPED_TRACE(text);
    CivilTime expected = civilFromGmtime(seconds);
    int hour = -1, minute = -1, second = -1, day = -1, month = -1, year = -1;
    clock.getTimeFromString(text, hour, minute, second);
    clock.getDateFromString(text, day, month, year);
    expectSameCivil({year, month, day, hour, minute, second}, expected);
  }
}

TEST(SettableClock, FieldsOfAnUnreadableTextAreZero) {
  fw::ManualTimeSource source;
  SettableClockService clock(source);
  for (const char* text : {"", "garbage", "2024-02-30T00:00:00", "2024-03-05T07:08:09.5"}) {
    SCOPED_TRACE(text);
    int hour = 9, minute = 9, second = 9, day = 9, month = 9, year = 9;
    clock.getTimeFromString(text, hour, minute, second);
    clock.getDateFromString(text, day, month, year);
    EXPECT_EQ(hour, 0);
    EXPECT_EQ(minute, 0);
    EXPECT_EQ(second, 0);
    EXPECT_EQ(day, 0);
    EXPECT_EQ(month, 0);
    EXPECT_EQ(year, 0);
  }
}

// ---- SystemClockService ----

int64_t secondsOfFields(int year, int month, int day, int hour, int minute, int second) {
  return fw::secondsFromCivil({year, month, day, hour, minute, second});
}

struct TimeOfDay {
  int hour = -1, minute = -1, second = -1;
  bool operator==(const TimeOfDay& o) const { return hour == o.hour && minute == o.minute && second == o.second; }
};

TimeOfDay timeOfDay(ClockServiceIfc& clock) {
  TimeOfDay t;
  clock.getCurrentTime(t.hour, t.minute, t.second);
  return t;
}

// Readings taken between two equal times of day belong to the same second. A reading that
// straddles a clock tick is taken again; the tick itself is never waited for.
const int kAttempts = 100;

TEST(SystemClock, SecondsFormatAsTheLocalTimeAndDate) {
  SystemClockService clock;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    TimeOfDay before = timeOfDay(clock);
    int day = 0, month = 0, year = 0;
    clock.getCurrentDate(day, month, year);
    const long seconds = clock.getCurrentTimeSec();
    if (!(timeOfDay(clock) == before)) continue;

    const std::string text = clock.formatTimeDate(seconds);
    CivilTime parsed;
    ASSERT_TRUE(fw::parseCivil(text, parsed)) << text;
    expectSameCivil(parsed, {year, month, day, before.hour, before.minute, before.second});
    int textHour = -1, textMinute = -1, textSecond = -1, textDay = -1, textMonth = -1, textYear = -1;
    clock.getTimeFromString(text, textHour, textMinute, textSecond);
    clock.getDateFromString(text, textDay, textMonth, textYear);
    expectSameCivil({textYear, textMonth, textDay, textHour, textMinute, textSecond}, parsed);
    return;
  }
  FAIL() << "no two readings within one second in " << kAttempts << " attempts";
}

TEST(SystemClock, ReadsTheMachinesLocalTime) {
  SystemClockService clock;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const std::time_t before = std::time(nullptr);
    const long seconds = clock.getCurrentTimeSec();
    if (std::time(nullptr) != before) continue;
    std::tm local{};
    localtime_r(&before, &local);
    EXPECT_EQ(seconds, secondsOfFields(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                                       local.tm_hour, local.tm_min, local.tm_sec));
    return;
  }
  FAIL() << "no two readings within one second in " << kAttempts << " attempts";
}

}  // namespace
