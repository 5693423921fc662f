// The visitor call-log auto-save: a first timer spread by the MAC address, then (KPX software
// only) an hourly upload through the mobility service while the journal has changed. A change is
// one the store took: here a busy caller's missed call, written to the store.
#include <gtest/gtest.h>

#include "CstaEventFactory.h"
#include "JournalHarness.h"
#include "LogCapture.h"

namespace {

constexpr int64_t kHour = 3600000;
const std::string kStored = "<storeReply><result>ok</result><lastUniqueId>1</lastUniqueId></storeReply>";

std::map<std::string, std::string> phoneWith(const std::string& software, const std::string& mac) {
  return {{"software-type", software}, {"mac-addr", mac}};
}

// A caller finds the line busy: the journal files (or updates) the caller's missed entry.
void fileAChange(JournalHarness& phone) {
  phone.service->deliverEvent(csta::failed("0", csta::dev("4711"), csta::dev(csta::kOwnLine), EC_BUSY).get());
}

TEST(AutoSave, KpxUploadsAtTheFirstExpiryThenHourlyWhileChangedAndIgnoresOtherTimers) {
  JournalHarness phone(phoneWith("Velmora KPX", "00:1A:2B:3C:4D:FF"));
  phone.store.setReply(kStored);
  phone.start();
  fileAChange(phone);
  phone.advance(7170000 - 1);  // 3,600,000 + 14,000 x 255
  EXPECT_EQ(0, phone.mobility.uploads());
  phone.advance(1);
  EXPECT_EQ(1, phone.mobility.uploads());
  EXPECT_EQ(1u, phone.context.armedTimers());  // the first timer is gone, the hourly one runs

  phone.advance(kHour);  // nothing changed since the upload
  EXPECT_EQ(1, phone.mobility.uploads());
  fileAChange(phone);
  phone.service->timerEvent(12345);  // not one of its timers
  phone.advance(kHour - 1);
  EXPECT_EQ(1, phone.mobility.uploads());
  phone.advance(1);
  EXPECT_EQ(2, phone.mobility.uploads());
  EXPECT_EQ(1u, phone.context.armedTimers());
}

TEST(AutoSave, FailedUploadIsTriedAgainEveryHourUntilItSucceeds) {
  JournalHarness phone(phoneWith("Velmora KPX", "00"));  // the first delay is exactly one hour
  phone.store.setReply(kStored);
  phone.start();
  fileAChange(phone);
  phone.mobility.answerNext(false);
  phone.mobility.answerNext(false);  // then the default answer, true
  for (int upload = 1; upload <= 3; ++upload) {
    phone.advance(kHour);
    EXPECT_EQ(upload, phone.mobility.uploads());
  }
  phone.advance(5 * kHour);
  EXPECT_EQ(3, phone.mobility.uploads());
}

// A change the store refused is not uploaded; once the store has taken it on a retry, it is.
TEST(AutoSave, AChangeIsUploadedOnceTheStoreHasTakenIt) {
  JournalHarness phone(phoneWith("Velmora KPX", "00"));
  phone.store.setReply("failed");
  phone.start();
  fileAChange(phone);
  phone.advance(kHour);
  EXPECT_EQ(0, phone.mobility.uploads());
  phone.store.setReply(kStored);
  phone.advance(kHour);
  EXPECT_EQ(1, phone.mobility.uploads());
}

// The changes made before another user came to the phone are not that user's to upload.
TEST(AutoSave, AnotherUserAtThePhoneForgetsTheChangesBefore) {
  JournalHarness phone(phoneWith("Velmora KPX", "00"));
  phone.store.setReply(kStored);
  phone.start();
  fileAChange(phone);
  phone.mgmt.setValue("mobility-current-user", "alice");
  phone.mgmt.drainNotifications();
  phone.advance(kHour);
  EXPECT_EQ(0, phone.mobility.uploads());
}

// On SIP software the first expiry uploads nothing and no hourly timer follows. A MAC address too
// short for a byte gives the first delay of one hour. (The call table's sweep, armed by the busy
// call, has let go of its timer a quarter of an hour later.)
TEST(AutoSave, OnSipTheFirstExpiryIsTheLast) {
  LogCapture log;
  JournalHarness phone(phoneWith("Velmora SIP", "0"));
  phone.store.setReply(kStored);
  phone.start();
  fileAChange(phone);
  EXPECT_TRUE(log.contains("invalid mac address", 2));
  phone.advance(kHour - 1);
  EXPECT_EQ(1u, phone.context.armedTimers());  // the first auto-save timer
  phone.advance(1);
  EXPECT_EQ(0u, phone.context.armedTimers());
  phone.advance(24 * kHour);
  EXPECT_EQ(0, phone.mobility.uploads());
}

TEST(AutoSave, NoMacAddressNoTimer) {
  JournalHarness phone(std::map<std::string, std::string>{{"software-type", "Velmora KPX"}});
  phone.start();
  EXPECT_EQ(0u, phone.context.armedTimers());
}

}  // namespace
