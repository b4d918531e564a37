#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "discovery_wait.hpp"
#include "printer.hpp"
#include "transport_factory.hpp"
#include "vesk/i_sensor_control.hpp"

namespace kov::tools::veskctl {

using kov::drivers::lidar::vesk::ISensorControl;

/// One sensor as veskctl sees it.
struct Sensor {
  std::uint16_t id;
  std::shared_ptr<ISensorControl::IClient> client;
  std::shared_ptr<ISensorControl::IClientA> control;
};

/// The library's sensor control over the chosen transport, from init and start to stop and shutdown,
/// with the availability changes it announces queued for printing on the caller's thread.
class Session {
 public:
  using Clock = std::chrono::steady_clock;

  Session(TransportBundle bundle, Printer& printer);
  ~Session();

  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// Creates the sensor control, connects, subscribes and starts discovering, which may take
  /// `timeout` to reach `goal`. False with `error` set on failure.
  bool open(const DiscoveryGoal& goal, std::chrono::milliseconds timeout, std::string& error);

  /// Prints availability changes until discovery reached its goal; false with `error` saying what was
  /// missing when the timeout passed first.
  bool discover(std::string& error);

  /// Prints the availability changes announced so far, waiting up to `wait` for the first one.
  void printAvailability(std::chrono::milliseconds wait);

  /// Waits (printing changes) until `predicate` holds or `timeout` passes; returns the predicate.
  template <typename Predicate>
  bool waitUntil(std::chrono::milliseconds timeout, Predicate predicate) {
    const auto deadline = Clock::now() + timeout;
    while (!predicate()) {
      if (Clock::now() >= deadline) {
        return false;
      }
      printAvailability(std::chrono::milliseconds(10));
    }
    return true;
  }

  /// Sensors discovered so far, by id; `only` (when not 0xFFFF) keeps just that one.
  std::vector<Sensor> sensors(std::uint16_t only = 0xFFFF) const;

  /// Stops and shuts down; false with `error` set when either failed.
  bool close(std::string& error);

  /// Milliseconds since open().
  std::chrono::milliseconds elapsed() const;

  /// "a.b.c.d:port" at which a sensor's service is offered; empty over the simulated fleet.
  std::string endpointOf(std::uint16_t sensorId, std::uint16_t serviceId) const {
    return bundle_.endpointOf ? bundle_.endpointOf({serviceId, sensorId}) : std::string();
  }
  const std::shared_ptr<kov::tools::simulator::SimulatedFleet>& simulator() const {
    return bundle_.simulator;
  }

 private:
  struct Change {
    std::chrono::milliseconds at;
    std::uint16_t sensorId;
    std::uint16_t serviceId;
    bool available;
  };

  void onServicesChanged(const std::shared_ptr<ISensorControl::IClient>& client,
                         const std::unordered_set<std::uint16_t>& serviceIds);

  TransportBundle bundle_;
  Printer& printer_;
  Clock::time_point started_{Clock::now()};
  std::unique_ptr<ISensorControl> control_;
  std::shared_ptr<ISensorControl::Subscription> subscription_;
  bool closed_{false};

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Change> changes_;
  std::map<std::uint16_t, std::shared_ptr<ISensorControl::IClient>> clients_;
  std::optional<DiscoveryWait> discovery_;
};

}  // namespace kov::tools::veskctl
