// The journal's store path on the real SQLite store, on temporary files:
//   - a raw single-row SQLite commit with the store's durability settings: the physical bound;
//   - one journal entry write through updateMissedEntry (XML body, store message, parse, commit);
//   - loading four full lists (1000 entries of ten occurrences each) through loadCallListsFromDb;
//   - a client's read of a full list as reply XML.
// Each is run with full durability (the default: answered means on disk) and the two writes also
// with the faster synchronous=NORMAL setting. A summary of the targets follows the table.
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <type_traits>

#include "BenchPhone.h"
#include "BenchSupport.h"
#include "JournalService.h"
#include "framework/JournalServiceHelper.h"
#include "framework/Logging.h"
#include "sqlite_store/SqliteDataAccessService.h"

using Helper = JournalServiceHelper;
using bench::RawTable;
using bench::TempDir;
using namespace bench;

namespace {

const char* durabilityName(int normal) { return normal ? "NORMAL" : "FULL"; }

// One INSERT of a row as large as a one-occurrence entry, committed on its own.
void BM_RawSqliteCommit(benchmark::State& state) {
  TempDir dir;
  RawTable table(dir.file("raw.db"), state.range(0) != 0);
  const std::string body = bodyOf(makeEntry<MissedCallItem>(1, 1));
  for (auto _ : state) table.commitOne(body);
  state.SetLabel(durabilityName(state.range(0)));
}

// One new missed entry as the journal writes it: item body, store message, store, unique id.
void BM_EntryWriteUpdateMissedEntry(benchmark::State& state) {
  TempDir dir;
  Phone phone(dir.file("journal.db"), state.range(0) ? SqliteDataAccessService::Normal : SqliteDataAccessService::Full);
  const MissedCallItem item = makeEntry<MissedCallItem>(1, 1);
  for (auto _ : state) phone.service.updateMissedEntry(item, Helper::WRITEREQUEST);
  if (phone.service.lastUniqueId().empty()) state.SkipWithError("the store gave no unique id");
  state.SetLabel(durabilityName(state.range(0)));
}

// The ratio of the two above, measured alternately in one loop so that a disk that is busier at
// one moment than another weighs on both alike.
void BM_EntryWriteOverRawCommit(benchmark::State& state) {
  using Clock = std::chrono::steady_clock;
  TempDir dir;
  const bool normal = state.range(0) != 0;
  RawTable table(dir.file("raw.db"), normal);
  Phone phone(dir.file("journal.db"), normal ? SqliteDataAccessService::Normal : SqliteDataAccessService::Full);
  const MissedCallItem item = makeEntry<MissedCallItem>(1, 1);
  const std::string body = bodyOf(item);
  Clock::duration raw{}, entry{};
  for (auto _ : state) {
    const auto start = Clock::now();
    table.commitOne(body);
    const auto middle = Clock::now();
    phone.service.updateMissedEntry(item, Helper::WRITEREQUEST);
    const auto end = Clock::now();
    raw += middle - start;
    entry += end - middle;
  }
  const double rawMs = std::chrono::duration<double, std::milli>(raw).count();
  const double entryMs = std::chrono::duration<double, std::milli>(entry).count();
  const double n = static_cast<double>(state.iterations());
  state.counters["raw_ms"] = rawMs / n;
  state.counters["entry_ms"] = entryMs / n;
  state.counters["ratio"] = rawMs > 0 ? entryMs / rawMs : 0;
  state.SetLabel(durabilityName(state.range(0)));
}

// Start-up load of four full lists: read replies, parse, sort, purge scan.
void BM_LoadFourFullLists(benchmark::State& state) {
  TempDir dir;
  Phone phone(dir.file("journal.db"));
  fillAllTables(phone.service);
  std::deque<ForwardedCallItem> loaded;
  for (auto _ : state) phone.service.loadCallListsFromDb();
  phone.service.getForwardedCallList(loaded);
  if (loaded.size() != kEntries) state.SkipWithError("the forwarded list did not load whole");
  state.counters["entries"] = 4 * kEntries;
}

// The two halves of a load, for one full list: the store's read reply, and parsing it.
void BM_StoreReadOfAFullList(benchmark::State& state) {
  TempDir dir;
  Phone phone(dir.file("journal.db"));
  fill<MissedCallItem>(phone.service, Helper::DAS_CALLLOGMISSEDCALLS);
  const std::string read = Helper::readMissedCallList();
  for (auto _ : state) benchmark::DoNotOptimize(phone.store.processRequest(read).size());
}

void BM_ParseOfAFullList(benchmark::State& state) {
  TempDir dir;
  Phone phone(dir.file("journal.db"));
  fill<MissedCallItem>(phone.service, Helper::DAS_CALLLOGMISSEDCALLS);
  const std::string reply = phone.store.processRequest(Helper::readMissedCallList());
  for (auto _ : state) benchmark::DoNotOptimize(parsedMissedEntries(reply));
  state.counters["replyBytes"] = static_cast<double>(reply.size());
}

// A client's read of the full missed list, as the reply XML it is sent.
void BM_FullListReplyXml(benchmark::State& state) {
  TempDir dir;
  Phone phone(dir.file("journal.db"));
  fill<MissedCallItem>(phone.service, Helper::DAS_CALLLOGMISSEDCALLS);
  phone.service.readMissedCallList();
  size_t bytes = 0;
  for (auto _ : state) {
    std::deque<MissedCallItem> list;
    phone.service.getMissedCallList(list);
    std::string reply = Helper::respGetMissedCallList(list);
    bytes = reply.size();
    benchmark::DoNotOptimize(reply.data());
  }
  state.counters["replyBytes"] = static_cast<double>(bytes);
}

BENCHMARK(BM_RawSqliteCommit)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond)->MinTime(1.0);
BENCHMARK(BM_EntryWriteUpdateMissedEntry)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond)->MinTime(1.0);
BENCHMARK(BM_EntryWriteOverRawCommit)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond)->MinTime(2.0);
BENCHMARK(BM_LoadFourFullLists)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StoreReadOfAFullList)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ParseOfAFullList)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FullListReplyXml)->Unit(benchmark::kMillisecond);

