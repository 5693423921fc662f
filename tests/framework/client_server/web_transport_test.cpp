// The client server's web listener: the WebSocket carries the same protocol as the Unix socket
// (dispatch, proxies, limits), the page's files are served and nothing else, and a page of
// another site is refused.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <mutex>
#include <thread>

#include "CountedProxy.h"
#include "LogCapture.h"
#include "WebClient.h"
#include "client_server/ClientServer.h"
#include "client_server/JournalClient.h"

namespace {

using webclient::WebSocketClient;

const std::string kSubscribe = "<journalRequest><method>subscribe</method></journalRequest>";
const std::string kDetach = "<journalRequest><method>unsubscribe</method></journalRequest>";
const char* kInterface = "Observer";

using clientservertest::CountedProxy;

// Answers "clientId|message"; a subscribe makes the client's proxy and keeps its channel.
class EchoInvoker : public Invoker {
 public:
  explicit EchoInvoker(FrameworkContext& context) : m_context(context) {}
  void handleMessage(Executable*, const char* msg, int length, InvokerResponse* response) override {
    const std::string text(msg, static_cast<std::size_t>(length));
    const std::string client = response->getClientId();
    if (text == kSubscribe) {
      auto* proxy = static_cast<CountedProxy*>(m_context.getProxy(kInterface, client));
      std::lock_guard<std::mutex> guard(m_mutex);
      m_channels[client] = proxy ? proxy->channel : nullptr;
      m_lastSubscriber = client;
    }
    if (text == kDetach) {
      std::lock_guard<std::mutex> guard(m_mutex);
      ++m_detached[client];
    }
    response->setResponse(client + "|" + text);
    response->complete();
  }
  ProxyRequest* channel(const std::string& client) {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_channels[client];
  }
  std::string lastSubscriber() {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_lastSubscriber;
  }
  int detached(const std::string& client) {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_detached[client];
  }

