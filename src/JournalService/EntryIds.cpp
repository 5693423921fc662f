#include "EntryIds.h"

#include <cstdio>

namespace {

constexpr size_t kDigits = 8;
constexpr size_t kMaxHandedOut = 10000;

std::string withDigits(const std::string& stamp, uint32_t digits) {
  char hex[kDigits + 1];
  std::snprintf(hex, sizeof hex, "%.8X", static_cast<unsigned>(digits));
  return stamp + hex;
}

}  // namespace

EntryIds::EntryIds() : m_lock(1, 1, false, "EntryIds") {}

std::string EntryIds::handOut(const std::string& stamp, uint32_t digits) {
  CriticalSection guard(m_lock);
  // Without a clock every id has the same (empty) time stamp: the ids handed out are then
  // forgotten now and again, while those that entries hold stay taken.
  if (stamp != m_stamp || m_handedOut.size() >= kMaxHandedOut) {
    m_stamp = stamp;
    m_handedOut.clear();
  }
  // At most as many values are taken as there are entries and ids of this second: the loop ends.
  std::string id = withDigits(stamp, digits);
  while (!isFreeLocked(id)) id = withDigits(stamp, ++digits);
  m_handedOut.insert(id);
  return id;
}

bool EntryIds::isFreeLocked(const std::string& id) const { return m_held.count(id) == 0 && m_handedOut.count(id) == 0; }

bool EntryIds::hold(const std::string& id) {
  CriticalSection guard(m_lock);
  return ++m_held[id] == 1;
}

std::string EntryIds::holdFree(const std::string& taken) {
  std::string stamp = taken;
  uint32_t digits = 0;
  splitId(taken, stamp, digits);
  CriticalSection guard(m_lock);
  std::string id = withDigits(stamp, ++digits);
  while (!isFreeLocked(id)) id = withDigits(stamp, ++digits);
  ++m_held[id];
  return id;
}

void EntryIds::release(const std::string& id) {
  CriticalSection guard(m_lock);
  auto it = m_held.find(id);
  if (it != m_held.end() && --it->second == 0) m_held.erase(it);
}

bool EntryIds::splitId(const std::string& id, std::string& stamp, uint32_t& digits) {
  if (id.size() < kDigits) return false;
  const std::string hex = id.substr(id.size() - kDigits);
  if (hex.find_first_not_of("0123456789ABCDEF") != std::string::npos) return false;
  stamp = id.substr(0, id.size() - kDigits);
  digits = static_cast<uint32_t>(std::stoul(hex, nullptr, 16));
  return true;
}
