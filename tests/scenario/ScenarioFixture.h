// The pieces the scenario suites share: call scripts, the one-line rendering of entries, the
// store file read back with the sqlite3 C API, and the fixture that runs a phone on a real SQLite
// store and phonebook CSV file with a subscribed screen, checking the lock-order reports at the end.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <type_traits>

#include "ClientLists.h"
#include "CstaEventFactory.h"
#include "Items.h"
#include "JournalHarness.h"
#include "RecordingObserver.h"
#include "SqlRows.h"
#include "framework/JournalServiceHelper.h"
#include "framework/LockOrder.h"
#include "phonebook/FilePhonebook.h"
#include "sqlite_store/SqliteDataAccessService.h"

namespace scenario {

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

inline Script operator+(Script a, const Script& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}
// The phone rings for a call from `caller`.
inline Script ringing(const std::string& id, const CSTADeviceID& caller, int wait = 0) {
  return {{wait, csta::offered(id, caller)}, {0, csta::delivered(id, CSTA_LCS_Alerting, caller, kLine)}};
}
// The user dials `callee`, whose phone rings.
inline Script dialling(const std::string& id, const CSTADeviceID& callee, int wait = 0) {
  return {{wait, csta::originated(id, callee)}, {0, csta::delivered(id, CSTA_LCS_Connected, kLine, callee, callee)}};
}
// After `ring` seconds `answering` answers; the parties talk for `talk` seconds.
inline Script talked(const std::string& id, const CSTADeviceID& calling, const CSTADeviceID& called,
                     const CSTADeviceID& answering, int ring, int talk) {
  return {{ring, csta::established(id, calling, called, answering)}, {talk, csta::cleared(id)}};
}
inline Script diverted(const std::string& id, CSTAEventCause cause, int wait = 0) {
  return {{wait, csta::diverted(id, cause, kCaller, kLine, kVoicemail)}};
}
inline Script clearing(const std::string& id, int wait, CSTAEventCause cause = EC_NONE) {
  return {{wait, csta::cleared(id, cause)}};
}

// One entry as the screen would list it.
struct Shown {
  std::string kind, entryId, uniqueId, number, line;
  size_t occurrences;
};

// "@+Ns": seconds from the phone's start (time 0 of every script) to a time text.
inline std::string sinceStart(const std::string& text) {
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

inline Lines lines(const std::vector<Shown>& shown) {
  Lines out;
  for (const auto& s : shown) out.push_back(s.line);
  return out;
}

// What the screen is told when a call files a new entry (action 0) or merges into one (1) at the
// front of a list; `removed` is the unique id of the stored record the change supersedes.
inline Lines told(const std::string& kind, const std::string& entryId, const std::string& removed = "", int action = 0,
                  int unviewed = 1) {
  Lines calls;
  if (kind == "missed") calls.push_back("missedCount " + std::to_string(unviewed));
  calls.push_back(kind + " " + entryId + "|" + removed + "|" + std::to_string(action));
  return calls;
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

  // Starts the phone on `on` (the store file when null); the screen subscribes, which loads the lists.
  void start(const std::string& software, std::map<std::string, std::string> config = {}, Executable* on = nullptr) {
    config["software-type"] = software;
    phone = std::make_unique<JournalHarness>(config, kAllServices, kStartTime);
    phone->useStore(on ? on : &store);
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

  // Calls `each(kind, list)` for the four lists as a client reads them, in the order missed,
  // received, dialled, forwarded, each newest first.
  template <class Each>
  void forEachList(Each each) {
    each("missed", missedCalls(*phone->service));
    each("received", receivedCalls(*phone->service));
    each("dialled", dialledCalls(*phone->service));
    each("forwarded", forwardedCalls(*phone->service));
  }
  std::vector<Shown> entries() {
    std::vector<Shown> out;
    forEachList([&](const char* kind, const auto& list) { collect(out, kind, list); });
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
      for (auto& row : sqlRows(dir + "/journal.db", "select '" + kind +
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

}  // namespace scenario
