#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

#include "networking/i_some_ip_transport.hpp"

namespace kov::test {

/// Availability reports as a transport delivers them, written "+16 -16 " (instance id in decimal), with
/// a bounded wait for a given text.
class AvailabilityReports {
 public:
  kov::platform::networking::ISomeIpTransport::AvailabilityHandler handler() {
    return [this](const kov::platform::networking::ISomeIpTransport::Address& address, bool available) {
      std::lock_guard<std::mutex> lock(mutex_);
      text_ += (available ? "+" : "-") + std::to_string(address.instanceId) + " ";
      changed_.notify_all();
    };
  }
  /// Waits up to 5 s until the reports read `expected`, and returns what they read.
  std::string waitFor(const std::string& expected) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, std::chrono::seconds(5), [&] { return text_ == expected; });
    return text_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::string text_;
};

}  // namespace kov::test
