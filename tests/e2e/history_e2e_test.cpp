// What people do with a call history, run as they run it: `calljournal history`, `show`, `list
// --find`, `export` and `clear` against a daemon fed by the switch simulator, the command line's
// own refusals, and the simulator playing a trace at the pace of its times.
#include <unistd.h>

#include <regex>

#include "DaemonFixture.h"

using namespace e2e;

namespace {

// A missed call from `number` that the switch names `name`, as three events of line 3100.
std::vector<std::string> missedCallNamed(const std::string& callId, const std::string& number,
                                         const std::string& name) {
  std::vector<std::string> events = missedCall(callId, number);
  const std::string plain = "N&lt;" + number + "&gt;</deviceIdentifier>";
  const std::string named = "N&lt;" + number + "&gt;;displayName=" + name + "</deviceIdentifier>";
  for (std::string& event : events)
    for (std::size_t at = event.find(plain); at != std::string::npos; at = event.find(plain, at + named.size()))
      event.replace(at, plain.size(), named);
  return events;
}

// The records of RFC 4180 text; `strict` is cleared when a line ends without CR.
std::vector<std::vector<std::string>> parseCsv(const std::string& text, bool& strict) {
  std::vector<std::vector<std::string>> rows(1, std::vector<std::string>(1));
  strict = true;
  bool quoted = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (quoted) {
      if (c == '"' && i + 1 < text.size() && text[i + 1] == '"') {
        rows.back().back() += '"', ++i;
      } else if (c == '"') {
        quoted = false;
      } else {
        rows.back().back() += c;
      }
    } else if (c == '"') {
      quoted = true;
    } else if (c == ',') {
      rows.back().emplace_back();
    } else if (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n') {
      rows.emplace_back(1), ++i;
    } else if (c == '\n') {
      strict = false;
      rows.emplace_back(1);
    } else {
      rows.back().back() += c;
    }
  }
  if (rows.back().size() == 1 && rows.back()[0].empty()) rows.pop_back();
  return rows;
}

std::size_t occurrences(const json& lists, const char* list) {
  std::size_t count = 0;
  for (const auto& entry : lists[list]) count += entry["infos"].size();
  return count;
}

class HistoryCliTest : public DaemonTest {
 protected:
  // Starts a simulator process and gives the port it prints that it listens on; "" when it does not.
  static std::string listeningPort(Subprocess& switchSim) {
    if (!switchSim.start()) return "";
    const std::regex listening("listening on 127\\.0\\.0\\.1:([0-9]+)");
    std::smatch port;
    std::string out;
    eventually([&] {
      out = switchSim.out();
      return std::regex_search(out, port, listening);
    });
    return std::regex_search(out, port, listening) ? port[1].str() : "";
  }

  json history(std::vector<std::string> args) {
    args.insert(args.begin(), "history");
    args.push_back("--json");
    Subprocess::Result r = cli(args);
    EXPECT_EQ(0, r.code) << r.err;
    return r.code == 0 ? json::parse(r.out) : json::array();
  }

  // The office day's last entries are there: three received, three dialled, one forwarded.
  bool dayPlayed() {
    const json all = lists();
    return all["received"].size() == 3 && all["dialled"].size() == 3 && all["forwarded"].size() == 1;
  }

  // The office day (all within a second), then three missed calls a second apart, the first and
  // the last from the same party: that entry holds two calls.
  void playDayAndThreeMissedCalls() {
    startDaemon();
    playDay();
    ASSERT_TRUE(eventually([&] { return dayPlayed(); })) << daemon->err();
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    sendAll(missedCall("4711", "0301112222"));
    ASSERT_TRUE(eventually([&] { return missedNumbers().size() == 3; })) << daemon->err();
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    sendAll(missedCall("4712", "0303334444"));
    ASSERT_TRUE(eventually([&] { return missedNumbers().size() == 4; })) << daemon->err();
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    sendAll(missedCall("4713", "0301112222"));
    ASSERT_TRUE(eventually([&] { return missedNumbers().front() == "0301112222"; })) << daemon->err();
  }
};

}  // namespace

