// Recorded days of a phone (trace files) replayed the two ways they are run: by `calljournal
// replay` as a user runs it (a child process on its own database, printing the lists as JSON),
// and in this process through the same trace reader and CSTA parser into a journal on a real
// SQLite store, where the call table can be looked at too. Both give their lists as lines:
//   missed "First Surname" <number> 09:00:00, 08:10:00     (one time of day per occurrence)
// and a trace is replayed on the switch flavour the test chooses (the trace does not set it).
#pragma once

#include <nlohmann/json.hpp>

#include "ScenarioFixture.h"
#include "SettingTable.h"
#include "Subprocess.h"
#include "csta_link/CstaTrace.h"
#include "csta_link/CstaXml.h"

namespace scenario {

using nlohmann::json;

inline std::string traceFile(const std::string& name) { return std::string(TEST_DATA_DIR) + "/traces/" + name; }

// The time of day of an occurrence, or "no date".
inline std::string timeOfDay(const std::string& timeDate) {
  return timeDate.size() >= 19 ? timeDate.substr(11, 8) : "no date";
}

inline std::string entryLine(const std::string& kind, const std::string& first, const std::string& surname,
                             const std::vector<std::pair<std::string, std::string>>& occurrences) {
  std::string line = kind + " \"" + (first.empty() ? "" : first + " ") + surname + "\" <" +
                     (occurrences.empty() ? "" : occurrences.front().first) + ">";
  for (size_t i = 0; i < occurrences.size(); ++i) line += (i ? ", " : " ") + timeOfDay(occurrences[i].second);
  return line;
}

// The lists of `calljournal replay --json` (or `list --json`) as lines, list by list.
inline Lines linesOf(const json& lists) {
  Lines out;
  for (const char* kind : {"missed", "received", "dialled", "forwarded"})
    for (const auto& e : lists[kind]) {
      std::vector<std::pair<std::string, std::string>> occurrences;
      for (const auto& info : e["infos"]) occurrences.emplace_back(info["number"], info["timeDate"]);
      out.push_back(entryLine(kind, e["firstname"], e["surname"], occurrences));
    }
  return out;
}

template <class Item>
void appendLines(Lines& out, const char* kind, const std::deque<Item>& list) {
  for (const auto& item : list) {
    std::vector<std::pair<std::string, std::string>> occurrences;
    for (const auto& info : item.infos()) occurrences.emplace_back(info.number, info.timeDate);
    out.push_back(entryLine(kind, item.getFirstname(), item.getSurname(), occurrences));
  }
}

// Every entry id of the four call lists of `calljournal ... --json`, with its list.
inline std::vector<std::pair<std::string, std::string>> idsOf(const json& lists) {
  std::vector<std::pair<std::string, std::string>> ids;
  for (const char* kind : {"missed", "received", "dialled", "forwarded"})
    for (const auto& e : lists[kind]) ids.emplace_back(e["entryId"], kind);
  return ids;
}

class TraceDay : public Scenario {
 protected:
  void SetUp() override {
    Scenario::SetUp();
    // A trace names its own phonebook; without one the phone has none with entries.
    std::ofstream(dir + "/no-phonebook.csv") << "surname,firstname,number\n";
    std::string error;
    ASSERT_TRUE(phonebook.load(dir + "/no-phonebook.csv", error).has_value()) << error;
  }

  // `calljournal replay TRACE --json` on a configuration naming the switch flavour, keeping its
  // database at `database` when one is given. The lists it printed.
  json replayWithCli(const std::string& trace, const std::string& software, const std::string& database = "",
                     const std::vector<std::string>& extra = {}) {
    const std::string config = dir + "/replay.conf";
    std::ofstream(config) << "software-type = " << software << "\nlog-levels = *=2\n";
    std::vector<std::string> args{CALLJOURNAL_PATH, "replay", trace, "--json", "--config", config};
    if (!database.empty()) args.insert(args.end(), {"--db", database});
    args.insert(args.end(), extra.begin(), extra.end());
    const Subprocess::Result run = Subprocess::run(args, 60000);
    EXPECT_EQ(run.code, 0) << run.err;
    return run.code == 0 ? json::parse(run.out) : json::object();
  }

