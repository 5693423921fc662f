// The web transport: HTTP for the page's files and a WebSocket at /ws, one message per text
// frame. The WebSocket library parses and writes the protocol over its byte-stream transport:
// this file reads the socket and hands it the bytes, and writes the bytes it produces, so that
// the connection's own read loop, limits and queue stay in charge. All on the I/O thread; the
// library is configured without locks of its own.
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <deque>
#include <fstream>
#include <sstream>
#include <websocketpp/concurrency/none.hpp>
#include <websocketpp/config/core.hpp>
#include <websocketpp/logger/stub.hpp>
#include <websocketpp/server.hpp>

#include "RequestPool.h"
#include "Transport.h"
#include "framework/Logging.h"

namespace fw {
namespace clientserver {

namespace {

// The library's byte-stream configuration, without its logging (errors are reported through the
// connection's log lines) and without locks (one thread uses it).
struct WebConfig : websocketpp::config::core {
  typedef WebConfig type;
  typedef websocketpp::concurrency::none concurrency_type;
  typedef websocketpp::log::stub elog_type;
  typedef websocketpp::log::stub alog_type;
  struct transport_config : public websocketpp::config::core::transport_config {
    typedef type::concurrency_type concurrency_type;
    typedef type::elog_type elog_type;
    typedef type::alog_type alog_type;
    typedef type::request_type request_type;
    typedef type::response_type response_type;
  };
  typedef websocketpp::transport::iostream::endpoint<transport_config> transport_type;
};
using WebServer = websocketpp::server<WebConfig>;
using WebConnection = WebServer::connection_ptr;
namespace status = websocketpp::http::status_code;

constexpr const char* kWebSocketPath = "/ws";
constexpr std::size_t kMaxRequestBody = 4096;  // GET requests carry none

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

// "host:port" of an authority ("host", "host:port", "[v6]:port"), the port defaulted.
std::string withPort(const std::string& authority, const std::string& defaultPort) {
  const std::size_t bracket = authority.rfind(']');
  const std::size_t colon = authority.rfind(':');
  if (colon != std::string::npos && (bracket == std::string::npos || colon > bracket)) return lower(authority);
  return lower(authority) + ":" + defaultPort;
}

// Whether an Origin header ("http://host:port") names the same host and port as Host.
bool sameOrigin(const std::string& origin, const std::string& host) {
  const std::size_t scheme = origin.find("://");
  if (scheme == std::string::npos || host.empty()) return false;
  const std::string name = lower(origin.substr(0, scheme));
  const std::string authority = origin.substr(scheme + 3);
  if (authority.find('/') != std::string::npos) return false;
  const std::string defaultPort = name == "https" ? "443" : "80";
  return withPort(authority, defaultPort) == withPort(host, "80");
}

std::string contentType(const std::string& name) {
  static const std::pair<const char*, const char*> kTypes[] = {
      {".html", "text/html; charset=utf-8"},
      {".css", "text/css; charset=utf-8"},
      {".js", "text/javascript; charset=utf-8"},
      {".svg", "image/svg+xml"},
      {".png", "image/png"},
      {".ico", "image/x-icon"},
      {".json", "application/json"},
  };
  for (const auto& type : kTypes) {
    const std::string ending = type.first;
    if (name.size() > ending.size() && name.compare(name.size() - ending.size(), ending.size(), ending) == 0)
      return type.second;
  }
  return "application/octet-stream";
}

// A file name a request may ask for: one plain name of the folder, no path, not hidden.
bool servableName(const std::string& name) {
  return !name.empty() && name[0] != '.' && name.find('/') == std::string::npos &&
         name.find('\\') == std::string::npos && name.find("..") == std::string::npos &&
         name.find('\0') == std::string::npos;
}

}  // namespace

class WebEndpoint {
 public:
  explicit WebEndpoint(WebSettings settings) : m_settings(std::move(settings)) {}
  const WebSettings& settings() const { return m_settings; }
  WebServer& server() { return m_server; }

