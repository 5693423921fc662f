#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "RecordingOwner.h"
#include "framework/FrameworkContext.h"
#include "framework/TimeSource.h"

namespace {

using testing_support::RecordingOwner;

constexpr auto kPatience = std::chrono::seconds(5);

// A one-way gate: wait() blocks until open() (or until the limit passes).
class Gate {
 public:
  void open() {
    {
      std::lock_guard<std::mutex> guard(m_mutex);
      m_open = true;
    }
    m_cv.notify_all();
  }
  bool wait(std::chrono::milliseconds limit = kPatience) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_cv.wait_for(lock, limit, [this] { return m_open; });
  }
  bool isOpen() {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_open;
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_cv;
  bool m_open = false;
};

// What one worker thread did with its timers.
struct WorkerRecord {
  std::set<int> created;
  std::vector<int> kept;  // not deleted when the worker finished
};

// Creates, restarts and deletes timers of `owner` in a reproducible random pattern.
WorkerRecord churnTimers(FrameworkContext& context, Executable& owner, unsigned seed) {
  std::minstd_rand random(seed);
  WorkerRecord record;
  std::vector<int> live;
  for (int step = 0; step < 400; ++step) {
    switch (random() % 4) {
      case 0:
      case 1: {
        int id = context.createTimer(&owner, static_cast<int>(random() % 50));
        EXPECT_GT(id, 0);
        record.created.insert(id);
        live.push_back(id);
        break;
      }
      case 2:
        if (!live.empty()) {
          EXPECT_TRUE(context.restartTimer(live[random() % live.size()]));
        }
        break;
      default:
        if (!live.empty()) {
          size_t index = random() % live.size();
          EXPECT_TRUE(context.deleteTimer(live[index]));
          live.erase(live.begin() + static_cast<std::ptrdiff_t>(index));
        }
        break;
    }
    if (step % 50 == 0) context.armedTimers();
  }
  record.kept = live;
  return record;
}

TEST(TimerConcurrency, ThreadsCreateRestartAndDeleteWhileTimeAdvances) {
  constexpr int kWorkers = 4;
  fw::ManualTimeSource time;
  std::vector<RecordingOwner> owners(kWorkers);
  FrameworkContext context(time);

  std::vector<WorkerRecord> records(kWorkers);
  std::atomic<int> running{kWorkers};
  std::vector<std::thread> workers;
  for (int w = 0; w < kWorkers; ++w) {
    workers.emplace_back([&, w] {
      records[w] = churnTimers(context, owners[w], 17u + static_cast<unsigned>(w));
      --running;
    });
  }
  std::thread clock([&] {
    while (running > 0) {
      time.advance(7);
      std::this_thread::yield();
    }
  });
  for (auto& worker : workers) worker.join();
  clock.join();

  time.advance(1000);
  context.settle();
  EXPECT_EQ(context.armedTimers(), 0u);

  for (int w = 0; w < kWorkers; ++w) {
    std::map<int, int> firings;
    for (int id : owners[w].firedIds()) {
      EXPECT_EQ(records[w].created.count(id), 1u) << "owner " << w << " got foreign timer " << id;
      ++firings[id];
    }
    for (int id : records[w].kept)
      EXPECT_GE(firings[id], 1) << "owner " << w << " never got its timer " << id;
  }
  for (int w = 0; w < kWorkers; ++w) context.cancelTimers(&owners[w]);
}

// Blocks inside its timerEvent until the test opens `release`.
class BlockingOwner : public Executable {
 public:
  void timerEvent(int) override {
    entered.open();
    release.wait(std::chrono::minutes(1));
    returned = true;
  }

  Gate entered;
  Gate release;
  std::atomic<bool> returned{false};
};

TEST(TimerConcurrency, CancelTimersWaitsForTheOwnersRunningDelivery) {
  fw::ManualTimeSource time;
  BlockingOwner blocking;
  RecordingOwner other;
  FrameworkContext context(time);

  context.createTimer(&blocking, 10);
  time.advance(10);
  ASSERT_TRUE(blocking.entered.wait());

  std::atomic<bool> deliveryHadReturned{false};
  Gate cancelled;
  std::thread canceller([&] {
    context.cancelTimers(&blocking);
    deliveryHadReturned = blocking.returned.load();
    cancelled.open();
  });

  // While the delivery runs, the context stays usable, and other owners are not held up.
  int otherId = context.createTimer(&other, 100);
  EXPECT_GT(otherId, 0);
  EXPECT_TRUE(context.deleteTimer(otherId));
  context.cancelTimers(&other);

  EXPECT_FALSE(cancelled.wait(std::chrono::milliseconds(50)))
      << "cancelTimers returned while the owner's timerEvent was still running";
  blocking.release.open();
  ASSERT_TRUE(cancelled.wait());
  canceller.join();
  EXPECT_TRUE(deliveryHadReturned);
  context.settle();
  EXPECT_EQ(context.armedTimers(), 0u);
}

TEST(TimerConcurrency, SettleFromSeveralThreadsWhileTimersFire) {
  fw::ManualTimeSource time;
  RecordingOwner owner;
  FrameworkContext context(time);
  for (int i = 1; i <= 100; ++i) context.createTimer(&owner, i);

  std::vector<std::thread> settlers;
  for (int t = 0; t < 3; ++t) {
    settlers.emplace_back([&] {
      for (int step = 0; step < 20; ++step) {
        time.advance(1);
        context.settle();
      }
    });
  }
  for (auto& settler : settlers) settler.join();

  // 60 ms have passed in total: exactly the timers of 1..60 ms are due and were delivered.
  context.settle();
  auto ids = owner.firedIds();
  EXPECT_EQ(ids.size(), 60u);
  EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));
  EXPECT_EQ(context.armedTimers(), 40u);
}

}  // namespace
