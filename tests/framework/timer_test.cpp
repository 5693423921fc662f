#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "RecordingOwner.h"
#include "framework/FrameworkContext.h"
#include "framework/TimeSource.h"

namespace {

using testing_support::RecordingOwner;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int kOneHourMs = 3600000;

// Every test runs on manual time: advance() moves the clock, settle() waits until the timer
// thread has delivered everything that became due.
class ManualTimers : public ::testing::Test {
 protected:
  void advanceAndSettle(int64_t ms) {
    time.advance(ms);
    context.settle();
  }

  fw::ManualTimeSource time{1000};
  RecordingOwner owner;  // outlives the context, whose thread may still hold its timers
  FrameworkContext context{time};
};

TEST_F(ManualTimers, FiresOnceAtItsDeadlineOnTheTimerThread) {
  int id = context.createTimer(&owner, 100);
  ASSERT_GT(id, 0);
  EXPECT_EQ(context.armedTimers(), 1u);

  advanceAndSettle(99);
  EXPECT_THAT(owner.firedIds(), IsEmpty());

  advanceAndSettle(1);
  auto expiries = owner.expiries();
  ASSERT_EQ(expiries.size(), 1u);
  EXPECT_EQ(expiries[0].timerId, id);
  EXPECT_NE(expiries[0].thread, std::this_thread::get_id());
  EXPECT_EQ(context.armedTimers(), 0u);

  advanceAndSettle(10 * 100);
  EXPECT_EQ(owner.firedIds().size(), 1u) << "a one-shot timer fired again";
}

TEST_F(ManualTimers, ZeroDelayFiresWithoutTimeMoving) {
  int id = context.createTimer(&owner, 0);
  context.settle();
  EXPECT_THAT(owner.firedIds(), ElementsAre(id));
}

TEST_F(ManualTimers, RestartAfterFiringFiresAgainOneDelayLater) {
  int id = context.createTimer(&owner, 100);
  advanceAndSettle(100);
  ASSERT_THAT(owner.firedIds(), ElementsAre(id));

  advanceAndSettle(50);  // the restart counts from now, not from the first deadline
  ASSERT_TRUE(context.restartTimer(id));
  EXPECT_EQ(context.armedTimers(), 1u);
  advanceAndSettle(99);
  EXPECT_THAT(owner.firedIds(), ElementsAre(id));
  advanceAndSettle(1);
  EXPECT_THAT(owner.firedIds(), ElementsAre(id, id));
}

TEST_F(ManualTimers, RestartBeforeFiringPushesTheDeadline) {
  int id = context.createTimer(&owner, 100);
  advanceAndSettle(60);
  ASSERT_TRUE(context.restartTimer(id));

  advanceAndSettle(60);  // past the first deadline
  EXPECT_THAT(owner.firedIds(), IsEmpty());
  advanceAndSettle(39);
  EXPECT_THAT(owner.firedIds(), IsEmpty());
  advanceAndSettle(1);
  EXPECT_THAT(owner.firedIds(), ElementsAre(id));
}

TEST_F(ManualTimers, DeleteBeforeDeadlinePreventsFiringAndForgetsTheId) {
  int id = context.createTimer(&owner, 100);
  ASSERT_TRUE(context.deleteTimer(id));
  EXPECT_EQ(context.armedTimers(), 0u);
  advanceAndSettle(1000);
  EXPECT_THAT(owner.firedIds(), IsEmpty());

  EXPECT_FALSE(context.deleteTimer(id));
  EXPECT_FALSE(context.restartTimer(id));
}

TEST_F(ManualTimers, FiredTimerKeepsItsRecordUntilDeleted) {
  int id = context.createTimer(&owner, 10);
  advanceAndSettle(10);
  ASSERT_THAT(owner.firedIds(), ElementsAre(id));
  EXPECT_TRUE(context.deleteTimer(id));
  EXPECT_FALSE(context.restartTimer(id));
}

TEST_F(ManualTimers, RefusesNullOwnerNegativeDelayAndUnknownIds) {
  EXPECT_EQ(context.createTimer(nullptr, 100), -1);
  EXPECT_EQ(context.createTimer(&owner, -1), -1);
  EXPECT_EQ(context.armedTimers(), 0u);
  EXPECT_FALSE(context.restartTimer(12345));
  EXPECT_FALSE(context.deleteTimer(12345));
  EXPECT_FALSE(context.restartTimer(-1));
}

TEST_F(ManualTimers, IdsArePositiveIncreaseAndAreNotReused) {
  int first = context.createTimer(&owner, 100);
  ASSERT_TRUE(context.deleteTimer(first));
  int second = context.createTimer(&owner, 100);
  int third = context.createTimer(&owner, 100);
  EXPECT_GT(first, 0);
  EXPECT_GT(second, first);
  EXPECT_GT(third, second);
}

TEST_F(ManualTimers, TimersDueInOneAdvanceFireInDeadlineOrder) {
  int late = context.createTimer(&owner, 300);
  int early = context.createTimer(&owner, 100);
  int middle = context.createTimer(&owner, 200);
  advanceAndSettle(1000);
  EXPECT_THAT(owner.firedIds(), ElementsAre(early, middle, late));
}

TEST_F(ManualTimers, EqualDeadlinesFireInArmingOrder) {
  // Both deadlines are 200 ms from the start; `first` was armed 100 ms before `second`.
  int first = context.createTimer(&owner, 200);
  advanceAndSettle(100);
  int second = context.createTimer(&owner, 100);
  // Restarting `a` after `b` was armed makes `a` the later one, despite its smaller id.
  int a = context.createTimer(&owner, 150);
  int b = context.createTimer(&owner, 150);
  ASSERT_TRUE(context.restartTimer(a));

  advanceAndSettle(1000);
  EXPECT_THAT(owner.firedIds(), ElementsAre(first, second, b, a));
}

TEST_F(ManualTimers, OneHourTimerRunsOnManualTime) {
  int id = context.createTimer(&owner, kOneHourMs);
  advanceAndSettle(kOneHourMs - 1);
  EXPECT_THAT(owner.firedIds(), IsEmpty());
  advanceAndSettle(1);
  EXPECT_THAT(owner.firedIds(), ElementsAre(id));
}

TEST_F(ManualTimers, TimersOfDifferentOwnersFireIndependently) {
  RecordingOwner other;
  int mine = context.createTimer(&owner, 100);
  int theirs = context.createTimer(&other, 50);
  advanceAndSettle(100);
  EXPECT_THAT(owner.firedIds(), ElementsAre(mine));
  EXPECT_THAT(other.firedIds(), ElementsAre(theirs));
}

TEST_F(ManualTimers, PendingTimersAreDroppedWhenTheContextIsDestroyed) {
  auto local = std::make_unique<FrameworkContext>(time);
  local->createTimer(&owner, 100);
  local.reset();
  time.advance(1000);  // its listener is gone: nothing may reach the destroyed context
  EXPECT_THAT(owner.firedIds(), IsEmpty());
}

// Re-arms itself from its own timerEvent, once by a new timer and once by restarting the old one.
class HourlyOwner : public RecordingOwner {
 public:
  enum class Rearm { kCreate, kRestart };
  HourlyOwner(Context& context, Rearm rearm) : m_context(context), m_rearm(rearm) {}

