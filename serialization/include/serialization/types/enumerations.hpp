#pragma once

#include <cstdint>

namespace kov::drivers::lidar::vesk::types {

/// Horizontal interlacing of the scan lines.
enum class ScanHorizontalInterlaceMode : std::uint32_t {
  NONE = 0,
  INTERLACE_2 = 1,
  INTERLACE_3 = 2,
  INTERLACE_4 = 3,
  INTERLACE_8 = 4,
};

/// Which control line drives the scan.
enum class ScanControlLine : std::uint32_t {
  LINE_0 = 0,
  LINE_1 = 1,
};

/// How gaps in the scan are filled.
enum class ScanFillMode : std::uint32_t {
  FILL_OFF = 0,
  FILL_ON = 1,
};

/// Mode the application asks the sensor to enter.
enum class SystemModeCommand : std::uint32_t {
  STANDBY = 0,
  SCANNING = 1,
  SHUTDOWN = 2,
};

/// Mode the sensor reports. UNKNOWN has no wire symbol.
enum class SystemModeStatus : std::uint32_t {
  UNKNOWN = 0,
  INITIALIZING = 1,
  STANDBY = 2,
  SCANNING = 3,
};

/// Outcome of the last scan pattern command. UNKNOWN has no wire symbol.
enum class ScanPatternCommandStatus : std::uint32_t {
  UNKNOWN = 0,
  ACCEPTED = 1,
  REJECTED = 2,
};

}  // namespace kov::drivers::lidar::vesk::types
