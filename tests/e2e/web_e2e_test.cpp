// The daemon's web listener end to end: a call at the switch reaches a WebSocket subscriber as
// an observer message, and a listener beyond loopback is refused unless allowed.
#include <regex>

#include "DaemonFixture.h"
#include "WebClient.h"

namespace e2e {
namespace {

// The port of the daemon's log line "clients on the web at http://127.0.0.1:PORT/"; 0 until then.
int webPortIn(const std::string& log) {
  std::smatch match;
  static const std::regex line("clients on the web at http://127\\.0\\.0\\.1:([0-9]+)/");
  return std::regex_search(log, match, line) ? std::stoi(match[1]) : 0;
}

}  // namespace

using WebDaemonTest = DaemonTest;

TEST_F(WebDaemonTest, AMissedCallReachesAWebSocketSubscriber) {
  writeConfig("software-type = Velmora SIP\nclient-web = 127.0.0.1:0\nclient-web-root = " + dir + "/web\n", sim.port());
  startDaemon();
  int port = 0;
  ASSERT_TRUE(eventually([&] { return (port = webPortIn(daemon->err())) > 0; })) << daemon->err();
  EXPECT_EQ(1u, linesWith(daemon->err(), "the web page's folder " + dir + "/web does not exist").size());

  webclient::WebSocketClient page;
  ASSERT_TRUE(page.open(port, "http://127.0.0.1:" + std::to_string(port)));
  page.send(Helper::createMethodRequest(Helper::SUBSCRIBE));
  std::string message;
  while (page.next(message) && message.rfind("<journalEvent>", 0) == 0) {
  }  // the counts the subscription sends at once may come before the reply
  EXPECT_EQ(Helper::respBool(true), message);
  sendAll(missedCall("4711", "0301112222"));

  MissedCallItem item;
  std::string id;
  int action = -1;
  while (page.next(message) && !Helper::parseObsReqMissedCallsUpdate(message, item, id, action)) {
  }
  EXPECT_EQ(0, action);  // a new entry
  ASSERT_EQ(1u, item.infos().size());
  EXPECT_EQ("0301112222", item.infos().front().number);
}

TEST_F(WebDaemonTest, AWebListenerBeyondLoopbackIsRefusedUnlessAllowed) {
  writeConfig("client-web = 0.0.0.0:0\n");
  const Subprocess::Result refused = Subprocess::run({CALLJOURNALD_PATH, "--config", dir + "/calljournald.conf"});
  EXPECT_EQ(1, refused.code);
  EXPECT_EQ(1u, linesWith(refused.err, "calljournald: ").size()) << refused.err;
  EXPECT_NE(std::string::npos, lastLine(refused.err).find("0.0.0.0 is not a loopback address")) << refused.err;

  writeConfig("client-web = 0.0.0.0:0\nclient-web-allow-remote = true\n");
  launch();
  EXPECT_TRUE(eventually([&] {
    return daemon->err().find("clients on the web at http://0.0.0.0:") != std::string::npos;
  })) << daemon->err();
}

}  // namespace e2e
