// A timer owner for tests: records every expiry delivered to it (timer id and thread) and lets a
// test wait, with an upper bound, for a number of expiries.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "framework/Executable.h"

namespace testing_support {

struct TimerExpiry {
  int timerId;
  std::thread::id thread;
};

class RecordingOwner : public Executable {
 public:
  void timerEvent(int timerId) override {
    {
      std::lock_guard<std::mutex> guard(m_mutex);
      m_expiries.push_back({timerId, std::this_thread::get_id()});
    }
    m_cv.notify_all();
  }

  std::vector<TimerExpiry> expiries() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_expiries;
  }

  std::vector<int> firedIds() const {
    std::vector<int> ids;
    for (const auto& expiry : expiries()) ids.push_back(expiry.timerId);
    return ids;
  }

  // True when `count` expiries arrived within `limit`.
  bool waitForExpiries(size_t count, std::chrono::milliseconds limit) const {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_cv.wait_for(lock, limit, [&] { return m_expiries.size() >= count; });
  }

 private:
  mutable std::mutex m_mutex;
  mutable std::condition_variable m_cv;
  std::vector<TimerExpiry> m_expiries;
};

}  // namespace testing_support
