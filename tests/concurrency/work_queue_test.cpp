#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "framework/WorkQueue.h"

namespace {

TEST(WorkQueue, KeepsTheOrderOfEachPosterAndDrainWaitsForItsTasks) {
  std::vector<std::pair<int, int>> ran;  // touched only by the queue thread until drain returns
  bool onQueue = false;
  fw::WorkQueue queue("order");
  std::vector<std::thread> posters;
  for (int poster = 0; poster < 4; ++poster)
    posters.emplace_back([&queue, &ran, poster] {
      for (int i = 0; i < 500; ++i) queue.post([&ran, poster, i] { ran.emplace_back(poster, i); });
    });
  for (auto& t : posters) t.join();
  // A slow last task: the queue is empty while it runs, and drain must still wait for it.
  queue.post([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    onQueue = queue.onQueueThread();
  });
  queue.drain();
  EXPECT_TRUE(onQueue);
  ASSERT_EQ(ran.size(), 2000u);
  std::vector<int> next(4, 0);
  for (const auto& task : ran) ASSERT_EQ(task.second, next[task.first]++) << "poster " << task.first;
}

TEST(WorkQueue, DestructorRunsPendingTasksEvenAfterOneThrows) {
  std::vector<int> ran;
  {
    std::promise<void> allPosted;
    fw::WorkQueue queue("shutdown");
    queue.post([posted = allPosted.get_future().share()] { posted.wait(); });  // holds the queue
    queue.post([&] { ran.push_back(1), queue.post([&] { ran.push_back(3); }); });  // during shutdown
    queue.post([] { throw std::runtime_error("boom"); });
    queue.post([&] { ran.push_back(2); });
    allPosted.set_value();
  }
  EXPECT_EQ(ran, (std::vector<int>{1, 2, 3}));
}

}  // namespace
