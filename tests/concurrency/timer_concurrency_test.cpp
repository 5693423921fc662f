#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <future>
#include <iterator>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "RecordingOwner.h"
#include "framework/FrameworkContext.h"
#include "framework/TimeSource.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int kOneHourMs = 3600000;

// Manual time: advance() moves the clock, settle() waits until the timer thread has delivered
// everything that became due.
class ManualTimers : public ::testing::Test {
 protected:
  void advanceAndSettle(int64_t ms) { time.advance(ms), context.settle(); }

  fw::ManualTimeSource time{1000};
  RecordingOwner owner;  // outlives the context, whose thread may still hold its timers
  FrameworkContext context{time};
};

TEST_F(ManualTimers, FiresOnceAtItsDeadlineOnTheTimerThread) {
  int id = context.createTimer(&owner, kOneHourMs);
  advanceAndSettle(kOneHourMs - 1);
  EXPECT_THAT(owner.firedIds(), IsEmpty());
  advanceAndSettle(1);
  EXPECT_THAT(owner.firedIds(), ElementsAre(id));
  EXPECT_FALSE(owner.onCreatorThread);
  advanceAndSettle(10 * kOneHourMs);
  EXPECT_THAT(owner.firedIds(), ElementsAre(id)) << "a one-shot timer fired again";
}

TEST_F(ManualTimers, RestartCountsTheDelayFromNowBeforeAndAfterFiring) {
  int id = context.createTimer(&owner, 100);
  advanceAndSettle(60);
  ASSERT_TRUE(context.restartTimer(id));  // before firing: the first deadline no longer counts
  advanceAndSettle(99);
  EXPECT_THAT(owner.firedIds(), IsEmpty());
  advanceAndSettle(51);
  ASSERT_TRUE(context.restartTimer(id));  // after firing: armed again
  advanceAndSettle(99);
  EXPECT_THAT(owner.firedIds(), ElementsAre(id));
  advanceAndSettle(1);
  EXPECT_THAT(owner.firedIds(), ElementsAre(id, id));
}

TEST_F(ManualTimers, DeletedTimerNeverFiresAndItsIdIsForgotten) {
  int id = context.createTimer(&owner, 100);
  ASSERT_TRUE(context.deleteTimer(id));
  advanceAndSettle(1000);
  EXPECT_THAT(owner.firedIds(), IsEmpty());
  EXPECT_FALSE(context.deleteTimer(id));
  EXPECT_FALSE(context.restartTimer(id));
}

TEST_F(ManualTimers, DueTimersFireInDeadlineOrderTiesInArmingOrder) {
  int late = context.createTimer(&owner, 300);
  int first = context.createTimer(&owner, 200);
  advanceAndSettle(100);
  int second = context.createTimer(&owner, 100);  // same deadline as `first`, armed later
  int a = context.createTimer(&owner, 150);
  int b = context.createTimer(&owner, 150);
  ASSERT_TRUE(context.restartTimer(a));  // now armed after `b`, despite its smaller id
  advanceAndSettle(1000);
  EXPECT_THAT(owner.firedIds(), ElementsAre(first, second, b, a, late));
}

// Restarts its timer from its first timerEvent and cancels its timers from the second, where
// cancelTimers must return rather than wait for the delivery it is called from.
class RearmingOwner : public RecordingOwner {
 public:
  explicit RearmingOwner(FrameworkContext& context) : m_context(context) {}
  void timerEvent(int timerId) override {
    RecordingOwner::timerEvent(timerId);
    if (firedIds().size() == 1) m_context.restartTimer(timerId);
    else m_context.cancelTimers(this);
  }
  FrameworkContext& m_context;
};

TEST_F(ManualTimers, TimerEventMayRestartAndCancelItsOwnTimers) {
  RearmingOwner rearming(context);
  int id = context.createTimer(&rearming, kOneHourMs);
  int other = context.createTimer(&rearming, 3 * kOneHourMs);
  advanceAndSettle(kOneHourMs);
  advanceAndSettle(kOneHourMs - 1);
  EXPECT_THAT(rearming.firedIds(), ElementsAre(id));
  advanceAndSettle(1);
  EXPECT_THAT(rearming.firedIds(), ElementsAre(id, id));
  EXPECT_FALSE(context.restartTimer(other));
}

// Blocks inside its timerEvent until the test releases it.
class BlockingOwner : public Executable {
 public:
  void timerEvent(int) override {
    entered.set_value();
    release.get_future().wait();
    returned = true;
  }
  std::promise<void> entered, release;
  std::atomic<bool> returned{false};
};

TEST_F(ManualTimers, CancelTimersWaitsForTheOwnersRunningDelivery) {
  BlockingOwner blocking;
  context.createTimer(&blocking, 10);
  time.advance(10);
  blocking.entered.get_future().wait();
  auto cancelled = std::async(std::launch::async, [&] {
    context.cancelTimers(&blocking);
    return blocking.returned.load();
  });
  EXPECT_EQ(cancelled.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  blocking.release.set_value();
  EXPECT_TRUE(cancelled.get()) << "cancelTimers returned while the owner's timerEvent ran";
}

TEST(SteadyTimers, LaterTimerDoesNotDelayAnEarlierOne) {
  fw::SteadyTimeSource time;
  RecordingOwner owner;
  FrameworkContext context(time);
  // Armed first: a thread that kept sleeping towards the first deadline it saw would miss `soon`.
  context.createTimer(&owner, kOneHourMs);
  int soon = context.createTimer(&owner, 20);
  const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (owner.firedIds().empty() && std::chrono::steady_clock::now() < giveUp) std::this_thread::yield();
  EXPECT_THAT(owner.firedIds(), ElementsAre(soon));
}

TEST(TimerStress, ThreadsCreateRestartAndDeleteWhileTimeAdvances) {
  fw::ManualTimeSource time;
  std::vector<RecordingOwner> owners(4);
  FrameworkContext context(time);
  std::vector<std::set<int>> kept(4);  // the timers each worker did not delete
  std::vector<std::thread> workers;
  for (int w = 0; w < 4; ++w)
    workers.emplace_back([&, w] {
      std::minstd_rand random(17u + static_cast<unsigned>(w));
      for (int step = 0; step < 400; ++step) {
        if (step % 4 == 0) time.advance(7);  // time moves while the others work
        const auto choice = random() % 4;
        if (choice < 2) {
          int id = context.createTimer(&owners[w], static_cast<int>(random() % 50));
          kept[w].insert(id);
        } else if (!kept[w].empty()) {
          const int id = *std::next(kept[w].begin(), static_cast<long>(random() % kept[w].size()));
          EXPECT_TRUE(choice == 2 ? context.restartTimer(id) : context.deleteTimer(id));
          if (choice == 3) kept[w].erase(id);
        }
      }
    });
  for (auto& worker : workers) worker.join();
  time.advance(1000);
  context.settle();
  EXPECT_EQ(context.armedTimers(), 0u);
  for (int w = 0; w < 4; ++w) {
    const auto ids = owners[w].firedIds();
    const std::set<int> fired(ids.begin(), ids.end());
    for (int id : kept[w]) EXPECT_EQ(fired.count(id), 1u) << "owner " << w << " lost timer " << id;
    context.cancelTimers(&owners[w]);
  }
}

}  // namespace
