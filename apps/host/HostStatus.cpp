#include "HostStatus.h"

#include <cstdio>
#include <ctime>
#include <pugixml.hpp>
#include <sstream>

namespace host {

std::string isoLocalTime(std::chrono::system_clock::time_point time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm local{};
  localtime_r(&seconds, &local);
  char text[40];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local);
  const int offset = static_cast<int>(local.tm_gmtoff / 60);  // minutes east of UTC, within a day
  const int magnitude = (offset < 0 ? -offset : offset) % (24 * 60);
  char zone[16];
  std::snprintf(zone, sizeof zone, "%c%02d:%02d", offset < 0 ? '-' : '+', magnitude / 60, magnitude % 60);
  return std::string(text) + zone;
}

bool parseIsoTime(const std::string& text, std::chrono::system_clock::time_point& time) {
  std::tm fields{};
  char sign = 0;
  int zoneHours = 0, zoneMinutes = 0, used = 0;
  if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%c%2d:%2d%n", &fields.tm_year, &fields.tm_mon, &fields.tm_mday,
                  &fields.tm_hour, &fields.tm_min, &fields.tm_sec, &sign, &zoneHours, &zoneMinutes, &used) != 9 ||
      static_cast<std::size_t>(used) != text.size() || (sign != '+' && sign != '-'))
    return false;
  fields.tm_year -= 1900;
  fields.tm_mon -= 1;
  const long offset = (sign == '-' ? -1 : 1) * (zoneHours * 3600L + zoneMinutes * 60L);
  time = std::chrono::system_clock::from_time_t(timegm(&fields) - offset);
  return true;
}

std::string clockOf(const std::string& isoTime) {
  std::chrono::system_clock::time_point unused;
  return parseIsoTime(isoTime, unused) ? isoTime.substr(11, 8) : isoTime;
}

std::string spokenDuration(long long seconds) {
  if (seconds < 0) seconds = 0;
  char text[64];
  if (seconds < 60) {
    std::snprintf(text, sizeof text, "%lld s", seconds);
  } else if (seconds < 3600) {
    std::snprintf(text, sizeof text, "%lld min %02lld s", seconds / 60, seconds % 60);
  } else if (seconds < 86400) {
    std::snprintf(text, sizeof text, "%lld h %02lld min", seconds / 3600, seconds % 3600 / 60);
  } else {
    std::snprintf(text, sizeof text, "%lld d %lld h", seconds / 86400, seconds % 86400 / 3600);
  }
  return text;
}

std::string linkNewsMessage(const LinkNews& news) {
  pugi::xml_document doc;
  pugi::xml_node root = doc.append_child(kHostEvent);
  root.append_child("operation").text().set("linkState");
  root.append_child("link").text().set(news.link ? "true" : "false");
  root.append_child("since").text().set(news.since.c_str());
  root.append_child("reason").text().set(news.reason.c_str());
  root.append_child("monitor").text().set(news.monitor ? "true" : "false");
  root.append_child("switch").text().set(news.switchAddress.c_str());
  std::ostringstream out;
  doc.save(out, "", pugi::format_raw | pugi::format_no_declaration);
  return out.str();
}

bool parseLinkNews(const std::string& message, LinkNews& news) {
  pugi::xml_document doc;
  if (!doc.load_string(message.c_str())) return false;
  pugi::xml_node root = doc.child(kHostEvent);
  if (!root || std::string(root.child_value("operation")) != "linkState") return false;
  news.link = std::string(root.child_value("link")) == "true";
  news.since = root.child_value("since");
  news.reason = root.child_value("reason");
  news.monitor = std::string(root.child_value("monitor")) == "true";
  news.switchAddress = root.child_value("switch");
  return true;
}

}  // namespace host
