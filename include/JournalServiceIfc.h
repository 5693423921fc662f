// The journal's client interface: what the phone's user interface and remote clients (through the
// request invoker) may ask of the journal service. Implemented by JournalService; calls may come
// from any thread. Lists are handed out as copies; entries are named by their entry identifier.
#pragma once

#include <deque>
#include <functional>
#include <set>
#include <string>

#include "framework/CallItems.h"

class JournalServiceObserverIfc;

class JournalServiceIfc {
 public:
  virtual ~JournalServiceIfc() = default;

  virtual bool getMissedCallList(std::deque<MissedCallItem>& list) = 0;
  virtual bool setMissedCallListAsViewed(const std::set<std::string>& entryIds) = 0;
  virtual bool ageMissedCall(const std::string& entryId) = 0;
  virtual bool deleteMissedCall(const std::string& entryId) = 0;
  virtual bool deleteMissedCallList(const std::set<std::string>& entryIds) = 0;
  virtual bool getDialledCallList(std::deque<DialledCallItem>& list) = 0;
  virtual bool deleteDialledCall(const std::string& entryId) = 0;
  virtual bool deleteDialledCallList(const std::set<std::string>& entryIds) = 0;
  virtual bool getLastDialledNumber(DialledCallItem& item) = 0;
  virtual bool getReceivedCallList(std::deque<ReceivedCallItem>& list) = 0;
  virtual bool deleteReceivedCall(const std::string& entryId) = 0;
  virtual bool deleteReceivedCallList(const std::set<std::string>& entryIds) = 0;
  virtual bool getForwardedCallList(std::deque<ForwardedCallItem>& list) = 0;
  virtual bool deleteForwardedCall(const std::string& entryId) = 0;
  virtual bool deleteForwardedCallList(const std::set<std::string>& entryIds) = 0;
  virtual bool getCallBackList(std::deque<CallBackItem>& list) = 0;

  // A list read in place: `read` is called with the list itself while the journal holds the list's
  // lock, so a reply is written from it without a copy of the whole list first (for a full list, a
  // copy costs milliseconds and megabytes). `read` must not call back into the journal. The
  // default copies the list, for implementations without locks of their own.
  template <class Item>
  using ListReader = std::function<void(const std::deque<Item>&)>;
  virtual bool readMissedCallList(const ListReader<MissedCallItem>& read) {
    return readCopy(read, &JournalServiceIfc::getMissedCallList);
  }
  virtual bool readDialledCallList(const ListReader<DialledCallItem>& read) {
    return readCopy(read, &JournalServiceIfc::getDialledCallList);
  }
  virtual bool readReceivedCallList(const ListReader<ReceivedCallItem>& read) {
    return readCopy(read, &JournalServiceIfc::getReceivedCallList);
  }
  virtual bool readForwardedCallList(const ListReader<ForwardedCallItem>& read) {
    return readCopy(read, &JournalServiceIfc::getForwardedCallList);
  }
  virtual bool deleteCallBack(const std::string& entryId) = 0;
  virtual bool deleteCallBackList(const std::set<std::string>& entryIds) = 0;
  // Deletes each id from the first list holding it: received, dialled, missed, forwarded.
  virtual bool deleteCalls(const std::set<std::string>& entryIds) = 0;
  // Adds an observer and sends it the current state; the journal does not own observers.
  virtual bool subscribe(JournalServiceObserverIfc* observer) = 0;
  virtual bool unsubscribe(JournalServiceObserverIfc* observer) = 0;
  // Reloads the lists from the store and tells every observer.
  virtual bool refreshCallLog() = 0;

 private:
  template <class Item>
  bool readCopy(const ListReader<Item>& read, bool (JournalServiceIfc::*copy)(std::deque<Item>&)) {
    std::deque<Item> list;
    if (!(this->*copy)(list)) return false;
    read(list);
    return true;
  }
};
