// One client connection of the client server: the read loop, the bounded outgoing queue, and
// the pieces handed to modules (the proxy channel, the request's response).
#include <algorithm>
#include <cctype>
#include <cstring>

#include "ClientServerImpl.h"
#include "framework/Logging.h"

namespace fw {
namespace clientserver {

void Channel::setPayloadType(const std::string& type) {
  // Every payload travels as UTF-8 XML text; another type is noted, and sent the same way.
  if (type != "xml_text") {
    logAppUni(kLogHandle, __FILE__, kLogTrace, __LINE__, "proxy payload type %s sent as XML text", type.c_str());
  }
}

void Channel::send(const std::string& payload) {
  if (auto connection = m_connection.lock()) connection->enqueue(payload);
}

void Response::setResponse(const char* text, int length) {
  if (m_completed) return;
  m_text.assign(text && length > 0 ? text : "", text && length > 0 ? static_cast<std::size_t>(length) : 0);
}

Connection::Connection(ClientServer::Impl& server, std::unique_ptr<Transport> transport, std::string clientId)
    : m_server(server), m_transport(std::move(transport)), m_clientId(std::move(clientId)) {}

void Connection::start() {
  m_transport->attach(shared_from_this());
  m_transport->readMessage();
}

void Connection::messageArrived(std::string message) {
  if (m_shut) return;
  ++m_pending;
  m_server.requestArrived(shared_from_this(), std::move(message));
  if (m_shut) return;
  if (m_pending < kMaxPendingRequests) {
    m_transport->readMessage();
    return;
  }
  m_readPaused = true;
  logAppUni(kLogHandle, __FILE__, kLogTrace, __LINE__, "client %s: %zu requests pending, reading paused",
            m_clientId.c_str(), m_pending);
}

void Connection::requestDone() {
  auto self = shared_from_this();
  asio::post(m_server.io, [self] {
    --self->m_pending;
    if (!self->m_readPaused || self->m_shut) return;
    self->m_readPaused = false;
    self->m_transport->readMessage();
  });
}

void Connection::enqueue(std::string payload) {
  const std::size_t wireSize = m_transport->wireSize(payload.size());
  bool startWriting = false;
  bool overflow = false;
  std::size_t queued = 0;
  {
    MutexLock guard(m_outMutex);
    if (m_closed) return;
    if (m_queuedBytes > 0 && m_queuedBytes + wireSize > m_server.options.maxQueuedBytes) {
      // The queue is left as it is: its front may be in the middle of being written.
      m_closed = true;
      overflow = true;
      queued = m_queuedBytes;
    } else {
      m_queuedBytes += wireSize;
      m_out.push_back(Outgoing{std::move(payload), wireSize});
      startWriting = !m_writing;
      m_writing = true;
    }
  }
  auto self = shared_from_this();
  if (overflow) {
    logAppUni(kLogHandle, __FILE__, kLogError, __LINE__,
              "client %s does not keep up: %zu bytes waiting, a message of %zu more is over the limit of %zu; "
              "disconnecting",
              m_clientId.c_str(), queued, wireSize, m_server.options.maxQueuedBytes);
    asio::post(m_server.io, [self] { self->close("disconnected: outgoing queue full", kLogNotable); });
  } else if (startWriting) {
    asio::post(m_server.io, [self] { self->writeNext(); });
  }
}

void Connection::writeNext() {
  const Outgoing* front = nullptr;
  {
    MutexLock guard(m_outMutex);
    if (m_closed || m_out.empty()) {
      m_writing = false;
      return;
    }
    front = &m_out.front();  // stays valid: only this write chain removes elements
  }
  auto self = shared_from_this();
  m_transport->writeMessage(front->payload, [self](const asio::error_code& ec) {
    if (ec) {
      self->close("write failed: " + ec.message(), kLogNotable);
      return;
    }
    {
      MutexLock guard(self->m_outMutex);
      self->m_queuedBytes -= self->m_out.front().wireSize;
      self->m_out.pop_front();
    }
    self->writeNext();
  });
}

void Connection::close(const std::string& why, int level) {
  if (m_shut) return;
  m_shut = true;
  {
    MutexLock guard(m_outMutex);
    m_closed = true;
  }
  // Logged first: the line is written before the client can see the connection end.
  logAppUni(kLogHandle, __FILE__, level, __LINE__, "client %s: connection closed: %s", m_clientId.c_str(), why.c_str());
  m_transport->close();
  m_server.connectionClosed(shared_from_this());
}

std::string rootElementName(const std::string& text) {
  std::size_t at = 0;
  if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) at = 3;
  while (at < text.size()) {
    const unsigned char c = static_cast<unsigned char>(text[at]);
    if (std::isspace(c)) {
      ++at;
      continue;
    }
    if (c != '<') return std::string();
    std::size_t end;
    if (text.compare(at, 2, "<?") == 0) {
      end = text.find("?>", at);
    } else if (text.compare(at, 4, "<!--") == 0) {
      end = text.find("-->", at);
    } else if (text.compare(at, 2, "<!") == 0) {
      end = text.find('>', at);
    } else {
      const std::size_t start = at + 1;
      std::size_t stop = start;
      while (stop < text.size() && !std::isspace(static_cast<unsigned char>(text[stop])) && text[stop] != '>' &&
             text[stop] != '/') {
        ++stop;
      }
      return text.substr(start, stop - start);
    }
    if (end == std::string::npos) return std::string();
    at = text.find('>', end) + 1;
  }
  return std::string();
}

}  // namespace clientserver
}  // namespace fw
