#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "serialization/wire/enumerations.hpp"

namespace kov::drivers::lidar::vesk::serialization {

/// Most commands one scan pattern record can carry.
constexpr std::size_t MAX_SCAN_PATTERN_COMMANDS = 88;

/// Bytes of one command slot.
constexpr std::size_t SCAN_PATTERN_COMMAND_SIZE = 15;

/// Value of every slot's payloadLength: the bytes that follow the slot header.
constexpr std::uint16_t SCAN_PATTERN_PAYLOAD_LENGTH = 12;

/// One command slot (15 bytes). Multi-byte fields in network byte order. Payload by type:
/// point: value1 = azimuth and value2 = elevation (radians), attribute; minimum lines: value1 = minLines;
/// snap: nothing. Unused payload bytes are zero. Kept trivial (no member initialisers) so that it packs
/// into the record's array; `ScanPatternCommand{}` is all zero.
struct __attribute__((packed)) ScanPatternCommand {
  ScanPatternCmdType type;
  std::uint16_t payloadLength;
  std::uint32_t value1;
  std::uint32_t value2;
  std::uint8_t attribute;
  std::array<std::uint8_t, 3> padding;
};

/// Scan pattern record (1322 bytes), fixed size whatever the number of commands.
struct __attribute__((packed)) ScanPattern {
  std::uint16_t commandByteSize{};  ///< bytes of the command area in use: 15 per command
  std::array<ScanPatternCommand, MAX_SCAN_PATTERN_COMMANDS> commands{};
};

static_assert(sizeof(ScanPatternCommand) == SCAN_PATTERN_COMMAND_SIZE, "a command slot must be 15 bytes");
static_assert(sizeof(ScanPattern) == 1322, "ScanPattern must be 1322 bytes");

}  // namespace kov::drivers::lidar::vesk::serialization
