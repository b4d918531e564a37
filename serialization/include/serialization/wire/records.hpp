#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "networking/byte_order.hpp"
#include "networking/utils.hpp"
#include "serialization/wire/enumerations.hpp"

namespace kov::drivers::lidar::vesk::serialization {

// Packed records exactly as they travel in SOME/IP payloads. Multi-byte fields hold their values in
// network byte order (floats as their IEEE 754 single-precision bit pattern); the convert functions
// do the swapping. Every record can be copied to and from a payload with memcpy.

/// Number of bytes of one ISO 8859-1 text field.
constexpr std::size_t ISO_8859_1_FIELD_SIZE = 64;

/// One ISO 8859-1 text, NUL-terminated and NUL-padded when written by this library.
using Iso88591Field = std::array<std::uint8_t, ISO_8859_1_FIELD_SIZE>;

/// Desired scan settings (7 bytes). A fresh record asks for 10 Hz.
struct __attribute__((packed)) ScanSettings {
  std::uint32_t frameRate{kov::platform::networking::byte_order::floatToNetworkByteOrder(10.0F)};  ///< hertz
  ScanHorizontalInterlaceMode horizontalInterlaceMode{};
  ScanControlLineIndex controlLineIndex{};
  ScanFillMode fillMode{};
};

/// Achieved scan settings (8 bytes).
struct __attribute__((packed)) ScanSettingsStatus {
  std::uint32_t value1{};
  std::uint32_t value2{};
};

/// Scan datum (4 bytes).
struct __attribute__((packed)) ScanDatum {
  std::uint32_t elevation{};  ///< radians
};

/// Health heartbeat event (22 bytes). Flags are 0 for false, anything else for true.
struct __attribute__((packed)) SystemHeartbeatAppRecord {
  SystemModeStatus status{};
  std::uint8_t flag1{};
  std::uint8_t flag2{};
  std::uint8_t flag3{};
  std::uint8_t flag4{};
  std::uint8_t flag5{};
  std::uint32_t value1{};
  std::uint32_t value2{};
  std::uint32_t value3{};
  std::array<std::uint8_t, 4> reserved{};  ///< never read or written by the conversion
};

/// Software version texts (256 bytes).
struct __attribute__((packed)) SoftwareApplicationInfo {
  Iso88591Field text1{};
  Iso88591Field text2{};
  Iso88591Field text3{};
  Iso88591Field text4{};
};

/// Data-path destination (6 bytes).
struct __attribute__((packed)) DatapathDestinationInfo {
  std::uint16_t port{};       ///< UDP port
  std::uint32_t ipAddress{};  ///< IPv4 address, octets in network order as stringToIPAddress yields them
};

static_assert(sizeof(ScanSettings) == 7, "ScanSettings must be 7 bytes");
static_assert(sizeof(ScanSettingsStatus) == 8, "ScanSettingsStatus must be 8 bytes");
static_assert(sizeof(ScanDatum) == 4, "ScanDatum must be 4 bytes");
static_assert(sizeof(SystemHeartbeatAppRecord) == 22, "SystemHeartbeatAppRecord must be 22 bytes");
static_assert(sizeof(SoftwareApplicationInfo) == 256, "SoftwareApplicationInfo must be 256 bytes");
static_assert(sizeof(DatapathDestinationInfo) == 6, "DatapathDestinationInfo must be 6 bytes");

}  // namespace kov::drivers::lidar::vesk::serialization