  void timerEvent(int timerId) override {
    RecordingOwner::timerEvent(timerId);
    if (m_rearm == Rearm::kCreate) {
      m_context.deleteTimer(timerId);
      m_context.createTimer(this, kOneHourMs);
    } else {
      m_context.restartTimer(timerId);
    }
  }

 private:
  Context& m_context;
  Rearm m_rearm;
};

TEST_F(ManualTimers, TimerEventCanArmANewTimerForItself) {
  HourlyOwner hourly(context, HourlyOwner::Rearm::kCreate);
  int first = context.createTimer(&hourly, kOneHourMs);
  for (int hour = 0; hour < 3; ++hour) advanceAndSettle(kOneHourMs);

  auto ids = hourly.firedIds();
  ASSERT_EQ(ids.size(), 3u);
  EXPECT_EQ(ids[0], first);
  EXPECT_GT(ids[1], ids[0]);
  EXPECT_GT(ids[2], ids[1]);
  EXPECT_EQ(context.armedTimers(), 1u);
  context.cancelTimers(&hourly);
}

TEST_F(ManualTimers, TimerEventCanRestartItsOwnTimer) {
  HourlyOwner hourly(context, HourlyOwner::Rearm::kRestart);
  int id = context.createTimer(&hourly, kOneHourMs);
  advanceAndSettle(kOneHourMs);
  advanceAndSettle(kOneHourMs - 1);
  EXPECT_THAT(hourly.firedIds(), ElementsAre(id));
  advanceAndSettle(1);
  EXPECT_THAT(hourly.firedIds(), ElementsAre(id, id));
  context.cancelTimers(&hourly);
}

TEST_F(ManualTimers, CancelTimersDeletesOnlyThatOwnersTimers) {
  RecordingOwner other;
  int mineA = context.createTimer(&owner, 100);
  int mineB = context.createTimer(&owner, 200);
  int theirs = context.createTimer(&other, 100);
  context.cancelTimers(&owner);

  EXPECT_EQ(context.armedTimers(), 1u);
  EXPECT_FALSE(context.restartTimer(mineA));
  EXPECT_FALSE(context.deleteTimer(mineB));
  advanceAndSettle(1000);
  EXPECT_THAT(owner.firedIds(), IsEmpty());
  EXPECT_THAT(other.firedIds(), ElementsAre(theirs));
}

// Cancels its own timers from its timerEvent: must return rather than wait for itself.
class SelfCancellingOwner : public RecordingOwner {
 public:
  explicit SelfCancellingOwner(FrameworkContext& context) : m_context(context) {}
  void timerEvent(int timerId) override {
    RecordingOwner::timerEvent(timerId);
    m_context.cancelTimers(this);
  }

