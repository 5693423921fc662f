// Counting semaphore of the framework, used by the modules mostly as a mutex
// (initial count 1, maximum 1), and the scoped CriticalSection that takes and gives it.
//
// Thread-safety analysis (ThreadAnnotations.h): a Semaphore is a capability through its mutex use
// only. lock() and unlock(), and CriticalSection on top of them, are what the analysis follows, so
// members marked GUARDED_BY a semaphore are checked wherever a CriticalSection holds it. take() and
// give(), the counting semaphore's own operations (signals, counted units, tries with a time limit),
// are not annotated: a unit taken on one thread and given on another holds nothing the analysis
// could follow. Use a semaphore either as a mutex or as a counter, never both.
//
// Fairness: with `fifo` true, waiters are served in the order they arrived; with false, any
// waiter may win. A semaphore created with maximum 1 is a lock: when the lock-order checker is
// built in (FW_LOCK_ORDER_CHECK), every take of such a semaphore is recorded for the calling
// thread and checked against the order seen so far (see LockOrder.h).
//
// Thread-safe. A Semaphore must outlive every thread that takes it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "framework/Mutex.h"
#include "framework/ThreadAnnotations.h"

#pragma GCC visibility push(default)

namespace fw {
class LockOrderChecker;
struct LockTrack;
}  // namespace fw

class CAPABILITY("mutex") Semaphore {
 public:
  // `name` is used in lock-order reports; unnamed semaphores are called "semaphore#<n>".
  Semaphore(int initial, int max, bool fifo, const char* name = nullptr);
  ~Semaphore();
  Semaphore(const Semaphore&) = delete;
  Semaphore& operator=(const Semaphore&) = delete;

  // Waits up to `ms` milliseconds (-1: forever, 0: do not wait) for the count to be positive and
  // decrements it. Returns false on time-out.
  bool take(int ms);
  // Increments the count up to the maximum; a give beyond the maximum is ignored.
  void give();

  // The mutex use (a semaphore of maximum 1): take without time limit, give back.
  void lock() ACQUIRE() { take(-1); }
  void unlock() RELEASE() { give(); }

  const std::string& name() const { return m_name; }
  uint64_t id() const { return m_id; }
  bool isLock() const { return m_max == 1; }

 private:
  friend class fw::LockOrderChecker;  // reads m_track
  friend class SemaphoreTestAccess;   // tests wait for blockedWaiters() instead of sleeping

  bool waitTurn(int ms) REQUIRES(m_mutex);
  bool waitAnyOrder(int ms) REQUIRES(m_mutex);
  bool waitInArrivalOrder(int ms) REQUIRES(m_mutex);
  // Waits on m_cv until `deadline` (none when `ms` is negative); false when it passed.
  bool waitUntil(int ms, std::chrono::steady_clock::time_point deadline) REQUIRES(m_mutex);
  // Number of threads currently blocked in take().
  std::size_t blockedWaiters();

  fw::Mutex m_mutex;  // internal; only the lock-order checker's own leaf mutex is taken under it
  fw::CondVar m_cv;
  int m_count GUARDED_BY(m_mutex);
  const int m_max;
  const bool m_fifo;
  std::deque<uint64_t> m_waiters GUARDED_BY(m_mutex);  // fifo only: tickets in arrival order
  uint64_t m_nextTicket GUARDED_BY(m_mutex) = 0;
  const uint64_t m_id;
  std::string m_name;
  std::size_t m_blocked GUARDED_BY(m_mutex) = 0;  // threads blocked in take(), both fairness modes
  // Shared with the lock-order checker; set for locks (maximum 1) when the checker is built in.
  std::shared_ptr<fw::LockTrack> m_track;
};

// Takes `sem` without time limit on construction and gives it back on destruction.
class SCOPED_CAPABILITY CriticalSection {
 public:
  explicit CriticalSection(Semaphore& sem) ACQUIRE(sem) : m_sem(sem) { m_sem.lock(); }
  ~CriticalSection() RELEASE() { m_sem.unlock(); }
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;

 private:
  Semaphore& m_sem;
};

#pragma GCC visibility pop
