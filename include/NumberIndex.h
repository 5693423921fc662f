// Which numbers (and names) the entries of a list hold, so that the search for the entry of a party can
// be skipped when the party has none: every talked call asks whether its party left a missed
// entry, and mostly it did not. The paths that change the list on every call keep the index up to
// date entry by entry; every other change marks it stale, and it is rebuilt at the next question.
// Owned by the service beside its list and guarded by the list's lock.
#pragma once

#include <string>
#include <type_traits>
#include <unordered_map>

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

class NumberIndex {
 public:
  template <class Item>
  void add(const Item& item) {
    if (m_valid) forEachNumber(item, [this](const std::string& number) { ++m_counts[number]; });
  }
  template <class Item>
  void remove(const Item& item) {
    if (!m_valid) return;
    forEachNumber(item, [this](const std::string& number) {
      auto it = m_counts.find(number);
      if (it != m_counts.end() && --it->second == 0) m_counts.erase(it);
    });
  }
  void invalidate() {
    m_valid = false;
    m_counts.clear();
  }
  // False only when no entry of `list` holds `key` (a number, or a nameKey).
  template <class List>
  bool mayHold(const List& list, const std::string& key) {
    if (!m_valid) {
      m_valid = true;
      for (const auto& item : list) add(item);
    }
    return m_counts.count(key) != 0;
  }

 private:
  std::unordered_map<std::string, unsigned> m_counts;
  bool m_valid = false;
};
