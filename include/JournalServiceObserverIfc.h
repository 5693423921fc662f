// An observer of the journal: the phone's screen, or the proxy of a remote client. Called
// synchronously on the thread that changed a list, with copies of the items.
#pragma once

#include <string>

#include "framework/CallItems.h"

class JournalServiceObserverIfc {
 public:
  // What an update means; the text argument of each update is explained beside each value.
  enum ActionType {
    NEW_ENTRY = 0,      // item is new at the head; text: unique id of an entry dropped by the limit
    MERGED_ENTRY = 1,   // item merged with a new call and moved to the head; text: as for 0
    DELETED_ENTRY = 2,  // the entry named by the text was deleted; item empty
    LIST_CHANGED = 3    // whole list changed; item empty (dialled: the first entry)
  };

  virtual ~JournalServiceObserverIfc() = default;
  virtual void missedCallsCountUpdate(int count) = 0;
  virtual void missedCallsUpdate(MissedCallItem item, std::string id, ActionType action) = 0;
  virtual void dialledCallsUpdate(DialledCallItem item, std::string id, ActionType action) = 0;
  virtual void receivedCallsUpdate(ReceivedCallItem item, std::string id, ActionType action) = 0;
  virtual void forwardedCallsUpdate(ForwardedCallItem item, std::string id, ActionType action) = 0;
  virtual void callBacksUpdate(CallBackItem item, std::string id, ActionType action) = 0;
  virtual void callBacksCountUpdate(int count) = 0;
};
