// Scan pattern codec: the typed command list to and from the fixed 1322-byte record.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <typeinfo>
#include <utility>

#include "angles.hpp"
#include "common/log/log.hpp"
#include "common/types/type_name.hpp"
#include "networking/byte_order.hpp"
#include "networking/utils.hpp"
#include "serialization/convert.hpp"

namespace kov::drivers::lidar::vesk::serialization {

namespace {

using kov::platform::networking::byte_order::floatToHostByteOrder;
using kov::platform::networking::byte_order::floatToNetworkByteOrder;
using kov::platform::networking::byte_order::toHostByteOrder;
using kov::platform::networking::byte_order::toNetworkByteOrder;

constexpr std::size_t MAX_COMMAND_BYTE_SIZE = MAX_SCAN_PATTERN_COMMANDS * SCAN_PATTERN_COMMAND_SIZE;

bool encodePoint(const types::ScanPattern::PointCommand& command, ScanPatternCommand& slot) {
  const float azimuth = angles::toRadians(command.azimuth);
  if (!angles::isAzimuthInRange(azimuth)) {
    KOV_LOG(ERROR, "src/convert") << "Scan pattern point command azimuth = " << command.azimuth
                                  << " degrees: out of range [" << angles::MIN_AZIMUTH_DEGREES << ";"
                                  << angles::MAX_AZIMUTH_DEGREES << "]";
    return false;
  }
  const float elevation = angles::toRadians(command.elevation);
  if (!angles::isElevationInRange(elevation)) {
    KOV_LOG(ERROR, "src/convert") << "Scan pattern point command elevation = " << command.elevation
                                  << " degrees: out of range [" << angles::MIN_ELEVATION_DEGREES << ";"
                                  << angles::MAX_ELEVATION_DEGREES << "]";
    return false;
  }
  slot.type = ScanPatternCmdType::POINT;
  slot.payloadLength = toNetworkByteOrder(SCAN_PATTERN_PAYLOAD_LENGTH);
  slot.value1 = floatToNetworkByteOrder(azimuth);
  slot.value2 = floatToNetworkByteOrder(elevation);
  slot.attribute = command.attribute;
  return true;
}

/// Encodes one command into its (zeroed) slot. The class must be exactly one of the three known ones:
/// a class derived from them could carry data the record cannot hold.
bool encodeCommand(const types::ScanPattern::ICommand* command, ScanPatternCommand& slot) {
  if (command != nullptr) {
    const std::type_info& type = typeid(*command);
    if (type == typeid(types::ScanPattern::PointCommand)) {
      return encodePoint(static_cast<const types::ScanPattern::PointCommand&>(*command), slot);
    }
    if (type == typeid(types::ScanPattern::SnapCommand)) {
      slot.type = ScanPatternCmdType::SNAP;
      slot.payloadLength = toNetworkByteOrder(SCAN_PATTERN_PAYLOAD_LENGTH);
      return true;
    }
    if (type == typeid(types::ScanPattern::MinLinesCommand)) {
      slot.type = ScanPatternCmdType::MIN_LINES;
      slot.payloadLength = toNetworkByteOrder(SCAN_PATTERN_PAYLOAD_LENGTH);
      slot.value1 =
          floatToNetworkByteOrder(static_cast<const types::ScanPattern::MinLinesCommand&>(*command).minLines);
      return true;
    }
  }
  KOV_LOG(ERROR, "src/convert") << "Internal error extracting scan pattern commands";
  return false;
}

/// Decodes one slot into a new command; an empty pointer for an unknown type byte.
std::unique_ptr<types::ScanPattern::ICommand> decodeCommand(const ScanPatternCommand& slot) {
  switch (slot.type) {
    case ScanPatternCmdType::POINT:
      return std::make_unique<types::ScanPattern::PointCommand>(
          angles::toDegrees(floatToHostByteOrder(slot.value1)),
          angles::toDegrees(floatToHostByteOrder(slot.value2)), slot.attribute);
    case ScanPatternCmdType::SNAP:
      return std::make_unique<types::ScanPattern::SnapCommand>();
    case ScanPatternCmdType::MIN_LINES:
      return std::make_unique<types::ScanPattern::MinLinesCommand>(floatToHostByteOrder(slot.value1));
  }
  return nullptr;
}

}  // namespace

template <>
bool convert<types::ScanPattern, ScanPattern>(const types::ScanPattern& source, ScanPattern& target) {
  const std::size_t count = source.commands.size();
  if (count > MAX_SCAN_PATTERN_COMMANDS) {
    KOV_LOG(ERROR, "src/convert") << "Too many scan pattern commands (" << count
                                  << "). Maximum number of commands: " << MAX_SCAN_PATTERN_COMMANDS;
    return false;
  }
  target.commands.fill(ScanPatternCommand{});
  for (std::size_t i = 0; i < count; ++i) {
    if (!encodeCommand(source.commands[i].get(), target.commands[i])) {
      return false;
    }
  }
  target.commandByteSize = toNetworkByteOrder(static_cast<std::uint16_t>(count * SCAN_PATTERN_COMMAND_SIZE));
  return true;
}

template <>
bool convert<ScanPattern, types::ScanPattern>(const ScanPattern& source, types::ScanPattern& target) {
  const std::uint16_t byteSize = toHostByteOrder(source.commandByteSize);
  if (byteSize > MAX_COMMAND_BYTE_SIZE) {
    KOV_LOG(ERROR, "src/convert") << "Corrupt scan pattern packet. Command byte size (" << byteSize
                                  << ") gives more than maxium number of commands.";
    return false;
  }
  if (byteSize % SCAN_PATTERN_COMMAND_SIZE != 0) {
    KOV_LOG(ERROR, "src/convert") << "Corrupt scan pattern packet. Command byte size (" << byteSize
                                  << ") gives a fractional number of commands.";
    return false;
  }
  target.commands.clear();
  const std::size_t count = byteSize / SCAN_PATTERN_COMMAND_SIZE;
  target.commands.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    const ScanPatternCommand& slot = source.commands[i];
    auto command = decodeCommand(slot);
    if (!command) {
      KOV_LOG(ERROR, "src/convert") << kov::common::types::utils::getTypeName<const ScanPatternCmdType>()
                                    << " value \"" << static_cast<unsigned>(slot.type)
                                    << "\" is not a valid command";
      return false;
    }
    target.commands.push_back(std::move(command));
  }
  return true;
}

}  // namespace kov::drivers::lidar::vesk::serialization
