#include "common/types/observable.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using kov::common::types::observable::Observable;

TEST(Observable, CallsLiveSubscribersInOrderAndForgetsDroppedOnes) {
  Observable<int, const std::string&> observable;
  std::vector<std::string> calls;
  observable.updateValue(0, "before anyone subscribed");

  auto first = observable.subscribe([&](int v, const std::string& s) { calls.push_back("a" + std::to_string(v) + s); });
  auto second = observable.subscribe([&](int v, const std::string& s) { calls.push_back("b" + std::to_string(v) + s); });
  EXPECT_EQ(observable.subscribe({}), nullptr);
  EXPECT_EQ(observable.subscriberCount(), 2U);

  observable.updateValue(1, "x");
  EXPECT_EQ(calls, (std::vector<std::string>{"a1x", "b1x"}));

  first.reset();
  EXPECT_EQ(observable.subscriberCount(), 2U);  // forgotten on the next update
  observable.updateValue(2, "y");
  EXPECT_EQ(calls, (std::vector<std::string>{"a1x", "b1x", "b2y"}));
  EXPECT_EQ(observable.subscriberCount(), 1U);

  auto late = observable.subscribe([&](int v, const std::string&) { calls.push_back("c" + std::to_string(v)); });
  observable.updateValue(3, "z");
  EXPECT_EQ(calls, (std::vector<std::string>{"a1x", "b1x", "b2y", "b3z", "c3"}));
}

TEST(Observable, SubscriptionsDroppedOnOtherThreadsDuringNotification) {
  Observable<int> observable;
  constexpr int SUBSCRIBERS = 64;
  std::atomic<int> calls{0};
  std::vector<std::shared_ptr<kov::common::types::observable::Subscription<int>>> subscriptions;
  std::mutex subscriptionsMutex;
  for (int i = 0; i < SUBSCRIBERS; ++i) {
    subscriptions.push_back(observable.subscribe([&calls](int) { calls.fetch_add(1); }));
  }

  std::atomic<bool> done{false};
  std::thread notifier([&] {
    while (!done.load()) {
      observable.updateValue(1);
    }
  });
  std::vector<std::thread> droppers;
  for (int t = 0; t < 4; ++t) {
    droppers.emplace_back([&] {
      for (;;) {
        std::shared_ptr<kov::common::types::observable::Subscription<int>> victim;
        {
          std::scoped_lock lock(subscriptionsMutex);
          if (subscriptions.empty()) {
            return;
          }
          victim = std::move(subscriptions.back());
          subscriptions.pop_back();
        }
        victim.reset();
        std::this_thread::sleep_for(std::chrono::microseconds(50));
      }
    });
  }
  for (auto& dropper : droppers) {
    dropper.join();
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
