// The journal's observer notifier: the list of subscribed observers, in order of subscription.
//
// Owned by the JournalService. Called from any thread that changes a list; `m_lock` guards the
// observer list and is taken before any list lock of the service (never after one).
#pragma once

#include <string>
#include <vector>

#include "ObserverNotifierIfc.h"
#include "framework/Semaphore.h"

class JournalServiceIfc;
class JournalServiceObserverIfc;

class ObserverNotifier : public ObserverNotifierIfc {
 public:
  ObserverNotifier();
  ~ObserverNotifier() override;

  void init(JournalServiceIfc* service, const std::string& softwareType) override;

  JournalServiceIfc* getService() const { return service; }
  bool isSip() const { return isSipPhone; }

 private:
  JournalServiceIfc* service = nullptr;  // not owned; read for counts and start-up state
  bool isSipPhone = false;               // software type is "Velmora SIP"
  Semaphore lock;                        // guards `observers`; order: before every list lock
  std::vector<JournalServiceObserverIfc*> observers;  // not owned
};
