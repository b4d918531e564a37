#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iomanip>
#include <map>
#include <memory>
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
/// `failing`, answers methods from `answers` and lets the test deliver availability reports and events.
/// A failed unsubscription keeps the handler. A successful one does not wait for calls of the handler
/// that run on other threads: the library's own guards make those harmless.
class RecordingTransport : public kov::platform::networking::ISomeIpTransport {
  /// Runs `work` under the lock; declared first so that its result type is known where it is used.
  template <typename Work>
  auto locked(Work&& work) const {
    std::scoped_lock lock(mutex_);
    return work();
  }

 public:
  std::set<std::string> failing;  // e.g. "requestService 0x3/0xffff", "unsubscribeEvents 0x3/0x10"
  std::map<std::uint16_t, std::pair<Result, std::vector<std::uint8_t>>> answers;  // by method id
  std::function<void(const Address&)> onSubscribeEvents;  // runs after a subscription, on its thread

  std::vector<std::string> takeCalls() {
    return locked([&] { return std::exchange(calls_, {}); });
  }
  std::size_t eventSubscriptionCount() const {
    return locked([&] { return events_.size(); });
  }

  /// False when no availability handler is registered.
  bool reportAvailability(const Address& address, bool available) {
    const auto handler = locked([&] { return availability_; });
    if (handler)
      (*handler)(address, available);
    return handler != nullptr;
  }
  /// False when nothing subscribed to the events of `address`.
  bool deliverEvent(const Address& address, std::uint16_t eventId, const void* data, std::size_t size) {
    const auto handler = locked([&] {
      const auto found = events_.find(address);
      return found == events_.end() ? nullptr : found->second;
    });
    if (handler)
      (*handler)(eventId, data, size);
    return handler != nullptr;
  }

  Result connect() override { return record("connect") ? Result::Ok : Result::Timeout; }
  Result disconnect() override { return record("disconnect") ? Result::Ok : Result::Timeout; }
  bool subscribeAvailability(const std::vector<std::uint16_t>& serviceIds,
                             AvailabilityHandler handler) override {
    return record("subscribeAvailability" + hexList(serviceIds),
                  [&] { availability_ = std::make_shared<const AvailabilityHandler>(std::move(handler)); });
  }
  bool unsubscribeAvailability() override {
    return record("unsubscribeAvailability", [&] { availability_ = nullptr; });
  }
  bool requestService(const Address& address) override {
    return record("requestService " + addressText(address));
  }
  bool releaseService(const Address& address) override {
    return record("releaseService " + addressText(address));
  }
  /// Recorded as "callMethod <address> <method> <request bytes, or their count beyond 32, or null> <response
  /// size or null>".
  Result callMethod(const Address& address, std::uint16_t methodId, const void* request,
                    std::size_t requestSize, void* response, std::size_t responseSize) override {
    std::ostringstream line;
    line << "callMethod " << addressText(address) << std::hex << " 0x" << methodId << " "
         << std::setfill('0');
    const auto* bytes = static_cast<const std::uint8_t*>(request);
    for (std::size_t i = 0; bytes != nullptr && requestSize <= 32 && i < requestSize; ++i)
      line << std::setw(2) << unsigned{bytes[i]};
    line << std::dec
         << (bytes == nullptr   ? "null"
             : requestSize > 32 ? "(" + std::to_string(requestSize) + " bytes)"
                                : "")
         << " " << (response == nullptr ? "null" : std::to_string(responseSize));
    record(line.str());
    const auto found = answers.find(methodId);
    const auto& [result, answer] =
        found == answers.end() ? std::pair(Result::Ok, std::vector<std::uint8_t>{}) : found->second;
    if (response != nullptr && !answer.empty())
      std::memcpy(response, answer.data(), std::min(answer.size(), responseSize));
    return result;
  }
  /// Recorded as "subscribeEvents <address> <group>: <event ids>".
  bool subscribeEvents(const Address& address, std::uint16_t group,
                       const std::vector<std::uint16_t>& eventIds, EventHandler handler) override {
    const bool subscribed =
        record("subscribeEvents " + addressText(address) + hexList({group}) + ":" + hexList(eventIds),
               [&] { events_[address] = std::make_shared<const EventHandler>(std::move(handler)); });
    if (subscribed && onSubscribeEvents)
      onSubscribeEvents(address);
    return subscribed;
  }
  bool unsubscribeEvents(const Address& address) override {
    bool erased = false;
    record("unsubscribeEvents " + addressText(address), [&] { erased = events_.erase(address) != 0U; });
    return erased;
  }
  bool offerService(const Address&) override { return false; }
  bool stopOfferService(const Address&) override { return false; }
  bool offerEvent(const Address&, std::uint16_t, const std::vector<std::uint16_t>&) override { return false; }
  bool stopOfferEvent(const Address&, std::uint16_t) override { return false; }
  bool notifyEvent(const Address&, std::uint16_t, const void*, std::size_t) override { return false; }

 private:
  static std::string hexList(const std::vector<std::uint16_t>& ids) {
    std::ostringstream text;
    for (const auto id : ids)
      text << std::hex << " 0x" << id;
    return text.str();
  }

  /// Records the call and, unless it is meant to fail, makes `change` under the lock.
  bool record(const std::string& line, const std::function<void()>& change = {}) {
    return locked([&] {
      calls_.push_back(line);
      const bool succeeds = failing.count(line) == 0U;
      if (succeeds && change)
        change();
      return succeeds;
    });
  }

  mutable std::mutex mutex_;
  std::vector<std::string> calls_;
  std::shared_ptr<const AvailabilityHandler> availability_;
  std::unordered_map<Address, std::shared_ptr<const EventHandler>> events_;
};

}  // namespace kov::test
