#include "record_fields.hpp"

#include <sstream>

namespace kov::tools::veskctl {

namespace {

Field number(std::string key, double value) {
  return Field{std::move(key), numberText(value), false};
}
Field flag(std::string key, bool value) {
  return Field{std::move(key), value ? "true" : "false", false};
}
Field text(std::string key, std::string value) {
  return Field{std::move(key), std::move(value), true};
}

template <typename Enum>
std::string unnamed(Enum value) {
  return "value " + std::to_string(static_cast<unsigned long>(value));
}

}  // namespace

std::string numberText(double value) {
  std::ostringstream stream;
  stream << value;
  return stream.str();
}

std::string nameOf(types::SystemModeStatus status) {
  switch (status) {
    case types::SystemModeStatus::UNKNOWN:
      return "UNKNOWN";
    case types::SystemModeStatus::INITIALIZING:
      return "INITIALIZING";
    case types::SystemModeStatus::STANDBY:
      return "STANDBY";
    case types::SystemModeStatus::SCANNING:
      return "SCANNING";
  }
  return unnamed(status);
}

std::string nameOf(types::SystemModeCommand command) {
  switch (command) {
    case types::SystemModeCommand::STANDBY:
      return "STANDBY";
    case types::SystemModeCommand::SCANNING:
      return "SCANNING";
    case types::SystemModeCommand::SHUTDOWN:
      return "SHUTDOWN";
  }
  return unnamed(command);
}

std::string nameOf(types::ScanPatternCommandStatus status) {
  switch (status) {
    case types::ScanPatternCommandStatus::UNKNOWN:
      return "UNKNOWN";
    case types::ScanPatternCommandStatus::ACCEPTED:
      return "ACCEPTED";
    case types::ScanPatternCommandStatus::REJECTED:
      return "REJECTED";
  }
  return unnamed(status);
}

std::string nameOf(types::ScanHorizontalInterlaceMode mode) {
  switch (mode) {
    case types::ScanHorizontalInterlaceMode::NONE:
      return "NONE";
    case types::ScanHorizontalInterlaceMode::INTERLACE_2:
      return "INTERLACE_2";
    case types::ScanHorizontalInterlaceMode::INTERLACE_3:
      return "INTERLACE_3";
    case types::ScanHorizontalInterlaceMode::INTERLACE_4:
      return "INTERLACE_4";
    case types::ScanHorizontalInterlaceMode::INTERLACE_8:
      return "INTERLACE_8";
  }
  return unnamed(mode);
}

std::string nameOf(types::ScanControlLine line) {
  switch (line) {
    case types::ScanControlLine::LINE_0:
      return "LINE_0";
    case types::ScanControlLine::LINE_1:
      return "LINE_1";
  }
  return unnamed(line);
}

std::string nameOf(types::ScanFillMode mode) {
  switch (mode) {
    case types::ScanFillMode::FILL_OFF:
      return "FILL_OFF";
    case types::ScanFillMode::FILL_ON:
      return "FILL_ON";
  }
  return unnamed(mode);
}

Fields fieldsOf(const types::DesiredScanSettings& settings) {
  return {number("frameRate", settings.frameRate),
          text("interlace", nameOf(settings.horizontalInterlaceMode)),
          text("controlLine", nameOf(settings.controlLine)), text("fill", nameOf(settings.fillMode))};
}

Fields fieldsOf(const types::AchievedScanSettings& settings) {
  return {number("value1", settings.value1), number("value2", settings.value2)};
}

Fields fieldsOf(const types::ScanDatum& datum) {
  return {number("elevation", datum.elevation)};
}

Fields fieldsOf(types::SystemModeStatus status) {
  return {text("mode", nameOf(status))};
}

Fields fieldsOf(types::SystemModeCommand command) {
  return {text("mode", nameOf(command))};
}

Fields fieldsOf(types::ScanPatternCommandStatus status) {
  return {text("status", nameOf(status))};
}

Fields fieldsOf(const types::SensorHealthStatus& health) {
  return {text("mode", nameOf(health.mode)), number("value1", health.value1), number("value2", health.value2),
          number("value3", health.value3),   flag("flag1", health.flag1),     flag("flag2", health.flag2),
          flag("flag3", health.flag3),       flag("flag4", health.flag4),     flag("flag5", health.flag5)};
}

Fields fieldsOf(const types::SensorSoftwareVersion& version) {
  return {text("text1", version.text1), text("text2", version.text2), text("text3", version.text3),
          text("text4", version.text4)};
}

Fields fieldsOf(const types::DatapathDestinationInfo& destination) {
  return {text("ipAddress", destination.ipAddress), number("port", destination.port)};
}

Fields fieldsOf(const types::ScanPattern& pattern) {
  // The commands in the syntax `set --pattern` takes, so that what is shown can be given back.
  std::string shown;
  for (const auto& command : pattern.commands) {
    shown += shown.empty() ? "" : ",";
    if (const auto* point = dynamic_cast<const types::ScanPattern::PointCommand*>(command.get())) {
      shown += "point:" + numberText(point->azimuth) + ':' + numberText(point->elevation) + ':' +
               std::to_string(point->attribute);
    } else if (dynamic_cast<const types::ScanPattern::SnapCommand*>(command.get()) != nullptr) {
      shown += "snap";
    } else if (const auto* lines = dynamic_cast<const types::ScanPattern::MinLinesCommand*>(command.get())) {
      shown += "minlines:" + numberText(lines->minLines);
    } else {
      shown += "unknown";
    }
  }
  return {number("commands", static_cast<double>(pattern.commands.size())), text("pattern", shown)};
}

}  // namespace kov::tools::veskctl
