// Enumeration tables between the interface's 32-bit enumerations and the sensor's one-byte symbols.

#include <cstdint>
#include <type_traits>

#include "common/log/log.hpp"
#include "common/types/type_name.hpp"
#include "serialization/convert.hpp"

namespace kov::drivers::lidar::vesk::serialization {

namespace {

using kov::common::types::utils::getTypeName;

/// Logs that Target has no symbol for value. Values print as decimal numbers, bytes included.
template <typename Source, typename Target>
bool failNoSymbol(Source value) {
  const auto number = static_cast<std::uint32_t>(static_cast<std::underlying_type_t<Source>>(value));
  KOV_LOG(ERROR, "src/convert") << "cannot convert " << getTypeName<Source>() << " value \"" << number
                                << "\" to " << getTypeName<Target>()
                                << " because target has no symbol for this value";
  return false;
}

}  // namespace

template <>
bool convert<types::ScanHorizontalInterlaceMode, ScanHorizontalInterlaceMode>(
    const types::ScanHorizontalInterlaceMode& source, ScanHorizontalInterlaceMode& target) {
  switch (source) {
    case types::ScanHorizontalInterlaceMode::NONE:
      target = ScanHorizontalInterlaceMode::NONE;
      return true;
    case types::ScanHorizontalInterlaceMode::INTERLACE_2:
      target = ScanHorizontalInterlaceMode::INTERLACE_2;
      return true;
    case types::ScanHorizontalInterlaceMode::INTERLACE_3:
      target = ScanHorizontalInterlaceMode::INTERLACE_3;
      return true;
    case types::ScanHorizontalInterlaceMode::INTERLACE_4:
      target = ScanHorizontalInterlaceMode::INTERLACE_4;
      return true;
    case types::ScanHorizontalInterlaceMode::INTERLACE_8:
      target = ScanHorizontalInterlaceMode::INTERLACE_8;
      return true;
  }
  return failNoSymbol<types::ScanHorizontalInterlaceMode, ScanHorizontalInterlaceMode>(source);
}

template <>
bool convert<ScanHorizontalInterlaceMode, types::ScanHorizontalInterlaceMode>(
    const ScanHorizontalInterlaceMode& source, types::ScanHorizontalInterlaceMode& target) {
  switch (source) {
    case ScanHorizontalInterlaceMode::NONE:
      target = types::ScanHorizontalInterlaceMode::NONE;
      return true;
    case ScanHorizontalInterlaceMode::INTERLACE_2:
      target = types::ScanHorizontalInterlaceMode::INTERLACE_2;
      return true;
    case ScanHorizontalInterlaceMode::INTERLACE_3:
      target = types::ScanHorizontalInterlaceMode::INTERLACE_3;
      return true;
    case ScanHorizontalInterlaceMode::INTERLACE_4:
      target = types::ScanHorizontalInterlaceMode::INTERLACE_4;
      return true;
    case ScanHorizontalInterlaceMode::INTERLACE_8:
      target = types::ScanHorizontalInterlaceMode::INTERLACE_8;
      return true;
  }
  return failNoSymbol<ScanHorizontalInterlaceMode, types::ScanHorizontalInterlaceMode>(source);
}

template <>
bool convert<types::ScanControlLine, ScanControlLineIndex>(const types::ScanControlLine& source,
                                                           ScanControlLineIndex& target) {
  switch (source) {
    case types::ScanControlLine::LINE_0:
      target = ScanControlLineIndex::LINE_0;
      return true;
    case types::ScanControlLine::LINE_1:
      target = ScanControlLineIndex::LINE_1;
      return true;
  }
  return failNoSymbol<types::ScanControlLine, ScanControlLineIndex>(source);
}

template <>
bool convert<ScanControlLineIndex, types::ScanControlLine>(const ScanControlLineIndex& source,
                                                           types::ScanControlLine& target) {
  switch (source) {
    case ScanControlLineIndex::LINE_0:
      target = types::ScanControlLine::LINE_0;
      return true;
    case ScanControlLineIndex::LINE_1:
      target = types::ScanControlLine::LINE_1;
      return true;
  }
  return failNoSymbol<ScanControlLineIndex, types::ScanControlLine>(source);
}

template <>
bool convert<types::ScanFillMode, ScanFillMode>(const types::ScanFillMode& source, ScanFillMode& target) {
  switch (source) {
    case types::ScanFillMode::FILL_OFF:
      target = ScanFillMode::FILL_OFF;
      return true;
    case types::ScanFillMode::FILL_ON:
      target = ScanFillMode::FILL_ON;
      return true;
  }
  return failNoSymbol<types::ScanFillMode, ScanFillMode>(source);
}

template <>
bool convert<ScanFillMode, types::ScanFillMode>(const ScanFillMode& source, types::ScanFillMode& target) {
  switch (source) {
    case ScanFillMode::FILL_OFF:
      target = types::ScanFillMode::FILL_OFF;
      return true;
    case ScanFillMode::FILL_ON:
      target = types::ScanFillMode::FILL_ON;
      return true;
  }
  return failNoSymbol<ScanFillMode, types::ScanFillMode>(source);
}

template <>
bool convert<types::SystemModeCommand, SystemModeCommand>(const types::SystemModeCommand& source,
                                                          SystemModeCommand& target) {
  switch (source) {
    case types::SystemModeCommand::STANDBY:
      target = SystemModeCommand::STANDBY;
      return true;
    case types::SystemModeCommand::SCANNING:
      target = SystemModeCommand::SCANNING;
      return true;
    case types::SystemModeCommand::SHUTDOWN:
      target = SystemModeCommand::SHUTDOWN;
      return true;
  }
  return failNoSymbol<types::SystemModeCommand, SystemModeCommand>(source);
}

template <>
bool convert<SystemModeCommand, types::SystemModeCommand>(const SystemModeCommand& source,
                                                          types::SystemModeCommand& target) {
  switch (source) {
    case SystemModeCommand::STANDBY:
      target = types::SystemModeCommand::STANDBY;
      return true;
    case SystemModeCommand::SCANNING:
      target = types::SystemModeCommand::SCANNING;
      return true;
    case SystemModeCommand::SHUTDOWN:
      target = types::SystemModeCommand::SHUTDOWN;
      return true;
  }
  return failNoSymbol<SystemModeCommand, types::SystemModeCommand>(source);
}

template <>
bool convert<types::SystemModeStatus, SystemModeStatus>(const types::SystemModeStatus& source,
                                                        SystemModeStatus& target) {
  switch (source) {
    case types::SystemModeStatus::INITIALIZING:
      target = SystemModeStatus::INITIALIZING;
      return true;
    case types::SystemModeStatus::STANDBY:
      target = SystemModeStatus::STANDBY;
      return true;
    case types::SystemModeStatus::SCANNING:
      target = SystemModeStatus::SCANNING;
      return true;
    case types::SystemModeStatus::UNKNOWN:
      break;
  }
  return failNoSymbol<types::SystemModeStatus, SystemModeStatus>(source);
}

template <>
bool convert<SystemModeStatus, types::SystemModeStatus>(const SystemModeStatus& source,
                                                        types::SystemModeStatus& target) {
  // The sensor reports several start-up states; every byte up to 13 other than standby reads as
  // initializing.
  constexpr std::uint8_t LAST_INITIALIZING_BYTE = 13;
  if (source == SystemModeStatus::STANDBY) {
    target = types::SystemModeStatus::STANDBY;
    return true;
  }
  if (source == SystemModeStatus::SCANNING) {
    target = types::SystemModeStatus::SCANNING;
    return true;
  }
  if (static_cast<std::uint8_t>(source) <= LAST_INITIALIZING_BYTE) {
    target = types::SystemModeStatus::INITIALIZING;
    return true;
  }
  return failNoSymbol<SystemModeStatus, types::SystemModeStatus>(source);
}

template <>
bool convert<types::ScanPatternCommandStatus, ScanPatternError>(const types::ScanPatternCommandStatus& source,
                                                                ScanPatternError& target) {
  switch (source) {
    case types::ScanPatternCommandStatus::ACCEPTED:
      target = ScanPatternError::ACCEPTED;
      return true;
    case types::ScanPatternCommandStatus::REJECTED:
      target = ScanPatternError::REJECTED;
      return true;
    case types::ScanPatternCommandStatus::UNKNOWN:
      break;
  }
  return failNoSymbol<types::ScanPatternCommandStatus, ScanPatternError>(source);
}

template <>
bool convert<ScanPatternError, types::ScanPatternCommandStatus>(const ScanPatternError& source,
                                                                types::ScanPatternCommandStatus& target) {
  switch (source) {
    case ScanPatternError::ACCEPTED:
      target = types::ScanPatternCommandStatus::ACCEPTED;
      return true;
    case ScanPatternError::REJECTED:
      target = types::ScanPatternCommandStatus::REJECTED;
      return true;
  }
  return failNoSymbol<ScanPatternError, types::ScanPatternCommandStatus>(source);
}

}  // namespace kov::drivers::lidar::vesk::serialization
