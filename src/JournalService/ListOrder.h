// The place of each entry in its list, kept as a number on the entry (its list order) and stored
// with it, so that a list read back from the store is put in exactly the order it had: the time of
// an entry's newest occurrence cannot tell two entries of one second apart, nor an entry that was
// filed later than a call that started after it (a waiting call that ended first).
//
// Orders fall from the front to the back of a list and are positive. An entry put at the front
// takes the front's order plus kListOrderStep, one put between two others the middle of theirs;
// when two neighbours leave no room, the whole list is numbered anew (every entry's order changes
// and must be stored again). 0 is no order: an entry of a store file written before orders were.
// Private to the module; the caller holds the list's lock.
#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <limits>
#include <string>

// Room between two entries numbered anew: twenty entries can be put between them one after another.
constexpr int64_t kListOrderStep = int64_t{1} << 20;
// Marks an entry that is being put into a list for a moment; no placed entry has it.
constexpr int64_t kUnplacedOrder = -1;

// Numbers the list anew, front to back: size * step down to step.
template <class Item>
void renumberList(std::deque<Item>& list) {
  int64_t order = kListOrderStep * static_cast<int64_t>(list.size());
  for (Item& item : list) {
    item.setListOrder(order);
    order -= kListOrderStep;
  }
}

// Gives list[index] an order between those of its neighbours. True when there was no room and the
// whole list was numbered anew.
template <class Item>
bool placeInList(std::deque<Item>& list, size_t index) {
  const int64_t below = index + 1 < list.size() ? std::max<int64_t>(list[index + 1].getListOrder(), 0) : 0;
  if (index == 0) {
    if (below <= std::numeric_limits<int64_t>::max() - kListOrderStep) {
      list[0].setListOrder(below + kListOrderStep);
      return false;
    }
  } else {
    const int64_t above = list[index - 1].getListOrder();
    if (above - below >= 2) {
      list[index].setListOrder(below + (above - below) / 2);
      return false;
    }
  }
  renumberList(list);
  return true;
}

// True when every entry has an order of its own, falling from front to back.
template <class Item>
bool listOrdersHold(const std::deque<Item>& list) {
  int64_t above = std::numeric_limits<int64_t>::max();
  for (const Item& item : list) {
    if (item.getListOrder() <= 0 || item.getListOrder() >= above) return false;
    above = item.getListOrder();
  }
  return true;
}

// Unique ids are row ids in decimal: the larger, the later the row was made.
inline bool isLaterRow(const std::string& a, const std::string& b) {
  return a.size() != b.size() ? a.size() > b.size() : a > b;
}

// The order of a list read from the store: by list order, highest first; entries without one
// after those with one, newest occurrence first (`newer`, the ordering predicate of the list's
// type), and of the same time the later row first.
template <class Item, class Newer>
void sortAsStored(std::deque<Item>& list, Newer newer) {
  std::stable_sort(list.begin(), list.end(), [&](const Item& a, const Item& b) {
    const int64_t orderA = std::max<int64_t>(a.getListOrder(), 0), orderB = std::max<int64_t>(b.getListOrder(), 0);
    if (orderA != orderB) return orderA > orderB;
    if (newer(a, b)) return true;
    if (newer(b, a)) return false;
    return isLaterRow(a.getUniqueId(), b.getUniqueId());
  });
}
