#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kov::tools::simulator {

/// What the simulated fleet holds and how fast it lives.
struct FleetConfig {
  /// One sensor per entry, offering its three services under this instance id. Must be unique, and
  /// neither 0xFFFF nor (when legacySensor is set) one of the legacy ids 2, 3, 4.
  std::vector<std::uint16_t> sensorIds{0x0010, 0x0011, 0x0012};

  /// Adds one more sensor that offers every service under an instance id equal to the service id.
  bool legacySensor{false};

  /// Duration of one mode transition (spinning up, spinning down); booting takes two.
  std::chrono::milliseconds modeStep{100};

  /// Period of the health heartbeat event.
  std::chrono::milliseconds heartbeatPeriod{250};

  /// How long a call that is made to time out blocks before it returns Timeout.
  std::chrono::milliseconds callTimeout{50};

  /// Delay between an availability change and its report (service discovery is not instant).
  std::chrono::milliseconds discoveryDelay{5};
};

/// `count` sensors with instance ids first, first + 1, ...
FleetConfig makeFleetConfig(std::size_t count, std::uint16_t first = 0x0010);

/// True when the fleet can be built from `config`; otherwise `problem` says why.
bool isValidFleetConfig(const FleetConfig& config, std::string& problem);

}  // namespace kov::tools::simulator
