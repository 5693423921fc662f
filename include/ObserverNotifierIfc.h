// What the journal service needs of its observer notifier: the notifier keeps the subscribed
// observers and fans every change of a list out to them. The service owns its notifier and never
// calls it while holding a list lock (the notifier reads lists under its own lock).
#pragma once

#include <string>

#include "JournalServiceObserverIfc.h"
#include "framework/CallItems.h"

class JournalServiceIfc;

class ObserverNotifierIfc {
 public:
  using ActionType = JournalServiceObserverIfc::ActionType;

  // One change, as handed to every observer: the items an update does not carry stay empty.
  struct ObserverData {
    MissedCallItem missedCall;
    DialledCallItem dialledCall;
    ReceivedCallItem receivedCall;
    ForwardedCallItem forwardedCall;
    CallBackItem callBack;
    unsigned count = 0;  // unviewed missed calls, where the update carries a count
    std::string id;      // the text argument of the action (see ActionType)
    ActionType action = JournalServiceObserverIfc::LIST_CHANGED;
  };

  virtual ~ObserverNotifierIfc() = default;
  // Tells the notifier which service to read lists from and the phone's software type.
  virtual void init(JournalServiceIfc* service, const std::string& softwareType) = 0;
  virtual bool subscribe(JournalServiceObserverIfc* observer, const DialledCallItem& lastDialled) = 0;
  virtual bool unsubscribe(JournalServiceObserverIfc* observer) = 0;

  virtual void updateMissedCallCountAndCalls() = 0;
  virtual void updateMissedCallCountAndCalls(unsigned count) = 0;
  virtual void updateMissedCallCountAndCalls(unsigned count, const std::string& id) = 0;
  virtual void updateMissedCallCountAndCalls(MissedCallItem item, unsigned count, const std::string& id,
                                             ActionType action) = 0;
  virtual void updateMissedCallCount(unsigned count) = 0;
  virtual void updateDialledCalls(const DialledCallItem& item) = 0;
  virtual void updateDialledCalls(const DialledCallItem& item, const std::string& id) = 0;
  virtual void updateDialledCalls(DialledCallItem item, const std::string& id, ActionType action) = 0;
  virtual void updateReceivedCalls() = 0;
  virtual void updateReceivedCalls(const std::string& id) = 0;
  virtual void updateReceivedCalls(ReceivedCallItem item, const std::string& id, ActionType action) = 0;
  virtual void updateForwardedCalls() = 0;
  virtual void updateForwardedCalls(const std::string& id) = 0;
  virtual void updateForwardedCalls(ForwardedCallItem item, const std::string& id, ActionType action) = 0;
  virtual void updateAllExceptCallbacks(unsigned count) = 0;
  virtual void updateAll(unsigned count) = 0;
  virtual void updateCallbacks(const CallBackItem& item, const std::string& id, ActionType action) = 0;
  virtual void updateCallbackCount() = 0;
  virtual void updateCallbacksAndCount() = 0;
  virtual void updateCallbacksAndCount(const std::string& id) = 0;
};
