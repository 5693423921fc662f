// The I/O thread of the CSTA link: connecting with growing delays, reading frames, writing queued
// frames. Everything here runs on the I/O thread; it hands answers to waiting requesters under
// m_linkMutex and events to the event thread, and never waits for either.
#include <algorithm>
#include <cstdio>

#include "CstaLinkInternal.h"
#include "framework/CstaEvents.h"

namespace fw {

void CstaLinkService::Impl::connect() {
  asio::error_code ec;
  asio::ip::tcp::resolver resolver(io);
  const auto endpoints = resolver.resolve(options.host, std::to_string(options.port), ec);
  if (ec) {
    connectFailed("cannot resolve " + options.host + ": " + ec.message());
    return;
  }
  const unsigned attempt = ++generation;
  asio::async_connect(socket, endpoints, [this, attempt](const asio::error_code& error, const auto&) {
    if (attempt != generation) return;
    if (error) {
      connectFailed(error.message());
    } else {
      onConnected();
    }
  });
}

std::string CstaLinkService::Impl::address() const { return options.host + ":" + std::to_string(options.port); }

namespace {

// Milliseconds as seconds for a log line: "0.5", "2", "30".
std::string seconds(int ms) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", ms / 1000.0);
  return text;
}

int grown(int delayMs, const CstaLinkOptions& options) {
  return std::min(delayMs * 2, std::max(options.reconnectMaxMs, options.reconnectInitialMs));
}

}  // namespace

// The first failed attempt of an outage is logged as an error, with when the next one comes;
// the later ones only at trace level.
void CstaLinkService::Impl::connectFailed(const std::string& reason) {
  asio::error_code ignored;
  socket.close(ignored);
  const int delay = scheduleReconnect();
  {
    MutexLock guard(m_linkMutex);
    downReason = reason;  // still down since the last change; this is why now
  }
  if (!outageLogged) {
    CSTA_LOG(kLogError, "CSTA link: the switch at %s cannot be reached (%s); next attempt in %s s", address().c_str(),
             reason.c_str(), seconds(delay).c_str());
    outageLogged = true;
  } else {
    CSTA_LOG(kLogTrace, "CSTA link to %s: attempt failed (%s); next attempt in %s s", address().c_str(), reason.c_str(),
             seconds(delay).c_str());
  }
  finishFirstAttempt();
}

int CstaLinkService::Impl::scheduleReconnect() {
  const int delay = retryDelayMs;
  retryDelayMs = grown(retryDelayMs, options);
  retryTimer.expires_after(std::chrono::milliseconds(delay));
  const unsigned attempt = generation;
  retryTimer.async_wait([this, attempt](const asio::error_code& error) {
    if (!error && attempt == generation) connect();
  });
  return delay;
}

void CstaLinkService::Impl::scheduleMonitorRetry(const std::string& reason) {
  asio::post(io, [this, reason] {
    if (!isConnected || monitorRetryArmed) return;
    monitorRetryArmed = true;
    const int delay = monitorRetryDelayMs;
    monitorRetryDelayMs = grown(monitorRetryDelayMs, options);
    CSTA_LOG(monitorFailureLogged ? kLogTrace : kLogError,
             "CSTA monitor could not be started at %s (%s); next attempt in %s s", address().c_str(), reason.c_str(),
             seconds(delay).c_str());
    monitorFailureLogged = true;
    monitorRetryTimer.expires_after(std::chrono::milliseconds(delay));
    const unsigned token = ++monitorRetryToken;
    monitorRetryTimer.async_wait([this, token](const asio::error_code& error) {
      if (token != monitorRetryToken) return;  // disarmed by a drop
      monitorRetryArmed = false;
      if (!error && isConnected) post([this] { startIdleMonitors(); });
    });
  });
}

void CstaLinkService::Impl::finishFirstAttempt() {
  {
    MutexLock guard(m_linkMutex);
    firstAttemptDone = true;
  }
  m_linkCv.notifyAll();
}

void CstaLinkService::Impl::onConnected() {
  ++generation;
  decoder.emplace(options.maxFrameSize);
  writeQueue.clear();
  retryDelayMs = options.reconnectInitialMs;
  monitorRetryDelayMs = options.reconnectInitialMs;
  monitorFailureLogged = false;
  const bool isReturn = everConnected;
  everConnected = true;
  outageLogged = false;
  asio::error_code ignored;
  socket.set_option(asio::ip::tcp::no_delay(true), ignored);
  CSTA_LOG(kLogNotable, "CSTA link to %s %s", address().c_str(), isReturn ? "is back" : "connected");
  {
    MutexLock guard(m_linkMutex);
    linkGeneration = generation;
    noteLinkChange(true, "");
    firstAttemptDone = true;
  }
  m_linkCv.notifyAll();
  post([this, isReturn] { resumeSession(isReturn); });
  reportState();
  readMore();
}

