// What the journal service needs of its observer notifier: the notifier keeps the subscribed
// observers and fans every change of a list out to them. The service owns its notifier.
#pragma once

#include <string>

class JournalServiceIfc;

class ObserverNotifierIfc {
 public:
  virtual ~ObserverNotifierIfc() = default;
  // Tells the notifier which service to read lists from and the phone's software type.
  virtual void init(JournalServiceIfc* service, const std::string& softwareType) = 0;
};
