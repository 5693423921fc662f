#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "SemaphoreTestAccess.h"
#include "framework/LockOrder.h"
#include "framework/Logging.h"
#include "framework/Semaphore.h"

namespace {

TEST(Semaphore, CountsTriesAndTimesOut) {
  Semaphore sem(5, 2, true, "basics");  // the initial count is limited to the maximum
  EXPECT_TRUE(sem.take(0));
  EXPECT_TRUE(sem.take(1000));
  EXPECT_FALSE(sem.take(0));
  EXPECT_FALSE(sem.take(30));
  for (int i = 0; i < 5; ++i) sem.give();  // gives beyond the maximum are ignored
  EXPECT_TRUE(sem.take(0));
  EXPECT_TRUE(sem.take(0));
  EXPECT_FALSE(sem.take(0));
}

TEST(Semaphore, CriticalSectionsOnALockExcludeEachOtherUnderThreads) {
  for (bool fifo : {false, true}) {
    Semaphore lock(1, 1, fifo, "threads.mutex");
    std::atomic<int> inside{0}, overlaps{0};
    long counter = 0;  // plain on purpose: only the lock protects it
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
      threads.emplace_back([&] {
        for (int i = 0; i < 2000; ++i) {
          CriticalSection section(lock);
          overlaps += inside.fetch_add(1) != 0;
          ++counter;
          --inside;
        }
      });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(std::make_pair(overlaps.load(), counter), std::make_pair(0, 8000L)) << "fifo " << fifo;
  }
}

TEST(Semaphore, FifoServesWaitersInArrivalOrderPastOneThatTimedOut) {
  Semaphore lock(1, 1, true, "fifo.order");
  ASSERT_TRUE(lock.take(0));
  auto impatient = std::async(std::launch::async, [&] { return lock.take(1000); });
  ASSERT_TRUE(SemaphoreTestAccess::waitForBlockedWaiters(lock, 1));
  std::vector<int> order;  // guarded by `lock`
  std::vector<std::thread> waiters;
  for (int i = 0; i < 5; ++i) {
    waiters.emplace_back([&lock, &order, i] {
      CriticalSection section(lock);
      order.push_back(i);
    });
    // Start the next one only when this one is queued, so the arrival order is known.
    EXPECT_TRUE(SemaphoreTestAccess::waitForBlockedWaiters(lock, i + 2u));
  }
  EXPECT_FALSE(impatient.get());  // gave up at the head of the queue ...
  lock.give();                    // ... and must not keep the others waiting
  for (auto& waiter : waiters) waiter.join();
  EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
}

class LockOrderCheck : public ::testing::Test {
 protected:
  void SetUp() override {
#if !FW_LOCK_ORDER_CHECK
    GTEST_SKIP() << "lock-order checker not built in";
#endif
    fw::LockOrderChecker::clearReports();
    m_previousSink = fw::setLogSink(m_sink);
  }
  void TearDown() override {
    fw::LockOrderChecker::setReportHook({});
    if (m_previousSink) fw::setLogSink(m_previousSink);
  }
  bool silent() { return fw::LockOrderChecker::reports().empty() && m_sink->records().empty(); }
  static void takeInOrder(Semaphore& first, Semaphore& second) {
    std::thread([&] { CriticalSection outer(first), inner(second); }).join();
  }
  static bool names(const fw::LockOrderReport& report, const std::string& lock) {
    return report.message.find("'" + lock + "'") != std::string::npos;
  }

  std::shared_ptr<fw::MemorySink> m_sink = std::make_shared<fw::MemorySink>();
  std::shared_ptr<fw::LogSink> m_previousSink;
};

TEST_F(LockOrderCheck, InversionOnTwoThreadsIsReportedOnceNamingBothLocks) {
  // The hook runs on the reporting thread, joined below; reading reports() from it would deadlock
  // if it ran under the checker's lock.
  std::vector<std::string> hooked;
  fw::LockOrderChecker::setReportHook([&](const fw::LockOrderReport& report) {
    hooked.push_back(report.message + " #" + std::to_string(fw::LockOrderChecker::reports().size()));
  });
  Semaphore a(1, 1, false, "abba.A"), b(1, 1, true, "abba.B");
  takeInOrder(a, b);
  EXPECT_TRUE(silent());
  takeInOrder(b, a);
  takeInOrder(b, a);  // the same inversion again adds no report
  const auto found = fw::LockOrderChecker::reports();
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].held + ">" + found[0].taken, "abba.B>abba.A");
  EXPECT_TRUE(names(found[0], "abba.A")) << found[0].message;
  EXPECT_TRUE(names(found[0], "abba.B")) << found[0].message;
  EXPECT_EQ(hooked, std::vector<std::string>{found[0].message + " #1"});
  EXPECT_EQ(m_sink->records().size(), 1u);
  EXPECT_TRUE(m_sink->contains(found[0].message, fw::kLogError));
}

TEST_F(LockOrderCheck, ThreeLockCycleAndRecursiveTakeAreReported) {
  Semaphore a(1, 1, false, "cycle.A"), b(1, 1, false, "cycle.B"), c(1, 1, false, "cycle.C");
  takeInOrder(a, b);
  takeInOrder(b, c);
  takeInOrder(c, a);
  std::thread([&] {
    CriticalSection section(b);
    EXPECT_FALSE(b.take(0));
  }).join();  // not recursive
  const auto found = fw::LockOrderChecker::reports();
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0].held + ">" + found[0].taken, "cycle.C>cycle.A");
  for (const char* lock : {"cycle.A", "cycle.B", "cycle.C"}) EXPECT_TRUE(names(found[0], lock)) << found[0].message;
  EXPECT_EQ(found[1].held + ">" + found[1].taken, "cycle.B>cycle.B");
}

TEST_F(LockOrderCheck, ConsistentOrderOnSeveralThreadsAndASignalGivenAcrossThreadsStaySilent) {
  Semaphore a(1, 1, false, "consistent.A"), b(1, 1, true, "consistent.B"), c(1, 1, false, "consistent.C");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 300; ++i) {
        { CriticalSection outer(a), middle(b), inner(c); }
        { CriticalSection outer(a), inner(c); }
        { CriticalSection outer(b), inner(c); }
      }
    });
  for (auto& thread : threads) thread.join();
  EXPECT_TRUE(silent());

  // A semaphore of maximum 1 used as a signal: taken by a worker, given by this thread.
  Semaphore signal(0, 1, false, "signal.S");
  std::atomic<int> received{0};
  std::thread worker([&] {
    for (int round = 0; round < 3; ++round) {
      EXPECT_TRUE(signal.take(-1));
      CriticalSection section(a);
      ++received;
    }
  });
  for (int round = 0; round < 3; ++round) {
    signal.give();
    while (received.load() != round + 1) std::this_thread::yield();
  }
  worker.join();
  EXPECT_TRUE(silent());
}

}  // namespace
