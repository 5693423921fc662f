// Counting semaphore of the framework, used by the modules mostly as a mutex
// (initial count 1, maximum 1), and the scoped CriticalSection that takes and gives it.
//
// Fairness: with `fifo` true, waiters are served in the order they arrived; with false, any
// waiter may win. A semaphore created with maximum 1 is a lock: when the lock-order checker is
// built in (FW_LOCK_ORDER_CHECK), every take of such a semaphore is recorded for the calling
// thread and checked against the order seen so far (see LockOrder.h).
//
// Thread-safe. A Semaphore must outlive every thread that takes it.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

#pragma GCC visibility push(default)

namespace fw {
class LockOrderChecker;
struct LockTrack;
}  // namespace fw

class Semaphore {
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

  const std::string& name() const { return m_name; }
  uint64_t id() const { return m_id; }
  bool isLock() const { return m_max == 1; }

 private:
  friend class fw::LockOrderChecker;  // reads m_track
  friend class SemaphoreTestAccess;   // tests wait for blockedWaiters() instead of sleeping

  bool waitTurn(std::unique_lock<std::mutex>& guard, int ms);
  bool waitAnyOrder(std::unique_lock<std::mutex>& guard, int ms);
  bool waitInArrivalOrder(std::unique_lock<std::mutex>& guard, int ms);
  // Number of threads currently blocked in take().
  std::size_t blockedWaiters();

  std::mutex m_mutex;  // internal; only the lock-order checker's own leaf mutex is taken under it
  std::condition_variable m_cv;
  int m_count;
  const int m_max;
  const bool m_fifo;
  std::deque<uint64_t> m_waiters;  // fifo only: tickets in arrival order
  uint64_t m_nextTicket = 0;
  const uint64_t m_id;
  std::string m_name;
  std::size_t m_blocked = 0;  // threads blocked in take(), both fairness modes
  // Shared with the lock-order checker; set for locks (maximum 1) when the checker is built in.
  std::shared_ptr<fw::LockTrack> m_track;
};

// Takes `sem` without time limit on construction and gives it back on destruction.
class CriticalSection {
 public:
  explicit CriticalSection(Semaphore& sem) : m_sem(sem) { m_sem.take(-1); }
  ~CriticalSection() { m_sem.give(); }
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;

 private:
  Semaphore& m_sem;
};

#pragma GCC visibility pop
