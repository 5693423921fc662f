// The client server with the blocking client: framing, dispatch, per-connection proxies, and the
// ways a connection ends (oversize frame, stuck subscriber, disconnect, stop). The socket file
// (owner-only, a stale one replaced, gone at the stop) is seen end to end, as the daemon has it.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "CountedProxy.h"
#include "LogCapture.h"
#include "client_server/ClientServer.h"
#include "client_server/JournalClient.h"

namespace {

const std::string kSubscribe = "<journalRequest><method>subscribe</method></journalRequest>";
const std::string kDetach = "<journalRequest><method>unsubscribe</method></journalRequest>";
const char* kInterface = "Observer";

using clientservertest::CountedProxy;

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
      if (text == kSubscribe) m_seen.proxies[client] = static_cast<CountedProxy*>(proxy);
      if (text == kDetach) m_seen.detached[client] = proxy == m_seen.proxies[client];
    }
    if (!text.empty()) response->setResponse(client + "|" + text);
    response->complete();
  }
  struct Seen {
    std::vector<std::string> messages;
    std::map<std::string, CountedProxy*> proxies;  // by client id
    std::map<std::string, bool> detached;          // by client id: the proxy was still found then
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

// The reply to `request`; a failed call fails the test.
std::string call(fw::JournalClient& client, const std::string& request) {
  std::string reply, error;
  EXPECT_TRUE(client.call(request, reply, error)) << error;
  return reply;
}
// The message a reply echoes, without the client id.
std::string echoed(const std::string& reply) { return reply.substr(reply.find('|')); }
std::string nextEvent(fw::JournalClient& client) {
  std::string event, error;
  EXPECT_TRUE(client.nextEvent(event, error, 5000)) << error;
  return event;
}

// A server on a fresh socket path (set m_options first), with clients `a` and `b` connected to it.
class ClientServerTest : public ::testing::Test {
 protected:
  ClientServerTest() : m_context(m_time), m_invoker(m_context) {
    m_options.socketPath = "/tmp/client_server_" + std::to_string(getpid()) + ".sock";
    std::remove(m_options.socketPath.c_str());
  }
  ~ClientServerTest() override {
    m_server.reset();
    std::remove(m_options.socketPath.c_str());
  }
  void start(bool connectClients = true) {
    m_server = std::make_unique<fw::ClientServer>(m_context, m_options);
    m_server->setTarget(nullptr, &m_invoker);
    m_server->addProxyFactory(
        kInterface, [this] { return ++m_factoryCalls, new CountedProxy; }, kDetach);
    std::string error;
    ASSERT_TRUE(m_server->start(error)) << error;
    for (fw::JournalClient* client : {&a, &b})
      if (connectClients) connect(*client);
  }
  void connect(fw::JournalClient& client) {
    std::string error;
    ASSERT_TRUE(client.connect("unix:" + m_options.socketPath, error)) << error;
  }
  // The client id the server gave `client`, from the reply to a request.
  std::string idOf(fw::JournalClient& client) {
    const std::string reply = call(client, "<who/>");
    return reply.substr(0, reply.find('|'));
  }

  fw::ManualTimeSource m_time;
  FrameworkContext m_context;
  RecordingInvoker m_invoker;
  LogCapture m_log;
  fw::ClientServerOptions m_options;
  std::unique_ptr<fw::ClientServer> m_server;
  std::atomic<int> m_factoryCalls{0};
  fw::JournalClient a, b;
};

TEST_F(ClientServerTest, EachConnectionHasItsOwnProxyDetachedWhenItCloses) {
  start();
  for (fw::JournalClient* client : {&a, &a, &b}) call(*client, kSubscribe);
  const std::string idA = idOf(a), idB = idOf(b);
  CountedProxy* proxyA = m_invoker.seen().proxies.at(idA);
  CountedProxy* proxyB = m_invoker.seen().proxies.at(idB);
  ASSERT_NE(proxyA, nullptr);
  ASSERT_NE(proxyB, nullptr);
  EXPECT_NE(proxyA, proxyB);
  EXPECT_EQ(m_factoryCalls, 2);

  proxyA->channel->send("<journalEvent>a</journalEvent>");
  proxyB->channel->send("<journalEvent>b</journalEvent>");
  EXPECT_EQ(call(a, "<m/>"), idA + "|<m/>");  // an event that arrives meanwhile is kept for later
  EXPECT_EQ(nextEvent(a), "<journalEvent>a</journalEvent>");
  EXPECT_EQ(nextEvent(b), "<journalEvent>b</journalEvent>");

  a.close();
  ASSERT_TRUE(waitFor([&] { return m_server->connectionCount() == 1; }));
  EXPECT_EQ(m_invoker.seen().detached, (std::map<std::string, bool>{{idA, true}}));
  EXPECT_EQ(CountedProxy::live, 1);
  m_server->stop();  // closes b: its proxy is detached the same way
  EXPECT_EQ(m_invoker.seen().detached.size(), 2u);
  EXPECT_EQ(CountedProxy::live, 0);
}

TEST_F(ClientServerTest, AnOversizeFrameClosesOnlyThatConnection) {
  m_options.maxFrameSize = 1024;
  start();
  const std::string idA = idOf(a);
  call(a, std::string(1024, 'x'));  // at the limit: fine
  std::string reply, error;
  EXPECT_FALSE(a.call(std::string(1025, 'x'), reply, error));
  EXPECT_FALSE(a.connected()) << error;
  EXPECT_TRUE(m_log.contains(idA, fw::kLogError));
  EXPECT_EQ(echoed(call(b, "<m/>")), "|<m/>");
}

TEST_F(ClientServerTest, AStuckSubscriberIsDisconnectedWithoutBlockingTheSender) {
  m_options.maxQueuedBytes = 64 * 1024;
  start();
  call(a, kSubscribe);
  const std::string id = idOf(a);
  ProxyRequest* channel = m_invoker.seen().proxies.at(id)->channel;
  // Far more than the socket buffers and the queue hold together; `a` never reads.
  const std::string event = "<journalEvent>" + std::string(4096, 'e') + "</journalEvent>";
  for (int sent = 0; m_server->connectionCount() == 2 && sent < 20000; ++sent) {
    std::lock_guard<std::mutex> guard(CountedProxy::gate);
    if (CountedProxy::live == 1) channel->send(event);
  }
  ASSERT_TRUE(waitFor([&] { return m_server->connectionCount() == 1; }));
  EXPECT_TRUE(m_log.contains("client " + id + " does not keep up", fw::kLogError));
  EXPECT_EQ(echoed(call(b, "<m/>")), "|<m/>");
}

TEST_F(ClientServerTest, TcpListensOnLoopbackAndRefusesOtherHostsUnlessAllowed) {
  m_options.socketPath.clear();
  m_options.tcpPort = 0;
  m_options.tcpHost = "0.0.0.0";
  std::string error;
  EXPECT_FALSE(fw::ClientServer(m_context, m_options).start(error));
  EXPECT_NE(error.find("not a loopback address"), std::string::npos) << error;

  m_options.tcpHost = "127.0.0.1";
  start(false);
  ASSERT_GT(m_server->tcpPort(), 0);
  ASSERT_TRUE(a.connect("tcp:127.0.0.1:" + std::to_string(m_server->tcpPort()), error)) << error;
  const std::string reply = call(a, "<m/>");
  EXPECT_EQ(reply.rfind("tcp:127.0.0.1:", 0), 0u) << reply;
  EXPECT_NE(reply.find('#'), std::string::npos) << reply;

  m_options.tcpHost = "0.0.0.0";
  m_options.allowNonLoopbackTcp = true;
  fw::ClientServer allowed(m_context, m_options);
  EXPECT_TRUE(allowed.start(error)) << error;
}

}  // namespace

