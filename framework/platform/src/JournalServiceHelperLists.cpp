// JournalServiceHelper: reading whole lists, a client's list reply and a store's read reply.
//
// A full list is a thousand entries of ten occurrences, a few MB of XML. Rather than one document
// of the whole reply (tens of MB of nodes at once), the entries are cut out of the reply's frame
// and parsed one at a time into one reused document, which stays small and in the cache. Where the
// frame is not the one the journal and the stores write, the reply is read as one document as
// before, so a reply reads the same either way.
#include <charconv>
#include <cstring>
#include <string_view>

#include "framework/JournalServiceHelper.h"
#include "framework/JournalServiceHelperXml.h"

namespace {

using H = JournalServiceHelper;
using Skipped = std::vector<std::string>;

// A reply that says the request failed, rather than an empty list.
bool isFailureReply(const pugi::xml_node& root) {
  return std::strcmp(root.child_value(H::RESULT), H::FAILURETEXT) == 0;
}

// Whether `doc` holds one element and nothing beside it: an entry cut out of a reply by its frame
// is then the same element the whole reply's document holds there.
bool isOneElement(const pugi::xml_document& doc) {
  const pugi::xml_node first = doc.first_child();
  return first && first.type() == pugi::node_element && first == doc.last_child();
}

bool startsWith(std::string_view text, size_t at, std::string_view prefix) {
  return text.size() >= at && text.size() - at >= prefix.size() && text.compare(at, prefix.size(), prefix) == 0;
}

// Appends `read` to `list`; moves the whole deque when `list` is empty (a load).
template <class Item>
void appendAll(std::deque<Item>& read, std::deque<Item>& list) {
  if (list.empty()) {
    list.swap(read);
    return;
  }
  for (Item& item : read) list.push_back(std::move(item));
}

// ---- A client's list reply -----------------------------------------------------------------

// The reply as the journal writes it: "<journalResponse><result>true</result>", then
// "<entry>ITEM</entry>" per entry, then "</journalResponse>". Each entry is parsed alone; false
// (with `read` incomplete) when the reply is not in this frame or an entry cut out of it is not a
// document of its own, so the caller reads the reply as one document.
template <class Item>
bool readResponseEntries(const std::string& reply, std::deque<Item>& read, bool& allRead) {
  static const std::string kStart =
      std::string("<") + H::CLIENTRESPONSE + "><" + H::RESULT + ">" + H::TRUETEXT + "</" + H::RESULT + ">";
  static const std::string kEnd = std::string("</") + H::CLIENTRESPONSE + ">";
  static const std::string kEntryStart = std::string("<") + H::ENTRY + ">";
  static const std::string kEntryEnd = std::string("</") + H::ENTRY + ">";
  if (!startsWith(reply, 0, kStart)) return false;
  pugi::xml_document doc;
  journalxml::ItemScan scan;
  size_t at = kStart.size();
  while (!startsWith(reply, at, kEnd)) {
    if (!startsWith(reply, at, kEntryStart)) return false;
    const size_t close = reply.find(kEntryEnd, at + kEntryStart.size());
    if (close == std::string::npos) return false;
    const size_t end = close + kEntryEnd.size();
    const size_t content = at + kEntryStart.size();
    Item item;
    bool itemRead = false;
    if (scan.scan(reply.data() + content, close - content)) {
      itemRead = journalxml::readItem(scan, item);
    } else {
      if (!journalxml::parse(doc, reply.data() + at, end - at) || !isOneElement(doc)) return false;
      itemRead = journalxml::readEntry(doc.document_element(), item);
    }
    if (itemRead) {
      read.push_back(std::move(item));
    } else {
      allRead = false;
    }
    at = end;
  }
  return at + kEnd.size() == reply.size();
}

template <class Item>
bool readWholeResponse(const std::string& reply, std::deque<Item>& read, bool& allRead) {
  pugi::xml_document doc;
  if (!journalxml::parse(doc, reply) || isFailureReply(doc.document_element())) return false;
  for (const pugi::xml_node& entry : doc.document_element().children(H::ENTRY)) {
    Item item;
    if (journalxml::readEntry(entry, item)) {
      read.push_back(std::move(item));
    } else {
      allRead = false;
    }
  }
  return true;
}

template <class Item>
bool parseList(const std::string& reply, std::deque<Item>& list) {
  std::deque<Item> read;
  bool allRead = true;
  if (!readResponseEntries(reply, read, allRead)) {
    read.clear();
    allRead = true;
    if (!readWholeResponse(reply, read, allRead)) return false;
  }
  appendAll(read, list);
  return allRead;
}

// ---- A store's read reply, entry by entry ----------------------------------------------------

bool allDigits(std::string_view text) {
  if (text.empty()) return false;
  for (const char c : text)
    if (c < '0' || c > '9') return false;
  return true;
}

// The start tag of an entry, `tag` from its '<' to before its '>': its unique id and size. A store
// writes `<entry uniqueId="DIGITS" size="DIGITS">`, read here directly; any other start tag is read
// as a small document of its own. False when it is not a start tag with a size.
// A size as written: decimal digits of a size_t.
bool readSize(std::string_view text, size_t& size) {
  long long read = -1;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), read);
  if (parsed.ec != std::errc() || parsed.ptr != text.data() + text.size() || read < 0) return false;
  size = static_cast<size_t>(read);
  return true;
}