TEST_F(HistoryCliTest, HistoryListsEveryCallNewestFirstAndFilters) {
  playDayAndThreeMissedCalls();
  const json all = lists();
  const json calls = history({});
  ASSERT_EQ(occurrences(all, "missed") + occurrences(all, "received") + occurrences(all, "dialled") +
                occurrences(all, "forwarded"),
            calls.size());
  EXPECT_EQ("0301112222", calls[0]["number"]);
  EXPECT_EQ("0303334444", calls[1]["number"]);
  EXPECT_EQ("0301112222", calls[2]["number"]);
  EXPECT_GT(calls[0]["time"].get<std::string>(), calls[1]["time"].get<std::string>());
  EXPECT_GT(calls[1]["time"].get<std::string>(), calls[2]["time"].get<std::string>());
  for (std::size_t i = 1; i < calls.size(); ++i)
    EXPECT_GE(calls[i - 1]["time"].get<std::string>(), calls[i]["time"].get<std::string>()) << i;

  EXPECT_EQ(2u, history({"--limit", "2"}).size());
  const json since = history({"--since", calls[1]["time"].get<std::string>()});
  EXPECT_EQ(2u, since.size());
  EXPECT_EQ(occurrences(all, "dialled"), history({"--kind", "dialled"}).size());
  EXPECT_EQ(occurrences(all, "missed") + occurrences(all, "forwarded"), history({"--kind", "missed,forwarded"}).size());
  EXPECT_EQ(occurrences(all, "received") + occurrences(all, "dialled"),
            history({"--kind", "received", "--kind", "dialled"}).size());
  EXPECT_EQ(calls.size(), history({"--since", "2h"}).size());
  EXPECT_EQ(0u, history({"--since", "2999-01-01"}).size());

  Subprocess::Result bad = cli({"history", "--since", "2026-02-30"});
  EXPECT_EQ(2, bad.code);
  EXPECT_EQ(1u, linesWith(bad.err, "calljournal: --since \"2026-02-30\" is no time").size()) << bad.err;
  EXPECT_EQ(2, cli({"history", "--kind", "callbacks"}).code);
}

TEST_F(HistoryCliTest, ShowPrintsAnEntryWithBothItsCalls) {
  startDaemon();
  sendAll(missedCall("4711", "0301112222"));
  sendAll(missedCall("4713", "0301112222"));  // the same party again: one entry, two calls
  ASSERT_TRUE(eventually([&] { return lists()["missed"][0]["infos"].size() == 2; })) << daemon->err();
  const std::string id = lists()["missed"][0]["entryId"];
  Subprocess::Result shown = cli({"show", id, "--json"});
  ASSERT_EQ(0, shown.code) << shown.err;
  const json entry = json::parse(shown.out);
  EXPECT_EQ("missed", entry["list"]);
  ASSERT_EQ(2u, entry["entry"]["infos"].size());
  EXPECT_EQ("0301112222", entry["entry"]["infos"][1]["number"]);

  Subprocess::Result table = cli({"show", id});
  EXPECT_EQ(0, table.code);
  EXPECT_EQ(2u, linesWith(table.out, "  0301112222").size()) << table.out;
  EXPECT_EQ(1u, linesWith(table.out, "(2 calls, not viewed)").size()) << table.out;

  Subprocess::Result unknown = cli({"show", "2026-01-01T00:00:00Z00000000"});
  EXPECT_EQ(1, unknown.code);
  EXPECT_EQ(
      "calljournal: no entry with id 2026-01-01T00:00:00Z00000000; nothing was shown (see calljournal list for "
      "the ids)",
      lastLine(unknown.err));
}

TEST_F(HistoryCliTest, ListFindMatchesNumbersAndNamesInAnyCase) {
  startDaemon();
  playDay();
  ASSERT_TRUE(eventually([&] { return dayPlayed(); })) << daemon->err();
  Subprocess::Result byNumber = cli({"list", "--json", "--find", "5550199"});
  ASSERT_EQ(0, byNumber.code) << byNumber.err;
  const json number = json::parse(byNumber.out);
  EXPECT_EQ(0u, number["missed"].size());
  EXPECT_EQ(0u, number["received"].size());
  ASSERT_EQ(1u, number["dialled"].size());
  EXPECT_EQ("02015550199", number["dialled"][0]["infos"][0]["number"]);

  const json name = json::parse(cli({"list", "--json", "--find", "RECEPTION"}).out);
  EXPECT_EQ(1u, name["received"].size());
  EXPECT_EQ(1u, name["dialled"].size());
  EXPECT_EQ(0u, name["missed"].size());
  EXPECT_EQ(0u, name["forwarded"].size());
}