TEST_F(ClientServerTest, AClientFloodingRequestsIsReadNoFasterThanItIsAnswered) {
  start();
  std::mutex held;
  std::unique_lock<std::mutex> hold(held);
  m_server->setHandler("slow", [&](const std::string& message, const std::string&) {
    std::lock_guard<std::mutex> wait(held);
    return message;
  });
  std::string error;
  for (int i = 0; i < 100; ++i) ASSERT_TRUE(a.send("<slow n=\"" + std::to_string(i) + "\"/>", error)) << error;
  ASSERT_TRUE(waitFor([&] { return m_log.contains("requests pending, reading paused"); }));
  hold.unlock();
  // Nothing was lost while reading waited: each call now gets the reply of the flood's next request.
  for (int i = 0; i < 100; ++i) {
    std::string reply;
    ASSERT_TRUE(a.call("<slow n=\"x\"/>", reply, error, 5000)) << i << " " << error;
    EXPECT_EQ(reply, "<slow n=\"" + std::to_string(i) + "\"/>");
  }
  m_server.reset();  // the requests still queued use `held`
}

// The request threads: one client's requests run one at a time in its order, answered in that
// order, and the detaching of its proxy after them, while another client is served meanwhile.
TEST_F(ClientServerTest, OneClientsRequestsRunInItsOrderWhileAnotherClientIsServed) {
  start();
  call(a, kSubscribe);
  const std::string idA = idOf(a);
  std::mutex held, noted;
  std::unique_lock<std::mutex> hold(held);
  std::vector<std::string> started;  // guarded by `noted`, as are the two below
  int running = 0, mostAtOnce = 0;
  m_server->setHandler("slow", [&](const std::string& message, const std::string&) {
    {
      std::lock_guard<std::mutex> note(noted);
      started.push_back(message);
      mostAtOnce = std::max(mostAtOnce, ++running);
    }
    { std::lock_guard<std::mutex> wait(held); }
    std::lock_guard<std::mutex> note(noted);
    --running;
    return message;
  });
  // The server stops before the handler's state goes, with the gate open, also when an assertion
  // ends the test early.
  struct StopServerFirst {
    std::unique_lock<std::mutex>& hold;
    std::unique_ptr<fw::ClientServer>& server;
    ~StopServerFirst() {
      if (hold.owns_lock()) hold.unlock();
      server.reset();
    }
  } stopServerFirst{hold, m_server};
  auto startedCount = [&] {
    std::lock_guard<std::mutex> note(noted);
    return started.size();
  };
  auto slow = [](int n) { return "<slow n=\"" + std::to_string(n) + "\"/>"; };
  std::string error;
  for (int n = 0; n < 3; ++n) ASSERT_TRUE(a.send(slow(n), error)) << error;
  ASSERT_TRUE(waitFor([&] { return startedCount() > 0; }));
  EXPECT_EQ("|<m/>", echoed(call(b, "<m/>")));  // while a's first request waits
  EXPECT_EQ(1u, startedCount());                // a's others wait for it

  hold.unlock();
  for (int n = 0; n < 3; ++n) EXPECT_EQ(slow(n), call(a, "<m/>"));  // each call reads the next reply
  EXPECT_EQ((std::vector<std::string>{slow(0), slow(1), slow(2)}), started);
  EXPECT_EQ(1, mostAtOnce);

  hold.lock();
  ASSERT_TRUE(a.send(slow(3), error)) << error;
  ASSERT_TRUE(waitFor([&] { return startedCount() > 3; }));
  a.close();
  ASSERT_TRUE(waitFor([&] { return m_log.contains("client " + idA + ": connection closed"); }));
  EXPECT_EQ(0u, m_invoker.seen().detached.count(idA));  // not while its request runs
  hold.unlock();
  ASSERT_TRUE(waitFor([&] { return m_server->connectionCount() == 1; }));
  EXPECT_EQ(m_invoker.seen().detached, (std::map<std::string, bool>{{idA, true}}));
}

