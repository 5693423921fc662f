// The daemon benchmark (bench/daemon_bench.cpp) on a few calls, as scripts/bench.sh runs it: it
// starts the real daemon and switch simulator, its own checks pass (the lists a client reads are
// the stored rows, one list update per call) and it prints every row's minimum and median. Built
// only with the benchmarks; no figure is judged here.
#include <gtest/gtest.h>

#include <regex>
#include <sstream>
#include <string>

#include "Subprocess.h"

namespace {

#ifdef DAEMON_BENCH_PATH

TEST(DaemonBench, RunsOnTheRealDaemonWithItsChecksPassedAndPrintsEveryRow) {
  const Subprocess::Result run = Subprocess::run({DAEMON_BENCH_PATH, "--calls=8", "--raw-seconds=0.1"}, 120000);
  ASSERT_EQ(0, run.code) << run.out << run.err;
  // "<what> [<unit>]  <min>  <median>  [<= or >= <target>  met or NOT MET]"
  const std::regex row(R"(^ *\S.* +([0-9]+\.[0-9]{2,3}) +([0-9]+\.[0-9]{2,3})( +(<=|>=) +[0-9.]+ +(met|NOT MET))?$)");
  std::istringstream lines(run.out);
  int rows = 0, withTarget = 0, repetitions = 0;
  for (std::string line; std::getline(lines, line);) {
    std::smatch match;
    if (line.rfind("rep 1: start ", 0) == 0) ++repetitions;
    if (!std::regex_match(line, match, row)) continue;
    ++rows;
    withTarget += match[3].matched;
    EXPECT_EQ(match[1].str(), match[2].str()) << line;  // one repetition: its minimum is its median
  }
  EXPECT_EQ(1, repetitions) << run.out;
  EXPECT_EQ(14, rows) << run.out;
  EXPECT_EQ(10, withTarget) << run.out;
}

#endif

}  // namespace