void CstaLinkService::Impl::dropLink(const std::string& reason) {
  if (!socket.is_open()) return;
  asio::error_code ignored;
  socket.close(ignored);
  ++generation;
  writeQueue.clear();
  {
    MutexLock guard(m_linkMutex);
    noteLinkChange(false, reason);
    for (auto& [id, request] : pending) {
      request->done = true;
      request->code = kCstaLinkDropped;
    }
    pending.clear();
  }
  m_linkCv.notifyAll();
  ++monitorRetryToken;
  monitorRetryArmed = false;
  monitorRetryTimer.cancel();
  forgetRunningMonitors();
  post([this] { deliverStatus(communicationsServiceTexts::systemState_disabled); });
  retryDelayMs = options.reconnectInitialMs;
  const int delay = scheduleReconnect();
  CSTA_LOG(kLogError, "CSTA link to %s lost (%s); next attempt in %s s", address().c_str(), reason.c_str(),
           seconds(delay).c_str());
  outageLogged = false;  // the first attempt that fails says that the switch cannot be reached
  reportState();
}

void CstaLinkService::Impl::readMore() {
  const unsigned connection = generation;
  socket.async_read_some(asio::buffer(readBuffer), [this, connection](const asio::error_code& error, std::size_t n) {
    if (connection != generation) return;
    if (error) {
      dropLink(error == asio::error::eof ? std::string("closed by the switch") : error.message());
      return;
    }
    decoder->feed(readBuffer.data(), n);
    try {
      for (csta_xml::CstaFrame frame; decoder->next(frame);) handleFrame(frame);
    } catch (const csta_xml::CstaFramingError& e) {
      CSTA_LOG(kLogError, "CSTA link: framing error: %s", e.what());
      dropLink("framing error");
      return;
    }
    readMore();
  });
}

void CstaLinkService::Impl::handleFrame(csta_xml::CstaFrame& frame) {
  if (frame.invokeId == csta_xml::kEventInvokeId) {
    queueEvent(csta_xml::parseCstaEvent(frame.xml));
    return;
  }
  // The switch's own request: answered at once under its invoke id, then passed on as an event.
  if (link::documentElementName(frame.xml) == "SystemStatus") {
    CSTA_LOG(kLogTrace, "CSTA link: SystemStatus request %04d answered", frame.invokeId);
    write(csta_xml::encodeFrame(frame.invokeId, csta_xml::systemStatusResponseXml()));
    queueEvent(csta_xml::parseCstaEvent(frame.xml));
    return;
  }
  // The hook runs before the waiting thread is woken and before the next frame is read: an event
  // right behind a MonitorStart answer finds the monitor's new id in place.
  AnswerHook hook;
  {
    MutexLock guard(m_linkMutex);
    const auto waiting = pending.find(frame.invokeId);
    if (waiting != pending.end()) hook = waiting->second->onAnswer;
  }
  if (hook) hook(frame.xml);
  bool matched = false;
  {
    MutexLock guard(m_linkMutex);
    const auto waiting = pending.find(frame.invokeId);
    if (waiting != pending.end()) {
      waiting->second->answerXml = std::move(frame.xml);
      waiting->second->done = true;
      waiting->second->code = kCstaLinkAnswered;
      pending.erase(waiting);
      matched = true;
    }
  }
  if (matched) {
    m_linkCv.notifyAll();
  } else {
    CSTA_LOG(kLogTrace, "CSTA link: answer %04d matches no waiting request (late?); skipped", frame.invokeId);
    lateAnswer(frame.xml);
  }
}

void CstaLinkService::Impl::lateAnswer(const std::string& xml) {
  if (link::documentElementName(xml) != "MonitorStartResponse") return;
  const std::unique_ptr<CSTAResponse> response = link::parseResponse("MonitorStart", xml);
  auto* started = dynamic_cast<CSTAMonitorStartResponse*>(response.get());
  const std::string id = started && !started->isError() ? started->GetMonitorCrossRefID() : std::string();
  if (id.empty()) return;
  {
    MutexLock guard(m_monitorMutex);
    for (const Monitor& m : monitors)
      if (m.currentId == id) return;  // it is known after all
  }
  int invokeId = 0;
  {
    MutexLock guard(m_linkMutex);
    invokeId = takeInvokeId();
  }
  CSTA_LOG(kLogNotable, "CSTA monitor %s was started after its request had timed out; stopped again", id.c_str());
  write(csta_xml::encodeFrame(invokeId, link::monitorStopXml(id)));
}

void CstaLinkService::Impl::write(std::string frame) {
  writeQueue.push_back(std::move(frame));
  if (writeQueue.size() == 1) writeNext();
}

void CstaLinkService::Impl::writeNext() {
  const unsigned connection = generation;
  asio::async_write(socket, asio::buffer(writeQueue.front()),
                    [this, connection](const asio::error_code& error, std::size_t) {
                      if (connection != generation) return;
                      if (error) {
                        dropLink("write: " + error.message());
                        return;
                      }
                      writeQueue.pop_front();
                      if (!writeQueue.empty()) writeNext();
                    });
}

}  // namespace fw
