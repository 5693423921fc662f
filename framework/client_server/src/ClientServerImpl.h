// Inside of the client server (ClientServer.h): the server's state and one client connection.
// Private to the client server library, as is asio (here and in Transport.h).
#pragma once

#include <sys/types.h>

#include <asio.hpp>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ClientMessages.h"
#include "RequestPool.h"
#include "Transport.h"
#include "client_server/ClientServer.h"
#include "framework/Mutex.h"
#include "framework/ThreadAnnotations.h"

namespace fw {
namespace clientserver {

class Connection;

// The channel of one proxy to its client. Holds the connection weakly: once the connection is
// gone, sends are dropped; the channel itself lives as long as its owners (shared ownership).
class Channel : public ProxyRequest {
 public:
  explicit Channel(std::weak_ptr<Connection> connection) : m_connection(std::move(connection)) {}
  void setPayloadType(const std::string& type) override;
  void send(const std::string& payload) override;

 private:
  std::weak_ptr<Connection> m_connection;
};

struct ProxyEntry {
  std::shared_ptr<Channel> channel;
  Proxy* proxy = nullptr;  // owned; deleted when the connection's proxies are detached
  std::string detachMessage;
};

// The answer to one request, collected on a request thread and sent when the invoker returns.
class Response : public InvokerResponse {
 public:
  explicit Response(std::string clientId) : m_clientId(std::move(clientId)) {}
  void setResponse(const char* text, int length) override;
  void complete() override { m_completed = true; }
  std::string getClientId() const override { return m_clientId; }
  void takeResponse(std::string&& text) override { m_text = std::move(text); }
  // The reply text, handed over.
  std::string takeText() { return std::move(m_text); }
  bool completed() const { return m_completed; }

 private:
  std::string m_clientId;
  std::string m_text;
  bool m_completed = false;
};

// One client, over either transport (Transport.h). Reading and closing happen on the I/O thread;
// enqueue from any thread; its requests and, at its end, the detaching of its proxies run one at
// a time on its lane of request threads.
class Connection final : public TransportEvents, public std::enable_shared_from_this<Connection> {
 public:
  using Socket = Transport::Socket;
  struct Outgoing {
    std::string payload;
    std::size_t wireSize;  // what it counts against maxQueuedBytes
  };

  Connection(ClientServer::Impl& server, std::unique_ptr<Transport> transport, std::string clientId);
  const std::string& clientId() const { return m_clientId; }
  const std::shared_ptr<RequestPool::Lane>& lane() const { return m_lane; }

  // I/O thread: starts the read loop.
  void start();
  // Any thread, never blocks: queues `payload` for sending. Over the byte bound the connection
  // is closed; on a closed connection the payload is dropped.
  void enqueue(std::string payload);
  // I/O thread: closes the transport (once) and hands the connection to the server for detaching.
  void close(const std::string& why, int level);
  // A request thread: one of this client's requests has been answered.
  void requestDone();

  // TransportEvents (I/O thread).
  void messageArrived(std::string message) override;
  void transportEnded(const std::string& why, int level) override { close(why, level); }

  // Requests of one client waiting to be handled at most; beyond that the connection is not read
  // until one is answered, so a client that floods requests waits instead of the server holding
  // them all.
  static constexpr std::size_t kMaxPendingRequests = 16;

  // Proxies of this client, guarded by proxyMutex (lock 2 of the server's order). While
  // `detaching`, existing proxies are still found but no new one is made.
  Mutex proxyMutex;
  std::map<std::string, ProxyEntry> proxies GUARDED_BY(proxyMutex);
  bool detaching GUARDED_BY(proxyMutex) = false;

 private:
  void writeNext();

  ClientServer::Impl& m_server;
  const std::unique_ptr<Transport> m_transport;  // I/O thread only, but for wireSize
  const std::string m_clientId;
  const std::shared_ptr<RequestPool::Lane> m_lane = RequestPool::newLane();
  bool m_shut = false;        // I/O thread only: close() ran
  std::size_t m_pending = 0;  // I/O thread only: requests handed on and not yet answered
  bool m_readPaused = false;  // I/O thread only: reading waits for an answer

