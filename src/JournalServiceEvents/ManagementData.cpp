// The journal's own settings (kept in the store) and the management agent that serves them:
// reads, writes and change notifications of management keys.
#include "JournalService/ListAccess.h"

using journal::kEventsLog;
using journal::kStoreFailed;

namespace {

const char* boolText(bool value) { return value ? "true" : "false"; }

// "missed-logging" is coded the other way round: "0" means missed calls are logged.
const char* missedLoggingText(bool logging) { return logging ? "0" : "1"; }
const char* deleteMissedText(bool on) { return on ? "1" : "0"; }

// A write that changed nothing because the setting already had that value is refused with code 10.
void noteUnchanged(bool member, const char* tag, const std::string& value, std::string& reason) {
  if (member == ClientUtils::stob(value))
    setRejectReason(kRejectValueNotChanged, reason, "%s value is not changed", tag);
}

}  // namespace

// ---- Settings in the store --------------------------------------------------------------------

void JournalService::readConfigItemsFromDB() {
  std::string message = Helper::createXMLField(Helper::REASONFORMESSAGE, Helper::READREQUEST);
  Helper::addXMLHeaderFooter(message, Helper::SETTINGS_SCHEMA);
  std::string reply = processRequest(message);
  if (reply == kStoreFailed) return;
  std::string value;
  if (Helper::getXMLValue(reply, Helper::CALL_LOG_ENABLED, value)) m_callLogEnabled = ClientUtils::stob(value);
  if (Helper::getXMLValue(reply, Helper::MISSED_LOGGING, value)) m_missedLogging = ClientUtils::stob(value);
  if (Helper::getXMLValue(reply, Helper::DELETE_MISSED_WHEN_CALLED, value))
    m_deleteMissedWhenCalled = ClientUtils::stob(value);
}

bool JournalService::updateBoolConfigItem(std::atomic<bool>& member, const char* tag, const std::string& value) {
  std::string message =
      Helper::createXMLField(Helper::REASONFORMESSAGE, Helper::UPDATEREQUEST) + Helper::createXMLField(tag, value);
  Helper::addXMLHeaderFooter(message, Helper::SETTINGS_SCHEMA);
  // The store is written even when the value does not change.
  if (processRequest(message) == kStoreFailed) return false;
  bool newValue = ClientUtils::stob(value);
  if (newValue == member) return false;
  member = newValue;
  return true;
}

bool JournalService::updateEnabledState(const std::string& value, std::string& reason) {
  bool changed = updateBoolConfigItem(m_callLogEnabled, Helper::CALL_LOG_ENABLED, value);
  if (changed)
    handleEnabledStateChange();
  else
    noteUnchanged(m_callLogEnabled, Helper::CALL_LOG_ENABLED, value, reason);
  return changed;
}

bool JournalService::updateMissedLoggingState(const std::string& value, std::string& reason) {
  bool changed = updateBoolConfigItem(m_missedLogging, Helper::MISSED_LOGGING, value);
  if (!changed) noteUnchanged(m_missedLogging, Helper::MISSED_LOGGING, value, reason);
  return changed;
}

bool JournalService::updateDeleteMissedWhenCalledState(const std::string& value, std::string& reason) {
  bool changed = updateBoolConfigItem(m_deleteMissedWhenCalled, Helper::DELETE_MISSED_WHEN_CALLED, value);
  if (!changed) noteUnchanged(m_deleteMissedWhenCalled, Helper::DELETE_MISSED_WHEN_CALLED, value, reason);
  return changed;
}

void JournalService::handleEnabledStateChange() {
  if (!m_callLogEnabled) deleteCallLists();
}

// ---- Publication ------------------------------------------------------------------------------

void JournalService::publishManageableDataChange(const char* key, const char* value) {
  if (!m_pLocalMgmt) return;
  ManageableData data;
  data.populate(key, value);
  m_pLocalMgmt->publishData(data);
}

void JournalService::publishCallLogEnableState() {
  publishManageableDataChange("call-log-enabled", boolText(m_callLogEnabled));
}
void JournalService::publishMissedLoggingState() {
  publishManageableDataChange("missed-logging", missedLoggingText(m_missedLogging));
}
void JournalService::publishDeleteMissedWhenCalledState() {
  publishManageableDataChange("delete-missed-when-called", deleteMissedText(m_deleteMissedWhenCalled));
}

// ---- Management agent -------------------------------------------------------------------------

