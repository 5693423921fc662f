// The visitor call-log auto-save: a first timer spread by the MAC address, then (KPX software
// only) an hourly upload through the mobility service while the journal has changed.
#include <gtest/gtest.h>

#include "JournalHarness.h"
#include "LogCapture.h"

namespace {

constexpr int64_t kHour = 3600000;

std::map<std::string, std::string> phoneWith(const std::string& software, const std::string& mac) {
  return {{"software-type", software}, {"mac-addr", mac}};
}

TEST(AutoSave, KpxUploadsAtTheFirstExpiryAndEveryHourWhileChanged) {
  JournalHarness phone(phoneWith("Velmora KPX", "00:1A:2B:3C:4D:FF"));
  phone.start();
  auto peer = phone.peer();
  peer.setVisitorCallLogChanged(true);
  phone.mobility.setDefaultAnswer(true);

  phone.advance(7170000 - 1);  // 3,600,000 + 14,000 x 255
  EXPECT_EQ(phone.mobility.uploads(), 0);
  phone.advance(1);
  EXPECT_EQ(phone.mobility.uploads(), 1);
  EXPECT_FALSE(peer.visitorCallLogChanged());
  EXPECT_NE(peer.hourlyTimer(), -1);
  EXPECT_EQ(phone.context.armedTimers(), 1u);  // the first timer is gone, the hourly one runs

  phone.advance(kHour);  // nothing changed since the upload
  EXPECT_EQ(phone.mobility.uploads(), 1);
  peer.setVisitorCallLogChanged(true);
  phone.advance(kHour - 1);
  EXPECT_EQ(phone.mobility.uploads(), 1);
  phone.advance(1);
  EXPECT_EQ(phone.mobility.uploads(), 2);
  EXPECT_EQ(phone.context.armedTimers(), 1u);
}

TEST(AutoSave, FailedUploadIsTriedAgainNextHour) {
  LogCapture log;
  JournalHarness phone(phoneWith("Velmora KPX", "00"));
  phone.start();
  auto peer = phone.peer();
  peer.setVisitorCallLogChanged(true);
  phone.mobility.answerNext(false);
  phone.mobility.answerNext(false);
  phone.mobility.answerNext(true);

  phone.advance(kHour);  // MAC ending in 00: the first delay is exactly one hour
  EXPECT_EQ(phone.mobility.uploads(), 1);
  EXPECT_TRUE(peer.visitorCallLogChanged());
  EXPECT_TRUE(log.contains("mobility svc returned false", 5));
  phone.advance(kHour);
  EXPECT_EQ(phone.mobility.uploads(), 2);
  EXPECT_TRUE(peer.visitorCallLogChanged());
  phone.advance(kHour);
  EXPECT_EQ(phone.mobility.uploads(), 3);
  EXPECT_FALSE(peer.visitorCallLogChanged());
  EXPECT_TRUE(log.contains("mobility svc returned true!", 5));
  phone.advance(5 * kHour);
  EXPECT_EQ(phone.mobility.uploads(), 3);
}

TEST(AutoSave, SipFirstTimerExpiresOnceAndNothingFollows) {
  LogCapture log;
  JournalHarness phone(phoneWith("Velmora SIP", "00:1A:2B:3C:4D:5E"));
  phone.start();
  auto peer = phone.peer();
  peer.setVisitorCallLogChanged(true);
  phone.advance(3600000 + 14000 * 0x5E);
  EXPECT_EQ(log.count("timer expired"), 1);
  EXPECT_EQ(phone.context.armedTimers(), 0u);
  EXPECT_EQ(peer.hourlyTimer(), -1);
  phone.advance(24 * kHour);
  EXPECT_EQ(log.count("timer expired"), 1);
  EXPECT_EQ(phone.mobility.uploads(), 0);
}

TEST(AutoSave, NoMacAddressNoTimer) {
  JournalHarness phone(std::map<std::string, std::string>{{"software-type", "Velmora KPX"}});
  phone.start();
  EXPECT_EQ(phone.peer().initialTimer(), -1);
  EXPECT_EQ(phone.context.armedTimers(), 0u);
  phone.peer().setVisitorCallLogChanged(true);
  phone.advance(48 * kHour);
  EXPECT_EQ(phone.mobility.uploads(), 0);
}

TEST(AutoSave, FirstDelayFollowsTheLastByte) {
  struct Case {
    const char* mac;
    int64_t delay;
  };
  for (Case c : {Case{"00:1A:2B:3C:4D:00", 3600000}, Case{"0", 3600000}, Case{"ff", 7170000},
                 Case{"00:1A:2B:3C:4D:5E", 3600000 + 14000 * 94}}) {
    LogCapture log;
    JournalHarness phone(phoneWith("Velmora SIP", c.mac));
    phone.start();
    EXPECT_TRUE(log.contains("inital timeout for auto calllog save:" + std::to_string(c.delay), 6)) << c.mac;
    phone.advance(c.delay - 1);
    EXPECT_EQ(log.count("timer expired"), 0) << c.mac;
    phone.advance(1);
    EXPECT_EQ(log.count("timer expired"), 1) << c.mac;
  }
}

TEST(AutoSave, UnknownTimerOnlyLogs) {
  LogCapture log;
  JournalHarness phone(phoneWith("Velmora KPX", "00"));
  phone.start();
  phone.peer().setVisitorCallLogChanged(true);
  phone.service->timerEvent(12345);
  EXPECT_EQ(log.count("timer expired"), 1);
  EXPECT_EQ(phone.mobility.uploads(), 0);
  EXPECT_EQ(phone.context.armedTimers(), 1u);
}

// A context that finds services but cannot make timers.
class NoTimerContext : public Context {
 public:
  explicit NoTimerContext(Context& inner) : m_inner(inner) {}
  Executable* findService(const std::string& name) override { return m_inner.findService(name); }
  int createTimer(Executable*, int) override { return -1; }
  bool restartTimer(int) override { return false; }
  bool deleteTimer(int) override { return false; }

 private:
  Context& m_inner;
};

TEST(AutoSave, TimerFailuresAreLogged) {
  LogCapture log;
  JournalHarness phone(phoneWith("Velmora KPX", "00"));
  NoTimerContext noTimers(phone.context);
  phone.service->init(noTimers);
  EXPECT_TRUE(log.contains("could not start autoSaveVisitorCallLogToRvm timer", 2));
  EXPECT_EQ(phone.peer().initialTimer(), -1);

  // The expiry of the (never made) first timer, whose id is -1, finds no hourly timer either.
  phone.service->timerEvent(-1);
  EXPECT_TRUE(log.contains("could not create timer", 2));
  EXPECT_EQ(phone.mobility.uploads(), 0);
}

}  // namespace
