// The exported enumeration conversions; the tables themselves are in enumeration_tables.hpp.

#include "enumeration_tables.hpp"
#include "serialization/convert.hpp"

namespace kov::drivers::lidar::vesk::serialization {

template <>
bool convert<types::ScanHorizontalInterlaceMode, ScanHorizontalInterlaceMode>(
    const types::ScanHorizontalInterlaceMode& source, ScanHorizontalInterlaceMode& target) {
  return convertSymbol(source, target);
}

template <>
bool convert<ScanHorizontalInterlaceMode, types::ScanHorizontalInterlaceMode>(
    const ScanHorizontalInterlaceMode& source, types::ScanHorizontalInterlaceMode& target) {
  return convertSymbol(source, target);
}

template <>
bool convert<types::ScanControlLine, ScanControlLineIndex>(const types::ScanControlLine& source,
                                                           ScanControlLineIndex& target) {
  return convertSymbol(source, target);
}

template <>
bool convert<ScanControlLineIndex, types::ScanControlLine>(const ScanControlLineIndex& source,
                                                           types::ScanControlLine& target) {
  return convertSymbol(source, target);
}

template <>
bool convert<types::ScanFillMode, ScanFillMode>(const types::ScanFillMode& source, ScanFillMode& target) {
  return convertSymbol(source, target);
}

template <>
bool convert<ScanFillMode, types::ScanFillMode>(const ScanFillMode& source, types::ScanFillMode& target) {
  return convertSymbol(source, target);
}

template <>
bool convert<types::SystemModeCommand, SystemModeCommand>(const types::SystemModeCommand& source,
                                                          SystemModeCommand& target) {
  return convertSymbol(source, target);
}

template <>
bool convert<SystemModeCommand, types::SystemModeCommand>(const SystemModeCommand& source,
                                                          types::SystemModeCommand& target) {
  return convertSymbol(source, target);
}

template <>
bool convert<types::SystemModeStatus, SystemModeStatus>(const types::SystemModeStatus& source,
                                                        SystemModeStatus& target) {
  return convertSymbol(source, target);
}

template <>
bool convert<SystemModeStatus, types::SystemModeStatus>(const SystemModeStatus& source,
                                                        types::SystemModeStatus& target) {
  return convertSymbol(source, target);
}

template <>
bool convert<types::ScanPatternCommandStatus, ScanPatternError>(const types::ScanPatternCommandStatus& source,
                                                                ScanPatternError& target) {
  return convertSymbol(source, target);
}

template <>
bool convert<ScanPatternError, types::ScanPatternCommandStatus>(const ScanPatternError& source,
                                                                types::ScanPatternCommandStatus& target) {
  return convertSymbol(source, target);
}

}  // namespace kov::drivers::lidar::vesk::serialization
