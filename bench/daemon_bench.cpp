// The real daemon as a phone's owner meets it, with full lists (missed, received, dialled and
// forwarded: 1000 entries of ten occurrences each, distinct parties, no callbacks):
//
//   - the lists are written once into a database file in a temporary folder by the journal itself
//     on the SQLite store (BenchPhone.h: one transaction per list); each repetition starts from a
//     copy of that file;
//   - each repetition starts calljournald (found beside this program) on the copy, against a
//     switch simulator (cstaswitchsim, found the same way) with no calls, and measures:
//       start      fork and exec until a client's first reply of the missed list holding all its
//                  entries (the client connects and asks again every millisecond until then); the
//                  same for an empty database, as a reference;
//       memory     VmRSS and VmHWM of /proc/PID/status, once the monitor has started and again
//                  after 20 reads of each list;
//       read       a client's request of one list until the reply is parsed into its 1000 entries
//                  (JournalClient and JournalLists, as `calljournal list`): median of 20 per list;
//   - then a subscribed client waits, the idle simulator is replaced by one on the same port that
//     plays a trace of N calls (a mix of the four kinds, each with a party of a full list, so that
//     every call merges into a full entry) as fast as the daemon takes them, and:
//       CPU/call   the on-CPU time of the daemon's "CSTA events" thread (schedstat) from before the
//                  link is replaced until the last call has reached the client, over N;
//       calls/s    (N - 1) over the time from the first to the N-th list update the client reads,
//                  divided by raw single-row commits per second (synchronous=FULL) in the same
//                  folder, measured just before and just after (their mean);
//   - the checks: the subscribed client read one list update per call; after the calls every list
//     still holds 1000 entries, and the lists a client reads hold the same entries with the same
//     occurrence counts as the rows of the database file (read after the daemon stopped). A failed
//     check withholds every figure (exit status 2);
//   - in process, after each daemon: calls per second through JournalService::deliverEvent (the
//     time inside it only, as the replay benchmark counts) on the in-memory store with the same
//     full lists and the same calls, checked as the daemon's lists are.
//
// Usage: journal_daemon_bench [--reps=K] [--calls=N] [--raw-seconds=S] [--keep-database=PATH]
// (defaults 1, 3000, 1.5 s of raw commits before and after the calls; --keep-database copies the
// full lists' database to PATH, for profiling the daemon by hand on the same lists). Prints each repetition's figures
// once every repetition has passed its checks, then the minimum and median of each row against its target (met or not,
// by the median). Exit status 0 when the checks passed (whatever the targets), 2 when a check failed, 3 when it could
// not run.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <deque>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "BenchPhone.h"
#include "BenchSupport.h"
#include "BenchTrace.h"
#include "CstaEventFactory.h"
#include "DaemonProcesses.h"
#include "JournalLists.h"
#include "client_server/JournalClient.h"
#include "framework/Logging.h"
#include "memory_store/MemoryDataAccessService.h"

using namespace bench;
using Clock = std::chrono::steady_clock;
using cli::ListKind;

