#include "framework/Semaphore.h"

#include <algorithm>
#include <atomic>
#include <chrono>

#include "LockTrack.h"
#include "framework/LockOrder.h"

namespace {

std::atomic<uint64_t> g_nextSemaphoreId{1};

std::string nameOrDefault(const char* name, uint64_t id) {
  if (name && *name) return name;
  return "semaphore#" + std::to_string(id);
}

}  // namespace

Semaphore::Semaphore(int initial, int max, bool fifo, const char* name)
    : m_count(std::clamp(initial, 0, std::max(max, 0))),
      m_max(max),
      m_fifo(fifo),
      m_id(g_nextSemaphoreId.fetch_add(1, std::memory_order_relaxed)),
      m_name(nameOrDefault(name, m_id)) {
#if FW_LOCK_ORDER_CHECK
  if (isLock()) m_track = std::make_shared<fw::LockTrack>(m_id, m_name, m_count > 0);
#endif
}

Semaphore::~Semaphore() {
#if FW_LOCK_ORDER_CHECK
  if (isLock()) fw::LockOrderChecker::forget(*this);
#endif
}

bool Semaphore::take(int ms) {
#if FW_LOCK_ORDER_CHECK
  // Before blocking, so that an inversion is reported even when this take then deadlocks.
  if (isLock()) fw::LockOrderChecker::beforeTake(*this);
#endif
  fw::MutexLock guard(m_mutex);
  if (!waitTurn(ms)) return false;
  --m_count;
#if FW_LOCK_ORDER_CHECK
  // Under m_mutex, so that the checker's record of the holder changes together with the count
  // (see LockTrack::held). afterTake takes no lock.
  if (isLock()) fw::LockOrderChecker::afterTake(*this);
#endif
  return true;
}

void Semaphore::give() {
  fw::MutexLock guard(m_mutex);
#if FW_LOCK_ORDER_CHECK
  // Under m_mutex for the same reason as afterTake, and before the count changes, so that the
  // checker sees whether this give adds a unit. afterGive takes at most the checker's own mutex,
  // a leaf, and calls neither the logger nor the report hook.
  if (isLock()) fw::LockOrderChecker::afterGive(*this);
#endif
  if (m_count < m_max) ++m_count;
  if (m_blocked == 0) return;
  // In arrival order only the first in line may proceed, and notify_one might wake another one.
  if (m_fifo)
    m_cv.notifyAll();
  else
    m_cv.notifyOne();
}

bool Semaphore::waitTurn(int ms) { return m_fifo ? waitInArrivalOrder(ms) : waitAnyOrder(ms); }

// Negative `ms`: no limit. A deadline that passed ends the wait; the caller then looks at its
// condition once more.
bool Semaphore::waitUntil(int ms, std::chrono::steady_clock::time_point deadline) {
  if (ms < 0) {
    m_cv.wait(m_mutex);
    return true;
  }
  return m_cv.waitUntil(m_mutex, deadline);
}

bool Semaphore::waitAnyOrder(int ms) {
  if (m_count > 0) return true;
  if (ms == 0) return false;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(std::max(ms, 0));
  ++m_blocked;
  while (m_count <= 0 && waitUntil(ms, deadline)) {
  }
  --m_blocked;
  return m_count > 0;
}

// Each waiter draws a ticket; it may proceed only when its ticket is first in m_waiters and the
// count is positive. A caller that finds nobody queued and a positive count proceeds at once;
// a try (ms == 0) never jumps the queue.
bool Semaphore::waitInArrivalOrder(int ms) {
  if (m_waiters.empty() && m_count > 0) return true;
  if (ms == 0) return false;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(std::max(ms, 0));
  const uint64_t ticket = m_nextTicket++;
  m_waiters.push_back(ticket);
  ++m_blocked;
  const auto myTurn = [&]() REQUIRES(m_mutex) { return m_count > 0 && m_waiters.front() == ticket; };
  while (!myTurn() && waitUntil(ms, deadline)) {
  }
  const bool ready = myTurn();
  --m_blocked;
  m_waiters.erase(std::find(m_waiters.begin(), m_waiters.end(), ticket));
  // Our ticket left the queue (served or timed out): if units remain once we are done, the new
  // first in line must wake up and claim one.
  const int remaining = ready ? m_count - 1 : m_count;
  if (remaining > 0 && !m_waiters.empty()) m_cv.notifyAll();
  return ready;
}

std::size_t Semaphore::blockedWaiters() {
  fw::MutexLock guard(m_mutex);
  return m_blocked;
}
