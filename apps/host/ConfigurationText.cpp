// The texts made of the setting table: the commented configuration file and the summary of the
// command-line client's help.
#include <algorithm>
#include <sstream>

#include "SettingTable.h"

namespace host {

namespace {

constexpr std::size_t kWidth = 100;

// `text` as comment lines of at most kWidth columns, broken between words.
void comment(std::ostream& out, const std::string& text) {
  std::istringstream words(text);
  std::string line = "#", word;
  while (words >> word) {
    if (line.size() > 1 && line.size() + 1 + word.size() > kWidth) {
      out << line << '\n';
      line = "#";
    }
    line += ' ' + word;
  }
  out << line << '\n';
}

// "key = value" as the configuration file reads it back: the value quoted when blanks around it or
// a leading quote would otherwise be lost; an empty value is nothing after "=".
std::string settingLine(const std::string& key, const std::string& value) {
  if (value.empty()) return key + " =";
  const bool plain =
      value.find_first_of(" \t\r") != 0 && value.find_last_of(" \t\r") != value.size() - 1 && value.front() != '"';
  return key + " = " + (plain ? value : '"' + value + '"');
}

const char* sectionTitle(SettingOwner owner) {
  switch (owner) {
    case SettingOwner::Phone:
      return "The phone's values, read by the journal";
    case SettingOwner::Daemon:
      return "The daemon";
    case SettingOwner::Journal:
      break;
  }
  return "The journal's own settings";
}

const char* sectionNote(SettingOwner owner) {
  if (owner != SettingOwner::Journal) return nullptr;
  return "The journal keeps these in its database: `calljournal config set KEY VALUE` changes them while it runs "
         "and they stay so across restarts. A value given in this file is set again at every start and reload "
         "(SIGHUP), over the one kept; leave them out to keep what config set sets.";
}

std::string effectSentence(const SettingInfo& setting) {
  switch (setting.effect) {
    case SettingEffect::AtOnce:
      return setting.owner == SettingOwner::Journal ? "A change applies at once."
                                                    : "A change applies at once (config set, SIGHUP).";
    case SettingEffect::OnReload:
      return "A change applies when the daemon reads this file again (SIGHUP).";
    case SettingEffect::AtStart:
      break;
  }
  return "A change applies at the next start.";
}

std::string defaultDescription(const SettingInfo& setting) {
  if (setting.defaultText) return setting.defaultText;
  return *setting.byDefault ? setting.byDefault : "none";
}

void describe(std::ostream& out, const SettingInfo& setting, const std::map<std::string, std::string>& configured) {
  out << '\n';
  comment(out, std::string(setting.text) + ".");
  comment(out, std::string("Values: ") + setting.kind->takes + ". Default: " + defaultDescription(setting) + ". " +
                   effectSentence(setting));
  if (auto it = configured.find(setting.key); it != configured.end()) {
    out << settingLine(setting.key, it->second) << '\n';
    return;
  }
  const char* shown = *setting.byDefault ? setting.byDefault : setting.example;
  out << "# " << settingLine(setting.key, shown ? shown : "") << '\n';
}

}  // namespace

std::string configurationText(const std::map<std::string, std::string>& configured) {
  std::ostringstream out;
  comment(out,
          "Configuration of calljournald: \"key = value\" lines; blanks around key and value are dropped, a value in "
          "double quotes keeps them (\"\" is empty). Lines starting with # are comments. Every setting has a "
          "default: leave out, or leave commented out, what you do not need. An unknown key or a bad value refuses "
          "the whole file. A relative path is read from this file's folder. SIGHUP (kill -HUP) makes the daemon "
          "read it again and log each value that changed.");
  comment(out,
          "Written by `calljournald --print-config`, which prints the values of the file given with --config (and "
          "--set) in this form.");
  std::size_t count = 0;
  const SettingInfo* table = settingTable(count);
  for (SettingOwner owner : {SettingOwner::Phone, SettingOwner::Daemon, SettingOwner::Journal}) {
    std::string rule = std::string("# ---- ") + sectionTitle(owner) + " ";
    out << '\n' << rule << std::string(kWidth > rule.size() ? kWidth - rule.size() : 0, '-') << '\n';
    if (const char* note = sectionNote(owner)) comment(out, note);
    for (std::size_t i = 0; i < count; ++i)
      if (table[i].owner == owner && (table[i].listed || configured.count(table[i].key)))
        describe(out, table[i], configured);
  }
  return out.str();
}

std::string settingsSummary() {
  std::size_t count = 0;
  const SettingInfo* table = settingTable(count);
  std::size_t width = 0;
  for (std::size_t i = 0; i < count; ++i) width = std::max(width, std::string(table[i].key).size());
  std::ostringstream out;
  out << "config set: the journal's own settings (call-log-enabled, missed-logging, delete-missed-when-called) are\n"
         "on or off (also true/false, yes/no; numbers are not taken) and are kept in the journal's database\n"
         "across restarts. Any other value set here is in force until the daemon stops or reads its\n"
         "configuration file again (SIGHUP): to keep it, put it in that file. Settings read only at start or\n"
         "on reload (\"at the next start\", \"on reload\") are refused here: put them in the file.\n\n";
  out << "Settings (calljournald --print-config describes each), and when a change of one applies:\n";
  for (std::size_t i = 0; i < count; ++i) {
    const std::string key = table[i].key, effect = effectText(table[i].effect);
    out << "  " << key << std::string(width + 2 - key.size(), ' ') << effect
        << std::string(std::string("at the next start").size() + 2 - effect.size(), ' ') << table[i].text << '\n';
  }
  return out.str();
}

}  // namespace host
