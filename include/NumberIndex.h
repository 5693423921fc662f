// Which numbers (and names) the entries of a list hold, and which entries hold them, so that the
// search for the entry of a party looks at the party's entries only, or is skipped when the party
// has none: every talked call asks whether its party left a missed entry, and mostly it did not.
// The paths that change the list on every call keep the index up to date entry by entry; every
// other change marks it stale, and it is rebuilt at the next question.
// Owned by the service beside its list and guarded by the list's lock.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "framework/CallItems.h"

// The key under which entries of a person are found by name (no number starts with a NUL).
inline std::string nameKey(const std::string& surname, const std::string& firstname) {
  std::string key(1, '\0');
  key += surname;
  key += '\0';
  key += firstname;
  return key;
}

// The keys of an entry: its occurrences' numbers and its name; a dialled entry's only key is the
// number it is grouped by.
template <class Item, class F>
void forEachNumber(const Item& item, F f) {
  if constexpr (std::is_same_v<Item, DialledCallItem>) {
    f(item.getJournalSeviceGroupBy());
  } else {
    for (const auto& info : item.infos()) f(info.number);
    f(nameKey(item.getSurname(), item.getFirstname()));
  }
}

// For each key, the list orders of the entries holding it (once per occurrence holding it). List
// orders fall strictly from the front to the back of a list, so an entry is found from its order
// by a binary search: the search for a party's entry looks at the few entries holding its keys
// instead of the whole list. An entry is added and removed with the order it has in the list;
// whatever renumbers entries or changes them in place calls invalidate().
class NumberIndex {
 public:
  template <class Item>
  void add(const Item& item) {
    if (!m_valid) return;
    const int64_t order = item.getListOrder();
    forEachNumber(item, [&](const std::string& number) { m_orders[number].push_back(order); });
  }
  template <class Item>
  void remove(const Item& item) {
    if (!m_valid) return;
    const int64_t order = item.getListOrder();
    bool held = true;
    forEachNumber(item, [&](const std::string& number) {
      auto it = m_orders.find(number);
      if (it == m_orders.end()) {
        held = false;
        return;
      }
      auto& orders = it->second;
      auto at = std::find(orders.begin(), orders.end(), order);
      if (at == orders.end()) {
        held = false;
        return;
      }
      *at = orders.back();
      orders.pop_back();
      if (orders.empty()) m_orders.erase(it);
    });
    if (!held) invalidate();  // the entry was not indexed under its order: rebuilt at the next question
  }
  void invalidate() {
    m_valid = false;
    m_orders.clear();
  }
  // False only when no entry of `list` holds `key` (a number, or a nameKey).
  template <class List>
  bool mayHold(const List& list, const std::string& key) {
    rebuildIfStale(list);
    return m_orders.count(key) != 0;
  }
  // The orders of the entries of `list` holding any of `keys`, highest (nearest the front) first,
  // each once.
  template <class List>
  std::vector<int64_t> ordersHolding(const List& list, const std::vector<std::string>& keys) {
    rebuildIfStale(list);
    std::vector<int64_t> orders;
    for (const std::string& key : keys) {
      auto it = m_orders.find(key);
      if (it != m_orders.end()) orders.insert(orders.end(), it->second.begin(), it->second.end());
    }
    std::sort(orders.begin(), orders.end(), std::greater<int64_t>());
    orders.erase(std::unique(orders.begin(), orders.end()), orders.end());
    return orders;
  }

 private:
  template <class List>
  void rebuildIfStale(const List& list) {
    if (m_valid) return;
    m_valid = true;
    for (const auto& item : list) add(item);
  }

  std::unordered_map<std::string, std::vector<int64_t>> m_orders;
  bool m_valid = false;
};
