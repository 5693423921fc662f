#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "SemaphoreTestAccess.h"
#include "framework/LockOrder.h"
#include "framework/Logging.h"
#include "framework/Semaphore.h"

namespace {

void runOnThread(const std::function<void()>& work) {
  std::thread thread(work);
  thread.join();
}

// Polls `condition` until it holds; false after a generous bound that only keeps a faulty run
// from hanging.
template <class Condition>
bool waitUntil(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

std::string fairnessName(const ::testing::TestParamInfo<bool>& info) {
  return info.param ? "Fifo" : "AnyOrder";
}

// ---------------------------------------------------------------------------------------------
// Semaphore under several threads
// ---------------------------------------------------------------------------------------------

class SemaphoreThreads : public ::testing::TestWithParam<bool> {
 protected:
  bool fifo() const { return GetParam(); }
};

TEST_P(SemaphoreThreads, LockGivesMutualExclusion) {
  Semaphore lock(1, 1, fifo(), "threads.mutex");
  constexpr int kThreads = 4;
  constexpr int kRounds = 2000;
  std::atomic<int> inside{0};
  std::atomic<int> overlaps{0};
  long counter = 0;  // plain on purpose: only the lock protects it

  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < kRounds; ++i) {
        CriticalSection section(lock);
        if (inside.fetch_add(1) != 0) overlaps.fetch_add(1);
        ++counter;
        inside.fetch_sub(1);
      }
    });
  }
  for (auto& thread : threads) thread.join();

  EXPECT_EQ(overlaps.load(), 0);
  EXPECT_EQ(counter, static_cast<long>(kThreads) * kRounds);
}

TEST_P(SemaphoreThreads, CountingSemaphoreAdmitsAtMostItsCount) {
  Semaphore slots(3, 3, fifo(), "threads.slots");
  std::atomic<int> inside{0};
  std::atomic<int> mostInside{0};

  std::vector<std::thread> threads;
  for (int t = 0; t < 6; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 500; ++i) {
        ASSERT_TRUE(slots.take(-1));
        const int now = inside.fetch_add(1) + 1;
        int seen = mostInside.load();
        while (now > seen && !mostInside.compare_exchange_weak(seen, now)) {
        }
        std::this_thread::yield();
        inside.fetch_sub(1);
        slots.give();
      }
    });
  }
  for (auto& thread : threads) thread.join();

  EXPECT_LE(mostInside.load(), 3);
  EXPECT_GE(mostInside.load(), 1);
  // Every unit came back: all three can be taken again, and no more.
  EXPECT_TRUE(slots.take(0));
  EXPECT_TRUE(slots.take(0));
  EXPECT_TRUE(slots.take(0));
  EXPECT_FALSE(slots.take(0));
}

TEST_P(SemaphoreThreads, GiveWakesAThreadWaitingWithoutLimit) {
  Semaphore signal(0, 1, fifo(), "threads.wake");
  std::future<bool> taken = std::async(std::launch::async, [&] { return signal.take(-1); });
  ASSERT_TRUE(SemaphoreTestAccess::waitForBlockedWaiters(signal, 1));
  signal.give();
  EXPECT_TRUE(taken.get());
  EXPECT_FALSE(signal.take(0));  // the single unit went to the waiter
}

TEST_P(SemaphoreThreads, TimedOutWaiterDoesNotBlockLaterWaiters) {
  Semaphore lock(1, 1, fifo(), "threads.timeout");
  ASSERT_TRUE(lock.take(0));

  // The first waiter gives up while the lock is still held; the second queued behind it.
  std::future<bool> impatient = std::async(std::launch::async, [&] { return lock.take(1000); });
  ASSERT_TRUE(SemaphoreTestAccess::waitForBlockedWaiters(lock, 1));
  std::future<bool> patient = std::async(std::launch::async, [&] {
    const bool got = lock.take(20000);
    if (got) lock.give();
    return got;
  });
  ASSERT_TRUE(SemaphoreTestAccess::waitForBlockedWaiters(lock, 2));

  EXPECT_FALSE(impatient.get());
  EXPECT_EQ(SemaphoreTestAccess::blockedWaiters(lock), 1u);
  lock.give();
  EXPECT_TRUE(patient.get());
  EXPECT_TRUE(lock.take(0));
  lock.give();
}

INSTANTIATE_TEST_SUITE_P(Fairness, SemaphoreThreads, ::testing::Bool(), fairnessName);

