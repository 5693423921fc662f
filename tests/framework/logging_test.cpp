// Log thresholds per handle, the run-time configuration text, and the sinks.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>
#include <unistd.h>

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

TEST_F(LoggingTest, ThresholdPerHandleDecidesWhatIsWritten) {
  fw::setLogThreshold("Journal Service", 5);
  EXPECT_TRUE(loggingOnAppUni("Journal Service", 5));
  EXPECT_FALSE(loggingOnAppUni("Journal Service", 6));
  EXPECT_TRUE(loggingOnAppUni("Unconfigured", 4));  // default threshold 4
  EXPECT_FALSE(loggingOnAppUni("Unconfigured", 5));

  logAppUni("Journal Service", "/some/dir/File.cpp", 5, 12, "%s():value %d", "fn", 42);
  logAppUni("Journal Service", "/some/dir/File.cpp", 6, 13, "too detailed");
  auto records = m_sink->records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].text, "fn():value 42");
  EXPECT_EQ(records[0].handle, "Journal Service");
  EXPECT_EQ(records[0].file, "File.cpp");
  EXPECT_EQ(records[0].line, 12);
  EXPECT_EQ(records[0].level, 5);
}

TEST_F(LoggingTest, ConfigurationTextSetsSeveralHandlesAtOnce) {
  std::string error;
  ASSERT_TRUE(fw::setLogThresholds("Journal Service=6, Journal Service Events = 2 ,*=3", &error)) << error;
  EXPECT_EQ(fw::logThreshold("Journal Service"), 6);
  EXPECT_EQ(fw::logThreshold("Journal Service Events"), 2);
  EXPECT_EQ(fw::logThreshold("anything else"), 3);

  for (const char* bad : {"Journal Service", "=5", "Journal Service=x", "Journal Service=12", "a=1,b"}) {
    EXPECT_FALSE(fw::setLogThresholds(bad, &error)) << bad;
    EXPECT_NE(error.find("expected 'handle=level'"), std::string::npos) << error;
  }
  EXPECT_EQ(fw::logThreshold("Journal Service"), 6);  // a refused text changes nothing
  EXPECT_EQ(fw::logThreshold("a"), 3);
}

TEST_F(LoggingTest, LongLinesAreKeptWhole) {
  std::string longText(5000, 'x');
  logAppUni("Journal Service", __FILE__, 2, __LINE__, "%s|end", longText.c_str());
  auto records = m_sink->records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].text, longText + "|end");
}

TEST_F(LoggingTest, FileSinkAppendsLines) {
  char path[] = "/tmp/journal-log-XXXXXX";
  int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  close(fd);
  fw::setLogSink(std::make_shared<fw::FileSink>(path));
  logAppUni("Journal Service", "a/Journal.cpp", 2, 7, "first %d", 1);
  logAppUni("Journal Service", "a/Journal.cpp", 4, 8, "second");
  fw::setLogSink(m_sink);  // closes the file
  std::ifstream in(path);
  std::stringstream content;
  content << in.rdbuf();
  std::remove(path);
  EXPECT_EQ(content.str(), "<2> Journal Service Journal.cpp:7 first 1\n<4> Journal Service Journal.cpp:8 second\n");
  EXPECT_THROW(fw::FileSink("/nonexistent-dir/x.log"), std::runtime_error);
}

TEST_F(LoggingTest, ManyThreadsLogWithoutLosingLines) {
  constexpr int kThreads = 4, kLines = 500;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kLines; ++i) {
        logAppUni("Journal Service", __FILE__, 2, __LINE__, "thread %d line %d", t, i);
        if (i % 100 == 0) fw::setLogThreshold("Journal Service Events", i % 7);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(m_sink->records().size(), static_cast<size_t>(kThreads * kLines));
}

}  // namespace