 private:
  FrameworkContext& m_context;
  std::mutex m_mutex;
  std::map<std::string, ProxyRequest*> m_channels;
  std::map<std::string, int> m_detached;
  std::string m_lastSubscriber;
};

bool waitFor(const std::function<bool()>& condition) {
  for (int i = 0; i < 1000 && !condition(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  return condition();
}

std::string idIn(const std::string& reply) { return reply.substr(0, reply.find('|')); }
std::string echoed(const std::string& reply) { return reply.substr(reply.find('|')); }

// A server with a Unix socket and a web listener on an ephemeral port, its page's files in a
// folder of the test's own.
class WebClientServerTest : public ::testing::Test {
 protected:
  WebClientServerTest() : m_context(m_time), m_invoker(m_context) {
    char pattern[] = "/tmp/web-transport-XXXXXX";
    m_dir = mkdtemp(pattern);
    m_options.socketPath = m_dir + "/server.sock";
    m_options.webPort = 0;
    m_options.webRoot = m_dir + "/web";
    mkdir(m_options.webRoot.c_str(), 0700);
    std::ofstream(m_options.webRoot + "/index.html") << "<!doctype html><title>lists</title>";
    std::ofstream(m_options.webRoot + "/app.js") << "connect();";
    std::ofstream(m_options.webRoot + "/.hidden") << "secret";
    std::ofstream(m_dir + "/outside.html") << "outside";
  }
  ~WebClientServerTest() override {
    m_server.reset();
    std::system(("rm -rf '" + m_dir + "'").c_str());
  }
  void start() {
    m_server = std::make_unique<fw::ClientServer>(m_context, m_options);
    m_server->setTarget(nullptr, &m_invoker);
    m_server->addProxyFactory(
        kInterface, [] { return new CountedProxy; }, kDetach);
    std::string error;
    ASSERT_TRUE(m_server->start(error)) << error;
    ASSERT_GT(m_server->webPort(), 0);
  }
  int port() const { return m_server->webPort(); }
  std::string origin() const { return "http://127.0.0.1:" + std::to_string(port()); }
  void connect(fw::JournalClient& client) {
    std::string error;
    ASSERT_TRUE(client.connect("unix:" + m_options.socketPath, error)) << error;
  }

  std::string m_dir;
  fw::ManualTimeSource m_time;
  FrameworkContext m_context;
  EchoInvoker m_invoker;
  LogCapture m_log;
  fw::ClientServerOptions m_options;
  std::unique_ptr<fw::ClientServer> m_server;
};

TEST_F(WebClientServerTest, AWebSocketClientIsServedAsASocketClientIs) {
  start();
  fw::JournalClient unix;
  connect(unix);
  std::string unixReply, error;
  ASSERT_TRUE(unix.call("<m/>", unixReply, error)) << error;
  WebSocketClient web;
  ASSERT_TRUE(web.open(port(), origin()));
  const std::string webReply = web.call("<m/>");
  EXPECT_EQ(echoed(unixReply), echoed(webReply));
  const std::string id = idIn(webReply);
  EXPECT_EQ(0u, id.rfind("web:127.0.0.1:", 0)) << id;
  EXPECT_NE(std::string::npos, id.find('#')) << id;

  // Its proxy's messages arrive as text frames; at its end the proxy is detached.
  EXPECT_EQ(id + "|" + kSubscribe, web.call(kSubscribe));
  ProxyRequest* channel = m_invoker.channel(id);
  ASSERT_NE(nullptr, channel);
  channel->send("<journalEvent>one</journalEvent>");
  std::string event;
  ASSERT_TRUE(web.next(event));
  EXPECT_EQ("<journalEvent>one</journalEvent>", event);
}

TEST_F(WebClientServerTest, AClosedWebSocketsProxyIsDetached) {
  start();
  std::string id;
  {
    WebSocketClient web;
    ASSERT_TRUE(web.open(port()));  // a program sends no Origin
    id = idIn(web.call(kSubscribe));
    EXPECT_EQ(1, CountedProxy::live);
  }
  ASSERT_TRUE(waitFor([&] { return m_server->connectionCount() == 0; }));
  EXPECT_EQ(1, m_invoker.detached(id));
  EXPECT_EQ(0, CountedProxy::live);
}

TEST_F(WebClientServerTest, ThePagesFilesAreServedAndNothingElse) {
  start();
  const webclient::HttpResponse page = webclient::httpGet(port(), "/");
  EXPECT_EQ(200, page.status);
  EXPECT_EQ("<!doctype html><title>lists</title>", page.body);
  EXPECT_EQ("text/html; charset=utf-8", page.headers.at("content-type"));
  EXPECT_EQ("no-cache", page.headers.at("cache-control"));
  const webclient::HttpResponse script = webclient::httpGet(port(), "/app.js?v=2");
  EXPECT_EQ(200, script.status);
  EXPECT_EQ("connect();", script.body);
  EXPECT_EQ("text/javascript; charset=utf-8", script.headers.at("content-type"));

  for (const std::string path :
       {"/../outside.html", "/..%2Foutside.html", "/.hidden", "/missing.css", "//etc/passwd", "/web/index.html", "/."})
    EXPECT_EQ(404, webclient::httpGet(port(), path).status) << path;
  EXPECT_EQ(405, webclient::httpGet(port(), "/", "POST").status);
  EXPECT_EQ(405, webclient::httpGet(port(), "/", "DELETE").status);
}

TEST_F(WebClientServerTest, AWebSocketFromAPageOfAnotherSiteIsRefused) {
  start();
  WebSocketClient foreign;
  EXPECT_FALSE(foreign.open(port(), "http://attacker.example"));
  EXPECT_EQ(403, foreign.status());
  WebSocketClient otherPort;
  EXPECT_FALSE(otherPort.open(port(), "http://127.0.0.1:" + std::to_string(port() + 1)));
  EXPECT_EQ(403, otherPort.status());
  WebSocketClient elsewhere;
  EXPECT_FALSE(elsewhere.open(port(), origin(), "/socket"));
  EXPECT_EQ(404, elsewhere.status());
  EXPECT_TRUE(m_log.contains("a page of http://attacker.example is not a page of 127.0.0.1:"));
  WebSocketClient own;
  EXPECT_TRUE(own.open(port(), origin()));
}

TEST_F(WebClientServerTest, AnOversizeOrBinaryMessageClosesOnlyThatWebSocket) {
  m_options.maxFrameSize = 1024;
  start();
  WebSocketClient large, binary, other;
  ASSERT_TRUE(large.open(port()));
  ASSERT_TRUE(binary.open(port()));
  ASSERT_TRUE(other.open(port()));
  const std::string atLimit(1024, 'x');
  const std::string largeId = idIn(large.call(atLimit));
  const std::string binaryId = idIn(binary.call("<m/>"));
  large.send(std::string(1025, 'x'));
  EXPECT_TRUE(large.waitClosed());
  EXPECT_TRUE(m_log.contains("client " + largeId + ": connection closed: a message is over the limit of 1024 bytes",
                             fw::kLogError));
  binary.send("<m/>", websocketpp::frame::opcode::binary);
  EXPECT_TRUE(binary.waitClosed());
  EXPECT_TRUE(m_log.contains("client " + binaryId + ": connection closed: a binary frame", fw::kLogError));
  EXPECT_EQ("|<m/>", echoed(other.call("<m/>")));
  ASSERT_TRUE(waitFor([&] { return m_server->connectionCount() == 1; }));
}

TEST_F(WebClientServerTest, OneConnectionLimitCountsSocketAndWebClients) {
  m_options.maxConnections = 2;
  start();
  fw::JournalClient a, b;
  connect(a);
  WebSocketClient web;
  ASSERT_TRUE(web.open(port()));
  connect(b);  // the third: closed at once
  std::string reply, error;
  EXPECT_FALSE(b.call("<m/>", reply, error, 5000));
  WebSocketClient refused;
  EXPECT_FALSE(refused.open(port()));
  EXPECT_EQ(2, m_log.count("a client was refused: 2 connections are open"));

  a.close();
  ASSERT_TRUE(waitFor([&] { return m_server->connectionCount() == 1; }));
  WebSocketClient admitted;
  ASSERT_TRUE(admitted.open(port()));
  EXPECT_EQ("|<m/>", echoed(admitted.call("<m/>")));
}

TEST_F(WebClientServerTest, AWebClientFloodingRequestsIsReadNoFasterThanItIsAnswered) {
  start();
  std::mutex held;
  std::unique_lock<std::mutex> hold(held);
  m_server->setHandler("slow", [&](const std::string& message, const std::string&) {
    std::lock_guard<std::mutex> wait(held);
    return message;
  });
  WebSocketClient web;
  ASSERT_TRUE(web.open(port()));
  for (int i = 0; i < 100; ++i) web.send("<slow n=\"" + std::to_string(i) + "\"/>");
  ASSERT_TRUE(waitFor([&] { return m_log.contains("requests pending, reading paused"); }));
  hold.unlock();
  for (int i = 0; i < 100; ++i) {
    std::string reply;
    ASSERT_TRUE(web.next(reply)) << i;
    EXPECT_EQ("<slow n=\"" + std::to_string(i) + "\"/>", reply);
  }
  m_server.reset();  // before `held` goes
}

// A WebSocket client that sends `message` after its handshake and then reads nothing more.
int stuckWebSocket(int port, const std::string& message) {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(0, ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address));
  const std::string handshake = "GET /ws HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                                "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
                                "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n";
  EXPECT_EQ(static_cast<ssize_t>(handshake.size()), write(fd, handshake.data(), handshake.size()));
  std::string response;
  char c;
  while (response.find("\r\n\r\n") == std::string::npos && read(fd, &c, 1) == 1) response += c;
  EXPECT_EQ(0u, response.rfind("HTTP/1.1 101", 0)) << response;
  // A short text frame, masked (as a client's must be) with the key 0, which leaves it as it is.
  std::string frame = {'\x81', static_cast<char>(0x80 | message.size()), 0, 0, 0, 0};
  frame += message;
  EXPECT_EQ(static_cast<ssize_t>(frame.size()), write(fd, frame.data(), frame.size()));
  return fd;
}

TEST_F(WebClientServerTest, AStuckWebSubscriberIsDisconnectedWithoutBlockingTheSender) {
  m_options.maxQueuedBytes = 64 * 1024;
  start();
  WebSocketClient other;
  ASSERT_TRUE(other.open(port()));
  const int fd = stuckWebSocket(port(), kSubscribe);
  ASSERT_TRUE(waitFor([&] { return CountedProxy::live == 1; }));
  const std::string id = m_invoker.lastSubscriber();
  ProxyRequest* channel = m_invoker.channel(id);
  ASSERT_NE(nullptr, channel);
  // Far more than the socket buffers and the queue hold together.
  const std::string event = "<journalEvent>" + std::string(4096, 'e') + "</journalEvent>";
  for (int sent = 0; m_server->connectionCount() == 2 && sent < 20000; ++sent) {
    std::lock_guard<std::mutex> guard(CountedProxy::gate);
    if (CountedProxy::live == 1) channel->send(event);
  }
  ASSERT_TRUE(waitFor([&] { return m_server->connectionCount() == 1; }));
  EXPECT_TRUE(m_log.contains("client " + id + " does not keep up", fw::kLogError));
  EXPECT_EQ("|<m/>", echoed(other.call("<m/>")));
  close(fd);
}

TEST_F(WebClientServerTest, AWebRootThatIsMissingIsLoggedAndTheWebSocketStillServed) {
  m_options.webRoot = m_dir + "/nowhere";
  start();
  EXPECT_TRUE(m_log.contains("the web page's folder " + m_dir + "/nowhere does not exist", fw::kLogError));
  EXPECT_EQ(404, webclient::httpGet(port(), "/").status);
  WebSocketClient web;
  ASSERT_TRUE(web.open(port()));
  EXPECT_EQ("|<m/>", echoed(web.call("<m/>")));
}

TEST_F(WebClientServerTest, TheWebListenerRefusesANonLoopbackHostUnlessAllowed) {
  m_options.webHost = "0.0.0.0";
  std::string error;
  EXPECT_FALSE(fw::ClientServer(m_context, m_options).start(error));
  EXPECT_NE(std::string::npos, error.find("0.0.0.0 is not a loopback address")) << error;
  m_options.allowNonLoopbackWeb = true;
  fw::ClientServer allowed(m_context, m_options);
  EXPECT_TRUE(allowed.start(error)) << error;
}

}  // namespace
