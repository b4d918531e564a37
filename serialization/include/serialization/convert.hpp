#pragma once

#include "serialization/types/enumerations.hpp"
#include "serialization/types/records.hpp"
#include "serialization/types/scan_pattern.hpp"
#include "serialization/wire/enumerations.hpp"
#include "serialization/wire/records.hpp"
#include "serialization/wire/scan_pattern.hpp"

namespace kov::drivers::lidar::vesk::serialization {

/// Converts one record or enumeration from Source to Target, checking ranges and enumeration symbols.
/// Returns true when every field was converted. On false the reason has been logged once at ERROR and
/// Target may be partly written: fields converted before the failing one keep their new values.
/// Only the specialisations declared below exist.
template <typename Source, typename Target>
bool convert(const Source& source, Target& target);

// Enumerations. On failure nothing is written.
template <>
bool convert<types::ScanHorizontalInterlaceMode, ScanHorizontalInterlaceMode>(
    const types::ScanHorizontalInterlaceMode& source, ScanHorizontalInterlaceMode& target);
template <>
bool convert<ScanHorizontalInterlaceMode, types::ScanHorizontalInterlaceMode>(
    const ScanHorizontalInterlaceMode& source, types::ScanHorizontalInterlaceMode& target);
template <>
bool convert<types::ScanControlLine, ScanControlLineIndex>(const types::ScanControlLine& source,
                                                           ScanControlLineIndex& target);
template <>
bool convert<ScanControlLineIndex, types::ScanControlLine>(const ScanControlLineIndex& source,
                                                           types::ScanControlLine& target);
template <>
bool convert<types::ScanFillMode, ScanFillMode>(const types::ScanFillMode& source, ScanFillMode& target);
template <>
bool convert<ScanFillMode, types::ScanFillMode>(const ScanFillMode& source, types::ScanFillMode& target);
template <>
bool convert<types::SystemModeCommand, SystemModeCommand>(const types::SystemModeCommand& source,
                                                          SystemModeCommand& target);
template <>
bool convert<SystemModeCommand, types::SystemModeCommand>(const SystemModeCommand& source,
                                                          types::SystemModeCommand& target);
template <>
bool convert<types::SystemModeStatus, SystemModeStatus>(const types::SystemModeStatus& source,
                                                        SystemModeStatus& target);
template <>
bool convert<SystemModeStatus, types::SystemModeStatus>(const SystemModeStatus& source,
                                                        types::SystemModeStatus& target);
template <>
bool convert<types::ScanPatternCommandStatus, ScanPatternError>(const types::ScanPatternCommandStatus& source,
                                                                ScanPatternError& target);
template <>
bool convert<ScanPatternError, types::ScanPatternCommandStatus>(const ScanPatternError& source,
                                                                types::ScanPatternCommandStatus& target);

// Records.
template <>
bool convert<types::DesiredScanSettings, ScanSettings>(const types::DesiredScanSettings& source,
                                                       ScanSettings& target);
template <>
bool convert<ScanSettings, types::DesiredScanSettings>(const ScanSettings& source,
                                                       types::DesiredScanSettings& target);
template <>
bool convert<types::AchievedScanSettings, ScanSettingsStatus>(const types::AchievedScanSettings& source,
                                                              ScanSettingsStatus& target);
template <>
bool convert<ScanSettingsStatus, types::AchievedScanSettings>(const ScanSettingsStatus& source,
                                                              types::AchievedScanSettings& target);
template <>
bool convert<types::ScanDatum, ScanDatum>(const types::ScanDatum& source, ScanDatum& target);
template <>
bool convert<ScanDatum, types::ScanDatum>(const ScanDatum& source, types::ScanDatum& target);
template <>
bool convert<types::SensorHealthStatus, SystemHeartbeatAppRecord>(const types::SensorHealthStatus& source,
                                                                  SystemHeartbeatAppRecord& target);
template <>
bool convert<SystemHeartbeatAppRecord, types::SensorHealthStatus>(const SystemHeartbeatAppRecord& source,
                                                                  types::SensorHealthStatus& target);
/// Throws std::range_error when a text is not valid UTF-8 (the record is then left as it was from
/// that text on).
template <>
bool convert<types::SensorSoftwareVersion, SoftwareApplicationInfo>(
    const types::SensorSoftwareVersion& source, SoftwareApplicationInfo& target);
/// Appends the four texts to the target's strings.
template <>
bool convert<SoftwareApplicationInfo, types::SensorSoftwareVersion>(const SoftwareApplicationInfo& source,
                                                                    types::SensorSoftwareVersion& target);
template <>
bool convert<types::DatapathDestinationInfo, DatapathDestinationInfo>(
    const types::DatapathDestinationInfo& source, DatapathDestinationInfo& target);
template <>
bool convert<DatapathDestinationInfo, types::DatapathDestinationInfo>(const DatapathDestinationInfo& source,
                                                                      types::DatapathDestinationInfo& target);

// Scan pattern codec. Decoding reads only the whole 1322-byte record it is given.
template <>
bool convert<types::ScanPattern, ScanPattern>(const types::ScanPattern& source, ScanPattern& target);
template <>
bool convert<ScanPattern, types::ScanPattern>(const ScanPattern& source, types::ScanPattern& target);

}  // namespace kov::drivers::lidar::vesk::serialization
