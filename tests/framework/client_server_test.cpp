// The client server with the blocking client: framing, dispatch, per-connection proxies, and the
// ways a connection ends (oversize frame, stuck subscriber, disconnect, stop).
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "framework/ClientServer.h"
#include "framework/JournalClient.h"

namespace {

const std::string kSubscribe = "<journalRequest><method>subscribe</method></journalRequest>";
const std::string kDetach = "<journalRequest><method>unsubscribe</method></journalRequest>";
const char* kInterface = "Observer";

// `gate` stands for the module's notifier lock: a sender holding it never sees a deleted proxy.
struct TestProxy : Proxy {
  static std::atomic<int> live;
  static std::mutex gate;
  ProxyRequest* channel = nullptr;
  TestProxy() { ++live; }
  ~TestProxy() override {
    std::lock_guard<std::mutex> guard(gate);
    --live;
  }
  void initProxy(ProxyRequest& request) override { channel = &request; }
};
std::atomic<int> TestProxy::live{0};
std::mutex TestProxy::gate;

// Answers "clientId|message"; a subscribe fetches the client's proxy, the detach message notes
// whether the proxy could still be found.
class RecordingInvoker : public Invoker {
 public:
  explicit RecordingInvoker(FrameworkContext& context) : m_context(context) {}
  void handleMessage(Executable*, const char* msg, int length, InvokerResponse* response) override {
    const std::string text(msg, static_cast<std::size_t>(length));
    const std::string client = response->getClientId();
    Proxy* proxy = text == kSubscribe || text == kDetach ? m_context.getProxy(kInterface, client) : nullptr;
    {
      std::lock_guard<std::mutex> guard(m_mutex);
      m_seen.messages.push_back(client + "|" + text);
      if (text == kSubscribe) m_seen.proxies[client] = static_cast<TestProxy*>(proxy);
      if (text == kDetach) m_seen.detached[client] = proxy == m_seen.proxies[client];
    }
    if (!text.empty()) response->setResponse(client + "|" + text);
    response->complete();
  }
  struct Seen {
    std::vector<std::string> messages;
    std::map<std::string, TestProxy*> proxies;  // by client id
    std::map<std::string, bool> detached;       // by client id: the proxy was still found then
  };
  Seen seen() {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_seen;
  }