  // The same trace replayed in this process: its settings before the first event configure the
  // phone (a phonebook relative to the trace file); the journal's own settings, there and later,
  // go to its management agent as a client's change would; each event is parsed and delivered
  // at its time.
  void replayHere(const std::string& path, const std::string& software) {
    fw::CstaTrace trace;
    std::string error;
    ASSERT_TRUE(fw::readCstaTraceFile(path, trace, error)) << error;
    ASSERT_FALSE(trace.steps.empty());
    std::map<std::string, std::string> config{{"software-type", software}};
    size_t first = 0;
    for (; first < trace.steps.size() && trace.steps[first].kind == fw::CstaTraceStep::Set; ++first)
      config[trace.steps[first].key] = trace.steps[first].value;
    if (config.count("phonebook")) {
      const auto named = std::filesystem::path(path).parent_path() / config["phonebook"];
      ASSERT_TRUE(phonebook.load(named.string(), error).has_value()) << error;
    }
    start(config["software-type"], config);
    ASSERT_TRUE(phone->clock.setLocalTime(trace.steps.front().at));
    for (size_t i = 0; i < first; ++i)
      if (isJournalSetting(trace.steps[i].key)) setJournalValue(trace.steps[i].key, trace.steps[i].value);
    int64_t now = trace.steps.front().atSeconds;
    for (size_t i = first; i < trace.steps.size(); ++i) {
      const fw::CstaTraceStep& step = trace.steps[i];
      phone->advance((step.atSeconds - now) * 1000);
      now = step.atSeconds;
      if (step.kind == fw::CstaTraceStep::Set) {
        if (isJournalSetting(step.key)) {
          setJournalValue(step.key, step.value);
        } else {
          phone->mgmt.setValue(step.key, step.value);
          phone->mgmt.drainNotifications();
        }
        continue;
      }
      const auto parsed = csta_xml::parseCstaEvent(step.eventXml);
      ASSERT_TRUE(parsed.event) << step.line << ": " << step.eventName;
      phone->service->deliverEvent(parsed.event.get());
    }
  }

  // The four lists of the phone in this process, as lines.
  Lines here() {
    Lines out;
    forEachList([&](const char* kind, const auto& list) { appendLines(out, kind, list); });
    return out;
  }

  // Both replays of the trace on `software`: they must leave the same lists, and no call behind
  // in the call table. The lists.
  Lines replayBoth(const std::string& name, const std::string& software) {
    const Lines byCli = linesOf(replayWithCli(traceFile(name), software));
    replayHere(traceFile(name), software);
    EXPECT_EQ(here(), byCli) << "the replay in this process and calljournal replay differ";
    EXPECT_EQ(phone->service->countTrackedCalls(), 0) << "calls left in the call table";
    EXPECT_EQ(kept(entries()), stored());
    return byCli;
  }

  // Leaves the phone and opens the store on `path` (a database another process wrote).
  void reopenStore(const std::string& path) {
    phone.reset();
    store.close();
    std::string error;
    ASSERT_TRUE(store.open(path, SqliteDataAccessService::Normal, error)) << error;
  }

  static bool isJournalSetting(const std::string& key) {
    return key == "call-log-enabled" || key == "missed-logging" || key == "delete-missed-when-called";
  }
  // The trace gives the switches in the user's words; the agent takes its own codes.
  void setJournalValue(const std::string& key, const std::string& value) {
    std::string code;
    ASSERT_TRUE(host::journalCode(key, value, code)) << key << " = " << value;
    ManageableData data;
    data.populate(key, code);
    phone->service->setData(data);
  }
};

// The two switch flavours, as test parameters.
class BothFlavours : public TraceDay, public ::testing::WithParamInterface<std::string> {};
inline std::string flavourName(const ::testing::TestParamInfo<std::string>& info) {
  return info.param == kSip ? "Sip" : "Kpx";
}

}  // namespace scenario
