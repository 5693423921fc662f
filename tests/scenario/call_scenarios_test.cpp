// Calls followed from their first CSTA event to the journal entry they leave, on both switch
// flavours. Events go in through deliverEvent only; the journal runs on a real SQLite file and a
// phonebook CSV file, and a subscribed screen records what it is told. Each case checks the lists
// as a client reads them, that the store file holds the same entries, and what the screen was
// told; the lock-order checker must stay silent throughout.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <type_traits>

#include "CstaEventFactory.h"
#include "Items.h"
#include "JournalHarness.h"
#include "RecordingObserver.h"
#include "framework/FilePhonebook.h"
#include "framework/JournalServiceHelper.h"
#include "framework/LockOrder.h"
#include "framework/SqliteDataAccessService.h"

namespace {

using H = JournalServiceHelper;
using Lines = std::vector<std::string>;
using csta::dev;

const std::string kKpx = "Velmora KPX", kSip = "Velmora SIP", kStartTime = "2024-03-05T07:08:09";
const CSTADeviceID kLine = dev(csta::kOwnLine), kCaller = dev("555", "Net Caller"), kCallee = dev("200", "Net B"),
                   kVoicemail = dev("7000", "Voicemail"), kAnonymous = dev(""),
                   kNoNumber = dev(communicationsServiceTexts::noNumberProvided);
// Anna Berg is in the phonebook under two numbers, written there the way people write them.
const CSTADeviceID kAnnaOffice = dev("+4930555100", "A Berg"), kAnnaMobile = dev("+4930555101");
const char kPhonebook[] =
    "surname,firstname,number,type\n"
    "Berg,Anna,+49 (0)30 555 100,business\n"
    "Berg,Anna,+49 30 555-101,mobile\n";
const std::map<std::string, std::string> kTables = {{"missed", H::DAS_CALLLOGMISSEDCALLS},
                                                    {"received", H::DAS_CALLLOGRECEIVEDCALLS},
                                                    {"dialled", H::DAS_CALLLOGDIALLEDCALLS},
                                                    {"forwarded", H::DAS_CALLLOGFORWARDEDCALLS}};

// A call script: each step waits `seconds` on the phone's clock, then the switch sends `event`.
struct Step {
  int seconds;
  std::shared_ptr<CSTAEvent> event;
};
using Script = std::vector<Step>;

Script operator+(Script a, const Script& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}
// The phone rings for a call from `caller`.
Script ringing(const std::string& id, const CSTADeviceID& caller, int wait = 0) {
  return {{wait, csta::offered(id, caller)}, {0, csta::delivered(id, CSTA_LCS_Alerting, caller, kLine)}};
}
// The user dials `callee`, whose phone rings.
Script dialling(const std::string& id, const CSTADeviceID& callee, int wait = 0) {
  return {{wait, csta::originated(id, callee)}, {0, csta::delivered(id, CSTA_LCS_Connected, kLine, callee, callee)}};
}
// After `ring` seconds `answering` answers; the parties talk for `talk` seconds.
Script talked(const std::string& id, const CSTADeviceID& calling, const CSTADeviceID& called,
              const CSTADeviceID& answering, int ring, int talk) {
  return {{ring, csta::established(id, calling, called, answering)}, {talk, csta::cleared(id)}};
}
Script diverted(const std::string& id, CSTAEventCause cause, int wait = 0) {
  return {{wait, csta::diverted(id, cause, kCaller, kLine, kVoicemail)}};
}
Script clearing(const std::string& id, int wait, CSTAEventCause cause = EC_NONE) {
  return {{wait, csta::cleared(id, cause)}};
}

// One entry as the screen would list it.
struct Shown {
  std::string kind, entryId, uniqueId, number, line;
  size_t occurrences;
};

// "@+Ns": seconds from the phone's start (time 0 of every script) to a time text.
std::string sinceStart(const std::string& text) {
  fw::CivilTime at, start;
  if (!fw::parseCivil(text, at) || !fw::parseCivil(kStartTime, start)) return "@'" + text + "'";
  return "@+" + std::to_string(fw::secondsFromCivil(at) - fw::secondsFromCivil(start)) + "s";
}

// Lines such as `received "Anna Berg" <555> @+0s for 01:05 x1`: name, newest occurrence's number
// and time, its duration and the other party involved when there are, and the occurrence count.
template <class Item>
void collect(std::vector<Shown>& out, const char* kind, const std::deque<Item>& list) {
  using Info = typename Item::InfoList::value_type;
  for (const auto& item : list) {
    const Info info = item.infos().empty() ? Info{} : item.infos().front();
    std::string line = std::string(kind) + " \"" + (item.getFirstname().empty() ? "" : item.getFirstname() + " ") +
                       item.getSurname() + "\" <" + info.number + "> " + sinceStart(info.timeDate);
    if constexpr (std::is_base_of_v<Duration, Info>)
      if (!info.duration.empty()) line += " for " + info.duration;
    if (!info.connectedNumber.empty()) line += " to <" + info.connectedNumber + ">";
    line += " x" + std::to_string(item.infos().size());
    if constexpr (std::is_same_v<Info, MissedCallItem::MissedCallInfo>)
      if (info.completedElsewhere) line += " answered elsewhere";
    if constexpr (std::is_same_v<Info, DialledCallItem::DialledCallInfo>) {
      if (info.isFeatureAccessCode) line += " code";
      if (!info.dialledNumber.empty()) line += " reached <" + info.dialledNumber + ">";
    }
    out.push_back({kind, item.getEntryId(), item.getUniqueId(), info.number, line, item.infos().size()});
  }
}

Lines lines(const std::vector<Shown>& shown) {
  Lines out;
  for (const auto& s : shown) out.push_back(s.line);
  return out;
}

// What the screen is told when a call files a new entry (action 0) or merges into one (1) at the
// front of a list; `removed` is the unique id of the stored record the change supersedes.
Lines told(const std::string& kind, const std::string& entryId, const std::string& removed = "", int action = 0,
           int unviewed = 1) {
  Lines calls;
  if (kind == "missed") calls.push_back("missedCount " + std::to_string(unviewed));
  calls.push_back(kind + " " + entryId + "|" + removed + "|" + std::to_string(action));
  return calls;
}

// Rows of the store file read with the sqlite3 C API, each row's columns joined by blanks.
Lines query(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  Lines rows;
  EXPECT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  const auto collectRow = [](void* out, int columns, char** values, char**) {
    std::string row;
    for (int c = 0; c < columns; ++c) row += (c ? " " : "") + std::string(values[c] ? values[c] : "NULL");
    static_cast<Lines*>(out)->push_back(row);
    return 0;
  };
  EXPECT_EQ(sqlite3_exec(db, sql.c_str(), collectRow, &rows, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
  sqlite3_close(db);
  return rows;
}

class Scenario : public ::testing::Test {
 protected:
  void SetUp() override {
    fw::LockOrderChecker::clearReports();
    dir = ::testing::TempDir() + "/scenario-XXXXXX";
    ASSERT_NE(mkdtemp(dir.data()), nullptr);
    std::string error;
    ASSERT_TRUE(store.open(dir + "/journal.db", SqliteDataAccessService::Normal, error)) << error;
    std::ofstream(dir + "/phonebook.csv") << kPhonebook;
    ASSERT_EQ(phonebook.load(dir + "/phonebook.csv", error), std::optional<size_t>(0)) << error;
  }
  void TearDown() override {
    phone.reset();
    store.close();
    std::filesystem::remove_all(dir);
    const auto reports = fw::LockOrderChecker::reports();
    EXPECT_TRUE(reports.empty()) << reports.front().message;
  }

  // Starts the phone; the screen subscribes, which loads the lists from the store file.
  void start(const std::string& software, std::map<std::string, std::string> config = {}) {
    config["software-type"] = software;
    phone = std::make_unique<JournalHarness>(config, kAllServices, kStartTime);
    phone->useStore(&store);
    phone->useDirectory(&phonebook);
    phone->start();
    phone->service->subscribe(&screen);
    screen.take();
  }
  void play(const Script& script) {
    for (const auto& step : script) {
      if (step.seconds) phone->advance(step.seconds * 1000);
      phone->service->deliverEvent(step.event.get());
    }
  }
  // A journal setting as the user left it in the store file before the phone started.
  void storeSetting(const char* name, const char* value) {
    std::string message = H::createXMLField(H::REASONFORMESSAGE, H::UPDATEREQUEST) + H::createXMLField(name, value);
    H::addXMLHeaderFooter(message, H::SETTINGS_SCHEMA);
    ASSERT_NE(store.processRequest(message), "failed");
  }
  // `count` entries of distinct parties "X0", "X1", ... in the store file, "X0" the oldest.
  void seed(const std::string& kind, int count) {
    std::string items;
    for (int n = 0; n < count; ++n) {
      char time[32];
      std::snprintf(time, sizeof time, "2024-03-01T10:%02d:%02d", n / 60, n % 60);
      const std::string id = "X" + std::to_string(n), number = std::to_string(20000 + n);
      if (kind == "missed") H::createXMLMissedCallItemBody(makeEntry<MissedCallItem>(id, number, time), items, false);
      if (kind == "received")
        H::createXMLReceivedCallItemBody(makeEntry<ReceivedCallItem>(id, number, time), items, false);
      if (kind == "dialled")
        H::createXMLDialledCallItemBody(makeEntry<DialledCallItem>(id, number, time), items, false);
      if (kind == "forwarded")
        H::createXMLForwardedCallItemBody(makeEntry<ForwardedCallItem>(id, number, time), items, false);
    }
    std::string message = H::createXMLField(H::REASONFORMESSAGE, H::WRITEREQUEST) + items;
    H::addXMLHeaderFooter(message, kTables.at(kind));
    ASSERT_NE(store.processRequest(message), "failed");
  }

  // The four lists as a client reads them: missed, received, dialled, forwarded, each newest first.
  std::vector<Shown> entries() {
    std::vector<Shown> out;
    std::deque<MissedCallItem> missed;
    std::deque<ReceivedCallItem> received;
    std::deque<DialledCallItem> dialled;
    std::deque<ForwardedCallItem> forwarded;
    phone->service->getMissedCallList(missed);
    phone->service->getReceivedCallList(received);
    phone->service->getDialledCallList(dialled);
    phone->service->getForwardedCallList(forwarded);
    collect(out, "missed", missed);
    collect(out, "received", received);
    collect(out, "dialled", dialled);
    collect(out, "forwarded", forwarded);
    return out;
  }
  // Entries by list, stored record, entry id, number and occurrences: in memory, and in the file.
  static Lines kept(const std::vector<Shown>& shown) {
    Lines keys;
    for (const auto& s : shown)
      keys.push_back(s.kind + " #" + s.uniqueId + " " + s.entryId + " <" + s.number + "> x" +
                     std::to_string(s.occurrences));
    std::sort(keys.begin(), keys.end());
    return keys;
  }
  Lines stored() {
    Lines keys;
    for (const auto& [kind, table] : kTables)
      for (auto& row : query(dir + "/journal.db", "select '" + kind +
                                                      " #' || unique_id || ' ' || entry_id || ' <' || "
                                                      "ifnull(number, '') || '> x' || occurrences from " +
                                                      table))
        keys.push_back(row);
    std::sort(keys.begin(), keys.end());
    return keys;
  }
  // The missed-call count the screen shows: the last one it was told.
  int badge() {
    int count = 0;
    for (const auto& call : screen.calls())
      if (call.rfind("missedCount ", 0) == 0) count = std::stoi(call.substr(12));
    return count;
  }

  std::string dir;
  SqliteDataAccessService store;
  FilePhonebook phonebook;
  RecordingObserver screen;
  std::unique_ptr<JournalHarness> phone;
};

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
    {"CallPickup",
     Script{{0, csta::originated("17", dev("*59"), EC_CALL_PICKUP)},
            {0, csta::established("17", kCaller, dev("3200"), kCaller, EC_CALL_PICKUP)}} +
         clearing("17", 30),
     R"(dialled "" <*59> @+0s for 00:30 to <3200> x1)", R"(received "Net Caller" <555> @+0s for 00:30 x1)"},
    {"MarkedMissedWhileRinging",
     ringing("17", kCaller) + Script{{5, csta::callInformation("17", kLine, "MissedCall")}} + clearing("17", 5),
     R"(missed "Net Caller" <555> @+0s x1)", ""},
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
const Script kMissedThenForwarded = ringing("21", kCaller) + clearing("21", 10) + ringing("22", kCaller, 5);

const std::vector<RuleCase> kRules = {
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
      query(dir + "/journal.db", "select unique_id from " + kTables.at(c.kind) + " where entry_id = 'X0'");
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

INSTANTIATE_TEST_SUITE_P(Lists, FullList, ::testing::ValuesIn(kFull), [](const auto& info) { return info.param.name; });

}  // namespace
