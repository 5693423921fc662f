// One client connection of the client server: the frame reader, the bounded outgoing queue, and
// the pieces handed to modules (the proxy channel, the request's response).
#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>

#include "ClientServerImpl.h"
#include "framework/Logging.h"

namespace fw {
namespace clientserver {

namespace {

// The payload behind its length (four bytes, most significant first).
Connection::Outgoing frame(std::string payload) {
  const auto length = static_cast<uint32_t>(payload.size());
  return {{static_cast<char>((length >> 24) & 0xff), static_cast<char>((length >> 16) & 0xff),
           static_cast<char>((length >> 8) & 0xff), static_cast<char>(length & 0xff)},
          std::move(payload)};
}

}  // namespace

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

Connection::Connection(ClientServer::Impl& server, Socket socket, std::string clientId)
    : m_server(server), m_socket(std::move(socket)), m_clientId(std::move(clientId)) {}

void Connection::start() { readHeader(); }

void Connection::readHeader() {
  auto self = shared_from_this();
  asio::async_read(m_socket, asio::buffer(m_header, sizeof m_header), [self](const asio::error_code& ec, std::size_t) {
    if (self->m_shut) return;
    if (ec) {
      self->close(ec == asio::error::eof ? "closed by the client" : ec.message(), kLogTrace);
      return;
    }
    const std::size_t length = (std::size_t{self->m_header[0]} << 24) | (std::size_t{self->m_header[1]} << 16) |
                               (std::size_t{self->m_header[2]} << 8) | std::size_t{self->m_header[3]};
    if (length > self->m_server.options.maxFrameSize) {
      self->close("frame of " + std::to_string(length) + " bytes is over the limit of " +
                      std::to_string(self->m_server.options.maxFrameSize),
                  kLogError);
      return;
    }
    self->m_body.clear();
    self->readBody(length);
  });
}

void Connection::readBody(std::size_t length) {
  const std::size_t have = m_body.size();
  if (have == length) {
    requestHandedOn(std::move(m_body));
    return;
  }
  // The buffer grows by what may come now, not by what the header announced.
  const std::size_t wanted = std::min(kReadPiece, length - have);
  m_body.resize(have + wanted);
  auto self = shared_from_this();
  m_socket.async_read_some(
      asio::buffer(&m_body[have], wanted), [self, length, have](const asio::error_code& ec, std::size_t n) {
        if (self->m_shut) return;
        if (ec) {
          self->close(ec == asio::error::eof ? "closed by the client inside a frame" : ec.message(), kLogNotable);
          return;
        }
        self->m_body.resize(have + n);
        self->readBody(length);
      });
}

void Connection::requestHandedOn(std::string message) {
  ++m_pending;
  m_server.requestArrived(shared_from_this(), std::move(message));
  if (m_pending < kMaxPendingRequests) {
    readHeader();
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
    self->readHeader();
  });
}

void Connection::enqueue(std::string payload) {
  const size_t payloadSize = payload.size();
  Outgoing framed = frame(std::move(payload));
  bool startWriting = false;
  bool overflow = false;
  std::size_t queued = 0;
  {
    MutexLock guard(m_outMutex);
    if (m_closed) return;
    if (m_queuedBytes > 0 && m_queuedBytes + framed.size() > m_server.options.maxQueuedBytes) {
      // The queue is left as it is: its front may be in the middle of being written.
      m_closed = true;
      overflow = true;
      queued = m_queuedBytes;
    } else {
      m_queuedBytes += framed.size();
      m_out.push_back(std::move(framed));
      startWriting = !m_writing;
      m_writing = true;
    }
  }
  auto self = shared_from_this();
  if (overflow) {
    logAppUni(kLogHandle, __FILE__, kLogError, __LINE__,
              "client %s does not keep up: %zu bytes waiting, a message of %zu more is over the limit of %zu; "
              "disconnecting",
              m_clientId.c_str(), queued, payloadSize + 4, m_server.options.maxQueuedBytes);
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
  const std::array<asio::const_buffer, 2> buffers = {asio::buffer(front->header), asio::buffer(front->payload)};
  asio::async_write(m_socket, buffers, [self](const asio::error_code& ec, std::size_t written) {
    if (ec) {
      self->close("write failed: " + ec.message(), kLogNotable);
      return;
    }
    {
      MutexLock guard(self->m_outMutex);
      self->m_out.pop_front();
      self->m_queuedBytes -= written;
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
  asio::error_code ignored;
  m_socket.shutdown(asio::socket_base::shutdown_both, ignored);
  m_socket.close(ignored);
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
