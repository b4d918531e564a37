#include "simulator/fleet_config.hpp"

#include <set>
#include <sstream>

namespace kov::tools::simulator {

FleetConfig makeFleetConfig(std::size_t count, std::uint16_t first) {
  FleetConfig config;
  config.sensorIds.clear();
  for (std::size_t index = 0; index < count; ++index) {
    config.sensorIds.push_back(static_cast<std::uint16_t>(first + index));
  }
  return config;
}

bool isValidFleetConfig(const FleetConfig& config, std::string& problem) {
  std::set<std::uint16_t> seen;
  for (const auto id : config.sensorIds) {
    std::ostringstream text;
    text << std::hex << "sensor id 0x" << id;
    if (id == 0xFFFF) {
      problem = text.str() + " is the wildcard instance id";
      return false;
    }
    if (config.legacySensor && id >= 0x0002 && id <= 0x0004) {
      problem = text.str() + " collides with the legacy sensor's instance ids 0x2..0x4";
      return false;
    }
    if (!seen.insert(id).second) {
      problem = text.str() + " is given twice";
      return false;
    }
  }
  if (config.sensorIds.empty() && !config.legacySensor) {
    problem = "the fleet has no sensor";
    return false;
  }
  if (config.modeStep.count() <= 0 || config.heartbeatPeriod.count() <= 0 || config.callTimeout.count() < 0 ||
      config.discoveryDelay.count() < 0) {
    problem = "durations must be positive";
    return false;
  }
  return true;
}

}  // namespace kov::tools::simulator
