#pragma once

#include <functional>
#include <list>
#include <memory>
#include <mutex>

namespace kov::common::types::observable {

/// One subscriber's callback. The subscription lasts as long as the subscriber holds its shared_ptr.
template <typename... Args>
struct Subscription {
  explicit Subscription(std::function<void(Args...)> callback) : callback_(std::move(callback)) {}

  const std::function<void(Args...)> callback_;
};

/// Thread-safe publish/subscribe. updateValue() calls every live subscriber in the order of
/// subscription, with the mutex held; subscriptions that were dropped are forgotten on the way.
/// A callback must not subscribe to or update the same observable (the mutex is not recursive).
template <typename... Args>
class Observable {
 public:
  using Callback = std::function<void(Args...)>;
  using SubscriptionPtr = std::shared_ptr<Subscription<Args...>>;

  Observable() = default;
  virtual ~Observable() = default;

  Observable(const Observable&) = delete;
  Observable& operator=(const Observable&) = delete;

  /// Registers `callback` for later updates; an empty callback registers nothing and yields nullptr.
  virtual SubscriptionPtr subscribe(const Callback& callback) {
    if (!callback) {
      return nullptr;
    }
    auto subscription = std::make_shared<Subscription<Args...>>(callback);
    std::scoped_lock lock(mutex_);
    subscribers_.push_back(subscription);
    return subscription;
  }

  /// Calls every live subscriber with `values`.
  virtual void updateValue(Args... values) {
    std::scoped_lock lock(mutex_);
    for (auto it = subscribers_.begin(); it != subscribers_.end();) {
      SubscriptionPtr subscription = it->lock();
      if (!subscription) {
        it = subscribers_.erase(it);
        continue;
      }
      if (subscription->callback_) {
        subscription->callback_(values...);
      }
      ++it;
    }
  }

  /// Number of entries in the subscriber list, dropped ones not yet forgotten included.
  std::size_t subscriberCount() const {
    std::scoped_lock lock(mutex_);
    return subscribers_.size();
  }

 private:
  std::list<std::weak_ptr<Subscription<Args...>>> subscribers_;
  mutable std::mutex mutex_;
};

}  // namespace kov::common::types::observable
