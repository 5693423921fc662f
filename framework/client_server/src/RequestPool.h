// The request threads of the client server: a fixed number of threads that run tasks posted to
// lanes. The tasks of one lane run one at a time, in the order they were posted; the tasks of
// different lanes run at the same time, up to the number of threads. The client server gives
// each connection a lane, so that one client's requests are handled strictly in order while a
// request waiting on a slow service (the switch) holds up only its own client.
//
// Fairness: a lane is queued for the threads once per task; after running one task, a thread puts
// the lane at the back of the queue when more of its tasks wait, so a client that floods requests
// takes turns with the others.
//
// Thread-safe. A task that throws is logged and counts as run. The destructor runs every task
// already posted, then joins the threads. Private to the client server.
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "framework/Mutex.h"
#include "framework/ThreadAnnotations.h"

namespace fw {
namespace clientserver {

// The log handle of the client server, its connections and its request threads.
constexpr const char* kLogHandle = "Client Server";

class RequestPool {
 public:
  // One line of tasks that run in order. Held by whoever posts to it; the pool holds it while it
  // has tasks.
  class Lane {
   private:
    friend class RequestPool;
    std::deque<std::function<void()>> m_tasks;  // guarded by the pool's mutex
    bool m_queued = false;  // guarded by the pool's mutex: in the ready queue, or one of its tasks runs
  };

  // `threads` threads (at least one), named `name` and their number.
  RequestPool(const std::string& name, std::size_t threads);
  ~RequestPool();
  RequestPool(const RequestPool&) = delete;
  RequestPool& operator=(const RequestPool&) = delete;

  static std::shared_ptr<Lane> newLane() { return std::make_shared<Lane>(); }
  // Queues `task` behind the tasks of `lane` posted before it. Never blocks.
  void post(const std::shared_ptr<Lane>& lane, std::function<void()> task);
  // Blocks until no task waits and none runs. For a caller that makes sure nothing posts
  // meanwhile (the server's stop); must not be called from a task.
  void waitIdle();

 private:
  void loop(const std::string& threadName);

  Mutex m_mutex;    // a leaf: guards the members below and every lane's tasks; never held while a task runs
  CondVar m_ready;  // a lane was queued, or the pool stops
  CondVar m_idle;   // the last running task ended with nothing queued
  std::deque<std::shared_ptr<Lane>> m_queue GUARDED_BY(m_mutex);  // lanes with a task to run, in turn
  std::size_t m_running GUARDED_BY(m_mutex) = 0;                  // tasks running now
  bool m_stop GUARDED_BY(m_mutex) = false;
  std::vector<std::thread> m_threads;
};

}  // namespace clientserver
}  // namespace fw
