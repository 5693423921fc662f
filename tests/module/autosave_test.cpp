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

TEST(AutoSave, KpxUploadsAtTheFirstExpiryThenHourlyWhileChangedAndIgnoresOtherTimers) {
  JournalHarness phone(phoneWith("Velmora KPX", "00:1A:2B:3C:4D:FF"));
  phone.start();
  auto peer = phone.peer();
  peer.setVisitorCallLogChanged(true);
  phone.advance(7170000 - 1);  // 3,600,000 + 14,000 x 255
  EXPECT_EQ(phone.mobility.uploads(), 0);
  phone.advance(1);
  EXPECT_EQ(phone.mobility.uploads(), 1);
  EXPECT_FALSE(peer.visitorCallLogChanged());
  EXPECT_EQ(phone.context.armedTimers(), 1u);  // the first timer is gone, the hourly one runs

  phone.advance(kHour);  // nothing changed since the upload
  EXPECT_EQ(phone.mobility.uploads(), 1);
  peer.setVisitorCallLogChanged(true);
  phone.service->timerEvent(12345);  // not one of its timers
  phone.advance(kHour - 1);
  EXPECT_EQ(phone.mobility.uploads(), 1);
  phone.advance(1);
  EXPECT_EQ(phone.mobility.uploads(), 2);
  EXPECT_EQ(phone.context.armedTimers(), 1u);
}

TEST(AutoSave, FailedUploadIsTriedAgainEveryHourUntilItSucceeds) {
  JournalHarness phone(phoneWith("Velmora KPX", "00"));  // the first delay is exactly one hour
  phone.start();
  auto peer = phone.peer();
  peer.setVisitorCallLogChanged(true);
  phone.mobility.answerNext(false);
  phone.mobility.answerNext(false);  // then the default answer, true
  for (int upload = 1; upload <= 3; ++upload) {
    phone.advance(kHour);
    EXPECT_EQ(phone.mobility.uploads(), upload);
    EXPECT_EQ(peer.visitorCallLogChanged(), upload < 3) << upload;
  }
  phone.advance(5 * kHour);
  EXPECT_EQ(phone.mobility.uploads(), 3);
}

// On SIP software the first expiry uploads nothing and no hourly timer follows. A MAC address too
// short for a byte gives the first delay of one hour.
TEST(AutoSave, OnSipTheFirstExpiryIsTheLast) {
  LogCapture log;
  JournalHarness phone(phoneWith("Velmora SIP", "0"));
  phone.start();
  phone.peer().setVisitorCallLogChanged(true);
  EXPECT_TRUE(log.contains("invalid mac address", 2));
  phone.advance(kHour - 1);
  EXPECT_EQ(log.count("timer expired"), 0);
  phone.advance(1);
  EXPECT_EQ(log.count("timer expired"), 1);
  EXPECT_EQ(phone.context.armedTimers(), 0u);
  phone.advance(24 * kHour);
  EXPECT_EQ(log.count("timer expired"), 1);
  EXPECT_EQ(phone.mobility.uploads(), 0);
}

TEST(AutoSave, NoMacAddressNoTimer) {
  JournalHarness phone(std::map<std::string, std::string>{{"software-type", "Velmora KPX"}});
  phone.start();
  EXPECT_EQ(phone.context.armedTimers(), 0u);
}

}  // namespace
