// The journal's exchange with the store: single-entry writes, set messages, loading the four
// stored lists, and the client's refresh.
#include <system_error>
#include <thread>

#include "JournalService/ListAccess.h"

using journal::kCoreLog;
using journal::kStoreFailed;

std::string JournalService::processRequest(std::string const& message) {
  if (!m_pDataAccessSvc) return kStoreFailed;
  return m_pDataAccessSvc->processRequest(message);
}

bool JournalService::isDeleteRequest(std::string const& reason) { return reason == Helper::DELETEREQUEST; }

void JournalService::updateEntries(std::string const& body, std::string const& reason, std::string const& table) {
  std::string id;
  storeEntries(body, reason, table, id);
}

bool JournalService::storeEntries(std::string const& body, std::string const& reason, std::string const& table,
                                  std::string& id) {
  std::string message = Helper::createXMLField(Helper::REASONFORMESSAGE, reason) + body;
  Helper::addXMLHeaderFooter(message, table);
  JLOG(kCoreLog, 5, "JournalService::updateEntries msg: \n %s\n", message.c_str());
  std::string reply = processRequest(message);
  JLOG(kCoreLog, 5, "DAS resp %s \n", reply.c_str());
  if (reply == kStoreFailed) return false;  // the in-memory list stays the authority
  Helper::parseLastUniqueId(reply, id);
  {
    CriticalSection guard(m_uniqueIdLock);
    m_lastUniqueId = id;
  }
  m_visitorCallLogChanged = true;
  return true;
}

std::string JournalService::lastUniqueId() const {
  CriticalSection guard(m_uniqueIdLock);
  return m_lastUniqueId;
}

void JournalService::updateEntry(std::string const& itemBody, std::string const& reason, std::string const& table) {
  updateEntries(Helper::createXMLField(Helper::ENTRY, itemBody), reason, table);
}

void JournalService::updateMissedEntry(MissedCallItem const& item, std::string const& reason) {
  updateStoredEntry(item, reason);
}
void JournalService::updateDialledEntry(DialledCallItem const& item, std::string const& reason) {
  updateStoredEntry(item, reason);
}
void JournalService::updateReceivedEntry(ReceivedCallItem const& item, std::string const& reason) {
  updateStoredEntry(item, reason);
}
void JournalService::updateForwardedEntry(ForwardedCallItem const& item, std::string const& reason) {
  updateStoredEntry(item, reason);
}

void JournalService::readMissedCallList() { readStoredList<MissedCallItem>(); }
void JournalService::readDialledCallList() { readStoredList<DialledCallItem>(); }
void JournalService::readReceivedCallList() {
  JLOG(kCoreLog, 5, "readReceivedCallList");
  readStoredList<ReceivedCallItem>();
}
void JournalService::readForwardedCallList() { readStoredList<ForwardedCallItem>(); }

void JournalService::processMissedCallDbXml(std::string const& reply) { replaceWithStored<MissedCallItem>(reply); }
void JournalService::processDialledCallDbXml(std::string const& reply) { replaceWithStored<DialledCallItem>(reply); }
void JournalService::processReceivedCallDbXml(std::string const& reply) { replaceWithStored<ReceivedCallItem>(reply); }
void JournalService::processForwardedCallDbXml(std::string const& reply) {
  replaceWithStored<ForwardedCallItem>(reply);
}

// The lists are independent (each is read and replaced under its own lock), so a helper thread
// reads received and forwarded calls while this one reads missed and dialled calls: loading full
// lists takes about half as long on the phone's two cores.
void JournalService::loadCallListsFromDb() {
  // Only SIP phones show forwarded calls; other phones never load them.
  const bool withForwarded = isSipSwitch();
  auto readOthers = [this, withForwarded] {
    readReceivedCallList();
    if (withForwarded) readForwardedCallList();
  };
  std::thread helper;
  try {
    helper = std::thread(readOthers);
  } catch (const std::system_error& e) {
    JLOG(kCoreLog, 4, "%s():no helper thread (%s), loading on one thread", __func__, e.what());
  }
  readMissedCallList();
  readDialledCallList();
  if (helper.joinable()) {
    helper.join();
  } else {
    readOthers();
  }
}

bool JournalService::refreshCallLog() {
  loadCallListsFromDb();
  m_listsLoaded = true;
  bool wasEnabled = m_callLogEnabled;
  readConfigItemsFromDB();
  if (wasEnabled != m_callLogEnabled) handleEnabledStateChange();
  m_pObserverNotifier->updateAllExceptCallbacks(countUnviewedMissedCalls());
  return true;
}
