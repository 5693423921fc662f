// The framework's Context: a registry of services by name and a timer service.
//
// Timers run on one framework thread ("timer thread") that sleeps until the earliest deadline on
// the TimeSource; with a ManualTimeSource it wakes whenever time is moved. Expiries of one owner
// are delivered one at a time, in deadline order (ties in creation order).
//
// Ownership: the context does not own the services registered with it, nor the TimeSource.
// Before a service is destroyed, call cancelTimers(service): it deletes the owner's timers and
// waits for an expiry of that owner that is being delivered to return (unless called from the
// timer thread itself).
//
// Locks: m_mutex guards the registry and the timer table; it is never held while a service's
// timerEvent runs, so a service may create, restart and delete timers from its timerEvent.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include "framework/Executable.h"
#include "framework/Mutex.h"
#include "framework/TimeSource.h"

#pragma GCC visibility push(default)

class Proxy;

class FrameworkContext : public Context {
 public:
  explicit FrameworkContext(fw::TimeSource& time);
  ~FrameworkContext() override;  // stops the timer thread; pending timers are dropped
  FrameworkContext(const FrameworkContext&) = delete;
  FrameworkContext& operator=(const FrameworkContext&) = delete;

  void registerService(const std::string& name, Executable* service);
  void unregisterService(const std::string& name);

  Executable* findService(const std::string& name) override;
  int createTimer(Executable* owner, int delayMs) override;
  bool restartTimer(int timerId) override;
  bool deleteTimer(int timerId) override;

  // Proxies of remote clients: the client server installs the provider; invokers ask for the
  // proxy of an interface for the client that sent a request. Null when none can be had.
  using ProxyProvider = std::function<Proxy*(const std::string& interfaceName, const std::string& clientId)>;
  void setProxyProvider(ProxyProvider provider);
  Proxy* getProxy(const std::string& interfaceName, const std::string& clientId);

  void cancelTimers(Executable* owner);
  // Blocks until no armed timer is due at the current time and no expiry is being delivered.
  // With a ManualTimeSource this makes "advance, then check" deterministic in tests.
  void settle();

  size_t armedTimers() const;
  fw::TimeSource& timeSource() { return m_time; }

 private:
  struct Timer {
    Executable* owner;
    int delayMs;
    bool armed;
    int64_t deadline;
    uint64_t sequence;  // tie-break: earlier arming first
  };

  // Connects the time source's listener to this context; cut in the destructor, so that a
  // listener call still running on another thread never reaches a destroyed context.
  struct WakeLink;

  void timerLoop();
  // Under m_mutex: the id of the armed timer due first, or 0.
  int nextDue(int64_t* deadline) const REQUIRES(m_mutex);
  // Under m_mutex: true while an armed timer is due now or an expiry is being delivered.
  bool busy() const REQUIRES(m_mutex);
  void arm(Timer& timer) REQUIRES(m_mutex);
  // Called with m_mutex held; gives it while the owner's timerEvent runs.
  void deliver(int timerId) REQUIRES(m_mutex);
  // Called with m_mutex held; sleeps until `deadline` (when dueId != 0) or until woken.
  void sleepUntilDue(int dueId, int64_t deadline) REQUIRES(m_mutex);
  void wake();
  // Under m_mutex.
  bool onTimerThread() const REQUIRES(m_mutex);

  fw::TimeSource& m_time;
  std::shared_ptr<WakeLink> m_wakeLink;
  int m_listenerToken = 0;
  // Guards the members below it but m_thread (started by the constructor, joined by the
  // destructor); never held while calling a service.
  mutable fw::Mutex m_mutex;
  fw::CondVar m_cv;
  std::map<std::string, Executable*> m_services GUARDED_BY(m_mutex);
  ProxyProvider m_proxyProvider GUARDED_BY(m_mutex);
  std::map<int, Timer> m_timers GUARDED_BY(m_mutex);
  int m_nextTimerId GUARDED_BY(m_mutex) = 1;
  uint64_t m_nextSequence GUARDED_BY(m_mutex) = 0;
  Executable* m_delivering GUARDED_BY(m_mutex) = nullptr;  // owner whose timerEvent is running, or null
  bool m_stop GUARDED_BY(m_mutex) = false;
  std::thread::id m_timerThreadId GUARDED_BY(m_mutex);  // set by the timer thread when it starts
  std::thread m_thread;
};

#pragma GCC visibility pop
