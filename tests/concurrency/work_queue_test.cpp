#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <future>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "framework/LocalMgmt.h"
#include "framework/Logging.h"
#include "framework/WorkQueue.h"

namespace {

// ---- WorkQueue ----

TEST(WorkQueue, KeepsTheOrderOfEachPoster) {
  const int kPosters = 4;
  const int kTasksEach = 500;
  std::vector<std::pair<int, int>> ran;  // touched only by the queue thread until drain returns
  fw::WorkQueue queue("order");
  std::vector<std::thread> posters;
  for (int poster = 0; poster < kPosters; ++poster) {
    posters.emplace_back([&queue, &ran, poster] {
      for (int i = 0; i < kTasksEach; ++i) queue.post([&ran, poster, i] { ran.emplace_back(poster, i); });
    });
  }
  for (auto& t : posters) t.join();
  queue.drain();

  ASSERT_EQ(ran.size(), static_cast<size_t>(kPosters * kTasksEach));
  std::vector<int> next(kPosters, 0);
  for (const auto& task : ran) {
    ASSERT_EQ(task.second, next[task.first]) << "poster " << task.first;
    ++next[task.first];
  }
}

TEST(WorkQueue, DrainWaitsForEverythingPostedBefore) {
  fw::WorkQueue queue("drain");
  int counter = 0;  // deliberately not atomic: drain must order the tasks' writes before the read
  bool lastFinished = false;
  queue.post([] { std::this_thread::sleep_for(std::chrono::milliseconds(20)); });
  for (int i = 0; i < 100; ++i) queue.post([&counter] { ++counter; });
  // A slow last task: the queue is empty while it runs, and drain must still wait for it.
  queue.post([&lastFinished] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    lastFinished = true;
  });
  queue.drain();
  EXPECT_EQ(counter, 100);
  EXPECT_TRUE(lastFinished);
  queue.drain();  // nothing pending: returns at once
  EXPECT_EQ(counter, 100);
}

TEST(WorkQueue, DrainFromSeveralThreadsAtOnce) {
  fw::WorkQueue queue("drains");
  std::atomic<int> counter{0};
  std::vector<std::thread> drainers;
  for (int t = 0; t < 3; ++t) {
    drainers.emplace_back([&] {
      for (int i = 0; i < 50; ++i) {
        std::atomic<bool> ownTaskRan{false};
        queue.post([&counter, &ownTaskRan] {
          ++counter;
          ownTaskRan.store(true);
        });
        queue.drain();
        EXPECT_TRUE(ownTaskRan.load());
      }
    });
  }
  for (auto& t : drainers) t.join();
  queue.drain();
  EXPECT_EQ(counter.load(), 150);
}

TEST(WorkQueue, DestructorRunsThePendingTasks) {
  int counter = 0;
  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
  {
    fw::WorkQueue queue("shutdown");
    queue.post([released] { released.wait(); });
    for (int i = 0; i < 100; ++i) queue.post([&counter] { ++counter; });
    release.set_value();
  }
  EXPECT_EQ(counter, 100);
}

TEST(WorkQueue, TasksRunOnTheNamedQueueThread) {
  fw::WorkQueue queue("mgmt-notify");
  EXPECT_FALSE(queue.onQueueThread());
  EXPECT_EQ(queue.name(), "mgmt-notify");
  bool onQueue = false;
  std::thread::id taskThread;
  char threadName[16] = {};
  queue.post([&] {
    onQueue = queue.onQueueThread();
    taskThread = std::this_thread::get_id();
    pthread_getname_np(pthread_self(), threadName, sizeof threadName);
  });
  queue.drain();
  EXPECT_TRUE(onQueue);
  EXPECT_NE(taskThread, std::this_thread::get_id());
  EXPECT_STREQ(threadName, "mgmt-notify");
}

TEST(WorkQueue, ATaskMayPostAndAThrowingTaskDoesNotStopTheQueue) {
  auto sink = std::make_shared<fw::MemorySink>();
  auto previous = fw::setLogSink(sink);
  std::vector<int> ran;
  {
    std::promise<void> allPosted;
    std::shared_future<void> posted = allPosted.get_future().share();
    fw::WorkQueue queue("post-from-task");
    queue.post([posted] { posted.wait(); });  // holds the queue until the three below are in
    queue.post([&] {
      ran.push_back(1);
      queue.post([&] { ran.push_back(3); });
    });
    queue.post([] { throw std::runtime_error("boom"); });
    queue.post([&] { ran.push_back(2); });
    allPosted.set_value();
  }  // the task posted by a task may come after a drain, but not after the queue's end
  EXPECT_EQ(ran, (std::vector<int>{1, 2, 3}));
  EXPECT_TRUE(sink->contains("boom", fw::kLogError));
  fw::setLogSink(previous);
}

