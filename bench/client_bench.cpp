// Clients of the journal over the Unix socket, on a real store file with full lists:
//   - a client's read of the missed list (1000 entries of ten occurrences): request, reply over
//     the socket, and the client's parse of the reply;
//   - one change (an entry deleted) fanned out to 10 subscribed clients in other connections,
//     timed until the last of them has read its message.
#include <benchmark/benchmark.h>

#include <deque>
#include <memory>
#include <vector>

#include "BenchPhone.h"
#include "BenchSupport.h"
#include "JournalServiceObserverProxy.h"
#include "client_server/ClientServer.h"
#include "client_server/JournalClient.h"
#include "framework/Logging.h"

using namespace bench;

namespace {

constexpr int kSubscribers = 10;

// The journal served on a socket, as the daemon serves it.
struct ServedPhone {
  explicit ServedPhone(const TempDir& dir) : phone(dir.file("journal.db")) {
    fill<MissedCallItem>(phone.service, Helper::DAS_CALLLOGMISSEDCALLS);
    phone.service.readMissedCallList();
    fw::ClientServerOptions options;
    options.socketPath = dir.file("journal.sock");
    server = std::make_unique<fw::ClientServer>(phone.runtime.context(), options);
    server->setTarget(&phone.service, phone.runtime.invoker());
    server->addProxyFactory(
        "JournalServiceObserverIfc", [] { return new JournalServiceObserverProxy(); },
        Helper::createMethodRequest(Helper::UNSUBSCRIBE));
    std::string error;
    check(server->start(error), error);
    socket = options.socketPath;
  }
  ~ServedPhone() { server->stop(); }

  fw::JournalClient connect() {
    fw::JournalClient client;
    std::string error;
    check(client.connect(socket, error), error);
    return client;
  }

  // The module's answer to `request`, in this process (no socket).
  std::string answer(const std::string& request) {
    std::string reply;
    phone.runtime.request(request, reply);
    return reply;
  }

  Phone phone;
  std::unique_ptr<fw::ClientServer> server;
  std::string socket;
};

// Arg 0: until the reply has arrived; arg 1: and parsed into a list, as calljournal list does.
void BM_ListRoundTripUnixSocket(benchmark::State& state) {
  TempDir dir;
  ServedPhone served(dir);
  fw::JournalClient client = served.connect();
  const std::string request = Helper::createMethodRequest(Helper::GET_MISSED_CALL_LIST);
  size_t bytes = 0;
  for (auto _ : state) {
    std::string reply, error;
    if (!client.call(request, reply, error)) state.SkipWithError(error.c_str());
    bytes = reply.size();
    if (state.range(0) == 0) continue;
    if (parsedMissedEntries(reply) != static_cast<size_t>(kEntries)) state.SkipWithError("the list is not full");
  }
  state.SetLabel(state.range(0) ? "reply parsed" : "reply received");
  state.counters["replyBytes"] = static_cast<double>(bytes);
}

// The server's half of the round trip, in process: the invoker's reply for the full list.
void BM_ListReplyInProcess(benchmark::State& state) {
  TempDir dir;
  ServedPhone served(dir);
  const std::string request = Helper::createMethodRequest(Helper::GET_MISSED_CALL_LIST);
  for (auto _ : state) {
    const std::string reply = served.answer(request);
    benchmark::DoNotOptimize(reply.data());
  }
}

// The client's half: parsing the reply into a list.
void BM_ListReplyParse(benchmark::State& state) {
  TempDir dir;
  ServedPhone served(dir);
  const std::string request = Helper::createMethodRequest(Helper::GET_MISSED_CALL_LIST);
  const std::string reply = served.answer(request);
  for (auto _ : state) benchmark::DoNotOptimize(parsedMissedEntries(reply));
}

// A request naming `state.range(0)` entry ids that match nothing (the list stays full), handled in
// process: the cost of reading the ids. Linear reading makes 16,000 ids cost 16 times 1,000.
void BM_DeleteRequestNamingManyIds(benchmark::State& state) {
  TempDir dir;
  ServedPhone served(dir);
  std::vector<std::string> ids;
  for (int64_t i = 0; i < state.range(0); ++i) ids.push_back("2024-01-01T00:00:00Z" + std::to_string(10000000 + i));
  const std::string request = Helper::createMethodRequest(Helper::DELETE_MISSED_CALL_LIST, ids);
  for (auto _ : state) {
    if (served.answer(request) != Helper::respBool(true)) state.SkipWithError("the request was not answered");
  }
  state.counters["ids"] = static_cast<double>(state.range(0));
}

// Waits until `client` has the deletion of `id`; the count update before it is read on the way.
bool awaitDeletion(fw::JournalClient& client, const std::string& id) {
  for (;;) {
    std::string message, error, got;
    int action = -1;
    MissedCallItem item;
    if (!client.nextEvent(message, error, 5000)) return false;
    if (Helper::parseObsReqMissedCallsUpdate(message, item, got, action) && got == id) return true;
  }
}

void BM_FanOutToTenSubscribers(benchmark::State& state) {
  TempDir dir;
  ServedPhone served(dir);
  std::vector<fw::JournalClient> subscribers;
  for (int i = 0; i < kSubscribers; ++i) {
    subscribers.push_back(served.connect());
    std::string reply, error;
    subscribers.back().call(Helper::createMethodRequest(Helper::SUBSCRIBE), reply, error);
  }
  // What a new subscriber is sent first is read before the clock runs.
  std::deque<MissedCallItem> entries;
  served.phone.service.getMissedCallList(entries);
  for (auto& s : subscribers) {
    std::string message, error;
    while (s.nextEvent(message, error, 200)) {
    }
  }
  size_t next = 0;
  for (auto _ : state) {
    if (next == entries.size()) {
      state.SkipWithError("ran out of entries to delete");
      break;
    }
    const std::string id = entries[next++].getEntryId();
    served.phone.service.deleteMissedCall(id);
    for (auto& s : subscribers)
      if (!awaitDeletion(s, id)) state.SkipWithError("a subscriber missed the change");
  }
}

}  // namespace

BENCHMARK(BM_ListRoundTripUnixSocket)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_ListReplyInProcess)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ListReplyParse)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DeleteRequestNamingManyIds)->Arg(1000)->Arg(16000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FanOutToTenSubscribers)->Unit(benchmark::kMillisecond)->Iterations(500);

int main(int argc, char** argv) {
  // Errors of the client server and the link are shown; the journal's own notices that these
  // phones have no phonebook, dialling plan or mobility service (on purpose) are not.
  fw::setLogThresholds("Journal Service=1, *=2", nullptr);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  std::printf("\ntargets: list round trip under 20 ms; fan-out to 10 subscribers under 5 ms\n");
  benchmark::Shutdown();
  return 0;
}
