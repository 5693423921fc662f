#include "framework/TimeSource.h"

#include <chrono>

namespace fw {

TimeSource::~TimeSource() = default;

// Real clocks move by themselves: nobody needs to be told.
int TimeSource::addListener(std::function<void()>) { return 0; }
void TimeSource::removeListener(int) {}

int64_t SteadyTimeSource::nowMs() const {
  using namespace std::chrono;
  return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

int64_t ManualTimeSource::nowMs() const {
  MutexLock guard(m_mutex);
  return m_now;
}

int ManualTimeSource::addListener(std::function<void()> listener) {
  MutexLock guard(m_mutex);
  int token = m_nextToken++;
  m_listeners.emplace_back(token, std::move(listener));
  return token;
}

void ManualTimeSource::removeListener(int token) {
  MutexLock guard(m_mutex);
  for (auto it = m_listeners.begin(); it != m_listeners.end(); ++it) {
    if (it->first == token) {
      m_listeners.erase(it);
      return;
    }
  }
}

void ManualTimeSource::advance(int64_t ms) {
  if (ms <= 0) return;
  {
    MutexLock guard(m_mutex);
    m_now += ms;
  }
  notify();
}

void ManualTimeSource::set(int64_t ms) {
  {
    MutexLock guard(m_mutex);
    if (ms <= m_now) return;
    m_now = ms;
  }
  notify();
}

void ManualTimeSource::notify() {
  std::vector<std::pair<int, std::function<void()>>> listeners;
  {
    MutexLock guard(m_mutex);
    listeners = m_listeners;
  }
  for (auto& entry : listeners) entry.second();
}

}  // namespace fw