bool readEntryTag(std::string_view tag, std::string& uniqueId, size_t& size, bool& plain) {
  static const std::string kIdStart = std::string("<") + H::ENTRY + " " + H::UNIQUEID + "=\"";
  static const std::string kSizeStart = std::string("\" ") + H::SIZE + "=\"";
  std::string_view sizeText;
  const size_t idEnd = startsWith(tag, 0, kIdStart) ? tag.find('"', kIdStart.size()) : std::string_view::npos;
  plain = idEnd != std::string_view::npos && startsWith(tag, idEnd, kSizeStart) && tag.back() == '"' &&
          allDigits(tag.substr(kIdStart.size(), idEnd - kIdStart.size())) &&
          allDigits(sizeText = tag.substr(idEnd + kSizeStart.size(), tag.size() - 1 - idEnd - kSizeStart.size()));
  if (plain) {
    uniqueId.assign(tag.substr(kIdStart.size(), idEnd - kIdStart.size()));
    return readSize(sizeText, size);
  }
  pugi::xml_document doc;
  if (!journalxml::parse(doc, std::string(tag) + "/>")) return false;
  const pugi::xml_node entry = doc.document_element();
  uniqueId = entry.attribute(H::UNIQUEID).value();
  return readSize(entry.attribute(H::SIZE).value(), size);
}

// A body in the journal's own shape behind a plain start tag is read from a scan; anything else
// (or a scan that does not know the body) with pugixml.
struct EntryReading {
  pugi::xml_document doc;
  journalxml::ItemScan scan;
};

// One entry of a read reply, `entry` its whole element from its start tag to its end tag, named
// `uniqueId`: read as an entry of a well-formed reply is (the item as element or as escaped text,
// the unique id attribute over the body's), or else named in `skipped`. False when the entry, as
// cut out by its frame, is not one element of its own (damaged, or a size that does not fit it).
template <class Item>
bool takeStoredEntry(std::string_view entry, std::string_view content, const std::string& uniqueId, bool plainTag,
                     EntryReading& reading, std::deque<Item>& list, Skipped& skipped) {
  Item item;
  bool itemRead = false;
  bool oneElement = true;
  if (plainTag && reading.scan.scan(content.data(), content.size())) {
    itemRead = journalxml::readItem(reading.scan, item);
    if (itemRead) item.setUniqueId(uniqueId);
  } else {
    oneElement = journalxml::parse(reading.doc, entry.data(), entry.size()) && isOneElement(reading.doc);
    itemRead = oneElement && journalxml::readEntry(reading.doc.document_element(), item);
  }
  if (itemRead) {
    list.push_back(std::move(item));
  } else {
    skipped.push_back(uniqueId);
  }
  return oneElement;
}

