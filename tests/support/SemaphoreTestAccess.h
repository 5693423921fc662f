// Test-only view of a Semaphore's internal state: lets a test wait until threads are really
// blocked in take() (queued, for a FIFO semaphore) instead of sleeping and hoping they are.
#pragma once

#include <chrono>
#include <cstddef>
#include <thread>

#include "framework/Semaphore.h"

class SemaphoreTestAccess {
 public:
  static std::size_t blockedWaiters(Semaphore& sem) { return sem.blockedWaiters(); }

  // Polls until exactly `count` threads are blocked in sem.take(); false when that did not
  // happen within `limit` (a generous bound that only guards against hanging the test run).
  static bool waitForBlockedWaiters(Semaphore& sem, std::size_t count,
                                    std::chrono::milliseconds limit = std::chrono::seconds(20)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (sem.blockedWaiters() != count) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
  }
};
