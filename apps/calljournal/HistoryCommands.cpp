#include "HistoryCommands.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iostream>

#include "History.h"
#include "JournalLists.h"
#include "Management.h"
#include "Session.h"

namespace cli {

namespace {

const std::vector<ListKind> kCallLists = {ListKind::Missed, ListKind::Received, ListKind::Dialled, ListKind::Forwarded};

// The records the options ask for; false with `error` (a usage fault, exit 2) for a bad --since.
bool filterOf(const HistoryOptions& options, HistoryFilter& filter, std::string& error) {
  if (!options.since.empty() && !parseSince(options.since, std::time(nullptr), filter.since, error)) return false;
  filter.kinds.insert(options.kinds.begin(), options.kinds.end());
  filter.limit = options.limit;
  return true;
}

// The history the options ask for, read from the daemon; the exit code when it cannot be had.
int readHistory(const Connection& c, const HistoryOptions& options, std::vector<CallRecord>& records) {
  HistoryFilter filter;
  std::string error;
  if (!filterOf(options, filter, error)) return fail(error), 2;
  Session s(c);
  JournalLists lists;
  if (!s.ok() || !s.readLists(lists, kCallLists)) return fail(s.error());
  records = applyFilter(callHistory(lists), filter);
  return 0;
}

std::size_t callEntries(const JournalLists& lists) {
  std::size_t count = 0;
  for (ListKind kind : kCallLists) count += lists.size(kind);
  return count;
}

// Asks on the terminal; true for an answer beginning with y or Y.
bool confirmed(std::size_t entries) {
  std::cerr << "Delete all " << entries << (entries == 1 ? " entry" : " entries") << " of every call list? [y/N] "
            << std::flush;
  std::string answer;
  if (!std::getline(std::cin, answer)) return false;
  return !answer.empty() && (answer[0] == 'y' || answer[0] == 'Y');
}

// "missed: 3 removed" per call list, with what is left where the journal kept entries.
void printRemoved(const JournalLists& before, const JournalLists& after, std::ostream& out) {
  for (ListKind kind : kCallLists) {
    const std::size_t was = before.size(kind), left = after.size(kind);
    out << listName(kind) << ": " << (was > left ? was - left : 0) << " removed";
    if (left > 0) out << ", " << left << " left";
    out << '\n';
  }
  const std::size_t callbacks = after.size(ListKind::CallBacks);
  if (callbacks > 0) out << "callbacks: " << callbacks << " kept (requests pending at the switch, not calls)\n";
}

void addFilterOptions(CLI::App* command, HistoryOptions& options) {
  command->add_option("--since", options.since,
                      "only calls from then on: YYYY-MM-DD, YYYY-MM-DDThh:mm[:ss] (the phone's local time) or a span "
                      "back from now, 30m, 2h, 3d");
  command->add_option("--kind", options.kinds, "only calls of these kinds (repeatable, or a comma list)")
      ->delimiter(',')
      ->check(CLI::IsMember(kCallKinds));
  command->add_option("--limit", options.limit, "at most N calls, the newest")->check(CLI::PositiveNumber);
}

}  // namespace

int historyCommand(const Connection& c, const HistoryOptions& options) {
  std::vector<CallRecord> records;
  if (int failed = readHistory(c, options, records)) return failed;
  if (options.json) {
    std::cout << historyJson(records) << '\n';
  } else {
    printHistory(records, std::cout);
  }
  return 0;
}

int exportCommand(const Connection& c, const HistoryOptions& options) {
  std::vector<CallRecord> records;
  if (int failed = readHistory(c, options, records)) return failed;
  const std::string text = options.json ? historyJson(records) + "\n" : historyCsv(records);
  if (options.output.empty() || options.output == "-") {
    std::cout << text << std::flush;
    return 0;
  }
  std::ofstream file(options.output, std::ios::binary | std::ios::trunc);
  if (!(file << text) || !file.flush())
    return fail("cannot write " + options.output + ": " + std::strerror(errno) + "; nothing was exported");
  std::cout << "exported " << records.size() << (records.size() == 1 ? " call" : " calls") << " to " << options.output
            << '\n';
  return 0;
}

int showCommand(const Connection& c, const std::string& id, bool json) {
  Session s(c);
  JournalLists lists;
  if (!s.ok() || !s.readLists(lists, {std::begin(kAllListKinds), std::end(kAllListKinds)})) return fail(s.error());
  if (json) {
    const std::string text = entryJson(lists, id);
    if (text.empty()) return refuseUnknown(lists, {id}, "", "shown");
    std::cout << text << '\n';
    return 0;
  }
  if (!printEntry(lists, id, std::cout)) return refuseUnknown(lists, {id}, "", "shown");
  return 0;
}

int clearCommand(const Connection& c, bool yes) {
  Session s(c);
  JournalLists before;
  if (!s.ok() || !s.readLists(before, {std::begin(kAllListKinds), std::end(kAllListKinds)})) return fail(s.error());
  const std::size_t entries = callEntries(before);
  if (entries == 0) {
    std::cout << "the call lists are empty already\n";
    return 0;
  }
  if (!yes && !isatty(STDIN_FILENO))
    return fail("clear deletes all " + std::to_string(entries) +
                " entries of the call lists: add --yes to do so without a terminal; nothing was deleted"),
           2;
  if (!yes && !confirmed(entries)) return fail("nothing was deleted");
  std::string text;
  host::ManagementReply reply;
  if (!s.call(host::managementSetRequest("clear-calllog", "true"), text)) return fail(s.error());
  if (!host::parseManagementReply(text, reply)) return fail("the daemon gave no management reply; nothing was deleted");
  if (!reply.ok) return fail("the journal refused to clear the call lists: " + reply.reason);
  JournalLists after;
  if (!s.readLists(after, {std::begin(kAllListKinds), std::end(kAllListKinds)})) return fail(s.error());
  printRemoved(before, after, std::cout);
  return 0;
}

HistoryCommandLine::HistoryCommandLine(CLI::App& app) {
  m_historyCmd = app.add_subcommand(
      "history", "every call of the call lists in one list, newest first (at most the last 10 calls per entry)");
  addFilterOptions(m_historyCmd, m_history);
  m_historyCmd->add_flag("--json", m_history.json, "a JSON array of calls instead of a table");
  m_historyCmd->footer(
      "Each entry of the missed, received, dialled and forwarded lists keeps its last 10 calls; every one is a row. "
      "Callbacks are left out: they are requests pending at the switch, not calls.");

  m_showCmd = app.add_subcommand("show", "one entry with all its calls");
  m_showCmd->add_option("id", m_id, "entry id (from calljournal list or history)")->required();
  m_showCmd->add_flag("--json", m_showJson, "the entry as JSON");

  m_exportCmd = app.add_subcommand("export", "the call history as a file for a spreadsheet (CSV unless --json)");
  addFilterOptions(m_exportCmd, m_export);
  auto* csv = m_exportCmd->add_flag("--csv", m_export.csv, "CSV: a header row, CRLF line ends, UTF-8 (default)");
  m_exportCmd->add_flag("--json", m_export.json, "a JSON array of calls")->excludes(csv);
  m_exportCmd->add_option("-o,--output", m_export.output, "the file to write (default: standard output)");
  m_exportCmd->footer(
      "Columns: time, kind, number, name, duration, detail (forwarded: the number forwarded to), entryId. A text a "
      "spreadsheet would take for a formula (beginning with = + - @) is written with a leading ', so a caller's "
      "name cannot run as one; numbers such as +4930123 are written as they are.");

  m_clearCmd = app.add_subcommand("clear", "empty every call list (callbacks are kept); asks first on a terminal");
  m_clearCmd->add_flag("-y,--yes", m_yes, "do not ask (needed when not run on a terminal)");
}

int HistoryCommandLine::run(const Connection& c) const {
  if (*m_historyCmd) return historyCommand(c, m_history);
  if (*m_showCmd) return showCommand(c, m_id, m_showJson);
  if (*m_exportCmd) return exportCommand(c, m_export);
  if (*m_clearCmd) return clearCommand(c, m_yes);
  return -1;
}

}  // namespace cli
