#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>

#include "framework/Semaphore.h"

namespace {

class SemaphoreBasics : public ::testing::TestWithParam<bool> {
 protected:
  bool fifo() const { return GetParam(); }
};

TEST_P(SemaphoreBasics, CountsDownToZeroAndUpAgain) {
  Semaphore sem(2, 3, fifo(), "basics.count");
  EXPECT_TRUE(sem.take(0));
  EXPECT_TRUE(sem.take(0));
  EXPECT_FALSE(sem.take(0));
  sem.give();
  EXPECT_TRUE(sem.take(0));
  EXPECT_FALSE(sem.take(0));
}

TEST_P(SemaphoreBasics, TryTakeOnEmptySemaphoreFails) {
  Semaphore lock(0, 1, fifo(), "basics.empty-lock");
  Semaphore counter(0, 5, fifo(), "basics.empty-counter");
  EXPECT_FALSE(lock.take(0));
  EXPECT_FALSE(counter.take(0));
}

TEST_P(SemaphoreBasics, TimedTakeOnEmptySemaphoreWaitsThenFails) {
  Semaphore sem(0, 1, fifo(), "basics.timeout");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(sem.take(30));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
  // The timed-out take left nothing behind: the next give makes the semaphore available.
  sem.give();
  EXPECT_TRUE(sem.take(0));
}

TEST_P(SemaphoreBasics, TimedTakeSucceedsAtOnceWhenAvailable) {
  Semaphore sem(1, 1, fifo(), "basics.available");
  EXPECT_TRUE(sem.take(1000));
  EXPECT_FALSE(sem.take(0));
}

TEST_P(SemaphoreBasics, GiveBeyondMaximumIsIgnored) {
  Semaphore lock(1, 1, fifo(), "basics.full-lock");
  lock.give();
  lock.give();
  EXPECT_TRUE(lock.take(0));
  EXPECT_FALSE(lock.take(0));

  Semaphore counter(0, 2, fifo(), "basics.full-counter");
  for (int i = 0; i < 5; ++i) counter.give();
  EXPECT_TRUE(counter.take(0));
  EXPECT_TRUE(counter.take(0));
  EXPECT_FALSE(counter.take(0));
}

TEST_P(SemaphoreBasics, InitialCountIsLimitedToMaximum) {
  Semaphore sem(5, 2, fifo(), "basics.initial");
  EXPECT_TRUE(sem.take(0));
  EXPECT_TRUE(sem.take(0));
  EXPECT_FALSE(sem.take(0));
}

INSTANTIATE_TEST_SUITE_P(Fairness, SemaphoreBasics, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& info) {
                           return info.param ? std::string("Fifo") : std::string("AnyOrder");
                         });

TEST(CriticalSection, HoldsTheSemaphoreForItsScope) {
  Semaphore sem(1, 1, false, "cs.scope");
  {
    CriticalSection section(sem);
    EXPECT_FALSE(sem.take(0));
  }
  EXPECT_TRUE(sem.take(0));
  sem.give();
}

TEST(CriticalSection, ReleasesWhenLeftByException) {
  Semaphore sem(1, 1, true, "cs.exception");
  try {
    CriticalSection section(sem);
    throw std::runtime_error("leave the scope");
  } catch (const std::runtime_error&) {
  }
  EXPECT_TRUE(sem.take(0));
  sem.give();
}

TEST(SemaphoreNames, KeepsTheGivenName) {
  Semaphore sem(1, 1, false, "journal.entries");
  EXPECT_EQ(sem.name(), "journal.entries");
}

TEST(SemaphoreNames, UnnamedSemaphoresAreNamedAfterTheirId) {
  Semaphore first(1, 1, false);
  Semaphore second(1, 1, false, "");
  EXPECT_EQ(first.name(), "semaphore#" + std::to_string(first.id()));
  EXPECT_EQ(second.name(), "semaphore#" + std::to_string(second.id()));
  EXPECT_NE(first.name(), second.name());
}

TEST(SemaphoreNames, IdsAreUniqueAndIncreasing) {
  Semaphore a(1, 1, false, "ids.a");
  Semaphore b(0, 4, true, "ids.b");
  EXPECT_LT(a.id(), b.id());
  auto c = std::make_unique<Semaphore>(1, 1, false, "ids.c");
  const uint64_t destroyedId = c->id();
  c.reset();
  Semaphore d(1, 1, false, "ids.d");
  EXPECT_GT(d.id(), destroyedId);  // ids of destroyed semaphores are not reused
}

TEST(SemaphoreKinds, OnlyMaximumOneIsALock) {
  EXPECT_TRUE(Semaphore(1, 1, false).isLock());
  EXPECT_TRUE(Semaphore(0, 1, true).isLock());
  EXPECT_FALSE(Semaphore(1, 2, false).isLock());
}

}  // namespace
