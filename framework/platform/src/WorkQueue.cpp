#include "framework/WorkQueue.h"

#include <pthread.h>

#include <exception>

#include "framework/Logging.h"

namespace fw {
namespace {

// Linux limits thread names to 15 characters; a longer name would be refused altogether.
void nameCurrentThread(const std::string& name) {
  std::string shortName = name.substr(0, 15);
  pthread_setname_np(pthread_self(), shortName.c_str());
}

void runGuarded(const std::string& queueName, const std::function<void()>& task) {
  try {
    task();
  } catch (const std::exception& e) {
    logAppUni("Framework", __FILE__, kLogError, __LINE__, "work queue %s: task threw: %s", queueName.c_str(), e.what());
  } catch (...) {
    logAppUni("Framework", __FILE__, kLogError, __LINE__, "work queue %s: task threw", queueName.c_str());
  }
}

}  // namespace

WorkQueue::WorkQueue(std::string name) : m_name(std::move(name)) { m_thread = std::thread(&WorkQueue::loop, this); }

WorkQueue::~WorkQueue() {
  {
    MutexLock guard(m_mutex);
    m_stop = true;
  }
  m_cv.notifyAll();
  m_thread.join();
}

void WorkQueue::post(std::function<void()> task) {
  {
    MutexLock guard(m_mutex);
    m_tasks.push_back(std::move(task));
    ++m_posted;
  }
  m_cv.notifyOne();
}

void WorkQueue::drain() {
  if (onQueueThread()) {
    // A task waiting for itself would never return.
    logAppUni("Framework", __FILE__, kLogError, __LINE__, "work queue %s: drain called from a task", m_name.c_str());
    return;
  }
  MutexLock guard(m_mutex);
  const uint64_t target = m_posted;
  while (m_completed < target) m_idleCv.wait(m_mutex);
}

bool WorkQueue::onQueueThread() const { return std::this_thread::get_id() == m_thread.get_id(); }

void WorkQueue::loop() {
  nameCurrentThread(m_name);
  MutexLock lock(m_mutex);
  for (;;) {
    while (!m_stop && m_tasks.empty()) m_cv.wait(m_mutex);
    if (m_tasks.empty()) return;  // stopping, and nothing left to run
    std::function<void()> task = std::move(m_tasks.front());
    m_tasks.pop_front();
    m_running = true;
    lock.unlock();
    runGuarded(m_name, task);
    task = nullptr;  // captured state is released before the task counts as done
    lock.lock();
    m_running = false;
    ++m_completed;
    m_idleCv.notifyAll();
  }
}

}  // namespace fw
