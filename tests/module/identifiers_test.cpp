// Entry identifiers, time and duration texts, ordering of stored entries, the dialled-list cap.
// The MAC address digits are read in autosave_test, through the delays they give.
#include <gtest/gtest.h>

#include <algorithm>
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
      // Decimal: read like a 32-bit strtol, out of range sticking to the limits.
      {"1234", "000004D2"},
      {"4294967296", "7FFFFFFF"},
      {"-1", "FFFFFFFF"},
      {"  +42", "0000002A"},
      // Hexadecimal, as real switches send call ids: the low 32 bits.
      {"FF00010000000000EC6114647E570001", "7E570001"},
      {"AB12CD34", "AB12CD34"},
      {"12ab34cd", "12AB34CD"},
      // Anything else: hashed (FNV-1a).
      {"call-17", "0D7BCD50"},
      {"", "811C9DC5"}};
  for (const auto& [number, suffix] : cases)
    EXPECT_EQ(JournalService::createEntryId(number), std::string("2024-03-05T07:08:09Z") + suffix) << number;
  clock.time.advance(45000);
  EXPECT_EQ(JournalService::formatTimeDate(JournalService::getCurrentTimeSec()), "2024-03-05T07:08:54");
  EXPECT_EQ(JournalService::createEntryId("1"), "2024-03-05T07:08:54Z00000001");
}

// Ids handed out for new entries: a call's own digits when they are free, else the next free value;
// taken for the rest of their second, and for as long as an entry holds them.
TEST(EntryId, ANewIdIsNeitherHeldByAnEntryNorGivenBeforeInItsSecond) {
  EntryIds ids;
  const std::string second = "2024-03-05T07:08:09Z";
  EXPECT_EQ(ids.handOut(second, 0), second + "00000000");
  EXPECT_EQ(ids.handOut(second, 0), second + "00000001");  // a second failed call "0" of that second
  EXPECT_EQ(ids.handOut(second, 0xFFFFFFFF), second + "FFFFFFFF");
  EXPECT_EQ(ids.handOut(second, 0xFFFFFFFF), second + "00000002");  // wraps, past the values taken
  EXPECT_TRUE(ids.hold(second + "00000001"));                       // filed: an entry holds it now
  const std::string next = "2024-03-05T07:08:10Z";
  EXPECT_EQ(ids.handOut(next, 0), next + "00000000");  // a new second starts afresh...
  EXPECT_TRUE(ids.hold("2024-03-05T07:08:10Z00000005"));
  EXPECT_EQ(ids.handOut(next, 5), next + "00000006");  // ...but not over an entry's id
  EXPECT_FALSE(ids.hold("2024-03-05T07:08:10Z00000005"));
  ids.release("2024-03-05T07:08:10Z00000005");
  EXPECT_TRUE(ids.isHeld("2024-03-05T07:08:10Z00000005"));  // the second holder is still there
  ids.release("2024-03-05T07:08:10Z00000005");
  EXPECT_FALSE(ids.isHeld("2024-03-05T07:08:10Z00000005"));
  EXPECT_EQ(ids.holdFree(second + "00000000"), second + "00000002");  // past the ids entries hold
  EXPECT_EQ(ids.holdFree("M1"), "M100000001");                        // an id of another form
}

TEST(EntryId, WithoutClockOnlyTheDigitsAndNoTimesOrComparisons) {
  JournalService service(nullptr);
  JournalService::m_pClockSvc = nullptr;
  EXPECT_EQ(JournalService::createEntryId("1234"), "000004D2");
  EXPECT_EQ(JournalService::getCurrentTimeSec(), -1);
  EXPECT_EQ(JournalService::formatTimeDate(0), "");
  int result = 42;
  EXPECT_FALSE(service.compareTimes("2024-03-05T07:08:09", "2024-03-05T07:08:10", result));
  EXPECT_EQ(result, 42);
}

