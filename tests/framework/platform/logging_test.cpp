// Log thresholds per handle, the run-time configuration text, and the sinks.
#include <gtest/gtest.h>

#include <unistd.h>
#include <cstdio>
#include <fstream>
#include <sstream>
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

TEST_F(LoggingTest, FileSinkAppendsLines) {
  const std::string path = ::testing::TempDir() + "journal-log-" + std::to_string(getpid());
  std::ofstream(path) << "earlier\n";
  fw::setLogSink(std::make_shared<fw::FileSink>(path));
  logAppUni("Journal Service", "a/Journal.cpp", 2, 7, "first %d", 1);
  logAppUni("Journal Service", "a/Journal.cpp", 4, 8, "second");
  fw::setLogSink(m_sink);  // closes the file
  std::stringstream content;
  content << std::ifstream(path).rdbuf();
  std::remove(path.c_str());
  EXPECT_EQ(content.str(),
            "earlier\n<2> Journal Service Journal.cpp:7 first 1\n<4> Journal Service Journal.cpp:8 second\n");
  EXPECT_THROW(fw::FileSink("/nonexistent-dir/x.log"), std::runtime_error);
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
