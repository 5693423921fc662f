// CompactString, the text type of the occurrence records: texts on both sides of the in-place
// limit keep their characters through copies, moves and assignments, and compare as std::string.
#include "framework/CompactString.h"

#include <gtest/gtest.h>

#include <sstream>
#include <utility>
#include <vector>

#include "framework/CallItems.h"

namespace {

// The longest text held in place, the shortest held on the heap, and an empty one.
const std::string kInline(CompactString::kInlineCapacity, 'i');
const std::string kHeap(CompactString::kInlineCapacity + 1, 'h');

TEST(CompactStringTest, KeepsTextsOnBothSidesOfTheInPlaceLimit) {
  for (const std::string& text : {std::string(), std::string("2024-03-05T10:11:12"), kInline, kHeap}) {
    const CompactString value(text);
    EXPECT_EQ(text, value.str());
    EXPECT_EQ(text.size(), value.size());
    EXPECT_EQ(text.empty(), value.empty());
    EXPECT_STREQ(text.c_str(), value.c_str());  // terminated in both forms
  }
}

TEST(CompactStringTest, CopiesMovesAndAssignmentsKeepTheText) {
  for (const std::string& text : {kInline, kHeap}) {
    CompactString original(text);
    CompactString copy(original);
    EXPECT_EQ(text, copy);
    CompactString moved(std::move(original));
    EXPECT_EQ(text, moved);
    EXPECT_TRUE(original.empty());  // NOLINT(bugprone-use-after-move): a moved-from value is empty

    CompactString target("old");
    target = moved;
    EXPECT_EQ(text, target);
    const CompactString& same = target;  // through a reference, as self-assignment happens in real code
    target = same;                       // self-assignment keeps the text
    EXPECT_EQ(text, target);
    target = std::move(copy);
    EXPECT_EQ(text, target);
  }
}

TEST(CompactStringTest, AssigningAPartOfItselfOrAnotherFormWorks) {
  CompactString value(kHeap);
  value = value.c_str() + 1;  // the source lies in the block being replaced
  EXPECT_EQ(kHeap.substr(1), value);
  value = "short";
  EXPECT_EQ("short", value);
  value += kHeap;
  EXPECT_EQ("short" + kHeap, value.str());
  value.clear();
  EXPECT_EQ(0u, value.size());

  // In place, from its own bytes: the text moves down over itself.
  CompactString inPlace("0123456789");
  inPlace = inPlace.c_str() + 3;
  EXPECT_EQ("3456789", inPlace);
  EXPECT_EQ(7u, inPlace.size());
  // From the heap to a short text, and back in place from a longer one.
  CompactString shrunk(kHeap);
  shrunk = "abc";
  EXPECT_EQ("abc", shrunk);
  shrunk = kInline;
  EXPECT_EQ(kInline, shrunk);
}

TEST(CompactStringTest, ComparesAndJoinsLikeAStdString) {
  const CompactString a("0301"), b("0302");
  EXPECT_TRUE(a == std::string("0301"));
  EXPECT_TRUE(std::string("0301") == a);
  EXPECT_TRUE(a == "0301");
  EXPECT_TRUE(a != b);
  EXPECT_TRUE(a < b);
  EXPECT_FALSE(b < a);
  EXPECT_TRUE(a < "0302");
  EXPECT_EQ("tel:0301", "tel:" + a);
  EXPECT_EQ("0301/0302", a + "/" + b);
  EXPECT_EQ("01", a.substr(2));
  EXPECT_EQ(2u, a.find("01"));
  std::ostringstream out;
  out << a << '|' << CompactString(kHeap);
  EXPECT_EQ("0301|" + kHeap, out.str());
}

// Occurrences added one by one: newest first, at most ten, and no spare slots kept.
TEST(CompactStringTest, AnEntryKeepsItsTenNewestOccurrencesWithoutSpareSlots) {
  std::vector<MissedCallItem::MissedCallInfo> infos;
  for (int i = 0; i < 12; ++i) {
    MissedCallItem::MissedCallInfo info;
    info.timeDate = "2024-03-05T10:00:" + std::to_string(10 + i);
    addCallInfoToList(infos, info);
    EXPECT_EQ(infos.size(), infos.capacity());
  }
  ASSERT_EQ(kMaxCallInfos, infos.size());
  EXPECT_EQ("2024-03-05T10:00:21", infos.front().timeDate);
  EXPECT_EQ("2024-03-05T10:00:12", infos.back().timeDate);
}

}  // namespace