TEST(TimeTexts, DurationsInMinutesAndSecondsAndComparisonsFieldByField) {
  const std::tuple<long, long, const char*> durations[] = {{100, 100, "00:00"}, {100, 50, "00:00"},
                                                           {0, 59, "00:59"},    {0, 60, "01:00"},
                                                           {0, 3725, "62:05"},  {0, 6000, "100:00"}};
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
    EXPECT_TRUE(service.compareTimes(a, b, result) && result == expected) << a << " vs " << b << ": " << result;
  }
}

// An entry with occurrences at `times`, added in that order.
template <class Item>
Item itemAt(const std::string& id, std::initializer_list<const char*> times) {
  Item item;
  item.setEntryId(id);
  for (const char* time : times) {
    typename Item::InfoList::value_type info;
    info.timeDate = time;
    item.addCallInfoToList(info);
  }
  return item;
}

template <class Item>
class Ordering : public ::testing::Test {};
using EntryTypes = ::testing::Types<MissedCallItem, ReceivedCallItem, DialledCallItem, ForwardedCallItem>;
TYPED_TEST_SUITE(Ordering, EntryTypes);

bool ordered(const MissedCallItem& a, const MissedCallItem& b) { return isMissedCallOrdered(a, b); }
bool ordered(const ReceivedCallItem& a, const ReceivedCallItem& b) { return isReceivedCallOrdered(a, b); }
bool ordered(const DialledCallItem& a, const DialledCallItem& b) { return isDialledCallOrdered(a, b); }
bool ordered(const ForwardedCallItem& a, const ForwardedCallItem& b) { return isForwardedCallOrdered(a, b); }

TYPED_TEST(Ordering, NewestOccurrenceOrElseTheIdDecidesStrictlyAndLongerKeysWin) {
  using Item = TypeParam;
  std::deque<Item> list = {itemAt<Item>("a", {"2024-03-05T07:08:09"}),
                           itemAt<Item>("c", {"2023-12-31T23:59:59"}),
                           itemAt<Item>("x", {"2024-01-01T00:00:00", "2024-02-01T00:00:00"}),
                           itemAt<Item>("y", {"2024-01-15T00:00:00"}),
                           itemAt<Item>("b", {"2024-03-06T00:00:00"}),
                           itemAt<Item>("2024-03-05T12:00:00Z00000001", {})};  // no occurrence: its id counts
  std::sort(list.begin(), list.end(), [](const Item& l, const Item& r) { return ordered(l, r); });
  std::string firstLetters;
  for (const Item& item : list) firstLetters += item.getEntryId()[0];
  EXPECT_EQ(firstLetters, "b2axyc");
  EXPECT_TRUE(ordered(itemAt<Item>("abc", {}), itemAt<Item>("ab", {})));
  EXPECT_FALSE(ordered(itemAt<Item>("ab", {}), itemAt<Item>("abc", {})));
  EXPECT_FALSE(ordered(list[0], list[0]));  // strict: equal keys are not ordered
}

TEST(DialledCap, TheOldestBeyondOneThousandIsDroppedAndNamed) {
  JournalService service(nullptr);
  auto& list = JournalServiceTestPeer(service).dialledList();
  for (int i = 0; i < 1000; ++i) {
    list.emplace_back();
    list.back().setUniqueId("u" + std::to_string(i));
  }
  std::string first = "untouched", second = "untouched";
  service.getUniqueIds(first, second);  // at the cap nothing is dropped
  EXPECT_EQ(first + " " + second + " " + std::to_string(list.size()), "untouched untouched 1000");
  list.emplace_front();
  list.front().setUniqueId("new");
  service.getUniqueIds(first, second);
  EXPECT_EQ(first + " " + second + " " + std::to_string(list.size()), "u999 u999 1000");
  EXPECT_EQ(list.front().getUniqueId() + " " + list.back().getUniqueId(), "new u998");
}

}  // namespace
