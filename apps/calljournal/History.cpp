#include "History.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <ostream>
#include <type_traits>

using nlohmann::ordered_json;

namespace cli {

const std::vector<std::string> kCallKinds = {"missed", "received", "dialled", "forwarded"};

namespace {

template <class Item>
void addRecords(const std::deque<Item>& list, const char* kind, std::vector<CallRecord>& out) {
  using Info = typename Item::InfoList::value_type;
  for (const Item& item : list)
    for (const Info& info : item.infos()) {
      CallRecord r{info.timeDate, kind, info.number, partyName(item), "", "", item.getEntryId()};
      if constexpr (std::is_base_of_v<Duration, Info>) r.duration = info.duration;
      if constexpr (std::is_same_v<Info, ForwardedCallInfoRecord>) r.detail = info.connectedNumber;
      if constexpr (std::is_same_v<Info, DialledCallInfoRecord>) {
        if (info.isFeatureAccessCode) r.detail = info.dialledNumber;
      }
      out.push_back(std::move(r));
    }
}

// Digits of `text` from `pos`, exactly `count` of them, as a number; -1 when they are not.
int digitsAt(const std::string& text, std::size_t pos, std::size_t count) {
  if (pos + count > text.size()) return -1;
  int value = 0;
  for (std::size_t i = pos; i < pos + count; ++i) {
    if (!std::isdigit(static_cast<unsigned char>(text[i]))) return -1;
    value = value * 10 + (text[i] - '0');
  }
  return value;
}

int daysInMonth(int year, int month) {
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return month == 2 && leap ? 29 : kDays[month - 1];
}

std::string timeText(int year, int month, int day, int hour, int minute, int second) {
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", year, month, day, hour, minute, second);
  return text;
}

// "YYYY-MM-DD", "YYYY-MM-DDThh:mm" or "YYYY-MM-DDThh:mm:ss" as a time text; false otherwise.
bool absoluteSince(const std::string& text, std::string& since) {
  if (text.size() != 10 && text.size() != 16 && text.size() != 19) return false;
  if (text[4] != '-' || text[7] != '-') return false;
  const int year = digitsAt(text, 0, 4), month = digitsAt(text, 5, 2), day = digitsAt(text, 8, 2);
  if (year < 0 || month < 1 || month > 12 || day < 1 || day > daysInMonth(year, month)) return false;
  int hour = 0, minute = 0, second = 0;
  if (text.size() > 10) {
    if (text[10] != 'T' || text[13] != ':') return false;
    hour = digitsAt(text, 11, 2), minute = digitsAt(text, 14, 2);
    if (text.size() == 19) {
      if (text[16] != ':') return false;
      second = digitsAt(text, 17, 2);
    }
  }
  if (hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 59) return false;
  since = timeText(year, month, day, hour, minute, second);
  return true;
}

// "30m", "2h", "3d": that long before `now`, in local time; false otherwise.
bool relativeSince(const std::string& text, std::time_t now, std::string& since) {
  if (text.size() < 2 || text.size() > 7) return false;
  const char unit = text.back();
  const int count = digitsAt(text, 0, text.size() - 1);
  const long seconds = unit == 'm' ? 60 : unit == 'h' ? 3600 : unit == 'd' ? 86400 : 0;
  if (count < 0 || seconds == 0) return false;
  const std::time_t then = now - static_cast<std::time_t>(count) * seconds;
  std::tm local{};
  localtime_r(&then, &local);
  since = timeText(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
  return true;
}

// Display columns of UTF-8 text: every byte but continuation bytes.
std::size_t displayWidth(const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

// "+4930123", "0301112222": a number a spreadsheet may read as a value, never as a formula.
bool plainNumber(const std::string& text) {
  const std::size_t start = !text.empty() && text[0] == '+' ? 1 : 0;
  return text.size() > start && std::all_of(text.begin() + static_cast<long>(start), text.end(), [](char c) {
           return std::isdigit(static_cast<unsigned char>(c)) || c == ' ';
         });
}

}  // namespace

std::vector<CallRecord> callHistory(const JournalLists& lists) {
  std::vector<CallRecord> records;
  addRecords(lists.missed, "missed", records);
  addRecords(lists.received, "received", records);
  addRecords(lists.dialled, "dialled", records);
  addRecords(lists.forwarded, "forwarded", records);
  std::stable_sort(records.begin(), records.end(),
                   [](const CallRecord& a, const CallRecord& b) { return a.time > b.time; });
  return records;
}

std::vector<CallRecord> applyFilter(std::vector<CallRecord> records, const HistoryFilter& filter) {
  records.erase(std::remove_if(records.begin(), records.end(),
                               [&](const CallRecord& r) {
                                 return (!filter.since.empty() && r.time < filter.since) ||
                                        (!filter.kinds.empty() && filter.kinds.count(r.kind) == 0);
                               }),
                records.end());
  if (filter.limit > 0 && records.size() > filter.limit) records.resize(filter.limit);
  return records;
}

bool parseSince(const std::string& text, std::time_t now, std::string& since, std::string& error) {
  if (absoluteSince(text, since) || relativeSince(text, now, since)) return true;
  error = "--since \"" + text +
          "\" is no time: give a date YYYY-MM-DD, a time YYYY-MM-DDThh:mm[:ss] or a span back from now such as "
          "30m, 2h or 3d";
  return false;
}

void printHistory(const std::vector<CallRecord>& records, std::ostream& out) {
  if (records.empty()) {
    out << "no calls\n";
    return;
  }
  std::vector<std::vector<std::string>> rows{{"TIME", "KIND", "NUMBER", "NAME", "DURATION", "ID"}};
  for (const CallRecord& r : records) {
    std::string duration = r.duration;
    if (!r.detail.empty())
      duration += (duration.empty() ? "" : " ") + std::string(r.kind == "forwarded" ? "to " : "") + r.detail;
    rows.push_back({r.time, r.kind, r.number, r.name, duration, r.entryId});
  }
  std::vector<std::size_t> widths(rows.front().size(), 0);
  for (const auto& row : rows)
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], displayWidth(row[i]));
  for (const auto& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      line += row[i];
      if (i + 1 < row.size()) line += std::string(widths[i] - displayWidth(row[i]) + 2, ' ');
    }
    out << line << '\n';
  }
}

std::string historyJson(const std::vector<CallRecord>& records) {
  ordered_json all = ordered_json::array();
  for (const CallRecord& r : records) {
    ordered_json j;
    j["time"] = r.time;
    j["kind"] = r.kind;
    j["number"] = r.number;
    j["name"] = r.name;
    j["duration"] = r.duration;
    j["detail"] = r.detail;
    j["entryId"] = r.entryId;
    all.push_back(std::move(j));
  }
  return all.dump(2, ' ', false, ordered_json::error_handler_t::replace);
}

std::string csvField(const std::string& text) {
  std::string field = text;
  if (!field.empty() && std::string("=+-@\t\r").find(field[0]) != std::string::npos && !plainNumber(field))
    field.insert(0, 1, '\'');
  if (field.find_first_of(",\"\r\n") == std::string::npos) return field;
  std::string quoted = "\"";
  for (char c : field) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
  return quoted + "\"";
}

std::string historyCsv(const std::vector<CallRecord>& records) {
  std::string csv = "time,kind,number,name,duration,detail,entryId\r\n";
  for (const CallRecord& r : records) {
    for (const std::string* field : {&r.time, &r.kind, &r.number, &r.name, &r.duration, &r.detail})
      csv += csvField(*field) + ",";
    csv += csvField(r.entryId) + "\r\n";
  }
  return csv;
}

}  // namespace cli
