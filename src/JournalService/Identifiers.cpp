// Entry identifiers, time and duration texts, the ordering of stored entries, the dialled-list cap
// and the MAC address digits. All time of day and calendar work is asked of the clock service.
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "JournalLog.h"
#include "JournalService.h"

namespace {

// Reads a call number as a base-10 integer the way a 32-bit strtol would: leading blanks and a
// sign accepted, out-of-range values stick to the limits.
int32_t readCallNumber(const std::string& text) {
  long long value = std::strtoll(text.c_str(), nullptr, 10);
  if (value > INT32_MAX) return INT32_MAX;
  if (value < INT32_MIN) return INT32_MIN;
  return static_cast<int32_t>(value);
}

// Blanks, an optional sign, then decimal digits to the end.
bool isDecimal(const std::string& text) {
  size_t i = text.find_first_not_of(" \t\n\v\f\r");
  if (i == std::string::npos) return false;
  if (text[i] == '+' || text[i] == '-') ++i;
  return i < text.size() && text.find_first_not_of("0123456789", i) == std::string::npos;
}

bool isHexadecimal(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

// FNV-1a, 32 bits.
uint32_t hashOf(const std::string& text) {
  uint32_t hash = 2166136261u;
  for (unsigned char c : text) {
    hash ^= c;
    hash *= 16777619u;
  }
  return hash;
}

// The key entries are sorted by: the time of the newest occurrence, or the entry id without one.
template <class Item>
std::string_view orderKey(const Item& item) {
  return item.infos().empty() ? item.getEntryId().view() : item.infos().front().timeDate.view();
}

template <class Item>
bool isNewer(const Item& a, const Item& b) {
  return orderKey(a).compare(orderKey(b)) > 0;
}

// Compares the fields of two texts in order, most significant first: 1, -1 or 0.
int compareFields(const int (&a)[6], const int (&b)[6]) {
  for (int i = 0; i < 6; ++i) {
    if (a[i] != b[i]) return a[i] > b[i] ? 1 : -1;
  }
  return 0;
}

}  // namespace

// A decimal call id is read as a 32-bit strtol would (the -1 of a call the switch never showed
// gives FFFFFFFF); a hexadecimal one, as real switches send them (32 digits), gives its low 32
// bits; anything else is hashed, so that different call ids mostly give different digits.
uint32_t JournalService::callIdDigits(const std::string& callId) {
  if (isDecimal(callId)) return static_cast<uint32_t>(readCallNumber(callId));
  if (isHexadecimal(callId)) {
    const size_t low = callId.size() > 8 ? callId.size() - 8 : 0;
    return static_cast<uint32_t>(std::stoul(callId.substr(low), nullptr, 16));
  }
  return hashOf(callId);
}

// The phone's local time of day and date, with a literal Z; empty without a clock.
std::string JournalService::entryIdStamp() {
  if (!m_pClockSvc) return {};
  int hour = 0, minute = 0, second = 0, day = 0, month = 0, year = 0;
  m_pClockSvc->getCurrentTime(hour, minute, second);
  m_pClockSvc->getCurrentDate(day, month, year);
  char stamp[21];
  std::snprintf(stamp, sizeof stamp, "%04d-%02d-%02dT%02d:%02d:%02dZ", year, month, day, hour, minute, second);
  return stamp;
}

std::string JournalService::createEntryId(std::string callNumber) {
  char hex[9];
  std::snprintf(hex, sizeof hex, "%.8X", static_cast<unsigned>(callIdDigits(callNumber)));
  return entryIdStamp() + hex;
}

std::string JournalService::newEntryId(const std::string& callId) {
  return m_entryIds.handOut(entryIdStamp(), callIdDigits(callId));
}

long JournalService::getCurrentTimeSec() { return m_pClockSvc ? m_pClockSvc->getCurrentTimeSec() : -1; }

std::string JournalService::formatTimeDate(long seconds) {
  return m_pClockSvc ? m_pClockSvc->formatTimeDate(seconds) : std::string();
}

std::string JournalService::formatDuration(long start, long end) {
  std::string text = "00:00";
  if (end <= start) return text;
  long elapsed = end - start;
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%02d%c%02d", static_cast<int>(std::labs(elapsed / 60)), ':',
                static_cast<int>(std::labs(elapsed % 60)));
  text = buffer;
  return text;
}

bool JournalService::compareTimes(std::string const& a, std::string const& b, int& result) const {
  if (!m_pClockSvc) {
    if (!m_equalTimesWithoutClock) return false;
    result = 0;
    return true;
  }
  int fieldsA[6], fieldsB[6];  // year, month, day, hour, minute, second
  m_pClockSvc->getDateFromString(a, fieldsA[2], fieldsA[1], fieldsA[0]);
  m_pClockSvc->getDateFromString(b, fieldsB[2], fieldsB[1], fieldsB[0]);
  m_pClockSvc->getTimeFromString(a, fieldsA[3], fieldsA[4], fieldsA[5]);
  m_pClockSvc->getTimeFromString(b, fieldsB[3], fieldsB[4], fieldsB[5]);
  result = compareFields(fieldsA, fieldsB);
  return true;
}

bool isMissedCallOrdered(const MissedCallItem& a, const MissedCallItem& b) { return isNewer(a, b); }
bool isReceivedCallOrdered(const ReceivedCallItem& a, const ReceivedCallItem& b) { return isNewer(a, b); }
bool isDialledCallOrdered(const DialledCallItem& a, const DialledCallItem& b) { return isNewer(a, b); }
bool isForwardedCallOrdered(const ForwardedCallItem& a, const ForwardedCallItem& b) { return isNewer(a, b); }

unsigned hexToint(char c) {
  if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a' + 10);
  if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A' + 10);
  return 0;
}

unsigned hexToint(char const* twoChars) { return 16 * hexToint(twoChars[0]) + hexToint(twoChars[1]); }

unsigned getLastByteOfMacAddr(std::string const& mac) {
  if (mac.size() < 2) {
    JLOG(journal::kCoreLog, 2, "invalid mac address");
    return 0;
  }
  char lastByte[2] = {mac[mac.size() - 2], mac[mac.size() - 1]};
  return hexToint(lastByte);
}