  // The file a GET of `resource` asks for: true with its body and type, false when not found.
  bool file(const std::string& resource, std::string& body, std::string& type) const {
    const std::string path = resource.substr(0, resource.find_first_of("?#"));
    const std::string name = path == "/" ? "index.html" : path.substr(1);
    if (m_settings.root.empty() || path.empty() || path[0] != '/' || !servableName(name)) return false;
    const std::string full = m_settings.root + "/" + name;
    struct stat st;
    if (stat(full.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return false;
    std::ifstream in(full, std::ios::binary);
    if (!in) return false;
    std::ostringstream content;
    content << in.rdbuf();
    body = content.str();
    type = contentType(name);
    return true;
  }

 private:
  const WebSettings m_settings;
  WebServer m_server;
};

namespace {

class WebTransport : public Transport {
 public:
  WebTransport(Socket socket, std::shared_ptr<WebEndpoint> endpoint, std::string clientId);
  ~WebTransport() override { close(); }

  void readMessage() override;
  void writeMessage(const std::string& payload, Written written) override;
  // The payload behind a server's frame header (2, 4 or 10 bytes by its length).
  std::size_t wireSize(std::size_t payloadSize) const override {
    return payloadSize + (payloadSize < 126 ? 2 : payloadSize <= 0xffff ? 4 : 10);
  }
  void close() override;

 private:
  // Bytes for the socket, in order; `written` (if any) runs once they are written.
  struct Chunk {
    std::string bytes;
    Written written;
  };

  void setUpConnection();
  bool validate();
  void answerHttp();
  void textArrived(const WebServer::message_ptr& message);
  // Hands the complete messages waiting to the connection while it wants one; reads the socket
  // when it wants one and none waits.
  void pump();
  void readSocket();
  // After the library consumed bytes or a message: ends the transport once the library has
  // finished with the connection, or has begun to close it for a fault of the client.
  void checkEnd();
  void endAfterWriting(const std::string& why, int level);
  void flush();

  Socket m_socket;
  const std::shared_ptr<WebEndpoint> m_endpoint;
  const std::string m_clientId;
  WebConnection m_connection;
  std::deque<std::string> m_inbox;  // complete messages not yet handed on
  std::deque<Chunk> m_wire;         // bytes the library produced, to be written
  bool m_wanted = false;            // the connection waits for a message
  bool m_pumping = false;
  bool m_reading = false;   // a socket read is pending
  bool m_writing = false;   // a socket write is pending
  bool m_shutdown = false;  // the library finished with the connection
  bool m_ending = false;    // no more reading; ends once m_wire is written
  bool m_closed = false;
  std::string m_endWhy;
  int m_endLevel = kLogTrace;
  std::array<char, 16 * 1024> m_readBuffer{};
};

WebTransport::WebTransport(Socket socket, std::shared_ptr<WebEndpoint> endpoint, std::string clientId)
    : m_socket(std::move(socket)), m_endpoint(std::move(endpoint)), m_clientId(std::move(clientId)) {
  setUpConnection();
}

void WebTransport::setUpConnection() {
  m_connection = m_endpoint->server().get_connection();
  m_connection->set_max_message_size(m_endpoint->settings().maxMessageSize);
  m_connection->set_max_http_body_size(kMaxRequestBody);
  m_connection->set_write_handler([this](websocketpp::connection_hdl, const char* data, std::size_t length) {
    if (!m_closed) m_wire.push_back(Chunk{std::string(data, length), nullptr});
    return std::error_code();
  });
  m_connection->set_vector_write_handler(
      [this](websocketpp::connection_hdl, const std::vector<websocketpp::transport::buffer>& buffers) {
        if (m_closed) return std::error_code();
        std::string bytes;
        for (const auto& buffer : buffers) bytes.append(buffer.buf, buffer.len);
        m_wire.push_back(Chunk{std::move(bytes), nullptr});
        return std::error_code();
      });
  m_connection->set_shutdown_handler([this](websocketpp::connection_hdl) {
    m_shutdown = true;
    return std::error_code();
  });
  m_connection->set_validate_handler([this](websocketpp::connection_hdl) { return validate(); });
  m_connection->set_http_handler([this](websocketpp::connection_hdl) { answerHttp(); });
  m_connection->set_message_handler(
      [this](websocketpp::connection_hdl, WebServer::message_ptr message) { textArrived(message); });
  m_connection->start();
}

// The WebSocket handshake: only at /ws, and from a page of this server or from a program.
bool WebTransport::validate() {
  const std::string resource = m_connection->get_resource();
  if (resource.substr(0, resource.find('?')) != kWebSocketPath) {
    m_connection->set_status(status::not_found);
    m_endWhy = "WebSocket refused: no WebSocket at " + resource;
    m_endLevel = kLogNotable;
    return false;
  }
  const std::string origin = m_connection->get_request_header("Origin");
  const std::string host = m_connection->get_request_header("Host");
  if (!origin.empty() && !sameOrigin(origin, host)) {
    m_connection->set_status(status::forbidden);
    m_endWhy = "WebSocket refused: a page of " + origin + " is not a page of " + host;
    m_endLevel = kLogNotable;
    return false;
  }
  logAppUni(kLogHandle, __FILE__, kLogTrace, __LINE__, "client %s: WebSocket opened", m_clientId.c_str());
  return true;
}

void WebTransport::answerHttp() {
  const std::string method = m_connection->get_request().get_method();
  const std::string resource = m_connection->get_resource();
  m_endWhy = method + " " + resource + " answered";
  m_connection->replace_header("Cache-Control", "no-cache");
  m_connection->replace_header("X-Content-Type-Options", "nosniff");
  if (method != "GET") {
    m_connection->set_status(status::method_not_allowed);
    m_connection->replace_header("Allow", "GET");
    return;
  }
  std::string body;
  std::string type;
  if (!m_endpoint->file(resource, body, type)) {
    m_connection->set_status(status::not_found);
    m_connection->replace_header("Content-Type", "text/plain; charset=utf-8");
    m_connection->set_body("not found\n");
    m_endWhy = method + " " + resource + ": not found";
    return;
  }
  m_connection->set_status(status::ok);
  m_connection->replace_header("Content-Type", type);
  m_connection->set_body(std::move(body));
}

void WebTransport::textArrived(const WebServer::message_ptr& message) {
  if (m_closed || m_ending) return;
  if (message->get_opcode() != websocketpp::frame::opcode::text) {
    m_endWhy = "a binary frame: messages travel as text frames";
    m_endLevel = kLogError;
    std::error_code ignored;
    m_connection->close(websocketpp::close::status::unsupported_data, "text frames only", ignored);
    return;
  }
  m_inbox.push_back(std::move(message->get_raw_payload()));
}

void WebTransport::readMessage() {
  m_wanted = true;
  pump();
}

void WebTransport::pump() {
  if (m_pumping) return;  // a message handed on asked for the next: the loop below goes on
  m_pumping = true;
  while (m_wanted && !m_inbox.empty() && !m_closed) {
    m_wanted = false;
    std::string message = std::move(m_inbox.front());
    m_inbox.pop_front();
    events().messageArrived(std::move(message));
  }
  m_pumping = false;
  if (m_wanted && !m_closed && !m_ending && !m_reading) readSocket();
}

void WebTransport::readSocket() {
  m_reading = true;
  auto keep = owner();
  m_socket.async_read_some(asio::buffer(m_readBuffer), [this, keep](const asio::error_code& ec, std::size_t n) {
    m_reading = false;
    if (m_closed || m_ending) return;
    if (ec) {
      events().transportEnded(ec == asio::error::eof ? "closed by the client" : ec.message(), kLogTrace);
      return;
    }
    // Bytes the library does not take (after it closed the connection) are of no use.
    m_connection->read_all(m_readBuffer.data(), n);
    flush();
    checkEnd();
    if (m_closed || m_ending) return;
    pump();
  });
}

void WebTransport::checkEnd() {
  if (m_closed || m_ending) return;
  namespace close = websocketpp::close::status;
  const auto local = m_connection->get_local_close_code();
  const bool closing = m_connection->get_state() == websocketpp::session::state::closing;
  if (local == close::message_too_big) {
    endAfterWriting(
        "a message is over the limit of " + std::to_string(m_endpoint->settings().maxMessageSize) + " bytes",
        kLogError);
  } else if (!m_endWhy.empty() && (m_shutdown || closing)) {
    endAfterWriting(m_endWhy, m_endLevel);
  } else if (closing && m_connection->get_remote_close_code() == close::blank) {
    // The library closes for a protocol fault of the client; its close frame is the last word.
    endAfterWriting("WebSocket protocol fault: " + m_connection->get_local_close_reason(), kLogNotable);
  } else if (m_shutdown) {
    endAfterWriting(m_connection->get_remote_close_code() != close::blank ? "closed by the client"
                                                                          : m_connection->get_ec().message(),
                    m_connection->get_remote_close_code() != close::blank ? kLogTrace : kLogNotable);
  }
}

void WebTransport::endAfterWriting(const std::string& why, int level) {
  m_ending = true;
  m_endWhy = why;
  m_endLevel = level;
  flush();
}

void WebTransport::writeMessage(const std::string& payload, Written written) {
  const std::error_code ec = m_connection->send(payload, websocketpp::frame::opcode::text);
  if (ec || m_wire.empty()) {
    written(ec ? asio::error::make_error_code(asio::error::not_connected) : asio::error_code());
    return;
  }
  m_wire.back().written = std::move(written);
  flush();
}

void WebTransport::flush() {
  if (m_writing || m_closed) return;
  if (m_wire.empty()) {
    if (m_ending) events().transportEnded(m_endWhy, m_endLevel);
    return;
  }
  m_writing = true;
  auto keep = owner();
  asio::async_write(m_socket, asio::buffer(m_wire.front().bytes),
                    [this, keep](const asio::error_code& ec, std::size_t) {
                      m_writing = false;
                      if (m_closed) return;
                      if (ec) {
                        events().transportEnded("write failed: " + ec.message(), kLogNotable);
                        return;
                      }
                      Written written = std::move(m_wire.front().written);
                      m_wire.pop_front();
                      if (written) written(ec);
                      flush();
                    });
}

void WebTransport::close() {
  if (m_closed) return;
  m_closed = true;
  m_inbox.clear();
  // The callbacks hold the connection, which holds this: dropped, so that it can go. The bytes
  // stay until this goes, as a write may be under way.
  for (Chunk& chunk : m_wire) chunk.written = nullptr;
  // Ends the library's pending read, which holds the library's connection alive.
  m_connection->fatal_error();
  asio::error_code ignored;
  m_socket.shutdown(asio::socket_base::shutdown_both, ignored);
  m_socket.close(ignored);
}

}  // namespace

std::shared_ptr<WebEndpoint> makeWebEndpoint(WebSettings settings) {
  return std::make_shared<WebEndpoint>(std::move(settings));
}

std::unique_ptr<Transport> makeWebTransport(Transport::Socket socket, std::shared_ptr<WebEndpoint> endpoint,
                                            std::string clientId) {
  return std::make_unique<WebTransport>(std::move(socket), std::move(endpoint), std::move(clientId));
}

}  // namespace clientserver
}  // namespace fw
