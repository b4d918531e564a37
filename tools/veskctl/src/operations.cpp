#include "operations.hpp"

#include <sstream>

namespace kov::tools::veskctl {

namespace {

template <typename Record>
std::function<bool(const Sensor&, Fields&)> reader(bool (ISensorControl::IClientA::*get)(Record&) const) {
  return [get](const Sensor& sensor, Fields& fields) {
    Record value{};
    const bool ok = ((*sensor.control).*get)(value);
    fields = fieldsOf(value);
    return ok;
  };
}

bool parseFloat(const std::string& text, float& value) {
  std::istringstream stream(text);
  stream >> value;
  return !stream.fail() && stream.eof();
}

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::string part;
  std::istringstream stream(text);
  while (std::getline(stream, part, separator)) {
    parts.push_back(part);
  }
  return parts;
}

}  // namespace

const std::vector<Getter>& getters() {
  using IClientA = ISensorControl::IClientA;
  static const std::vector<Getter> all{
      {"mode", "getSystemModeStatus", reader<types::SystemModeStatus>(&IClientA::getSystemModeStatus)},
      {"scan-settings", "getDesiredScanSettings",
       reader<types::DesiredScanSettings>(&IClientA::getDesiredScanSettings)},
      {"achieved", "getAchievedScanSettings",
       reader<types::AchievedScanSettings>(&IClientA::getAchievedScanSettings)},
      {"datum", "getScanDatum", reader<types::ScanDatum>(&IClientA::getScanDatum)},
      {"pattern-status", "getScanPatternCommandStatus",
       reader<types::ScanPatternCommandStatus>(&IClientA::getScanPatternCommandStatus)},
      {"version", "getSensorSoftwareVersion",
       reader<types::SensorSoftwareVersion>(&IClientA::getSensorSoftwareVersion)},
      {"destination", "getDatapathDestinationInfo",
       reader<types::DatapathDestinationInfo>(&IClientA::getDatapathDestinationInfo)},
  };
  return all;
}

bool runGetter(const Getter& getter, const Sensor& sensor, Printer& printer) {
  Fields fields;
  const bool ok = getter.read(sensor, fields);
  printer.result(sensor.id, getter.operation, ok, fields);
  return ok;
}

bool setScanSettings(const Sensor& sensor, const types::DesiredScanSettings& settings, Printer& printer) {
  const bool ok = sensor.control->setDesiredScanSettings(settings);
  printer.result(sensor.id, "setDesiredScanSettings", ok, fieldsOf(settings));
  return ok;
}

bool setScanDatum(const Sensor& sensor, const types::ScanDatum& datum, Printer& printer) {
  const bool ok = sensor.control->setScanDatum(datum);
  printer.result(sensor.id, "setScanDatum", ok, fieldsOf(datum));
  return ok;
}

bool setScanPattern(const Sensor& sensor, const types::ScanPattern& pattern, Printer& printer) {
  const bool ok = sensor.control->setScanPattern(pattern);
  printer.result(sensor.id, "setScanPattern", ok, fieldsOf(pattern));
  return ok;
}

bool setSystemMode(const Sensor& sensor, types::SystemModeCommand command, Printer& printer) {
  const bool ok = sensor.control->setSystemMode(command);
  printer.result(sensor.id, "setSystemMode", ok, fieldsOf(command));
  return ok;
}

bool setDestination(const Sensor& sensor, const types::DatapathDestinationInfo& destination,
                    Printer& printer) {
  const bool ok = sensor.control->setDatapathDestinationInfo(destination);
  printer.result(sensor.id, "setDatapathDestinationInfo", ok, fieldsOf(destination));
  return ok;
}

bool parseScanPattern(const std::string& text, types::ScanPattern& pattern, std::string& error) {
  pattern.commands.clear();
  for (const auto& item : split(text, ',')) {
    const auto parts = split(item, ':');
    float first = 0.0F;
    float second = 0.0F;
    float attribute = 0.0F;
    if (parts.size() == 1 && parts[0] == "snap") {
      pattern.commands.push_back(std::make_unique<types::ScanPattern::SnapCommand>());
    } else if (parts.size() == 2 && parts[0] == "minlines" && parseFloat(parts[1], first)) {
      pattern.commands.push_back(std::make_unique<types::ScanPattern::MinLinesCommand>(first));
    } else if ((parts.size() == 3 || parts.size() == 4) && parts[0] == "point" &&
               parseFloat(parts[1], first) && parseFloat(parts[2], second) &&
               (parts.size() == 3 ||
                (parseFloat(parts[3], attribute) && attribute >= 0 && attribute <= 255))) {
      pattern.commands.push_back(std::make_unique<types::ScanPattern::PointCommand>(
          first, second, static_cast<std::uint8_t>(attribute)));
    } else {
      error = "bad scan pattern command \"" + item + "\" (use point:AZ:EL[:ATTR], snap or minlines:N)";
      return false;
    }
  }
  return true;
}

bool parseDestination(const std::string& text, types::DatapathDestinationInfo& destination,
                      std::string& error) {
  const auto colon = text.rfind(':');
  float port = 0.0F;
  if (colon == std::string::npos || !parseFloat(text.substr(colon + 1), port) || port < 0 || port > 65535 ||
      static_cast<float>(static_cast<int>(port)) != port) {
    error = "bad destination \"" + text + "\" (use A.B.C.D:PORT)";
    return false;
  }
  destination.ipAddress = text.substr(0, colon);
  destination.port = static_cast<std::uint16_t>(port);
  return true;
}

}  // namespace kov::tools::veskctl
