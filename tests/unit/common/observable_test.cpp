#include "common/types/observable.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

namespace {

using kov::common::types::observable::Observable;

TEST(Observable, SubscriptionsDroppedOnAnotherThreadDuringNotification) {
  Observable<int> observable;
  EXPECT_EQ(observable.subscribe({}), nullptr);
  std::atomic<int> calls{0};
  std::vector<std::shared_ptr<kov::common::types::observable::Subscription<int>>> subscriptions;
  for (int i = 0; i < 64; ++i)
    subscriptions.push_back(observable.subscribe([&calls](int) { calls.fetch_add(1); }));
  std::atomic<bool> done{false};
  std::thread notifier([&] {
    while (!done.load())
      observable.updateValue(1);
  });
  while (!subscriptions.empty()) {
    subscriptions.pop_back();
    std::this_thread::sleep_for(std::chrono::microseconds(50));
  }
  done.store(true);
  notifier.join();
  observable.updateValue(1);
  const int before = calls.load();
  observable.updateValue(1);
  EXPECT_EQ(calls.load(), before);
  EXPECT_EQ(observable.subscriberCount(), 0U);
}

}  // namespace
