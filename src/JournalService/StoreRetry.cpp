// The store's state as the journal sees it: the line logged when it starts failing and the one
// when it works again, the retry on the service's timer with growing delays, the health shown to
// management, and the last try at shut-down. What waits is kept per list (StoreChanges.h).
#include <algorithm>

#include "JournalService/ListAccess.h"

using journal::kCoreLog;
using journal::kStoreFailed;

// A change of a list was refused: the first refusal is logged, and a retry is armed; while it is
// armed, further changes wait without asking the store.
void JournalService::storeFailed() {
  StoreBacklog& state = *m_storeBacklog;
  CriticalSection guard(state.lock);
  if (!state.failing) {
    state.failing = true;
    state.failingSince = formatTimeDate(getCurrentTimeSec());
    state.written = 0;
    JLOG(kCoreLog, 2, "the store fails: changes are kept in the lists and written when it works again");
  }
  state.armRetry(m_pContext, this);
}

void JournalService::noteStoreWritten(size_t written) {
  if (written == 0) return;
  CriticalSection guard(m_storeBacklog->lock);
  m_storeBacklog->written += written;
}

// A change was stored: when nothing waits any more the store is well again.
void JournalService::storeWorked() {
  StoreBacklog& state = *m_storeBacklog;
  if (!state.failing || state.waiting != 0 || state.down) return;
  CriticalSection guard(state.lock);
  if (!state.failing || state.waiting != 0 || state.down) return;
  state.failing = false;
  state.retryDelayMs = StoreBacklog::kFirstRetryMs;
  JLOG(kCoreLog, 2, "the store works again: %zu changes written", state.written);
}

bool JournalService::isStoreRetryTimer(int timerId) {
  CriticalSection guard(m_storeBacklog->lock);
  if (timerId == -1 || timerId != m_storeBacklog->retryTimer) return false;
  m_pContext->deleteTimer(timerId);  // one-shot: a later retry gets a timer of its own delay
  m_storeBacklog->retryTimer = -1;
  return true;
}

// A write without entries takes the store's write lock and changes nothing: it answers whether a
// change could go through now, without holding a list's lock while the store makes it wait.
bool JournalService::probeStore() {
  std::string message = Helper::createXMLField(Helper::REASONFORMESSAGE, Helper::WRITEREQUEST);
  Helper::addXMLHeaderFooter(message, Helper::DAS_CALLLOGMISSEDCALLS);
  return processRequest(message) != kStoreFailed;
}

// Every list's backlog, one list (and lock) at a time.
bool JournalService::writeBacklogs(size_t& written) {
  return flushBacklogLocked<MissedCallItem>(written) && flushBacklogLocked<DialledCallItem>(written) &&
         flushBacklogLocked<ReceivedCallItem>(written) && flushBacklogLocked<ForwardedCallItem>(written);
}

// On the timer thread. Changes made while the backlogs are written go after what waits in their
// list (its backlog is not empty), or straight to the store once their list's backlog is written.
void JournalService::retryStore() {
  bool stored = probeStore();
  if (stored) {
    m_storeBacklog->down = false;
    size_t written = 0;
    stored = writeBacklogs(written);
    noteStoreWritten(written);
  }
  if (stored) storeWorked();
  CriticalSection guard(m_storeBacklog->lock);
  if (!stored) {
    m_storeBacklog->retryDelayMs = std::min(2 * m_storeBacklog->retryDelayMs, StoreBacklog::kLongestRetryMs);
    m_storeBacklog->armRetry(m_pContext, this);
  } else if (m_storeBacklog->waiting != 0 && !m_storeBacklog->down) {
    m_storeBacklog->armRetry(m_pContext, this);  // what a refused change left behind meanwhile
  }
}

// Whatever the store still refuses now is lost with the process: the lines say how much.
void JournalService::storeBacklogBeforeStop() {
  if (m_storeBacklog->waiting == 0) return;
  size_t written = 0;
  if (probeStore()) {
    m_storeBacklog->down = false;
    const bool stored = writeBacklogs(written);
    noteStoreWritten(written);
    if (stored) storeWorked();
  }
  if (m_storeBacklog->waiting != 0)
    JLOG(kCoreLog, 2, "the store fails: %zu changes could not be stored before the journal stopped",
         m_storeBacklog->waiting.load());
}

JournalService::StoreHealth JournalService::storeHealth() const {
  CriticalSection guard(m_storeBacklog->lock);
  StoreHealth health;
  health.failing = m_storeBacklog->failing;
  health.waitingChanges = m_storeBacklog->waiting;
  if (health.failing) health.failingSince = m_storeBacklog->failingSince;
  return health;
}

std::string JournalService::storeStateText() const {
  const StoreHealth health = storeHealth();
  if (!health.failing) return "ok";
  return "failing since " + (health.failingSince.empty() ? std::string("an unknown time") : health.failingSince) +
         ": " + std::to_string(health.waitingChanges) + " changes not stored yet";
}
