#pragma once

// The enumeration tables between the interface's 32-bit enumerations and the sensor's one-byte
// symbols, as inline functions: the record conversions (convert.cpp) use them directly, the exported
// convert specializations (convert_enumerations.cpp) wrap them. Private to the serialization module;
// everything has internal linkage.

#include <cstdint>
#include <type_traits>

#include "common/log/log.hpp"
#include "common/types/type_name.hpp"
#include "serialization/types/enumerations.hpp"
#include "serialization/wire/enumerations.hpp"

namespace kov::drivers::lidar::vesk::serialization {
namespace {

/// Logs that Target has no symbol for value. Values print as decimal numbers, bytes included. Out of
/// line and cold: the tables' successful path stays a switch.
template <typename Source, typename Target>
[[gnu::noinline, gnu::cold]] bool failNoSymbol(Source value) {
  const auto number = static_cast<std::uint32_t>(static_cast<std::underlying_type_t<Source>>(value));
  KOV_LOG(ERROR, "src/convert") << "cannot convert " << kov::common::types::utils::getTypeName<Source>()
                                << " value \"" << number << "\" to "
                                << kov::common::types::utils::getTypeName<Target>()
                                << " because target has no symbol for this value";
  return false;
}

inline bool convertSymbol(const types::ScanHorizontalInterlaceMode& source,
                          ScanHorizontalInterlaceMode& target) {
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

inline bool convertSymbol(const ScanHorizontalInterlaceMode& source,
                          types::ScanHorizontalInterlaceMode& target) {
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

inline bool convertSymbol(const types::ScanControlLine& source, ScanControlLineIndex& target) {
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

inline bool convertSymbol(const ScanControlLineIndex& source, types::ScanControlLine& target) {
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

inline bool convertSymbol(const types::ScanFillMode& source, ScanFillMode& target) {
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

inline bool convertSymbol(const ScanFillMode& source, types::ScanFillMode& target) {
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

inline bool convertSymbol(const types::SystemModeCommand& source, SystemModeCommand& target) {
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

inline bool convertSymbol(const SystemModeCommand& source, types::SystemModeCommand& target) {
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

inline bool convertSymbol(const types::SystemModeStatus& source, SystemModeStatus& target) {
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

inline bool convertSymbol(const SystemModeStatus& source, types::SystemModeStatus& target) {
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

inline bool convertSymbol(const types::ScanPatternCommandStatus& source, ScanPatternError& target) {
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

inline bool convertSymbol(const ScanPatternError& source, types::ScanPatternCommandStatus& target) {
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

}  // namespace
}  // namespace kov::drivers::lidar::vesk::serialization