namespace {

constexpr ListKind kLists[] = {ListKind::Missed, ListKind::Received, ListKind::Dialled, ListKind::Forwarded};
constexpr int kReadsPerList = 20;
constexpr double kDefaultRawSeconds = 1.5;

// A failed check: the figures are not reported.
struct CheckFailure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

double msSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// ---- The calls -----------------------------------------------------------------------------------

// Call i: the four kinds in turn, each with a party of its full list, spread over the list.
std::pair<CallKind, int> callOf(int i) {
  return {static_cast<CallKind>(i % 4), (i / 4 * 389 + i % 4 * 250) % kEntries};
}

std::string partyOf(CallKind kind, int party) {
  switch (kind) {
    case CallKind::Missed:
      return partyNumber<MissedCallItem>(party);
    case CallKind::Received:
      return partyNumber<ReceivedCallItem>(party);
    case CallKind::Dialled:
      return partyNumber<DialledCallItem>(party);
    case CallKind::Forwarded:
      break;
  }
  return partyNumber<ForwardedCallItem>(party);
}

// ---- A client's lists ----------------------------------------------------------------------------

// One list read as `calljournal list` reads it; false with `error` when it could not be.
bool readList(fw::JournalClient& client, ListKind kind, cli::JournalLists& lists, std::string& error) {
  std::string reply;
  if (!client.call(Helper::createMethodRequest(cli::listMethods(kind).read), reply, error, 30000)) return false;
  if (lists.read(kind, reply)) return true;
  error = std::string("the ") + cli::listName(kind) + " list reply could not be read";
  return false;
}

template <class Item>
std::map<std::string, size_t> occurrencesById(const std::deque<Item>& list) {
  std::map<std::string, size_t> byId;
  for (const Item& item : list) byId[item.getEntryId()] = item.infos().size();
  return byId;
}

// Entry id -> occurrences of one list.
std::map<std::string, size_t> occurrencesById(const cli::JournalLists& lists, ListKind kind) {
  switch (kind) {
    case ListKind::Missed:
      return occurrencesById(lists.missed);
    case ListKind::Received:
      return occurrencesById(lists.received);
    case ListKind::Dialled:
      return occurrencesById(lists.dialled);
    default:
      return occurrencesById(lists.forwarded);
  }
}

// The stored rows of the four lists, read from `store`.
cli::JournalLists storedLists(DataAccessServiceIfc& store) {
  cli::JournalLists lists;
  Helper::parseXMLMissedCallList(store.processRequest(Helper::readMissedCallList()), lists.missed);
  Helper::parseXMLReceivedCallList(store.processRequest(Helper::readReceivedCallList()), lists.received);
  Helper::parseXMLDialledCallList(store.processRequest(Helper::readDialledCallList()), lists.dialled);
  Helper::parseXMLForwardedCallList(store.processRequest(Helper::readForwardedCallList()), lists.forwarded);
  return lists;
}

// After the calls: every list full of full entries, and the lists a client reads are the stored rows.
void checkListsAgainstStore(const cli::JournalLists& read, const cli::JournalLists& stored) {
  for (ListKind kind : kLists) {
    const std::string name = cli::listName(kind);
    if (read.size(kind) != static_cast<size_t>(kEntries))
      throw CheckFailure("after the calls the " + name + " list holds " + std::to_string(read.size(kind)) + " entries");
    const auto inList = occurrencesById(read, kind), inStore = occurrencesById(stored, kind);
    if (inList != inStore)
      throw CheckFailure("the " + name + " list a client reads (" + std::to_string(inList.size()) +
                         " entries) differs from the stored rows (" + std::to_string(inStore.size()) +
                         " entries) in its entries or their occurrences");
    for (const auto& [id, occurrences] : inList)
      if (occurrences != kOccurrences)
        throw CheckFailure("the " + name + " entry " + id + " holds " + std::to_string(occurrences) + " occurrences");
  }
}

// The same, the rows read from the database file (the daemon has stopped).
void checkListsAgainstFile(const cli::JournalLists& read, const std::string& database) {
  SqliteDataAccessService store;
  std::string error;
  if (!store.open(database, error)) throw BenchFailure("cannot open the database after the run: " + error);
  checkListsAgainstStore(read, storedLists(store));
}

// ---- One repetition --------------------------------------------------------------------------------

struct Figures {
  double startMs = 0, startEmptyMs = 0;
  double rssStartMb = 0, hwmStartMb = 0, rssReadMb = 0, hwmReadMb = 0;
  double readMs[4] = {};
  double cpuUsPerCall = 0, callsPerSec = 0, rawBefore = 0, rawAfter = 0, ratio = 0;
  double memoryCallsPerSec = 0;
};

// The files of one repetition, and the database with full lists it starts from.
struct Setup {
  const TempDir& dir;
  std::string fullDatabase;
  std::string trace;
  int calls;
  double rawSeconds;  // how long each raw commit measurement runs
};

std::string writeConfig(const TempDir& dir, const std::string& name, const std::string& database, int switchPort) {
  const std::string path = dir.file(name + ".conf");
  std::ofstream(path) << "software-type = Velmora SIP\nsystem-identifier = 0\nserver-based-features = true\n"
                      << "switch = 127.0.0.1:" << switchPort << "\nmonitored-device = " << trace::kOwnLine
                      << "\ndatabase = " << database << "\nclient-socket = " << dir.file(name + ".sock") << "\n";
  return path;
}

void copyFile(const std::string& from, const std::string& to) {
  std::ifstream in(from, std::ios::binary);
  std::ofstream out(to, std::ios::binary | std::ios::trunc);
  out << in.rdbuf();
  if (!in || !out) throw BenchFailure("cannot copy " + from + " to " + to);
}

// Starts `daemon` and returns the time from fork until a client's first missed list reply that
// holds `expected` entries; `client` is left connected.
double startUntilFirstList(DaemonProcess& daemon, const std::string& socket, size_t expected,
                           fw::JournalClient& client) {
  const auto start = Clock::now();
  daemon.start();
  double ms = -1;
  waitUntil(
      [&] {
        daemon.checkRunning();
        std::string error;
        if (!client.connected() && !client.connect(socket, error)) return false;
        cli::JournalLists lists;
        if (!readList(client, ListKind::Missed, lists, error) || lists.missed.size() != expected) return false;
        ms = msSince(start);
        return true;
      },
      30000, "list reply from the daemon", 1);
  return ms;
}

double mb(long kb) { return static_cast<double>(kb) / 1024; }

// The daemon on an empty database, for the start's reference figure.
double emptyStart(const Setup& setup) {
  SwitchProcess idle(0, "");
  const std::string config = writeConfig(setup.dir, "empty", setup.dir.file("empty.db"), idle.port());
  std::remove(setup.dir.file("empty.db").c_str());
  DaemonProcess daemon(config);
  fw::JournalClient client;
  const double ms = startUntilFirstList(daemon, setup.dir.file("empty.sock"), 0, client);
  client.close();
  daemon.stop();
  return ms;
}

// 20 reads of every list, in turns; the median time of each list's reads.
void readEveryList(fw::JournalClient& client, Figures& figures) {
  std::vector<double> times[4];
  for (int round = 0; round < kReadsPerList; ++round) {
    for (int l = 0; l < 4; ++l) {
      throwIfInterrupted();
      cli::JournalLists lists;
      std::string error;
      const auto start = Clock::now();
      const bool read = readList(client, kLists[l], lists, error);
      times[l].push_back(msSince(start));
      if (!read) throw BenchFailure(error);
      if (lists.size(kLists[l]) != static_cast<size_t>(kEntries))
        throw CheckFailure(std::string("the ") + cli::listName(kLists[l]) + " list holds " +
                           std::to_string(lists.size(kLists[l])) + " entries before the calls");
    }
  }
  for (int l = 0; l < 4; ++l) {
    std::sort(times[l].begin(), times[l].end());
    figures.readMs[l] = (times[l][kReadsPerList / 2 - 1] + times[l][kReadsPerList / 2]) / 2;
  }
}

// Subscribes `client` and reads what a new subscriber is sent first.
void subscribe(fw::JournalClient& client) {
  std::string reply, error, message;
  if (!client.call(Helper::createMethodRequest(Helper::SUBSCRIBE), reply, error))
    throw BenchFailure("cannot subscribe: " + error);
  while (client.nextEvent(message, error, 300)) {
  }
}

bool isListUpdate(const std::string& message) {
  const std::string op = Helper::getObserverOperation(message);
  return op == Helper::OBS_MISSEDCALLSUPDATE || op == Helper::OBS_RECEIVEDCALLSUPDATE ||
         op == Helper::OBS_DIALLEDCALLSUPDATE || op == Helper::OBS_FORWARDEDCALLSUPDATE;
}

// Reads list updates until `calls` have come; the time from the first to the last. The time limit
// counts from the last update read (or the start), so that a slow daemon still finishes.
double awaitUpdates(fw::JournalClient& client, int calls, int& updates) {
  Clock::time_point first{};
  updates = 0;
  auto lastProgress = Clock::now();
  while (updates < calls) {
    throwIfInterrupted();
    std::string message, error;
    if (!client.nextEvent(message, error, 200)) {
      if (!error.empty()) throw BenchFailure("the subscribed client lost the daemon: " + error);
      if (msSince(lastProgress) > 60000)
        throw BenchFailure("no list update for 60 s after " + std::to_string(updates) + " of " + std::to_string(calls) +
                           " calls");
      continue;
    }
    if (!isListUpdate(message)) continue;
    if (updates++ == 0) first = Clock::now();
    lastProgress = Clock::now();
  }
  return std::chrono::duration<double>(Clock::now() - first).count();
}

double rawRate(const Setup& setup, const char* name) {
  const std::string path = setup.dir.file(name);
  const double rate = rawCommitsPerSecond(path, bodyOf(makeEntry<MissedCallItem>(1, 1)), setup.rawSeconds);
  std::remove(path.c_str());
  std::remove((path + "-wal").c_str());
  std::remove((path + "-shm").c_str());
  return rate;
}

// The calls through the running daemon: the idle switch is replaced by one playing the trace.
void measureCalls(const Setup& setup, DaemonProcess& daemon, std::unique_ptr<SwitchProcess>& idle,
                  fw::JournalClient& subscriber, Figures& figures) {
  const pid_t events = threadNamed(daemon.pid(), "CSTA events");
  if (events == 0) throw BenchFailure("the daemon has no thread named \"CSTA events\"");
  figures.rawBefore = rawRate(setup, "raw-before.db");
  const long long cpuBefore = onCpuNs(daemon.pid(), events);
  const int port = idle->port();
  idle.reset();
  SwitchProcess playing(port, setup.trace);
  int updates = 0;
  const double seconds = awaitUpdates(subscriber, setup.calls, updates);
  figures.cpuUsPerCall = static_cast<double>(onCpuNs(daemon.pid(), events) - cpuBefore) / 1e3 / setup.calls;
  figures.callsPerSec = seconds > 0 ? (setup.calls - 1) / seconds : 0;
  // More updates than calls would show as the client's next reads: wait a moment for strays.
  std::string message, error;
  while (subscriber.nextEvent(message, error, 500))
    if (isListUpdate(message)) ++updates;
  if (updates != setup.calls)
    throw CheckFailure(std::to_string(updates) + " list updates for " + std::to_string(setup.calls) + " calls");
  figures.rawAfter = rawRate(setup, "raw-after.db");
  figures.ratio = figures.callsPerSec / ((figures.rawBefore + figures.rawAfter) / 2);
}

Figures runDaemon(const Setup& setup, int rep) {
  Figures figures;
  figures.startEmptyMs = emptyStart(setup);
  const std::string database = setup.dir.file("journal-" + std::to_string(rep) + ".db");
  copyFile(setup.fullDatabase, database);
  auto idle = std::make_unique<SwitchProcess>(0, "");
  const std::string config = writeConfig(setup.dir, "full", database, idle->port());
  DaemonProcess daemon(config);
  fw::JournalClient client;
  figures.startMs = startUntilFirstList(daemon, setup.dir.file("full.sock"), kEntries, client);
  waitUntil([&] { return daemon.monitorRuns(); }, 30000, "monitor start at the switch");
  figures.rssStartMb = mb(daemon.statusKb("VmRSS:"));
  figures.hwmStartMb = mb(daemon.statusKb("VmHWM:"));
  readEveryList(client, figures);
  figures.rssReadMb = mb(daemon.statusKb("VmRSS:"));
  figures.hwmReadMb = mb(daemon.statusKb("VmHWM:"));

  fw::JournalClient subscriber;
  std::string error;
  if (!subscriber.connect(setup.dir.file("full.sock"), error)) throw BenchFailure(error);
  subscribe(subscriber);
  measureCalls(setup, daemon, idle, subscriber, figures);

  cli::JournalLists after;
  for (ListKind kind : kLists)
    if (!readList(client, kind, after, error)) throw BenchFailure(error);
  client.close();
  subscriber.close();
  daemon.stop();
  checkListsAgainstFile(after, database);
  std::remove(database.c_str());
  return figures;
}

// ---- In memory ---------------------------------------------------------------------------------------

// A SIP journal on the in-memory store, full lists loaded, on a manual clock.
struct MemoryPhone {
  MemoryPhone() : runtime(fw::JournalRuntime::Clock::Manual, "2026-03-10T08:00:00"), service(linkJournal(runtime)) {
    runtime.mgmt().setValue("software-type", "Velmora SIP");
    runtime.mgmt().setValue("server-based-features", "true");
    runtime.provide("CSTAServiceIfc", &csta);
    runtime.provide("DataAccessServiceIfc", &store);
    startJournal(runtime);
    fillAllTables(service);
    service.loadCallListsFromDb();
  }
  MemoryDataAccessService store;
  RecordingCstaService csta;
  fw::JournalRuntime runtime;
  JournalService& service;
};

// The events of one call as the CSTA service delivers them (the same calls as the trace's); the
// time spent in deliverEvent is added to `inService`.
void deliverCall(JournalService& service, CallKind kind, const std::string& id, const std::string& number,
                 Clock::duration& inService) {
  const CSTADeviceID party = csta::dev(number), own = csta::dev(csta::kOwnLine);
  const auto deliver = [&service, &inService](auto event) {
    const auto start = Clock::now();
    service.deliverEvent(event.get());
    inService += Clock::now() - start;
  };
  switch (kind) {
    case CallKind::Missed:
    case CallKind::Received:
    case CallKind::Forwarded:
      deliver(csta::delivered(id, CSTA_LCS_Alerting, party, own, own));
      if (kind == CallKind::Received) deliver(csta::established(id, party, own, own));
      if (kind == CallKind::Forwarded)
        deliver(csta::diverted(id, EC_CALL_FORWARD_NO_ANSWER, party, own, csta::dev(trace::kForwardTarget)));
      deliver(csta::cleared(id, EC_NORMAL_CLEARING));
      return;
    case CallKind::Dialled:
      deliver(csta::originated(id, party));
      deliver(csta::delivered(id, CSTA_LCS_Connected, own, party, party));
      deliver(csta::established(id, own, party, party));
      deliver(csta::cleared(id, EC_NORMAL_CLEARING));
      return;
  }
}

double memoryCallsPerSecond(int calls) {
  MemoryPhone phone;
  Clock::duration inService{};
  for (int i = 0; i < calls; ++i) {
    const auto [kind, party] = callOf(i);
    deliverCall(phone.service, kind, callId(i), partyOf(kind, party), inService);
  }
  const double seconds = std::chrono::duration<double>(inService).count();
  cli::JournalLists lists;
  phone.service.getMissedCallList(lists.missed);
  phone.service.getReceivedCallList(lists.received);
  phone.service.getDialledCallList(lists.dialled);
  phone.service.getForwardedCallList(lists.forwarded);
  checkListsAgainstStore(lists, storedLists(phone.store));
  if (phone.service.getNumberOfCalls() != 0) throw CheckFailure("in memory calls were left in the call table");
  return calls / seconds;
}

// ---- The report ------------------------------------------------------------------------------------

struct Row {
  const char* what;
  const char* unit;
  double target;
  bool atMost;  // the target is a ceiling (else a floor)
  std::function<double(const Figures&)> figure;
};

std::vector<Row> rows() {
  std::vector<Row> all = {
      {"resident memory after start (VmRSS)", "MB", 24, true, [](const Figures& f) { return f.rssStartMb; }},
      {"resident memory after 20 reads of each list (VmRSS)", "MB", 24, true,
       [](const Figures& f) { return f.rssReadMb; }},
      {"  peak resident memory after the reads (VmHWM)", "MB", 0, true, [](const Figures& f) { return f.hwmReadMb; }},
      {"start until the first list reply, full lists", "ms", 40, true, [](const Figures& f) { return f.startMs; }},
      {"  the same, empty database", "ms", 0, true, [](const Figures& f) { return f.startEmptyMs; }}};
  for (int l = 0; l < 4; ++l) {
    static std::string names[4];
    names[l] = std::string("list request until parsed, ") + cli::listName(kLists[l]) + " (median of 20)";
    all.push_back({names[l].c_str(), "ms", 8, true, [l](const Figures& f) { return f.readMs[l]; }});
  }
  all.push_back(
      {"CPU of the CSTA event thread per call", "us", 60, true, [](const Figures& f) { return f.cpuUsPerCall; }});
  all.push_back(
      {"  journalled calls per second, real path", "/s", 0, false, [](const Figures& f) { return f.callsPerSec; }});
  all.push_back({"  raw single-row commits per second (mean of before and after)", "/s", 0, false,
                 [](const Figures& f) { return (f.rawBefore + f.rawAfter) / 2; }});
  all.push_back({"journalled calls / raw commits", "", 0.6, false, [](const Figures& f) { return f.ratio; }});
  all.push_back({"calls per second in memory, full lists", "/s", 150000, false,
                 [](const Figures& f) { return f.memoryCallsPerSec; }});
  return all;
}

void printRepetition(int rep, const Figures& f) {
  std::printf(
      "rep %d: start %.1f ms (empty %.1f ms); VmRSS %.1f/%.1f MB, VmHWM %.1f/%.1f MB (after start/after reads); "
      "reads %.2f %.2f %.2f %.2f ms; %.1f us/call; %.0f calls/s, raw %.0f/%.0f commits/s, ratio %.2f; "
      "in memory %.0f calls/s\n",
      rep, f.startMs, f.startEmptyMs, f.rssStartMb, f.rssReadMb, f.hwmStartMb, f.hwmReadMb, f.readMs[0], f.readMs[1],
      f.readMs[2], f.readMs[3], f.cpuUsPerCall, f.callsPerSec, f.rawBefore, f.rawAfter, f.ratio, f.memoryCallsPerSec);
  std::fflush(stdout);
}

void printSummary(const std::vector<Figures>& all) {
  std::printf("\n%-66s %10s %10s %10s  %s\n", "", "min", "median", "target", "(by the median)");
  for (const Row& row : rows()) {
    std::vector<double> values;
    for (const Figures& f : all) values.push_back(row.figure(f));
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    const double median = n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
    // A ratio is shown to three places, so that one just under its target does not show as at it.
    const int places = row.unit[0] ? 2 : 3;
    std::printf("%-66s %10.*f %10.*f",
                (std::string(row.what) + (*row.unit ? " [" : "") + row.unit + (*row.unit ? "]" : "")).c_str(), places,
                values.front(), places, median);
    if (row.target > 0) {
      const bool met = row.atMost ? median <= row.target : median >= row.target;
      std::printf(" %s%9g  %s", row.atMost ? "<=" : ">=", row.target, met ? "met" : "NOT MET");
    }
    std::printf("\n");
  }
}

std::string loadAverage() {
  std::string line;
  std::getline(std::ifstream("/proc/loadavg"), line);
  return line;
}

// The database with full lists, written by the journal on the SQLite store.
std::string fillDatabase(const TempDir& dir, const std::string& keepAt) {
  const std::string path = dir.file("full.db");
  const auto start = Clock::now();
  {
    Phone phone(path);
    fillAllTables(phone.service);
  }
  std::printf("full lists written in %.1f s (4 x %d entries x %d occurrences)\n", msSince(start) / 1000, kEntries,
              kOccurrences);
  if (!keepAt.empty()) {
    copyFile(path, keepAt);
    std::printf("full lists kept in %s\n", keepAt.c_str());
  }
  return path;
}

int run(int reps, int calls, double rawSeconds, const std::string& keepDatabase) {
  std::printf("load average at the start: %s\n", loadAverage().c_str());
  TempDir dir;
  const Setup setup{dir, fillDatabase(dir, keepDatabase), dir.file("calls.xml"), calls, rawSeconds};
  if (!writeTrace(setup.trace, calls, [](int i) {
        const auto [kind, party] = callOf(i);
        return std::make_pair(kind, partyOf(kind, party));
      }))
    throw BenchFailure("cannot write the trace");
  std::vector<Figures> all;
  for (int rep = 1; rep <= reps; ++rep) {
    Figures figures = runDaemon(setup, rep);
    figures.memoryCallsPerSec = memoryCallsPerSecond(calls);
    std::fprintf(stderr, "repetition %d of %d done, its checks passed\n", rep, reps);
    all.push_back(figures);
  }
  std::printf("\n");
  for (size_t rep = 0; rep < all.size(); ++rep) printRepetition(static_cast<int>(rep + 1), all[rep]);
  printSummary(all);
  std::printf("\n%d calls per repetition, %d repetitions; load average at the end: %s\n", calls, reps,
              loadAverage().c_str());
  return 0;
}

// "--name=value" with a positive value: 1 when `arg` is that option, -1 when its value is not
// positive, 0 when `arg` is another option.
template <class Number>
int numberOption(const std::string& arg, const char* name, Number& value) {
  const size_t length = std::strlen(name);
  if (arg.compare(0, length, name) != 0) return 0;
  value = static_cast<Number>(std::atof(arg.c_str() + length));
  return value > 0 ? 1 : -1;
}

}  // namespace

