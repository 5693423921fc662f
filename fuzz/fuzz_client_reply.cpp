// Fuzz target: the replies the journal and its clients read: list replies, boolean replies,
// observer messages and management replies, through the journal helper's and the host's parsers;
// and store read replies through the parsers the journal loads its lists with
// (parseStored...CallList), which read a reply that is not well-formed entry by entry by the
// entries' sizes. Promises checked: nothing but a return value comes of any text; a stored-list
// parser that fails appends nothing, and on a well-formed reply takes each entry either into the
// list or into the skipped rows, the same entries the plain list parser takes, and the same again
// when it reads the reply by its sizes; every item it gives is written and read back unchanged.
#include <cstdint>
#include <deque>
#include <pugixml.hpp>
#include <string>
#include <vector>

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

// The body of `item` as the journal writes it (to the store, in replies).
std::string bodyOf(const MissedCallItem& i) { return H::createXMLMissedCallItemBody(i, false); }
std::string bodyOf(const ReceivedCallItem& i) { return H::createXMLReceivedCallItemBody(i, false); }
std::string bodyOf(const DialledCallItem& i) { return H::createXMLDialledCallItemBody(i, false); }
std::string bodyOf(const ForwardedCallItem& i) { return H::createXMLForwardedCallItemBody(i, false); }

// The reply made not well-formed in its root's start tag, which the reading by sizes passes over;
// empty for a text that is no store reply.
std::string withBrokenRoot(const std::string& reply) {
  const std::string root = std::string("<") + H::STOREREPLY;
  if (reply.compare(0, root.size(), root) != 0) return std::string();
  return root + " \x01" + reply.substr(root.size());
}

// The ENTRY children of the root, when the reply is well-formed as the journal parses it.
bool countEntries(const std::string& text, size_t& entries) {
  pugi::xml_document doc;
  const unsigned flags = (pugi::parse_default & ~pugi::parse_eol) | pugi::parse_ws_pcdata_single;
  if (!doc.load_buffer(text.data(), text.size(), flags, pugi::encoding_utf8) || !doc.document_element()) return false;
  entries = 0;
  for (const pugi::xml_node& entry : doc.document_element().children(H::ENTRY)) {
    (void)entry;
    ++entries;
  }
  return true;
}

template <class Item>
void readStored(bool (*parseStored)(const std::string&, std::deque<Item>&, std::vector<std::string>&),
                bool (*parsePlain)(const std::string&, std::deque<Item>&), const std::string& text) {
  std::deque<Item> list;
  std::vector<std::string> skipped;
  if (!parseStored(text, list, skipped)) {
    FUZZ_CHECK(list.empty() && skipped.empty(), "a failed read appended entries");
    return;
  }
  size_t entries = 0;
  if (countEntries(text, entries)) {
    FUZZ_CHECK(list.size() + skipped.size() == entries, std::to_string(list.size()) + " read, " +
                                                            std::to_string(skipped.size()) + " skipped of " +
                                                            std::to_string(entries));
    std::deque<Item> plain;
    parsePlain(text, plain);
    FUZZ_CHECK(plain.size() == list.size(), "the list parser read " + std::to_string(plain.size()));
    for (size_t i = 0; i < list.size(); ++i) FUZZ_CHECK(bodyOf(plain[i]) == bodyOf(list[i]), bodyOf(list[i]));
    // Read by its frame, as when another row made it not well-formed: the same entries.
    std::deque<Item> byFrame;
    std::vector<std::string> skippedByFrame;
    if (parseStored(withBrokenRoot(text), byFrame, skippedByFrame)) {
      FUZZ_CHECK(skippedByFrame == skipped, "skipped by frame: " + std::to_string(skippedByFrame.size()));
      FUZZ_CHECK(byFrame.size() == list.size(), "read by frame: " + std::to_string(byFrame.size()));
      for (size_t i = 0; i < list.size(); ++i) FUZZ_CHECK(bodyOf(byFrame[i]) == bodyOf(list[i]), bodyOf(list[i]));
    }
  }
  for (const Item& item : list) {
    const std::string body = bodyOf(item);
    Item again;
    FUZZ_CHECK(H::parseXMLItemBody(body, again), body);
    FUZZ_CHECK(bodyOf(again) == body, body + "\nread back as\n" + bodyOf(again));
  }
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
  readStored(&H::parseStoredMissedCallList, &H::parseXMLMissedCallList, text);
  readStored(&H::parseStoredDialledCallList, &H::parseXMLDialledCallList, text);
  readStored(&H::parseStoredReceivedCallList, &H::parseXMLReceivedCallList, text);
  readStored(&H::parseStoredForwardedCallList, &H::parseXMLForwardedCallList, text);
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