TEST(FifoSemaphore, ServesWaitersInArrivalOrder) {
  Semaphore lock(1, 1, true, "fifo.order");
  ASSERT_TRUE(lock.take(0));

  constexpr int kWaiters = 6;
  std::vector<int> order;  // guarded by `lock`
  std::vector<std::thread> waiters;
  for (int i = 0; i < kWaiters; ++i) {
    waiters.emplace_back([&lock, &order, i] {
      CriticalSection section(lock);
      order.push_back(i);
    });
    // Start the next one only when this one is queued, so the arrival order is known.
    ASSERT_TRUE(SemaphoreTestAccess::waitForBlockedWaiters(lock, static_cast<std::size_t>(i) + 1));
  }
  lock.give();
  for (auto& waiter : waiters) waiter.join();

  std::vector<int> expected(kWaiters);
  std::iota(expected.begin(), expected.end(), 0);
  EXPECT_EQ(order, expected);
}

TEST(FifoSemaphore, TryTakeDoesNotOvertakeQueuedWaiters) {
  Semaphore slots(0, 2, true, "fifo.try");
  std::future<bool> queued = std::async(std::launch::async, [&] { return slots.take(20000); });
  ASSERT_TRUE(SemaphoreTestAccess::waitForBlockedWaiters(slots, 1));
  slots.give();
  EXPECT_TRUE(queued.get());
  // The queued waiter got the unit, not a later try.
  EXPECT_FALSE(slots.take(0));
}

// ---------------------------------------------------------------------------------------------
// Lock-order checker
// ---------------------------------------------------------------------------------------------

class LockOrderCheck : public ::testing::Test {
 protected:
  void SetUp() override {
#if !FW_LOCK_ORDER_CHECK
    GTEST_SKIP() << "lock-order checker not built in";
#endif
    fw::LockOrderChecker::setEnabled(true);
    fw::LockOrderChecker::clearReports();
    fw::LockOrderChecker::setReportHook([this](const fw::LockOrderReport& report) {
      std::lock_guard<std::mutex> guard(m_hookMutex);
      m_hooked.push_back(report);
    });
    m_sink = std::make_shared<fw::MemorySink>();
    m_previousSink = fw::setLogSink(m_sink);
  }

  void TearDown() override {
    fw::LockOrderChecker::setReportHook({});
    if (m_sink) fw::setLogSink(m_previousSink);
    fw::LockOrderChecker::setEnabled(true);
    fw::LockOrderChecker::clearReports();
  }

  std::vector<fw::LockOrderReport> hooked() {
    std::lock_guard<std::mutex> guard(m_hookMutex);
    return m_hooked;
  }

  void expectSilent() {
    EXPECT_TRUE(fw::LockOrderChecker::reports().empty());
    EXPECT_TRUE(hooked().empty());
    EXPECT_TRUE(m_sink->records().empty());
  }

  // Takes `first` then `second` on a thread of its own and gives both back.
  static void takeInOrder(Semaphore& first, Semaphore& second) {
    runOnThread([&] {
      CriticalSection outer(first);
      CriticalSection inner(second);
    });
  }

  std::shared_ptr<fw::MemorySink> m_sink;

 private:
  std::shared_ptr<fw::LogSink> m_previousSink;
  std::mutex m_hookMutex;
  std::vector<fw::LockOrderReport> m_hooked;
};

bool mentions(const std::string& text, const std::string& lockName) {
  return text.find("'" + lockName + "'") != std::string::npos;
}

TEST_F(LockOrderCheck, InversionOnTwoThreadsIsReportedNamingBothLocks) {
  Semaphore a(1, 1, false, "abba.A");
  Semaphore b(1, 1, true, "abba.B");

  takeInOrder(a, b);
  expectSilent();
  takeInOrder(b, a);

  const auto reports = fw::LockOrderChecker::reports();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].held, "abba.B");
  EXPECT_EQ(reports[0].taken, "abba.A");
  EXPECT_TRUE(mentions(reports[0].message, "abba.A")) << reports[0].message;
  EXPECT_TRUE(mentions(reports[0].message, "abba.B")) << reports[0].message;

  const auto hooked = this->hooked();
  ASSERT_EQ(hooked.size(), 1u);
  EXPECT_EQ(hooked[0].message, reports[0].message);

  const auto records = m_sink->records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].handle, "Framework");
  EXPECT_EQ(records[0].level, fw::kLogError);
  EXPECT_EQ(records[0].text, reports[0].message);
}

TEST_F(LockOrderCheck, SameInversionIsReportedOnce) {
  Semaphore a(1, 1, false, "once.A");
  Semaphore b(1, 1, false, "once.B");
  takeInOrder(a, b);
  takeInOrder(b, a);
  takeInOrder(b, a);
  takeInOrder(a, b);
  EXPECT_EQ(fw::LockOrderChecker::reports().size(), 1u);
  EXPECT_EQ(hooked().size(), 1u);
}

