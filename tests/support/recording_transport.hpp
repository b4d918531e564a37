#pragma once

#include <condition_variable>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
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
/// `failing` and lets the test deliver availability reports and events. Once unsubscribeAvailability has
/// returned, the availability handler is no longer running and is never called again.
class RecordingTransport : public kov::platform::networking::ISomeIpTransport {
 public:
  std::set<std::string> failing;  // e.g. "requestService 0x3/0xffff"
  Result failure{Result::Timeout};
  bool recordEvents{true};  // off for long runs

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
    AvailabilityHandler handler;
    {
      std::scoped_lock lock(mutex_);
      if (!availability_) {
        return false;
      }
      handler = availability_;
      ++running_;
    }
    handler(address, available);
    std::scoped_lock lock(mutex_);
    if (--running_ == 0) {
      idle_.notify_all();
    }
    return true;
  }

  /// False when nothing subscribed to the events of `address`.
  bool deliverEvent(const Address& address, std::uint16_t eventId, const void* data, std::size_t size) {
    EventHandler handler;
    {
      std::scoped_lock lock(mutex_);
      const auto found = events_.find(address);
      if (found == events_.end()) {
        return false;
      }
      handler = found->second;
    }
    handler(eventId, data, size);
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
    std::scoped_lock lock(mutex_);
    availability_ = std::move(handler);
    return true;
  }
  bool unsubscribeAvailability() override {
    if (!record("unsubscribeAvailability")) {
      return false;
    }
    std::unique_lock lock(mutex_);
    availability_ = nullptr;
    idle_.wait(lock, [this] { return running_ == 0; });
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
    std::scoped_lock lock(mutex_);
    events_[address] = std::move(handler);
    return true;
  }
  bool unsubscribeEvents(const Address& address) override {
    if (recordEvents) {
      record("unsubscribeEvents " + addressText(address));
    }
    std::scoped_lock lock(mutex_);
    return events_.erase(address) != 0U;
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

  mutable std::mutex mutex_;
  std::condition_variable idle_;
  int running_{0};
  std::vector<std::string> calls_;
  AvailabilityHandler availability_;
  std::unordered_map<Address, EventHandler> events_;
};

}  // namespace kov::test