 private:
  FrameworkContext& m_context;
  std::mutex m_mutex;
  Seen m_seen;
};

bool waitFor(const std::function<bool()>& condition) {
  for (int i = 0; i < 1000 && !condition(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  return condition();
}

class ClientServerTest : public ::testing::Test {
 protected:
  ClientServerTest() : m_context(m_time), m_invoker(m_context) {
    char dir[] = "/tmp/client_server_XXXXXX";
    m_dir = mkdtemp(dir);
    m_options.socketPath = m_dir + "/journal.sock";
  }
  ~ClientServerTest() override {
    m_server.reset();
    std::remove(m_options.socketPath.c_str());
    rmdir(m_dir.c_str());
  }
  void start() {
    m_server = std::make_unique<fw::ClientServer>(m_context, m_options);
    m_server->setTarget(nullptr, &m_invoker);
    m_server->addProxyFactory(
        kInterface, [this] { return ++m_factoryCalls, new TestProxy; }, kDetach);
    std::string error;
    ASSERT_TRUE(m_server->start(error)) << error;
  }
  void connect(fw::JournalClient& client) {
    std::string error;
    ASSERT_TRUE(client.connect("unix:" + m_options.socketPath, error)) << error;
  }
  // The client id the server gave `client`, from the reply to a request.
  std::string idOf(fw::JournalClient& client) {
    std::string reply, error;
    EXPECT_TRUE(client.call("<who/>", reply, error)) << error;
    return reply.substr(0, reply.find('|'));
  }

  fw::ManualTimeSource m_time;
  FrameworkContext m_context;
  RecordingInvoker m_invoker;
  LogCapture m_log;
  std::string m_dir;
  fw::ClientServerOptions m_options;
  std::unique_ptr<fw::ClientServer> m_server;
  std::atomic<int> m_factoryCalls{0};
};

TEST_F(ClientServerTest, RepliesComeInOrderAndHandlersAndIdentitiesAreKept) {
  start();
  m_server->setHandler("daemonStatus", [](const std::string& message, const std::string& client) {
    return "<status>" + client + " " + std::to_string(message.size()) + "</status>";
  });
  fw::JournalClient a, b;
  connect(a);
  connect(b);
  const std::string idA = idOf(a), idB = idOf(b);
  EXPECT_EQ(idA.rfind("unix:", 0), 0u);
  EXPECT_NE(idA, idB);
  EXPECT_EQ(idOf(a), idA);

  // Pipelined on a third connection: five frames sent before any reply is read come back in order.
  fw::JournalClient c;
  connect(c);
  std::string reply, error;
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(c.send("<m>" + std::to_string(i) + "</m>", error));
  for (int i = 0; i < 5; ++i) {
    ASSERT_TRUE(c.call("<m>" + std::to_string(i + 5) + "</m>", reply, error)) << error;
    EXPECT_EQ(reply.substr(reply.find('|')), "|<m>" + std::to_string(i) + "</m>");
  }
  // An empty reply travels as a zero-length frame; text that is not XML still reaches the invoker.
  ASSERT_TRUE(a.call("", reply, error)) << error;
  EXPECT_EQ(reply, "");
  ASSERT_TRUE(a.call("not <xml", reply, error)) << error;
  EXPECT_EQ(reply, idA + "|not <xml");
  const std::string status = "<?xml version=\"1.0\"?><daemonStatus/>";
  ASSERT_TRUE(b.call(status, reply, error)) << error;
  EXPECT_EQ(reply, "<status>" + idB + " " + std::to_string(status.size()) + "</status>");
  EXPECT_EQ(m_invoker.seen().messages.size(), 15u);  // the handler's message never reached the invoker
}

TEST_F(ClientServerTest, EachConnectionHasItsOwnProxyDetachedWhenItCloses) {
  start();
  fw::JournalClient a, b;
  connect(a);
  connect(b);
  std::string reply, error, event;
  ASSERT_TRUE(a.call(kSubscribe, reply, error)) << error;
  ASSERT_TRUE(a.call(kSubscribe, reply, error)) << error;
  ASSERT_TRUE(b.call(kSubscribe, reply, error)) << error;
  const std::string idA = idOf(a), idB = idOf(b);
  TestProxy* proxyA = m_invoker.seen().proxies.at(idA);
  TestProxy* proxyB = m_invoker.seen().proxies.at(idB);
  ASSERT_TRUE(proxyA && proxyB);
  EXPECT_NE(proxyA, proxyB);
  EXPECT_EQ(m_factoryCalls, 2);

  proxyA->channel->send("<journalEvent>a</journalEvent>");
  proxyB->channel->send("<journalEvent>b</journalEvent>");
  // An event that arrives while a reply is awaited is kept for later.
  ASSERT_TRUE(a.call("<m/>", reply, error)) << error;
  EXPECT_EQ(reply, idA + "|<m/>");
  ASSERT_TRUE(a.nextEvent(event, error, 5000)) << error;
  EXPECT_EQ(event, "<journalEvent>a</journalEvent>");
  ASSERT_TRUE(b.nextEvent(event, error, 5000)) << error;
  EXPECT_EQ(event, "<journalEvent>b</journalEvent>");

  a.close();
  ASSERT_TRUE(waitFor([&] { return m_server->connectionCount() == 1; }));
  EXPECT_EQ(m_invoker.seen().detached, (std::map<std::string, bool>{{idA, true}}));
  EXPECT_EQ(TestProxy::live, 1);
  m_server->stop();  // closes b: its proxy is detached the same way
  EXPECT_EQ(m_invoker.seen().detached.size(), 2u);
  EXPECT_EQ(TestProxy::live, 0);
}

TEST_F(ClientServerTest, AnOversizeFrameClosesOnlyThatConnection) {
  m_options.maxFrameSize = 1024;
  start();
  fw::JournalClient a, b;
  connect(a);
  connect(b);
  const std::string idA = idOf(a);
  std::string reply, error;
  ASSERT_TRUE(a.call(std::string(1024, 'x'), reply, error)) << error;  // at the limit: fine
  EXPECT_FALSE(a.call(std::string(1025, 'x'), reply, error));
  EXPECT_FALSE(a.connected()) << error;
  EXPECT_TRUE(m_log.contains(idA, fw::kLogError));
  ASSERT_TRUE(b.call("<m/>", reply, error)) << error;
  EXPECT_EQ(reply.substr(reply.find('|')), "|<m/>");
}

TEST_F(ClientServerTest, AStuckSubscriberIsDisconnectedWithoutBlockingTheSender) {
  m_options.maxQueuedBytes = 64 * 1024;
  start();
  fw::JournalClient stuck, other;
  connect(stuck);
  connect(other);
  std::string reply, error;
  ASSERT_TRUE(stuck.call(kSubscribe, reply, error)) << error;
  const std::string id = idOf(stuck);
  ProxyRequest* channel = m_invoker.seen().proxies.at(id)->channel;
  // Far more than the socket buffers and the queue hold together; the client never reads.
  const std::string event = "<journalEvent>" + std::string(4096, 'e') + "</journalEvent>";
  int sent = 0;
  while (m_server->connectionCount() == 2 && sent < 20000) {
    std::lock_guard<std::mutex> guard(TestProxy::gate);
    if (TestProxy::live == 1) channel->send(event);
    ++sent;
  }
  ASSERT_TRUE(waitFor([&] { return m_server->connectionCount() == 1; }));
  EXPECT_TRUE(m_log.contains("client " + id + " does not keep up", fw::kLogError));
  ASSERT_TRUE(other.call("<m/>", reply, error)) << error;
}

TEST_F(ClientServerTest, SocketFileIsOwnerOnlyReplacesAStaleOneAndGoesAtStop) {
  // A socket file left behind by a server that died.
  const int stale = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, m_options.socketPath.c_str());
  ASSERT_EQ(bind(stale, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  close(stale);
  start();
  struct stat st;
  ASSERT_EQ(stat(m_options.socketPath.c_str(), &st), 0);
  EXPECT_TRUE(S_ISSOCK(st.st_mode));
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  // A second server refuses the path while the first answers on it.
  fw::ClientServer second(m_context, m_options);
  std::string error;
  EXPECT_FALSE(second.start(error));
  EXPECT_NE(error.find("another server"), std::string::npos) << error;
  m_server->stop();
  EXPECT_NE(stat(m_options.socketPath.c_str(), &st), 0);
  fw::JournalClient client;
  EXPECT_FALSE(client.connect(m_options.socketPath, error));
  EXPECT_EQ(error, "cannot connect to " + m_options.socketPath + ": No such file or directory");
}

TEST_F(ClientServerTest, TcpListensOnLoopbackAndRefusesOtherHostsUnlessAllowed) {
  m_options.socketPath.clear();
  m_options.tcpPort = 0;
  m_options.tcpHost = "0.0.0.0";
  fw::ClientServer refused(m_context, m_options);
  std::string error, reply;
  EXPECT_FALSE(refused.start(error));
  EXPECT_NE(error.find("not a loopback address"), std::string::npos) << error;

  m_options.tcpHost = "127.0.0.1";
  start();
  ASSERT_GT(m_server->tcpPort(), 0);
  fw::JournalClient client;
  ASSERT_TRUE(client.connect("tcp:127.0.0.1:" + std::to_string(m_server->tcpPort()), error)) << error;
  ASSERT_TRUE(client.call("<m/>", reply, error)) << error;
  EXPECT_EQ(reply.rfind("tcp:127.0.0.1:", 0), 0u) << reply;
  EXPECT_NE(reply.find('#'), std::string::npos) << reply;

  m_options.tcpHost = "0.0.0.0";
  m_options.allowNonLoopbackTcp = true;
  fw::ClientServer allowed(m_context, m_options);
  EXPECT_TRUE(allowed.start(error)) << error;
}

}  // namespace