TEST_F(LockOrderCheck, ConsistentOrderOnSeveralThreadsStaysSilent) {
  Semaphore a(1, 1, false, "consistent.A");
  Semaphore b(1, 1, true, "consistent.B");
  Semaphore c(1, 1, false, "consistent.C");

  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 300; ++i) {
        if ((t + i) % 3 == 0) {
          CriticalSection outer(a);
          CriticalSection middle(b);
          CriticalSection inner(c);
        } else if ((t + i) % 3 == 1) {
          CriticalSection outer(a);
          CriticalSection inner(c);
        } else {
          CriticalSection outer(b);
          CriticalSection inner(c);
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  expectSilent();
}

TEST_F(LockOrderCheck, ThreeLockCycleIsReported) {
  Semaphore a(1, 1, false, "cycle.A");
  Semaphore b(1, 1, false, "cycle.B");
  Semaphore c(1, 1, false, "cycle.C");

  takeInOrder(a, b);
  takeInOrder(b, c);
  expectSilent();
  takeInOrder(c, a);

  const auto reports = fw::LockOrderChecker::reports();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].held, "cycle.C");
  EXPECT_EQ(reports[0].taken, "cycle.A");
  EXPECT_TRUE(mentions(reports[0].message, "cycle.A")) << reports[0].message;
  EXPECT_TRUE(mentions(reports[0].message, "cycle.C")) << reports[0].message;
  EXPECT_TRUE(mentions(reports[0].message, "cycle.B")) << reports[0].message;  // the path between
  EXPECT_EQ(hooked().size(), 1u);
  EXPECT_TRUE(m_sink->contains("lock order inversion", fw::kLogError));

  // A -> C is a new order, but it inverts the pair reported already.
  takeInOrder(a, c);
  EXPECT_EQ(fw::LockOrderChecker::reports().size(), 1u);
}

TEST_F(LockOrderCheck, RecursiveTryTakeFailsAndIsReported) {
  Semaphore a(1, 1, false, "recursive.A");
  ASSERT_TRUE(a.take(-1));
  EXPECT_FALSE(a.take(0));
  EXPECT_FALSE(a.take(0));  // polling again adds no second report
  a.give();

  const auto reports = fw::LockOrderChecker::reports();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].held, "recursive.A");
  EXPECT_EQ(reports[0].taken, "recursive.A");
  EXPECT_NE(reports[0].message.find("taken again"), std::string::npos) << reports[0].message;
  EXPECT_TRUE(m_sink->contains("'recursive.A' taken again", fw::kLogError));
  EXPECT_EQ(hooked().size(), 1u);
}

TEST_F(LockOrderCheck, TryTakeOfLockHeldByAnotherThreadIsNotRecursive) {
  Semaphore a(1, 1, false, "held-elsewhere.A");
  std::promise<void> holding;
  std::promise<void> done;
  std::thread holder([&] {
    CriticalSection section(a);
    holding.set_value();
    done.get_future().wait();
  });
  holding.get_future().wait();
  EXPECT_FALSE(a.take(0));
  done.set_value();
  holder.join();
  expectSilent();
}

TEST_F(LockOrderCheck, LocksGivenOutOfOrderEndTheRightHold) {
  Semaphore a(1, 1, false, "out-of-order.A");
  Semaphore b(1, 1, false, "out-of-order.B");
  Semaphore c(1, 1, false, "out-of-order.C");

  runOnThread([&] {
    ASSERT_TRUE(a.take(-1));
    ASSERT_TRUE(b.take(-1));
    a.give();                 // A is released first, B is still held ...
    ASSERT_TRUE(c.take(-1));  // ... so this records B -> C (and not A -> C)
    c.give();
    b.give();
  });
  expectSilent();
  takeInOrder(c, b);

  const auto reports = fw::LockOrderChecker::reports();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].held, "out-of-order.C");
  EXPECT_EQ(reports[0].taken, "out-of-order.B");
}

TEST_F(LockOrderCheck, SemaphoreUsedAsSignalDoesNotConfuseTheChecker) {
  Semaphore signal(0, 1, false, "signal.S");  // a lock by its maximum, used as a signal
  Semaphore lock(1, 1, false, "signal.L");

  constexpr int kRounds = 3;
  std::atomic<int> received{0};
  std::thread worker([&] {
    for (int round = 0; round < kRounds; ++round) {
      ASSERT_TRUE(signal.take(-1));  // never given back by this thread
      received.fetch_add(1);
      CriticalSection section(lock);
    }
  });
  for (int round = 0; round < kRounds; ++round) {
    ASSERT_TRUE(SemaphoreTestAccess::waitForBlockedWaiters(signal, 1));
    signal.give();  // from a thread that does not hold it
    ASSERT_TRUE(waitUntil([&] { return received.load() == round + 1; }));
  }
  worker.join();

  // Waiting for the signal while holding the lock is fine: the worker never held the signal
  // while taking the lock.
  {
    CriticalSection section(lock);
    EXPECT_FALSE(signal.take(0));
  }
  expectSilent();
}

