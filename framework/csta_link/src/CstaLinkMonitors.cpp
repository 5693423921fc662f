// The monitors of the CSTA link. The link keeps every monitor a module asked for until the module
// stops it, and keeps it running on the switch whenever the link is up:
//   - a MonitorStart while the switch cannot be reached is accepted with an id of the link's own,
//     and the monitor is started at the switch when the link comes up;
//   - a MonitorStart the switch refuses (or does not answer) is reported to the module as the
//     failure it is, and the link tries again with growing delays while the link is up;
//   - after every connection the monitors that do not run are started again; the module keeps
//     the id it was handed first, and requests with it are sent with the switch's current id;
//   - a monitor whose module was never handed an id (its start was refused, the link's retry
//     started it) can only be stopped through stopUnclaimedMonitors().
// A monitor is registered before its MonitorStart is sent, and the switch's id is put in place on
// the I/O thread as the answer is read, so an event right behind the answer finds its monitor.
#include <algorithm>
#include <vector>

#include "CstaLinkInternal.h"
#include "framework/CstaEvents.h"

namespace fw {

namespace {

// The cross-reference id in a MonitorStart answer; empty for an error or another answer.
std::string startedId(const CSTAResponse* response) {
  auto* started = dynamic_cast<const CSTAMonitorStartResponse*>(response);
  return started && !started->isError() ? started->GetMonitorCrossRefID() : std::string();
}

std::string failureText(const CstaLinkService::Impl::Answer& answer) {
  switch (answer.code) {
    case kCstaLinkAnswered:
      return "refused by the switch";
    case kCstaLinkNotConnected:
      return "no link";
    case kCstaLinkTimedOut:
      return "no answer";
    case kCstaLinkDropped:
      return "the link dropped";
    default:
      return "code " + std::to_string(answer.code);
  }
}

}  // namespace

void CstaLinkService::Impl::monitorStart(CSTAMonitorStartRequest& request) {
  if (options.answerLocally) return monitorStartLocally(request);
  const Claim claim = claimMonitor(request);
  const std::string onWire = deviceOnWire(claim.device);
  switch (claim.action) {
    case Claim::Running:
      CSTA_LOG(kLogTrace, "CSTA monitor of %s runs already as %s", onWire.c_str(), claim.moduleId.c_str());
      return request.setResponse(kCstaLinkAnswered, new CSTAMonitorStartResponse(claim.moduleId));
    case Claim::Accepted:
      CSTA_LOG(kLogTrace, "CSTA monitor of %s accepted as %s; it starts when the switch answers", onWire.c_str(),
               claim.moduleId.c_str());
      return request.setResponse(kCstaLinkAnswered, new CSTAMonitorStartResponse(claim.moduleId));
    case Claim::Send:
      break;
  }
  Answer answer = startAtSwitch(claim, nullptr);
  if (answer.code == kCstaLinkAnswered && !startedId(answer.response.get()).empty()) markClaimed(claim.serial);
  request.setResponse(answer.code, answer.response.release());
}

void CstaLinkService::Impl::markClaimed(unsigned serial) {
  MutexLock guard(m_monitorMutex);
  for (Monitor& m : monitors)
    if (m.serial == serial) m.claimed = true;
}

std::size_t CstaLinkService::Impl::stopUnclaimedMonitors() {
  std::vector<Monitor> unclaimed;
  {
    MutexLock guard(m_monitorMutex);
    const auto split =
        std::stable_partition(monitors.begin(), monitors.end(), [](const Monitor& m) { return m.claimed; });
    unclaimed.assign(split, monitors.end());
    monitors.erase(split, monitors.end());
  }
  // Erased first, so that neither a retry nor a return of the link starts them again.
  for (const Monitor& m : unclaimed) {
    const std::string onWire = deviceOnWire(m.device);
    if (m.currentId.empty() || options.answerLocally) {
      CSTA_LOG(kLogNotable, "CSTA monitor of %s no longer wanted: not started again", onWire.c_str());
      continue;
    }
    const Answer answer = exchange("MonitorStop", link::monitorStopXml(m.currentId));
    const bool stopped = answer.response && !answer.response->isError();
    CSTA_LOG(stopped ? kLogNotable : kLogError, "CSTA monitor of %s (cross-reference id %s) no longer wanted: %s",
             onWire.c_str(), m.currentId.c_str(), stopped ? "stopped" : "its stop failed");
  }
  return unclaimed.size();
}

// The monitor of the request's sink and device, made when it is the first such request; the
// latest request's filter is the one the monitor is started with from now on. m_monitorMutex is
// held.
CstaLinkService::Impl::Monitor* CstaLinkService::Impl::monitorOf(const CSTAMonitorStartRequest& request) {
  auto monitor = std::find_if(monitors.begin(), monitors.end(), [&](const Monitor& m) {
    return m.sink == request.getCSTAEventIfc() && m.device == request.getDeviceObject();
  });
  if (monitor == monitors.end()) {
    Monitor added;
    added.serial = ++monitorSerial;
    added.sink = request.getCSTAEventIfc();
    added.device = request.getDeviceObject();
    monitor = monitors.insert(monitors.end(), added);
  }
  monitor->hasFilter = request.hasMonitorFilter();
  monitor->filter = request.getRequestedMonitorFilter();
  return &*monitor;
}

void CstaLinkService::Impl::monitorStartLocally(CSTAMonitorStartRequest& request) {
  const int state = localState();
  if (state != kCstaLinkAnswered) return request.setResponse(state, nullptr);
  MutexLock guard(m_monitorMutex);
  Monitor* monitor = monitorOf(request);
  if (monitor->moduleId.empty()) monitor->moduleId = monitor->currentId = std::to_string(++localCrossRefId);
  monitor->claimed = true;
  request.setResponse(kCstaLinkAnswered, new CSTAMonitorStartResponse(monitor->moduleId));
}

CstaLinkService::Impl::Claim CstaLinkService::Impl::claimMonitor(const CSTAMonitorStartRequest& request) {
  MutexLock guard(m_monitorMutex);
  Monitor* monitor = monitorOf(request);

  Claim claim;
  claim.serial = monitor->serial;
  claim.device = monitor->device;
  if (monitor->hasFilter) claim.filter = monitor->filter;
  if (!monitor->currentId.empty()) {
    claim.action = Claim::Running;
  } else if (monitor->starting || !isConnected) {
    claim.action = Claim::Accepted;
    if (monitor->moduleId.empty()) monitor->moduleId = "L" + std::to_string(++localCrossRefId);
  } else {
    claim.action = Claim::Send;
    monitor->starting = true;
  }
  if (claim.action != Claim::Send) monitor->claimed = true;  // answered with moduleId below
  claim.moduleId = monitor->moduleId;
  return claim;
}

CstaLinkService::Impl::Answer CstaLinkService::Impl::startAtSwitch(const Claim& claim, bool* running) {
  const std::string onWire = deviceOnWire(claim.device);
  const unsigned serial = claim.serial;
  Answer answer = exchange("MonitorStart", link::monitorStartXml(onWire, claim.filter ? &*claim.filter : nullptr),
                           [this, serial](const std::string& xml) { monitorAnswered(serial, xml); });
  std::string runningAs, moduleId;
  bool kept = false;  // not stopped meanwhile
  {
    MutexLock guard(m_monitorMutex);
    for (Monitor& m : monitors) {
      if (m.serial != serial) continue;
      kept = true;
      m.starting = false;
      runningAs = m.currentId;
      moduleId = m.moduleId;
    }
  }
  if (running) *running = !runningAs.empty();
  if (!kept) {
    CSTA_LOG(kLogTrace, "CSTA monitor of %s was stopped while it started", onWire.c_str());
  } else if (runningAs.empty()) {
    scheduleMonitorRetry("monitor of " + onWire + ": " + failureText(answer));
  } else {
    CSTA_LOG(kLogNotable, "CSTA link to %s is up and the monitor of %s runs (cross-reference id %s)", address().c_str(),
             onWire.c_str(), runningAs.c_str());
    if (moduleId != runningAs)
      CSTA_LOG(kLogTrace, "CSTA monitor %s is %s at the switch", moduleId.c_str(), runningAs.c_str());
  }
  return answer;
}

void CstaLinkService::Impl::monitorAnswered(unsigned serial, const std::string& answerXml) {
  const std::string id = startedId(link::parseResponse("MonitorStart", answerXml).get());
  if (id.empty()) return;
  bool nowRunning = false;
  {
    MutexLock guard(m_monitorMutex);
    for (Monitor& m : monitors) {
      if (m.serial != serial) continue;
      nowRunning = m.currentId.empty();
      m.currentId = id;
      if (m.moduleId.empty()) m.moduleId = id;
    }
  }
  if (nowRunning) reportState();
}

void CstaLinkService::Impl::monitorStop(CSTAMonitorStopRequest& request) {
  const std::string& id = request.getMonitorCrossRefID();
  std::string onWire = id;
  bool known = false;
  {
    MutexLock guard(m_monitorMutex);
    const auto monitor = std::find_if(monitors.begin(), monitors.end(),
                                      [&](const Monitor& m) { return !id.empty() && m.moduleId == id; });
    if (monitor != monitors.end()) {
      known = true;
      onWire = monitor->currentId;
      // Not running on the switch (local answers, or not started there yet): nothing to stop there.
      if (options.answerLocally || onWire.empty()) {
        monitors.erase(monitor);
        CSTA_LOG(kLogTrace, "CSTA monitor %s stopped here only", id.c_str());
        return request.setResponse(kCstaLinkAnswered, new CSTAGenericResponse(false));
      }
    }
  }
  if (options.answerLocally) {
    const int state = localState();
    return request.setResponse(state, state == kCstaLinkAnswered ? new CSTAGenericResponse(false) : nullptr);
  }
  if (known && onWire != id) CSTA_LOG(kLogTrace, "CSTA MonitorStop %s sent as %s", id.c_str(), onWire.c_str());
  Answer answer = exchange("MonitorStop", link::monitorStopXml(onWire));
  if (known && answer.response && !answer.response->isError()) {
    MutexLock guard(m_monitorMutex);
    monitors.erase(std::remove_if(monitors.begin(), monitors.end(), [&](const Monitor& m) { return m.moduleId == id; }),
                   monitors.end());
  }
  request.setResponse(answer.code, answer.response.release());
}

void CstaLinkService::Impl::changeFilter(CSTAChangeMonitorFilterRequest& request) {
  std::string onWire;
  {
    MutexLock guard(m_monitorMutex);
    auto monitor = std::find_if(monitors.begin(), monitors.end(), [&](const Monitor& m) {
      return m.device == request.getDeviceObject() && m.sink == request.getCSTAEventIfc();
    });
    if (monitor == monitors.end())
      monitor = std::find_if(monitors.begin(), monitors.end(),
                             [&](const Monitor& m) { return m.device == request.getDeviceObject(); });
    if (monitor == monitors.end()) {
      // The journal sets its filter once it has read its configuration, which may come before its
      // monitor starts: there is nothing to change yet, and the start carries its own filter.
      CSTA_LOG(kLogNotable, "CSTA ChangeMonitorFilter: no monitor of device %s yet, not sent",
               request.getDeviceObject().c_str());
      return request.setResponse(kCstaLinkNoMonitor, nullptr);
    }
    if (options.answerLocally || monitor->currentId.empty()) {
      // Not running on the switch: the filter goes with its start.
      monitor->filter = request.getRequestedFilterList();
      monitor->hasFilter = true;
      return request.setResponse(kCstaLinkAnswered, new CSTAGenericResponse(false));
    }
    onWire = monitor->currentId;
  }
  Answer answer =
      exchange("ChangeMonitorFilter", link::changeMonitorFilterXml(onWire, request.getRequestedFilterList()));
  if (answer.response && !answer.response->isError()) {
    // Kept for the start after a return.
    MutexLock guard(m_monitorMutex);
    for (Monitor& m : monitors) {
      if (m.currentId != onWire) continue;
      m.filter = request.getRequestedFilterList();
      m.hasFilter = true;
    }
  }
  request.setResponse(answer.code, answer.response.release());
}

void CstaLinkService::Impl::forgetRunningMonitors() {
  MutexLock guard(m_monitorMutex);
  for (Monitor& m : monitors) m.currentId.clear();
}

void CstaLinkService::Impl::resumeSession(bool isReturn) {
  if (isReturn) deliverStatus(communicationsServiceTexts::systemState_enabled);
  // Registered again unless a module's registration on this connection came first.
  const unsigned connection = currentConnection();
  bool registerAgain = false;
  {
    MutexLock guard(m_monitorMutex);
    registerAgain = systemRegisterMade && !registering && registeredOn != connection;
    if (registerAgain) registering = true;
  }
  if (registerAgain) {
    Answer answer = exchange("SystemRegister", link::systemRegisterXml());
    noteRegistration(answer);
    if (!answer.response || answer.response->isError())
      CSTA_LOG(kLogError, "CSTA SystemRegister at %s failed (%s)", address().c_str(), failureText(answer).c_str());
  }
  startIdleMonitors();
}

void CstaLinkService::Impl::startIdleMonitors() {
  for (;;) {
    Claim claim;
    {
      MutexLock guard(m_monitorMutex);
      if (!isConnected) return;
      const auto idle = std::find_if(monitors.begin(), monitors.end(),
                                     [](const Monitor& m) { return m.currentId.empty() && !m.starting; });
      if (idle == monitors.end()) return;
      idle->starting = true;
      claim.serial = idle->serial;
      claim.device = idle->device;
      claim.moduleId = idle->moduleId;
      if (idle->hasFilter) claim.filter = idle->filter;
    }
    bool running = false;
    startAtSwitch(claim, &running);
    if (!running) return;  // a retry is armed
  }
}

}  // namespace fw
