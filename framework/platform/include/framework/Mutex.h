// The framework's own mutexes, in a form clang's thread-safety analysis follows (libstdc++'s
// std::mutex carries no annotations): fw::Mutex with the scoped fw::MutexLock, fw::SharedMutex with
// fw::WriterLock and fw::ReaderLock, and fw::CondVar, a condition variable that waits on an
// fw::Mutex the caller holds.
//
// These are plain std::mutex / std::shared_mutex / std::condition_variable underneath: they do not
// report to the lock-order checker (only Semaphores do), so they serve as leaf locks or locks
// whose order is documented beside them. Not recursive. Thread-safe; a mutex must outlive every
// thread that takes it.
//
// Waiting: CondVar's waits take the mutex, not the guard, and require it held; the condition is
// tested by the caller, in a loop around the wait, so that the analysis sees it read under the lock:
//
//   fw::MutexLock guard(m_mutex);
//   while (!m_ready) m_cv.wait(m_mutex);
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <shared_mutex>

#include "framework/ThreadAnnotations.h"

#pragma GCC visibility push(default)

namespace fw {

class CondVar;

class CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() ACQUIRE() { m_mutex.lock(); }
  void unlock() RELEASE() { m_mutex.unlock(); }
  bool tryLock() TRY_ACQUIRE(true) { return m_mutex.try_lock(); }

 private:
  friend class CondVar;
  std::mutex m_mutex;
};

// Holds `mutex` from construction to destruction; unlock() and lock() give it and take it again
// within the scope (the destructor gives it only when held).
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.lock(); }
  ~MutexLock() RELEASE() {
    if (m_held) m_mutex.unlock();
  }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  void unlock() RELEASE() {
    m_mutex.unlock();
    m_held = false;
  }
  void lock() ACQUIRE() {
    m_mutex.lock();
    m_held = true;
  }

 private:
  Mutex& m_mutex;
  bool m_held = true;
};

class CAPABILITY("shared mutex") SharedMutex {
 public:
  SharedMutex() = default;
  SharedMutex(const SharedMutex&) = delete;
  SharedMutex& operator=(const SharedMutex&) = delete;

  void lock() ACQUIRE() { m_mutex.lock(); }
  void unlock() RELEASE() { m_mutex.unlock(); }
  void lockShared() ACQUIRE_SHARED() { m_mutex.lock_shared(); }
  void unlockShared() RELEASE_SHARED() { m_mutex.unlock_shared(); }

 private:
  std::shared_mutex m_mutex;
};

// Holds `mutex` exclusively for the scope.
class SCOPED_CAPABILITY WriterLock {
 public:
  explicit WriterLock(SharedMutex& mutex) ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.lock(); }
  ~WriterLock() RELEASE() { m_mutex.unlock(); }
  WriterLock(const WriterLock&) = delete;
  WriterLock& operator=(const WriterLock&) = delete;

 private:
  SharedMutex& m_mutex;
};

// Holds `mutex` shared for the scope: readers exclude writers, not each other.
class SCOPED_CAPABILITY ReaderLock {
 public:
  explicit ReaderLock(SharedMutex& mutex) ACQUIRE_SHARED(mutex) : m_mutex(mutex) { m_mutex.lockShared(); }
  ~ReaderLock() RELEASE() { m_mutex.unlockShared(); }
  ReaderLock(const ReaderLock&) = delete;
  ReaderLock& operator=(const ReaderLock&) = delete;

 private:
  SharedMutex& m_mutex;
};

// A condition variable over fw::Mutex. Each wait gives the mutex while it sleeps and holds it
// again when it returns; it may return without a notification (spurious wake-up), so the caller
// tests its condition in a loop.
class CondVar {
 public:
  CondVar() = default;
  CondVar(const CondVar&) = delete;
  CondVar& operator=(const CondVar&) = delete;

  void wait(Mutex& mutex) REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex.m_mutex, std::adopt_lock);
    m_cv.wait(lock);
    lock.release();  // the caller goes on holding it
  }
  // False when `deadline` passed.
  template <class Clock, class Duration>
  bool waitUntil(Mutex& mutex, const std::chrono::time_point<Clock, Duration>& deadline) REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex.m_mutex, std::adopt_lock);
    const bool woken = m_cv.wait_until(lock, deadline) == std::cv_status::no_timeout;
    lock.release();
    return woken;
  }
  // False when `timeout` passed.
  template <class Rep, class Period>
  bool waitFor(Mutex& mutex, const std::chrono::duration<Rep, Period>& timeout) REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex.m_mutex, std::adopt_lock);
    const bool woken = m_cv.wait_for(lock, timeout) == std::cv_status::no_timeout;
    lock.release();
    return woken;
  }

  void notifyOne() noexcept { m_cv.notify_one(); }
  void notifyAll() noexcept { m_cv.notify_all(); }

 private:
  std::condition_variable m_cv;
};

}  // namespace fw

#pragma GCC visibility pop
