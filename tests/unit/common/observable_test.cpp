#include "common/types/observable.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using kov::common::types::observable::Observable;

TEST(Observable, CallsLiveSubscribersInOrderAndForgetsDroppedOnes) {
  Observable<int, const std::string&> observable;
  std::string calls;
  const auto recorder = [&calls](char who) {
    return [&calls, who](int value, const std::string& text) {
      calls += who + std::to_string(value) + text + " ";
    };
  };
  observable.updateValue(0, "before anyone subscribed");
  auto first = observable.subscribe(recorder('a'));
  auto second = observable.subscribe(recorder('b'));
  EXPECT_EQ(observable.subscribe({}), nullptr);
  observable.updateValue(1, "x");
  first.reset();
  observable.updateValue(2, "y");
  EXPECT_EQ(observable.subscriberCount(), 1U);
  auto late = observable.subscribe(recorder('c'));
  observable.updateValue(3, "z");
  EXPECT_EQ(calls, "a1x b1x b2y b3z c3z ");
}

TEST(Observable, SubscriptionsDroppedOnAnotherThreadDuringNotification) {
  Observable<int> observable;
  std::atomic<int> calls{0};
  std::vector<std::shared_ptr<kov::common::types::observable::Subscription<int>>> subscriptions;
  for (int i = 0; i < 64; ++i) {
    subscriptions.push_back(observable.subscribe([&calls](int) { calls.fetch_add(1); }));
  }
  std::atomic<bool> done{false};
  std::thread notifier([&] {
    while (!done.load()) {
      observable.updateValue(1);
    }
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
