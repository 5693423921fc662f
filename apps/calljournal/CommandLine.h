// Parsing calljournal's command line: every refusal is one line on stderr and exit code 2; a
// command name that is no command gets the nearest one as a suggestion. Used on the client's only
// thread, before any command runs.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace cli {

// Parses `argv` into `app`. Returns -1 when the command line was read and a command is to run,
// otherwise the exit code to end with: 0 after --help, 2 after a one-line refusal.
int parseCommandLine(CLI::App& app, int argc, char** argv);

// The name of `names` nearest to `word` (a mistyped command): at most two edits away (a swap of
// two neighbours is one edit), or one that `word` begins. Empty when none is near.
std::string nearestName(const std::string& word, const std::vector<std::string>& names);

}  // namespace cli
