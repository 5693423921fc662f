// The I/O thread of the CSTA link: connecting with growing delays, reading frames, writing queued
// frames. Everything here runs on the I/O thread; it hands answers to waiting requesters under
// m_linkMutex and events to the event thread, and never waits for either.
#include <algorithm>

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

void CstaLinkService::Impl::connectFailed(const std::string& reason) {
  asio::error_code ignored;
  socket.close(ignored);
  if (!outageLogged) {
    CSTA_LOG(kLogError, "CSTA link to %s:%d cannot be made (%s); retrying", options.host.c_str(), options.port,
             reason.c_str());
    outageLogged = true;
  } else {
    CSTA_LOG(kLogTrace, "CSTA link to %s:%d: attempt failed (%s)", options.host.c_str(), options.port, reason.c_str());
  }
  finishFirstAttempt();
  scheduleReconnect();
}

void CstaLinkService::Impl::scheduleReconnect() {
  const int delay = retryDelayMs;
  retryDelayMs = std::min(retryDelayMs * 2, std::max(options.reconnectMaxMs, options.reconnectInitialMs));
  retryTimer.expires_after(std::chrono::milliseconds(delay));
  const unsigned attempt = generation;
  retryTimer.async_wait([this, attempt](const asio::error_code& error) {
    if (!error && attempt == generation) connect();
  });
}

void CstaLinkService::Impl::finishFirstAttempt() {
  {
    std::lock_guard<std::mutex> guard(m_linkMutex);
    firstAttemptDone = true;
  }
  m_linkCv.notify_all();
}

void CstaLinkService::Impl::onConnected() {
  ++generation;
  decoder.emplace(options.maxFrameSize);
  writeQueue.clear();
  retryDelayMs = options.reconnectInitialMs;
  const bool isReturn = everConnected;
  everConnected = true;
  outageLogged = false;
  asio::error_code ignored;
  socket.set_option(asio::ip::tcp::no_delay(true), ignored);
  CSTA_LOG(kLogNotable, "CSTA link to %s:%d %s", options.host.c_str(), options.port,
           isReturn ? "is back" : "connected");
  {
    std::lock_guard<std::mutex> guard(m_linkMutex);
    linkGeneration = generation;
    isConnected = true;
    firstAttemptDone = true;
  }
  m_linkCv.notify_all();
  if (isReturn) post([this] { resumeSession(); });
  readMore();
}

void CstaLinkService::Impl::dropLink(const std::string& reason) {
  if (!socket.is_open()) return;
  asio::error_code ignored;
  socket.close(ignored);
  ++generation;
  writeQueue.clear();
  {
    std::lock_guard<std::mutex> guard(m_linkMutex);
    isConnected = false;
    for (auto& [id, request] : pending) {
      request->done = true;
      request->code = kCstaLinkDropped;
    }
    pending.clear();
  }
  m_linkCv.notify_all();
  CSTA_LOG(kLogError, "CSTA link to %s:%d lost (%s); reconnecting", options.host.c_str(), options.port, reason.c_str());
  outageLogged = true;
  post([this] { deliverStatus(communicationsServiceTexts::systemState_disabled); });
  retryDelayMs = options.reconnectInitialMs;
  scheduleReconnect();
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
  bool matched = false;
  {
    std::lock_guard<std::mutex> guard(m_linkMutex);
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
    m_linkCv.notify_all();
  } else {
    CSTA_LOG(kLogTrace, "CSTA link: answer %04d matches no waiting request (late?); skipped", frame.invokeId);
  }
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
