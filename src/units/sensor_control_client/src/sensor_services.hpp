#pragma once

#include <cstdint>

namespace kov::drivers::lidar::vesk::detail {

/// SOME/IP service ids of the sensor.
inline constexpr std::uint16_t SYSTEM_MODE_SERVICE_ID = 0x0002;  // mode command/status, heartbeat
inline constexpr std::uint16_t SCAN_SERVICE_ID = 0x0003;         // scan settings, pattern, datum
inline constexpr std::uint16_t SENSOR_INFO_SERVICE_ID = 0x0004;  // software version, data path

}  // namespace kov::drivers::lidar::vesk::detail
