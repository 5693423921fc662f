// The framework's monotonic time, in milliseconds.
//
// Production uses SteadyTimeSource (std::chrono::steady_clock). Tests and trace replay use
// ManualTimeSource, whose time moves only when advance() or set() is called, so that an hour of
// timers runs in microseconds. Listeners (the timer service) are told after every change.
//
// Thread-safe.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "framework/Mutex.h"

#pragma GCC visibility push(default)

namespace fw {

class TimeSource {
 public:
  virtual ~TimeSource();
  virtual int64_t nowMs() const = 0;
  // True when time moves only by advance()/set(): waiters must not sleep on the real clock.
  virtual bool isManual() const = 0;
  // Registers a function called after every manual change of time; returns a token for removal.
  virtual int addListener(std::function<void()> listener);
  virtual void removeListener(int token);
};

class SteadyTimeSource : public TimeSource {
 public:
  int64_t nowMs() const override;
  bool isManual() const override { return false; }
};

class ManualTimeSource : public TimeSource {
 public:
  explicit ManualTimeSource(int64_t startMs = 0) : m_now(startMs) {}
  int64_t nowMs() const override;
  bool isManual() const override { return true; }
  int addListener(std::function<void()> listener) override;
  void removeListener(int token) override;

  void advance(int64_t ms);
  void set(int64_t ms);  // never moves backwards: an earlier value is ignored

 private:
  void notify();

  mutable Mutex m_mutex;  // leaf; listeners are called outside it
  int64_t m_now GUARDED_BY(m_mutex);
  int m_nextToken GUARDED_BY(m_mutex) = 1;
  std::vector<std::pair<int, std::function<void()>>> m_listeners GUARDED_BY(m_mutex);
};

}  // namespace fw

#pragma GCC visibility pop
