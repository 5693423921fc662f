// Test-only view of a Semaphore's internal state: lets a test wait until threads are really
// blocked in take() (queued, for a FIFO semaphore) instead of sleeping and hoping they are.
#pragma once

#include <chrono>
#include <thread>

#include "framework/Semaphore.h"

class SemaphoreTestAccess {
 public:
  // Polls until exactly `count` threads are blocked in sem.take(); false after a generous bound
  // that only guards against hanging the test run.
  static bool waitForBlockedWaiters(Semaphore& sem, std::size_t count) {
    for (int polls = 0; polls < 20000 && sem.blockedWaiters() != count; ++polls)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return sem.blockedWaiters() == count;
  }
};
