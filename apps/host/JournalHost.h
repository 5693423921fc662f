// Runs the journal module the way the phone does: the framework's services (SQLite store,
// phonebook, digit analysis, mobility upload, CSTA link) handed to a fw::JournalRuntime (context,
// configuration, clock), the module loaded through the plug-in loader, its service initialised
// and, for the daemon, served to clients.
//
// Two modes: Daemon (steady clock, system time, a switch over TCP, the client socket) and Replay
// (manual clock that follows a trace, no switch: the CSTA service answers its own requests and
// events are fed in). Used from one thread (the program's main thread); the services run their
// own threads. Owns everything it makes; stop() (or the destructor) takes it down in order.
#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "HostSettings.h"
#include "Management.h"
#include "framework/Mutex.h"

namespace fw {
class LogSink;
}  // namespace fw

namespace host {

// Logs (level 4) each setting whose value in force changed from `before` to `after`, those in
// `waiting` as taking effect at the next start; the journal's switches are left out.
void logConfigurationChanges(const std::map<std::string, std::string>& before,
                             const std::map<std::string, std::string>& after,
                             const std::map<std::string, std::string>& waiting);

class JournalHost {
 public:
  enum class Mode { Daemon, Replay };

  explicit JournalHost(Mode mode);
  ~JournalHost();
  JournalHost(const JournalHost&) = delete;
  JournalHost& operator=(const JournalHost&) = delete;

  // Reads the configuration file (none when `path` is empty) and puts `overrides` over it; the
  // file's relative paths are read from its folder, the overrides' from the working directory.
  // False with a plain message (naming the file) for a file, value or log file that cannot be used.
  bool configure(const std::string& path, const std::map<std::string, std::string>& overrides, std::string& error);
  // Starts the services, loads the module and initialises the journal. False with a plain message.
  bool start(std::string& error);
  // Finishes and stops everything; removes the client socket. Idempotent.
  void stop();
  // Reads the configuration file again (with the overrides over it), reports each changed value to
  // its observers and logs it (level 4), opens the log file again (a rotation renamed the old one)
  // and applies the journal's switches the file gives. A changed value that only a start reads
  // (switch, database, ...) keeps its running value, is logged as waiting for the next start and
  // shown so by "config get". A file that cannot be used as a whole is refused and changes nothing.
  bool reload(std::string& error);
  // The configuration file's values that wait for the next start (key -> value). Any thread.
  std::map<std::string, std::string> waitingForStart() const;

  // One request as a client would send it, answered in this process (used by replay).
  std::string request(const std::string& message);
  // Answers a management message ("config get" / "config set" / "status" / "subscribe-link") of
  // the client `clientId` (empty: this process).
  std::string handleManagement(const std::string& message, const std::string& clientId = std::string());
  // What the daemon is doing, one typed line per key (docs/protocol.md): whether it follows the
  // line, the switch link and since when, the monitor, the lists, the store and its last error,
  // the clients, the uptime. Any thread.
  std::vector<ManagementSetting> status();

  // Replay: where the phone's clock stands when the journal starts (before start()).
  void setReplayStart(const std::string& localTime) { m_replayStart = localTime; }
  // Replay: moves the phone's clock to `localTime` (and the timers with it).
  bool setLocalTime(const std::string& localTime, std::string& error);
  // Replay: delivers one CSTA event document through the CSTA service and waits until it and
  // whatever it caused (timers, notifications) are done.
  bool deliverEvent(const std::string& xml, std::string& error);
  // Changes one value as a client's "config set" does: a setting the journal serves goes to its
  // management agent (false, with the journal's reasons, when it refuses it); any other value
  // changes the configuration as a reload would. Waits until the change is dealt with.
  bool setValue(const std::string& key, const std::string& value, std::string& reason);
  // Whether the running journal serves `key` itself (its own settings, kept in its database).
  bool isJournalSetting(const std::string& key);

  const Settings& settings() const { return m_settings; }
  std::string clientSocketPath() const;
  int clientTcpPort() const;
  int clientWebPort() const;

 private:
  struct Parts;
  bool checkSocketFolder(std::string& error) const;
  bool startServices(std::string& error);
  bool loadPhonebook(std::string& error);
  bool loadModule(std::string& error);
  bool serveClients(std::string& error);
  // The configuration file's values with the overrides over them, checked.
  bool readConfiguration(std::map<std::string, std::string>& values, Settings& settings, std::string& error) const;
  static bool openLogFile(const std::string& path, std::shared_ptr<fw::LogSink>& sink, std::string& error);
  // Logs to `sink` (opened for `path`), or again to stderr when `path` is empty.
  void useLogFile(const std::string& path, std::shared_ptr<fw::LogSink> sink);
  // Sets the framework's log thresholds to `levels` (a log-levels text). Any thread: it touches
  // nothing of the host.
  static void applyLogThresholds(const std::string& levels);
  // Waits until events, timers and configuration notifications queued so far are delivered.
  void settle();
  // The phonebook of `path` on reload: read again, or a new file loaded.
  bool reloadPhonebook(const std::string& path, std::string& error);
  // Keeps the running value of each changed setting that only a start reads (JournalHostReload.cpp);
  // returns the file's values that wait for the next start.
  std::map<std::string, std::string> holdStartOnlyValues(const std::map<std::string, std::string>& running,
                                                         std::map<std::string, std::string>& values) const;
  // Sets each journal switch the configuration gives to the journal, logging each one that changes.
  void applyJournalSwitches();

  Mode m_mode;
  Settings m_settings = defaultSettings();
  std::string m_configPath;
  std::map<std::string, std::string> m_overrides;
  std::unique_ptr<Parts> m_parts;
  std::string m_replayStart;
  bool m_started = false;
  mutable fw::Mutex m_waitingMutex;  // leaf: guards m_waitingForStart (reload writes, clients read)
  std::map<std::string, std::string> m_waitingForStart GUARDED_BY(m_waitingMutex);
  // Set by start(), before clients are served.
  std::chrono::system_clock::time_point m_startedAt;
  std::chrono::steady_clock::time_point m_startedSteady;
  std::atomic<bool> m_listsLoaded{false};  // the lists were read from the store at start
};

}  // namespace host
