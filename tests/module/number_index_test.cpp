// The number index kept in place when an entry is merged with an occurrence and moves to the front:
// what it answers afterwards equals what an index built anew from the list answers.
#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "NumberIndex.h"

namespace {

ReceivedCallItem entryOf(const std::string& surname, const std::vector<std::string>& numbers, int64_t order) {
  ReceivedCallItem::InfoList infos;
  for (const std::string& number : numbers) {
    ReceivedCallItem::ReceivedCallInfo info;
    info.number = number;
    infos.push_back(info);
  }
  ReceivedCallItem item("id-" + surname, surname, "", infos);
  item.setListOrder(order);
  return item;
}

// The orders the index gives for each key, and the same for an index built from the list.
std::vector<std::vector<int64_t>> answersFor(NumberIndex& index, const std::deque<ReceivedCallItem>& list,
                                             const std::vector<std::string>& keys) {
  std::vector<std::vector<int64_t>> answers;
  for (const std::string& key : keys) answers.push_back(index.ordersHolding(list, {key}));
  return answers;
}

// Files `number` under list[at] as a merge would: the entry takes the front's order plus one step,
// gains the occurrence, drops its oldest beyond `keep`, and moves to the front.
void mergeToFront(NumberIndex& index, std::deque<ReceivedCallItem>& list, size_t at, const std::string& number,
                  size_t keep) {
  index.detach(list[at]);
  ReceivedCallItem merged = list[at];
  list.erase(list.begin() + static_cast<std::ptrdiff_t>(at));
  ReceivedCallItem::ReceivedCallInfo info;
  info.number = number;
  merged.infos().insert(merged.infos().begin(), info);
  if (merged.infos().size() > keep) merged.infos().resize(keep);
  merged.setListOrder(list.front().getListOrder() + 100);
  list.push_front(merged);
  index.attach(list.front());
}

TEST(NumberIndexMerge, KeysKeptGainedAndLostAnswerAsAnIndexBuiltAnew) {
  std::deque<ReceivedCallItem> list{entryOf("Ames", {"100", "100"}, 300), entryOf("Berg", {"200", "201", "200"}, 200),
                                    entryOf("Cole", {"300"}, 100)};
  const std::vector<std::string> keys{
      "100", "200", "201", "300", "999", nameKey("Ames", ""), nameKey("Berg", ""), nameKey("Cole", "")};
  NumberIndex kept;
  ASSERT_TRUE(kept.mayHold(list, "100"));  // built from the list

  mergeToFront(kept, list, 1, "999", 2);  // Berg: gains 999, keeps one 200, loses 201 and the other 200
  mergeToFront(kept, list, 2, "300", 3);  // Cole: the same number again
  mergeToFront(kept, list, 1, "100", 3);  // Berg again, now behind Cole

  NumberIndex anew;
  EXPECT_EQ(answersFor(anew, list, keys), answersFor(kept, list, keys));
  EXPECT_FALSE(kept.mayHold(list, "201"));
  EXPECT_TRUE(kept.mayHold(list, "999"));
  EXPECT_EQ(std::vector<int64_t>({600, 300}), kept.ordersHolding(list, {"100"}));
}

// An entry the index does not hold under its order makes it stale: it is built anew at the next
// question and answers from the list.
TEST(NumberIndexMerge, EntryNotHeldUnderItsOrderMakesTheIndexRebuild) {
  std::deque<ReceivedCallItem> list{entryOf("Ames", {"100"}, 300), entryOf("Berg", {"200"}, 200)};
  NumberIndex index;
  ASSERT_TRUE(index.mayHold(list, "100"));
  list[1].setListOrder(250);  // changed behind the index's back
  mergeToFront(index, list, 1, "200", 10);
  EXPECT_EQ(std::vector<int64_t>({400}), index.ordersHolding(list, {"200"}));
  EXPECT_EQ(std::vector<int64_t>({300}), index.ordersHolding(list, {"100"}));
}

}  // namespace
