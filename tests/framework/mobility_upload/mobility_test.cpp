// The visitor's call log uploaded from a real in-memory store: written to a local file, and PUT to
// a one-request HTTP server on the loopback interface.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "Items.h"
#include "framework/JournalServiceHelper.h"
#include "memory_store/MemoryDataAccessService.h"
#include "mobility_upload/UploadMobilityService.h"

namespace {

using H = JournalServiceHelper;

const timeval kPatience{10, 0};

// Listens on 127.0.0.1, takes one request with its body and answers it with `status`.
class OneRequestServer {
 public:
  explicit OneRequestServer(int status) : m_socket(socket(AF_INET, SOCK_STREAM, 0)) {
    setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience);  // a client that never comes
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(m_socket, reinterpret_cast<sockaddr*>(&address), size) != 0 || listen(m_socket, 1) != 0 ||
        getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &size) != 0)
      ADD_FAILURE() << "no test server";
    port = ntohs(address.sin_port);
    m_thread = std::thread([this, status] {
      const int client = accept(m_socket, nullptr, nullptr);
      setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience);
      std::string data;
      char buffer[4096];
      for (ssize_t n; (n = read(client, buffer, sizeof buffer)) > 0;) {
        data.append(buffer, static_cast<size_t>(n));
        const size_t end = data.find("\r\n\r\n"), field = data.find("Content-Length: ");
        if (end == std::string::npos) continue;
        head = data.substr(0, end);
        body = data.substr(end + 4);
        if (field > end || body.size() >= std::stoul(data.substr(field + 16))) break;
      }
      const std::string answer = "HTTP/1.1 " + std::to_string(status) + " X\r\nContent-Length: 0\r\n\r\n";
      if (client >= 0 && write(client, answer.data(), answer.size()) < 0) ADD_FAILURE() << "answer not sent";
      close(client);
    });
  }
  ~OneRequestServer() {
    m_thread.join();
    close(m_socket);
  }
  int port = 0;
  std::string head, body;  // what the server received

 private:
  int m_socket;
  std::thread m_thread;
};

class Upload : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = ::testing::TempDir() + "/upload-XXXXXX";
    ASSERT_NE(mkdtemp(dir.data()), nullptr);
    std::string message = H::createXMLField(H::REASONFORMESSAGE, H::WRITEREQUEST);
    H::createXMLMissedCallItemBody(makeEntry<MissedCallItem>("M1", "4711", "2024-03-05T10:00:00"), message, false);
    H::addXMLHeaderFooter(message, H::DAS_CALLLOGMISSEDCALLS);
    ASSERT_NE(store.processRequest(message), "failed");
  }
  void TearDown() override { std::filesystem::remove_all(dir); }

  MemoryDataAccessService store;
  std::string dir;
};

TEST_F(Upload, WritesTheFourListsToAFileInPlace) {
  UploadMobilityService mobility(&store, "file://" + dir + "/visitor.xml", "anna");
  ASSERT_TRUE(mobility.saveVisitorCallLog()) << mobility.lastError();
  std::ifstream in(dir + "/visitor.xml");
  const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_NE(text.find("<visitorCallLog visitor=\"anna\"><storeReply table=\"callLogMissedCalls\">"), std::string::npos);
  for (const char* table : {"callLogReceivedCalls", "callLogDialledCalls", "callLogForwardedCalls"})
    EXPECT_NE(text.find(std::string("table=\"") + table + "\""), std::string::npos) << table;
  std::deque<MissedCallItem> missed;
  const size_t reply = text.find("<storeReply"), end = text.find("</storeReply>") + 13;  // the missed list's
  EXPECT_TRUE(H::parseXMLMissedCallList(text.substr(reply, end - reply), missed));
  ASSERT_EQ(missed.size(), 1u);
  EXPECT_EQ(missed[0].infos().front().number, "4711");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), {}), 1);  // no temporary file left
}

TEST_F(Upload, FailsWithAReasonWhereItCannotWrite) {
  for (const std::string& url :
       {"file://" + dir + "/missing/visitor.xml", std::string(), std::string("ftp://host/x")}) {
    UploadMobilityService mobility(&store, url, "anna");
    EXPECT_FALSE(mobility.saveVisitorCallLog()) << url;
    EXPECT_FALSE(mobility.lastError().empty()) << url;
  }
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), {}), 0);
}

TEST_F(Upload, PutsTheDocumentToTheServerAndTakesOnly2xxAsSuccess) {
  std::string document, error;
  UploadMobilityService mobility(&store, "", "anna", 5000);
  ASSERT_TRUE(mobility.buildDocument(document, error)) << error;
  int port = 0;
  for (int status : {200, 500}) {
    OneRequestServer server(status);
    port = server.port;
    mobility.setUrl("http://127.0.0.1:" + std::to_string(port) + "/calllog/anna");
    EXPECT_EQ(mobility.saveVisitorCallLog(), status == 200) << mobility.lastError();
    EXPECT_EQ(mobility.lastError().find("status 500") != std::string::npos, status == 500) << mobility.lastError();
    EXPECT_EQ(server.head.rfind("PUT /calllog/anna HTTP/1.1\r\n", 0), 0u) << server.head;
    EXPECT_NE(server.head.find("Content-Type: application/xml"), std::string::npos);
    EXPECT_EQ(server.body, document);
  }
  // The server is gone: nothing listens on its port any more.
  EXPECT_FALSE(mobility.saveVisitorCallLog());
  EXPECT_NE(mobility.lastError().find("127.0.0.1:" + std::to_string(port)), std::string::npos) << mobility.lastError();
}

}  // namespace
