// The journal as the daemon runs it (module, framework services, SQLite store on a scratch file),
// in replay mode so that no socket or switch is needed. journal() has the lists filled by
// replaying the example office day once: the client and management targets send their inputs to
// it as the client server would, and put the day back after each input (OfficeDay).
// startJournal() makes one with other values for the targets that drive a phone (FuzzPhone.h).
// Made on first use, never stopped; one thread uses it.
#pragma once

#include <deque>
#include <map>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "JournalChecks.h"
#include "JournalHost.h"
#include "Management.h"
#include "csta_link/CstaTrace.h"
#include "framework/JournalServiceHelper.h"

namespace fuzz {

// A running journal on the database `database` with `values` as its configuration, its clock at
// `start`. Aborts when it does not start: no input could be run without it.
inline host::JournalHost* startJournal(std::map<std::string, std::string> values, const std::string& database,
                                       const std::string& start) {
  silenceLogs();
  values["database"] = database;
  std::string error;
  auto* host = new host::JournalHost(host::JournalHost::Mode::Replay);
  host->setReplayStart(start);
  if (!host->configure("", values, error) || !host->start(error)) {
    std::fprintf(stderr, "fuzz: the journal did not start: %s\n", error.c_str());
    std::abort();
  }
  silenceLogs();
  // Left running at exit: it is idle between inputs (the clock is a manual one, no socket is
  // served), and stopping it from an exit handler would run after statics it uses are gone.
  return host;
}

inline const std::string& officeDayDatabase() {
  static const std::string path = scratchDirectory() + "/journal.db";
  return path;
}

inline host::JournalHost& journal() {
  static host::JournalHost* const running = [] {
    silenceLogs();
    fw::CstaTrace day;
    std::string error;
    if (!fw::readCstaTraceFile(JOURNAL_EXAMPLES_DIR "/traces/office-day.xml", day, error)) {
      std::fprintf(stderr, "fuzz: %s\n", error.c_str());
      std::abort();
    }
    std::map<std::string, std::string> values;
    size_t first = 0;
    for (; first < day.steps.size() && day.steps[first].kind == fw::CstaTraceStep::Set; ++first)
      values[day.steps[first].key] = day.steps[first].value;
    host::JournalHost* host =
        startJournal(values, officeDayDatabase(), day.steps.empty() ? std::string() : day.steps.front().at);
    for (size_t i = first; i < day.steps.size(); ++i) {
      const fw::CstaTraceStep& step = day.steps[i];
      host->setLocalTime(step.at, error);
      if (step.kind == fw::CstaTraceStep::Set) {
        std::string refused;
        host->setValue(step.key, step.value, refused);
      } else {
        host->deliverEvent(step.eventXml, error);
      }
    }
    return host;
  }();
  return *running;
}

// The office day as journal() holds it after its replay: the stored lists and the journal's own
// settings. An input that deleted entries, marked them viewed or changed a setting would leave
// every later input less to work on, so after each input what changed is put back: the settings
// as a client sets them, the lists by writing the day's rows into the store (as someone editing
// the file would) and asking the journal to read its lists again (refreshCallLog).
class OfficeDay {
 public:
  static OfficeDay& instance() {
    static OfficeDay* const day = new OfficeDay();
    return *day;
  }

  // Checks the journal's promises (JournalChecks.h), then puts back what the input changed.
  void checkAndRestore() {
    checkJournal(journal(), m_store);
    for (const auto& [key, value] : m_settings) {
      std::string reason;
      if (settingOf(key) != value) journal().setValue(key, value, reason);
    }
    bool rewritten = false;
    for (Table& table : m_tables) {
      if (rowsOf(table) == table.rows) continue;
      std::string message = createField(H::REASONFORMESSAGE, H::DELETEREQUEST);
      H::addXMLHeaderFooter(message, table.name);
      FUZZ_CHECK(m_store.processRequest(message) != "failed", message);
      message = createField(H::REASONFORMESSAGE, H::WRITEREQUEST);
      for (const std::string& body : table.rows) message += createField(H::ENTRY, body);
      H::addXMLHeaderFooter(message, table.name);
      FUZZ_CHECK(m_store.processRequest(message) != "failed", message);
      rewritten = true;
    }
    if (rewritten) journal().request(H::createMethodRequest(H::REFRESH_CALL_LOG));
  }

 private:
  using H = JournalServiceHelper;
  struct Table {
    const char* name;
    std::string readMessage;
    std::vector<std::string> rows;  // the bodies without their unique ids, in the store's order
  };

  OfficeDay() : m_store(storeReader(officeDayDatabase())) {
    journal();
    m_tables = {{H::DAS_CALLLOGMISSEDCALLS, H::readMissedCallList(), {}},
                {H::DAS_CALLLOGDIALLEDCALLS, H::readDialledCallList(), {}},
                {H::DAS_CALLLOGRECEIVEDCALLS, H::readReceivedCallList(), {}},
                {H::DAS_CALLLOGFORWARDEDCALLS, H::readForwardedCallList(), {}}};
    for (Table& table : m_tables) table.rows = rowsOf(table);
    for (const char* key : {"call-log-enabled", "missed-logging", "delete-missed-when-called"})
      m_settings[key] = settingOf(key);
  }

  static std::string createField(const char* name, const std::string& value) { return H::createXMLField(name, value); }

  template <class Item>
  static std::vector<std::string> bodiesOf(const std::string& reply,
                                           bool (*parse)(const std::string&, std::deque<Item>&,
                                                         std::vector<std::string>&),
                                           std::string (*body)(const Item&, bool)) {
    std::deque<Item> list;
    std::vector<std::string> skipped;
    FUZZ_CHECK(parse(reply, list, skipped), reply);
    std::vector<std::string> bodies;
    for (Item& item : list) {
      item.setUniqueId("");
      bodies.push_back(body(item, false));
    }
    return bodies;
  }

  std::vector<std::string> rowsOf(const Table& table) {
    const std::string reply = m_store.processRequest(table.readMessage);
    const std::string name = table.name;
    if (name == H::DAS_CALLLOGMISSEDCALLS)
      return bodiesOf<MissedCallItem>(reply, &H::parseStoredMissedCallList, &H::createXMLMissedCallItemBody);
    if (name == H::DAS_CALLLOGDIALLEDCALLS)
      return bodiesOf<DialledCallItem>(reply, &H::parseStoredDialledCallList, &H::createXMLDialledCallItemBody);
    if (name == H::DAS_CALLLOGRECEIVEDCALLS)
      return bodiesOf<ReceivedCallItem>(reply, &H::parseStoredReceivedCallList, &H::createXMLReceivedCallItemBody);
    return bodiesOf<ForwardedCallItem>(reply, &H::parseStoredForwardedCallList, &H::createXMLForwardedCallItemBody);
  }

  std::string settingOf(const std::string& key) {
    host::ManagementReply reply;
    host::parseManagementReply(journal().handleManagement(host::managementGetRequest({key})), reply);
    return reply.settings.empty() ? std::string() : reply.settings.front().value;
  }

  SqliteDataAccessService& m_store;
  std::vector<Table> m_tables;
  std::map<std::string, std::string> m_settings;
};

}  // namespace fuzz
