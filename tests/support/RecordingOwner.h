// A timer owner for tests: records the ids of the expiries delivered to it, notes whether one
// ran on the thread that created it.
#pragma once

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "framework/Executable.h"

class RecordingOwner : public Executable {
 public:
  void timerEvent(int timerId) override {
    if (std::this_thread::get_id() == m_creator) onCreatorThread = true;
    std::lock_guard<std::mutex> guard(m_mutex);
    m_ids.push_back(timerId);
  }

  std::vector<int> firedIds() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_ids;
  }

  std::atomic<bool> onCreatorThread{false};

 private:
  const std::thread::id m_creator = std::this_thread::get_id();
  mutable std::mutex m_mutex;
  std::vector<int> m_ids;
};
