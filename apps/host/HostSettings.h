// The host's own settings, read from the same configuration values as the phone's management
// values ("key = value" lines). Every setting has a default, so the host starts without a file.
// Which keys there are, what values each takes and its default are in the setting table
// (SettingTable.h); readSettings checks the values against it and fills Settings from it.
#pragma once

#include <map>
#include <string>

namespace host {

// What readSettings makes of the configuration values; a default-constructed one is not
// configured (readSettings({}, ...) or defaultSettings() gives the defaults).
struct Settings {
  std::string database;
  std::string phonebook;
  std::string switchHost;
  int switchPort = 0;  // 0: no switch
  std::string monitoredDevice;
  int requestTimeoutMs = 0;
  std::string clientSocket;
  std::string clientTcpHost;
  int clientTcpPort = -1;  // -1: no TCP listener
  bool clientTcpAllowRemote = false;
  std::string clientWebHost;
  int clientWebPort = -1;  // -1: no web listener
  bool clientWebAllowRemote = false;
  std::string clientWebRoot;
  int clientMaxConnections = 0;
  std::string logLevels;
  std::string logFile;
  std::string mobilityUrl;
  std::string module;
};

// Settings from configuration values; false with a plain message naming the key for a key that
// is no setting or a value that cannot be used (a port that is not a number, a phone value of
// the wrong kind, ...). A key the values do not give (or give empty) takes its default.
bool readSettings(const std::map<std::string, std::string>& values, Settings& settings, std::string& error);
// The settings of an empty configuration.
Settings defaultSettings();

// The configuration file at `path` (none when empty) with `overrides` over it, checked as
// readSettings does: its values and the settings made of them. False with a plain message that
// names the file. With `pathsFromFileFolder`, a relative path the file gives (database, phonebook,
// log-file, ...) is made absolute from the file's folder; the overrides' paths are left as given,
// relative to the working directory as a shell user typed them.
bool readConfiguration(const std::string& path, const std::map<std::string, std::string>& overrides,
                       std::map<std::string, std::string>& values, Settings& settings, std::string& error,
                       bool pathsFromFileFolder = false);
// The folder of the file `path` as an absolute path (relative `path`: from the working directory).
std::string fileFolder(const std::string& path);

// The phone values in force while the configuration gives none (those the journal needs).
const std::map<std::string, std::string>& phoneDefaults();

// The defaults that depend on the user: the database, and the client socket (see the table).
std::string defaultDatabase();
std::string defaultClientSocket();

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
