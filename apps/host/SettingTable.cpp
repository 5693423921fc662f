#include "SettingTable.h"
#include "EditDistance.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <vector>

#include "HostSettings.h"
#include "framework/Logging.h"

namespace host {

namespace {

bool isWholeNumber(const std::string& text) {
  if (text.empty()) return false;
  char* end = nullptr;
  const long value = std::strtol(text.c_str(), &end, 10);
  return *end == '\0' && value >= INT_MIN && value <= INT_MAX;
}

bool isPositiveNumber(const std::string& text) {
  return isWholeNumber(text) && std::strtol(text.c_str(), nullptr, 10) > 0;
}

bool isTrueOrFalse(const std::string& text) { return text == "true" || text == "false"; }

// The words a journal switch takes; numbers are not among them (see kOnOffWords).
bool isOnWord(const std::string& text) { return text == "on" || text == "true" || text == "yes"; }
bool isOffWord(const std::string& text) { return text == "off" || text == "false" || text == "no"; }
bool isOnOrOff(const std::string& text) { return isOnWord(text) || isOffWord(text); }

bool isClearAction(const std::string& text) { return text == "true"; }

bool isLogLevels(const std::string& text) { return fw::checkLogThresholds(text, nullptr); }

bool isCallLogAccess(const std::string& text) { return text == "0" || text == "1" || text == "2"; }

bool isListenAddress(const std::string& text) {
  std::string host;
  int port = 0;
  return splitHostPort(text, host, port);
}

// The switch is reached at a port of its own: 0 ("any free port") names none.
bool isSwitchAddress(const std::string& text) {
  std::string host;
  int port = 0;
  return splitHostPort(text, host, port) && port != 0;
}

// ---- the kinds of value (refusal null: any text is taken) ----

const ValueKind kText{"any text", nullptr, nullptr};
const ValueKind kFile{"a file's path", nullptr, nullptr};
const ValueKind kWholeNumber{"a whole number", "is not a whole number", isWholeNumber};
const ValueKind kTrueFalse{"true or false", "is neither true nor false", isTrueOrFalse};
const ValueKind kCallLogAccess{"0 (the journal follows the line's calls), 1 or 2 (it does not: its monitor stops)",
                               "is not 0, 1 or 2", isCallLogAccess};
const ValueKind kSwitchAddress{"host:port (for example 192.0.2.10:1040)",
                               "is not host:port (for example 192.0.2.10:1040)", isSwitchAddress};
const ValueKind kListenAddress{"host:port (for example 127.0.0.1:7070; port 0: any free port)",
                               "is not host:port (for example 127.0.0.1:7070)", isListenAddress};
const ValueKind kMilliseconds{"a positive number of milliseconds", "is not a positive number of milliseconds",
                              isPositiveNumber};
const ValueKind kClientCount{"a positive number of clients", "is not a positive number of clients", isPositiveNumber};
const ValueKind kSoftwareType{
    "\"Velmora SIP\" (the SIP switch's rules) or any other text (the KPX rules); while the daemon runs, a change "
    "is taken with the next change of system-identifier, reg-number or call-log-control",
    nullptr, nullptr};
const ValueKind kLoggingMode{
    "0 (the phone keeps its call log), 1 (the same, mixed with the switch's) or 2 (the "
    "switch keeps the call log and sends its entries)",
    "is not a whole number", isWholeNumber};
const ValueKind kHours{"a number of hours from 1 to 8760 (another value is logged and 4 is used)", nullptr, nullptr};
const ValueKind kVariant{"a whole number: 3 or 4 is a phone with the LumaUX user interface", nullptr, nullptr};
const ValueKind kCodes{"codes separated by commas; blanks around each are dropped", nullptr, nullptr};
const ValueKind kAllowRemote{"true lets client-tcp listen on an address other than loopback; anything else does not",
                             nullptr, nullptr};
const ValueKind kAllowRemoteWeb{"true lets client-web listen on an address other than loopback; anything else does not",
                                nullptr, nullptr};
const ValueKind kLogLevels{
    "HANDLE=LEVEL pairs separated by commas, * for every other handle; levels 2 error, 4 notable event, 5 trace, "
    "6 detail (for example: Journal Service=6, *=4)",
    "is not HANDLE=LEVEL pairs separated by commas with levels from 0 to 9 (for example: Journal Service=6, *=4)",
    isLogLevels};
const ValueKind kUrl{"an http://, https:// or file:// URL", nullptr, nullptr};
// The journal's switches are on or off to the user, whatever code the journal's agent keeps for
// them. Numbers are refused: the agent's codes differ per switch (missed-logging's 0 is on), so a
// number could mean either.
#define ON_OFF_REFUSAL "is not on or off (also taken: true/false, yes/no)"
const ValueKind kJournalSwitch{"on or off (off empties the call lists); also true/false, yes/no", ON_OFF_REFUSAL,
                               isOnOrOff};
const ValueKind kMissedLogging{
    "on (calls that another device of the line answered are logged as missed) or off (they are not); also "
    "true/false, yes/no",
    ON_OFF_REFUSAL, isOnOrOff};
const ValueKind kDeleteMissed{"on (calling a party back takes its missed entry away) or off; also true/false, yes/no",
                              ON_OFF_REFUSAL, isOnOrOff};
#undef ON_OFF_REFUSAL
const ValueKind kClearCallLog{"true empties every call list (an action of config set; a read gives false)",
                              "is not true (true empties every call list)", isClearAction};
const ValueKind kStoreState{"read only: ok, or failing since TIME: N changes not stored yet", nullptr, nullptr};

// The module's place relative to the program, the same in the build tree and in an installed
// system (the build gives it: ../lib/calljournal/libjournalservice.so).
std::string defaultModule() { return programDirectory() + "/" JOURNAL_MODULE_FROM_PROGRAM; }
// The web page's files, found the same way (../share/calljournal/web).
std::string defaultWebRoot() { return programDirectory() + "/" JOURNAL_WEB_FROM_PROGRAM; }

// One row; the builders below fill in what most rows leave at its usual value.
struct Row : SettingInfo {
  constexpr Row(const char* key, SettingOwner owner, const ValueKind& kind, const char* byDefault, SettingEffect effect,
                const char* text)
      : SettingInfo{key, owner, &kind, byDefault, nullptr, nullptr, nullptr, effect, true, false, text} {}
  constexpr Row& withExample(const char* value) {
    example = value;
    return *this;
  }
  constexpr Row& withComputedDefault(std::string (*function)(), const char* description) {
    computedDefault = function;
    defaultText = description;
    return *this;
  }
  constexpr Row& unlisted() {
    listed = false;
    return *this;
  }
  constexpr Row& givenToThePhone() {
    phoneValue = true;
    return *this;
  }
};

using O = SettingOwner;
using E = SettingEffect;

constexpr SettingInfo kTable[] = {
    // ---- the phone's values
    Row("software-type", O::Phone, kSoftwareType, "Velmora KPX", E::AtStart, "Which switch's rules the journal follows")
        .givenToThePhone(),
    Row("system-identifier", O::Phone, kLoggingMode, "0", E::AtOnce, "Who keeps the call log"),
    Row("server-based-features", O::Phone, kTrueFalse, "false", E::AtOnce,
        "Whether the switch runs the phone's features, such as forwarding"),
    Row("disable-access-calllog", O::Phone, kCallLogAccess, "0", E::AtOnce,
        "Whether the journal may follow the line's calls"),
    Row("call-log-control", O::Phone, kText, "", E::AtOnce, "The switch's call-log control value"),
    Row("reg-number", O::Phone, kText, "", E::AtOnce, "The phone's registration number").withExample("3100"),
    Row("mac-addr", O::Phone, kText, "", E::AtStart, "The phone's MAC address; spreads the hourly visitor upload")
        .withExample("00:1A:2B:3C:4D:5E"),
    Row("mobility-current-user", O::Phone, kText, "", E::AtOnce,
        "The visitor logged on to the phone (without one: mac-addr)"),
    Row("mobility-user-data-update", O::Phone, kText, "", E::AtOnce,
        "Any change makes the journal read the new user's lists")
        .unlisted(),
    Row("sntp-tz-offset", O::Phone, kWholeNumber, "0", E::AtOnce, "The phone's time zone offset"),
    Row("daylight-save", O::Phone, kTrueFalse, "false", E::AtOnce, "Whether daylight saving time is in force"),
    Row("daylight-save-minutes", O::Phone, kWholeNumber, "0", E::AtOnce,
        "Daylight saving's shift in minutes, while daylight-save is true"),
    Row("call-record-max-idle-hours", O::Phone, kHours, "4", E::AtOnce,
        "Hours without an event before the journal forgets a call"),
    Row("hw-sub-platform-variant", O::Phone, kVariant, "0", E::AtStart, "The phone's hardware variant"),

    // ---- the daemon's own
    Row("switch", O::Daemon, kSwitchAddress, "", E::AtStart, "The switch's CSTA XML service (none: no switch)")
        .withExample("192.0.2.10:1040"),
    Row("monitored-device", O::Daemon, kText, "3100", E::AtStart, "The phone's own number at the switch"),
    Row("csta-request-timeout-ms", O::Daemon, kMilliseconds, "5000", E::AtStart,
        "Time limit of a request to the switch"),
    Row("database", O::Daemon, kFile, "", E::AtStart, "The SQLite file that keeps the lists")
        .withComputedDefault(defaultDatabase,
                             "/var/lib/calljournal/journal.db as root, else ~/.local/state/calljournal/journal.db")
        .withExample("/var/lib/calljournal/journal.db"),
    Row("phonebook", O::Daemon, kFile, "", E::OnReload,
        "The phonebook (CSV or vCard) that names callers; a reload reads it again")
        .withExample("/etc/calljournal/phonebook.csv"),
    Row("feature-access-codes", O::Daemon, kCodes, "", E::AtStart,
        "The dialling plan's feature access codes (kept as dialled on SIP phones)")
        .withExample("*21, *61, #"),
    Row("client-socket", O::Daemon, kFile, "", E::AtStart, "The Unix socket that clients connect to")
        .withComputedDefault(defaultClientSocket,
                             "/run/calljournal/calljournal.sock as root, else $XDG_RUNTIME_DIR/calljournal.sock, else "
                             "/tmp/calljournal-UID/calljournal.sock (a folder of that user alone)")
        .withExample("/run/calljournal/calljournal.sock"),
    Row("client-tcp", O::Daemon, kListenAddress, "", E::AtStart,
        "An extra TCP listener for clients (none: no listener)")
        .withExample("127.0.0.1:7070"),
    Row("client-tcp-allow-remote", O::Daemon, kAllowRemote, "false", E::AtStart,
        "Whether client-tcp may listen beyond loopback"),
    Row("client-web", O::Daemon, kListenAddress, "", E::AtStart,
        "A web listener for the phone's screen in a browser: the page and its WebSocket /ws (none: no "
        "listener)")
        .withExample("127.0.0.1:8080"),
    Row("client-web-allow-remote", O::Daemon, kAllowRemoteWeb, "false", E::AtStart,
        "Whether client-web may listen beyond loopback"),
    Row("client-web-root", O::Daemon, kFile, "", E::AtStart, "The folder of the web page's files")
        .withComputedDefault(defaultWebRoot, JOURNAL_WEB_FROM_PROGRAM " beside the program")
        .withExample("/usr/share/calljournal/web"),
    Row("client-max-connections", O::Daemon, kClientCount, "64", E::AtStart,
        "Clients served at once; one more is refused (logged)"),
    Row("log-levels", O::Daemon, kLogLevels, "*=4", E::AtOnce, "Log thresholds per handle"),
    Row("log-file", O::Daemon, kFile, "", E::OnReload, "The file of the log lines (none: stderr)")
        .withExample("/var/log/calljournald.log"),
    Row("mobility-url", O::Daemon, kUrl, "", E::OnReload, "Where a visitor's journal is uploaded")
        .withExample("file:///var/lib/calljournal/visitor.xml"),
    Row("module", O::Daemon, kFile, "", E::AtStart, "The journal module")
        .withComputedDefault(defaultModule, JOURNAL_MODULE_FROM_PROGRAM " beside the program")
        .withExample("/usr/lib/calljournal/libjournalservice.so"),

    // ---- the journal's own, kept in its database
    Row("call-log-enabled", O::Journal, kJournalSwitch, "on", E::AtOnce, "Whether calls are logged at all"),
    Row("missed-logging", O::Journal, kMissedLogging, "on", E::AtOnce,
        "Whether calls another device answered count as missed"),
    Row("delete-missed-when-called", O::Journal, kDeleteMissed, "off", E::AtOnce,
        "Whether calling a party back removes its missed entry"),
    Row("clear-calllog", O::Journal, kClearCallLog, "false", E::AtOnce, "Empties the call lists").unlisted(),
    Row("store-state", O::Journal, kStoreState, "", E::AtOnce, "Whether the database takes the journal's changes")
        .unlisted(),
};

// The codes the journal's management agent keeps for its switches.
struct SwitchCodes {
  const char* key;
  const char* on;
  const char* off;
};
constexpr SwitchCodes kSwitchCodes[] = {
    {"call-log-enabled", "true", "false"},
    {"missed-logging", "0", "1"},  // the agent's code runs the other way round
    {"delete-missed-when-called", "1", "0"},
};

const SwitchCodes* switchCodes(const std::string& key) {
  for (const SwitchCodes& codes : kSwitchCodes)
    if (key == codes.key) return &codes;
  return nullptr;
}

}  // namespace

std::string nearestSetting(const std::string& key) {
  // A slip of about one letter in four is a typing mistake; beyond that the key is another word.
  const std::size_t allowed = std::max<std::size_t>(1, std::min<std::size_t>(3, key.size() / 4));
  std::string best;
  std::size_t bestDistance = allowed + 1;
  for (const SettingInfo& setting : kTable) {
    const std::size_t distance = editDistance(key, setting.key);
    if (distance < bestDistance) {
      best = setting.key;
      bestDistance = distance;
    }
  }
  return best;
}

std::string unknownSettingText(const std::string& key) {
  const std::string nearest = nearestSetting(key);
  if (!nearest.empty()) return "no setting named \"" + key + "\"; did you mean \"" + nearest + "\"?";
  return "no setting named \"" + key + "\" (calljournald --print-config lists every setting)";
}

bool isPathSetting(const std::string& key) {
  const SettingInfo* setting = findSetting(key);
  return setting && setting->kind == &kFile;
}

bool isJournalSwitch(const std::string& key) { return switchCodes(key) != nullptr; }

bool journalCode(const std::string& key, const std::string& value, std::string& code) {
  const SwitchCodes* codes = switchCodes(key);
  if (!codes) {
    code = value;
    return true;
  }
  if (!isOnOrOff(value)) return false;
  code = isOnWord(value) ? codes->on : codes->off;
  return true;
}

std::string journalWord(const std::string& key, const std::string& code) {
  const SwitchCodes* codes = switchCodes(key);
  if (!codes) return code;
  if (code == codes->on) return "on";
  if (code == codes->off) return "off";
  return code;
}

bool sameSettingValue(const std::string& key, const std::string& a, const std::string& b) {
  if (isJournalSwitch(key) && isOnOrOff(a) && isOnOrOff(b)) return isOnWord(a) == isOnWord(b);
  return a == b;
}

const SettingInfo* settingTable(std::size_t& count) {
  count = sizeof kTable / sizeof kTable[0];
  return kTable;
}

const SettingInfo* findSetting(const std::string& key) {
  for (const SettingInfo& setting : kTable)
    if (key == setting.key) return &setting;
  return nullptr;
}

bool checkSetting(const std::string& key, const std::string& value, std::string& error) {
  const SettingInfo* setting = findSetting(key);
  if (!setting) {
    error = unknownSettingText(key);
    return false;
  }
  if (value.empty() || !setting->kind->accepts || setting->kind->accepts(value)) return true;
  error = key + ": \"" + value + "\" " + setting->kind->refusal;
  return false;
}

std::string defaultValue(const SettingInfo& setting) {
  return setting.computedDefault ? setting.computedDefault() : setting.byDefault;
}

const char* effectText(SettingEffect effect) {
  switch (effect) {
    case SettingEffect::AtOnce:
      return "at once";
    case SettingEffect::OnReload:
      return "on reload";
    case SettingEffect::AtStart:
      break;
  }
  return "at the next start";
}

}  // namespace host
