#include "Management.h"

#include <map>
#include <pugixml.hpp>
#include <set>
#include <sstream>

#include "SettingTable.h"
#include "framework/LocalMgmt.h"
#include "framework/Logging.h"
#include "framework/Utf8.h"

namespace host {

namespace {

// The journal's answer for `key` in the agent's code, when its agent serves that key.
bool journalCodeOf(FileLocalMgmt& mgmt, const std::string& key, std::string& code) {
  MgmtAgentIfc* agent = mgmt.agent(kJournalAgent);
  if (!agent) return false;
  ManageableData data(key);
  agent->getData(data);
  return data.interogate(key, code);
}

// The configuration file is the user's and may hold any bytes: the reply carries them well-formed.
pugi::xml_node addSetting(pugi::xml_node reply, const std::string& key, const std::string& value, const char* source,
                          const std::string& type = std::string()) {
  pugi::xml_node setting = reply.append_child("setting");
  setting.append_child("key").text().set(fw::utf8::sanitize(key).c_str());
  setting.append_child("value").text().set(fw::utf8::sanitize(value).c_str());
  setting.append_child("source").text().set(source);
  if (!type.empty()) setting.append_child("type").text().set(type.c_str());
  return setting;
}

// The configuration file's value of `key` that waits for the next start; "" when none does.
std::string waitingValue(ManagementContext& c, const std::string& key) {
  if (!c.waitingForStart) return "";
  const std::map<std::string, std::string> waiting = c.waitingForStart();
  auto it = waiting.find(key);
  return it == waiting.end() ? "" : it->second;
}

// Adds `key` with the value in force and where it comes from; false for a key nobody knows.
bool describe(ManagementContext& c, const std::string& key, pugi::xml_node reply) {
  std::string value;
  pugi::xml_node setting;
  if (journalCodeOf(c.mgmt, key, value)) {
    setting = addSetting(reply, key, journalWord(key, value), "journal");
  } else if (c.mgmt.value(key, value)) {
    setting = addSetting(reply, key, value, "configuration");
  } else if (c.mgmt.defaultValue(key, value)) {
    setting = addSetting(reply, key, value, "default");
  } else if (const SettingInfo* info = findSetting(key)) {
    setting = addSetting(reply, key, defaultValue(*info), "default");
  } else {
    return false;
  }
  if (const std::string next = waitingValue(c, key); !next.empty())
    setting.append_child("atNextStart").text().set(fw::utf8::sanitize(next).c_str());
  return true;
}

// "put "KEY = VALUE" in FILE": where a value is kept for good.
std::string keepAdvice(ManagementContext& c, const std::string& key, const std::string& value) {
  return "put \"" + key + " = " + value + "\" in " +
         (c.configFile.empty() ? std::string("a configuration file (calljournald --config FILE)") : c.configFile);
}

std::string finish(pugi::xml_document& doc, pugi::xml_node reply, bool ok, const std::string& reason) {
  reply.prepend_child("reason").text().set(reason.c_str());
  reply.prepend_child("result").text().set(ok ? "ok" : "failure");
  std::ostringstream out;
  doc.save(out, "", pugi::format_raw | pugi::format_no_declaration);
  return out.str();
}

std::string get(ManagementContext& c, const std::vector<std::string>& keys) {
  pugi::xml_document doc;
  pugi::xml_node reply = doc.append_child("mgmtResponse");
  if (keys.empty()) {
    // The table's settings in its order, then any other value the configuration holds.
    std::set<std::string> shown;
    std::size_t count = 0;
    const SettingInfo* table = settingTable(count);
    const std::map<std::string, std::string> configured = c.mgmt.values();
    for (std::size_t i = 0; i < count; ++i)
      if (table[i].listed || configured.count(table[i].key)) {
        describe(c, table[i].key, reply);
        shown.insert(table[i].key);
      }
    for (const auto& kv : configured)
      if (!shown.count(kv.first)) describe(c, kv.first, reply);
    return finish(doc, reply, true, "");
  }
  for (const std::string& key : keys)
    if (!describe(c, key, reply)) return finish(doc, reply, false, "no setting named \"" + key + "\"");
  return finish(doc, reply, true, "");
}

// A value of the journal's own: translated to its agent's code and handed to the agent, which
// keeps it in the database. A switch set to the value it has is left alone and answered ok.
std::string setOnJournal(ManagementContext& c, MgmtAgentIfc& agent, const std::string& key, const std::string& value,
                         const std::string& current) {
  pugi::xml_document doc;
  pugi::xml_node reply = doc.append_child("mgmtResponse");
  std::string error, code;
  if (!checkSetting(key, value, error)) return finish(doc, reply, false, error);
  const SettingInfo* setting = findSetting(key);
  if (value.empty() && setting) return finish(doc, reply, false, key + ": give one of " + setting->kind->takes);
  journalCode(key, value, code);  // checked above: a switch's word has a code
  if (!isJournalSwitch(key) || code != current) {
    ManageableData data;
    data.populate(key, code);
    const bool ok = agent.setData(data);
    std::string reason;
    for (const auto& r : data.getRejectReasons()) reason += (reason.empty() ? "" : "; ") + r.reason;
    if (!ok || !reason.empty()) return finish(doc, reply, false, reason.empty() ? "refused by the journal" : reason);
  }
  describe(c, key, reply);
  std::string note;
  if (isJournalSwitch(key)) {
    std::string configured;
    note = "kept in the journal's database";
    if (c.mgmt.value(key, configured) && !configured.empty() && !sameSettingValue(key, configured, value))
      note += "; the configuration file gives " + key + " = " + configured +
              ", which the next start or reload (SIGHUP) applies again";
  }
  return finish(doc, reply, true, note);
}

// The daemon's settings read only at start or on reload cannot be set while it runs: refused with
// where to put them. Empty when `setting` can be set.
std::string notSettableNow(ManagementContext& c, const SettingInfo& setting, const std::string& value) {
  if (setting.owner != SettingOwner::Daemon || setting.effect == SettingEffect::AtOnce) return "";
  const std::string advice = keepAdvice(c, setting.key, value);
  if (setting.effect == SettingEffect::OnReload)
    return std::string(setting.key) + " is read from the configuration file: " + advice + " and send the daemon SIGHUP";
  return std::string(setting.key) + " is read only when the daemon starts: " + advice + " and restart the daemon";
}

std::string set(ManagementContext& c, const std::string& key, const std::string& value) {
  pugi::xml_document doc;
  pugi::xml_node reply = doc.append_child("mgmtResponse");
  if (key.empty()) return finish(doc, reply, false, "a setting needs a name");
  std::string current;
  if (MgmtAgentIfc* agent = c.mgmt.agent(kJournalAgent); agent && journalCodeOf(c.mgmt, key, current))
    return setOnJournal(c, *agent, key, value, current);
  // A key or value the daemon could not start with, or reload, is refused here too.
  std::map<std::string, std::string> values = c.mgmt.values();
  values[key] = value;
  Settings checked;
  std::string error;
  if (!readSettings(values, checked, error)) return finish(doc, reply, false, error);
  const SettingInfo* setting = findSetting(key);
  if (const std::string refusal = setting ? notSettableNow(c, *setting, value) : ""; !refusal.empty())
    return finish(doc, reply, false, refusal);
  c.mgmt.setValue(key, value);
  c.mgmt.drainNotifications();
  if (setting && setting->owner == SettingOwner::Daemon && c.runningSettingsChanged) c.runningSettingsChanged();
  describe(c, key, reply);
  const std::string note = "in force until the daemon stops or reads its configuration again (SIGHUP); to keep it, " +
                           keepAdvice(c, key, value);
  return finish(doc, reply, true, note);
}

}  // namespace

std::string answerManagement(const std::string& message, ManagementContext& context) {
  pugi::xml_document doc;
  pugi::xml_node root;
  if (doc.load_string(message.c_str())) root = doc.child(kManagementRequest);
  // What a client sends is made well-formed before it is kept or echoed in a reply.
  std::string operation = fw::utf8::sanitize(root.child_value("operation"));
  std::vector<std::string> keys;
  for (pugi::xml_node k : root.children("key")) keys.push_back(fw::utf8::sanitize(k.child_value()));
  logAppUni("Journal Host", __FILE__, 5, __LINE__, "management %s of %zu key(s)", operation.c_str(), keys.size());
  if (operation == "get") return get(context, keys);
  if (operation == "status") {
    pugi::xml_document out;
    pugi::xml_node reply = out.append_child("mgmtResponse");
    if (context.status)
      for (const ManagementSetting& line : context.status())
        addSetting(reply, line.key, line.value, "status", line.type);
    return finish(out, reply, true, "");
  }
  if (operation == "subscribe-link") {
    pugi::xml_document out;
    const bool ok = context.subscribeLink && context.subscribeLink(context.clientId);
    return finish(out, out.append_child("mgmtResponse"), ok, ok ? "" : "link messages are not served here");
  }
  if (operation == "set" && keys.size() == 1 && root.child("value"))
    return set(context, keys[0], fw::utf8::sanitize(root.child_value("value")));
  pugi::xml_document out;
  return finish(out, out.append_child("mgmtResponse"), false,
                "not a management request: expected get with keys, set with one key and a value, status or "
                "subscribe-link");
}

std::string managementGetRequest(const std::vector<std::string>& keys) {
  pugi::xml_document doc;
  pugi::xml_node root = doc.append_child(kManagementRequest);
  root.append_child("operation").text().set("get");
  for (const std::string& k : keys) root.append_child("key").text().set(k.c_str());
  std::ostringstream out;
  doc.save(out, "", pugi::format_raw | pugi::format_no_declaration);
  return out.str();
}

std::string managementStatusRequest() {
  return std::string("<") + kManagementRequest + "><operation>status</operation></" + kManagementRequest + ">";
}

std::string managementSubscribeLinkRequest() {
  return std::string("<") + kManagementRequest + "><operation>subscribe-link</operation></" + kManagementRequest + ">";
}

std::string managementSetRequest(const std::string& key, const std::string& value) {
  pugi::xml_document doc;
  pugi::xml_node root = doc.append_child(kManagementRequest);
  root.append_child("operation").text().set("set");
  root.append_child("key").text().set(key.c_str());
  root.append_child("value").text().set(value.c_str());
  std::ostringstream out;
  doc.save(out, "", pugi::format_raw | pugi::format_no_declaration);
  return out.str();
}

bool parseManagementReply(const std::string& text, ManagementReply& reply) {
  pugi::xml_document doc;
  if (!doc.load_string(text.c_str())) return false;
  pugi::xml_node root = doc.child("mgmtResponse");
  if (!root) return false;
  reply.ok = std::string(root.child_value("result")) == "ok";
  reply.reason = root.child_value("reason");
  reply.settings.clear();
  reply.atNextStart.clear();
  for (pugi::xml_node s : root.children("setting")) {
    reply.settings.push_back(
        {s.child_value("key"), s.child_value("value"), s.child_value("source"), s.child_value("type")});
    if (s.child("atNextStart")) reply.atNextStart[s.child_value("key")] = s.child_value("atNextStart");
  }
  return true;
}

}  // namespace host
