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
  LogCapture log;
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
  EXPECT_TRUE(log.contains("mobility svc returned false", 5));
  EXPECT_TRUE(log.contains("mobility svc returned true!", 5));
  phone.advance(5 * kHour);
  EXPECT_EQ(phone.mobility.uploads(), 3);
}

TEST(AutoSave, FirstDelayFollowsTheLastByteOfTheMacAndOnSipNothingFollowsIt) {
  // A character that is not hexadecimal reads as 0; a text shorter than a byte gives 0 and logs an error.
  const std::pair<const char*, int64_t> cases[] = {
      {"00:1A:2B:3C:4D:5E", kHour + 14000 * 0x5E}, {"x9:", kHour + 14000 * 0x90}, {"0", kHour}};
  for (const auto& [mac, delay] : cases) {
    LogCapture log;
    JournalHarness phone(phoneWith("Velmora SIP", mac));
    phone.start();
    phone.peer().setVisitorCallLogChanged(true);
    EXPECT_EQ(log.contains("invalid mac address", 2), std::string(mac).size() < 2) << mac;
    phone.advance(delay - 1);
    EXPECT_EQ(log.count("timer expired"), 0) << mac;
    phone.advance(1);
    EXPECT_EQ(log.count("timer expired"), 1) << mac;
    EXPECT_EQ(phone.context.armedTimers(), 0u) << mac;  // no hourly timer on SIP software
    phone.advance(24 * kHour);
    EXPECT_EQ(log.count("timer expired"), 1) << mac;
    EXPECT_EQ(phone.mobility.uploads(), 0) << mac;
  }
}

TEST(AutoSave, NoMacAddressNoTimer) {
  JournalHarness phone(std::map<std::string, std::string>{{"software-type", "Velmora KPX"}});
  phone.start();
  EXPECT_EQ(phone.context.armedTimers(), 0u);
}

}  // namespace
