// Local management: the phone's configuration values and the agents that serve management data.
//
// MgmtAgentIfc is implemented by services that own manageable data (the journal registers one
// as "JournalMgmtId"). LocalMgmtIfc is the store of the phone's values; FileLocalMgmt (below)
// implements it over a key/value file.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "framework/Executable.h"
#include "framework/ManageableData.h"
#include "framework/Mutex.h"
#include "framework/WorkQueue.h"

#pragma GCC visibility push(default)

// An agent overrides what it serves; the defaults refuse reads and writes and ignore changes.
class MgmtAgentIfc {
 public:
  virtual ~MgmtAgentIfc();
  virtual bool setData(ManageableData&) { return false; }
  virtual bool getData(ManageableData&) { return false; }
  // A value observed by this agent changed; called on a framework thread.
  virtual void manageableDataChanged(ManageableData&) {}
  // The phone's user changed: drop what belongs to the previous user; true when done.
  virtual bool resetUserData() { return false; }
};

class LocalMgmtIfc {
 public:
  virtual ~LocalMgmtIfc();
  // Fills the value of every root id of `data` that the store holds. False when none is held.
  virtual bool readData(ManageableData& data) = 0;
  // Stores every value of `data` and tells the observers of each key whose value changed.
  virtual bool publishData(ManageableData& data) = 0;
  // Registers `agent` under `agentId` (replacing an earlier one of that id).
  virtual bool registerAgent(const std::string& agentId, MgmtAgentIfc* agent, bool serveData) = 0;
  virtual bool unregisterAgent(const std::string& agentId) = 0;
  // Calls agent->manageableDataChanged when `key` changes. False for an empty key or null agent.
  virtual bool observe(const std::string& key, MgmtAgentIfc* agent) = 0;
};

// LocalMgmtIfc over a configuration file of "key = value" lines. Blank lines and lines starting
// with '#' are ignored; blanks around key and value are dropped; a value in double quotes keeps
// its blanks (and may be empty). Keys are case-sensitive.
//
// Defaults (setDefault) are values in force while no value of their key is configured: readData
// gives them, value() and values() do not (they give what was configured). Observers hear of every
// change of the value in force, so removing a configured value that has a default reports the
// default.
//
// Change notifications run on the service's own notification thread, one at a time, in the order
// of the changes. Thread-safe: m_mutex guards values, agents and observers and is never held while
// an agent is called.
class FileLocalMgmt : public Service, public LocalMgmtIfc {
 public:
  FileLocalMgmt();
  ~FileLocalMgmt() override;

  // Reads `path`. On a missing or malformed file returns false and puts "<file>:<line>: <what>"
  // (or "<file>: <why>") in `error`; the values held before are kept.
  bool loadFile(const std::string& path, std::string& error);
  // Reads and parses `path` as loadFile does, without applying anything.
  static bool readFile(const std::string& path, std::map<std::string, std::string>& values, std::string& error);
  // Replaces every configured value with `values`, as loading a file does (keys it lacks are
  // removed), and notifies the observers of each key whose value in force changed.
  void replaceValues(const std::map<std::string, std::string>& values);
  // Parses file content; `origin` names the source in errors. Returns the parsed values.
  static bool parse(const std::string& text, const std::string& origin, std::map<std::string, std::string>& values,
                    std::string& error);
  // Reads the file again and notifies the observers of every key whose value changed or vanished.
  bool reload(std::string& error);

  // Sets one value (as publishData does for one key).
  void setValue(const std::string& key, const std::string& value);
  bool value(const std::string& key, std::string& value) const;
  std::map<std::string, std::string> values() const;
  void setDefault(const std::string& key, const std::string& value);
  bool defaultValue(const std::string& key, std::string& value) const;
  std::map<std::string, std::string> defaults() const;
  MgmtAgentIfc* agent(const std::string& agentId) const;
  // Waits until every notification queued so far has been delivered.
  void drainNotifications();
  // Removes every registration and observation of `agent` and waits for notifications queued
  // for it; call before destroying an agent.
  void forget(MgmtAgentIfc* agent);

  bool readData(ManageableData& data) override;
  bool publishData(ManageableData& data) override;
  bool registerAgent(const std::string& agentId, MgmtAgentIfc* agent, bool serveData) override;
  bool unregisterAgent(const std::string& agentId) override;
  bool observe(const std::string& key, MgmtAgentIfc* agent) override;

 private:
  // Applies new values and queues a delivery to each observer of every key that changed.
  void apply(const std::map<std::string, std::string>& changes, const std::set<std::string>& removed);
  void applyLocked(const std::map<std::string, std::string>& changes, const std::set<std::string>& removed)
      REQUIRES(m_mutex);
  // Queues one delivery of `key` per observer; caller holds m_mutex.
  void queueNotificationsLocked(const std::string& key, bool hasValue, const std::string& value) REQUIRES(m_mutex);
  bool isObservingLocked(const std::string& key, MgmtAgentIfc* agent) const REQUIRES(m_mutex);
  // The configured value of `key`, else its default; false when it has neither.
  bool inForceLocked(const std::string& key, std::string& value) const REQUIRES(m_mutex);
  // Runs on the notification thread; skips an observer forgotten since the change was queued.
  void deliver(const std::string& key, bool hasValue, const std::string& value, MgmtAgentIfc* observer);

  // Never held while an agent runs; only the notification queue's own lock is taken under it.
  mutable fw::Mutex m_mutex;
  std::string m_path GUARDED_BY(m_mutex);
  std::map<std::string, std::string> m_values GUARDED_BY(m_mutex);
  std::map<std::string, std::string> m_defaults GUARDED_BY(m_mutex);
  std::map<std::string, MgmtAgentIfc*> m_agents GUARDED_BY(m_mutex);
  std::multimap<std::string, MgmtAgentIfc*> m_observers GUARDED_BY(m_mutex);
  std::unique_ptr<fw::WorkQueue> m_notifier;
};

#pragma GCC visibility pop
