// One framework thread that runs submitted tasks in submission order. Used wherever the framework
// must call a service on "a framework thread" (management callbacks, CSTA events).
//
// Thread-safe. The destructor runs the tasks already queued, then joins the thread.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <thread>

#include "framework/Mutex.h"

#pragma GCC visibility push(default)

namespace fw {

class WorkQueue {
 public:
  explicit WorkQueue(std::string name);
  ~WorkQueue();
  WorkQueue(const WorkQueue&) = delete;
  WorkQueue& operator=(const WorkQueue&) = delete;

  void post(std::function<void()> task);
  // Blocks until every task posted before this call has run. Must not be called from a task.
  void drain();
  bool onQueueThread() const;
  const std::string& name() const { return m_name; }

 private:
  void loop();

  std::string m_name;
  Mutex m_mutex;  // guards the queue; never held while a task runs
  CondVar m_cv;
  CondVar m_idleCv;
  std::deque<std::function<void()>> m_tasks GUARDED_BY(m_mutex);
  bool m_running GUARDED_BY(m_mutex) = false;  // a task is executing
  bool m_stop GUARDED_BY(m_mutex) = false;
  uint64_t m_posted GUARDED_BY(m_mutex) = 0;     // tasks ever posted
  uint64_t m_completed GUARDED_BY(m_mutex) = 0;  // tasks ever finished; drain() waits for it to catch up
  std::thread m_thread;
};

}  // namespace fw

#pragma GCC visibility pop
