// "calljournal status": the daemon's status, its exit code for health checks, and the lines
// "calljournal watch" prints for the daemon's link messages.
#include "Status.h"

#include <algorithm>
#include <chrono>
#include <iostream>
#include <nlohmann/json.hpp>

#include "Commands.h"
#include "HostStatus.h"
#include "client_server/JournalClient.h"

using nlohmann::ordered_json;

namespace cli {

namespace {

bool isCount(const std::string& type) { return type == host::kTypeNumber || type == host::kTypeSeconds; }

ordered_json typedValue(const host::ManagementSetting& line) {
  if (line.type == host::kTypeBool) return line.value == "true";
  if (isCount(line.type) && !line.value.empty() &&
      std::all_of(line.value.begin(), line.value.end(), [](char c) { return c >= '0' && c <= '9'; }))
    return std::stoull(line.value);
  return line.value;  // times, texts, and what an older daemon sends without a type
}

std::string shownValue(const host::ManagementSetting& line) {
  if (line.type == host::kTypeBool) return line.value == "true" ? "yes" : "no";
  if (line.type == host::kTypeSeconds) return host::spokenDuration(std::atoll(line.value.c_str()));
  std::chrono::system_clock::time_point when;
  if (line.type == host::kTypeTime && host::parseIsoTime(line.value, when)) {
    const auto ago = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now() - when);
    return line.value + " (" + host::spokenDuration(ago.count()) + " ago)";
  }
  return line.value;
}

// The status when the daemon cannot be reached: not following, and why.
std::vector<host::ManagementSetting> unreachable(const std::string& why) {
  return {{"following", "false", "status", host::kTypeBool}, {"not-following", why, "status", host::kTypeText}};
}

}  // namespace

std::string statusJson(const std::vector<host::ManagementSetting>& lines) {
  ordered_json j = ordered_json::object();
  for (const auto& line : lines) j[line.key] = typedValue(line);
  return j.dump(2, ' ', false, ordered_json::error_handler_t::replace);
}

void printStatus(const std::vector<host::ManagementSetting>& lines, std::ostream& out) {
  std::size_t width = 0;
  for (const auto& line : lines) width = std::max(width, line.key.size());
  for (const auto& line : lines)
    out << line.key << std::string(width - line.key.size() + 2, ' ') << shownValue(line) << '\n';
}

bool following(const std::vector<host::ManagementSetting>& lines) {
  return std::any_of(lines.begin(), lines.end(),
                     [](const host::ManagementSetting& l) { return l.key == "following" && l.value == "true"; });
}

// 0 when the journal follows the line; 3 when it does not or the daemon cannot be reached (a
// health check needs no more); 1 when the daemon answers but gives no status.
int statusCommand(const Connection& c, bool json) {
  fw::JournalClient client;
  std::string error, text;
  if (!client.connect(c.address, error)) {
    const std::string why = "the journal daemon cannot be reached (" + error + ")";
    std::cerr << "calljournal: " << why << "; is calljournald running? (--socket chooses another)\n";
    if (json) std::cout << statusJson(unreachable(why)) << '\n';
    return kNotFollowing;
  }
  if (!client.call(host::managementStatusRequest(), text, error))
    return fail("the journal daemon did not answer (" + error + ")");
  host::ManagementReply reply;
  if (!host::parseManagementReply(text, reply) || !reply.ok) return fail("the daemon gave no status");
  if (json)
    std::cout << statusJson(reply.settings) << '\n';
  else
    printStatus(reply.settings, std::cout);
  return following(reply.settings) ? 0 : kNotFollowing;
}

std::string linkMessageLine(const std::string& message, bool json) {
  host::LinkNews news;
  if (!host::parseLinkNews(message, news)) return std::string();
  if (json) {
    ordered_json j;
    j["link"] = news.link;
    j["monitor"] = news.monitor;
    j["since"] = news.since;
    if (!news.link) j["reason"] = news.reason;
    j["switch"] = news.switchAddress;
    return j.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
  }
  const std::string since = " (since " + host::clockOf(news.since) + ")";
  if (!news.link) return "switch link down: " + (news.reason.empty() ? "no link" : news.reason) + since;
  return std::string("switch link up, monitor ") + (news.monitor ? "running" : "not running yet") + since;
}

}  // namespace cli