 private:
  FrameworkContext& m_context;
};

TEST_F(ManualTimers, CancelTimersFromTheOwnersTimerEventDoesNotWaitForItself) {
  SelfCancellingOwner selfCancelling(context);
  int first = context.createTimer(&selfCancelling, 100);
  context.createTimer(&selfCancelling, 200);
  advanceAndSettle(1000);
  EXPECT_THAT(selfCancelling.firedIds(), ElementsAre(first));
  EXPECT_EQ(context.armedTimers(), 0u);
}

TEST(ServiceRegistry, FindsRegisteredServicesByName) {
  fw::ManualTimeSource time;
  FrameworkContext context(time);
  RecordingOwner clock;
  RecordingOwner journal;
  RecordingOwner replacement;

  EXPECT_EQ(context.findService("Clock"), nullptr);
  context.registerService("Clock", &clock);
  context.registerService("Journal", &journal);
  EXPECT_EQ(context.findService("Clock"), &clock);
  EXPECT_EQ(context.findService("Journal"), &journal);
  EXPECT_EQ(context.findService("clock"), nullptr) << "names are case-sensitive";

  context.registerService("Clock", &replacement);
  EXPECT_EQ(context.findService("Clock"), &replacement);

  context.unregisterService("Clock");
  EXPECT_EQ(context.findService("Clock"), nullptr);
  EXPECT_EQ(context.findService("Journal"), &journal);
  context.unregisterService("Unknown");  // harmless
  EXPECT_EQ(context.findService("Journal"), &journal);
}

TEST(SteadyTimers, ShortTimerExpiresOnTheRealClock) {
  fw::SteadyTimeSource time;
  RecordingOwner owner;
  FrameworkContext context(time);
  int id = context.createTimer(&owner, 20);

  ASSERT_TRUE(owner.waitForExpiries(1, std::chrono::seconds(5)));
  EXPECT_THAT(owner.firedIds(), ElementsAre(id));
  EXPECT_EQ(context.armedTimers(), 0u);
}

TEST(SteadyTimers, LaterTimerDoesNotDelayAnEarlierOne) {
  fw::SteadyTimeSource time;
  RecordingOwner owner;
  FrameworkContext context(time);
  // Armed first: a thread that kept sleeping towards the first deadline it saw would miss `soon`.
  context.createTimer(&owner, kOneHourMs);
  int soon = context.createTimer(&owner, 20);

  ASSERT_TRUE(owner.waitForExpiries(1, std::chrono::seconds(5)));
  EXPECT_THAT(owner.firedIds(), ElementsAre(soon));
  EXPECT_EQ(context.armedTimers(), 1u);
}

}  // namespace
