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

// Blocks on `cv` until `ready()` holds or `ms` milliseconds pass (negative: no limit).
// Returns ready() as last evaluated under the lock.
template <class Ready>
bool waitUntilReady(std::condition_variable& cv, std::unique_lock<std::mutex>& guard, int ms, Ready ready) {
  if (ms < 0) {
    cv.wait(guard, ready);
    return true;
  }
  return cv.wait_for(guard, std::chrono::milliseconds(ms), ready);
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
  std::unique_lock<std::mutex> guard(m_mutex);
  if (!waitTurn(guard, ms)) return false;
  --m_count;
#if FW_LOCK_ORDER_CHECK
  // Under m_mutex, so that the checker's record of the holder changes together with the count
  // (see LockTrack::held). afterTake takes no lock.
  if (isLock()) fw::LockOrderChecker::afterTake(*this);
#endif
  return true;
}

void Semaphore::give() {
  std::lock_guard<std::mutex> guard(m_mutex);
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
    m_cv.notify_all();
  else
    m_cv.notify_one();
}

bool Semaphore::waitTurn(std::unique_lock<std::mutex>& guard, int ms) {
  return m_fifo ? waitInArrivalOrder(guard, ms) : waitAnyOrder(guard, ms);
}

bool Semaphore::waitAnyOrder(std::unique_lock<std::mutex>& guard, int ms) {
  if (m_count > 0) return true;
  if (ms == 0) return false;
  ++m_blocked;
  const bool ready = waitUntilReady(m_cv, guard, ms, [this] { return m_count > 0; });
  --m_blocked;
  return ready;
}

// Each waiter draws a ticket; it may proceed only when its ticket is first in m_waiters and the
// count is positive. A caller that finds nobody queued and a positive count proceeds at once;
// a try (ms == 0) never jumps the queue.
bool Semaphore::waitInArrivalOrder(std::unique_lock<std::mutex>& guard, int ms) {
  if (m_waiters.empty() && m_count > 0) return true;
  if (ms == 0) return false;
  const uint64_t ticket = m_nextTicket++;
  m_waiters.push_back(ticket);
  ++m_blocked;
  const bool ready = waitUntilReady(m_cv, guard, ms, [&] { return m_count > 0 && m_waiters.front() == ticket; });
  --m_blocked;
  m_waiters.erase(std::find(m_waiters.begin(), m_waiters.end(), ticket));
  // Our ticket left the queue (served or timed out): if units remain once we are done, the new
  // first in line must wake up and claim one.
  const int remaining = ready ? m_count - 1 : m_count;
  if (remaining > 0 && !m_waiters.empty()) m_cv.notify_all();
  return ready;
}

std::size_t Semaphore::blockedWaiters() {
  std::lock_guard<std::mutex> guard(m_mutex);
  return m_blocked;
}