// ---- FileLocalMgmt under concurrent writers ----

// Counts deliveries per key and remembers the last value delivered for each.
class CountingAgent : public MgmtAgentIfc {
 public:
  bool setData(ManageableData&) override { return true; }
  bool getData(ManageableData&) override { return true; }
  void resetUserData() override {}
  void manageableDataChanged(ManageableData& data) override {
    std::string key = data.getRootIds().at(0);
    std::string value;
    data.interogate(key, value);
    std::lock_guard<std::mutex> guard(m_mutex);
    ++m_count[key];
    m_last[key] = value;
  }
  int count(const std::string& key) const {
    std::lock_guard<std::mutex> guard(m_mutex);
    auto it = m_count.find(key);
    return it == m_count.end() ? 0 : it->second;
  }
  std::string last(const std::string& key) const {
    std::lock_guard<std::mutex> guard(m_mutex);
    auto it = m_last.find(key);
    return it == m_last.end() ? "" : it->second;
  }

 private:
  mutable std::mutex m_mutex;
  std::map<std::string, int> m_count;
  std::map<std::string, std::string> m_last;
};

TEST(LocalMgmtConcurrency, ConcurrentPublishersEachChangeIsDeliveredOnce) {
  const int kPublishers = 4;
  const int kPublishesEach = 200;
  FileLocalMgmt mgmt;
  CountingAgent agent;
  ASSERT_TRUE(mgmt.observe("shared", &agent));
  for (int p = 0; p < kPublishers; ++p) ASSERT_TRUE(mgmt.observe("own-" + std::to_string(p), &agent));

  std::vector<std::thread> publishers;
  for (int p = 0; p < kPublishers; ++p) {
    publishers.emplace_back([&mgmt, p] {
      for (int i = 0; i < kPublishesEach; ++i) {
        ManageableData own;
        own.populate("own-" + std::to_string(p), std::to_string(i));
        ManageableData both = own;
        both.populate("shared", std::to_string(p) + "/" + std::to_string(i));  // always a new value
        mgmt.publishData(both);
        mgmt.publishData(own);  // only this thread writes its own key: unchanged, no notification
      }
    });
  }
  for (auto& t : publishers) t.join();
  mgmt.drainNotifications();

  EXPECT_EQ(agent.count("shared"), kPublishers * kPublishesEach);
  for (int p = 0; p < kPublishers; ++p) {
    std::string key = "own-" + std::to_string(p);
    EXPECT_EQ(agent.count(key), kPublishesEach) << key;
    EXPECT_EQ(agent.last(key), std::to_string(kPublishesEach - 1)) << key;
  }
  // Notifications follow the order in which values were stored: the last one delivered is the
  // value the store holds.
  std::string stored;
  ASSERT_TRUE(mgmt.value("shared", stored));
  EXPECT_EQ(agent.last("shared"), stored);
  mgmt.forget(&agent);
}

TEST(LocalMgmtConcurrency, NothingIsDeliveredAfterForgetReturns) {
  FileLocalMgmt mgmt;
  std::atomic<bool> forgotten{false};
  std::atomic<int> lateDeliveries{0};
  std::atomic<int> deliveries{0};
  class WatchingAgent : public CountingAgent {
   public:
    WatchingAgent(std::atomic<bool>& forgotten, std::atomic<int>& late, std::atomic<int>& all)
        : m_forgotten(forgotten), m_late(late), m_all(all) {}
    void manageableDataChanged(ManageableData& data) override {
      if (m_forgotten.load()) ++m_late;
      ++m_all;
      CountingAgent::manageableDataChanged(data);
    }

   private:
    std::atomic<bool>& m_forgotten;
    std::atomic<int>& m_late;
    std::atomic<int>& m_all;
  } agent(forgotten, lateDeliveries, deliveries);
  ASSERT_TRUE(mgmt.observe("k", &agent));

  std::atomic<bool> stop{false};
  std::thread publisher([&] {
    for (int i = 0; !stop.load(); ++i) mgmt.setValue("k", std::to_string(i));
  });
  while (deliveries.load() < 10) std::this_thread::yield();
  mgmt.forget(&agent);
  forgotten.store(true);
  for (int i = 0; i < 100; ++i) mgmt.setValue("k", "after-" + std::to_string(i));
  stop.store(true);
  publisher.join();
  mgmt.drainNotifications();
  EXPECT_EQ(lateDeliveries.load(), 0);
}

}  // namespace
