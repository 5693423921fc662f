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
#include <limits>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "framework/CallItems.h"

// The key under which entries of a person are found by name (no number starts with a NUL).
inline std::string nameKey(const std::string& surname, const std::string& firstname) {
  std::string key;
  key.reserve(surname.size() + firstname.size() + 2);
  key.assign(1, '\0');
  key += surname;
  key += '\0';
  key += firstname;
  return key;
}

// Writes the key under which entries of a person are found by name into `key`, reusing its buffer.
inline void assignNameKey(std::string& key, const std::string& surname, const std::string& firstname) {
  key.assign(1, '\0');
  key += surname;
  key += '\0';
  key += firstname;
}

// The keys of an entry: its occurrences' numbers and its name; a dialled entry's only key is the
// number it is grouped by. `scratch` holds the name key while f sees it.
template <class Item, class F>
void forEachNumber(const Item& item, F f, std::string& scratch) {
  if constexpr (std::is_same_v<Item, DialledCallItem>) {
    const CompactString& groupBy = item.getJournalSeviceGroupBy();
    scratch.assign(groupBy.data(), groupBy.size());
    f(scratch);
  } else {
    for (const auto& info : item.infos()) {
      scratch.assign(info.number.data(), info.number.size());
      f(scratch);
    }
    assignNameKey(scratch, item.getSurname(), item.getFirstname());
    f(scratch);
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
    forEachNumber(
        item, [&](const std::string& number) { m_orders[number].push_back(order); }, m_key);
  }
  template <class Item>
  void remove(const Item& item) {
    if (!m_valid) return;
    const int64_t order = item.getListOrder();
    bool held = true;
    forEachNumber(
        item,
        [&](const std::string& number) {
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
        },
        m_key);
    if (!held) invalidate();  // the entry was not indexed under its order: rebuilt at the next question
  }
  // An entry that stays in the list while it changes (merged with an occurrence, moved to the
  // front): detach() before the change marks its order under each key it holds; attach() after it
  // puts its new order in place of the marks, adds the keys it gained and drops the marks of those
  // it lost. The keys it kept keep their map nodes: nothing is allocated for them. Nothing may ask
  // the index between the two.
  template <class Item>
  void detach(const Item& item) {
    m_detached.clear();
    if (!m_valid) return;
    const int64_t order = item.getListOrder();
    bool held = true;
    forEachNumber(
        item,
        [&](const std::string& key) {
          Node* node = nodeOf(key, m_detached.empty() ? nullptr : m_detached.back());
          auto* at = node ? findOrder(node->second, order) : nullptr;
          if (!at) {
            held = false;
            return;
          }
          *at = kDetachedMark;
          if (m_detached.empty() || m_detached.back() != node) m_detached.push_back(node);
        },
        m_key);
    if (!held) invalidate();  // the entry was not indexed under its order: rebuilt at the next question
  }
  template <class Item>
  void attach(const Item& item) {
    if (!m_valid) return;
    const int64_t order = item.getListOrder();
    Node* last = nullptr;
    forEachNumber(
        item,
        [&](const std::string& key) {
          Node* node = last && last->first == key ? last : &*m_orders.try_emplace(key).first;
          if (int64_t* mark = findOrder(node->second, kDetachedMark))
            *mark = order;
          else
            node->second.push_back(order);
          last = node;
        },
        m_key);
    // A node is named once however often its key came back.
    std::sort(m_detached.begin(), m_detached.end());
    m_detached.erase(std::unique(m_detached.begin(), m_detached.end()), m_detached.end());
    for (Node* node : m_detached) {
      auto& orders = node->second;
      orders.erase(std::remove(orders.begin(), orders.end(), kDetachedMark), orders.end());
      if (orders.empty()) m_orders.erase(m_orders.find(node->first));
    }
    m_detached.clear();
  }
  void invalidate() {
    m_valid = false;
    m_orders.clear();
    m_detached.clear();
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

  using Map = std::unordered_map<std::string, std::vector<int64_t>>;
  using Node = Map::value_type;
  // Stands for a detached entry's order; no entry has a negative one.
  static constexpr int64_t kDetachedMark = std::numeric_limits<int64_t>::min();

  // The map node of `key`, or null; `last` is looked at first (an entry's occurrences mostly share
  // one number).
  Node* nodeOf(const std::string& key, Node* last) {
    if (last && last->first == key) return last;
    auto it = m_orders.find(key);
    return it == m_orders.end() ? nullptr : &*it;
  }

  static int64_t* findOrder(std::vector<int64_t>& orders, int64_t order) {
    auto at = std::find(orders.begin(), orders.end(), order);
    return at == orders.end() ? nullptr : &*at;
  }

  Map m_orders;
  std::vector<Node*> m_detached;  // the nodes holding a detached entry's marks, between detach and attach
  std::string m_key;              // the key being looked up, its buffer reused
  bool m_valid = false;
};
