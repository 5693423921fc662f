// The host's own settings, read from the same configuration values as the phone's management
// values ("key = value" lines). Every setting has a default, so the host starts without a file.
//
//   database                 SQLite file of the journal     (root: /var/lib/calljournal/journal.db,
//                                                            others: ~/.local/state/calljournal/journal.db)
//   phonebook                CSV or vCard file               (none)
//   feature-access-codes     "*21, *61, #"                   (none; read by the digit analysis)
//   switch                   host:port of the switch's CSTA XML service (none: no switch)
//   monitored-device         the phone's own number at the switch (3100)
//   csta-request-timeout-ms  time limit of a request to the switch (5000)
//   client-socket            Unix socket of clients          (root: /run/calljournal/calljournal.sock,
//                                                            others: $XDG_RUNTIME_DIR, else
//                                                            /tmp/calljournal-UID if private)
//   client-tcp               host:port of an extra TCP listener (none)
//   client-tcp-allow-remote  "true" to let client-tcp listen on a non-loopback address (false)
//   client-max-connections   clients served at once; more are refused (64)
//   log-levels               "Journal Service=5, *=4"        (*=4)
//   log-file                 file for log lines              (stderr)
//   mobility-url             where a visitor's journal is uploaded (none)
//   module                   the journal module              (../lib/libjournalservice.so beside the program)
//
// The phone's own values (read by the journal through local management) are checked too, and
// have defaults where the journal needs one (phoneDefaults); an empty value counts as not given:
//   software-type            "Velmora SIP" follows SIP rules, any other KPX rules  (Velmora KPX)
//   system-identifier, sntp-tz-offset, daylight-save-minutes      whole numbers
//   daylight-save, server-based-features                          true or false
//   disable-access-calllog   0, 1 or 2
#pragma once

#include <map>
#include <string>

namespace host {

struct Settings {
  std::string database;
  std::string phonebook;
  std::string switchHost;
  int switchPort = 0;  // 0: no switch
  std::string monitoredDevice = "3100";
  int requestTimeoutMs = 5000;
  std::string clientSocket;
  std::string clientTcpHost;
  int clientTcpPort = -1;  // -1: no TCP listener
  bool clientTcpAllowRemote = false;
  int clientMaxConnections = 64;
  std::string logLevels = "*=4";
  std::string logFile;
  std::string mobilityUrl;
  std::string module;
};

// The keys above, for "config get" and to tell host settings from management values.
const char* const* settingKeys();
bool isSettingKey(const std::string& key);

// Settings from configuration values; false with a plain message naming the key for a value
// that cannot be used (a port that is not a number, a phone value of the wrong kind, ...).
bool readSettings(const std::map<std::string, std::string>& values, Settings& settings, std::string& error);

// Whether `value` can be used for the phone value `key` (any value for keys not checked above).
bool checkPhoneValue(const std::string& key, const std::string& value, std::string& error);

// The phone values in force while the configuration gives none.
const std::map<std::string, std::string>& phoneDefaults();

// "host:port" -> parts; false when malformed.
bool splitHostPort(const std::string& text, std::string& host, int& port);

// The folder of the default client socket of a daemon that is not root and has no
// XDG_RUNTIME_DIR: /tmp/calljournal-UID. Anyone may create it first, so it is used only when
// checkPrivateFolder accepts it.
std::string sharedSocketFolder();
// True when `folder` is a directory (not a link) of the effective user that no one else may use;
// else false with a message that names the folder and what to do.
bool checkPrivateFolder(const std::string& folder, std::string& error);

// Directory of the running program.
std::string programDirectory();

}  // namespace host
