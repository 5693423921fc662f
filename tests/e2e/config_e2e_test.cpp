// Configuration at run time and logging as a user meets them: "calljournal config set" refusing
// what it cannot take and saying what it took, the journal's switches as on/off kept across a
// restart, SIGHUP applying and logging changes, relative paths of a configuration file, the log
// file's time stamps and its rotation, and the syslog priorities on a stream journald reads. The
// suite also runs under the thread sanitizer: management requests read, on the request threads,
// what a reload on the main thread writes.
#include <sys/stat.h>

#include <fstream>
#include <iterator>
#include <regex>

#include "DaemonFixture.h"

using namespace e2e;

namespace {

std::string fileText(const std::string& path) {
  std::ifstream in(path);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool exists(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0;
}

// A line of a log file or of stderr on a terminal: local time, level word, handle.
const std::regex kReadableLine(
    R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d (error|warning|notice|trace|detail) +\S.*)");

}  // namespace

class RunTimeConfigDaemonTest : public DaemonTest {
 protected:
  // "value   (source)" of `key` as "calljournal config get KEY" prints it.
  std::string got(const std::string& key) {
    const Subprocess::Result r = cli({"config", "get", key});
    EXPECT_EQ(0, r.code) << r.err;
    const std::string line = lastLine(r.out);
    return line.substr(std::min(line.size(), key.size() + 3));
  }
  void stopDaemon() {
    daemon->signal(SIGTERM);
    EXPECT_EQ(0, daemon->wait(15000)) << daemon->err();
  }
  std::set<std::string> storedSettings() {
    return storedRows(dir + "/journal.db", "SELECT name || '=' || value FROM journalSettings");
  }
};

TEST_F(RunTimeConfigDaemonTest, ConfigSetRefusesAnUnknownKeyOrABadValueAndChangesNothing) {
  launch();
  const Subprocess::Result before = cli({"config", "get"});
  ASSERT_EQ(0, before.code) << before.err;

  const Subprocess::Result typo = cli({"config", "set", "missed-loging", "on"});
  EXPECT_EQ(1, typo.code);
  EXPECT_EQ(
      "calljournal: cannot set missed-loging: no setting named \"missed-loging\"; did you mean "
      "\"missed-logging\"?",
      lastLine(typo.err));
  const Subprocess::Result unknown = cli({"config", "set", "colour", "blue"});
  EXPECT_EQ(1, unknown.code);
  EXPECT_EQ(
      "calljournal: cannot set colour: no setting named \"colour\" (calljournald --print-config lists every setting)",
      lastLine(unknown.err));

  // The agent's own codes are no words of the user: missed-logging's "0" would mean on.
  const Subprocess::Result code = cli({"config", "set", "missed-logging", "0"});
  EXPECT_EQ(1, code.code);
  EXPECT_EQ("calljournal: missed-logging: \"0\" is not on or off (also taken: true/false, yes/no)", lastLine(code.err));
  // A setting only a start reads would never be used: refused with where to put it.
  const Subprocess::Result atStart = cli({"config", "set", "switch", "192.0.2.10:1040"});
  EXPECT_EQ(1, atStart.code);
  EXPECT_EQ("calljournal: switch is read only when the daemon starts: put \"switch = 192.0.2.10:1040\" in " + dir +
                "/calljournald.conf and restart the daemon",
            lastLine(atStart.err));

  const Subprocess::Result after = cli({"config", "get"});
  EXPECT_EQ(before.out, after.out);
}

// The switches read and take on/off; the database keeps what the journal means by them.
TEST_F(RunTimeConfigDaemonTest, TheJournalsSwitchesAreOnOrOffAndSurviveARestart) {
  launch();
  EXPECT_EQ("on   (journal)", got("missed-logging"));
  EXPECT_EQ("off   (journal)", got("delete-missed-when-called"));

  const Subprocess::Result off = cli({"config", "set", "missed-logging", "off"});
  EXPECT_EQ(0, off.code) << off.err;
  EXPECT_EQ("missed-logging = off   (kept in the journal's database)\n", off.out);
  const Subprocess::Result again = cli({"config", "set", "missed-logging", "no"});  // the same value: fine
  EXPECT_EQ(0, again.code) << again.err;
  EXPECT_EQ("missed-logging = off   (kept in the journal's database)\n", again.out);
  const Subprocess::Result yes = cli({"config", "set", "delete-missed-when-called", "yes"});
  EXPECT_EQ(0, yes.code) << yes.err;
  EXPECT_EQ("delete-missed-when-called = on   (kept in the journal's database)\n", yes.out);
  EXPECT_EQ(1u, storedSettings().count("missedLogging=false")) << ::testing::PrintToString(storedSettings());
  EXPECT_EQ(1u, storedSettings().count("deleteMissedWhenCalled=true"));

  stopDaemon();
  launch();
  EXPECT_EQ("off   (journal)", got("missed-logging"));
  EXPECT_EQ("on   (journal)", got("delete-missed-when-called"));
  EXPECT_EQ("on   (journal)", got("call-log-enabled"));
}

// A switch the file gives is set at start and on every reload, in the same words as config set.
TEST_F(RunTimeConfigDaemonTest, TheFileGivesTheSwitchesInTheSameWordsAndAReloadAppliesThem) {
  writeConfig("missed-logging = off\nlog-file = daemon.log\n");
  launch();
  EXPECT_EQ("off   (journal)", got("missed-logging"));
  const Subprocess::Result on = cli({"config", "set", "missed-logging", "on"});
  EXPECT_EQ(0, on.code) << on.err;
  EXPECT_EQ(
      "missed-logging = on   (kept in the journal's database; the configuration file gives missed-logging = "
      "off, which the next start or reload (SIGHUP) applies again)\n",
      on.out);

  daemon->signal(SIGHUP);
  ASSERT_TRUE(eventually([&] { return got("missed-logging") == "off   (journal)"; }));
  // Logged when the start set it, and again when the reload did.
  EXPECT_EQ(2u,
            linesWith(fileText(dir + "/daemon.log"), "configuration: missed-logging changed from on to off").size());
}

TEST_F(RunTimeConfigDaemonTest, AReloadAppliesLogLevelsAndLogsEachChangeAndWhatWaitsForTheNextStart) {
  const std::string log = dir + "/daemon.log", conf = dir + "/calljournald.conf";
  const std::string base = "monitored-device = 3100\nclient-socket = " + socket + "\nlog-file = " + log + "\n";
  std::ofstream(conf) << base << "database = " << dir << "/journal.db\n";
  launch();
  std::ofstream(conf) << base << "database = " << dir << "/other.db\nlog-levels = Journal Host=5, *=4\n";
  daemon->signal(SIGHUP);
  ASSERT_TRUE(eventually([&] { return !linesWith(fileText(log), "read again").empty(); })) << fileText(log);

  const std::string text = fileText(log);
  EXPECT_EQ(1u, linesWith(text, "configuration: log-levels changed from *=4 to Journal Host=5, *=4").size()) << text;
  EXPECT_EQ(1u, linesWith(text, "configuration: database changed from " + dir + "/journal.db to " + dir +
                                    "/other.db; it takes effect at the next start")
                    .size())
      << text;
  // The running database is the one served, with the file's next value beside it.
  EXPECT_EQ(dir + "/journal.db   (configuration; the file's " + dir + "/other.db applies at the next start)",
            got("database"));
  EXPECT_FALSE(exists(dir + "/other.db"));
  // Trace lines of the handle the new levels opened are written now.
  EXPECT_TRUE(eventually([&] { return !linesWith(fileText(log), " trace   Journal Host Management.cpp").empty(); }));
}

// The file's relative paths are read from its folder, --set's from the working directory.
TEST_F(RunTimeConfigDaemonTest, RelativePathsOfTheFileAreReadFromItsFolder) {
  ASSERT_EQ(0, mkdir((dir + "/etc").c_str(), 0700));
  ASSERT_EQ(0, mkdir((dir + "/work").c_str(), 0700));
  std::ofstream(dir + "/etc/calljournald.conf")
      << "client-socket = journal.sock\nphonebook = book.csv\nlog-file = logs/../daemon.log\n";
  ASSERT_EQ(0, mkdir((dir + "/etc/logs").c_str(), 0700));
  std::ofstream(dir + "/etc/book.csv") << "name,number\nAnn,0301112222\n";
  socket = dir + "/etc/journal.sock";
  daemon = std::make_unique<Subprocess>(
      std::vector<std::string>{"/bin/sh", "-c", "cd \"$0\" && exec \"$@\"", dir + "/work", CALLJOURNALD_PATH,
                               "--config", "../etc/calljournald.conf", "--set", "database=here.db"});
  ASSERT_TRUE(daemon->start());
  ASSERT_TRUE(eventually([&] { return exists(socket); })) << daemon->err();
  EXPECT_TRUE(exists(dir + "/work/here.db"));
  EXPECT_TRUE(exists(dir + "/etc/daemon.log"));
  EXPECT_EQ(dir + "/etc/book.csv   (configuration)", got("phonebook"));
}

TEST_F(RunTimeConfigDaemonTest, ALogFileHasTimeStampsAndIsOpenedAgainOnSighupForLogrotate) {
  writeConfig("log-file = daemon.log\n");
  launch();
  const std::string log = dir + "/daemon.log";
  ASSERT_TRUE(eventually([&] { return !linesWith(fileText(log), "journal started").empty(); }));
  for (const std::string& line : linesWith(fileText(log), " "))
    EXPECT_TRUE(std::regex_match(line, kReadableLine)) << line;

  // What logrotate does: rename, then SIGHUP; the daemon writes a new file at the configured path.
  ASSERT_EQ(0, std::rename(log.c_str(), (log + ".1").c_str()));
  daemon->signal(SIGHUP);
  ASSERT_TRUE(eventually([&] { return !linesWith(fileText(log), "read again").empty(); })) << daemon->err();
  stopDaemon();
  const std::string rotated = fileText(log + ".1"), fresh = fileText(log);
  EXPECT_EQ(1u, linesWith(rotated, "journal started").size());
  EXPECT_EQ(0u, linesWith(rotated, "read again").size());
  EXPECT_EQ(0u, linesWith(rotated, "SIGTERM received").size());
  EXPECT_EQ(1u, linesWith(fresh, "SIGTERM received").size());
  EXPECT_EQ(0u, linesWith(fresh, "journal started").size());
  for (const std::string& line : linesWith(fresh, " ")) EXPECT_TRUE(std::regex_match(line, kReadableLine)) << line;
}

// Under a service manager stderr is journald's stream: each line starts with its syslog priority.
TEST_F(RunTimeConfigDaemonTest, StderrReadByJournaldCarriesSyslogPriorities) {
  writeConfig("log-levels = Journal Host=5, *=4\n");  // no switch: the link logs an error
  launch({"/bin/sh", "-c", "JOURNAL_STREAM=$(stat -L -c %d:%i /proc/self/fd/2) exec \"$@\"", "sh"});
  EXPECT_EQ(0, cli({"config", "get", "reg-number"}).code);
  ASSERT_TRUE(eventually([&] { return !linesWith(daemon->err(), "management get").empty(); }));
  const std::string err = daemon->err();
  const std::vector<std::string> started = linesWith(err, "journal started");
  ASSERT_EQ(1u, started.size()) << err;
  EXPECT_EQ(0u, started[0].find("<5>Journal Host JournalHost.cpp:")) << started[0];
  const std::vector<std::string> noSwitch = linesWith(err, "no switch port configured");
  ASSERT_EQ(1u, noSwitch.size()) << err;
  EXPECT_EQ(0u, noSwitch[0].find("<3>CSTA Service ")) << noSwitch[0];
  const std::vector<std::string> trace = linesWith(err, "management get");
  ASSERT_FALSE(trace.empty());
  EXPECT_EQ(0u, trace[0].find("<7>Journal Host Management.cpp:")) << trace[0];
}

// A JOURNAL_STREAM that names another stream (a pipe or file of a child, say) is not journald's.
TEST_F(RunTimeConfigDaemonTest, StderrNotReadByJournaldHasTimeStampsAndLevelWords) {
  launch({"/usr/bin/env", "JOURNAL_STREAM=1:1"});
  ASSERT_TRUE(eventually([&] { return !linesWith(daemon->err(), "journal started").empty(); }));
  const std::vector<std::string> started = linesWith(daemon->err(), "journal started");
  ASSERT_EQ(1u, started.size());
  EXPECT_TRUE(std::regex_match(started[0], kReadableLine)) << started[0];
  EXPECT_NE(std::string::npos, started[0].find(" notice  Journal Host JournalHost.cpp:")) << started[0];
}
