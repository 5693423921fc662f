// Entry identifiers, time and duration texts, ordering of stored entries, the dialled-list cap.
#include <gtest/gtest.h>

#include <algorithm>

#include "JournalHarness.h"
#include "LogCapture.h"

namespace {

// Makes the clock service the module's clock for the life of the object.
class WithClock {
 public:
  explicit WithClock(const std::string& now) : m_clock(m_time, now) { JournalService::m_pClockSvc = &m_clock; }
  ~WithClock() { JournalService::m_pClockSvc = nullptr; }
  fw::ManualTimeSource m_time;
  SettableClockService m_clock;
};

TEST(EntryId, TimeStampAndCallNumberReadAsDecimalLikeA32BitStrtol) {
  WithClock clock("2024-03-05T07:08:09");
  EXPECT_EQ(JournalService::createEntryId("1234"), "2024-03-05T07:08:09Z000004D2");
  auto suffix = [](const std::string& number) { return JournalService::createEntryId(number).substr(20); };
  EXPECT_EQ(suffix("4294967296"), "7FFFFFFF");  // beyond the range sticks to the limit
  EXPECT_EQ(suffix("-1"), "FFFFFFFF");
  EXPECT_EQ(suffix("AB12CD34"), "00000000");  // a random hexadecimal text starting with a letter
  EXPECT_EQ(suffix("12AB34CD"), "0000000C");  // only its leading decimal digits count
  EXPECT_EQ(suffix("  +42"), "0000002A");
  EXPECT_EQ(suffix(""), "00000000");
}

TEST(EntryId, WithoutClockOnlyTheDigits) {
  JournalService::m_pClockSvc = nullptr;
  EXPECT_EQ(JournalService::createEntryId("1234"), "000004D2");
  EXPECT_EQ(JournalService::getCurrentTimeSec(), -1);
  EXPECT_EQ(JournalService::formatTimeDate(0), "");
}

TEST(TimeTexts, CurrentTimeAndFormatFollowTheClock) {
  WithClock clock("2024-12-31T23:59:30");
  long now = JournalService::getCurrentTimeSec();
  EXPECT_EQ(JournalService::formatTimeDate(now), "2024-12-31T23:59:30");
  clock.m_time.advance(45000);
  EXPECT_EQ(JournalService::formatTimeDate(JournalService::getCurrentTimeSec()), "2025-01-01T00:00:15");
  EXPECT_EQ(JournalService::createEntryId("1").substr(0, 20), "2025-01-01T00:00:15Z");
}

TEST(Duration, MinutesAndSecondsWithoutHours) {
  EXPECT_EQ(JournalService::formatDuration(100, 100), "00:00");
  EXPECT_EQ(JournalService::formatDuration(100, 50), "00:00");
  EXPECT_EQ(JournalService::formatDuration(0, 59), "00:59");
  EXPECT_EQ(JournalService::formatDuration(0, 60), "01:00");
  EXPECT_EQ(JournalService::formatDuration(0, 3725), "62:05");
  EXPECT_EQ(JournalService::formatDuration(0, 6000), "100:00");
}

TEST(CompareTimes, FieldByFieldWithClock) {
  WithClock clock("2024-03-05T07:08:09");
  JournalService service(nullptr);
  JournalService::m_pClockSvc = &clock.m_clock;  // the service's destructor resets it
  int result = 99;
  ASSERT_TRUE(service.compareTimes("2024-03-05T07:08:09", "2024-03-05T07:08:10", result));
  EXPECT_EQ(result, -1);
  ASSERT_TRUE(service.compareTimes("2024-03-05T07:08:11", "2024-03-05T07:08:10", result));
  EXPECT_EQ(result, 1);
  ASSERT_TRUE(service.compareTimes("2024-03-05T07:08:09", "2024-03-05T07:08:09", result));
  EXPECT_EQ(result, 0);
  ASSERT_TRUE(service.compareTimes("2023-12-31T23:59:59", "2024-01-01T00:00:00", result));
  EXPECT_EQ(result, -1);  // the year decides before every later field
}

TEST(CompareTimes, WithoutClockReportsNothing) {
  JournalService service(nullptr);
  JournalService::m_pClockSvc = nullptr;
  int result = 42;
  EXPECT_FALSE(service.compareTimes("2024-03-05T07:08:09", "2024-03-05T07:08:10", result));
  EXPECT_EQ(result, 42);
}

TEST(MacAddress, LastByteAsHexadecimal) {
  LogCapture log;
  EXPECT_EQ(getLastByteOfMacAddr("00:1A:2B:3C:4D:5E"), 0x5Eu);
  EXPECT_EQ(getLastByteOfMacAddr("ff"), 255u);
  EXPECT_EQ(getLastByteOfMacAddr("zz"), 0u);
  EXPECT_FALSE(log.contains("invalid mac address"));
  EXPECT_EQ(getLastByteOfMacAddr(""), 0u);
  EXPECT_EQ(getLastByteOfMacAddr("A"), 0u);
  EXPECT_EQ(log.count("invalid mac address"), 2);
  EXPECT_TRUE(log.contains("invalid mac address", 2));
}

TEST(MacAddress, HexDigitsWithoutTerminator) {
  const char twoChars[2] = {'7', 'f'};
  EXPECT_EQ(hexToint(twoChars), 0x7Fu);
  EXPECT_EQ(hexToint('g') + hexToint(':'), 0u);
}

template <class Item>
Item itemAt(const std::string& id, const std::string& time) {
  Item item;
  item.setEntryId(id);
  if (!time.empty()) {
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

TYPED_TEST(Ordering, SortPutsNewestOccurrenceFirst) {
  std::deque<TypeParam> list = {
      itemAt<TypeParam>("a", "2024-03-05T07:08:09"),
      itemAt<TypeParam>("b", "2024-03-06T00:00:00"),
      itemAt<TypeParam>("c", "2023-12-31T23:59:59"),
      itemAt<TypeParam>("2024-03-05T12:00:00Z00000001", ""),  // no occurrence: sorted by its id
  };
  std::sort(list.begin(), list.end(), [](const TypeParam& x, const TypeParam& y) { return ordered(x, y); });
  ASSERT_EQ(list.size(), 4u);
  EXPECT_EQ(list[0].getEntryId(), "b");
  EXPECT_EQ(list[1].getEntryId(), "2024-03-05T12:00:00Z00000001");
  EXPECT_EQ(list[2].getEntryId(), "a");
  EXPECT_EQ(list[3].getEntryId(), "c");
}

TYPED_TEST(Ordering, OnlyTheNewestOccurrenceCountsAndLongerKeysWin) {
  TypeParam older = itemAt<TypeParam>("x", "2024-01-01T00:00:00");
  typename TypeParam::InfoList::value_type newer;
  newer.timeDate = "2024-02-01T00:00:00";
  older.addCallInfoToList(newer);
  TypeParam other = itemAt<TypeParam>("y", "2024-01-15T00:00:00");
  EXPECT_TRUE(ordered(older, other));
  EXPECT_FALSE(ordered(other, older));
  EXPECT_TRUE(ordered(itemAt<TypeParam>("abc", ""), itemAt<TypeParam>("ab", "")));
  EXPECT_FALSE(ordered(itemAt<TypeParam>("ab", ""), itemAt<TypeParam>("abc", "")));
  EXPECT_FALSE(ordered(other, other));  // strict: equal keys are not ordered
}

TEST(DialledCap, DropsTheOldestBeyondOneThousand) {
  JournalService service(nullptr);
  JournalServiceTestPeer peer(service);
  for (size_t i = 0; i < JournalService::kMaxListEntries; ++i) {
    DialledCallItem item;
    item.setUniqueId("u" + std::to_string(i));
    peer.dialledList().push_back(item);
  }
  std::string first = "untouched", second = "untouched";
  service.getUniqueIds(first, second);
  EXPECT_EQ(first, "untouched");
  EXPECT_EQ(second, "untouched");
  EXPECT_EQ(peer.dialledList().size(), 1000u);

  DialledCallItem newest;
  newest.setUniqueId("new");
  peer.dialledList().push_front(newest);
  service.getUniqueIds(first, second);
  EXPECT_EQ(first, "u999");
  EXPECT_EQ(second, "u999");
  EXPECT_EQ(peer.dialledList().size(), 1000u);
  EXPECT_EQ(peer.dialledList().front().getUniqueId(), "new");
  EXPECT_EQ(peer.dialledList().back().getUniqueId(), "u998");
}

}  // namespace
