// Log thresholds per handle, the run-time configuration text, and the time stamps. (The file sink
// and the syslog priorities on stderr are tested end to end: tests/e2e/config_e2e_test.cpp.)
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <thread>

#include "framework/Logging.h"

namespace {

class LoggingTest : public ::testing::Test {
 protected:
  void SetUp() override { m_previous = fw::setLogSink(m_sink); }
  void TearDown() override {
    fw::setLogSink(m_previous);
    fw::setDefaultLogThreshold(fw::kLogNotable);
    fw::setLogThreshold("Journal Service", fw::kLogNotable);
    fw::setLogThreshold("Journal Service Events", fw::kLogNotable);
  }
  std::shared_ptr<fw::MemorySink> m_sink = std::make_shared<fw::MemorySink>();
  std::shared_ptr<fw::LogSink> m_previous;
};

TEST_F(LoggingTest, ThresholdPerHandleDecidesWhatIsWrittenAndLongLinesAreKeptWhole) {
  fw::setLogThreshold("Journal Service", 5);
  EXPECT_TRUE(loggingOnAppUni("Journal Service", 5));
  EXPECT_FALSE(loggingOnAppUni("Journal Service", 6));
  EXPECT_TRUE(loggingOnAppUni("Unconfigured", 4));  // the default, 4
  EXPECT_FALSE(loggingOnAppUni("Unconfigured", 5));
  const std::string longText(5000, 'x');
  logAppUni("Journal Service", "/some/dir/File.cpp", 5, 12, "%s():value %d", "fn", 42);
  logAppUni("Journal Service", "/some/dir/File.cpp", 6, 13, "too detailed");
  logAppUni("Journal Service", "File.cpp", 2, 14, "%s|end", longText.c_str());
  const auto records = m_sink->records();
  ASSERT_EQ(records.size(), 2u);
  const fw::LogRecord& written = records[0];
  EXPECT_EQ("Journal Service", written.handle);
  EXPECT_EQ("File.cpp", written.file);  // without its directory
  EXPECT_EQ(12, written.line);
  EXPECT_EQ(5, written.level);
  EXPECT_EQ("fn():value 42", written.text);
  EXPECT_EQ(records[1].text, longText + "|end");
}

TEST_F(LoggingTest, ConfigurationTextSetsSeveralHandlesAtOnceAndARefusedTextChangesNothing) {
  std::string error;
  ASSERT_TRUE(fw::setLogThresholds("Journal Service=6, Journal Service Events = 2 ,*=3", &error)) << error;
  EXPECT_EQ(6, fw::logThreshold("Journal Service"));
  EXPECT_EQ(2, fw::logThreshold("Journal Service Events"));
  EXPECT_EQ(3, fw::logThreshold("anything else"));
  for (const char* bad : {"Journal Service", "=5", "Journal Service=x", "Journal Service=12", "a=1,b"}) {
    EXPECT_FALSE(fw::setLogThresholds(bad, &error)) << bad;
    EXPECT_NE(error.find("expected 'handle=level'"), std::string::npos) << error;
  }
  EXPECT_EQ(fw::logThreshold("Journal Service"), 6);
  EXPECT_EQ(fw::logThreshold("a"), 3);  // "a=1" was not taken
}

// The time stamp of log files and terminals: ISO 8601 local time, the offset with its colon.
TEST_F(LoggingTest, TimeStampsAreLocalTimeWithMillisecondsAndOffset) {
  const char* before = std::getenv("TZ");
  const std::string saved = before ? before : "";
  const long long epochMs = 1772439304050LL;  // 2026-03-02T08:15:04.050Z
  setenv("TZ", "CET-1", 1);
  tzset();
  EXPECT_EQ("2026-03-02T09:15:04.050+01:00", fw::localTimeStamp(epochMs));
  setenv("TZ", "EST5", 1);
  tzset();
  EXPECT_EQ("2026-03-02T03:15:04.050-05:00", fw::localTimeStamp(epochMs));
  if (before)
    setenv("TZ", saved.c_str(), 1);
  else
    unsetenv("TZ");
  tzset();
}

TEST_F(LoggingTest, ManyThreadsLogWithoutLosingLinesWhileThresholdsChange) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([t] {
      for (int i = 0; i < 500; ++i) {
        logAppUni("Journal Service", __FILE__, 2, __LINE__, "thread %d line %d", t, i);
        if (i % 100 == 0) fw::setLogThreshold("Journal Service Events", i % 7);
      }
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(m_sink->records().size(), 2000u);
}

}  // namespace
