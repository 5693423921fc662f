#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <functional>
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

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int kOneHourMs = 3600000;

// Manual time: advanceAndSettle() moves the clock, waits until the timer thread has delivered
// everything that became due and returns what the owner has received so far.
class ManualTimers : public ::testing::Test {
 protected:
  std::vector<int> advanceAndSettle(int64_t ms) {
    time.advance(ms), context.settle();
    return owner.firedIds();
  }

  // Runs `onFire` inside each delivery, after recording it.
  struct HookedOwner : RecordingOwner {
    void timerEvent(int timerId) override {
      RecordingOwner::timerEvent(timerId);
      if (onFire) onFire(timerId);
    }
    std::function<void(int)> onFire;
  };

  fw::ManualTimeSource time{1000};
  HookedOwner owner;  // outlives the context, whose thread may still hold its timers
  FrameworkContext context{time};
};

TEST_F(ManualTimers, FiresOnceAtItsDeadlineOnTheTimerThreadCountedFromTheLastRestartUnlessDeleted) {
  int id = context.createTimer(&owner, kOneHourMs), restarted = context.createTimer(&owner, 100),
      deleted = context.createTimer(&owner, 100);
  ASSERT_TRUE(context.deleteTimer(deleted));
  advanceAndSettle(60);
  ASSERT_TRUE(context.restartTimer(restarted));  // the first deadline no longer counts
  EXPECT_THAT(advanceAndSettle(99), IsEmpty());
  EXPECT_THAT(advanceAndSettle(1), ElementsAre(restarted));
  EXPECT_THAT(advanceAndSettle(kOneHourMs - 161), ElementsAre(restarted));
  EXPECT_THAT(advanceAndSettle(1), ElementsAre(restarted, id));
  EXPECT_FALSE(owner.onCreatorThread);
  EXPECT_THAT(advanceAndSettle(10 * kOneHourMs), ElementsAre(restarted, id)) << "a one-shot timer fired again";
  EXPECT_FALSE(context.deleteTimer(deleted));  // its id is forgotten
  EXPECT_FALSE(context.restartTimer(deleted));
}

TEST_F(ManualTimers, DueTimersFireInDeadlineOrderTiesInArmingOrder) {
  int late = context.createTimer(&owner, 300), first = context.createTimer(&owner, 200);
  advanceAndSettle(100);
  int second = context.createTimer(&owner, 100);  // same deadline as `first`, armed later
  int a = context.createTimer(&owner, 150), b = context.createTimer(&owner, 150);
  ASSERT_TRUE(context.restartTimer(a));  // now armed after `b`, despite its smaller id
  EXPECT_THAT(advanceAndSettle(1000), ElementsAre(first, second, b, a, late));
}

TEST_F(ManualTimers, TimerEventMayRestartAndCancelItsOwnTimers) {
  // Restarts its fired timer from the first delivery (armed again, for the full delay from now) and
  // cancels its timers from the second, where cancelTimers must not wait for its own delivery.
  owner.onFire = [&](int id) {
    owner.firedIds().size() == 1 ? static_cast<void>(context.restartTimer(id)) : context.cancelTimers(&owner);
  };
  int id = context.createTimer(&owner, kOneHourMs), other = context.createTimer(&owner, 3 * kOneHourMs);
  advanceAndSettle(kOneHourMs);
  EXPECT_THAT(advanceAndSettle(kOneHourMs - 1), ElementsAre(id));
  EXPECT_THAT(advanceAndSettle(1), ElementsAre(id, id));
  EXPECT_FALSE(context.restartTimer(other));
}

TEST_F(ManualTimers, CancelTimersWaitsForTheOwnersRunningDelivery) {
  std::promise<void> entered, release;
  std::atomic<bool> returned{false};
  owner.onFire = [&](int) { entered.set_value(), release.get_future().wait(), returned = true; };
  context.createTimer(&owner, 10);
  time.advance(10);
  entered.get_future().wait();
  auto cancelled = std::async(std::launch::async, [&] { return context.cancelTimers(&owner), returned.load(); });
  EXPECT_EQ(cancelled.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  release.set_value();
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
          kept[w].insert(context.createTimer(&owners[w], static_cast<int>(random() % 50)));
        } else if (!kept[w].empty()) {
          const int id = *std::next(kept[w].begin(), static_cast<long>(random() % kept[w].size()));
          if (choice == 2) {
            EXPECT_TRUE(context.restartTimer(id));
          } else {
            EXPECT_TRUE(context.deleteTimer(id));
            kept[w].erase(id);
          }
        }
      }
    });
  for (auto& worker : workers) worker.join();
  time.advance(1000);
  context.settle();
  EXPECT_EQ(context.armedTimers(), 0u);
  for (int w = 0; w < 4; ++w) {
    for (int id : kept[w]) EXPECT_THAT(owners[w].firedIds(), Contains(id)) << "owner " << w << " lost timer " << id;
    context.cancelTimers(&owners[w]);
  }
}

}  // namespace
