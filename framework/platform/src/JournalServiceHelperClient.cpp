// JournalServiceHelper: client request messages (method names and codes), the replies to them,
// and the library's set-up.
#include <array>
#include <memory>
#include <type_traits>
#include <unordered_map>

#include "framework/JournalServiceHelper.h"
#include "framework/JournalServiceHelperXml.h"
#include "framework/Mutex.h"
#include "framework/ResidentPages.h"

namespace {

using H = JournalServiceHelper;

// Method names by code. Codes without an operation keep a reserved name so that every code
// from 1 to 32 can be sent (the service answers them with FAILURE).
const std::array<const char*, H::METHOD_LAST + 1> kMethodNames = {
    "",                           // 0: no method
    "getMissedCallList",          // 1
    "reserved2",                  // 2
    "setMissedCallListAsViewed",  // 3
    "ageMissedCall",              // 4
    "reserved5",                  // 5
    "deleteMissedCall",           // 6
    "deleteMissedCallList",       // 7
    "reserved8",                  // 8
    "getDialledCallList",         // 9
    "deleteDialledCall",          // 10
    "deleteDialledCallList",      // 11
    "getReceivedCallList",        // 12
    "deleteReceivedCall",         // 13
    "deleteReceivedCallList",     // 14
    "getForwardedCallList",       // 15
    "deleteForwardedCall",        // 16
    "deleteForwardedCallList",    // 17
    "getCallBackList",            // 18
    "deleteCallBack",             // 19
    "deleteCallBackList",         // 20
    "getLastDialledNumber",       // 21
    "subscribe",                  // 22
    "unsubscribe",                // 23
    "refreshCallLog",             // 24
    "reserved25",                 // 25
    "reserved26",                 // 26
    "reserved27",                 // 27
    "reserved28",                 // 28
    "reserved29",                 // 29
    "reserved30",                 // 30
    "reserved31",                 // 31
    "deleteCalls",                // 32
};

using MethodIndex = std::unordered_map<std::string, int>;

// The name -> code index: the library's one piece of shared state.
fw::Mutex g_indexMutex;
std::unique_ptr<MethodIndex> g_methodIndex GUARDED_BY(g_indexMutex);

void buildIndexLocked() REQUIRES(g_indexMutex) {
  if (g_methodIndex) return;
  auto index = std::make_unique<MethodIndex>();
  for (int code = 1; code <= H::METHOD_LAST; ++code) index->emplace(kMethodNames[code], code);
  g_methodIndex = std::move(index);
}

std::string response(bool result, const std::string& entries = std::string()) {
  std::string text = H::createXMLField(H::RESULT, result ? H::TRUETEXT : H::FALSETEXT) + entries;
  return journalxml::wrap(H::CLIENTRESPONSE, text);
}

// Room for a list reply, so that it is written without growing (each step would copy it): more
// than any entry and its occurrences take. A reply of a long list has a mapping of its own, whose
// room beyond what is written is never touched and takes no memory.
template <class Item>
size_t replyRoom(const std::deque<Item>& list) {
  constexpr size_t kEntryRoom = 512, kOccurrenceRoom = 512;
  size_t room = 256 + list.size() * kEntryRoom;
  if constexpr (std::is_base_of_v<CallItemWithPicture, Item>) {
    for (const Item& item : list) room += item.infos().size() * kOccurrenceRoom;
  }
  return room;
}

// A reply with room from this size up has a mapping of its own: its pages are made resident
// ahead of the writing.
constexpr size_t kResidentAheadRoom = 256 * 1024;

// A list reply carries each item as its element, not as escaped text: a full list is built and
// read in one pass, into one string.
template <class Item>
std::string listResponse(const std::deque<Item>& list) {
  std::string reply;
  reply.reserve(replyRoom(list));
  const bool ahead = reply.capacity() >= kResidentAheadRoom;
  size_t resident = 0;
  reply += "<";
  reply += H::CLIENTRESPONSE;
  reply += "><";
  reply += H::RESULT;
  reply += ">";
  reply += H::TRUETEXT;
  reply += "</";
  reply += H::RESULT;
  reply += ">";
  if (ahead) fw::keepResidentAhead(reply, resident);
  for (const Item& item : list) {
    reply += "<entry>";
    journalxml::writeItem(reply, item, false);
    reply += "</entry>";
    if (ahead) fw::keepResidentAhead(reply, resident);
  }
  reply += "</";
  reply += H::CLIENTRESPONSE;
  reply += ">";
  return reply;
}

}  // namespace

const std::string JournalServiceHelper::FAILURE = journalxml::wrap(CLIENTRESPONSE, createXMLField(RESULT, FAILURETEXT));

void JournalServiceHelper::init() {
  fw::MutexLock guard(g_indexMutex);
  buildIndexLocked();
}

void JournalServiceHelper::finit() {
  fw::MutexLock guard(g_indexMutex);
  g_methodIndex.reset();
}

bool JournalServiceHelper::isInitialised() {
  fw::MutexLock guard(g_indexMutex);
  return g_methodIndex != nullptr;
}

std::string JournalServiceHelper::methodName(int code) {
  return code >= 1 && code <= METHOD_LAST ? kMethodNames[code] : "";
}

int JournalServiceHelper::methodCode(const std::string& name) {
  fw::MutexLock guard(g_indexMutex);
  buildIndexLocked();
  const auto found = g_methodIndex->find(name);
  return found == g_methodIndex->end() ? METHOD_NONE : found->second;
}

std::string JournalServiceHelper::createMethodRequest(int code, const std::vector<std::string>& entryIds) {
  const std::string name = methodName(code);
  if (name.empty()) return std::string();
  std::string body = createXMLField(METHOD, name);
  for (const std::string& id : entryIds) body += createXMLField(ENTRYID, id);
  return journalxml::wrap(CLIENTREQUEST, body);
}

int JournalServiceHelper::getMethodFromXMLMsg(const std::string& msg) {
  std::string name;
  if (!getXMLValue(msg, METHOD, name)) return METHOD_NONE;
  return methodCode(name);
}

std::string JournalServiceHelper::respBool(bool value) { return response(value); }

std::string JournalServiceHelper::respGetMissedCallList(const std::deque<MissedCallItem>& list) {
  return listResponse(list);
}

std::string JournalServiceHelper::respGetDialledCallList(const std::deque<DialledCallItem>& list) {
  return listResponse(list);
}

std::string JournalServiceHelper::respGetReceivedCallList(const std::deque<ReceivedCallItem>& list) {
  return listResponse(list);
}

std::string JournalServiceHelper::respGetForwardedCallList(const std::deque<ForwardedCallItem>& list) {
  return listResponse(list);
}

std::string JournalServiceHelper::respGetCallBackList(const std::deque<CallBackItem>& list) {
  return listResponse(list);
}

std::string JournalServiceHelper::respGetLastNumberDialled(const DialledCallItem& item) {
  return respGetDialledCallList(std::deque<DialledCallItem>{item});
}

bool JournalServiceHelper::parseRespBool(const std::string& reply, bool& value) {
  pugi::xml_document doc;
  if (!journalxml::parse(doc, reply) || std::string(doc.document_element().name()) != CLIENTRESPONSE) return false;
  const pugi::xml_node result = doc.document_element().child(RESULT);
  return result && journalxml::readField(doc.document_element(), RESULT, value);
}

bool JournalServiceHelper::parseRespGetLastNumberDialled(const std::string& reply, DialledCallItem& item) {
  std::deque<DialledCallItem> list;
  if (!parseXMLDialledCallList(reply, list) || list.size() != 1) return false;
  item = list.front();
  return true;
}
