// The daemon's client invoker that gives freed heap back after list reads: every request still
// reaches the module once, and its reply reaches the client unchanged.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ProcessHeap.h"
#include "framework/JournalServiceHelper.h"

namespace {

using H = JournalServiceHelper;

// A module's invoker that answers each request with "reply to " and the request.
class EchoInvoker : public Invoker {
 public:
  void handleMessage(Executable*, const char* msg, int length, InvokerResponse* response) override {
    handled.emplace_back(msg, static_cast<size_t>(length));
    response->setResponse("reply to " + handled.back());
    response->complete();
  }
  std::vector<std::string> handled;
};

class RecordingResponse : public InvokerResponse {
 public:
  void setResponse(const char* text, int length) override { reply.assign(text, static_cast<size_t>(length)); }
  void complete() override { ++completed; }
  std::string getClientId() const override { return "unix:1"; }
  std::string reply;
  int completed = 0;
};

TEST(HeapReleasingInvokerTest, ListReadsAndOtherRequestsReachTheModuleOnceWithTheirReplies) {
  EchoInvoker module;
  host::HeapReleasingInvoker invoker(&module);
  const std::vector<std::string> requests = {H::createMethodRequest(H::GET_MISSED_CALL_LIST),
                                             H::createMethodRequest(H::GET_FORWARDED_CALL_LIST),
                                             H::createMethodRequest(H::REFRESH_CALL_LOG), "not xml"};
  for (const std::string& request : requests) {
    RecordingResponse response;
    invoker.handleMessage(nullptr, request.data(), static_cast<int>(request.size()), &response);
    EXPECT_EQ("reply to " + request, response.reply);
    EXPECT_EQ(1, response.completed);
  }
  EXPECT_EQ(requests, module.handled);
}

}  // namespace
