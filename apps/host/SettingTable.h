// The daemon's settings, one row each: every key that the configuration file, --set, a trace's
// `set` steps and "calljournal config get|set" take. Made from this table: the checks of the
// configuration's values (an unknown key or a bad value refuses the configuration), the defaults
// in force, what "config get" serves, the help of "calljournal config" and the commented sample
// configuration (calljournald --print-config; examples/calljournald.conf is its output for the
// example's values, and a test keeps the two equal).
//
// Constant data and functions of it; any thread may use them.
#pragma once

#include <cstddef>
#include <map>
#include <string>

namespace host {

// Who reads a setting.
enum class SettingOwner {
  Phone,    // a phone value in local management, read (and most observed) by the journal
  Daemon,   // the daemon's own: files, sockets, the switch, logging
  Journal,  // kept by the journal in its database and served by its management agent
};

// When a new value is used by a running daemon.
enum class SettingEffect {
  AtOnce,    // "config set" and a reload (SIGHUP) change the running daemon
  OnReload,  // a reload of the configuration file uses it
  AtStart,   // used from the next start
};

// The values a setting takes. `accepts` null: the daemon takes any text and the reader of the
// value copes with the rest as `takes` says.
struct ValueKind {
  const char* takes;    // "a whole number": for the sample configuration and the help
  const char* refusal;  // "is not a whole number": follows `KEY: "VALUE" ` in the error line
  bool (*accepts)(const std::string& value);
};

struct SettingInfo {
  const char* key;
  SettingOwner owner;
  const ValueKind* kind;
  const char* byDefault;             // the value in force while none is given ("": none)
  std::string (*computedDefault)();  // a default that depends on the user or the installation; else null
  const char* defaultText;           // how the default reads when it is computed; else null
  const char* example;               // shown commented out in the sample when the default is ""; may be null
  SettingEffect effect;
  bool listed;       // in "config get" of everything and in the sample; else only when named
  bool phoneValue;   // the default is given to the phone's values, which the journal reads
  const char* text;  // one line: what the setting is for
};

// The table, in the order of the sample configuration.
const SettingInfo* settingTable(std::size_t& count);
// The row of `key`; null for a key no one reads.
const SettingInfo* findSetting(const std::string& key);

// Whether `value` can be used for `key`. False with a plain message naming the key: no setting of
// that name, or a value its kind refuses. An empty value counts as not given and is taken.
bool checkSetting(const std::string& key, const std::string& value, std::string& error);
// The known key nearest to `key` (a slip of a letter or a few): "" when none is near enough.
std::string nearestSetting(const std::string& key);
// "no setting named "KEY"; did you mean "NEAR"?" (or, with nothing near, where the settings are listed).
std::string unknownSettingText(const std::string& key);

// Whether `key` names a file or socket (database, phonebook, log-file, client-socket, module).
bool isPathSetting(const std::string& key);

// The journal's switches (call-log-enabled, missed-logging, delete-missed-when-called) are on or
// off to the user in every place (file, --set, config get|set); the journal's management agent
// keeps a code of its own for each. journalCode: the agent's code of `value` (on/off, true/false,
// yes/no); false for another word. journalWord: "on" or "off" for the agent's code. Other keys'
// values pass both unchanged.
bool isJournalSwitch(const std::string& key);
bool journalCode(const std::string& key, const std::string& value, std::string& code);
std::string journalWord(const std::string& key, const std::string& code);
// Whether `a` and `b` are the same value of `key` ("yes" and "on" of a switch are).
bool sameSettingValue(const std::string& key, const std::string& a, const std::string& b);

// The value of `setting` while the configuration gives none.
std::string defaultValue(const SettingInfo& setting);
// "at once", "on reload", "at the next start".
const char* effectText(SettingEffect effect);

// The commented configuration: every listed setting with what it is for, the values it takes,
// its default and when it applies; the keys of `configured` with their values, the others
// commented out. Read back as a configuration file it gives `configured` again.
std::string configurationText(const std::map<std::string, std::string>& configured);
// One line per setting (key, when it applies, what it is for), for the help of "calljournal config".
std::string settingsSummary();

}  // namespace host
