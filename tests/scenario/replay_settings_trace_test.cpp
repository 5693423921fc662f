// A trace sets what a recording needs: the journal's own settings (call log on or off, missed
// logging, delete missed when called), with the effect of a client's change, and a phonebook
// found beside the trace file. Replayed by `calljournal replay` from another directory and in
// this process, which must agree.
#include <unistd.h>

#include "TraceDay.h"

namespace {

using namespace scenario;

class ReplaySettings : public TraceDay, public ::testing::WithParamInterface<std::string> {
 protected:
  // calljournal runs in the test's temporary directory, away from the trace and its phonebook.
  void SetUp() override {
    TraceDay::SetUp();
    ASSERT_EQ(getcwd(previous, sizeof previous), previous);
    ASSERT_EQ(chdir(dir.c_str()), 0);
  }
  void TearDown() override {
    ASSERT_EQ(chdir(previous), 0);
    TraceDay::TearDown();
  }
  char previous[4096] = {0};
};

TEST_P(ReplaySettings, OfTheJournalAndThePhonebookTakeEffect) {
  // Finn is named by the phonebook; calling him back took his missed entry away (on KPX a talked
  // call does so anyway); on SIP the call another device answered is no longer logged as missed.
  const Lines expected = GetParam() == kSip
                             ? Lines{R"(dialled "Finn Holm" <3444> 09:30:00)"}
                             : Lines{R"(missed "Gus" <3445> 10:05:00)", R"(dialled "Finn Holm" <3444> 09:30:00)"};
  EXPECT_EQ(replayBoth("replay-settings.xml", GetParam()), expected);
}

TEST_P(ReplaySettings, CallLogOffEmptiesTheLists) {
  EXPECT_EQ(replayBoth("call-log-off.xml", GetParam()), (Lines{R"(missed "Ivo" <3447> 11:00:00)"}));
}

INSTANTIATE_TEST_SUITE_P(Both, ReplaySettings, ::testing::Values(kKpx, kSip), flavourName);

}  // namespace
