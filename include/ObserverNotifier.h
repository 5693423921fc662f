// The journal's observer notifier: the list of subscribed observers, in order of subscription,
// and the fan-out of every change of a list to each of them.
//
// Owned by the JournalService; does not own the observers. Called from any thread that changed a
// list; observers are called synchronously on that thread, one at a time. `lock` guards the
// observer list and is held across each fan-out; it is taken before any list lock of the service
// (the notifier reads the missed, dialled and callback lists through the service), never after one.
// An observer must not subscribe or unsubscribe from inside an update: the lock is not recursive.
#pragma once

#include <string>
#include <vector>

#include "ObserverNotifierIfc.h"
#include "framework/Semaphore.h"
#include "framework/ThreadAnnotations.h"

class JournalServiceIfc;
class JournalServiceObserverIfc;

class ObserverNotifier : public ObserverNotifierIfc {
 public:
  ObserverNotifier();
  ~ObserverNotifier() override;

  void init(JournalServiceIfc* service, const std::string& softwareType) override;
  // Adds `observer` (twice when subscribed twice) and sends it the missed count, the first
  // dialled entry and, when there are callbacks, their count.
  bool subscribe(JournalServiceObserverIfc* observer, const DialledCallItem& lastDialled) override;
  bool unsubscribe(JournalServiceObserverIfc* observer) override;

  void updateMissedCallCountAndCalls() override;
  void updateMissedCallCountAndCalls(unsigned count) override;
  void updateMissedCallCountAndCalls(unsigned count, const std::string& id) override;
  void updateMissedCallCountAndCalls(MissedCallItem item, unsigned count, const std::string& id,
                                     ActionType action) override;
  void updateMissedCallCount(unsigned count) override;
  void updateDialledCalls(const DialledCallItem& item) override;
  void updateDialledCalls(const DialledCallItem& item, const std::string& id) override;
  void updateDialledCalls(DialledCallItem item, const std::string& id, ActionType action) override;
  void updateReceivedCalls() override;
  void updateReceivedCalls(const std::string& id) override;
  void updateReceivedCalls(ReceivedCallItem item, const std::string& id, ActionType action) override;
  void updateForwardedCalls() override;
  void updateForwardedCalls(const std::string& id) override;
  void updateForwardedCalls(ForwardedCallItem item, const std::string& id, ActionType action) override;
  void updateAllExceptCallbacks(unsigned count) override;
  void updateAll(unsigned count) override;
  void updateCallbacks(const CallBackItem& item, const std::string& id, ActionType action) override;
  void updateCallbackCount() override;
  void updateCallbacksAndCount() override;
  void updateCallbacksAndCount(const std::string& id) override;

  JournalServiceIfc* getService() const;
  bool isSip() const;

 private:
  using Routine = void (ObserverNotifier::*)(JournalServiceObserverIfc*, const ObserverData&);

  // Runs `routine` for every observer, in subscription order, under `lock`.
  void forEachObserver(Routine routine, const ObserverData& data);

  // What one observer is sent for each kind of update; run by forEachObserver under `lock`.
  void updateSingleMissedCallCount(JournalServiceObserverIfc* observer, const ObserverData& data) REQUIRES(lock);
  void updateSingleMissedCallCountAndCalls(JournalServiceObserverIfc* observer, const ObserverData& data)
      REQUIRES(lock);
  void updateSingleDialledCalls(JournalServiceObserverIfc* observer, const ObserverData& data) REQUIRES(lock);
  void updateSingleReceivedCalls(JournalServiceObserverIfc* observer, const ObserverData& data) REQUIRES(lock);
  void updateSingleForwardedCalls(JournalServiceObserverIfc* observer, const ObserverData& data) REQUIRES(lock);
  void updateSingleCallbacks(JournalServiceObserverIfc* observer, const ObserverData& data) REQUIRES(lock);
  void updateSingleCallbackCount(JournalServiceObserverIfc* observer, const ObserverData& data) REQUIRES(lock);
  void updateSingleCallbacksAndCount(JournalServiceObserverIfc* observer, const ObserverData& data) REQUIRES(lock);
  void updateSingleAllExceptCallbacks(JournalServiceObserverIfc* observer, const ObserverData& data) REQUIRES(lock);
  void updateSingleAll(JournalServiceObserverIfc* observer, const ObserverData& data) REQUIRES(lock);

  // Counts read from the service, each on a copy of its list.
  unsigned getUnviewedMissedCallsCount() REQUIRES(lock);
  unsigned getCallBackListSize() REQUIRES(lock);

  // Guards the members below; order: before every list lock.
  mutable Semaphore lock;
  JournalServiceIfc* service GUARDED_BY(lock) = nullptr;               // not owned; read for counts and start-up state
  bool isSipPhone GUARDED_BY(lock) = false;                            // software type is "Velmora SIP"
  std::vector<JournalServiceObserverIfc*> observers GUARDED_BY(lock);  // not owned
};
