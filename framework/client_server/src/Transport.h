// How one client connection's messages travel over its socket: the seam between the connection
// (requests, outgoing queue, proxies: ClientServerImpl.h) and the wire format. Two transports:
// the framed stream of the Unix socket and TCP clients (a 4-byte length, then the payload) and
// the WebSocket of the web clients (one message per text frame, after an HTTP handshake; the
// same listener serves the page's files).
//
// A transport is owned by its connection and used on the I/O thread only (wireSize excepted).
// It reports to the connection through TransportEvents, also on the I/O thread; its pending
// asynchronous operations keep the connection (and so the transport) alive.
#pragma once

#include <asio.hpp>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace fw {
namespace clientserver {

// What a transport tells its connection (I/O thread).
class TransportEvents {
 public:
  // One complete message; the transport reads no further until asked (Transport::readMessage).
  virtual void messageArrived(std::string message) = 0;
  // The transport cannot go on (peer closed, a fault of the client, a finished HTTP request):
  // the connection closes with this reason, logged at `level`.
  virtual void transportEnded(const std::string& why, int level) = 0;

 protected:
  ~TransportEvents() = default;
};

class Transport {
 public:
  using Socket = asio::generic::stream_protocol::socket;
  using Written = std::function<void(const asio::error_code&)>;

  virtual ~Transport() = default;
  // Before the first use: the connection to report to, held weakly (its pending operations hold
  // it strongly while they wait).
  void attach(const std::shared_ptr<TransportEvents>& owner) {
    m_owner = owner;
    m_events = owner.get();
  }
  // Reads until one more message has arrived (or the transport ended). Called again only after
  // that message was reported.
  virtual void readMessage() = 0;
  // Writes one message; `written` runs on the I/O thread once its bytes are written or the write
  // failed. One message at a time: the next is written after `written` ran. `payload` stays valid
  // until then.
  virtual void writeMessage(const std::string& payload, Written written) = 0;
  // Bytes a message of `payloadSize` bytes takes on the wire. Any thread.
  virtual std::size_t wireSize(std::size_t payloadSize) const = 0;
  // Closes the socket now; pending operations end without reporting.
  virtual void close() = 0;

 protected:
  std::shared_ptr<TransportEvents> owner() const { return m_owner.lock(); }
  TransportEvents& events() const { return *m_events; }

 private:
  std::weak_ptr<TransportEvents> m_owner;
  TransportEvents* m_events = nullptr;
};

// The framed stream: a 4-byte big-endian length, then the payload. A frame longer than
// `maxFrameSize` ends the transport (level 2); a frame's buffer grows as its bytes arrive.
std::unique_ptr<Transport> makeStreamTransport(Transport::Socket socket, std::size_t maxFrameSize);

// The WebSocket endpoint shared by the web connections of one server: the settings and the
// folder of static files. Made and used on the I/O thread.
class WebEndpoint;
struct WebSettings {
  std::string root;              // folder of the page's files; empty: none served
  std::size_t maxMessageSize{};  // a larger message ends that connection (level 2)
};
std::shared_ptr<WebEndpoint> makeWebEndpoint(WebSettings settings);
// A web connection: HTTP requests for the page's files (answered, then the connection ends) or
// a WebSocket at /ws, one text frame per message. `clientId` names it in log lines.
std::unique_ptr<Transport> makeWebTransport(Transport::Socket socket, std::shared_ptr<WebEndpoint> endpoint,
                                            std::string clientId);

}  // namespace clientserver
}  // namespace fw
