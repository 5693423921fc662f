// calljournal: the journal's command-line client. Reads and prunes the lists of a running
// calljournald, watches its changes, reads and changes its settings, and replays CSTA traces.
// Exit codes: 0 done, 1 failed, 2 wrong usage; status: 3 when the journal does not follow the line.
#include <signal.h>

#include <CLI/CLI.hpp>
#include <cstdlib>

#include "CommandLine.h"
#include "Commands.h"
#include "HistoryCommands.h"
#include "HostSettings.h"
#include "JournalLists.h"
#include "SettingTable.h"

namespace {

// The daemon's socket when its configuration does not move it.
std::string defaultAddress() {
  if (const char* env = std::getenv("CALLJOURNAL_SOCKET"); env && *env) return env;
  return host::defaultSettings().clientSocket;
}

const std::vector<std::string> kListNames = {"missed", "received", "dialled", "forwarded", "callbacks"};

}  // namespace

int main(int argc, char** argv) {
  signal(SIGPIPE, SIG_IGN);
  CLI::App app{"calljournal: look at and prune the phone's call lists, watch them change, replay CSTA traces",
               "calljournal"};
  app.require_subcommand(1);
  app.fallthrough();  // options of the program (--socket) also after the command
  app.set_version_flag("--version", "calljournal " JOURNAL_VERSION, "print the version and exit");
  cli::Connection connection{defaultAddress()};
  app.add_option("--socket", connection.address,
                 "the daemon's socket: a path, unix:PATH or tcp:HOST:PORT (default $CALLJOURNAL_SOCKET or " +
                     connection.address + ")");
  bool json = false;

  std::string list = "all";
  auto* listCmd = app.add_subcommand("list", "print one list or all of them, newest first");
  listCmd->add_option("list", list, "missed, received, dialled, forwarded, callbacks or all")
      ->check(CLI::IsMember({"all", "missed", "received", "dialled", "forwarded", "callbacks"}));
  listCmd->add_flag("--json", json, "one JSON object instead of tables");
  std::string find;
  listCmd->add_option("--find", find, "only entries whose number or name holds TEXT (names in any case)");

  std::string deleteList;
  bool deleteAll = false;
  std::vector<std::string> ids;
  auto* deleteCmd = app.add_subcommand("delete", "delete entries by id, or a whole list with --all LIST");
  deleteCmd->add_option("ids", ids, "entry ids (from calljournal list)");
  deleteCmd->add_option("--list", deleteList, "the list the ids belong to (found by the id when not given)")
      ->check(CLI::IsMember(kListNames));
  deleteCmd->add_flag("--all", deleteAll, "delete every entry of --list");

  auto* deleteCallsCmd = app.add_subcommand("delete-calls", "delete entries by id from whichever call list holds them");
  deleteCallsCmd->add_option("ids", ids, "entry ids")->required();

  auto* viewedCmd = app.add_subcommand("mark-viewed", "mark missed calls viewed (all of them without ids)");
  viewedCmd->add_option("ids", ids, "missed entry ids");

  std::string id;
  auto* ageCmd = app.add_subcommand("age", "age a missed call");
  ageCmd->add_option("id", id, "missed entry id")->required();

  auto* lastCmd = app.add_subcommand("last-dialled", "print the number dialled last");
  lastCmd->add_flag("--json", json, "the whole entry as JSON");

  auto* refreshCmd = app.add_subcommand("refresh", "make the journal read its lists from the database again");

  auto* watchCmd =
      app.add_subcommand("watch", "print every change of the lists, and of the switch link, as it happens");
  watchCmd->add_flag("--json", json, "one JSON object per line");
  double watchFor = 0;
  watchCmd->add_option("--for", watchFor, "stop after this many seconds (exit code 0); default: until Ctrl-C")
      ->check(CLI::PositiveNumber);

  auto* statusCmd = app.add_subcommand(
      "status", "whether the journal follows the line: switch link, monitor, lists, store, clients, uptime");
  statusCmd->add_flag("--json", json, "one JSON object (numbers, booleans, ISO times)");
  statusCmd->footer(
      "Exit code: 0 when the journal follows the line (switch link up, monitor running at the switch, lists\n"
      "loaded); 3 when it does not (also with no switch configured), and when the daemon cannot be reached,\n"
      "as an LSB status says \"not running\": a health check needs only 0 or not 0; 1 when the daemon\n"
      "answers but gives no status; 2 for a wrong command line.");

  auto* configCmd = app.add_subcommand("config", "read or change the daemon's settings");
  configCmd->require_subcommand(1);
  configCmd->footer(host::settingsSummary());
  std::vector<std::string> keys;
  auto* getCmd = configCmd->add_subcommand("get", "print settings (all without keys)");
  getCmd->add_option("keys", keys, "setting names");
  std::string key, value;
  auto* setCmd = configCmd->add_subcommand("set", "change one setting while the daemon runs");
  setCmd->add_option("key", key, "setting name")->required();
  setCmd->add_option("value", value, "new value")->required();

  int waitSeconds = 30;
  auto* waitCmd = app.add_subcommand(
      "wait", "wait until the daemon answers on its socket (which may not exist yet); exit code 1 when the time is up");
  waitCmd->add_option("--timeout", waitSeconds, "seconds to wait (default 30)")->check(CLI::PositiveNumber);

  cli::ReplayOptions replay;
  auto* replayCmd = app.add_subcommand("replay", "run the journal on a CSTA trace and print the lists");
  replayCmd->add_option("trace", replay.trace, "trace file (<cstaTrace>)")->required()->check(CLI::ExistingFile);
  replayCmd->add_option("--config", replay.config, "configuration file, as the daemon's")->check(CLI::ExistingFile);
  replayCmd->add_option("--phonebook", replay.phonebook, "phonebook (CSV or vCard)")->check(CLI::ExistingFile);
  replayCmd->add_option("--db", replay.database, "database to use and keep (default: a fresh temporary one)");
  replayCmd->add_flag("--json", replay.json, "one JSON object instead of tables");

  cli::HistoryCommandLine history(app);  // history, show, export, clear

  if (int code = cli::parseCommandLine(app, argc, argv); code >= 0) return code;

  auto run = [&]() -> int {
    if (int code = history.run(connection); code >= 0) return code;
    if (*listCmd) return cli::listCommand(connection, list, json, find);
    if (*deleteCmd) {
      if (deleteAll && deleteList.empty()) return cli::fail("--all needs --list LIST"), 2;
      if (deleteAll && !ids.empty()) return cli::fail("give ids or --all, not both"), 2;
      if (!deleteAll && ids.empty()) return cli::fail("give the ids to delete, or --all --list LIST"), 2;
      return cli::deleteCommand(connection, deleteList, deleteAll, ids);
    }
    if (*deleteCallsCmd) return cli::deleteCallsCommand(connection, ids);
    if (*viewedCmd) return cli::markViewedCommand(connection, ids);
    if (*ageCmd) return cli::ageCommand(connection, id);
    if (*lastCmd) return cli::lastDialledCommand(connection, json);
    if (*refreshCmd) return cli::refreshCommand(connection);
    if (*watchCmd) return cli::watchCommand(connection, json, watchFor);
    if (*statusCmd) return cli::statusCommand(connection, json);
    if (*getCmd) return cli::configGetCommand(connection, keys);
    if (*setCmd) return cli::configSetCommand(connection, key, value);
    if (*replayCmd) return cli::replayCommand(replay);
    if (*waitCmd) return cli::waitCommand(connection, waitSeconds);
    return 2;
  };
  // Whatever a daemon answers, the client ends with a plain line, never an abort.
  try {
    return run();
  } catch (const std::exception& e) {
    return cli::fail(std::string("stopped on an unexpected failure: ") + e.what());
  }
}
