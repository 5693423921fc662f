#include "RequestPool.h"

#include <pthread.h>

#include <algorithm>
#include <exception>

#include "framework/Logging.h"

namespace fw {
namespace clientserver {

namespace {

void runGuarded(const std::function<void()>& task) {
  try {
    task();
  } catch (const std::exception& e) {
    logAppUni(kLogHandle, __FILE__, kLogError, __LINE__, "a request task threw: %s", e.what());
  } catch (...) {
    logAppUni(kLogHandle, __FILE__, kLogError, __LINE__, "a request task threw");
  }
}

}  // namespace

RequestPool::RequestPool(const std::string& name, std::size_t threads) {
  const std::size_t count = std::max<std::size_t>(threads, 1);
  m_threads.reserve(count);
  for (std::size_t i = 1; i <= count; ++i) {
    // Linux keeps at most 15 characters of a thread's name.
    const std::string threadName = (name + " " + std::to_string(i)).substr(0, 15);
    m_threads.emplace_back([this, threadName] { loop(threadName); });
  }
}

RequestPool::~RequestPool() {
  {
    MutexLock guard(m_mutex);
    m_stop = true;
  }
  m_ready.notifyAll();
  for (std::thread& thread : m_threads) thread.join();
}

void RequestPool::post(const std::shared_ptr<Lane>& lane, std::function<void()> task) {
  {
    MutexLock guard(m_mutex);
    lane->m_tasks.push_back(std::move(task));
    if (lane->m_queued) return;  // a thread takes it up after the lane's earlier tasks
    lane->m_queued = true;
    m_queue.push_back(lane);
  }
  m_ready.notifyOne();
}

void RequestPool::waitIdle() {
  MutexLock guard(m_mutex);
  while (!m_queue.empty() || m_running != 0) m_idle.wait(m_mutex);
}

// Takes the next lane in turn and runs its first task. The lane stays marked queued while the task
// runs, so no other thread takes it up; afterwards it goes to the back of the queue when more of
// its tasks wait.
void RequestPool::loop(const std::string& threadName) {
  pthread_setname_np(pthread_self(), threadName.c_str());
  MutexLock lock(m_mutex);
  for (;;) {
    while (!m_stop && m_queue.empty()) m_ready.wait(m_mutex);
    if (m_queue.empty()) return;  // stopping, and nothing left to run
    std::shared_ptr<Lane> lane = std::move(m_queue.front());
    m_queue.pop_front();
    std::function<void()> task = std::move(lane->m_tasks.front());
    lane->m_tasks.pop_front();
    ++m_running;
    lock.unlock();
    runGuarded(task);
    task = nullptr;  // what the task captured is released before it counts as done
    lock.lock();
    --m_running;
    if (lane->m_tasks.empty()) {
      lane->m_queued = false;
    } else {
      m_queue.push_back(std::move(lane));
      m_ready.notifyOne();
    }
    if (m_queue.empty() && m_running == 0) m_idle.notifyAll();
  }
}

}  // namespace clientserver
}  // namespace fw
