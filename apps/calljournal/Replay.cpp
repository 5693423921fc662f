// "calljournal replay": runs the journal as the daemon does, in this process, on a trace of CSTA
// events instead of a switch, with the phone's clock following the trace; prints the lists.
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <iostream>

#include "Commands.h"
#include "JournalHost.h"
#include "JournalLists.h"
#include "SettingTable.h"
#include "csta_link/CstaTrace.h"
#include "framework/JournalServiceHelper.h"
#include "framework/Logging.h"

using Helper = JournalServiceHelper;

namespace cli {

namespace {

// A directory of its own under $TMPDIR (or /tmp), removed with everything in it at the end.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/calljournal-replay-XXXXXX";
    if (mkdtemp(pattern.data())) m_path = pattern;
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    if (!m_path.empty()) std::filesystem::remove_all(m_path, ignored);
  }
  const std::string& path() const { return m_path; }

 private:
  std::string m_path;
};

// The `set` steps before the first event configure the phone before the journal starts; a
// phonebook they name is found relative to the trace file.
size_t leadingSets(const fw::CstaTrace& trace, const std::string& tracePath,
                   std::map<std::string, std::string>& values) {
  size_t i = 0;
  for (; i < trace.steps.size() && trace.steps[i].kind == fw::CstaTraceStep::Set; ++i)
    values[trace.steps[i].key] = trace.steps[i].value;
  auto phonebook = values.find("phonebook");
  if (phonebook != values.end() && !phonebook->second.empty() && phonebook->second.front() != '/')
    phonebook->second = (std::filesystem::path(tracePath).parent_path() / phonebook->second).string();
  return i;
}

// "Skipped N documents ...": the trace's documents that are no CSTA event, counted, with the
// places of the first few.
void printSkipped(const fw::CstaTrace& trace, const std::string& origin, std::ostream& out) {
  constexpr size_t kPlacesShown = 3;
  const size_t count = trace.skipped.size();
  if (count == 0) return;
  out << "Skipped " << count << (count == 1 ? " document that is" : " documents that are")
      << " not a CSTA event the journal reads:\n";
  for (size_t i = 0; i < count && i < kPlacesShown; ++i) {
    const fw::CstaTraceNotice& n = trace.skipped[i];
    out << "  " << origin << ":" << n.line << ":" << n.column << ": " << n.what << "\n";
  }
  if (count > kPlacesShown) out << "  and " << count - kPlacesShown << " more\n";
}

// A `set` of the journal's own settings (kept in its database, not in the configuration) goes to
// the running journal as a client's change; one it refuses (a value it has already) is noted.
void setOnJournal(host::JournalHost& journal, const std::string& trace, const fw::CstaTraceStep& step) {
  std::string reason;
  if (!journal.setValue(step.key, step.value, reason))
    std::cerr << trace << ":" << step.line << ": " << step.key << " = " << step.value << " not taken: " << reason
              << '\n';
}

bool readAllLists(host::JournalHost& journal, JournalLists& lists) {
  for (ListKind kind : kAllListKinds)
    if (!lists.read(kind, journal.request(Helper::createMethodRequest(listMethods(kind).read)))) return false;
  return true;
}

}  // namespace

int replayCommand(const ReplayOptions& options) {
  // The whole trace is checked before anything is started or written.
  fw::CstaTrace trace;
  std::string error;
  if (!fw::readCstaTraceFile(options.trace, trace, error)) return fail("trace refused: " + error);

  std::map<std::string, std::string> overrides;
  size_t first = leadingSets(trace, options.trace, overrides);
  // The settings the phone starts with are checked as a configuration file's, naming their line.
  for (size_t i = 0; i < first; ++i)
    if (!host::checkSetting(trace.steps[i].key, trace.steps[i].value, error))
      return fail(options.trace + ":" + std::to_string(trace.steps[i].line) + ": " + error);
  TemporaryDirectory scratch;
  std::string database = options.database;
  if (database.empty()) {
    if (scratch.path().empty()) return fail("cannot make a temporary directory for the database; give one with --db");
    database = scratch.path() + "/journal.db";
  }
  overrides["database"] = database;
  if (!options.phonebook.empty()) overrides["phonebook"] = options.phonebook;

  host::JournalHost journal(host::JournalHost::Mode::Replay);
  if (!trace.steps.empty()) journal.setReplayStart(trace.steps.front().at);
  if (!journal.configure(options.config, overrides, error)) return fail(error);
  // The lists are the output: only errors are logged unless the configuration asks for more.
  if (journal.settings().logLevels == host::defaultSettings().logLevels) fw::setLogThresholds("*=2", nullptr);
  if (!journal.start(error)) return fail(error);
  for (size_t i = 0; i < first; ++i)
    if (journal.isJournalSetting(trace.steps[i].key)) setOnJournal(journal, options.trace, trace.steps[i]);

  size_t events = 0;
  for (size_t i = first; i < trace.steps.size(); ++i) {
    const fw::CstaTraceStep& step = trace.steps[i];
    if (!journal.setLocalTime(step.at, error))
      return fail(options.trace + ":" + std::to_string(step.line) + ": " + error);
    if (step.kind == fw::CstaTraceStep::Set) {
      setOnJournal(journal, options.trace, step);
      continue;
    }
    if (!journal.deliverEvent(step.eventXml, error))
      return fail(options.trace + ":" + std::to_string(step.line) + ": " + error);
    ++events;
  }
  JournalLists lists;
  if (!readAllLists(journal, lists)) return fail("the journal did not give its lists");
  journal.stop();
  if (options.json) {
    std::cout << toJson(lists) << '\n';
    printSkipped(trace, options.trace, std::cerr);  // stdout holds the JSON alone
  } else {
    std::cout << "Replayed " << events << " events of " << options.trace;
    if (!trace.steps.empty()) std::cout << " (" << trace.steps.front().at << " to " << trace.steps.back().at << ")";
    std::cout << "\n";
    printSkipped(trace, options.trace, std::cout);
    std::cout << "\n";
    printTables(lists, std::cout);
  }
  return 0;
}

}  // namespace cli