TEST_F(LockOrderCheck, LockGivenByAnotherThreadEndsTheHoldersHold) {
  Semaphore a(1, 1, false, "handed.A");
  Semaphore b(1, 1, false, "handed.B");
  std::promise<void> taken;
  std::promise<void> given;
  std::thread holder([&] {
    ASSERT_TRUE(a.take(-1));
    taken.set_value();
    given.get_future().wait();
    CriticalSection section(b);  // A was given by main: this thread no longer holds it
    EXPECT_TRUE(a.take(0));      // and taking it again is no recursive take
    a.give();
  });
  taken.get_future().wait();
  a.give();
  given.set_value();
  holder.join();
  takeInOrder(b, a);
  expectSilent();
}

TEST_F(LockOrderCheck, LockCreatedClosedIsCheckedOnceOpened) {
  Semaphore a(0, 1, false, "closed.A");
  Semaphore b(1, 1, false, "closed.B");
  a.give();  // opened by its creator
  runOnThread([&] {
    ASSERT_TRUE(a.take(-1));
    a.give();
  });
  takeInOrder(a, b);
  takeInOrder(b, a);
  const auto reports = fw::LockOrderChecker::reports();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].held, "closed.B");
  EXPECT_EQ(reports[0].taken, "closed.A");
}

TEST_F(LockOrderCheck, InversionIsReportedBeforeTheTakeWaits) {
  Semaphore a(1, 1, false, "blocked.A");
  Semaphore b(1, 1, false, "blocked.B");
  takeInOrder(a, b);
  CriticalSection holdA(a);  // the inverted take below cannot succeed
  runOnThread([&] {
    CriticalSection section(b);
    EXPECT_FALSE(a.take(20));
  });
  const auto reports = fw::LockOrderChecker::reports();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].taken, "blocked.A");
}

TEST_F(LockOrderCheck, HookRunsOutsideTheCheckersLock) {
  Semaphore a(1, 1, false, "hook.A");
  Semaphore b(1, 1, false, "hook.B");
  std::atomic<std::size_t> seenByHook{0};
  // Would deadlock if the hook were called under the checker's mutex.
  fw::LockOrderChecker::setReportHook(
      [&](const fw::LockOrderReport&) { seenByHook = fw::LockOrderChecker::reports().size(); });
  takeInOrder(a, b);
  takeInOrder(b, a);
  EXPECT_EQ(seenByHook.load(), 1u);
}

TEST_F(LockOrderCheck, CountingSemaphoresAreNotChecked) {
  Semaphore a(2, 2, false, "counting.A");
  Semaphore b(2, 2, false, "counting.B");
  takeInOrder(a, b);
  takeInOrder(b, a);
  expectSilent();
}

TEST_F(LockOrderCheck, DestroyedLockLeavesNoOrderBehind) {
  Semaphore a(1, 1, false, "destroyed.A");
  auto b = std::make_unique<Semaphore>(1, 1, false, "destroyed.B");
  takeInOrder(a, *b);
  b.reset();
  // A fresh lock is a new node, even under the same name: no inversion with the old B.
  Semaphore b2(1, 1, false, "destroyed.B");
  takeInOrder(b2, a);
  expectSilent();
}

TEST_F(LockOrderCheck, DisabledCheckerIsSilent) {
  Semaphore a(1, 1, false, "disabled.A");
  Semaphore b(1, 1, false, "disabled.B");
  fw::LockOrderChecker::setEnabled(false);
  EXPECT_FALSE(fw::LockOrderChecker::enabled());
  takeInOrder(a, b);
  takeInOrder(b, a);
  runOnThread([&] {
    CriticalSection section(a);
    EXPECT_FALSE(a.take(0));
  });
  expectSilent();
}

TEST_F(LockOrderCheck, LockGivenWhileDisabledIsNotHeldAfterReenabling) {
  Semaphore a(1, 1, false, "reenabled.A");
  Semaphore b(1, 1, false, "reenabled.B");
  runOnThread([&] {
    ASSERT_TRUE(a.take(-1));
    fw::LockOrderChecker::setEnabled(false);
    a.give();
    fw::LockOrderChecker::setEnabled(true);
    CriticalSection section(b);  // A is not held any more: no A -> B
  });
  takeInOrder(b, a);
  expectSilent();
}

TEST_F(LockOrderCheck, ClearReportsEmptiesTheList) {
  Semaphore a(1, 1, false, "clear.A");
  Semaphore b(1, 1, false, "clear.B");
  takeInOrder(a, b);
  takeInOrder(b, a);
  ASSERT_EQ(fw::LockOrderChecker::reports().size(), 1u);
  fw::LockOrderChecker::clearReports();
  EXPECT_TRUE(fw::LockOrderChecker::reports().empty());
}

}  // namespace
