#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <vector>

#include "framework/ClockService.h"
#include "framework/TimeSource.h"

namespace {

// gmtime_r is an independent reading of the same calendar (time_t is 64 bits here).
std::string gmtimeText(int64_t seconds) {
  const std::time_t t = static_cast<std::time_t>(seconds);
  std::tm tm{};
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", gmtime_r(&t, &tm));
  return text;
}

TEST(CivilTime, FormatAndParseRoundTripOverFourCenturiesAndMalformedTextsAreRefused) {
  // The epoch and its eve, year ends, leap days (1600 and 2024 are leap years, 1900 and 2100 are
  // not), past the signed 32-bit range; then 1801..2199 in steps visiting every hour, minute, second.
  std::vector<int64_t> instants = {0,          -1,          -86401,     946684799,    951782400,
                                   1709210096, -2203891200, 4107542400, -11670976800, 2147483648};
  for (int64_t s = -5333126400; s < 7258118400; s += 86400 * 3 + 3600 * 5 + 60 * 7 + 11) instants.push_back(s);
  for (int64_t seconds : instants) {
    const std::string text = fw::formatCivil(fw::civilFromSeconds(seconds));
    ASSERT_EQ(text, gmtimeText(seconds)) << seconds;
    fw::CivilTime parsed;
    ASSERT_TRUE(fw::parseCivil(text, parsed)) << text;
    ASSERT_EQ(fw::secondsFromCivil(parsed), seconds) << text;
  }
  for (const char* text : {"2024-02-30T00:00:00", "2023-02-29T00:00:00", "1900-02-29T00:00:00", "2023-04-31T00:00:00",
                           "2024-03-05T07:08:09Z", " 2024-03-05T07:08:0", "2024-03-05 07:08:09", "2024-0a-05T07:08:09",
                           "2024-+3-05T07:08:09", "2024-13-05T07:08:09", "2024-03-05T23:59:60"}) {
    fw::CivilTime civil{1111, 2, 3, 4, 5, 6};
    EXPECT_FALSE(fw::parseCivil(text, civil)) << text;
    EXPECT_EQ(fw::formatCivil(civil), "1111-02-03T04:05:06") << text;  // left alone
  }
}

// The fields `clock` reads from `text` (or of the current time, for none), written as a text.
std::string fieldsOf(ClockServiceIfc& clock, const char* text = nullptr) {
  int hour = -1, minute = -1, second = -1, day = -1, month = -1, year = -1;
  text ? clock.getTimeFromString(text, hour, minute, second) : clock.getCurrentTime(hour, minute, second);
  text ? clock.getDateFromString(text, day, month, year) : clock.getCurrentDate(day, month, year);
  return fw::formatCivil({year, month, day, hour, minute, second});
}

TEST(SettableClock, FollowsTheTimeSourceAndReadsItsOwnTexts) {
  const int64_t kHourMs = 3600 * 1000;
  fw::ManualTimeSource source(700);
  SettableClockService clock(source, "2023-12-31T23:59:59");
  auto now = [&] { return clock.formatTimeDate(clock.getCurrentTimeSec()); };
  source.advance(1999);
  EXPECT_EQ(now(), "2024-01-01T00:00:00");  // only whole seconds count
  ASSERT_TRUE(clock.setLocalTime("2024-01-31T23:30:00"));
  source.advance(kHourMs);
  EXPECT_EQ(now(), "2024-02-01T00:30:00");
  EXPECT_FALSE(clock.setLocalTime("2024-03-05T07:08"));
  source.advance(29 * 24 * kHourMs + 1000);
  EXPECT_EQ(now(), "2024-03-01T00:30:01");
  EXPECT_EQ(fieldsOf(clock), "2024-03-01T00:30:01");
  // Fields read back from a formatted time are those of the instant, and all zero for garbage.
  for (long seconds : {0L, -1L, 951782400L, 1709210096L, 4107542399L, -1000000000L})
    EXPECT_EQ(fieldsOf(clock, clock.formatTimeDate(seconds).c_str()), gmtimeText(seconds)) << seconds;
  for (const char* text : {"", "garbage", "2024-02-30T00:00:00", "2024-03-05T07:08:09.5"})
    EXPECT_EQ(fieldsOf(clock, text), "0000-00-00T00:00:00") << text;
}

// A reading that straddles a tick of the system clock is taken again; the tick is never waited for.
TEST(SystemClock, SecondsFieldsAndTextAgreeWithTheMachinesLocalTime) {
  SystemClockService clock;
  for (int attempt = 0; attempt < 100; ++attempt) {
    const std::time_t before = std::time(nullptr);
    const long seconds = clock.getCurrentTimeSec();
    const std::string fields = fieldsOf(clock);
    if (std::time(nullptr) != before) continue;
    std::tm local{};
    localtime_r(&before, &local);
    const std::string expected = fw::formatCivil(
        {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec});
    EXPECT_EQ(expected, clock.formatTimeDate(seconds));
    EXPECT_EQ(expected, fields);
    return;
  }
  FAIL() << "no two readings within one second in 100 attempts";
}

}  // namespace
