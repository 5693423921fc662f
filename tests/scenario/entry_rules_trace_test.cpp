// How calls become entries, shown with recorded days (tests/data/traces) replayed on both switch
// flavours by `calljournal replay` and in this process: names kept on merges, numbers that are
// not there, the switch's times, conferences, the grouping of rebuilt entries and calls whose end
// never comes.
#include "LogCapture.h"
#include "TraceDay.h"

namespace {

using namespace scenario;

TEST_P(BothFlavours, DialledEntriesKeepTheNameTheSwitchSentOnceWhenMerged) {
  EXPECT_EQ(replayBoth("dialled-names.xml", GetParam()), (Lines{R"(dialled "Service Desk" <3888> 12:30:00, 12:00:00)",
                                                                R"(dialled "Helpdesk" <3999> 11:00:00, 09:00:00)"}));
}

TEST_P(BothFlavours, AnEmptyNumberTakesNoMissedEntryAway) {
  EXPECT_EQ(replayBoth("withheld-numbers.xml", GetParam()),
            (Lines{R"(missed "Bo Berg" <> 09:20:00)", R"(missed "Anna Lind" <> 09:00:00)",
                   R"(received "" <> 09:30:00, 09:10:00)", R"(dialled "" <> 09:40:00)"}));
}

TEST_P(BothFlavours, MissedEntriesOfTheSwitchsCallLogCarryItsTimeAlsoAfterAReload) {
  const Lines expected{R"(missed "Dora" <3777> 10:00:00)", R"(missed "Carl" <3666> 09:00:00)"};
  EXPECT_EQ(replayBoth("switch-log-missed.xml", GetParam()), expected);
  // The phone starts again on what `calljournal replay` stored: the lists are read back in order.
  const std::string database = dir + "/replayed.db";
  replayWithCli(traceFile("switch-log-missed.xml"), GetParam(), database);
  reopenStore(database);
  start(GetParam());
  EXPECT_EQ(here(), expected);
}

TEST_P(BothFlavours, ADialledEntryRebuiltAfterTheSwitchDeletedACallStaysThePartysEntry) {
  EXPECT_EQ(replayBoth("dialled-grouping.xml", GetParam()), (Lines{R"(dialled "Eva" <3555> 11:00:00, 09:30:00)"}));
}

TEST_P(BothFlavours, AFailedCallWithoutCallIdKeepsTheCallersName) {
  EXPECT_EQ(replayBoth("failed-call-name.xml", GetParam()), (Lines{R"(missed "Finn Holm" <3444> 09:00:00)"}));
}

TEST_P(BothFlavours, ACallWhoseEndNeverComesIsLetGoAfterHoursWithoutAnEvent) {
  LogCapture log;
  EXPECT_EQ(replayBoth("idle-call.xml", GetParam()), (Lines{R"(missed "Jan" <3334> 15:00:00)"}));
  EXPECT_EQ(log.count("no event for 4 h"), 1);
}

INSTANTIATE_TEST_SUITE_P(Both, BothFlavours, ::testing::Values(kKpx, kSip), flavourName);

// Every call that went into one of three conferences at once ends in its own entry, and no
// record is left behind.
class Conferences : public TraceDay {};

const Lines kConferenceEntries{R"(received "Caller3" <5403> 09:05:00)", R"(received "Caller1" <5401> 09:00:00)",
                               R"(received "Caller5" <5405> 09:10:00)", R"(dialled "Callee4" <5404> 09:06:00)",
                               R"(dialled "Callee2" <5402> 09:01:00)",  R"(dialled "Callee6" <5406> 09:11:00)"};

TEST_F(Conferences, KpxEndsTheCallsOfEveryConference) {
  EXPECT_EQ(replayBoth("conferences-kpx.xml", kKpx), kConferenceEntries);
}

TEST_F(Conferences, SipEndsTheCallsOfEveryConference) {
  EXPECT_EQ(replayBoth("conferences-sip.xml", kSip), kConferenceEntries);
}

}  // namespace