// Applies one written key; sets `reason` when the write is refused or changes nothing.
bool JournalService::applyManageableValue(const std::string& key, const std::string& value, std::string& reason) {
  if (key == "clear-calllog" && value == "true") return deleteCallLists();
  if (key == "call-log-enabled") return updateEnabledState(value, reason);
  if (key == "missed-logging") return updateMissedLoggingState(value == "0" ? "true" : "false", reason);
  if (key == "delete-missed-when-called")
    return updateDeleteMissedWhenCalledState(value == "1" ? "true" : "false", reason);
  setRejectReason(kRejectDataInvalid, reason, "Data invalid (%s) for JournalService", key.c_str());
  JLOG(kEventsLog, 5, "%s is not available from this service.", key.c_str());
  return false;
}

bool JournalService::setData(ManageableData& data) {
  CriticalSection guard(m_dataLock);
  bool result = true;
  for (const std::string& key : data.getRootIds()) {
    std::string value;
    data.interogate(key, value);
    std::string reason;
    result = applyManageableValue(key, value, reason);
    if (!reason.empty()) data.addRejectReason(key, std::string(), reason);
  }
  return result;
}

// The served value of `key`; empty for a key this service does not serve.
std::string JournalService::manageableValue(const std::string& key) const {
  if (key == "clear-calllog") return "false";
  if (key == "call-log-enabled") return boolText(m_callLogEnabled);
  if (key == "missed-logging") return missedLoggingText(m_missedLogging);
  if (key == "delete-missed-when-called") return deleteMissedText(m_deleteMissedWhenCalled);
  if (key == "store-state") return storeStateText();  // read only
  return std::string();
}

bool JournalService::getData(ManageableData& data) {
  CriticalSection guard(m_dataLock);
  for (const std::string& key : data.getRootIds()) {
    std::string value = manageableValue(key);
    if (value.empty()) {
      // An unknown key ends the request: the keys after it are not populated either.
      JLOG(kEventsLog, 5, "%s is not available from this service.", key.c_str());
      break;
    }
    data.populate(key, value);
  }
  return true;
}

void JournalService::manageableDataChanged(ManageableData& data) {
  for (const std::string& key : data.getRootIds()) {
    std::string value;
    data.interogate(key, value);
    JLOG(kEventsLog, 5, "%s():manageable data %s changed", __func__, key.c_str());
    if (key == "sntp-tz-offset") {
      readLocalMgmtData(1);
    } else if (key == "daylight-save" || key == "daylight-save-minutes") {
      readLocalMgmtData(2);
    } else if (key == "mobility-user-data-update") {
      JLOG(kEventsLog, 5, "mobility user update");
      onUserDataChanged();
    } else if (key == "disable-access-calllog") {
      onCallLogAccessChanged(value);
    } else if (key == "server-based-features") {
      m_serverBasedFeatures = value == "true";
      JLOG(kEventsLog, 5, "%s():setting ServerBasedFeatures:%s", __func__, value.c_str());
    } else if (key == "call-record-max-idle-hours") {
      readLocalMgmtData(8);
    } else if (key == "mobility-current-user") {
      JLOG(kEventsLog, 5, "mobility current user %s", value.c_str());
      m_visitorCallLogChanged = false;
      readLocalMgmtData(4);
    } else {
      readLocalMgmtData(4);
    }
  }
}

// Another user's journal is now the phone's: reload everything and show it.
void JournalService::onUserDataChanged() {
  loadCallListsFromDb();
  readConfigItemsFromDB();
  handleEnabledStateChange();
  m_pObserverNotifier->updateAll(countUnviewedMissedCalls());
  if (!isSipSwitch()) return;
  publishCallLogEnableState();
  publishMissedLoggingState();
  publishDeleteMissedWhenCalledState();
}

// "0" gives the user access to the call log (monitor running); "1" and "2" take it away.
void JournalService::onCallLogAccessChanged(const std::string& value) {
  JLOG(kEventsLog, 5, "Call log data state changed. State = %s", value.c_str());
  if (value == "0") {
    if (m_eventsStarted) {
      JLOG(kEventsLog, 5, "manageableDataChanged() : Call log data state - events already started");
    } else {
      JLOG(kEventsLog, 5, "startEvents");
      startEvents();
    }
    refreshCallLog();
  } else if (value == "1" || value == "2") {
    if (m_eventsStarted) {
      JLOG(kEventsLog, 5, "stopEvents");
      stopEvents();
    } else {
      JLOG(kEventsLog, 5, "Events already stopped");
    }
  } else {
    JLOG(kEventsLog, 2, "Invalid Call log data state");
  }
}
