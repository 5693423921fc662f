// Fuzz target: the replies the journal and its clients read: list replies, boolean replies,
// observer messages and management replies, through the journal helper's and the host's parsers;
// and store read replies through the parsers the journal loads its lists with
// (parseStored...CallList), which read a reply that is not well-formed entry by entry by the
// entries' sizes. Promises checked: nothing but a return value comes of any text; a stored-list
// parser that fails appends nothing, and on a well-formed reply takes each entry either into the
// list or into the skipped rows, the same entries the plain list parser takes, and the same again
// when it reads the reply by its sizes; every item it gives is written and read back unchanged.
#include <charconv>
#include <cstdint>
#include <cstring>
#include <deque>
#include <iterator>
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

// How a reply is made, as the journal's parser reads it: its ENTRY children, and whether each of
// them gives the length of its content as its size with nothing between them, as a store writes a
// read reply (only then does the reading by sizes meet the same entries). False when the reply is
// not well-formed.
struct Shape {
  size_t entries = 0;
  bool exactSizes = false;
};

bool hasExactSizes(const std::string& text, const pugi::xml_node& root) {
  const std::string resultOk = "<result>ok</result>", entryEnd = "</entry>", replyEnd = "</storeReply>";
  if (text.compare(0, 11, "<storeReply") != 0 || text.size() < replyEnd.size() ||
      text.compare(text.size() - replyEnd.size(), replyEnd.size(), replyEnd) != 0) {
    return false;
  }
  // The result right after the root's start tag, which holds no '>' in its attributes.
  size_t expected = text.find(resultOk);
  if (expected == std::string::npos || expected != text.find('>') + 1) return false;
  expected += resultOk.size();
  const size_t last = text.size() - replyEnd.size();
  for (pugi::xml_node entry = root.child(H::ENTRY); entry; entry = entry.next_sibling(H::ENTRY)) {
    const ptrdiff_t name = entry.offset_debug();  // where its name starts, after the '<'
    if (name <= 0 || static_cast<size_t>(name) - 1 != expected || text.compare(expected, 7, "<entry ") != 0)
      return false;
    const pugi::xml_node next = entry.next_sibling(H::ENTRY);
    const size_t end = next ? static_cast<size_t>(next.offset_debug()) - 1 : last;
    // Its start tag ends at the first '>', as no attribute value holds one.
    const size_t content = text.find('>', expected) + 1;
    pugi::xml_document tag;
    if (!tag.load_string((text.substr(expected, content - 1 - expected) + "/>").c_str()) ||
        std::distance(tag.document_element().attributes_begin(), tag.document_element().attributes_end()) !=
            std::distance(entry.attributes_begin(), entry.attributes_end())) {
      return false;
    }
    if (next.offset_debug() == 0 || end < content + entryEnd.size() ||
        text.compare(end - entryEnd.size(), entryEnd.size(), entryEnd) != 0) {
      return false;
    }
    const char* size = entry.attribute(H::SIZE).value();
    const char* sizeEnd = size + std::strlen(size);
    size_t given = 0;
    const auto parsed = std::from_chars(size, sizeEnd, given);
    if (parsed.ec != std::errc() || parsed.ptr != sizeEnd || given != end - entryEnd.size() - content) return false;
    expected = end;
  }
  return expected == last;
}

bool shapeOf(const std::string& text, Shape& shape) {
  pugi::xml_document doc;
  const unsigned flags = (pugi::parse_default & ~pugi::parse_eol) | pugi::parse_ws_pcdata_single;
  if (!doc.load_buffer(text.data(), text.size(), flags, pugi::encoding_utf8) || !doc.document_element()) return false;
  const pugi::xml_node root = doc.document_element();
  shape.entries = 0;
  for (pugi::xml_node entry = root.child(H::ENTRY); entry; entry = entry.next_sibling(H::ENTRY)) ++shape.entries;
  shape.exactSizes = hasExactSizes(text, root);
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
  Shape shape;
  if (shapeOf(text, shape)) {
    FUZZ_CHECK(list.size() + skipped.size() == shape.entries, std::to_string(list.size()) + " read, " +
                                                                  std::to_string(skipped.size()) + " skipped of " +
                                                                  std::to_string(shape.entries));
    std::deque<Item> plain;
    parsePlain(text, plain);
    FUZZ_CHECK(plain.size() == list.size(), "the list parser read " + std::to_string(plain.size()));
    for (size_t i = 0; i < list.size(); ++i) FUZZ_CHECK(bodyOf(plain[i]) == bodyOf(list[i]), bodyOf(list[i]));
    // Read by its sizes, as when another row made it not well-formed: the same entries.
    std::deque<Item> byFrame;
    std::vector<std::string> skippedByFrame;
    if (shape.exactSizes) {
      FUZZ_CHECK(parseStored(withBrokenRoot(text), byFrame, skippedByFrame), "not read by its sizes");
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
