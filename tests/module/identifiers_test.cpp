// Entry identifiers from call ids, and the duration and time comparison of occurrences.
#include <gtest/gtest.h>

#include <tuple>

#include "JournalHarness.h"

namespace {

// Makes a settable clock the module's clock for the life of the object.
struct WithClock {
  explicit WithClock(const std::string& now) : clock(time, now) { JournalService::m_pClockSvc = &clock; }
  ~WithClock() { JournalService::m_pClockSvc = nullptr; }
  fw::ManualTimeSource time;
  SettableClockService clock;
};

TEST(EntryId, TimeStampThenTheCallIdsDigitsFollowingTheClock) {
  WithClock clock("2024-03-05T07:08:09");
  const std::pair<const char*, const char*> cases[] = {
      {"1234", "000004D2"},                              // decimal: its value
      {"FF00010000000000EC6114647E570001", "7E570001"},  // hexadecimal, as real switches send: the low 32 bits
      {"12ab34cd", "12AB34CD"},
      {"call-17", "0D7BCD50"}};  // anything else: hashed (FNV-1a)
  for (const auto& [callId, suffix] : cases)
    EXPECT_EQ(JournalService::createEntryId(callId), std::string("2024-03-05T07:08:09Z") + suffix) << callId;
  clock.time.advance(45000);
  EXPECT_EQ(JournalService::createEntryId("1"), "2024-03-05T07:08:54Z00000001");
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

TEST(DialledCap, TheOldestBeyondOneThousandIsDroppedAndNamed) {
  JournalService service(nullptr);
  auto& list = JournalServiceTestPeer(service).dialledList();
  for (int i = 0; i < 1000; ++i) {
    list.emplace_back();
    list.back().setUniqueId("u" + std::to_string(i));
  }
  std::string first = "untouched", second = "untouched";
  service.getUniqueIds(first, second);  // at the cap nothing is dropped
  EXPECT_EQ("untouched", first);
  EXPECT_EQ(1000u, list.size());
  list.emplace_front();
  list.front().setUniqueId("new");
  service.getUniqueIds(first, second);
  EXPECT_EQ("u999", first);
  EXPECT_EQ("u999", second);
  EXPECT_EQ(1000u, list.size());
  EXPECT_EQ("u998", list.back().getUniqueId());
}