// The reply in the frame a store writes: "<storeReply ...><result>ok</result>", then per entry
// "<entry uniqueId=".." size="N">", N bytes of content, "</entry>", then "</storeReply>". Only
// the store writes the frame, so the content of an entry, whatever it holds, never misleads the
// reading of the next. False when the frame itself is broken.
template <class Item>
bool readFramedEntries(const std::string& reply, std::deque<Item>& list, Skipped& skipped, bool& allWhole) {
  static const std::string kReplyStart = std::string("<") + H::STOREREPLY;
  static const std::string kResultOk = std::string("<") + H::RESULT + ">ok</" + H::RESULT + ">";
  static const std::string kEntryEnd = std::string("</") + H::ENTRY + ">";
  static const std::string kReplyEnd = std::string("</") + H::STOREREPLY + ">";
  static const std::string kEntryStart = std::string("<") + H::ENTRY + " ";
  if (!startsWith(reply, 0, kReplyStart)) return false;
  size_t at = reply.find(kResultOk);
  if (at == std::string::npos || at > reply.find('>') + 1) return false;
  at += kResultOk.size();
  EntryReading reading;
  std::string uniqueId;
  while (!startsWith(reply, at, kReplyEnd)) {
    if (!startsWith(reply, at, kEntryStart)) return false;
    const size_t tagEnd = reply.find('>', at);
    if (tagEnd == std::string::npos) return false;
    size_t size = 0;
    bool plainTag = false;
    if (!readEntryTag(std::string_view(reply).substr(at, tagEnd - at), uniqueId, size, plainTag)) return false;
    const size_t content = tagEnd + 1;
    if (reply.size() - content < size || !startsWith(reply, content + size, kEntryEnd)) return false;
    const size_t end = content + size + kEntryEnd.size();
    if (!takeStoredEntry(std::string_view(reply).substr(at, end - at), std::string_view(reply).substr(content, size),
                         uniqueId, plainTag, reading, list, skipped))
      allWhole = false;
    at = end;
  }
  return at + kReplyEnd.size() == reply.size();
}

// A reply in another frame, read as one document: every ENTRY child of the root.
template <class Item>
bool readWholeStoreReply(const std::string& reply, std::deque<Item>& list, Skipped& skipped) {
  pugi::xml_document doc;
  if (!journalxml::parse(doc, reply) || isFailureReply(doc.document_element())) return false;
  for (const pugi::xml_node& entry : doc.document_element().children(H::ENTRY)) {
    Item item;
    if (journalxml::readEntry(entry, item)) {
      list.push_back(std::move(item));
    } else {
      skipped.emplace_back(entry.attribute(H::UNIQUEID).value());
    }
  }
  return true;
}

template <class Item>
bool parseStoredList(const std::string& reply, std::deque<Item>& list, Skipped& skipped) {
  std::deque<Item> read;
  Skipped missing;
  bool allWhole = true;
  if (!readFramedEntries(reply, read, missing, allWhole)) {
    read.clear();
    missing.clear();
    if (!readWholeStoreReply(reply, read, missing)) return false;
  } else if (!allWhole) {
    // An entry its size does not fit: a reply that is well-formed as a whole is read by its
    // elements; one that is not keeps what the sizes gave.
    std::deque<Item> whole;
    Skipped wholeMissing;
    if (readWholeStoreReply(reply, whole, wholeMissing)) {
      read.swap(whole);
      missing.swap(wholeMissing);
    }
  }
  appendAll(read, list);
  skipped.insert(skipped.end(), missing.begin(), missing.end());
  return true;
}

}  // namespace

bool JournalServiceHelper::parseXMLMissedCallList(const std::string& reply, std::deque<MissedCallItem>& list) {
  return parseList(reply, list);
}
bool JournalServiceHelper::parseXMLReceivedCallList(const std::string& reply, std::deque<ReceivedCallItem>& list) {
  return parseList(reply, list);
}
bool JournalServiceHelper::parseXMLDialledCallList(const std::string& reply, std::deque<DialledCallItem>& list) {
  return parseList(reply, list);
}
bool JournalServiceHelper::parseXMLForwardedCallList(const std::string& reply, std::deque<ForwardedCallItem>& list) {
  return parseList(reply, list);
}
bool JournalServiceHelper::parseXMLCallBackList(const std::string& reply, std::deque<CallBackItem>& list) {
  return parseList(reply, list);
}

bool JournalServiceHelper::parseStoredMissedCallList(const std::string& reply, std::deque<MissedCallItem>& list,
                                                     std::vector<std::string>& skipped) {
  return parseStoredList(reply, list, skipped);
}
bool JournalServiceHelper::parseStoredReceivedCallList(const std::string& reply, std::deque<ReceivedCallItem>& list,
                                                       std::vector<std::string>& skipped) {
  return parseStoredList(reply, list, skipped);
}
bool JournalServiceHelper::parseStoredDialledCallList(const std::string& reply, std::deque<DialledCallItem>& list,
                                                      std::vector<std::string>& skipped) {
  return parseStoredList(reply, list, skipped);
}
bool JournalServiceHelper::parseStoredForwardedCallList(const std::string& reply, std::deque<ForwardedCallItem>& list,
                                                        std::vector<std::string>& skipped) {
  return parseStoredList(reply, list, skipped);
}
