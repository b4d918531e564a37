#pragma once

#include <cstdint>
#include <string>

#include "serialization/types/enumerations.hpp"

namespace kov::drivers::lidar::vesk::types {

/// Scan settings the application asks for. frameRate in hertz, accepted range [1, 30].
struct DesiredScanSettings {
  float frameRate{};
  ScanHorizontalInterlaceMode horizontalInterlaceMode{};
  ScanControlLine controlLine{};
  ScanFillMode fillMode{};
};

/// Scan settings the sensor reports; carried without interpretation.
struct AchievedScanSettings {
  float value1{};
  float value2{};
};

/// Elevation datum in degrees (radians on the wire); accepted range [-18, 10].
struct ScanDatum {
  float elevation{};
};

/// Content of the health heartbeat event.
struct SensorHealthStatus {
  float value1{};
  float value2{};
  float value3{};
  SystemModeStatus mode{};
  bool flag1{};
  bool flag2{};
  bool flag3{};
  bool flag4{};
  bool flag5{};
};

/// Software version texts, UTF-8; each travels as 64 ISO 8859-1 bytes (at most 63 characters <= U+00FF).
struct SensorSoftwareVersion {
  std::string text1;
  std::string text2;
  std::string text3;
  std::string text4;
};

/// Where the sensor sends its data: IPv4 address in dotted decimal text and UDP port in host order.
struct DatapathDestinationInfo {
  std::string ipAddress;
  std::uint16_t port{};
};

}  // namespace kov::drivers::lidar::vesk::types
