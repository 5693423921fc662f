// JournalServiceHelper: the messages that carry observer calls to clients in other processes,
// and their parsers for the receiving side.
#include <cerrno>
#include <cstdlib>
#include <limits>

#include "framework/JournalServiceHelper.h"
#include "framework/JournalServiceHelperXml.h"

namespace {

using H = JournalServiceHelper;

pugi::xml_node startMessage(pugi::xml_document& doc, const char* operation) {
  pugi::xml_node root = journalxml::makeRoot(doc, H::OBSERVERMESSAGE);
  journalxml::addField(root, H::OPERATION, std::string(operation));
  return root;
}

std::string countMessage(const char* operation, unsigned int count) {
  pugi::xml_document doc;
  journalxml::addField(startMessage(doc, operation), H::COUNT, std::to_string(count));
  return journalxml::print(doc);
}

template <class Item>
std::string updateMessage(const char* operation, const Item& item, const std::string& id, int action) {
  pugi::xml_document doc;
  pugi::xml_node root = startMessage(doc, operation);
  journalxml::addField(root, H::ACTION, static_cast<long>(action));
  journalxml::addField(root, H::ID, id);
  journalxml::addEntry(root, item, false);
  return journalxml::print(doc);
}

// The root of an observer message for `operation`, or a null node.
pugi::xml_node messageRoot(pugi::xml_document& doc, const std::string& msg, const char* operation) {
  if (!journalxml::parse(doc, msg)) return pugi::xml_node();
  const pugi::xml_node root = doc.document_element();
  if (std::string(root.name()) != H::OBSERVERMESSAGE || std::string(root.child_value(H::OPERATION)) != operation) {
    return pugi::xml_node();
  }
  return root;
}

bool parseCount(const std::string& msg, const char* operation, unsigned int& count) {
  pugi::xml_document doc;
  const pugi::xml_node root = messageRoot(doc, msg, operation);
  const char* text = root.child_value(H::COUNT);
  if (!root || *text < '0' || *text > '9') return false;
  errno = 0;
  char* end = nullptr;
  const unsigned long long value = std::strtoull(text, &end, 10);
  if (errno != 0 || *end != '\0' || value > std::numeric_limits<unsigned int>::max()) return false;
  count = static_cast<unsigned int>(value);
  return true;
}

template <class Item>
bool parseUpdate(const std::string& msg, const char* operation, Item& item, std::string& id, int& action) {
  pugi::xml_document doc;
  const pugi::xml_node root = messageRoot(doc, msg, operation);
  long number = 0;
  if (!root || !root.child(H::ACTION) || !root.child(H::ID) || !root.child(H::ENTRY) ||
      !journalxml::readField(root, H::ACTION, number)) {
    return false;
  }
  Item parsed;
  if (!journalxml::readEntry(root.child(H::ENTRY), parsed)) return false;
  item = std::move(parsed);
  id = root.child(H::ID).text().get();
  action = static_cast<int>(number);
  return true;
}

}  // namespace

std::string JournalServiceHelper::obsReqMissedCallsCountUpdate(unsigned int count) {
  return countMessage(OBS_MISSEDCALLSCOUNTUPDATE, count);
}

std::string JournalServiceHelper::obsReqCallBacksCountUpdate(unsigned int count) {
  return countMessage(OBS_CALLBACKSCOUNTUPDATE, count);
}

std::string JournalServiceHelper::obsReqMissedCallsUpdate(const MissedCallItem& item, const std::string& id,
                                                          int action) {
  return updateMessage(OBS_MISSEDCALLSUPDATE, item, id, action);
}

std::string JournalServiceHelper::obsReqDialledCallsUpdate(const DialledCallItem& item, const std::string& id,
                                                           int action) {
  return updateMessage(OBS_DIALLEDCALLSUPDATE, item, id, action);
}

std::string JournalServiceHelper::obsReqReceivedCallsUpdate(const ReceivedCallItem& item, const std::string& id,
                                                            int action) {
  return updateMessage(OBS_RECEIVEDCALLSUPDATE, item, id, action);
}

std::string JournalServiceHelper::obsReqForwardedCallsUpdate(const ForwardedCallItem& item, const std::string& id,
                                                             int action) {
  return updateMessage(OBS_FORWARDEDCALLSUPDATE, item, id, action);
}

std::string JournalServiceHelper::obsReqCallBacksUpdate(const CallBackItem& item, const std::string& id, int action) {
  return updateMessage(OBS_CALLBACKSUPDATE, item, id, action);
}

std::string JournalServiceHelper::getObserverOperation(const std::string& msg) {
  pugi::xml_document doc;
  if (!journalxml::parse(doc, msg) || std::string(doc.document_element().name()) != OBSERVERMESSAGE) {
    return std::string();
  }
  return doc.document_element().child_value(OPERATION);
}

bool JournalServiceHelper::parseObsReqMissedCallsCountUpdate(const std::string& msg, unsigned int& count) {
  return parseCount(msg, OBS_MISSEDCALLSCOUNTUPDATE, count);
}

bool JournalServiceHelper::parseObsReqCallBacksCountUpdate(const std::string& msg, unsigned int& count) {
  return parseCount(msg, OBS_CALLBACKSCOUNTUPDATE, count);
}

bool JournalServiceHelper::parseObsReqMissedCallsUpdate(const std::string& msg, MissedCallItem& item, std::string& id,
                                                        int& action) {
  return parseUpdate(msg, OBS_MISSEDCALLSUPDATE, item, id, action);
}

bool JournalServiceHelper::parseObsReqDialledCallsUpdate(const std::string& msg, DialledCallItem& item, std::string& id,
                                                         int& action) {
  return parseUpdate(msg, OBS_DIALLEDCALLSUPDATE, item, id, action);
}

bool JournalServiceHelper::parseObsReqReceivedCallsUpdate(const std::string& msg, ReceivedCallItem& item,
                                                          std::string& id, int& action) {
  return parseUpdate(msg, OBS_RECEIVEDCALLSUPDATE, item, id, action);
}

bool JournalServiceHelper::parseObsReqForwardedCallsUpdate(const std::string& msg, ForwardedCallItem& item,
                                                           std::string& id, int& action) {
  return parseUpdate(msg, OBS_FORWARDEDCALLSUPDATE, item, id, action);
}

bool JournalServiceHelper::parseObsReqCallBacksUpdate(const std::string& msg, CallBackItem& item, std::string& id,
                                                      int& action) {
  return parseUpdate(msg, OBS_CALLBACKSUPDATE, item, id, action);
}
