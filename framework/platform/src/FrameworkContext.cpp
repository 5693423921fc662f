#include "framework/FrameworkContext.h"

#include <chrono>
#include <limits>

#include "framework/Logging.h"

namespace {
const char* const kLogHandle = "Framework";
}  // namespace

struct FrameworkContext::WakeLink {
  fw::Mutex mutex ACQUIRED_BEFORE(context->m_mutex);  // taken before the context's m_mutex, never after it
  FrameworkContext* context GUARDED_BY(mutex) = nullptr;
};

FrameworkContext::FrameworkContext(fw::TimeSource& time) : m_time(time), m_wakeLink(std::make_shared<WakeLink>()) {
  m_wakeLink->context = this;
  std::shared_ptr<WakeLink> link = m_wakeLink;
  m_listenerToken = m_time.addListener([link] {
    fw::MutexLock guard(link->mutex);
    if (link->context) link->context->wake();
  });
  m_thread = std::thread(&FrameworkContext::timerLoop, this);
}

FrameworkContext::~FrameworkContext() {
  m_time.removeListener(m_listenerToken);
  {
    fw::MutexLock guard(m_wakeLink->mutex);
    m_wakeLink->context = nullptr;
  }
  {
    fw::MutexLock guard(m_mutex);
    m_stop = true;
  }
  m_cv.notifyAll();
  if (m_thread.joinable()) m_thread.join();
}

void FrameworkContext::registerService(const std::string& name, Executable* service) {
  fw::MutexLock guard(m_mutex);
  m_services[name] = service;
}

void FrameworkContext::unregisterService(const std::string& name) {
  fw::MutexLock guard(m_mutex);
  m_services.erase(name);
}

Executable* FrameworkContext::findService(const std::string& name) {
  fw::MutexLock guard(m_mutex);
  auto it = m_services.find(name);
  return it == m_services.end() ? nullptr : it->second;
}

void FrameworkContext::setProxyProvider(ProxyProvider provider) {
  fw::MutexLock guard(m_mutex);
  m_proxyProvider = std::move(provider);
}

// The provider is called without m_mutex: it may make a proxy, which may use the context.
Proxy* FrameworkContext::getProxy(const std::string& interfaceName, const std::string& clientId) {
  ProxyProvider provider;
  {
    fw::MutexLock guard(m_mutex);
    provider = m_proxyProvider;
  }
  return provider ? provider(interfaceName, clientId) : nullptr;
}

int FrameworkContext::createTimer(Executable* owner, int delayMs) {
  if (!owner || delayMs < 0) {
    logAppUni(kLogHandle, __FILE__, fw::kLogError, __LINE__, "createTimer refused: owner %p, delay %d ms",
              static_cast<void*>(owner), delayMs);
    return -1;
  }
  int id;
  {
    fw::MutexLock guard(m_mutex);
    if (m_nextTimerId == std::numeric_limits<int>::max()) return -1;  // ids are never reused
    id = m_nextTimerId++;
    Timer& timer = m_timers[id];
    timer.owner = owner;
    timer.delayMs = delayMs;
    arm(timer);
  }
  m_cv.notifyAll();
  return id;
}

bool FrameworkContext::restartTimer(int timerId) {
  {
    fw::MutexLock guard(m_mutex);
    auto it = m_timers.find(timerId);
    if (it == m_timers.end()) return false;
    arm(it->second);
  }
  m_cv.notifyAll();
  return true;
}

bool FrameworkContext::deleteTimer(int timerId) {
  {
    fw::MutexLock guard(m_mutex);
    if (m_timers.erase(timerId) == 0) return false;
  }
  m_cv.notifyAll();
  return true;
}

void FrameworkContext::cancelTimers(Executable* owner) {
  fw::MutexLock guard(m_mutex);
  for (auto it = m_timers.begin(); it != m_timers.end();) {
    if (it->second.owner == owner)
      it = m_timers.erase(it);
    else
      ++it;
  }
  m_cv.notifyAll();
  // On the timer thread the delivery in progress is the caller's own: waiting would deadlock.
  if (onTimerThread()) return;
  while (m_delivering == owner) m_cv.wait(m_mutex);
}

void FrameworkContext::settle() {
  fw::MutexLock lock(m_mutex);
  if (onTimerThread()) {
    lock.unlock();
    logAppUni(kLogHandle, __FILE__, fw::kLogError, __LINE__, "settle called on the timer thread; ignored");
    return;
  }
  while (!m_stop && busy()) m_cv.wait(m_mutex);
}

size_t FrameworkContext::armedTimers() const {
  fw::MutexLock guard(m_mutex);
  size_t armed = 0;
  for (const auto& entry : m_timers)
    if (entry.second.armed) ++armed;
  return armed;
}

void FrameworkContext::timerLoop() {
  fw::MutexLock guard(m_mutex);
  m_timerThreadId = std::this_thread::get_id();
  while (!m_stop) {
    int64_t deadline = 0;
    int dueId = nextDue(&deadline);
    if (dueId != 0 && deadline <= m_time.nowMs())
      deliver(dueId);
    else
      sleepUntilDue(dueId, deadline);
  }
}

int FrameworkContext::nextDue(int64_t* deadline) const {
  const Timer* first = nullptr;
  int firstId = 0;
  for (const auto& entry : m_timers) {
    const Timer& timer = entry.second;
    if (!timer.armed) continue;
    bool earlier = !first || timer.deadline < first->deadline ||
                   (timer.deadline == first->deadline && timer.sequence < first->sequence);
    if (earlier) {
      first = &timer;
      firstId = entry.first;
    }
  }
  if (first) *deadline = first->deadline;
  return firstId;
}

bool FrameworkContext::busy() const {
  if (m_delivering) return true;
  int64_t deadline = 0;
  return nextDue(&deadline) != 0 && deadline <= m_time.nowMs();
}

void FrameworkContext::arm(Timer& timer) {
  timer.armed = true;
  timer.deadline = m_time.nowMs() + timer.delayMs;
  timer.sequence = m_nextSequence++;
}

void FrameworkContext::deliver(int timerId) {
  Timer& timer = m_timers.at(timerId);
  timer.armed = false;
  Executable* owner = timer.owner;
  m_delivering = owner;
  m_mutex.unlock();
  owner->timerEvent(timerId);
  m_mutex.lock();
  m_delivering = nullptr;
  m_cv.notifyAll();
}

void FrameworkContext::sleepUntilDue(int dueId, int64_t deadline) {
  // A manual clock does not move by itself: only its listener (wake) ends the wait.
  if (dueId == 0 || m_time.isManual()) {
    m_cv.wait(m_mutex);
    return;
  }
  m_cv.waitFor(m_mutex, std::chrono::milliseconds(deadline - m_time.nowMs()));
}

void FrameworkContext::wake() {
  // Taking the mutex orders the wake-up after the timer thread's look at the clock: it is either
  // still deciding (and will see the new time) or already waiting (and gets the notification).
  fw::MutexLock guard(m_mutex);
  m_cv.notifyAll();
}

bool FrameworkContext::onTimerThread() const { return std::this_thread::get_id() == m_timerThreadId; }
