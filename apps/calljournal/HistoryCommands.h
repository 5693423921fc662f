// What people do with a call history: history (every call of every list, newest first), show
// (one entry with all its calls), export (the history as CSV or JSON for a spreadsheet) and clear
// (every call list emptied). HistoryCommandLine adds them to the command line and runs the one
// chosen; used on the client's only thread.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "Commands.h"

namespace cli {

struct HistoryOptions {
  std::string since;               // as given on the command line; checked by the command
  std::vector<std::string> kinds;  // missed, received, dialled, forwarded
  std::size_t limit = 0;
  bool json = false;
  bool csv = false;
  std::string output;  // export: the file to write; empty or "-": standard output
};

int historyCommand(const Connection& c, const HistoryOptions& options);
int exportCommand(const Connection& c, const HistoryOptions& options);
int showCommand(const Connection& c, const std::string& id, bool json);
// Empties the call lists after asking on a terminal; without a terminal only with `yes`.
int clearCommand(const Connection& c, bool yes);

// The four commands on `app`'s command line, with their options' values.
class HistoryCommandLine {
 public:
  explicit HistoryCommandLine(CLI::App& app);
  // The exit code of the history command chosen; -1 when the command line chose another.
  int run(const Connection& c) const;

 private:
  HistoryOptions m_history, m_export;
  std::string m_id;
  bool m_showJson = false;
  bool m_yes = false;
  CLI::App* m_historyCmd = nullptr;
  CLI::App* m_showCmd = nullptr;
  CLI::App* m_exportCmd = nullptr;
  CLI::App* m_clearCmd = nullptr;
};

}  // namespace cli
