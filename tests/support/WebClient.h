// Clients of the web listener for the tests: a WebSocket client (the WebSocket library's client
// over standalone Asio, on a thread of its own) and a one-shot HTTP GET over a plain socket.
// The test thread talks to the WebSocket client through posted work and a condition variable.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <websocketpp/client.hpp>
#include <websocketpp/config/asio_no_tls_client.hpp>

namespace webclient {

class WebSocketClient {
 public:
  using Client = websocketpp::client<websocketpp::config::asio_client>;
  enum class State { Idle, Connecting, Open, Failed, Closed };

  WebSocketClient() {
    m_client.clear_access_channels(websocketpp::log::alevel::all);
    m_client.clear_error_channels(websocketpp::log::elevel::all);
    m_client.init_asio();
    m_client.start_perpetual();
    m_client.set_open_handler([this](websocketpp::connection_hdl) { setState(State::Open, 101); });
    m_client.set_fail_handler([this](websocketpp::connection_hdl hdl) {
      setState(State::Failed, m_client.get_con_from_hdl(hdl)->get_response_code());
    });
    m_client.set_close_handler([this](websocketpp::connection_hdl hdl) {
      std::lock_guard<std::mutex> guard(m_mutex);
      m_closeCode = m_client.get_con_from_hdl(hdl)->get_remote_close_code();
      m_state = State::Closed;
      m_changed.notify_all();
    });
    m_client.set_message_handler([this](websocketpp::connection_hdl, Client::message_ptr message) {
      std::lock_guard<std::mutex> guard(m_mutex);
      m_messages.push_back(message->get_payload());
      m_changed.notify_all();
    });
    m_thread = std::thread([this] { m_client.run(); });
  }
  ~WebSocketClient() {
    asio::post(m_client.get_io_service(), [this] {
      if (m_connection && m_connection->get_state() == websocketpp::session::state::open) {
        std::error_code ignored;
        m_connection->close(websocketpp::close::status::going_away, "", ignored);
      }
      m_client.stop_perpetual();
    });
    m_thread.join();
  }
  WebSocketClient(const WebSocketClient&) = delete;
  WebSocketClient& operator=(const WebSocketClient&) = delete;

  // Opens ws://127.0.0.1:PORT/PATH with an Origin header when `origin` is not empty; true when
  // the handshake succeeded. status() has the HTTP status either way.
  bool open(int port, const std::string& origin = "", const std::string& path = "/ws") {
    {
      std::lock_guard<std::mutex> guard(m_mutex);
      m_state = State::Connecting;
    }
    const std::string uri = "ws://127.0.0.1:" + std::to_string(port) + path;
    asio::post(m_client.get_io_service(), [this, uri, origin] {
      std::error_code ec;
      m_connection = m_client.get_connection(uri, ec);
      if (ec) {
        setState(State::Failed, 0);
        return;
      }
      if (!origin.empty()) m_connection->replace_header("Origin", origin);
      m_client.connect(m_connection);
    });
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait_for(lock, std::chrono::seconds(10), [this] { return m_state != State::Connecting; });
    return m_state == State::Open;
  }

  void send(const std::string& payload, websocketpp::frame::opcode::value type = websocketpp::frame::opcode::text) {
    asio::post(m_client.get_io_service(), [this, payload, type] {
      std::error_code ignored;
      if (m_connection) m_client.send(m_connection, payload, type, ignored);
    });
  }
  // The next message that arrived, waiting up to `timeoutMs`; false when none came.
  bool next(std::string& message, int timeoutMs = 5000) {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_changed.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this] { return !m_messages.empty(); }))
      return false;
    message = std::move(m_messages.front());
    m_messages.pop_front();
    return true;
  }
  // The reply to `request` (empty when none came).
  std::string call(const std::string& request) {
    send(request);
    std::string reply;
    next(reply);
    return reply;
  }
  // Whether the server ended the connection within `timeoutMs`.
  bool waitClosed(int timeoutMs = 5000) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                              [this] { return m_state == State::Closed || m_state == State::Failed; });
  }
  int status() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_status;
  }

 private:
  void setState(State state, int status) {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_state = state;
    m_status = status;
    m_changed.notify_all();
  }

  Client m_client;
  Client::connection_ptr m_connection;  // the client's thread only
  std::thread m_thread;
  mutable std::mutex m_mutex;  // guards the members below
  std::condition_variable m_changed;
  State m_state = State::Idle;
  int m_status = 0;
  int m_closeCode = 0;
  std::deque<std::string> m_messages;
};

// An HTTP response: its status and headers (names in lower case) and body.
struct HttpResponse {
  int status = 0;
  std::map<std::string, std::string> headers;
  std::string body;
};

// Sends `request` (a whole HTTP request) to 127.0.0.1:`port` and reads the response to its end.
inline HttpResponse httpExchange(int port, const std::string& request) {
  HttpResponse response;
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  timeval timeout{5, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      write(fd, request.data(), request.size()) != static_cast<ssize_t>(request.size())) {
    close(fd);
    return response;
  }
  std::string text;
  char buffer[4096];
  for (ssize_t n; (n = read(fd, buffer, sizeof buffer)) > 0;) text.append(buffer, static_cast<std::size_t>(n));
  close(fd);
  const std::size_t headEnd = text.find("\r\n\r\n");
  if (text.compare(0, 9, "HTTP/1.1 ") != 0 || headEnd == std::string::npos) return response;
  response.status = std::atoi(text.c_str() + 9);
  response.body = text.substr(headEnd + 4);
  for (std::size_t at = text.find("\r\n") + 2; at < headEnd;) {
    const std::size_t end = text.find("\r\n", at);
    const std::string line = text.substr(at, end - at);
    const std::size_t colon = line.find(':');
    std::string name = line.substr(0, colon);
    for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    response.headers[name] = line.substr(line.find_first_not_of(' ', colon + 1));
    at = end + 2;
  }
  return response;
}

// GET `path` with the usual headers of a browser's request.
inline HttpResponse httpGet(int port, const std::string& path, const std::string& method = "GET") {
  return httpExchange(port, method + " " + path + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                                "\r\nConnection: close\r\n\r\n");
}

}  // namespace webclient
