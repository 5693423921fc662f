// The journal's client interface: what the phone's user interface and remote clients (through the
// request invoker) may ask of the journal service. Implemented by JournalService; calls may come
// from any thread. Lists are handed out as copies; entries are named by their entry identifier.
#pragma once

#include <deque>
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
  virtual bool deleteCallBack(const std::string& entryId) = 0;
  virtual bool deleteCallBackList(const std::set<std::string>& entryIds) = 0;
  // Deletes each id from the first list holding it: received, dialled, missed, forwarded.
  virtual bool deleteCalls(const std::set<std::string>& entryIds) = 0;
  // Adds an observer and sends it the current state; the journal does not own observers.
  virtual bool subscribe(JournalServiceObserverIfc* observer) = 0;
  virtual bool unsubscribe(JournalServiceObserverIfc* observer) = 0;
  // Reloads the lists from the store and tells every observer.
  virtual bool refreshCallLog() = 0;
};
