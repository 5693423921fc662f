// A phone driven by a fuzz input, for the targets that send a journal the switch's events and a
// trace's settings (journal_events, trace). It owns a journal of its own (FuzzJournal.h) on a
// fresh database, started as a KPX phone so that it registers for the switch's system status, and
// keeps the phone's clock.
//
// Each input starts from a known state (beginInput): the clock moves past the idle limit of call
// records, so the journal's sweep lets go of every call an earlier input left open, and the lists
// are emptied as a client empties them. The values an input changed are put back and the
// journal's promises checked (JournalChecks.h) when it ends (endInput). Made on first use, never
// stopped; one thread uses it.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "FuzzJournal.h"
#include "JournalChecks.h"
#include "Management.h"
#include "framework/ClockService.h"

namespace fuzz {

class Phone {
 public:
  static Phone& instance() {
    static Phone* const phone = new Phone();
    return *phone;
  }

  host::JournalHost& journal() { return *m_journal; }

  void beginInput() {
    if (m_now - m_start > kClockSpanSeconds) {
      // Back to the start: the sweep first counts each call's idle time from there.
      setTime(m_start);
      advance(kSweepIntervalSeconds);
    }
    advance(kPastIdleLimitSeconds);
    using H = JournalServiceHelper;
    deleteEntries(H::DELETE_MISSED_CALL_LIST, m_lists.missed);
    deleteEntries(H::DELETE_DIALLED_CALL_LIST, m_lists.dialled);
    deleteEntries(H::DELETE_RECEIVED_CALL_LIST, m_lists.received);
    deleteEntries(H::DELETE_FORWARDED_CALL_LIST, m_lists.forwarded);
    deleteEntries(H::DELETE_CALL_BACK_LIST, m_lists.callBacks);
    m_lists = ListIds();
  }

  // The phone an input asks for, from the bits of one byte: 0 the flavour (KPX or SIP), 1-2 the
  // system identifier (0 own call log, 1 mixed, 2 the switch's call log), 3 server based
  // features, and the journal's settings: 4 call log off, 5 missed calls of other devices not
  // logged, 6 missed entries deleted when the party is called.
  void setMode(uint8_t bits) {
    const bool flavourChanged = change("software-type", bits & 1 ? "Velmora KPX" : "Velmora SIP");
    const int systemIdentifier = (bits >> 1) & 3;
    change("system-identifier", std::to_string(systemIdentifier == 3 ? 0 : systemIdentifier), flavourChanged);
    change("server-based-features", bits & 8 ? "true" : "false");
    change("call-log-enabled", bits & 16 ? "false" : "true");
    change("missed-logging", bits & 32 ? "1" : "0");
    change("delete-missed-when-called", bits & 64 ? "1" : "0");
    m_baseline = m_values;
  }

  // A value as a trace's `set` step gives it, taken by the running journal as calljournal replay
  // takes it. Only the phone's values that the journal reads and its own settings are taken: the
  // daemon's settings (database, sockets, log, module) do not change a running journal. False
  // for a value not taken.
  bool set(const std::string& key, const std::string& value) {
    if (key == "clear-calllog") {
      std::string reason;
      return m_journal->setValue(key, value, reason);
    }
    if (!m_values.count(key)) return false;
    return change(key, value);
  }

  // Reads the phone values again, as the journal does when a system value changes: a new
  // flavour takes effect.
  void rereadSystemValues() { change("system-identifier", m_values["system-identifier"], true); }

  int64_t now() const { return m_now; }
  void advance(int64_t seconds) { setTime(m_now + seconds); }
  void setTime(int64_t seconds) {
    m_now = seconds;
    std::string error;
    FUZZ_CHECK(m_journal->setLocalTime(fw::formatCivil(fw::civilFromSeconds(seconds)), error), error);
  }

  // One event document as from the switch; false when it is no event.
  bool deliver(const std::string& xml) {
    std::string error;
    return m_journal->deliverEvent(xml, error);
  }

  void endInput() {
    for (const auto& [key, value] : m_baseline) change(key, value);
    if (m_values["software-type"] != m_flavourRead) rereadSystemValues();
    m_lists = checkJournal(*m_journal, *m_store);
  }

 private:
  static constexpr int64_t kPastIdleLimitSeconds = 5 * 3600;               // the journal's default limit is 4 h
  static constexpr int64_t kSweepIntervalSeconds = 15 * 60 + 1;            // the journal's sweep runs every 15 min
  static constexpr int64_t kClockSpanSeconds = int64_t{50} * 365 * 86400;  // the clock stays within years 2026 to 2076
  static constexpr const char* kStart = "2026-03-10T08:00:00";

  Phone() {
    // Every value set() may change is given, so that it can be put back.
    m_values = {
        {"software-type", "Velmora KPX"}, {"system-identifier", "0"},         {"server-based-features", "false"},
        {"reg-number", "3100"},           {"call-log-control", "0"},          {"call-record-max-idle-hours", "4"},
        {"sntp-tz-offset", "0"},          {"daylight-save", "false"},         {"daylight-save-minutes", "0"},
        {"disable-access-calllog", "0"},  {"mobility-current-user", "owner"}, {"mobility-user-data-update", "0"},
        {"mac-addr", "00:1A:2B:3C:4D:5E"}};
    const std::string database = scratchDirectory() + "/phone.db";
    m_journal = startJournal(m_values, database, kStart);
    m_store = &storeReader(database);
    m_lists = checkJournal(*m_journal, *m_store);
    // The journal's own settings, as it has them in its new database.
    for (const char* key : {"call-log-enabled", "missed-logging", "delete-missed-when-called"})
      m_values[key] = journalValue(key);
    m_values.erase("mac-addr");
    m_baseline = m_values;
    m_flavourRead = m_values["software-type"];
    fw::CivilTime start;
    fw::parseCivil(kStart, start);
    m_start = m_now = fw::secondsFromCivil(start);
  }

  // The entries `ids` deleted as a client deletes a whole list (calljournal delete --all).
  void deleteEntries(int method, const std::vector<std::string>& ids) {
    if (ids.empty()) return;
    const std::string reply = m_journal->request(JournalServiceHelper::createMethodRequest(method, ids));
    FUZZ_CHECK(reply == JournalServiceHelper::respBool(true), reply);
  }

  std::string journalValue(const std::string& key) {
    host::ManagementReply reply;
    host::parseManagementReply(m_journal->handleManagement(host::managementGetRequest({key})), reply);
    return reply.settings.empty() ? std::string() : reply.settings.front().value;
  }

  // Sets `key` to `value` unless it has it already (or `always`); true when it was taken. A
  // value the journal refuses leaves the value known here as it was.
  bool change(const std::string& key, const std::string& value, bool always = false) {
    std::string& current = m_values[key];
    if (current == value && !always) return false;
    std::string reason;
    if (always && current == value) {
      // The same value again tells no observer: an other value first.
      m_journal->setValue(key, value + "1", reason);
    }
    if (!m_journal->setValue(key, value, reason)) return false;
    current = value;
    if (key == "system-identifier") m_flavourRead = m_values["software-type"];
    return true;
  }

  host::JournalHost* m_journal = nullptr;
  SqliteDataAccessService* m_store = nullptr;
  std::map<std::string, std::string> m_values;    // the values in force, as set through this phone
  std::map<std::string, std::string> m_baseline;  // what endInput puts back
  std::string m_flavourRead;                      // the software type the journal read last
  ListIds m_lists;                                // the lists' entries when the last input ended
  int64_t m_now = 0;                              // the phone's clock, in seconds (civil)
  int64_t m_start = 0;                            // where it started
};

}  // namespace fuzz
