// The blocking client against a bare socket server written here, so that the bytes and their
// timing are the test's: a large frame is received straight into its payload, and a call that
// times out in the middle of one leaves the stream readable for the next call.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include "client_server/JournalClient.h"

namespace {

std::string frame(const std::string& payload) {
  const auto length = static_cast<uint32_t>(payload.size());
  std::string framed = {static_cast<char>(length >> 24), static_cast<char>((length >> 16) & 0xff),
                        static_cast<char>((length >> 8) & 0xff), static_cast<char>(length & 0xff)};
  return framed + payload;
}

// A payload of `size` bytes whose every position differs from its neighbours', so that a byte
// out of place is seen.
std::string largePayload(std::size_t size, char tag) {
  std::string text = "<m>";
  for (std::size_t i = 0; text.size() < size - 4; ++i) text += static_cast<char>('a' + (i * 7 + tag) % 26);
  return text + "</m>";
}

class JournalClientTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_path = "/tmp/journal-client-test-" + std::to_string(getpid()) + ".sock";
    std::remove(m_path.c_str());
    m_listener = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, m_path.c_str());
    ASSERT_EQ(0, bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address));
    ASSERT_EQ(0, listen(m_listener, 1));
    std::string error;
    ASSERT_TRUE(m_client.connect(m_path, error)) << error;
    m_server = accept(m_listener, nullptr, nullptr);
    ASSERT_GE(m_server, 0);
  }
  void TearDown() override {
    m_client.close();
    if (m_server >= 0) close(m_server);
    close(m_listener);
    std::remove(m_path.c_str());
  }
  // Writes `bytes` whole; the client reads them on the test's thread later, so the socket's
  // buffer must take them (they are well under its size or read while the client waits).
  void serverWrites(const std::string& bytes) {
    std::size_t at = 0;
    while (at < bytes.size()) {
      const ssize_t n = write(m_server, bytes.data() + at, bytes.size() - at);
      ASSERT_GT(n, 0);
      at += static_cast<std::size_t>(n);
    }
  }

  std::string m_path;
  int m_listener = -1;
  int m_server = -1;
  fw::JournalClient m_client;
};

TEST_F(JournalClientTest, ALargeReplyIsReadWholeAfterAnEventBeforeIt) {
  const std::string event = "<journalEvent>" + largePayload(100 * 1024, 1) + "</journalEvent>";
  const std::string reply = largePayload(150 * 1024, 2);
  std::string got, error;
  // Written before the call: the client finds the event's header and part of it already there.
  std::thread writer([&] { serverWrites(frame(event) + frame(reply)); });
  ASSERT_TRUE(m_client.call("<r/>", got, error, 10000)) << error;
  writer.join();
  EXPECT_EQ(reply, got);
  std::string message;
  ASSERT_TRUE(m_client.nextEvent(message, error, 0)) << error;
  EXPECT_EQ(event, message);
}

TEST_F(JournalClientTest, ACallTimingOutInsideALargeReplySkipsItAndTheNextCallGetsItsOwn) {
  const std::string late = largePayload(120 * 1024, 3);
  const std::string framedLate = frame(late);
  std::string got, error;
  serverWrites(framedLate.substr(0, 10 * 1024));  // the header and the first part only
  EXPECT_FALSE(m_client.call("<first/>", got, error, 200));
  EXPECT_TRUE(m_client.connected());

  const std::string second = largePayload(90 * 1024, 4);
  std::thread writer([&] { serverWrites(framedLate.substr(10 * 1024) + frame(second)); });
  ASSERT_TRUE(m_client.call("<second/>", got, error, 10000)) << error;
  writer.join();
  EXPECT_EQ(second, got);
}

TEST_F(JournalClientTest, AServerClosingInsideALargeFrameFailsTheCall) {
  const std::string framed = frame(largePayload(100 * 1024, 5));
  serverWrites(framed.substr(0, 30 * 1024));
  shutdown(m_server, SHUT_WR);  // the request still goes out; nothing more comes in
  std::string got, error;
  EXPECT_FALSE(m_client.call("<r/>", got, error, 10000));
  EXPECT_FALSE(m_client.connected());
  EXPECT_NE(std::string::npos, error.find("closed the connection")) << error;
}

}  // namespace
