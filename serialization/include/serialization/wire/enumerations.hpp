#pragma once

#include <cstdint>

namespace kov::drivers::lidar::vesk::serialization {

// Enumerations as the sensor sends and expects them: one unsigned byte each. Only the listed values
// are valid symbols; the conversion refuses any other byte.

/// Horizontal interlacing. The sensor skips 1 and jumps from 4 to 8.
enum class ScanHorizontalInterlaceMode : std::uint8_t {
  NONE = 0,
  INTERLACE_2 = 2,
  INTERLACE_3 = 3,
  INTERLACE_4 = 4,
  INTERLACE_8 = 8,
};

/// Index of the control line that drives the scan.
enum class ScanControlLineIndex : std::uint8_t {
  LINE_0 = 0,
  LINE_1 = 1,
};

/// Gap filling of the scan.
enum class ScanFillMode : std::uint8_t {
  FILL_OFF = 0,
  FILL_ON = 1,
};

/// Mode command; also the whole 1-byte request of the system mode method.
enum class SystemModeCommand : std::uint8_t {
  STANDBY = 0,
  SCANNING = 1,
  SHUTDOWN = 2,
};

/// Mode the sensor reports; also the whole 1-byte status record. Every byte from 0 to 13 other than
/// STANDBY is a start-up state and reads as initializing; the library writes INITIALIZING for it.
enum class SystemModeStatus : std::uint8_t {
  STANDBY = 7,
  INITIALIZING = 13,
  SCANNING = 14,
};

/// Result of the last scan pattern command; also the whole 1-byte status record.
enum class ScanPatternError : std::uint8_t {
  ACCEPTED = 0,
  REJECTED = 1,
};

/// Kind of one scan pattern command slot.
enum class ScanPatternCmdType : std::uint8_t {
  POINT = 1,
  SNAP = 2,
  MIN_LINES = 3,
};

static_assert(sizeof(SystemModeCommand) == 1, "SystemModeCommand travels as 1 byte");
static_assert(sizeof(SystemModeStatus) == 1, "SystemModeStatus travels as 1 byte");
static_assert(sizeof(ScanPatternError) == 1, "ScanPatternError travels as 1 byte");

}  // namespace kov::drivers::lidar::vesk::serialization
