// State that one lock (a Semaphore of maximum 1) shares with the lock-order checker.
//
// Owned jointly by the Semaphore and by the held-lock lists of the threads that took it, so a
// thread's list never points at a destroyed semaphore. Internal to the framework library.
//
// Telling a lock from a signal: a semaphore of maximum 1 is also used as a binary signal (one
// thread waits, another gives). A take counts as holding a lock only when the unit it got is the
// initial one or was given back by the thread that took the semaphore last (an unlock); a unit
// given by any other thread is a signal being consumed, and holds nothing. A semaphore that one
// thread gives while another holds it is handed across threads: it is left out of the lock order
// for good, and holds recorded for it are void.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <utility>

namespace fw {

struct LockTrack {
  LockTrack(uint64_t lockId, std::string lockName, bool initiallyOpen)
      : id(lockId), name(std::move(lockName)), unitFromUnlock(initiallyOpen) {}

  bool outOfOrder() const {
    return handedAcross.load(std::memory_order_acquire) || destroyed.load(std::memory_order_acquire);
  }

  const uint64_t id;
  const std::string name;
  std::atomic<bool> handedAcross{false};
  std::atomic<bool> destroyed{false};

  // Guarded by the semaphore's internal mutex:
  bool held = false;          // a recorded take not yet given back
  bool unitFromUnlock;        // the available unit is the initial one or came from an unlock
  std::thread::id lastTaker;  // the thread that took the semaphore last
};

}  // namespace fw
