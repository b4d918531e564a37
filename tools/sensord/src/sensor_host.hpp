#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "simulator/fleet_config.hpp"
#include "simulator/simulated_sensor.hpp"
#include "someip/some_ip_transport.hpp"

namespace kov::tools::sensord {

/// Serves simulated sensors over a SOME/IP transport: offers each sensor's three services under its
/// sensor id as instance id, answers their methods from the sensor model, keeps the state that setters
/// write, and publishes the sensors' events to subscribers. Requests arrive on the transport's dispatch
/// thread; a ticker thread of its own moves the sensors' modes along and sends heartbeats.
class SensorHost {
 public:
  SensorHost(std::shared_ptr<kov::platform::networking::someip::SomeIpTransport> transport,
             const kov::tools::simulator::FleetConfig& config);
  ~SensorHost();

  SensorHost(const SensorHost&) = delete;
  SensorHost& operator=(const SensorHost&) = delete;

  /// Offers every sensor's services and event groups and starts the ticker. False (logged) on failure.
  bool start();
  /// Stops the ticker and withdraws every offer (StopOffer).
  void stop();

 private:
  using Address = kov::platform::networking::ISomeIpTransport::Address;

  kov::platform::networking::someip::ReturnCode onRequest(const Address& address, std::uint16_t methodId,
                                                          const std::uint8_t* payload, std::size_t size,
                                                          std::vector<std::uint8_t>& response);
  void publish(const kov::tools::simulator::SimulatedSensor& sensor,
               std::vector<kov::tools::simulator::OutgoingEvent> events);
  void tickLoop();

  std::shared_ptr<kov::platform::networking::someip::SomeIpTransport> transport_;
  const std::chrono::milliseconds tickPeriod_;
  std::map<std::uint16_t, std::unique_ptr<kov::tools::simulator::SimulatedSensor>> sensors_;

  std::mutex tickMutex_;
  std::condition_variable tickWake_;
  bool stopping_{false};
  std::thread ticker_;
};

}  // namespace kov::tools::sensord
