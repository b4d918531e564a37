#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "simulator/mode_sequencer.hpp"
#include "serialization/types/records.hpp"
#include "serialization/types/scan_pattern.hpp"
#include "serialization/wire/records.hpp"
#include "simulator/fleet_config.hpp"
#include "simulator/result_codes.hpp"

namespace kov::tools::simulator {

/// One event the sensor wants published: the service that carries it, its id and the wire payload.
struct OutgoingEvent {
  std::uint16_t serviceId;
  std::uint16_t eventId;
  std::vector<std::uint8_t> payload;
};

/// The state of one simulated sensor behind its three services, and the device side of every method:
/// requests are checked for size, decoded from their wire records and validated as the device would;
/// answers are encoded into their wire records. Thread-safe: methods arrive on callers' threads while
/// the fleet's event thread ticks the sensor.
class SimulatedSensor {
 public:
  using Clock = std::chrono::steady_clock;

  /// A legacy sensor offers each service under an instance id equal to the service id.
  SimulatedSensor(std::uint16_t sensorId, bool legacy, const FleetConfig& config, Clock::time_point now);

  std::uint16_t sensorId() const { return sensorId_; }
  bool isLegacy() const { return legacy_; }
  /// Instance id under which the sensor offers `serviceId`.
  std::uint16_t instanceOf(std::uint16_t serviceId) const { return legacy_ ? serviceId : sensorId_; }

  /// Runs one method of the device. Events caused by it are appended to `events`.
  Result handleCall(std::uint16_t serviceId, std::uint16_t methodId, const void* request,
                    std::size_t requestSize, void* response, std::size_t responseSize,
                    std::vector<OutgoingEvent>& events);

  /// Size of the answer record of a method: the record a getter returns, 0 for a setter or an unknown
  /// method. A server that receives only the request learns from it how large the response is.
  static std::size_t responseSizeOf(std::uint16_t serviceId, std::uint16_t methodId);

  /// Moves the mode along and emits the heartbeat when due.
  std::vector<OutgoingEvent> tick(Clock::time_point now);

  /// Current values of the service's events, sent to a new subscriber the way fields are.
  std::vector<OutgoingEvent> initialEvents(std::uint16_t serviceId) const;

  /// Power cycle: boots again; settings survive, the mode starts over.
  void reboot(Clock::time_point now);

 private:
  Result handleModeService(std::uint16_t methodId, const void* request, std::size_t requestSize,
                           void* response, std::size_t responseSize, std::vector<OutgoingEvent>& events);
  Result handleScanService(std::uint16_t methodId, const void* request, std::size_t requestSize,
                           void* response, std::size_t responseSize, std::vector<OutgoingEvent>& events);
  Result handleInfoService(std::uint16_t methodId, const void* request, std::size_t requestSize,
                           void* response, std::size_t responseSize, std::vector<OutgoingEvent>& events);

  Result setScanPatternLocked(const void* request, std::vector<OutgoingEvent>& events);
  void modeChangedLocked(kov::drivers::lidar::vesk::types::SystemModeStatus status,
                         std::vector<OutgoingEvent>& events);
  void updateAchievedLocked(std::vector<OutgoingEvent>& events);
  OutgoingEvent modeStatusEventLocked() const;
  OutgoingEvent achievedEventLocked() const;
  OutgoingEvent scanDatumEventLocked() const;
  OutgoingEvent heartbeatEventLocked(Clock::time_point now) const;
  OutgoingEvent patternStatusEventLocked() const;

  const std::uint16_t sensorId_;
  const bool legacy_;
  const std::chrono::milliseconds heartbeatPeriod_;

  mutable std::mutex mutex_;
  ModeSequencer mode_;
  Clock::time_point poweredOn_;
  Clock::time_point nextHeartbeat_;
  kov::drivers::lidar::vesk::types::DesiredScanSettings desired_;
  kov::drivers::lidar::vesk::types::AchievedScanSettings achieved_;
  kov::drivers::lidar::vesk::serialization::ScanDatum scanDatum_;  // kept as received: radians
  kov::drivers::lidar::vesk::types::ScanPattern pattern_;
  kov::drivers::lidar::vesk::types::ScanPatternCommandStatus patternStatus_;
  kov::drivers::lidar::vesk::types::DatapathDestinationInfo destination_;
  kov::drivers::lidar::vesk::types::SensorSoftwareVersion version_;
};

}  // namespace kov::tools::simulator