// The console table, then the figures checked against the targets.
class TargetReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.error_occurred || run.run_type != Run::RT_Iteration) continue;
      m_ms[run.benchmark_name()] = run.GetAdjustedRealTime() * 1e3 / benchmark::GetTimeUnitMultiplier(run.time_unit);
      for (const char* counter : {"raw_ms", "entry_ms", "ratio"}) {
        const auto found = run.counters.find(counter);
        if (found != run.counters.end()) m_counters[run.benchmark_name() + ":" + counter] = found->second.value;
      }
    }
  }
  void summary() {
    // The time of the first run whose name starts with `name`.
    auto get = [&](const std::string& name) {
      for (const auto& [runName, ms] : m_ms)
        if (runName.compare(0, name.size(), name) == 0) return ms;
      return -1.0;
    };
    auto counter = [&](const std::string& prefix, const char* name) {
      for (const auto& [key, value] : m_counters)
        if (key.compare(0, prefix.size(), prefix) == 0 && key.size() > std::strlen(name) &&
            key.compare(key.size() - std::strlen(name), std::string::npos, name) == 0)
          return value;
      return -1.0;
    };
    for (const char* level : {"0", "1"}) {
      const std::string run = std::string("BM_EntryWriteOverRawCommit/") + level;
      const double ratio = counter(run, "ratio");
      if (ratio > 0)
        std::printf(
            "entry write %.3f ms / raw commit %.3f ms = %.2fx, measured alternately (synchronous=%s; target <= 2x "
            "at FULL)\n",
            counter(run, "entry_ms"), counter(run, "raw_ms"), ratio, durabilityName(level[0] == '1'));
    }
    double load = get("BM_LoadFourFullLists");
    if (load > 0) std::printf("four full lists loaded in %.1f ms (target < 50 ms)\n", load);
    double reply = get("BM_FullListReplyXml");
    if (reply > 0) std::printf("full-list reply XML built in %.2f ms (target < 10 ms)\n", reply);
  }

 private:
  std::map<std::string, double> m_ms;
  std::map<std::string, double> m_counters;  // "<run>:<counter>"
};

}  // namespace

int main(int argc, char** argv) {
  fw::setLogThresholds("*=1", nullptr);  // the phones here have no phonebook or mobility service, on purpose
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  TargetReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.summary();
  benchmark::Shutdown();
  return 0;
}
