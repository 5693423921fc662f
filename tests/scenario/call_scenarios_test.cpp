// Calls followed from their first CSTA event to the journal entry they leave, on both switch
// flavours. Events go in through deliverEvent only; the journal runs on a real SQLite file and a
// phonebook CSV file, and a subscribed screen records what it is told. Each case checks the lists
// as a client reads them, that the store file holds the same entries, and what the screen was
// told; the lock-order checker must stay silent throughout.
#include "ScenarioFixture.h"

namespace {

using namespace scenario;

// ---- One call, one entry (or none), on each flavour ----------------------------------------------

struct CallCase {
  const char* name;
  Script script;
  std::string kpx, sip;  // the entry the call leaves on each flavour; empty: none
};
void PrintTo(const CallCase& c, std::ostream* os) { *os << c.name; }

const std::vector<CallCase> kCalls = {
    {"AnsweredIncoming", ringing("17", kCaller) + talked("17", kCaller, kLine, kLine, 2, 65),
     R"(received "Net Caller" <555> @+0s for 01:05 x1)", R"(received "Net Caller" <555> @+0s for 01:05 x1)"},
    {"UnansweredIncoming", ringing("17", kCaller) + clearing("17", 20, EC_CALL_CANCELLED),
     R"(missed "Net Caller" <555> @+0s x1)", R"(missed "Net Caller" <555> @+0s x1)"},
    {"IncomingRejectedByTheUser", ringing("17", kCaller) + clearing("17", 3, EC_NORMAL_CLEARING),
     R"(missed "Net Caller" <555> @+0s x1)", R"(missed "Net Caller" <555> @+0s x1)"},
    // The line is busy: the switch reports the failed call under call id "0".
    {"IncomingWhileBusy",
     {{0, csta::failed("0", kAnnaOffice, kLine, EC_BUSY)}},
     R"(missed "Anna Berg" <+4930555100> @+0s x1)",
     R"(missed "Anna Berg" <+4930555100> @+0s x1)"},
    // The CSTA service's text for a caller the switch did not know: no received entry on KPX.
    {"AnsweredCallerWithoutNumber", ringing("17", kNoNumber) + talked("17", kNoNumber, kLine, kLine, 2, 10), "",
     R"(received "" <No number provided> @+0s for 00:10 x1)"},
    {"OutgoingAnswered", dialling("17", kCallee) + talked("17", kLine, kCallee, kCallee, 5, 90),
     R"(dialled "Net B" <200> @+0s for 01:30 x1)", R"(dialled "Net B" <200> @+0s for 01:30 x1)"},
    {"OutgoingUnanswered", dialling("17", kCallee) + clearing("17", 30), R"(dialled "Net B" <200> @+0s x1)",
     R"(dialled "Net B" <200> @+0s x1)"},
    // On SIP the originated event gives the dialled digits only, so the entry has no name.
    {"OutgoingToABusyParty",
     Script{{0, csta::originated("17", kCallee)}, {1, csta::failed("17", kLine, kCallee, EC_BUSY)}} + clearing("17", 2),
     R"(dialled "Net B" <200> @+0s x1)", R"(dialled "" <200> @+0s x1)"},
    {"OutgoingToAnUnobtainableNumber",
     Script{{0, csta::originated("17", kCallee, EC_DEST_NOT_OBTAINABLE)}} + clearing("17", 1), "", ""},
    // KPX switches' diverted events are not followed: the call ends as one that rang unanswered.
    {"ForwardedOnNoAnswer", ringing("17", kCaller) + diverted("17", EC_CALL_FORWARD_NO_ANSWER, 15) + clearing("17", 0),
     R"(missed "Net Caller" <555> @+0s x1)", R"(forwarded "Net Caller" <555> @+0s to <7000> x1)"},
    {"ForwardedImmediately",
     Script{{0, csta::offered("17", kCaller)}} + diverted("17", EC_CALL_FORWARD_IMMEDIATE) + clearing("17", 0), "",
     R"(forwarded "Net Caller" <555> @+0s to <7000> x1)"},
    // The user picks up a call ringing at extension 3200 by dialling the pickup code.
    // Established twice: on SIP the talk is counted from the second time.
    {"CallPickup",
     Script{{0, csta::originated("17", dev("*59"), EC_CALL_PICKUP)},
            {0, csta::established("17", kCaller, dev("3200"), kCaller, EC_CALL_PICKUP)},
            {3, csta::established("17", kCaller, dev("3200"), kCaller, EC_CALL_PICKUP)}} +
         clearing("17", 30),
     R"(dialled "" <*59> @+0s for 00:33 to <3200> x1)", R"(received "Net Caller" <555> @+0s for 00:30 x1)"},
    {"MarkedMissedWhileRinging",
     ringing("17", kCaller) + Script{{5, csta::callInformation("17", kLine, "MissedCall")}} + clearing("17", 5),
     R"(missed "Net Caller" <555> @+0s x1)", ""},
    // States only move forward: ringing again after the answer does not make the call missed.
    {"RingingAgainAfterTheAnswer",
     ringing("17", kCaller) +
         Script{{2, csta::established("17", kCaller, kLine, kLine)},
                {0, csta::delivered("17", CSTA_LCS_Alerting, kCaller, kLine)}} +
         clearing("17", 10),
     R"(received "Net Caller" <555> @+0s for 00:10 x1)", R"(received "Net Caller" <555> @+0s for 00:10 x1)"},
    // An event of the other direction ends the call's record.
    {"OutgoingEventOfAnIncomingCall",
     ringing("17", kCaller) + Script{{2, csta::delivered("17", CSTA_LCS_Connected, kLine, kCallee)}} +
         clearing("17", 10),
     "", ""},
    // A reminder the KPX switch rings is no call.
    {"ReminderCall",
     Script{{0, csta::delivered("17", CSTA_LCS_Alerting, kCaller, kLine, {}, {}, EC_NONE,
                                communicationsServiceTexts::content_callstatus_ReminderCall)}} +
         clearing("17", 10),
     "", R"(missed "Net Caller" <555> @+0s x1)"},
    {"OutgoingWhileDoNotDisturb", Script{{0, csta::originated("17", kCallee, EC_DO_NOT_DISTURB)}} + clearing("17", 1),
     "", ""},
    // Diverted on its way to the dialled party, the call is followed on to its end.
    {"OutgoingDiverted",
     Script{{0, csta::originated("17", kCallee)},
            {3, csta::diverted("17", EC_CALL_FORWARD_NO_ANSWER, kLine, kCallee, kVoicemail)}} +
         talked("17", kLine, kCallee, kVoicemail, 5, 20),
     R"(dialled "Net B" <200> @+0s for 00:20 x1)", R"(dialled "Net B" <200> @+0s for 00:20 to <7000> x1)"},
    {"MissedCallReportedWithoutACall",
     {{0, csta::callInformation("-1", kCaller, "MissedCall")}},
     R"(missed "Net Caller" <555> @+0s x1)",
     R"(missed "Net Caller" <555> @+0s x1)"},
};

class Calls : public Scenario, public ::testing::WithParamInterface<std::tuple<CallCase, std::string>> {};

TEST_P(Calls, LeaveTheirEntryInMemoryInTheStoreAndOnTheScreen) {
  const auto& [call, software] = GetParam();
  start(software);
  play(call.script);
  const std::string& expected = software == kSip ? call.sip : call.kpx;
  const auto shown = entries();
  EXPECT_EQ(lines(shown), expected.empty() ? Lines{} : Lines{expected});
  EXPECT_EQ(kept(shown), stored());
  EXPECT_EQ(screen.take(), shown.empty() ? Lines{} : told(shown[0].kind, shown[0].entryId));
}

INSTANTIATE_TEST_SUITE_P(Scripts, Calls, ::testing::Combine(::testing::ValuesIn(kCalls), ::testing::Values(kKpx, kSip)),
                         [](const auto& info) {
                           return std::string(std::get<0>(info.param).name) +
                                  (std::get<1>(info.param) == kSip ? "_Sip" : "_Kpx");
                         });

// ---- Settings, feature access codes and forward echoes -------------------------------------------

struct RuleCase {
  const char* name;
  std::string software;
  std::map<std::string, std::string> config;  // beyond the software type
  const char* missedLogging;                  // the journal setting in the store file; null: default
  Script script;
  Lines shown;
};
void PrintTo(const RuleCase& c, std::ostream* os) { *os << c.name; }

const std::map<std::string, std::string> kServerFeatures = {{"server-based-features", "true"}};
// Answered at another device of the line: SIP switches clear the call here with cause 40.
const Script kElsewhere = ringing("17", kCaller) + clearing("17", 8, EC_DURATION_EXCEEDED);
const Script kStarCode = Script{{0, csta::originated("17", dev("*21*7000"))}} + clearing("17", 1);
const Script kUnanswered = ringing("17", kCaller) + clearing("17", 20);
const Script kMissedThenForwarded = ringing("21", kCaller) + clearing("21", 10) + ringing("22", kCaller, 5);

// `count` unanswered calls of the caller, a minute apart.
Script missedCalls(int count) {
  Script script;
  for (int i = 1; i <= count; ++i)
    script = script + ringing(std::to_string(30 + i), kCaller, 60) + clearing(std::to_string(30 + i), 0);
  return script;
}

const std::vector<RuleCase> kRules = {
    {"AnEntryKeepsTheTenNewestOccurrences",
     kKpx,
     {},
     nullptr,
     missedCalls(11),
     {R"(missed "Net Caller" <555> @+660s x10)"}},
    {"SipLogsCallsAnsweredElsewhereWithMissedLoggingOn",
     kSip,
     {},
     nullptr,
     kElsewhere,
     {R"(missed "Net Caller" <555> @+0s x1 answered elsewhere)"}},
    {"SipDropsCallsAnsweredElsewhereWithMissedLoggingOff", kSip, {}, "false", kElsewhere, {}},
    {"KpxLogsCallsClearedWithCause40AsPlainMissed",
     kKpx,
     {},
     "false",
     kElsewhere,
     {R"(missed "Net Caller" <555> @+0s x1)"}},
    {"SipKeepsAFeatureAccessCodeAsTheNumber", kSip, {}, nullptr, kStarCode, {R"(dialled "" <*21*7000> @+0s x1 code)"}},
    {"KpxFilesAFeatureAccessCodeAsAPlainNumber", kKpx, {}, nullptr, kStarCode, {R"(dialled "" <*21*7000> @+0s x1)"}},
    {"SipFeatureAccessCodeThatReachedAParty",
     kSip,
     {},
     nullptr,
     Script{{0, csta::originated("17", dev("*69"))},
            {0, csta::delivered("17", CSTA_LCS_Connected, kLine, dev("*69"), kCaller)}} +
         talked("17", kLine, dev("*69"), kCaller, 3, 20),
     {R"(dialled "Net Caller" <*69> @+0s for 00:20 to <555> x1 code reached <555>)"}},
    // A missed call of a party that is forwarded within 5 s was the forward's echo: withdrawn.
    {"ForwardAt5sWithdrawsTheMissedCall",
     kSip,
     kServerFeatures,
     nullptr,
     kMissedThenForwarded + diverted("22", EC_CALL_FORWARD_NO_ANSWER),
     {R"(forwarded "Net Caller" <555> @+15s to <7000> x1)"}},
    {"ForwardAt6sKeepsTheMissedCall",
     kSip,
     kServerFeatures,
     nullptr,
     ringing("21", kCaller) + clearing("21", 10) + ringing("22", kCaller, 6) +
         diverted("22", EC_CALL_FORWARD_NO_ANSWER),
     {R"(missed "Net Caller" <555> @+0s x1)", R"(forwarded "Net Caller" <555> @+16s to <7000> x1)"}},
    {"MissedCallAt5sAfterAForwardIsItsEcho",
     kSip,
     kServerFeatures,
     nullptr,
     ringing("21", kCaller) + diverted("21", EC_CALL_FORWARD_NO_ANSWER, 10) + ringing("22", kCaller, 5) +
         clearing("22", 0),
     {R"(forwarded "Net Caller" <555> @+0s to <7000> x1)"}},
    {"MissedCallAt6sAfterAForwardIsFiled",
     kSip,
     kServerFeatures,
     nullptr,
     ringing("21", kCaller) + diverted("21", EC_CALL_FORWARD_NO_ANSWER, 10) + ringing("22", kCaller, 6) +
         clearing("22", 0),
     {R"(missed "Net Caller" <555> @+16s x1)", R"(forwarded "Net Caller" <555> @+0s to <7000> x1)"}},
    // A call first seen as forwarded is filed only with server based features.
    {"SipForwardOfAnUnseenCallWithServerBasedFeatures",
     kSip,
     kServerFeatures,
     nullptr,
     diverted("17", EC_CALL_FORWARD_IMMEDIATE),
     {R"(forwarded "Net Caller" <555> @+0s to <7000> x1)"}},
    {"SipForwardOfAnUnseenCallWithoutServerBasedFeatures",
     kSip,
     {},
     nullptr,
     diverted("17", EC_CALL_FORWARD_IMMEDIATE),
     {}},
    // The system identifier: 1, the switch marks the missed calls; 2, the switch keeps the call log.
    {"KpxMixedCallLogFilesNoUnmarkedMissedCall", kKpx, {{"system-identifier", "1"}}, nullptr, kUnanswered, {}},
    {"KpxServerCallLogFilesNoCallOfItsOwn", kKpx, {{"system-identifier", "2"}}, nullptr, kUnanswered, {}},
    // The network's name alone does not make two numbers one party.
    {"CallersOfOneNetworkNameAreTwoParties",
     kKpx,
     {},
     nullptr,
     ringing("21", kCaller) + clearing("21", 5) + ringing("22", dev("556", kCaller.name), 60) + clearing("22", 5) +
         ringing("23", kCaller, 60) + clearing("23", 5),
     {R"(missed "Net Caller" <555> @+130s x2)", R"(missed "Net Caller" <556> @+65s x1)"}},
    // A party reached through a feature access code and dialled directly is one party.
    {"SipPartyReachedByACodeAndDirectly",
     kSip,
     {},
     nullptr,
     Script{{0, csta::originated("17", dev("*69"))},
            {0, csta::delivered("17", CSTA_LCS_Connected, kLine, dev("*69"), kCaller)}} +
         talked("17", kLine, dev("*69"), kCaller, 3, 20) + dialling("18", kCaller, 60) +
         talked("18", kLine, kCaller, kCaller, 5, 30),
     {R"(dialled "Net Caller" <555> @+83s for 00:30 x2)"}},
};

class Rules : public Scenario, public ::testing::WithParamInterface<RuleCase> {};

TEST_P(Rules, ShapeTheEntries) {
  const RuleCase& c = GetParam();
  if (c.missedLogging) storeSetting(H::MISSED_LOGGING, c.missedLogging);
  start(c.software, c.config);
  play(c.script);
  const auto shown = entries();
  EXPECT_EQ(lines(shown), c.shown);
  EXPECT_EQ(kept(shown), stored());
  EXPECT_EQ(badge(), std::count_if(shown.begin(), shown.end(), [](const Shown& s) { return s.kind == "missed"; }));
}

INSTANTIATE_TEST_SUITE_P(Cases, Rules, ::testing::ValuesIn(kRules), [](const auto& info) { return info.param.name; });

// ---- One entry per party -------------------------------------------------------------------------

class Flavours : public Scenario, public ::testing::WithParamInterface<std::string> {};

TEST_P(Flavours, RepeatCallsMergeIntoTheirPartysEntryAlsoFromAnotherNumberOfAPhonebookContact) {
  start(GetParam());
  play(ringing("21", kAnonymous) + clearing("21", 5) + ringing("22", kAnnaOffice, 60) + clearing("22", 5));
  const auto first = entries();  // Anna, then the anonymous caller
  ASSERT_EQ(first.size(), 2u);
  phone->service->setMissedCallListAsViewed({first[1].entryId});  // a new call makes it unviewed again
  screen.take();

  play(ringing("23", kAnonymous, 60) + clearing("23", 5));  // two callers without number or name: one party
  EXPECT_EQ(screen.take(), told("missed", first[1].entryId, first[1].uniqueId, 1, 2));
  play(ringing("24", kAnnaMobile, 60) + clearing("24", 5));  // Anna on her mobile
  EXPECT_EQ(screen.take(), told("missed", first[0].entryId, first[0].uniqueId, 1, 2));
  const auto shown = entries();
  EXPECT_EQ(lines(shown), (Lines{R"(missed "Anna Berg" <+4930555101> @+195s x2)", R"(missed "" <> @+130s x2)"}));
  EXPECT_EQ(kept(shown), stored());
}

INSTANTIATE_TEST_SUITE_P(Both, Flavours, ::testing::Values(kKpx, kSip),
                         [](const auto& info) { return info.param == kSip ? "Sip" : "Kpx"; });

// Calling back a party that had called takes the party's missed entry away (always on KPX); the
// screen hears of the removal before the dialled entry.
using CallingBack = Scenario;

TEST_F(CallingBack, OnKpxRemovesThePartysMissedEntryAndTellsTheScreenOfThatFirst) {
  start(kKpx);
  play(ringing("21", kCallee) + clearing("21", 20));
  const auto missed = entries();
  ASSERT_EQ(missed.size(), 1u);
  screen.take();
  play(dialling("22", kCallee, 60) + talked("22", kLine, kCallee, kCallee, 5, 30));
  const auto shown = entries();
  EXPECT_EQ(lines(shown), Lines{R"(dialled "Net B" <200> @+80s for 00:30 x1)"});
  EXPECT_EQ(kept(shown), stored());
  EXPECT_EQ(screen.take(),
            (Lines{"missedCount 0", "missed |" + missed[0].uniqueId + "|2", "dialled " + shown[0].entryId + "||0"}));
}

// ---- The list limit ------------------------------------------------------------------------------

struct FullCase {
  const char* name;
  std::string software, kind;
  Script script;  // a call of a new party that files an entry in `kind`'s list
};
void PrintTo(const FullCase& c, std::ostream* os) { *os << c.name; }

const std::vector<FullCase> kFull = {
    {"MissedKpx", kKpx, "missed", ringing("17", kCaller) + clearing("17", 10)},
    {"MissedSip", kSip, "missed", ringing("17", kCaller) + clearing("17", 10)},
    {"ReceivedKpx", kKpx, "received", ringing("17", kCaller) + talked("17", kCaller, kLine, kLine, 2, 60)},
    {"DialledSip", kSip, "dialled", dialling("17", kCallee) + talked("17", kLine, kCallee, kCallee, 5, 90)},
    {"ForwardedSip", kSip, "forwarded", ringing("17", kCaller) + diverted("17", EC_CALL_FORWARD_NO_ANSWER, 15)},
};

class FullList : public Scenario, public ::testing::WithParamInterface<FullCase> {};

TEST_P(FullList, DropsItsOldestEntryWhoseStoredRecordTheNewEntryTakesOver) {
  const FullCase& c = GetParam();
  seed(c.kind, 1000);
  const Lines oldest =
      sqlRows(dir + "/journal.db", "select unique_id from " + kTables.at(c.kind) + " where entry_id = 'X0'");
  ASSERT_EQ(oldest.size(), 1u);
  start(c.software);
  play(c.script);

  std::vector<Shown> list;
  for (const auto& s : entries())
    if (s.kind == c.kind) list.push_back(s);
  ASSERT_EQ(list.size(), 1000u);
  EXPECT_NE(list.front().entryId[0], 'X');  // the new call's entry, written over X0's record
  EXPECT_EQ(list.front().uniqueId, oldest[0]);
  EXPECT_EQ(list.back().entryId, "X1");
  EXPECT_EQ(kept(entries()), stored());
  EXPECT_EQ(screen.take(), told(c.kind, list.front().entryId, oldest[0], 0, 1000));
}

// Calls of parties whose entries lie anywhere in a full list merge into those entries, which move
// to the front; the unviewed count the screen hears follows every merge, marking and drop.
TEST_F(Scenario, CallsOfPartiesDeepInAFullListMergeIntoTheirEntriesAndKeepTheUnviewedCount) {
  seed("missed", 1000);  // X0 (number 20000) the oldest, all unviewed
  start(kKpx);
  const auto missedFront = [&] {
    const auto list = missedCalls(*phone->service);
    return list.front();
  };
  int call = 100;
  const auto missedFrom = [&](int party) {
    const std::string id = std::to_string(++call);
    play(ringing(id, dev(std::to_string(20000 + party))) + clearing(id, 10));
  };
  for (int party : {500, 3, 998, 500}) {
    missedFrom(party);
    EXPECT_EQ("X" + std::to_string(party), missedFront().getEntryId());
  }
  EXPECT_EQ(3u, missedFront().infos().size());  // X500: its seeded call and two more
  EXPECT_EQ(1000u, missedCalls(*phone->service).size());
  EXPECT_EQ(1000, badge());

  phone->service->setMissedCallListAsViewed({"X500", "X3"});
  EXPECT_EQ(998, badge());
  missedFrom(3);  // a new call makes X3 unviewed again
  EXPECT_EQ(999, badge());
  missedFrom(1);  // X1 was unviewed: the count stays
  EXPECT_EQ(999, badge());
  missedFrom(5000);  // a new party: X0, unviewed, is dropped
  EXPECT_EQ(999, badge());
  EXPECT_EQ(1000u, missedCalls(*phone->service).size());
  EXPECT_EQ(999u, phone->service->countUnviewedMissedCalls());
  EXPECT_EQ(kept(entries()), stored());
}

INSTANTIATE_TEST_SUITE_P(Lists, FullList, ::testing::ValuesIn(kFull), [](const auto& info) { return info.param.name; });

}  // namespace
