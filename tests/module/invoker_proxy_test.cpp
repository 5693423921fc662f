// The request invoker against a journal that records what it was asked. (Subscriptions and the
// observer proxy are driven end to end by the clients of the daemon.)
#include <gtest/gtest.h>

#include <set>

#include "JournalServiceIfc.h"
#include "JournalServiceInvoker.h"
#include "framework/JournalServiceHelper.h"

using Helper = JournalServiceHelper;

namespace {

// Answers every operation with `result` and writes down the last one.
class RecordingJournal : public Executable, public JournalServiceIfc {
 public:
  bool result = true;
  std::string last;  // the operation and the ids of a set

  bool getMissedCallList(std::deque<MissedCallItem>& l) override {
    l.emplace_back("2024-03-05T07:08:09Z00000001", "Ann", "", MissedCallItem::InfoList{}, false);
    return note("getMissed");
  }
  bool setMissedCallListAsViewed(const std::set<std::string>& s) override { return note("viewed", s); }
  bool ageMissedCall(const std::string& id) override { return note("age " + id); }
  bool deleteMissedCall(const std::string& id) override { return note("deleteMissed " + id); }
  bool deleteMissedCallList(const std::set<std::string>& s) override { return note("deleteMissedList", s); }
  bool getDialledCallList(std::deque<DialledCallItem>&) override { return note("getDialled"); }
  bool deleteDialledCall(const std::string& id) override { return note("deleteDialled " + id); }
  bool deleteDialledCallList(const std::set<std::string>& s) override { return note("deleteDialledList", s); }
  bool getLastDialledNumber(DialledCallItem& item) override {
    item.setEntryId("last");
    return note("lastDialled");
  }
  bool getReceivedCallList(std::deque<ReceivedCallItem>&) override { return note("getReceived"); }
  bool deleteReceivedCall(const std::string& id) override { return note("deleteReceived " + id); }
  bool deleteReceivedCallList(const std::set<std::string>& s) override { return note("deleteReceivedList", s); }
  bool getForwardedCallList(std::deque<ForwardedCallItem>&) override { return note("getForwarded"); }
  bool deleteForwardedCall(const std::string& id) override { return note("deleteForwarded " + id); }
  bool deleteForwardedCallList(const std::set<std::string>& s) override { return note("deleteForwardedList", s); }
  bool getCallBackList(std::deque<CallBackItem>&) override { return note("getCallBacks"); }
  bool deleteCallBack(const std::string& id) override { return note("deleteCallBack " + id); }
  bool deleteCallBackList(const std::set<std::string>& s) override { return note("deleteCallBackList", s); }
  bool deleteCalls(const std::set<std::string>& s) override { return note("deleteCalls", s); }
  bool subscribe(JournalServiceObserverIfc*) override { return note("subscribe"); }
  bool unsubscribe(JournalServiceObserverIfc*) override { return note("unsubscribe"); }
  bool refreshCallLog() override { return note("refresh"); }

 private:
  bool note(std::string what, const std::set<std::string>& s = {}) {
    last = std::move(what);
    for (const std::string& id : s) last += " " + id;
    return result;
  }
};

struct RecordingResponse : InvokerResponse {
  std::string text = "(unset)";
  int completions = 0;
  void setResponse(const char* t, int n) override { text.assign(t, static_cast<size_t>(n)); }
  void complete() override { ++completions; }
  std::string getClientId() const override { return "unix:1"; }
};

class InvokerTest : public ::testing::Test {
 protected:
  RecordingResponse call(int code, const std::vector<std::string>& ids = {}, Executable* target = nullptr) {
    std::string msg = Helper::createMethodRequest(code, ids);
    RecordingResponse r;
    invoker.handleMessage(target ? target : &journal, msg.data(), static_cast<int>(msg.size()), &r);
    EXPECT_EQ(r.completions, 1);
    return r;
  }
  RecordingJournal journal;
  JournalServiceInvoker invoker;
};

}  // namespace

// Each request reaches its operation with its ids, each once; operations on a set answer their
// boolean, single deletes true or FAILURE, an age no text; a request without its id, and methods
// without an operation, are answered FAILURE without reaching the journal.
TEST_F(InvokerTest, RequestsReachTheirOperationAndAreAnsweredByKind) {
  const struct {
    int code;
    std::vector<std::string> ids;
    bool result;
    std::string operation, reply;
  } cases[] = {
      {Helper::DELETE_CALLS, {"b", "a", "b"}, false, "deleteCalls a b", Helper::respBool(false)},
      {Helper::SET_MISSED_CALL_LIST_AS_VIEWED, {}, true, "viewed", Helper::respBool(true)},
      {Helper::DELETE_CALL_BACK_LIST, {"x"}, true, "deleteCallBackList x", Helper::respBool(true)},
      {Helper::DELETE_FORWARDED_CALL, {"f1"}, true, "deleteForwarded f1", Helper::respBool(true)},
      {Helper::DELETE_DIALLED_CALL, {"d1"}, false, "deleteDialled d1", Helper::FAILURE},
      {Helper::DELETE_MISSED_CALL, {}, true, "", Helper::FAILURE},
      {Helper::AGE_MISSED_CALL, {"m1"}, true, "age m1", "(unset)"},
      {Helper::AGE_MISSED_CALL, {}, true, "", Helper::FAILURE},
      {2, {}, true, "", Helper::FAILURE},
      {25, {}, true, "", Helper::FAILURE},
  };
  for (const auto& c : cases) {
    journal.result = c.result;
    journal.last.clear();
    EXPECT_EQ(call(c.code, c.ids).text, c.reply) << c.code;
    EXPECT_EQ(journal.last, c.operation) << c.code;
  }
}
