// The daemon's management messages: clients read and change configuration values through them
// ("calljournal config get|set"). Values the journal serves (call-log-enabled, missed-logging,
// delete-missed-when-called, clear-calllog) go through the journal's management agent, which keeps
// them in its database; its switches read and take on/off here, translated to and from the
// agent's own codes (SettingTable.h). Every other key and value is checked as the configuration
// file's are, then set as a reload of the configuration file would set it, and its observers are
// told; such a change lasts until the daemon stops or reads its file again (it is not written
// back), which the reply's reason says. The daemon's settings read only at start or on reload
// (switch, database, log-file, ...) are refused: a run-time value of them would never be used.
// A setting the configuration does not give shows its default with the source "default"; one whose
// new value in the file waits for the next start carries that value in <atNextStart>. A get of
// everything gives the table's settings in its order.
//
//   <mgmtRequest><operation>get</operation><key>software-type</key>...</mgmtRequest>   (no key: all)
//   <mgmtRequest><operation>set</operation><key>k</key><value>v</value></mgmtRequest>
//   <mgmtRequest><operation>status</operation></mgmtRequest>     (what the daemon is doing)
//   <mgmtRequest><operation>subscribe-link</operation></mgmtRequest>  (link messages, HostStatus.h)
//   <mgmtResponse><result>ok|failure</result><reason>...</reason>
//     <setting><key>k</key><value>v</value><source>journal|configuration|default</source>
//       [<atNextStart>v2</atNextStart>]</setting>...
//   </mgmtResponse>
// A status line has the source "status" and a <type> (HostStatus.h: bool, number, seconds, time,
// text).
//
// Both sides are here: the daemon answers with answerManagement (on the client server's request
// threads, for several clients at once), the command-line client builds requests and reads replies.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "HostSettings.h"

class FileLocalMgmt;

namespace host {

constexpr const char* kManagementRequest = "mgmtRequest";
// Id under which the journal registers its management agent.
constexpr const char* kJournalAgent = "JournalMgmtId";

struct ManagementSetting {
  std::string key, value, source;
  std::string type;  // status lines only: how the value reads (HostStatus.h)
};

struct ManagementContext {
  FileLocalMgmt& mgmt;
  // Applies the daemon settings that take effect at once (the log thresholds) after a set.
  std::function<void()> runningSettingsChanged;
  // The daemon's state for "status", one key and value per line (source "status").
  std::function<std::vector<ManagementSetting>()> status;
  // The configuration file the daemon reads ("": none), named where a reply says how to keep a value.
  std::string configFile;
  // The values of the configuration file that wait for the next start (key -> value); may be null.
  std::function<std::map<std::string, std::string>()> waitingForStart;
  // The connection that sent the message, and how it subscribes to link messages (false when it
  // cannot: no watcher for it).
  std::string clientId;
  std::function<bool(const std::string& clientId)> subscribeLink;
};

std::string answerManagement(const std::string& message, ManagementContext& context);

struct ManagementReply {
  bool ok = false;
  std::string reason;
  std::vector<ManagementSetting> settings;
  // Key -> the configuration file's value that waits for the next start (<atNextStart>).
  std::map<std::string, std::string> atNextStart;
};

std::string managementGetRequest(const std::vector<std::string>& keys);
std::string managementStatusRequest();
std::string managementSubscribeLinkRequest();
std::string managementSetRequest(const std::string& key, const std::string& value);
// False when the text is not a management reply.
bool parseManagementReply(const std::string& text, ManagementReply& reply);

}  // namespace host
