#include <cmath>
#include <limits>
#include <memory>

#include "binding.hpp"
#include "failure_reasons.hpp"
#include "serialization/convert.hpp"

namespace kov::python {

namespace {

namespace wire = kov::drivers::lidar::vesk::serialization;
using kov::tools::veskctl::FailureReasons;

py::object recordClass(const char* name) {
  return py::module_::import("kov_vesk._records").attr(name);
}

template <typename Enum>
py::object enumValue(const char* name, Enum value) {
  return recordClass(name)(static_cast<std::uint32_t>(value));
}

/// An enumeration member or plain int, as the library's enumeration (range checked by the library).
template <typename Enum>
Enum enumFrom(const py::handle& value) {
  const auto number = value.cast<long long>();
  if (number < 0 || number > std::numeric_limits<std::uint32_t>::max()) {
    throw py::value_error("enumeration value " + std::to_string(number) + " out of range");
  }
  return static_cast<Enum>(static_cast<std::uint32_t>(number));
}

/// Raises ValueError with the library's reason when it refuses to convert `typed` into its wire record.
template <typename Wire, typename Typed>
void checkConvertible(const Typed& typed) {
  FailureReasons::clear();
  auto record = std::make_unique<Wire>();
  bool converted = false;
  {
    py::gil_scoped_release release;
    converted = wire::convert<Typed, Wire>(typed, *record);
  }
  if (!converted) {
    const auto reason = FailureReasons::take();
    throw py::value_error(reason.empty() ? "the library refused the value" : reason);
  }
}

float finiteFloat(const py::handle& value, const char* name) {
  const double number = value.cast<double>();
  if (!std::isfinite(number)) {
    throw py::value_error(std::string(name) + " must be a finite number");
  }
  return static_cast<float>(number);
}

}  // namespace

py::object toPython(const types::DesiredScanSettings& value) {
  return recordClass("DesiredScanSettings")(
      value.frameRate, enumValue("Interlace", value.horizontalInterlaceMode),
      enumValue("ControlLine", value.controlLine), enumValue("Fill", value.fillMode));
}

py::object toPython(const types::AchievedScanSettings& value) {
  return recordClass("AchievedScanSettings")(value.value1, value.value2);
}

py::object toPython(const types::SensorHealthStatus& value) {
  return recordClass("SensorHealthStatus")(value.value1, value.value2, value.value3,
                                           enumValue("SystemMode", value.mode), value.flag1, value.flag2,
                                           value.flag3, value.flag4, value.flag5);
}

py::object toPython(const types::SensorSoftwareVersion& value) {
  return recordClass("SensorSoftwareVersion")(value.text1, value.text2, value.text3, value.text4);
}

py::object toPython(const types::DatapathDestinationInfo& value) {
  return recordClass("DatapathDestination")(value.ipAddress, value.port);
}

py::object toPython(const types::ScanDatum& value) {
  return py::float_(value.elevation);
}

py::object toPython(types::SystemModeStatus value) {
  return enumValue("SystemMode", value);
}

py::object toPython(types::ScanPatternCommandStatus value) {
  return enumValue("ScanPatternStatus", value);
}

types::DesiredScanSettings desiredScanSettingsFrom(const py::handle& value) {
  types::DesiredScanSettings settings;
  settings.frameRate = finiteFloat(value.attr("frame_rate"), "frame_rate");
  settings.horizontalInterlaceMode = enumFrom<types::ScanHorizontalInterlaceMode>(value.attr("interlace"));
  settings.controlLine = enumFrom<types::ScanControlLine>(value.attr("control_line"));
  settings.fillMode = enumFrom<types::ScanFillMode>(value.attr("fill"));
  checkConvertible<wire::ScanSettings>(settings);
  return settings;
}

types::SystemModeCommand systemModeCommandFrom(const py::handle& value) {
  const auto command = enumFrom<types::SystemModeCommand>(value);
  checkConvertible<wire::SystemModeCommand>(command);
  return command;
}

types::ScanDatum scanDatumFrom(double degrees) {
  types::ScanDatum datum;
  datum.elevation = finiteFloat(py::float_(degrees), "degrees");
  checkConvertible<wire::ScanDatum>(datum);
  return datum;
}

types::ScanPattern scanPatternFrom(const py::iterable& commands) {
  const auto point = recordClass("Point");
  const auto snap = recordClass("Snap");
  const auto minLines = recordClass("MinLines");
  types::ScanPattern pattern;
  for (const auto& command : commands) {
    if (py::isinstance(command, point)) {
      const auto attribute = command.attr("attribute").cast<long long>();
      if (attribute < 0 || attribute > 0xFF) {
        throw py::value_error("point attribute " + std::to_string(attribute) + " out of range [0;255]");
      }
      pattern.commands.push_back(std::make_unique<types::ScanPattern::PointCommand>(
          finiteFloat(command.attr("azimuth"), "azimuth"),
          finiteFloat(command.attr("elevation"), "elevation"), static_cast<std::uint8_t>(attribute)));
    } else if (py::isinstance(command, snap)) {
      pattern.commands.push_back(std::make_unique<types::ScanPattern::SnapCommand>());
    } else if (py::isinstance(command, minLines)) {
      pattern.commands.push_back(std::make_unique<types::ScanPattern::MinLinesCommand>(
          finiteFloat(command.attr("min_lines"), "min_lines")));
    } else {
      throw py::type_error("a scan pattern command is a Point, Snap or MinLines, not " +
                           std::string(py::str(py::type::of(command))));
    }
  }
  checkConvertible<wire::ScanPattern>(pattern);
  return pattern;
}

types::DatapathDestinationInfo datapathDestinationFrom(const std::string& ip, int port) {
  if (port < 0 || port > 0xFFFF) {
    throw py::value_error("port " + std::to_string(port) + " out of range [0;65535]");
  }
  types::DatapathDestinationInfo info;
  info.ipAddress = ip;
  info.port = static_cast<std::uint16_t>(port);
  checkConvertible<wire::DatapathDestinationInfo>(info);
  return info;
}

}  // namespace kov::python