TEST_F(HistoryCliTest, ExportWritesCsvASpreadsheetReadsBack) {
  startDaemon();
  sendAll(missedCallNamed("4711", "0309990000", "Tom \"TJ\", Jones"));
  sendAll(missedCallNamed("4712", "0309990001", "=HYPERLINK(1)"));
  ASSERT_TRUE(eventually([&] { return missedNumbers().size() == 2; })) << daemon->err();

  const std::string file = dir + "/calls.csv";
  Subprocess::Result exported = cli({"export", "--csv", "-o", file});
  ASSERT_EQ(0, exported.code) << exported.err;
  EXPECT_EQ("exported 2 calls to " + file, lastLine(exported.out));
  std::ifstream in(file, std::ios::binary);
  const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  bool crlf = false;
  const auto rows = parseCsv(text, crlf);
  EXPECT_TRUE(crlf) << text;
  ASSERT_EQ(3u, rows.size()) << text;
  EXPECT_EQ((std::vector<std::string>{"time", "kind", "number", "name", "duration", "detail", "entryId"}), rows[0]);
  ASSERT_EQ(7u, rows[1].size()) << text;
  EXPECT_EQ("0309990001", rows[1][2]);
  EXPECT_EQ("'=HYPERLINK(1)", rows[1][3]);  // not a formula in a spreadsheet
  EXPECT_EQ("0309990000", rows[2][2]);
  EXPECT_EQ("Tom \"TJ\", Jones", rows[2][3]);
  EXPECT_EQ("missed", rows[2][1]);

  Subprocess::Result asJson = cli({"export", "--json"});
  ASSERT_EQ(0, asJson.code) << asJson.err;
  const json calls = json::parse(asJson.out);
  ASSERT_EQ(2u, calls.size());
  EXPECT_EQ("Tom \"TJ\", Jones", calls[1]["name"]);
  EXPECT_EQ(rows[2][0], calls[1]["time"]);
  EXPECT_EQ(2, cli({"export", "--csv", "--json"}).code);
}

TEST_F(HistoryCliTest, ClearEmptiesEveryCallListOnlyWhenConfirmed) {
  startDaemon();
  playDay();
  ASSERT_TRUE(eventually([&] { return dayPlayed(); })) << daemon->err();
  const json before = lists();

  // No terminal and no --yes: refused, nothing lost.
  Subprocess::Result refused =
      Subprocess::run({"/bin/sh", "-c", "exec \"$0\" --socket \"$1\" clear </dev/null", CALLJOURNAL_PATH, socket});
  EXPECT_EQ(2, refused.code);
  EXPECT_EQ(1u, linesWith(refused.err, "add --yes").size()) << refused.err;
  EXPECT_EQ(before["missed"].size(), lists()["missed"].size());
  EXPECT_EQ(before["received"].size(), lists()["received"].size());

  Subprocess::Result cleared = cli({"clear", "--yes"});
  ASSERT_EQ(0, cleared.code) << cleared.err;
  EXPECT_EQ(1u, linesWith(cleared.out, "missed: " + std::to_string(before["missed"].size()) + " removed").size())
      << cleared.out;
  EXPECT_EQ(1u, linesWith(cleared.out, "received: " + std::to_string(before["received"].size()) + " removed").size())
      << cleared.out;
  EXPECT_EQ(1u, linesWith(cleared.out, "dialled: " + std::to_string(before["dialled"].size()) + " removed").size())
      << cleared.out;
  EXPECT_EQ(1u, linesWith(cleared.out, "forwarded: 1 removed").size()) << cleared.out;
  const json after = lists();
  EXPECT_EQ(0u, after["missed"].size());
  EXPECT_EQ(0u, after["received"].size());
  EXPECT_EQ(0u, after["dialled"].size());
  EXPECT_EQ(0u, after["forwarded"].size());
}

