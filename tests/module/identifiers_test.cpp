// Entry identifiers from call ids, and the duration and time comparison of occurrences.
#include <gtest/gtest.h>

#include <tuple>

#include "ClientLists.h"
#include "CstaEventFactory.h"
#include "JournalHarness.h"

namespace {

// Makes a settable clock the module's clock for the life of the object.
struct WithClock {
  explicit WithClock(const std::string& now) : clock(time, now) { JournalService::m_pClockSvc = &clock; }
  ~WithClock() { JournalService::m_pClockSvc = nullptr; }
  fw::ManualTimeSource time;
  SettableClockService clock;
};

// The id of the missed entry a call from `party` leaves, the call going by `callId`.
std::string missedEntryIdOf(JournalHarness& phone, const std::string& callId, const std::string& party) {
  for (const auto& event : {std::shared_ptr<CSTAEvent>(csta::delivered(callId, CSTA_LCS_Alerting, csta::dev(party),
                                                                       csta::dev(csta::kOwnLine))),
                            std::shared_ptr<CSTAEvent>(csta::cleared(callId, EC_CALL_CANCELLED))})
    phone.service->deliverEvent(event.get());
  const auto missed = missedCalls(*phone.service);
  return missed.empty() ? "<no entry>" : missed.front().getEntryId();
}

// An entry is named by the time stamp of the second it is filed in and eight hexadecimal digits
// that come from its call id.
TEST(EntryId, TimeStampThenTheCallIdsDigitsFollowingTheClock) {
  JournalHarness phone(std::map<std::string, std::string>{{"software-type", "Velmora KPX"}});
  phone.store.setReply("<storeReply><result>ok</result><lastUniqueId>1</lastUniqueId></storeReply>");
  phone.start();
  const struct {
    const char* name;
    const char* callId;
    const char* digits;
  } cases[] = {
      {"a decimal call id: its value", "1234", "000004D2"},
      {"a hexadecimal call id, as real switches send: its low 32 bits", "FF00010000000000EC6114647E570001", "7E570001"},
      {"hexadecimal in lower case", "12ab34cd", "12AB34CD"},
      {"any other call id: hashed (FNV-1a)", "call-17", "0D7BCD50"}};
  int party = 500;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(std::string("2024-03-05T07:08:09Z") + c.digits,
              missedEntryIdOf(phone, c.callId, std::to_string(party++)));
  }
  phone.advance(45000);
  EXPECT_EQ("2024-03-05T07:08:54Z00000001", missedEntryIdOf(phone, "1", std::to_string(party)));
}

// Ids handed out for new entries: a call's own digits when they are free, else the next free value;
// taken for the rest of their second (the entry may be filed on another thread at that moment), and
// for as long as an entry holds them.
TEST(EntryId, ANewIdIsNeitherHeldByAnEntryNorGivenBeforeInItsSecond) {
  EntryIds ids;
  const std::string second = "2024-03-05T07:08:09Z", next = "2024-03-05T07:08:10Z";
  EXPECT_EQ(ids.handOut(second, 0), second + "00000000");
  EXPECT_EQ(ids.handOut(second, 0), second + "00000001");  // a second failed call "0" of that second
  EXPECT_EQ(ids.handOut(second, 0xFFFFFFFF), second + "FFFFFFFF");
  EXPECT_EQ(ids.handOut(second, 0xFFFFFFFF), second + "00000002");  // wraps, past the values taken
  EXPECT_TRUE(ids.hold(second + "00000001"));                       // filed: an entry holds it now
  EXPECT_EQ(ids.handOut(next, 0), next + "00000000");               // a new second starts afresh...
  EXPECT_TRUE(ids.hold(next + "00000005"));
  EXPECT_EQ(ids.handOut(next, 5), next + "00000006");  // ...but not over an entry's id
  EXPECT_FALSE(ids.hold(next + "00000005"));           // a second holder
  ids.release(next + "00000005");
  EXPECT_EQ(ids.handOut(next, 5), next + "00000007");  // the second holder is still there
  ids.release(next + "00000005");
  EXPECT_EQ(ids.handOut(next, 5), next + "00000005");
  EXPECT_EQ(ids.holdFree(second + "00000000"), second + "00000002");  // past the ids entries hold
  EXPECT_EQ(ids.holdFree("M1"), "M100000001");                        // an id of another form
}

TEST(TimeTexts, DurationsInMinutesAndSecondsAndComparisonsFieldByField) {
  const std::tuple<long, long, const char*> durations[] = {
      {100, 50, "00:00"}, {0, 59, "00:59"}, {0, 3725, "62:05"}, {0, 6000, "100:00"}};
  for (const auto& [start, end, text] : durations)
    EXPECT_EQ(JournalService::formatDuration(start, end), text) << start << ".." << end;

  WithClock clock("2024-03-05T07:08:09");
  JournalService service(nullptr);  // its destructor resets the module's clock
  const std::tuple<const char*, const char*, int> comparisons[] = {
      {"2024-03-05T07:08:09", "2024-03-05T07:08:10", -1},
      {"2024-03-05T07:08:11", "2024-03-05T07:08:10", 1},
      {"2024-03-05T07:08:09", "2024-03-05T07:08:09", 0},
      {"2023-12-31T23:59:59", "2024-01-01T00:00:00", -1}};  // the year decides before every later field
  for (const auto& [a, b, expected] : comparisons) {
    int result = 99;
    EXPECT_TRUE(service.compareTimes(a, b, result)) << a << " vs " << b;
    EXPECT_EQ(result, expected) << a << " vs " << b;
  }
}

}  // namespace
