// The command-line client's commands. Each returns the process's exit code: 0 done, 1 failed
// (a plain line on stderr says what went wrong and what to do).
#pragma once

#include <string>
#include <vector>

namespace cli {

struct Connection {
  std::string address;  // Unix socket path, "unix:PATH" or "tcp:HOST:PORT"
};

// With `find`, only the entries whose name or number holds that text.
int listCommand(const Connection& c, const std::string& list, bool json, const std::string& find = "");
int deleteCommand(const Connection& c, const std::string& list, bool all, const std::vector<std::string>& ids);
int deleteCallsCommand(const Connection& c, const std::vector<std::string>& ids);
int markViewedCommand(const Connection& c, const std::vector<std::string>& ids);
int ageCommand(const Connection& c, const std::string& id);
int lastDialledCommand(const Connection& c, bool json);
int refreshCommand(const Connection& c);
// Prints the journal's changes and the link's news; with `forSeconds` > 0 for that long, then 0.
int watchCommand(const Connection& c, bool json, double forSeconds);
// 0 when the journal follows the line, 3 when it does not or the daemon cannot be reached,
// 1 when the daemon gives no status (Status.cpp).
int statusCommand(const Connection& c, bool json);
int configGetCommand(const Connection& c, const std::vector<std::string>& keys);
int configSetCommand(const Connection& c, const std::string& key, const std::string& value);

// Waits until the daemon answers a request at `c` (its socket may appear later): 0 then, 1 with a
// plain line when `timeoutSeconds` have passed.
int waitCommand(const Connection& c, int timeoutSeconds);

struct ReplayOptions {
  std::string trace, config, phonebook, database;
  bool json = false;
};
int replayCommand(const ReplayOptions& options);

// Prints "calljournal: <message>" on stderr and returns 1.
int fail(const std::string& message);

struct JournalLists;
// Exit code 1, with a line naming each id of `ids` that no list of `lists` holds; 0 when all do.
// `where` ends the line's first part (" in the missed list"), `verb` says what was not done.
int refuseUnknown(const JournalLists& lists, const std::vector<std::string>& ids, const std::string& where,
                  const char* verb);

}  // namespace cli
