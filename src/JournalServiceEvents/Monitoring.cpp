// The CSTA monitor of the phone's own line: start, stop, the filter change made after the system
// values were read, and the registration for the switch's system status. Requests are sent
// synchronously on the calling thread.
#include <cstring>

#include "JournalLog.h"
#include "JournalService.h"
#include "framework/CstaEvents.h"
#include "framework/CstaRequests.h"

using journal::kEventsLog;

namespace {

constexpr const char* kLocalDevice = "localDeviceID";

// Device, vendor and system events are filtered out in both filters; call-log entries and system
// status are reported.
void setDeviceAndSystemCategories(CSTAMonitorFilter& f) {
  f.setCallAssociatedFilter(true);
  f.setPhysicalDeviceFilter(true);
  f.setLogicalDeviceFilter(true);
  f.setVendorSpecificFilter(true);
  f.setCallLogEntryFilter(false);
  f.setSystemFilter(true);
  f.setSystemStatusFilter(false);
}

// Call control and call information are reported; held, retrieved, initiated and transferred
// calls are not needed.
void setCallCategories(CSTAMonitorFilter& f) {
  f.setCallControlFilter(false);
  f.setHeldFilter(true);
  f.setRetrievedFilter(true);
  f.setServiceInitiatedFilter(true);
  f.setTransferredFilter(true);
  f.setCallInformationFilter(false);
}

// The filter of the monitor started by startEvents.
CSTAMonitorFilter startFilter() {
  CSTAMonitorFilter f;
  setCallCategories(f);
  setDeviceAndSystemCategories(f);
  return f;
}

// The filter set after the system values were read: call control only where the phone keeps its
// own call log.
CSTAMonitorFilter changedFilter(bool localCallLog) {
  CSTAMonitorFilter f;
  f.setCallControlFilter(true);
  setDeviceAndSystemCategories(f);
  f.setFS_DNDFilter(false);
  f.setFS_COCFilter(false);
  if (localCallLog) {
    JLOG(kEventsLog, 5, "%s():m_useCSTACallControlEvents == true => CallControl plus CallInfo", "readLocalMgmtData");
    setCallCategories(f);
  }
  return f;
}

// Logs the outcome of a request; true for a response without error.
bool logOutcome(const char* function, const CSTARequest& request) {
  if (request.getResponseCode() != 0) {
    JLOG(kEventsLog, 5, "%s():Returned ERROR", function);
  } else if (!request.getResponse()) {
    JLOG(kEventsLog, 5, "%s():Returned NULL response", function);
  } else if (request.getResponse()->isError()) {
    JLOG(kEventsLog, 5, "%s():Returned an error response", function);
  } else {
    JLOG(kEventsLog, 5, "%s():OK", function);
    return true;
  }
  return false;
}

}  // namespace

void JournalService::startEvents() {
  JLOG(kEventsLog, 5, "JournalService():startEvents()");
  if (!m_pCSTASvc) return;
  CSTAMonitorStartRequest request;
  request.setSourceService(this);
  request.setCSTAEventIfc(this);
  request.setDeviceObject(kLocalDevice);
  // A SIP phone monitors without a filter.
  if (!isSipSwitch()) request.setRequestedMonitorFilter(startFilter());
  m_pCSTASvc->sendRequest(request);
  if (request.getResponseCode() == 0 && request.getResponse() && !request.getResponse()->isError()) {
    auto* response = dynamic_cast<CSTAMonitorStartResponse*>(request.getResponse());
    std::string id = response ? response->GetMonitorCrossRefID() : std::string();
    std::strncpy(m_monitorCrossRefId, id.c_str(), sizeof m_monitorCrossRefId - 1);
    m_eventsStarted = true;
  }
  logOutcome("startEvents", request);
}

void JournalService::stopEvents() {
  JLOG(kEventsLog, 5, "JournalService():stopEvents()");
  if (!m_pCSTASvc) return;
  CSTAMonitorStopRequest request;
  request.setMonitorCrossRefID(m_monitorCrossRefId);
  m_pCSTASvc->sendRequest(request);
  if (logOutcome("stopEvents", request)) m_eventsStarted = false;
}

void JournalService::CSTASystemRegister() {
  JLOG(kEventsLog, 4, "JournalService::CSTASystemRegister - register with CSTA Service");
  if (!m_pCSTASvc) return;
  CSTASystemStatusRequest request;
  request.setSourceService(this);
  m_pCSTASvc->sendRequest(request);
  if (request.getResponseCode() != 0) {
    JLOG(kEventsLog, 2, "JournalService() : response code is error");
  } else {
    JLOG(kEventsLog, 5, "JournalService() : response code is ok");
  }
}

void JournalService::changeMonitorFilter() {
  if (isSipSwitch() || !m_pCSTASvc) return;
  JLOG(kEventsLog, 5, "%s():begin change monitor filter", "readLocalMgmtData");
  CSTAChangeMonitorFilterRequest request;
  request.setSourceService(this);
  request.setCSTAEventIfc(this);
  request.setDeviceObject(kLocalDevice);
  request.setRequestedFilterList(changedFilter(m_localCallLog));
  m_pCSTASvc->sendRequest(request);
  logOutcome("readLocalMgmtData", request);
}

// The switch lost track of its calls (clean-up) or stopped serving the line: the calls and
// conferences followed here are released without entries, as their events will not come.
void JournalService::handleCSTASystemStatusEvent(CSTASystemStatusEvent* event) {
  JLOG(kEventsLog, 4, "JournalService::handleCSTASystemStatusEvent called");
  if (isSipSwitch() && !m_callLogEnabled) return;
  CriticalSection guard(m_callsLock);
  const std::string& status = event->getSystemStatus();
  const CSTASystemStatusFeatureData& feature = event->getSystemStatusFeatureData();
  JLOG(kEventsLog, 5,
       "CSTASystemStatusEvent  EVENT\n          ********** Status ***************\n          systemStatus = %s\n     "
       "     statusInfo   = %s\n          ********** FeatureData **********\n          featureName  = %s\n          "
       "Action       = %s\n          DeActivation = %s\n          Status       = %s\n          Availability = %s\n   "
       "       ButtonID     = %s\n",
       status.c_str(), event->getSystemStatusInfo().c_str(), feature.featureName.c_str(), feature.action.c_str(),
       feature.deactivation.c_str(), feature.status.c_str(), feature.availability.c_str(), feature.buttonId.c_str());
  namespace texts = communicationsServiceTexts;
  if (status == texts::systemState_cleanup) {
    if (getNumberOfCalls() > 0) JLOG(kEventsLog, 2, "Calls are out of sync. with PBX, release all existing calls");
    if (getNumberOfConferences() > 0)
      JLOG(kEventsLog, 2, "Conferences are out of sync. with PBX, release all existing conferences");
  } else if (status != texts::systemState_disabled && status != texts::systemState_partiallyDisabled &&
             status != texts::systemState_reset && status != texts::systemState_stopped) {
    return;
  }
  removeAllCalls();
  removeAllConferences();
}
