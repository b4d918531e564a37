#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "networking/i_some_ip_transport.hpp"

namespace kov::test {

/// "0x<service>/0x<instance>".
inline std::string addressText(const kov::platform::networking::ISomeIpTransport::Address& address) {
  std::ostringstream text;
  text << std::hex << "0x" << address.serviceId << "/0x" << address.instanceId;
  return text.str();
}

/// A transport without a network: records the calls as text, fails the calls whose text is listed in
/// `failing` and lets the test deliver availability reports and events. Like a real transport, a
/// successful unsubscribeAvailability or unsubscribeEvents drops the handler and waits until no call of
/// it runs on another thread (a call on the unsubscribing thread itself is not waited for), so the
/// handler is never called after that. A failed one keeps the handler, which later deliveries still call.
class RecordingTransport : public kov::platform::networking::ISomeIpTransport {
 public:
  std::set<std::string> failing;  // e.g. "requestService 0x3/0xffff", "unsubscribeEvents 0x3/0x10"
  Result failure{Result::Timeout};
  bool recordEvents{true};  // records unsubscribeEvents; off for long runs

  RecordingTransport() { running_.reserve(64); }  // deliveries then allocate nothing

  std::vector<std::string> takeCalls() {
    std::scoped_lock lock(mutex_);
    return std::exchange(calls_, {});
  }
  std::size_t eventSubscriptionCount() const {
    std::scoped_lock lock(mutex_);
    return events_.size();
  }

  /// False when no availability handler is registered.
  bool reportAvailability(const Address& address, bool available) {
    std::shared_ptr<const AvailabilityHandler> handler;
    {
      std::scoped_lock lock(mutex_);
      if (!availability_) {
        return false;
      }
      handler = availability_;
      running_.emplace_back(AVAILABILITY_KEY, std::this_thread::get_id());
    }
    (*handler)(address, available);
    finished(AVAILABILITY_KEY);
    return true;
  }

  /// False when nothing subscribed to the events of `address`. Allocates nothing.
  bool deliverEvent(const Address& address, std::uint16_t eventId, const void* data, std::size_t size) {
    std::shared_ptr<const EventHandler> handler;
    {
      std::scoped_lock lock(mutex_);
      const auto found = events_.find(address);
      if (found == events_.end()) {
        return false;
      }
      handler = found->second;
      running_.emplace_back(keyOf(address), std::this_thread::get_id());
    }
    (*handler)(eventId, data, size);
    finished(keyOf(address));
    return true;
  }

  Result connect() override { return record("connect") ? Result::Ok : failure; }
  Result disconnect() override { return record("disconnect") ? Result::Ok : failure; }
  bool subscribeAvailability(const std::vector<std::uint16_t>& serviceIds,
                             AvailabilityHandler handler) override {
    std::ostringstream line;
    line << "subscribeAvailability" << std::hex;
    for (const auto id : serviceIds) {
      line << " 0x" << id;
    }
    if (!record(line.str())) {
      return false;
    }
    auto stored = std::make_shared<const AvailabilityHandler>(std::move(handler));
    std::scoped_lock lock(mutex_);
    availability_ = std::move(stored);
    return true;
  }
  bool unsubscribeAvailability() override {
    if (!record("unsubscribeAvailability")) {
      return false;
    }
    std::unique_lock lock(mutex_);
    availability_ = nullptr;
    waitForOtherThreads(lock, AVAILABILITY_KEY);
    return true;
  }
  bool requestService(const Address& address) override {
    return record("requestService " + addressText(address));
  }
  bool releaseService(const Address& address) override {
    return record("releaseService " + addressText(address));
  }
  Result callMethod(const Address&, std::uint16_t, const void*, std::size_t, void*, std::size_t) override {
    return Result::Ok;
  }
  bool subscribeEvents(const Address& address, std::uint16_t, const std::vector<std::uint16_t>&,
                       EventHandler handler) override {
    auto stored = std::make_shared<const EventHandler>(std::move(handler));
    std::scoped_lock lock(mutex_);
    events_[address] = std::move(stored);
    return true;
  }
  bool unsubscribeEvents(const Address& address) override {
    const std::string line = "unsubscribeEvents " + addressText(address);
    std::unique_lock lock(mutex_);
    if (recordEvents) {
      calls_.push_back(line);
    }
    if (failing.count(line) != 0U || events_.erase(address) == 0U) {
      return false;
    }
    waitForOtherThreads(lock, keyOf(address));
    return true;
  }
  bool offerService(const Address&) override { return false; }
  bool stopOfferService(const Address&) override { return false; }
  bool offerEvent(const Address&, std::uint16_t, const std::vector<std::uint16_t>&) override { return false; }
  bool stopOfferEvent(const Address&, std::uint16_t) override { return false; }
  bool notifyEvent(const Address&, std::uint16_t, const void*, std::size_t) override { return false; }

 private:
  /// Records the call; false when it is meant to fail.
  bool record(const std::string& line) {
    std::scoped_lock lock(mutex_);
    calls_.push_back(line);
    return failing.count(line) == 0U;
  }

  /// Handler calls in progress are keyed by the address of their event subscription, or this key.
  static constexpr std::uint32_t AVAILABILITY_KEY = 0xFFFFFFFFU;
  static std::uint32_t keyOf(const Address& address) {
    return (static_cast<std::uint32_t>(address.serviceId) << 16U) | address.instanceId;
  }

  void finished(std::uint32_t key) {
    std::scoped_lock lock(mutex_);
    const Call self{key, std::this_thread::get_id()};
    for (auto it = running_.begin(); it != running_.end(); ++it) {
      if (*it == self) {
        *it = running_.back();
        running_.pop_back();
        break;
      }
    }
    idle_.notify_all();
  }

  void waitForOtherThreads(std::unique_lock<std::mutex>& lock, std::uint32_t key) {
    idle_.wait(lock, [this, key] {
      for (const auto& [runningKey, thread] : running_) {
        if (runningKey == key && thread != std::this_thread::get_id()) {
          return false;
        }
      }
      return true;
    });
  }

  mutable std::mutex mutex_;
  std::condition_variable idle_;
  using Call = std::pair<std::uint32_t, std::thread::id>;
  std::vector<Call> running_;

  std::vector<std::string> calls_;
  std::shared_ptr<const AvailabilityHandler> availability_;
  std::unordered_map<Address, std::shared_ptr<const EventHandler>> events_;
};

}  // namespace kov::test
