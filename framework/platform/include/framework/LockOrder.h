// Lock-order checker.
//
// For every lock (a Semaphore of maximum 1) taken while the same thread already holds other locks,
// the checker records the edge "held -> taken" in one process-wide graph. When a new edge closes a
// cycle (thread 1 took A then B, thread 2 takes B then A) it reports the inversion, naming both
// locks, at log level 2 under the handle "Framework" and in a list that tests read. Runs that did
// not deadlock are caught too, since the check looks at the order, not at blocking. Taking a lock
// that the same thread already holds is reported as well (our locks are not recursive).
//
// Semaphores of maximum 1 also serve as binary signals. A take holds a lock only when the unit it
// got is the initial one or was given back by the thread that took the semaphore last; consuming
// a unit given by another thread holds nothing. A semaphore given by one thread while another
// holds it is left out of the order from then on.
//
// The checker is compiled in with FW_LOCK_ORDER_CHECK (all presets by default) and can be switched
// off at run time. Thread-safe; its own mutex is a leaf lock.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "framework/Semaphore.h"

#pragma GCC visibility push(default)

namespace fw {

struct LockOrderReport {
  std::string held;     // the lock the thread held
  std::string taken;    // the lock it then took
  std::string message;  // the full text that was logged
};

class LockOrderChecker {
 public:
  // Called by Semaphore; not meant for other callers. afterTake and afterGive run under the
  // semaphore's internal mutex.
  static void beforeTake(const Semaphore& sem);
  static void afterTake(const Semaphore& sem) REQUIRES(sem.m_mutex);
  static void afterGive(const Semaphore& sem) REQUIRES(sem.m_mutex);
  static void forget(const Semaphore& sem);

  static void setEnabled(bool enabled);
  static bool enabled();

  // Reports since start or since the last clearReports().
  static std::vector<LockOrderReport> reports();
  static void clearReports();
  // Called (outside the checker's lock) for every new report; an empty function removes the hook.
  static void setReportHook(std::function<void(const LockOrderReport&)> hook);
};

}  // namespace fw

#pragma GCC visibility pop
