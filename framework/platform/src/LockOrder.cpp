#include "framework/LockOrder.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <memory>
#include <set>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "LockTrack.h"
#include "framework/Logging.h"
#include "framework/Semaphore.h"

namespace fw {
namespace {

// One lock the calling thread took.
struct HeldLock {
  std::shared_ptr<const LockTrack> track;
};

// Locks held by the calling thread, oldest first. Only its own thread touches it.
thread_local std::vector<HeldLock> t_held;

// A lock in the order graph: `after` holds the locks taken while this one was held.
struct LockNode {
  std::string name;
  std::unordered_set<uint64_t> after;
  std::unordered_set<uint64_t> before;  // reverse edges, so that forget() is cheap
};

using LockGraph = std::unordered_map<uint64_t, LockNode>;
using LockPair = std::pair<uint64_t, uint64_t>;

struct CheckerState {
  Mutex mutex;  // leaf: guards the members below; never held while logging or calling the hook
  LockGraph graph GUARDED_BY(mutex);
  std::set<LockPair> reportedPairs GUARDED_BY(mutex);  // unordered pairs (smaller id first); (id, id) for recursion
  std::vector<LockOrderReport> reports GUARDED_BY(mutex);
  std::function<void(const LockOrderReport&)> hook GUARDED_BY(mutex);
};

CheckerState& state() {
  static CheckerState* s = new CheckerState;  // never destroyed: locks may be used during exit
  return *s;
}

std::atomic<bool> g_enabled{true};

std::string quoted(const std::string& name) { return "'" + name + "'"; }

LockPair unorderedPair(uint64_t a, uint64_t b) { return a < b ? LockPair(a, b) : LockPair(b, a); }

// Forgets holds of semaphores that turned out to be handed across threads or were destroyed.
void dropVoidHolds(std::vector<HeldLock>& held) {
  held.erase(std::remove_if(held.begin(), held.end(), [](const HeldLock& h) { return h.track->outOfOrder(); }),
             held.end());
}

bool holds(const std::vector<HeldLock>& held, uint64_t id) {
  return std::any_of(held.begin(), held.end(), [id](const HeldLock& h) { return h.track->id == id; });
}

LockNode& nodeFor(LockGraph& graph, const LockTrack& lock) {
  LockNode& node = graph[lock.id];
  if (node.name.empty()) node.name = lock.name;
  return node;
}

// Records "held -> taken"; returns false when the edge was known already.
bool addOrder(LockGraph& graph, const LockTrack& held, const LockTrack& taken) {
  if (!nodeFor(graph, held).after.insert(taken.id).second) return false;
  nodeFor(graph, taken).before.insert(held.id);
  return true;
}

// Shortest chain of recorded orders from `from` to `to`, both included; empty when there is none.
std::vector<uint64_t> orderPath(const LockGraph& graph, uint64_t from, uint64_t to) {
  std::unordered_map<uint64_t, uint64_t> cameFrom{{from, from}};
  std::deque<uint64_t> frontier{from};
  while (!frontier.empty()) {
    const uint64_t current = frontier.front();
    frontier.pop_front();
    if (current == to) {
      std::vector<uint64_t> path{to};
      while (path.back() != from) path.push_back(cameFrom.at(path.back()));
      std::reverse(path.begin(), path.end());
      return path;
    }
    auto node = graph.find(current);
    if (node == graph.end()) continue;
    for (uint64_t next : node->second.after)
      if (cameFrom.emplace(next, current).second) frontier.push_back(next);
  }
  return {};
}

LockOrderReport inversionReport(const LockGraph& graph, const LockTrack& held, const LockTrack& taken,
                                const std::vector<uint64_t>& path) {
  LockOrderReport report{held.name, taken.name, {}};
  report.message = "lock order inversion: " + quoted(taken.name) + " taken while holding " + quoted(held.name);
  if (path.size() == 2) {
    report.message += ", but " + quoted(held.name) + " has been taken while holding " + quoted(taken.name);
    return report;
  }
  std::string chain;
  for (uint64_t id : path) chain += (chain.empty() ? "" : " -> ") + quoted(graph.at(id).name);
  report.message +=
      ", but " + quoted(held.name) + " has been taken after " + quoted(taken.name) + " along the order " + chain;
  return report;
}

LockOrderReport recursionReport(const LockTrack& lock) {
  return {lock.name, lock.name, "lock " + quoted(lock.name) + " taken again by the thread that holds it"};
}

// Adds a report unless its pair was reported before. Called with the checker's mutex held.
void noteReport(CheckerState& s, const LockPair& pair, LockOrderReport report, std::vector<LockOrderReport>& found)
    REQUIRES(s.mutex) {
  if (!s.reportedPairs.insert(pair).second) return;
  s.reports.push_back(report);
  found.push_back(std::move(report));
}

// Records the order of every held lock before `taken` and reports the new edges that close a
// cycle. Called with the checker's mutex held.
void checkOrder(CheckerState& s, const std::vector<HeldLock>& held, const LockTrack& taken,
                std::vector<LockOrderReport>& found) REQUIRES(s.mutex) {
  for (const HeldLock& h : held) {
    if (!addOrder(s.graph, *h.track, taken)) continue;
    std::vector<uint64_t> path = orderPath(s.graph, taken.id, h.track->id);
    if (!path.empty())
      noteReport(s, unorderedPair(h.track->id, taken.id), inversionReport(s.graph, *h.track, taken, path), found);
  }
}

// Called with the checker's mutex held.
void removeNode(CheckerState& s, uint64_t id) REQUIRES(s.mutex) {
  auto node = s.graph.find(id);
  if (node == s.graph.end()) return;
  for (uint64_t next : node->second.after) s.graph[next].before.erase(id);
  for (uint64_t previous : node->second.before) s.graph[previous].after.erase(id);
  s.graph.erase(node);
}

// Called with the checker's mutex held.
void removeReportedPairs(CheckerState& s, uint64_t id) REQUIRES(s.mutex) {
  for (auto it = s.reportedPairs.begin(); it != s.reportedPairs.end();)
    it = (it->first == id || it->second == id) ? s.reportedPairs.erase(it) : std::next(it);
}

// Removes the calling thread's most recent hold of lock `id`; false when it holds none.
bool releaseOwnHold(uint64_t id) {
  std::vector<HeldLock>& held = t_held;
  auto latest = std::find_if(held.rbegin(), held.rend(), [id](const HeldLock& h) { return h.track->id == id; });
  if (latest == held.rend()) return false;
  held.erase(std::next(latest).base());
  return true;
}

void publish(const std::vector<LockOrderReport>& found, const std::function<void(const LockOrderReport&)>& hook) {
  for (const LockOrderReport& report : found) {
    logAppUni("Framework", __FILE__, kLogError, __LINE__, "%s", report.message.c_str());
    if (hook) hook(report);
  }
}

}  // namespace

void LockOrderChecker::beforeTake(const Semaphore& sem) {
  const LockTrack* taken = sem.m_track.get();
  if (!taken || !enabled()) return;
  std::vector<HeldLock>& held = t_held;
  if (held.empty()) return;  // the common case: no global mutex
  dropVoidHolds(held);
  if (held.empty() || taken->outOfOrder()) return;

  std::vector<LockOrderReport> found;
  std::function<void(const LockOrderReport&)> hook;
  {
    CheckerState& s = state();
    MutexLock guard(s.mutex);
    if (holds(held, taken->id))
      noteReport(s, {taken->id, taken->id}, recursionReport(*taken), found);
    else
      checkOrder(s, held, *taken, found);
    if (!found.empty()) hook = s.hook;
  }
  publish(found, hook);
}

// Called under the semaphore's internal mutex; touches only the calling thread's list.
void LockOrderChecker::afterTake(const Semaphore& sem) {
  LockTrack* track = sem.m_track.get();
  if (!track) return;
  track->lastTaker = std::this_thread::get_id();
  if (!track->unitFromUnlock || !enabled() || track->outOfOrder()) return;
  track->held = true;
  t_held.push_back({sem.m_track});
}

// Called under the semaphore's internal mutex, before the count is raised. Runs even when the
// checker is switched off, so that a lock given after switching off does not stay "held" once
// it is switched on again.
void LockOrderChecker::afterGive(const Semaphore& sem) {
  LockTrack* track = sem.m_track.get();
  if (!track) return;
  const bool ownHold = releaseOwnHold(track->id);
  const bool heldElsewhere = track->held && !ownHold;
  track->held = false;
  if (sem.m_count < sem.m_max) track->unitFromUnlock = track->lastTaker == std::this_thread::get_id();
  // Another thread's hold ends with this give: the semaphore is handed across threads. Its
  // orders recorded so far are dropped (the checker's mutex is a leaf, so taking it here, once
  // per such semaphore, is safe).
  if (heldElsewhere && !track->handedAcross.exchange(true, std::memory_order_acq_rel)) {
    CheckerState& s = state();
    MutexLock guard(s.mutex);
    removeNode(s, track->id);
  }
}

// Runs even when the checker is switched off, so that the graph does not keep destroyed locks.
void LockOrderChecker::forget(const Semaphore& sem) {
  if (!sem.m_track) return;
  sem.m_track->destroyed.store(true, std::memory_order_release);  // voids holds still recorded
  CheckerState& s = state();
  MutexLock guard(s.mutex);
  removeNode(s, sem.m_track->id);
  removeReportedPairs(s, sem.m_track->id);
}

void LockOrderChecker::setEnabled(bool enabled) { g_enabled.store(enabled, std::memory_order_relaxed); }

bool LockOrderChecker::enabled() { return g_enabled.load(std::memory_order_relaxed); }

std::vector<LockOrderReport> LockOrderChecker::reports() {
  CheckerState& s = state();
  MutexLock guard(s.mutex);
  return s.reports;
}

void LockOrderChecker::clearReports() {
  CheckerState& s = state();
  MutexLock guard(s.mutex);
  s.reports.clear();
}

void LockOrderChecker::setReportHook(std::function<void(const LockOrderReport&)> hook) {
  CheckerState& s = state();
  MutexLock guard(s.mutex);
  s.hook = std::move(hook);
}

}  // namespace fw
