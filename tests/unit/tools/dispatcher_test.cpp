// The simulator's dispatcher: order of due time then posting, sync, and stop dropping pending tasks.

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <vector>

#include "dispatcher.hpp"

namespace {

using kov::tools::simulator::Dispatcher;
using namespace std::chrono_literals;

TEST(DispatcherTest, RunsByDueTimeThenPostingOrderAndStopDropsPendingTasks) {
  std::mutex mutex;
  std::vector<int> order;
  auto record = [&](int value) {
    return [&, value] {
      std::lock_guard<std::mutex> lock(mutex);
      order.push_back(value);
    };
  };
  auto token = std::make_shared<int>(0);
  Dispatcher dispatcher("test-dispatch");
  const auto now = Dispatcher::Clock::now();
  dispatcher.postAt(now + 40ms, record(4));
  dispatcher.postAt(now + 20ms, record(2));
  dispatcher.postAt(now + 20ms, record(3));
  dispatcher.post(record(1));
  std::atomic<bool> onWorker{false}, syncFromWorker{true};
  dispatcher.post([&] {
    onWorker = dispatcher.isWorkerThread();
    syncFromWorker = dispatcher.sync(10ms);
  });
  ASSERT_TRUE(dispatcher.sync(5000ms));
  EXPECT_TRUE(onWorker);
  EXPECT_FALSE(syncFromWorker) << "sync on the worker itself would wait for itself";

  dispatcher.postAt(Dispatcher::Clock::now() + 10s, [token, record] { record(5)(); });
  dispatcher.stop();
  EXPECT_EQ(token.use_count(), 1) << "the dropped task's captures are released";
  dispatcher.post(record(6));
  EXPECT_FALSE(dispatcher.sync(10ms));
  std::lock_guard<std::mutex> lock(mutex);
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3, 4}));
}

}  // namespace
