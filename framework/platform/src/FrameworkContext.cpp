#include "framework/FrameworkContext.h"

#include <chrono>
#include <limits>

#include "framework/Logging.h"

namespace {
const char* const kLogHandle = "Framework";
}  // namespace

struct FrameworkContext::WakeLink {
  std::mutex mutex;  // taken before the context's m_mutex, never after it
  FrameworkContext* context = nullptr;
};

FrameworkContext::FrameworkContext(fw::TimeSource& time) : m_time(time), m_wakeLink(std::make_shared<WakeLink>()) {
  m_wakeLink->context = this;
  std::shared_ptr<WakeLink> link = m_wakeLink;
  m_listenerToken = m_time.addListener([link] {
    std::lock_guard<std::mutex> guard(link->mutex);
    if (link->context) link->context->wake();
  });
  m_thread = std::thread(&FrameworkContext::timerLoop, this);
}

FrameworkContext::~FrameworkContext() {
  m_time.removeListener(m_listenerToken);
  {
    std::lock_guard<std::mutex> guard(m_wakeLink->mutex);
    m_wakeLink->context = nullptr;
  }
  {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_stop = true;
  }
  m_cv.notify_all();
  if (m_thread.joinable()) m_thread.join();
}

void FrameworkContext::registerService(const std::string& name, Executable* service) {
  std::lock_guard<std::mutex> guard(m_mutex);
  m_services[name] = service;
}

void FrameworkContext::unregisterService(const std::string& name) {
  std::lock_guard<std::mutex> guard(m_mutex);
  m_services.erase(name);
}

Executable* FrameworkContext::findService(const std::string& name) {
  std::lock_guard<std::mutex> guard(m_mutex);
  auto it = m_services.find(name);
  return it == m_services.end() ? nullptr : it->second;
}

void FrameworkContext::setProxyProvider(ProxyProvider provider) {
  std::lock_guard<std::mutex> guard(m_mutex);
  m_proxyProvider = std::move(provider);
}

// The provider is called without m_mutex: it may make a proxy, which may use the context.
Proxy* FrameworkContext::getProxy(const std::string& interfaceName, const std::string& clientId) {
  ProxyProvider provider;
  {
    std::lock_guard<std::mutex> guard(m_mutex);
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
    std::lock_guard<std::mutex> guard(m_mutex);
    if (m_nextTimerId == std::numeric_limits<int>::max()) return -1;  // ids are never reused
    id = m_nextTimerId++;
    Timer& timer = m_timers[id];
    timer.owner = owner;
    timer.delayMs = delayMs;
    arm(timer);
  }
  m_cv.notify_all();
  return id;
}

bool FrameworkContext::restartTimer(int timerId) {
  {
    std::lock_guard<std::mutex> guard(m_mutex);
    auto it = m_timers.find(timerId);
    if (it == m_timers.end()) return false;
    arm(it->second);
  }
  m_cv.notify_all();
  return true;
}

bool FrameworkContext::deleteTimer(int timerId) {
  {
    std::lock_guard<std::mutex> guard(m_mutex);
    if (m_timers.erase(timerId) == 0) return false;
  }
  m_cv.notify_all();
  return true;
}

void FrameworkContext::cancelTimers(Executable* owner) {
  std::unique_lock<std::mutex> lock(m_mutex);
  for (auto it = m_timers.begin(); it != m_timers.end();) {
    if (it->second.owner == owner)
      it = m_timers.erase(it);
    else
      ++it;
  }
  m_cv.notify_all();
  // On the timer thread the delivery in progress is the caller's own: waiting would deadlock.
  if (onTimerThread()) return;
  m_cv.wait(lock, [this, owner] { return m_delivering != owner; });
}

void FrameworkContext::settle() {
  std::unique_lock<std::mutex> lock(m_mutex);
  if (onTimerThread()) {
    lock.unlock();
    logAppUni(kLogHandle, __FILE__, fw::kLogError, __LINE__, "settle called on the timer thread; ignored");
    return;
  }
  m_cv.wait(lock, [this] { return m_stop || !busy(); });
}

size_t FrameworkContext::armedTimers() const {
  std::lock_guard<std::mutex> guard(m_mutex);
  size_t armed = 0;
  for (const auto& entry : m_timers)
    if (entry.second.armed) ++armed;
  return armed;
}

void FrameworkContext::timerLoop() {
  std::unique_lock<std::mutex> lock(m_mutex);
  m_timerThreadId = std::this_thread::get_id();
  while (!m_stop) {
    int64_t deadline = 0;
    int dueId = nextDue(&deadline);
    if (dueId != 0 && deadline <= m_time.nowMs())
      deliver(lock, dueId);
    else
      sleepUntilDue(lock, dueId, deadline);
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

void FrameworkContext::deliver(std::unique_lock<std::mutex>& lock, int timerId) {
  Timer& timer = m_timers.at(timerId);
  timer.armed = false;
  Executable* owner = timer.owner;
  m_delivering = owner;
  lock.unlock();
  owner->timerEvent(timerId);
  lock.lock();
  m_delivering = nullptr;
  m_cv.notify_all();
}

void FrameworkContext::sleepUntilDue(std::unique_lock<std::mutex>& lock, int dueId, int64_t deadline) {
  // A manual clock does not move by itself: only its listener (wake) ends the wait.
  if (dueId == 0 || m_time.isManual()) {
    m_cv.wait(lock);
    return;
  }
  m_cv.wait_for(lock, std::chrono::milliseconds(deadline - m_time.nowMs()));
}

void FrameworkContext::wake() {
  // Taking the mutex orders the wake-up after the timer thread's look at the clock: it is either
  // still deciding (and will see the new time) or already waiting (and gets the notification).
  std::lock_guard<std::mutex> guard(m_mutex);
  m_cv.notify_all();
}

bool FrameworkContext::onTimerThread() const { return std::this_thread::get_id() == m_timerThreadId; }
