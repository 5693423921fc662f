// The daemon's settings as the programs give them: the commented configuration that
// calljournald --print-config prints (and the sample file that is its output), the refusal of a
// configuration naming an unknown key or holding a bad value, and what "calljournal config"
// serves of the same table.
#include <fstream>
#include <iterator>
#include <regex>
#include <set>

#include "DaemonFixture.h"

using namespace e2e;

namespace {

std::string fileText(const std::string& path) {
  std::ifstream in(path);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The keys of the setting lines of a printed configuration, active or commented out, in order.
std::vector<std::string> settingKeys(const std::string& configuration) {
  std::vector<std::string> keys;
  const std::regex line("^(# )?([a-z][a-z-]*) =.*");
  std::istringstream in(configuration);
  std::smatch m;
  for (std::string text; std::getline(in, text);)
    if (std::regex_match(text, m, line)) keys.push_back(m[2]);
  return keys;
}

// `configuration` with every commented-out setting line made active.
std::string uncommented(const std::string& configuration) {
  return std::regex_replace(configuration, std::regex("^# ([a-z][a-z-]* =)", std::regex::multiline), "$1");
}

}  // namespace

using ConfigurationFileTest = DaemonTest;

TEST_F(ConfigurationFileTest, TheSampleConfigurationIsWhatTheTableMakesOfIt) {
  const std::string sample = std::string(EXAMPLES_DIR) + "/calljournald.conf";
  const Subprocess::Result printed = Subprocess::run({CALLJOURNALD_PATH, "--config", sample, "--print-config"}, 5000);
  ASSERT_EQ(0, printed.code) << printed.err;
  EXPECT_EQ(fileText(sample), printed.out);
}

// Every default and example the printed configuration shows, made active, is a configuration the
// daemon takes, and it prints it back unchanged.
TEST_F(ConfigurationFileTest, ThePrintedDefaultsAndExamplesAreAConfigurationTheDaemonTakes) {
  const std::string empty = dir + "/empty.conf", every = dir + "/every.conf";
  std::ofstream(empty) << "";
  const Subprocess::Result defaults = Subprocess::run({CALLJOURNALD_PATH, "--config", empty, "--print-config"}, 5000);
  ASSERT_EQ(0, defaults.code) << defaults.err;
  const std::string all = uncommented(defaults.out);
  ASSERT_NE(all, defaults.out);
  std::ofstream(every) << all;

  const Subprocess::Result printed = Subprocess::run({CALLJOURNALD_PATH, "--config", every, "--print-config"}, 5000);
  ASSERT_EQ(0, printed.code) << printed.err;
  EXPECT_EQ(all, printed.out);
  EXPECT_EQ(settingKeys(defaults.out), settingKeys(printed.out));
}

TEST_F(ConfigurationFileTest, AnUnknownKeyOrABadValueEndsTheDaemonWithOneLineAndExitCodeOne) {
  const std::string file = dir + "/calljournald.conf";
  struct Case {
    std::string line, expected;
  };
  const std::vector<Case> cases = {
      {"colour = blue", "no setting named \"colour\" (calljournald --print-config lists every setting)"},
      {"monitored-devce = 3100", "no setting named \"monitored-devce\"; did you mean \"monitored-device\"?"},
      {"missed-logging = 0", "missed-logging: \"0\" is not on or off (also taken: true/false, yes/no)"},
      {"log-levels = garbage",
       "log-levels: \"garbage\" is not HANDLE=LEVEL pairs separated by commas with levels from 0 to 9 (for "
       "example: Journal Service=6, *=4)"},
      {"system-identifier = two", "system-identifier: \"two\" is not a whole number"},
      {"daylight-save = yes", "daylight-save: \"yes\" is neither true nor false"},
      {"disable-access-calllog = 3", "disable-access-calllog: \"3\" is not 0, 1 or 2"},
      {"switch = 127.0.0.1:0", "switch: \"127.0.0.1:0\" is not host:port (for example 192.0.2.10:1040)"},
      {"client-tcp = localhost", "client-tcp: \"localhost\" is not host:port (for example 127.0.0.1:7070)"},
      {"csta-request-timeout-ms = 0", "csta-request-timeout-ms: \"0\" is not a positive number of milliseconds"},
      {"client-max-connections = many", "client-max-connections: \"many\" is not a positive number of clients"},
  };
  for (const Case& c : cases) {
    writeConfig(c.line + "\n");
    // The daemon refuses to start, and --print-config checks a file the same way.
    for (const bool print : {false, true}) {
      std::vector<std::string> args{CALLJOURNALD_PATH, "--config", file};
      if (print) args.push_back("--print-config");
      const Subprocess::Result r = Subprocess::run(args, 5000);
      EXPECT_EQ(1, r.code) << c.line << (print ? " (printed)" : "") << "\n" << r.err;
      EXPECT_EQ("calljournald: " + file + ": " + c.expected, lastLine(r.err)) << (print ? "printed" : "started");
    }
  }
}

// A trace's settings before its first event configure the phone as a file does: a key that is no
// setting refuses the replay, naming the trace's line.
TEST_F(ConfigurationFileTest, AReplayRefusesATraceThatSetsAnUnknownKey) {
  const std::string trace = dir + "/trace.xml";
  std::ofstream(trace) << "<cstaTrace>\n"
                       << "  <set at=\"2026-03-10T08:00:00\" key=\"software-type\" value=\"Velmora SIP\"/>\n"
                       << "  <set at=\"2026-03-10T08:00:00\" key=\"colour\" value=\"blue\"/>\n"
                       << "</cstaTrace>\n";
  const Subprocess::Result r = Subprocess::run({CALLJOURNAL_PATH, "replay", trace}, 10000);
  EXPECT_EQ(1, r.code);
  EXPECT_EQ(
      "calljournal: " + trace + ":3: no setting named \"colour\" (calljournald --print-config lists every setting)",
      lastLine(r.err));
}

// Every key the README and the documents show in an example (a configuration line, a trace's
// `set`, a management request, a config command) is one of the settings calljournal config --help
// lists from the table.
TEST_F(ConfigurationFileTest, EveryKeyTheDocumentsShowIsASetting) {
  const Subprocess::Result help = Subprocess::run({CALLJOURNAL_PATH, "config", "--help"}, 5000);
  ASSERT_EQ(0, help.code) << help.err;
  std::set<std::string> settings;
  const std::regex row("^  ([a-z][a-z-]*) +(at once|on reload|at the next start) .*");
  for (const std::string& line : linesWith(help.out, "  ")) {
    std::smatch m;
    if (std::regex_match(line, m, row)) settings.insert(m[1]);
  }
  ASSERT_GT(settings.size(), 30u) << help.out;

  const std::regex shown[] = {std::regex("^\\s*([a-z][a-z0-9-]*)\\s*="), std::regex("\\bkey=\"([^\"]*)\""),
                              std::regex("<key>([^<]*)</key>"), std::regex("config (?:get|set) ([a-z][a-z-]*)")};
  const std::string root = std::string(EXAMPLES_DIR) + "/..";
  for (const char* document : {"/README.md", "/docs/protocol.md", "/docs/csta.md", "/docs/store-protocol.md"}) {
    std::istringstream in(fileText(root + document));
    bool example = false;
    for (std::string line; std::getline(in, line);) {
      if (line.rfind("```", 0) == 0) example = !example;
      if (!example) continue;
      for (const std::regex& pattern : shown)
        for (std::sregex_iterator m(line.begin(), line.end(), pattern), end; m != end; ++m)
          EXPECT_EQ(1u, settings.count((*m)[1])) << document << ": " << line;
    }
  }
}

using ConfigCommandTest = DaemonTest;

// "config get" serves every setting of the table, in its order, and no other.
TEST_F(ConfigCommandTest, TheDaemonServesEverySettingOfTheTableAndNoOther) {
  writeConfig("software-type = Velmora SIP\nreg-number = 3301\n");
  launch();
  const Subprocess::Result printed =
      Subprocess::run({CALLJOURNALD_PATH, "--config", dir + "/calljournald.conf", "--print-config"}, 5000);
  ASSERT_EQ(0, printed.code) << printed.err;

  const Subprocess::Result all = cli({"config", "get"});
  ASSERT_EQ(0, all.code) << all.err;
  std::vector<std::string> served;
  for (const std::string& line : linesWith(all.out, " = ")) served.push_back(line.substr(0, line.find(" = ")));
  EXPECT_EQ(settingKeys(printed.out), served);
  EXPECT_EQ(1u, linesWith(all.out, "reg-number = 3301   (configuration)").size()) << all.out;
  EXPECT_EQ(1u, linesWith(all.out, "mac-addr =    (default)").size()) << all.out;
  EXPECT_EQ(1, cli({"config", "get", "colour"}).code);
}
