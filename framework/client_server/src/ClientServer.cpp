// The client server: listeners, the connection table, request dispatch on the request threads
// (each connection's requests on its own lane), the proxies of each client and their detaching.
#include "client_server/ClientServer.h"

#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <future>

#include "ClientServerImpl.h"
#include "framework/JournalServiceHelper.h"
#include "framework/Logging.h"

namespace fw {

namespace {

// An IPv6 address in a URL stands in brackets.
std::string hostInUrl(const std::string& host) { return host.find(':') == std::string::npos ? host : "[" + host + "]"; }

}  // namespace

using clientserver::Connection;
using clientserver::kLogHandle;

ClientServer::Impl::Impl(FrameworkContext& ctx, ClientServerOptions opts)
    : context(ctx), options(std::move(opts)), m_unixAcceptor(io), m_tcpAcceptor(io), m_webAcceptor(io) {}

ClientServer::Impl::~Impl() { stop(); }

bool ClientServer::Impl::start(std::string& error) {
  if (m_started) {
    error = "the client server is already running";
    return false;
  }
  if (options.socketPath.empty() && options.tcpPort < 0 && options.webPort < 0) {
    error = "no listener configured: neither a socket path nor a TCP or web port";
    return false;
  }
  if (!listenUnix(error) || !listenTcp(error) || !listenWeb(error)) {
    asio::error_code ignored;
    m_unixAcceptor.close(ignored);
    m_tcpAcceptor.close(ignored);
    m_webAcceptor.close(ignored);
    removeSocketFile();
    return false;
  }
  m_started = true;
  m_closing = false;
  m_requests = std::make_unique<clientserver::RequestPool>("Client Request", options.requestThreads);
  m_work = std::make_unique<asio::executor_work_guard<asio::io_context::executor_type>>(io.get_executor());
  if (m_unixAcceptor.is_open()) acceptUnix();
  if (m_tcpAcceptor.is_open()) acceptTcp();
  if (m_webAcceptor.is_open()) acceptWeb();
  m_ioThread = std::thread([this] {
    pthread_setname_np(pthread_self(), "Client I/O");
    io.run();
  });
  context.setProxyProvider([this](const std::string& interfaceName, const std::string& clientId) {
    return getProxy(interfaceName, clientId);
  });
  logListeners();
  return true;
}

void ClientServer::Impl::logListeners() {
  int port;
  int web;
  {
    MutexLock guard(mutex);
    port = boundPort;
    web = webBoundPort;
  }
  std::string where = options.socketPath;
  const auto add = [&where](const std::string& listener) { where += (where.empty() ? "" : " and ") + listener; };
  if (port >= 0) add(options.tcpHost + ":" + std::to_string(port));
  if (web >= 0) add("http://" + hostInUrl(options.webHost) + ":" + std::to_string(web) + "/ (the web page and /ws)");
  logAppUni(kLogHandle, __FILE__, kLogNotable, __LINE__, "listening on %s", where.c_str());
}

bool ClientServer::Impl::listenUnix(std::string& error) {
  const std::string& path = options.socketPath;
  if (path.empty()) return true;
  if (path.size() >= sizeof(sockaddr_un::sun_path)) {
    error = "socket path " + path + " is too long";
    return false;
  }
  struct stat st;
  if (lstat(path.c_str(), &st) == 0) {
    if (!S_ISSOCK(st.st_mode)) {
      error = "cannot listen on " + path + ": the file exists and is not a socket";
      return false;
    }
    // A socket someone still answers on belongs to a running server: leave it alone.
    asio::local::stream_protocol::socket probe(io);
    asio::error_code probeError;
    probe.connect(asio::local::stream_protocol::endpoint(path), probeError);
    if (!probeError) {
      error = "cannot listen on " + path + ": another server is listening there";
      return false;
    }
    if (unlink(path.c_str()) != 0) {
      error = "cannot replace the old socket " + path + ": " + std::strerror(errno);
      return false;
    }
  }
  asio::error_code ec;
  m_unixAcceptor.open(asio::local::stream_protocol(), ec);
  if (!ec) m_unixAcceptor.bind(asio::local::stream_protocol::endpoint(path), ec);
  if (ec) {
    error = "cannot listen on " + path + ": " + ec.message();
    return false;
  }
  m_socketFileOurs = true;
  // Owner only, set before listening: until then no client can connect at all.
  if (chmod(path.c_str(), 0600) != 0 || stat(path.c_str(), &st) != 0) {
    error = "cannot restrict " + path + " to its owner: " + std::strerror(errno);
    return false;
  }
  m_socketDev = st.st_dev;
  m_socketIno = st.st_ino;
  m_unixAcceptor.listen(asio::socket_base::max_listen_connections, ec);
  if (ec) {
    error = "cannot listen on " + path + ": " + ec.message();
    return false;
  }
  return true;
}

bool ClientServer::Impl::listenTcp(std::string& error) {
  if (options.tcpPort < 0) return true;
  const int port = listenInet(m_tcpAcceptor, options.tcpHost, options.tcpPort, options.allowNonLoopbackTcp, error);
  if (port < 0) return false;
  MutexLock guard(mutex);
  boundPort = port;
  return true;
}

bool ClientServer::Impl::listenWeb(std::string& error) {
  if (options.webPort < 0) return true;
  const int port = listenInet(m_webAcceptor, options.webHost, options.webPort, options.allowNonLoopbackWeb, error);
  if (port < 0) return false;
  struct stat st;
  if (!options.webRoot.empty() && (stat(options.webRoot.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))) {
    logAppUni(kLogHandle, __FILE__, kLogError, __LINE__,
              "the web page's folder %s does not exist: only the WebSocket is served (every page is not found)",
              options.webRoot.c_str());
  }
  m_web = clientserver::makeWebEndpoint({options.webRoot, options.maxFrameSize});
  MutexLock guard(mutex);
  webBoundPort = port;
  return true;
}

int ClientServer::Impl::listenInet(asio::ip::tcp::acceptor& acceptor, const std::string& host, int requestedPort,
                                   bool allowNonLoopback, std::string& error) {
  const std::string where = host + ":" + std::to_string(requestedPort);
  if (requestedPort > 65535) {
    error = "cannot listen on " + where + ": not a port number";
    return -1;
  }
  asio::error_code ec;
  asio::ip::tcp::resolver resolver(io);
  auto results = resolver.resolve(host, std::to_string(requestedPort), asio::ip::resolver_base::numeric_service, ec);
  if (ec || results.empty()) {
    error = "cannot listen on " + where + ": " + (ec ? ec.message() : "no address");
    return -1;
  }
  const asio::ip::tcp::endpoint endpoint = results.begin()->endpoint();
  if (!endpoint.address().is_loopback() && !allowNonLoopback) {
    error = "refusing to listen on " + where + ": " + endpoint.address().to_string() +
            " is not a loopback address (clients are not authenticated; allow it explicitly to listen there)";
    return -1;
  }
  acceptor.open(endpoint.protocol(), ec);
  if (!ec) acceptor.set_option(asio::socket_base::reuse_address(true), ec);
  if (!ec) acceptor.bind(endpoint, ec);
  if (!ec) acceptor.listen(asio::socket_base::max_listen_connections, ec);
  if (ec) {
    error = "cannot listen on " + where + ": " + ec.message();
    return -1;
  }
  return acceptor.local_endpoint(ec).port();
}

void ClientServer::Impl::acceptUnix() {
  m_unixAcceptor.async_accept([this](const asio::error_code& ec, asio::local::stream_protocol::socket socket) {
    if (ec == asio::error::operation_aborted || m_closing) return;
    if (ec) {
      logAppUni(kLogHandle, __FILE__, kLogError, __LINE__, "accepting on %s failed: %s", options.socketPath.c_str(),
                ec.message().c_str());
    } else {
      addConnection(Connection::Socket(std::move(socket)), "unix:", false);
    }
    acceptUnix();
  });
}

void ClientServer::Impl::acceptTcp() { acceptInet(m_tcpAcceptor, false); }

void ClientServer::Impl::acceptWeb() { acceptInet(m_webAcceptor, true); }

void ClientServer::Impl::acceptInet(asio::ip::tcp::acceptor& acceptor, bool web) {
  acceptor.async_accept([this, &acceptor, web](const asio::error_code& ec, asio::ip::tcp::socket socket) {
    if (ec == asio::error::operation_aborted || m_closing) return;
    if (ec) {
      asio::error_code ignored;
      logAppUni(kLogHandle, __FILE__, kLogError, __LINE__, "accepting on %s port %d failed: %s", web ? "web" : "TCP",
                acceptor.local_endpoint(ignored).port(), ec.message().c_str());
    } else {
      asio::error_code peerError;
      const auto peer = socket.remote_endpoint(peerError);
      socket.set_option(asio::ip::tcp::no_delay(true), peerError);
      addConnection(
          Connection::Socket(std::move(socket)),
          std::string(web ? "web:" : "tcp:") + peer.address().to_string() + ":" + std::to_string(peer.port()) + "#",
          web);
    }
    acceptInet(acceptor, web);
  });
}

void ClientServer::Impl::addConnection(Connection::Socket socket, const std::string& prefix, bool web) {
  std::shared_ptr<Connection> connection;
  {
    MutexLock guard(mutex);
    if (connections.size() >= options.maxConnections) {
      const bool first = !refusing;
      refusing = true;
      guard.unlock();
      refuseConnection(socket, first);
      return;
    }
    refusing = false;
    const std::string clientId = prefix + std::to_string(nextConnection++);
    auto transport = web ? clientserver::makeWebTransport(std::move(socket), m_web, clientId)
                         : clientserver::makeStreamTransport(std::move(socket), options.maxFrameSize);
    connection = std::make_shared<Connection>(*this, std::move(transport), clientId);
    connections[clientId] = connection;
  }
  logAppUni(kLogHandle, __FILE__, kLogTrace, __LINE__, "client %s connected", connection->clientId().c_str());
  connection->start();
}

// The limit of connections is reached: this one is closed before anything is read from it.
void ClientServer::Impl::refuseConnection(Connection::Socket& socket, bool firstOfARun) {
  logAppUni(kLogHandle, __FILE__, firstOfARun ? kLogError : kLogTrace, __LINE__,
            "a client was refused: %zu connections are open, the most this server takes", options.maxConnections);
  asio::error_code ignored;
  socket.shutdown(asio::socket_base::shutdown_both, ignored);
  socket.close(ignored);
}

void ClientServer::Impl::requestArrived(std::shared_ptr<Connection> connection, std::string message) {
  if (!m_requests) return;
  const auto lane = connection->lane();
  m_requests->post(lane, [this, connection = std::move(connection), message = std::move(message)] {
    handleRequest(connection, message);
  });
}

void ClientServer::Impl::connectionClosed(std::shared_ptr<Connection> connection) {
  if (!m_requests) return;
  // On the connection's lane: after every request the client sent before.
  const auto lane = connection->lane();
  m_requests->post(lane, [this, connection = std::move(connection)] { detach(connection); });
}

std::string ClientServer::Impl::invoke(const std::string& message, const std::string& clientId) {
  Executable* service;
  Invoker* serviceInvoker;
  {
    MutexLock guard(mutex);
    service = target;
    serviceInvoker = invoker;
  }
  if (!serviceInvoker) {
    logAppUni(kLogHandle, __FILE__, kLogError, __LINE__, "client %s: no service to answer the request",
              clientId.c_str());
    return JournalServiceHelper::FAILURE;
  }
  clientserver::Response response(clientId);
  serviceInvoker->handleMessage(service, message.data(), static_cast<int>(message.size()), &response);
  if (!response.completed()) {
    logAppUni(kLogHandle, __FILE__, kLogTrace, __LINE__, "client %s: request returned without completing; replied",
              clientId.c_str());
  }
  return response.takeText();
}

void ClientServer::Impl::handleRequest(const std::shared_ptr<Connection>& connection, const std::string& message) {
  const std::string& clientId = connection->clientId();
  const std::string root = clientserver::rootElementName(message);
  Handler handler;
  {
    MutexLock guard(mutex);
    auto found = handlers.find(root);
    if (found != handlers.end()) handler = found->second;
  }
  logAppUni(kLogHandle, __FILE__, kLogTrace, __LINE__, "client %s: request <%s> of %zu bytes", clientId.c_str(),
            root.c_str(), message.size());
  std::string reply;
  try {
    reply = handler ? handler(message, clientId) : invoke(message, clientId);
  } catch (const std::exception& e) {
    logAppUni(kLogHandle, __FILE__, kLogError, __LINE__, "client %s: request <%s> threw: %s", clientId.c_str(),
              root.c_str(), e.what());
    reply = JournalServiceHelper::FAILURE;
  } catch (...) {
    logAppUni(kLogHandle, __FILE__, kLogError, __LINE__, "client %s: request <%s> threw", clientId.c_str(),
              root.c_str());
    reply = JournalServiceHelper::FAILURE;
  }
  connection->enqueue(std::move(reply));
  connection->requestDone();
}

void ClientServer::Impl::detach(const std::shared_ptr<Connection>& connection) {
  std::vector<std::string> detachMessages;
  {
    MutexLock guard(connection->proxyMutex);
    connection->detaching = true;
    for (const auto& entry : connection->proxies) {
      if (!entry.second.detachMessage.empty()) detachMessages.push_back(entry.second.detachMessage);
    }
  }
  for (const std::string& message : detachMessages) detachAll(message, connection->clientId());
  std::map<std::string, clientserver::ProxyEntry> proxies;
  {
    MutexLock guard(connection->proxyMutex);
    proxies.swap(connection->proxies);
  }
  for (auto& entry : proxies) delete entry.second.proxy;
  proxies.clear();
  MutexLock guard(mutex);
  connections.erase(connection->clientId());
}

// A client may have subscribed its proxy more than once, and each detach takes back one: the
// message is repeated for as long as the module answers it with true, so that nothing the module
// keeps refers to the proxy once it is deleted.
void ClientServer::Impl::detachAll(const std::string& message, const std::string& clientId) {
  const std::string detached = JournalServiceHelper::respBool(true);
  std::size_t count = 0;
  try {
    while (invoke(message, clientId) == detached) {
      if (++count == kMaxDetaches) {
        logAppUni(kLogHandle, __FILE__, kLogError, __LINE__, "client %s: still attached after %zu detach messages",
                  clientId.c_str(), count);
        return;
      }
    }
  } catch (...) {
    logAppUni(kLogHandle, __FILE__, kLogError, __LINE__, "client %s: detach message threw", clientId.c_str());
  }
  if (count > 1)
    logAppUni(kLogHandle, __FILE__, kLogTrace, __LINE__, "client %s: detached %zu times", clientId.c_str(), count);
}

Proxy* ClientServer::Impl::getProxy(const std::string& interfaceName, const std::string& clientId) {
  std::shared_ptr<Connection> connection;
  Factory factory;
  {
    MutexLock guard(mutex);
    auto foundConnection = connections.find(clientId);
    auto foundFactory = factories.find(interfaceName);
    if (foundConnection == connections.end() || foundFactory == factories.end()) return nullptr;
    connection = foundConnection->second;
    factory = foundFactory->second;
  }
  {
    MutexLock guard(connection->proxyMutex);
    auto found = connection->proxies.find(interfaceName);
    if (found != connection->proxies.end()) return found->second.proxy;
    if (connection->detaching) return nullptr;
  }
  Proxy* proxy = factory.make ? factory.make() : nullptr;
  if (!proxy) {
    logAppUni(kLogHandle, __FILE__, kLogError, __LINE__, "client %s: no proxy of %s could be made", clientId.c_str(),
              interfaceName.c_str());
    return nullptr;
  }
  auto channel = std::make_shared<clientserver::Channel>(connection);
  proxy->initProxy(*channel);
  Proxy* existing = nullptr;
  {
    MutexLock guard(connection->proxyMutex);
    auto found = connection->proxies.find(interfaceName);
    if (found != connection->proxies.end()) {
      existing = found->second.proxy;  // made meanwhile on another thread
    } else if (!connection->detaching) {
      connection->proxies[interfaceName] = clientserver::ProxyEntry{channel, proxy, factory.detachMessage};
      return proxy;
    }
  }
  delete proxy;
  return existing;
}

void ClientServer::Impl::stop() {
  if (!m_started) return;
  m_started = false;
  // Close the listeners and every connection on the I/O thread; each close queues its detaching.
  std::promise<void> closed;
  asio::post(io, [this, &closed] {
    m_closing = true;
    asio::error_code ignored;
    m_unixAcceptor.close(ignored);
    m_tcpAcceptor.close(ignored);
    m_webAcceptor.close(ignored);
    std::vector<std::shared_ptr<Connection>> open;
    {
      MutexLock guard(mutex);
      for (const auto& entry : connections) open.push_back(entry.second);
    }
    for (const auto& connection : open) connection->close("the server stops", kLogNotable);
    closed.set_value();
  });
  closed.get_future().wait();
  // Pending requests and the detaching run while the proxy provider is still installed.
  m_requests->waitIdle();
  m_work.reset();
  io.stop();
  m_ioThread.join();
  m_requests.reset();
  context.setProxyProvider(nullptr);
  removeSocketFile();
  logAppUni(kLogHandle, __FILE__, kLogNotable, __LINE__, "stopped");
}

void ClientServer::Impl::removeSocketFile() {
  if (!m_socketFileOurs) return;
  m_socketFileOurs = false;
  // Only the file this server made: a later server may have replaced it meanwhile.
  struct stat st;
  if (lstat(options.socketPath.c_str(), &st) == 0 && st.st_dev == m_socketDev && st.st_ino == m_socketIno) {
    unlink(options.socketPath.c_str());
  }
}

ClientServer::ClientServer(FrameworkContext& context, ClientServerOptions options)
    : m_impl(std::make_unique<Impl>(context, std::move(options))) {}

ClientServer::~ClientServer() { stop(); }

void ClientServer::setTarget(Executable* target, Invoker* invoker) {
  MutexLock guard(m_impl->mutex);
  m_impl->target = target;
  m_impl->invoker = invoker;
}

void ClientServer::addProxyFactory(const std::string& interfaceName, std::function<Proxy*()> factory,
                                   std::string detachMessage) {
  MutexLock guard(m_impl->mutex);
  m_impl->factories[interfaceName] = Impl::Factory{std::move(factory), std::move(detachMessage)};
}

void ClientServer::setHandler(const std::string& rootElement,
                              std::function<std::string(const std::string&, const std::string&)> handler) {
  MutexLock guard(m_impl->mutex);
  if (handler) {
    m_impl->handlers[rootElement] = std::move(handler);
  } else {
    m_impl->handlers.erase(rootElement);
  }
}

bool ClientServer::start(std::string& error) {
  error.clear();
  const bool started = m_impl->start(error);
  if (!started) logAppUni(kLogHandle, __FILE__, kLogError, __LINE__, "cannot start: %s", error.c_str());
  return started;
}

void ClientServer::stop() { m_impl->stop(); }

int ClientServer::tcpPort() const {
  MutexLock guard(m_impl->mutex);
  return m_impl->boundPort;
}

int ClientServer::webPort() const {
  MutexLock guard(m_impl->mutex);
  return m_impl->webBoundPort;
}

std::size_t ClientServer::connectionCount() const {
  MutexLock guard(m_impl->mutex);
  return m_impl->connections.size();
}

}  // namespace fw
