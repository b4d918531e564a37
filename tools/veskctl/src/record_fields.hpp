#pragma once

#include <string>
#include <vector>

#include "serialization/types/enumerations.hpp"
#include "serialization/types/records.hpp"
#include "serialization/types/scan_pattern.hpp"

namespace kov::tools::veskctl {

/// One named value of a record, as text; `quoted` when it is a string rather than a number or flag.
struct Field {
  std::string key;
  std::string text;
  bool quoted;
};
using Fields = std::vector<Field>;

namespace types = kov::drivers::lidar::vesk::types;

Fields fieldsOf(const types::DesiredScanSettings& settings);
Fields fieldsOf(const types::AchievedScanSettings& settings);
Fields fieldsOf(const types::ScanDatum& datum);
Fields fieldsOf(types::SystemModeStatus status);
Fields fieldsOf(types::SystemModeCommand command);
Fields fieldsOf(types::ScanPatternCommandStatus status);
Fields fieldsOf(const types::SensorHealthStatus& health);
Fields fieldsOf(const types::SensorSoftwareVersion& version);
Fields fieldsOf(const types::DatapathDestinationInfo& destination);
Fields fieldsOf(const types::ScanPattern& pattern);

std::string nameOf(types::SystemModeStatus status);
std::string nameOf(types::SystemModeCommand command);
std::string nameOf(types::ScanPatternCommandStatus status);
std::string nameOf(types::ScanHorizontalInterlaceMode mode);
std::string nameOf(types::ScanControlLine line);
std::string nameOf(types::ScanFillMode mode);

/// A number as the default stream format writes it ("20", "-5.5").
std::string numberText(double value);

}  // namespace kov::tools::veskctl