TEST_F(HistoryCliTest, CommandLineMistakesAreOneLineAndOptionsFollowTheCommand) {
  startDaemon();
  sendAll(missedCall("4711", "0301112222"));
  ASSERT_TRUE(eventually([&] { return missedNumbers().size() == 1; })) << daemon->err();

  Subprocess::Result typo = cli({"lsit"});
  EXPECT_EQ(2, typo.code);
  EXPECT_EQ("calljournal: unknown command \"lsit\"; did you mean \"list\"?\n", typo.err);
  Subprocess::Result nested = cli({"config", "gte"});
  EXPECT_EQ(2, nested.code);
  EXPECT_EQ("calljournal: unknown command \"config gte\"; did you mean \"config get\"?\n", nested.err);

  Subprocess::Result after = Subprocess::run({CALLJOURNAL_PATH, "list", "missed", "--json", "--socket", socket});
  ASSERT_EQ(0, after.code) << after.err;
  EXPECT_EQ(1u, json::parse(after.out)["missed"].size());

  for (const std::vector<std::string>& argv :
       {std::vector<std::string>{CALLJOURNAL_PATH, "list", "--colour"}, std::vector<std::string>{CALLJOURNAL_PATH},
        std::vector<std::string>{CALLJOURNALD_PATH, "--colour"},
        std::vector<std::string>{CSTASWITCHSIM_PATH, "--port", "x"}}) {
    Subprocess::Result r = Subprocess::run(argv);
    EXPECT_EQ(2, r.code) << argv.back();
    EXPECT_EQ(1u, linesWith(r.err, "").size()) << r.err;
    const std::string program = argv.front().substr(argv.front().rfind('/') + 1);
    EXPECT_EQ(0u, r.err.rfind(program + ": ", 0)) << r.err;
  }
}

TEST_F(HistoryCliTest, TheSimulatorPlaysATraceAtThePaceOfItsTimes) {
  // The day's first call: Ines Moreau talks 4:12; played 100 times faster it lasts about 2.5 s.
  Subprocess switchSim({CSTASWITCHSIM_PATH, "--port", "0", "--trace", kTrace, "--pace", "100"});
  const std::string port = listeningPort(switchSim);
  ASSERT_FALSE(port.empty()) << switchSim.err();
  writeConfig("software-type = Velmora SIP\nsystem-identifier = 0\n", std::stoi(port));
  launch();

  json received;
  ASSERT_TRUE(eventually([&] {
    const json all = lists();
    for (const json& entry : all["received"])
      if (entry["infos"][0]["number"] == "3205") received = entry["infos"][0];
    return !received.is_null();
  })) << daemon->err();
  const std::string duration = received["duration"];
  ASSERT_EQ(5u, duration.size()) << duration;
  EXPECT_EQ("00:0", duration.substr(0, 4));
  EXPECT_NE("00:00", duration);
}

TEST_F(HistoryCliTest, TheSimulatorCutsTheTracesIdleHoursWithMaxGap) {
  // The office day spans 9.5 hours, 34 s at pace 1000; with pauses cut to a minute it takes about
  // 1 s, and all its events are sent well before the deadline below.
  Subprocess switchSim({CSTASWITCHSIM_PATH, "--port", "0", "--trace", kTrace, "--pace", "1000", "--max-gap", "60"});
  const std::string port = listeningPort(switchSim);
  ASSERT_FALSE(port.empty()) << switchSim.err();
  writeConfig("software-type = Velmora SIP\nsystem-identifier = 0\n", std::stoi(port));
  launch();
  eventually([&] { return !linesWith(switchSim.out(), "events sent").empty(); }, 20000);
  EXPECT_EQ(1u, linesWith(switchSim.out(), "cstaswitchsim: 46 events sent").size()) << switchSim.out();

  Subprocess::Result refused = Subprocess::run({CSTASWITCHSIM_PATH, "--port", "0", "--max-gap", "60"});
  EXPECT_EQ(2, refused.code);
  EXPECT_EQ("cstaswitchsim: --max-gap needs --pace; see cstaswitchsim --help\n", refused.err);
}

TEST_F(HistoryCliTest, ASimulatorWhosePortIsTakenSaysSoInOneLine) {
  Subprocess first({CSTASWITCHSIM_PATH, "--port", "0"});
  const std::string port = listeningPort(first);
  ASSERT_FALSE(port.empty()) << first.err();
  Subprocess::Result second = Subprocess::run({CSTASWITCHSIM_PATH, "--port", port});
  EXPECT_EQ(1, second.code);
  EXPECT_EQ("cstaswitchsim: cannot listen on 127.0.0.1:" + port + ": Address already in use\n", second.err);
}
