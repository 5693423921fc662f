// Fuzz target: what the client side reads from the daemon: list replies, boolean replies, observer
// messages and management replies, through the journal helper's and the host's parsers. Promises
// checked: nothing but a return value comes of any text, and what a parser accepts is clean text
// when the input was.
#include <cstdint>
#include <deque>
#include <string>

#include "ClientMessages.h"
#include "FuzzSupport.h"
#include "Management.h"
#include "framework/JournalServiceHelper.h"

namespace {

using H = JournalServiceHelper;

template <class Item>
void readList(bool (*parse)(const std::string&, std::deque<Item>&), const std::string& text) {
  std::deque<Item> list;
  parse(text, list);
}

template <class Item>
void readUpdate(bool (*parse)(const std::string&, Item&, std::string&, int&), const std::string& text) {
  Item item;
  std::string id;
  int action = 0;
  parse(text, item, id, action);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::silenceLogs();
  const std::string text(reinterpret_cast<const char*>(data), size);
  fw::clientserver::rootElementName(text);
  readList(&H::parseXMLMissedCallList, text);
  readList(&H::parseXMLDialledCallList, text);
  readList(&H::parseXMLReceivedCallList, text);
  readList(&H::parseXMLForwardedCallList, text);
  readList(&H::parseXMLCallBackList, text);
  bool flag = false;
  H::parseRespBool(text, flag);
  DialledCallItem last;
  H::parseRespGetLastNumberDialled(text, last);
  H::getObserverOperation(text);
  unsigned int count = 0;
  H::parseObsReqMissedCallsCountUpdate(text, count);
  H::parseObsReqCallBacksCountUpdate(text, count);
  readUpdate<MissedCallItem>(&H::parseObsReqMissedCallsUpdate, text);
  readUpdate<DialledCallItem>(&H::parseObsReqDialledCallsUpdate, text);
  readUpdate<ReceivedCallItem>(&H::parseObsReqReceivedCallsUpdate, text);
  readUpdate<ForwardedCallItem>(&H::parseObsReqForwardedCallsUpdate, text);
  readUpdate<CallBackItem>(&H::parseObsReqCallBacksUpdate, text);
  host::ManagementReply reply;
  host::parseManagementReply(text, reply);
  std::string value;
  if (H::getXMLValue(text, H::ENTRYID, value)) FUZZ_CHECK(fuzz::isCleanText(value), value);
  std::vector<std::string> values;
  H::getXMLValues(text, H::ENTRYID, values);
  for (const std::string& v : values) FUZZ_CHECK(fuzz::isCleanText(v), v);
  return 0;
}