  Mutex m_outMutex ACQUIRED_AFTER(proxyMutex);  // leaf lock (3): guards the members below
  // Messages to write; the front one is being written while m_writing.
  std::deque<Outgoing> m_out GUARDED_BY(m_outMutex);
  std::size_t m_queuedBytes GUARDED_BY(m_outMutex) = 0;
  bool m_writing GUARDED_BY(m_outMutex) = false;
  bool m_closed GUARDED_BY(m_outMutex) = false;  // nothing more is queued
};

}  // namespace clientserver

class ClientServer::Impl {
 public:
  using Handler = std::function<std::string(const std::string&, const std::string&)>;
  struct Factory {
    std::function<Proxy*()> make;
    std::string detachMessage;
  };

  Impl(FrameworkContext& context, ClientServerOptions options);
  ~Impl();

  bool start(std::string& error);
  void stop();

  // Called by connections (I/O thread): a complete frame arrived / the connection is closed.
  void requestArrived(std::shared_ptr<clientserver::Connection> connection, std::string message);
  void connectionClosed(std::shared_ptr<clientserver::Connection> connection);
  // The context's proxy provider.
  Proxy* getProxy(const std::string& interfaceName, const std::string& clientId);

  // Declared first: destroyed last, after every socket and handler.
  asio::io_context io;
  FrameworkContext& context;
  const ClientServerOptions options;

  mutable Mutex mutex;  // lock 1: guards the members below
  Executable* target GUARDED_BY(mutex) = nullptr;
  Invoker* invoker GUARDED_BY(mutex) = nullptr;
  std::map<std::string, Factory> factories GUARDED_BY(mutex);
  std::map<std::string, Handler> handlers GUARDED_BY(mutex);
  // Until detached.
  std::map<std::string, std::shared_ptr<clientserver::Connection>> connections GUARDED_BY(mutex);
  uint64_t nextConnection GUARDED_BY(mutex) = 1;
  int boundPort GUARDED_BY(mutex) = -1;
  int webBoundPort GUARDED_BY(mutex) = -1;
  bool refusing GUARDED_BY(mutex) = false;  // the last connection was refused for the limit (logged once per run)

 private:
  bool listenUnix(std::string& error);
  bool listenTcp(std::string& error);
  bool listenWeb(std::string& error);
  // Binds and listens on host:port; the bound port, or -1 with `error`.
  int listenInet(asio::ip::tcp::acceptor& acceptor, const std::string& host, int port, bool allowNonLoopback,
                 std::string& error);
  void logListeners();
  void acceptUnix();
  void acceptTcp();
  void acceptWeb();
  void acceptInet(asio::ip::tcp::acceptor& acceptor, bool web);
  // The client id is `prefix` followed by the connection's number; `web` picks the transport.
  void addConnection(clientserver::Connection::Socket socket, const std::string& prefix, bool web);
  void refuseConnection(clientserver::Connection::Socket& socket, bool firstOfARun);
  void handleRequest(const std::shared_ptr<clientserver::Connection>& connection, const std::string& message);
  void detach(const std::shared_ptr<clientserver::Connection>& connection);
  // Sends a proxy's detach message until the module no longer answers it with true.
  void detachAll(const std::string& message, const std::string& clientId);
  // A bound on the repetitions, for a module that would answer true for ever.
  static constexpr std::size_t kMaxDetaches = 1u << 20;
  // Runs `message` through the invoker on the client's behalf; the reply text.
  std::string invoke(const std::string& message, const std::string& clientId);
  void removeSocketFile();

  asio::local::stream_protocol::acceptor m_unixAcceptor;
  asio::ip::tcp::acceptor m_tcpAcceptor;
  asio::ip::tcp::acceptor m_webAcceptor;
  std::shared_ptr<clientserver::WebEndpoint> m_web;  // I/O thread (set before it starts)
  std::unique_ptr<asio::executor_work_guard<asio::io_context::executor_type>> m_work;
  std::unique_ptr<clientserver::RequestPool> m_requests;
  std::thread m_ioThread;
  bool m_started = false;
  bool m_closing = false;  // I/O thread only: stop() began, no more connections
  bool m_socketFileOurs = false;
  dev_t m_socketDev = 0;
  ino_t m_socketIno = 0;
};

}  // namespace fw
