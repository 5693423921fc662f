// The client's text functions whose faults would pass unseen through the end-to-end tests: CSV
// fields and --since values. (The nearest command to a mistyped one is checked end to end.)
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "History.h"

namespace {

TEST(HistoryText, CsvFieldsAreQuotedOnlyWhereNeededAndNeverAFormula) {
  EXPECT_EQ("Ines Moreau", cli::csvField("Ines Moreau"));
  EXPECT_EQ("\"Reception, building B\"", cli::csvField("Reception, building B"));
  EXPECT_EQ("\"Tom \"\"TJ\"\" Jones\"", cli::csvField("Tom \"TJ\" Jones"));
  EXPECT_EQ("\"two\r\nlines\"", cli::csvField("two\r\nlines"));
  EXPECT_EQ("\"a\nb\"", cli::csvField("a\nb"));
  EXPECT_EQ("Maja Ekström", cli::csvField("Maja Ekström"));
  EXPECT_EQ("'=1+2", cli::csvField("=1+2"));
  EXPECT_EQ("'@SUM(A1)", cli::csvField("@SUM(A1)"));
  EXPECT_EQ("'-2", cli::csvField("-2"));
  EXPECT_EQ("\"'=A1,B1\"", cli::csvField("=A1,B1"));
  EXPECT_EQ("+4930555777", cli::csvField("+4930555777"));  // a number stays as the switch sent it
  EXPECT_EQ("'+1+2", cli::csvField("+1+2"));
  EXPECT_EQ("", cli::csvField(""));
}

TEST(HistoryText, SinceTakesDatesTimesAndSpans) {
  setenv("TZ", "UTC", 1);
  tzset();
  const std::time_t noon = 1773144000;  // 2026-03-10T12:00:00 UTC
  std::string since, error;
  ASSERT_TRUE(cli::parseSince("2026-03-10", noon, since, error));
  EXPECT_EQ("2026-03-10T00:00:00", since);
  ASSERT_TRUE(cli::parseSince("2026-03-10T08:05", noon, since, error));
  EXPECT_EQ("2026-03-10T08:05:00", since);
  ASSERT_TRUE(cli::parseSince("2024-02-29T23:59:59", noon, since, error));
  EXPECT_EQ("2024-02-29T23:59:59", since);
  ASSERT_TRUE(cli::parseSince("2h", noon, since, error));
  EXPECT_EQ("2026-03-10T10:00:00", since);
  ASSERT_TRUE(cli::parseSince("3d", noon, since, error));
  EXPECT_EQ("2026-03-07T12:00:00", since);
  ASSERT_TRUE(cli::parseSince("90m", noon, since, error));
  EXPECT_EQ("2026-03-10T10:30:00", since);
  for (const char* bad : {"", "2026-02-29", "2026-13-01", "2026-03-10T24:00", "2026-03-10T08:60", "2026-3-10",
                          "2026-03-10 08:00", "2026-03-10T08:00:00Z", "h", "2w", "-2h", "yesterday"}) {
    EXPECT_FALSE(cli::parseSince(bad, noon, since, error)) << bad;
  }
  EXPECT_EQ(
      "--since \"yesterday\" is no time: give a date YYYY-MM-DD, a time YYYY-MM-DDThh:mm[:ss] or a span back "
      "from now such as 30m, 2h or 3d",
      error);
  unsetenv("TZ");
  tzset();
}

}  // namespace