TEST_F(ClientServerTest, AReplyLargerThanTheQueueBoundGoesWhenNothingElseWaits) {
  m_options.maxQueuedBytes = 64 * 1024;
  start();
  const std::string large = "<m>" + std::string(256 * 1024, 'x') + "</m>";
  const std::string reply = call(a, large);  // echoed back: four times the bound
  EXPECT_EQ(idOf(a).size() + 1 + large.size(), reply.size());
  EXPECT_TRUE(a.connected());
}

TEST_F(ClientServerTest, AFrameArrivingInPiecesIsReadWhole) {
  start();
  // A header announcing the frame, then its bytes in three writes with pauses between them.
  const std::string body = "<m>" + std::string(200 * 1024, 'y') + "</m>";
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, m_options.socketPath.c_str());
  ASSERT_EQ(0, ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address));
  const uint32_t length = static_cast<uint32_t>(body.size());
  const unsigned char header[4] = {static_cast<unsigned char>(length >> 24), static_cast<unsigned char>(length >> 16),
                                   static_cast<unsigned char>(length >> 8), static_cast<unsigned char>(length)};
  ASSERT_EQ(4, write(fd, header, 4));
  const std::size_t third = body.size() / 3;
  for (std::size_t at = 0; at < body.size(); at += third) {
    const std::size_t n = std::min(third, body.size() - at);
    ASSERT_EQ(static_cast<ssize_t>(n), write(fd, body.data() + at, n));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  ASSERT_TRUE(waitFor([&] { return m_invoker.seen().messages.size() == 1; }));
  const std::string seen = m_invoker.seen().messages.front();
  EXPECT_EQ(body, seen.substr(seen.find('|') + 1));
  close(fd);
}