int main(int argc, char** argv) {
  int reps = 1, calls = 3000;
  double rawSeconds = kDefaultRawSeconds;
  std::string keepDatabase;
  constexpr const char* kKeep = "--keep-database=";
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg.compare(0, std::strlen(kKeep), kKeep) == 0 && arg.size() > std::strlen(kKeep)) {
      keepDatabase = arg.substr(std::strlen(kKeep));
      continue;
    }
    if (numberOption(arg, "--reps=", reps) == 1 || numberOption(arg, "--calls=", calls) == 1 ||
        numberOption(arg, "--raw-seconds=", rawSeconds) == 1)
      continue;
    std::fprintf(
        stderr,
        "usage: %s [--reps=K] [--calls=N] [--raw-seconds=S] [--keep-database=PATH]  (K, N, S: numbers above 0)\n",
        argv[0]);
    return 3;
  }
  fw::setLogThresholds("*=1", nullptr);  // the in-process journals have no phonebook or dialling plan, on purpose
  catchInterrupts();
  try {
    return run(reps, std::max(calls, 2), rawSeconds, keepDatabase);
  } catch (const CheckFailure& failure) {
    std::printf("\nCHECK FAILED, figures withheld: %s\n", failure.what());
    return 2;
  } catch (const std::exception& failure) {
    std::printf("\nthe benchmark could not run: %s\n", failure.what());
    return 3;
  }
}
