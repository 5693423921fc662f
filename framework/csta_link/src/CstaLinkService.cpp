// The CSTA service over the switch link: synchronous requests and the delivery of events on the
// event thread. The monitors are in CstaLinkMonitors.cpp, the socket side in CstaLinkIo.cpp, the
// XML of requests and answers in CstaLinkXml.cpp.
#include <algorithm>
#include <chrono>

#include "CstaLinkInternal.h"
#include "framework/CstaEvents.h"

namespace fw {

CstaLinkService::Impl::Impl(CstaLinkOptions o) : options(std::move(o)) {
  retryDelayMs = options.reconnectInitialMs;
  monitorRetryDelayMs = options.reconnectInitialMs;
}

CstaLinkService::CstaLinkService(CstaLinkOptions options) : m_impl(std::make_unique<Impl>(std::move(options))) {}

CstaLinkService::~CstaLinkService() { stop(); }

void CstaLinkService::start() {
  Impl& d = *m_impl;
  {
    MutexLock guard(d.m_linkMutex);
    if (d.running) return;
    d.running = true;
    d.events = std::make_shared<WorkQueue>("CSTA events");
    d.stateSince = std::chrono::system_clock::now();
    d.downReason = d.options.answerLocally ? "" : d.options.port <= 0 ? "no switch configured" : "not reached yet";
  }
  if (d.options.answerLocally) {
    CSTA_LOG(kLogNotable, "CSTA service answers requests locally (no switch)");
    return;
  }
  if (d.options.port <= 0) {
    CSTA_LOG(kLogError, "CSTA service has no switch port configured; requests will fail");
    return;
  }
  d.work.emplace(asio::make_work_guard(d.io));
  asio::post(d.io, [&d] { d.connect(); });
  d.ioThread = std::thread([&d] { d.io.run(); });
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(d.options.requestTimeoutMs);
  MutexLock guard(d.m_linkMutex);
  while (!d.firstAttemptDone && d.m_linkCv.waitUntil(d.m_linkMutex, deadline)) {
  }
}

void CstaLinkService::stop() {
  Impl& d = *m_impl;
  {
    MutexLock guard(d.m_linkMutex);
    if (!d.running || d.stopping) return;
    d.stopping = true;
  }
  if (d.ioThread.joinable()) {
    d.io.stop();
    d.ioThread.join();
  }
  asio::error_code ignored;
  d.socket.close(ignored);
  std::shared_ptr<WorkQueue> events;
  {
    MutexLock guard(d.m_linkMutex);
    d.isConnected = false;
    for (auto& [id, request] : d.pending) {
      request->done = true;
      request->code = kCstaLinkDropped;
    }
    d.pending.clear();
  }
  d.m_linkCv.notifyAll();
  d.releaseHeld();  // held events are delivered like the others already queued
  {
    MutexLock guard(d.m_linkMutex);
    events = std::move(d.events);
  }
  events.reset();  // the last owner delivers what is queued and joins the event thread
  CSTA_LOG(kLogNotable, "CSTA service stopped");
}

bool CstaLinkService::connected() const {
  const Impl& d = *m_impl;
  if (d.options.answerLocally) {
    MutexLock guard(d.m_linkMutex);
    return d.running && !d.stopping;
  }
  return d.isConnected;
}

CstaLinkService::LinkState CstaLinkService::linkState() const {
  const Impl& d = *m_impl;
  LinkState state;
  {
    MutexLock guard(d.m_linkMutex);
    state.connected = d.options.answerLocally ? d.running && !d.stopping : d.isConnected.load();
    state.since = d.stateSince;
    state.reason = d.downReason;
  }
  state.monitors = monitors();
  return state;
}

void CstaLinkService::setStateListener(StateListener listener) {
  MutexLock guard(m_impl->m_linkMutex);
  m_impl->stateListener = std::move(listener);
}

void CstaLinkService::Impl::noteLinkChange(bool up, const std::string& reason) {
  isConnected = up;
  stateSince = std::chrono::system_clock::now();
  downReason = up ? std::string() : reason;
}

// The listener is copied under the lock and called without it: it may take locks of its own
// (a host's watchers) and read the link's state.
void CstaLinkService::Impl::reportState() {
  StateListener listener;
  LinkState state;
  {
    MutexLock guard(m_linkMutex);
    if (!stateListener) return;
    listener = stateListener;
    state.connected = isConnected;
    state.since = stateSince;
    state.reason = downReason;
  }
  {
    MutexLock guard(m_monitorMutex);
    for (const Monitor& m : monitors) {
      ++state.monitors.asked;
      if (!m.currentId.empty()) ++state.monitors.running;
    }
  }
  listener(state);
}

CstaLinkService::MonitorCount CstaLinkService::monitors() const {
  MutexLock guard(m_impl->m_monitorMutex);
  MonitorCount count;
  for (const Impl::Monitor& m : m_impl->monitors) {
    ++count.asked;
    if (!m.currentId.empty()) ++count.running;
  }
  return count;
}

std::size_t CstaLinkService::stopUnclaimedMonitors() { return m_impl->stopUnclaimedMonitors(); }

void CstaLinkService::holdEvents() {
  MutexLock guard(m_impl->m_linkMutex);
  m_impl->eventsHeld = true;
}

void CstaLinkService::releaseEvents() { m_impl->releaseHeld(); }

void CstaLinkService::drainEvents() {
  std::shared_ptr<WorkQueue> events;
  {
    MutexLock guard(m_impl->m_linkMutex);
    events = m_impl->events;
  }
  if (events) events->drain();
}

bool CstaLinkService::deliverDocument(const std::string& xml, std::string& error) {
  csta_xml::CstaParseResult parsed = csta_xml::parseCstaEvent(xml);
  if (parsed.kind == csta_xml::CstaParseResult::Malformed) {
    error = "malformed XML: " + parsed.error;
    return false;
  }
  if (parsed.kind != csta_xml::CstaParseResult::Event) {
    error = "not an event: " + (parsed.elementName.empty() ? std::string("(no element)") : parsed.elementName);
    return false;
  }
  {
    MutexLock guard(m_impl->m_linkMutex);
    if (!m_impl->events) {
      error = "the CSTA service is not running";
      return false;
    }
  }
  m_impl->queueEvent(std::move(parsed));
  return true;
}

void CstaLinkService::sendRequest(CSTARequest& request) {
  Impl& d = *m_impl;
  if (auto* start = dynamic_cast<CSTAMonitorStartRequest*>(&request)) {
    d.monitorStart(*start);
  } else if (auto* stop = dynamic_cast<CSTAMonitorStopRequest*>(&request)) {
    d.monitorStop(*stop);
  } else if (auto* change = dynamic_cast<CSTAChangeMonitorFilterRequest*>(&request)) {
    d.changeFilter(*change);
  } else if (auto* status = dynamic_cast<CSTASystemStatusRequest*>(&request)) {
    d.systemRegister(*status);
  } else if (auto* escape = dynamic_cast<CSTAEscapeRequest*>(&request)) {
    d.escape(*escape);
  } else {
    CSTA_LOG(kLogError, "CSTA request %s is not supported", request.requestName());
    request.setResponse(kCstaLinkUnsupported, nullptr);
  }
}

// ---- requests ----

CstaLinkService::Impl::Answer CstaLinkService::Impl::exchange(const char* requestName, const std::string& xml,
                                                              AnswerHook onAnswer) {
  Answer answer;
  Pending waiting;
  waiting.onAnswer = std::move(onAnswer);
  int invokeId = 0;
  unsigned connection = 0;
  MutexLock lock(m_linkMutex);
  if (!isConnected || stopping) {
    CSTA_LOG(kLogTrace, "CSTA %s not sent: no link to the switch", requestName);
    return answer;
  }
  invokeId = takeInvokeId();
  pending[invokeId] = &waiting;
  connection = linkGeneration;
  answer.connection = connection;
  lock.unlock();

  std::string frame = csta_xml::encodeFrame(invokeId, xml);
  asio::post(io, [this, connection, frame = std::move(frame)]() mutable {
    // A request made for a connection that has since dropped was already failed.
    if (connection == generation && socket.is_open()) write(std::move(frame));
  });
  CSTA_LOG(kLogTrace, "CSTA %s sent as %04d", requestName, invokeId);

  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(options.requestTimeoutMs);
  lock.lock();
  while (!waiting.done && m_linkCv.waitUntil(m_linkMutex, deadline)) {
  }
  if (!waiting.done) {
    pending.erase(invokeId);
    lock.unlock();
    CSTA_LOG(kLogError, "CSTA %s (%04d): no answer within %d ms", requestName, invokeId, options.requestTimeoutMs);
    answer.code = kCstaLinkTimedOut;
    return answer;
  }
  lock.unlock();
  answer.code = waiting.code;
  if (answer.code != kCstaLinkAnswered) {
    CSTA_LOG(kLogError, "CSTA %s (%04d): link dropped while waiting", requestName, invokeId);
    return answer;
  }
  answer.response = link::parseResponse(requestName, waiting.answerXml);
  return answer;
}

// Ids 0000-9998 in turn, passing over ids still waiting for their answer. m_linkMutex is held.
int CstaLinkService::Impl::takeInvokeId() {
  int invokeId = 0;
  do {
    invokeId = nextInvokeId;
    nextInvokeId = (nextInvokeId + 1) % csta_xml::kEventInvokeId;
  } while (pending.count(invokeId));
  return invokeId;
}

int CstaLinkService::Impl::localState() {
  MutexLock guard(m_linkMutex);
  return running && !stopping ? kCstaLinkAnswered : kCstaLinkNotConnected;
}

std::string CstaLinkService::Impl::deviceOnWire(const std::string& device) const {
  return device == link::kLocalDevice && !options.monitoredDevice.empty() ? options.monitoredDevice : device;
}

void CstaLinkService::Impl::systemRegister(CSTASystemStatusRequest& request) {
  {
    MutexLock guard(m_monitorMutex);
    if (auto* sink = dynamic_cast<CSTAEventIfc*>(request.getSourceService());
        sink && std::find(statusSinks.begin(), statusSinks.end(), sink) == statusSinks.end())
      statusSinks.push_back(sink);
    systemRegisterMade = true;
    registering = !options.answerLocally;
  }
  if (options.answerLocally) {
    const int state = localState();
    return request.setResponse(state, state == kCstaLinkAnswered ? new CSTAGenericResponse(false) : nullptr);
  }
  Answer answer = exchange("SystemRegister", link::systemRegisterXml());
  noteRegistration(answer);
  request.setResponse(answer.code, answer.response.release());
}

void CstaLinkService::Impl::noteRegistration(const Answer& answer) {
  MutexLock guard(m_monitorMutex);
  registering = false;
  if (answer.response && !answer.response->isError()) registeredOn = answer.connection;
}

unsigned CstaLinkService::Impl::currentConnection() {
  MutexLock guard(m_linkMutex);
  return linkGeneration;
}

void CstaLinkService::Impl::escape(CSTAEscapeRequest& request) {
  if (request.getEventType() != CSTAEscapeRequest::kPrivateRequestCallLogEntry) {
    CSTA_LOG(kLogError, "CSTA Escape of private request type %d is not supported", request.getEventType());
    return request.setResponse(kCstaLinkUnsupported, nullptr);
  }
  if (options.answerLocally) {
    const int state = localState();
    return request.setResponse(state, state == kCstaLinkAnswered ? new CSTAGenericResponse(false) : nullptr);
  }
  Answer answer = exchange("Escape", link::escapeXml(request.getCallLogEntry()));
  request.setResponse(answer.code, answer.response.release());
}

// ---- events ----

void CstaLinkService::Impl::post(std::function<void()> task) {
  std::shared_ptr<WorkQueue> queue;
  {
    MutexLock guard(m_linkMutex);
    if (eventsHeld || releasing) {
      heldTasks.push_back(std::move(task));
      return;
    }
    queue = events;
  }
  if (queue) queue->post(std::move(task));
}

// The held tasks go to the queue in batches taken under m_linkMutex; while a batch is handed over
// (without the lock: the queue has a lock of its own) new tasks still join heldTasks, so that they
// follow the batch.
void CstaLinkService::Impl::releaseHeld() {
  {
    MutexLock guard(m_linkMutex);
    if (!eventsHeld || releasing) return;
    eventsHeld = false;
    releasing = true;
  }
  for (;;) {
    std::deque<std::function<void()>> batch;
    std::shared_ptr<WorkQueue> queue;
    {
      MutexLock guard(m_linkMutex);
      if (heldTasks.empty()) {
        releasing = false;
        return;
      }
      batch.swap(heldTasks);
      queue = events;
    }
    if (!queue) continue;  // not running: what was held is dropped
    for (auto& task : batch) queue->post(std::move(task));
  }
}

void CstaLinkService::Impl::queueEvent(csta_xml::CstaParseResult parsed) {
  switch (parsed.kind) {
    case csta_xml::CstaParseResult::Malformed:
      CSTA_LOG(kLogError, "CSTA event document is not well-formed (%s); skipped", parsed.error.c_str());
      return;
    case csta_xml::CstaParseResult::Unknown:
      CSTA_LOG(kLogTrace, "CSTA document %s is not an event read here; skipped", parsed.elementName.c_str());
      return;
    case csta_xml::CstaParseResult::Event:
      break;
  }
  std::shared_ptr<CSTAEvent> event(std::move(parsed.event));
  const bool systemStatus = parsed.elementName == "SystemStatus";
  post([this, event, id = std::move(parsed.monitorCrossRefId), systemStatus] { routeEvent(*event, id, systemStatus); });
}

std::vector<CSTAEventIfc*> CstaLinkService::Impl::registrants() {
  MutexLock guard(m_monitorMutex);
  std::vector<CSTAEventIfc*> sinks = statusSinks;
  for (const Monitor& m : monitors)
    if (m.sink && std::find(sinks.begin(), sinks.end(), m.sink) == sinks.end()) sinks.push_back(m.sink);
  return sinks;
}

void CstaLinkService::Impl::routeEvent(CSTAEvent& event, const std::string& crossRefId, bool systemStatus) {
  std::vector<CSTAEventIfc*> sinks;
  if (systemStatus) {
    sinks = registrants();
  } else {
    MutexLock guard(m_monitorMutex);
    for (const Monitor& m : monitors) {
      if (!crossRefId.empty() && m.currentId == crossRefId && m.sink) {
        sinks.assign(1, m.sink);
        break;
      }
      if (m.sink && std::find(sinks.begin(), sinks.end(), m.sink) == sinks.end()) sinks.push_back(m.sink);
    }
  }
  if (sinks.empty()) {
    CSTA_LOG(kLogTrace, "CSTA %s: no monitor to deliver to; skipped", event.eventName());
    return;
  }
  for (CSTAEventIfc* sink : sinks) sink->deliverEvent(&event);
}

void CstaLinkService::Impl::deliverStatus(const char* status) {
  CSTASystemStatusEvent event;
  event.setSystemStatus(status);
  for (CSTAEventIfc* sink : registrants()) sink->deliverEvent(&event);
}

}  // namespace fw
