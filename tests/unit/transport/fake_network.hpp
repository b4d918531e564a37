#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "network.hpp"

namespace kov::test {

namespace detail = kov::platform::networking::someip::detail;

/// A Network without sockets: the test hands datagrams in as if they had arrived, reads what the
/// transport sent, and moves time on by hand. The transport's receive thread still runs; it waits here
/// for the next datagram, time step or wake-up.
class FakeNetwork final : public detail::Network {
 public:
  using Bytes = std::vector<std::uint8_t>;
  using Endpoint = kov::platform::networking::someip::Endpoint;
  using Channel = detail::Channel;
  /// A datagram with the endpoint it went to, or came from.
  struct Datagram {
    Channel channel;
    std::uint16_t instanceId;
    Endpoint peer;
    Bytes bytes;
  };

  static constexpr std::uint16_t CLIENT_PORT = 40000;
  static constexpr std::uint16_t INSTANCE_PORT = 41000;  // of every instance: the tests offer one

  void deliver(Channel channel, const Endpoint& from, Bytes bytes, std::uint16_t instanceId = 0) {
    locked([&] { incoming_.push_back({channel, instanceId, from, std::move(bytes)}); });
  }
  void advance(std::chrono::milliseconds step) {
    locked([&] {
      now_ += step;
      kicked_ = true;
    });
  }

  /// Waits (bounded) until a datagram went from `channel` to `to`, and takes it out, so that the next
  /// wait finds the next one.
  std::optional<Bytes> takeSent(const Endpoint& to, Channel channel) {
    std::unique_lock<std::mutex> lock(mutex_);
    std::optional<Bytes> found;
    changed_.wait_for(lock, std::chrono::seconds(5), [&] {
      const auto it = std::find_if(sent_.begin(), sent_.end(),
                                   [&](const Datagram& d) { return d.peer == to && d.channel == channel; });
      if (it != sent_.end()) {
        found = std::move(it->bytes);
        sent_.erase(it);
      }
      return found.has_value();
    });
    return found;
  }

  /// Waits until the transport has read every datagram handed in (bounded).
  bool drained() {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(5), [&] { return incoming_.empty() && !reading_; });
  }

  /// Everything sent and not yet taken, which is then forgotten.
  std::vector<Datagram> takeAllSent() {
    return locked([&] { return std::exchange(sent_, {}); });
  }

  detail::Clock::time_point now() const override {
    std::lock_guard<std::mutex> lock(mutex_);
    return now_;
  }
  bool open(const kov::platform::networking::someip::TransportOptions&) override { return true; }
  void close() override {}
  std::uint16_t clientPort() const override { return CLIENT_PORT; }
  std::uint16_t openInstance(std::uint16_t) override { return INSTANCE_PORT; }
  bool joinGroup(const Endpoint&) override { return true; }
  void leaveGroup(const Endpoint&) override {}
  int send(Channel channel, std::uint16_t instanceId, const Endpoint& to, const std::uint8_t* data,
           std::size_t size) override {
    locked([&] { sent_.push_back({channel, instanceId, to, Bytes(data, data + size)}); });
    return 0;
  }
  void receive(std::chrono::milliseconds timeout, const OnDatagram& onDatagram) override {
    std::deque<Datagram> batch;
    {
      std::unique_lock<std::mutex> lock(mutex_);
      // Time stands still here, so a timer wait is only a pause for the next event (kept short).
      changed_.wait_for(lock, std::min(timeout, std::chrono::milliseconds(5)),
                        [this] { return kicked_ || !incoming_.empty(); });
      kicked_ = false;
      batch.swap(incoming_);
      reading_ = !batch.empty();
    }
    for (const Datagram& datagram : batch) {
      onDatagram(datagram.channel, datagram.instanceId, datagram.peer, datagram.bytes.data(),
                 datagram.bytes.size());
    }
    std::lock_guard<std::mutex> lock(mutex_);
    reading_ = false;
    changed_.notify_all();
  }
  void wake() override {
    locked([&] { kicked_ = true; });
  }

 private:
  /// Runs `change` under the lock and wakes every waiter: the test's and the transport's.
  template <typename Change>
  auto locked(Change change) -> decltype(change()) {
    std::lock_guard<std::mutex> lock(mutex_);
    changed_.notify_all();
    return change();
  }

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  detail::Clock::time_point now_{detail::Clock::time_point{} + std::chrono::hours(1)};
  std::deque<Datagram> incoming_;
  bool kicked_{false};
  bool reading_{false};
  std::vector<Datagram> sent_;
};

}  // namespace kov::test
