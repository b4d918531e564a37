#include "operations.hpp"

#include <sstream>
#include <utility>

#include "call_reason.hpp"
#include "value_parsers.hpp"

namespace kov::tools::veskctl {

namespace {

/// Runs one library call and returns its result; `reason` says why it failed.
template <typename Call>
bool callWithReason(Call call, std::string& reason) {
  auto outcome = runCall(call);
  reason = std::move(outcome.reason);
  return outcome.ok;
}

template <typename Record>
std::function<bool(const Sensor&, Fields&, std::string&)> reader(
    bool (ISensorControl::IClientA::*get)(Record&) const) {
  return [get](const Sensor& sensor, Fields& fields, std::string& reason) {
    Record value{};
    const bool ok = callWithReason([&] { return ((*sensor.control).*get)(value); }, reason);
    fields = fieldsOf(value);
    return ok;
  };
}

template <typename Record>
bool runSetter(const Sensor& sensor, const char* operation,
               bool (ISensorControl::IClientA::*set)(const Record&), const Record& value, Printer& printer) {
  std::string reason;
  const bool ok = callWithReason([&] { return ((*sensor.control).*set)(value); }, reason);
  printer.result(sensor.id, operation, ok, fieldsOf(value), reason);
  return ok;
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

/// One command of a scan pattern, "point:AZ:EL[:ATTR]", "snap" or "minlines:N".
std::unique_ptr<types::ScanPattern::ICommand> parseCommand(const std::string& item, std::string& error) {
  const auto parts = split(item, ':');
  if (parts.size() == 1 && parts[0] == "snap") {
    return std::make_unique<types::ScanPattern::SnapCommand>();
  }
  if (parts.size() == 2 && parts[0] == "minlines") {
    if (const auto lines = parseDecimal(parts[1])) {
      return std::make_unique<types::ScanPattern::MinLinesCommand>(static_cast<float>(*lines));
    }
  }
  if ((parts.size() == 3 || parts.size() == 4) && parts[0] == "point") {
    const auto azimuth = parseInRange("--pattern " + item + ": azimuth", parts[1], AZIMUTH_RANGE, error);
    const auto elevation =
        azimuth ? parseInRange("--pattern " + item + ": elevation", parts[2], DATUM_RANGE, error)
                : std::nullopt;
    const auto attribute = parts.size() == 4 ? parseDecimal(parts[3]) : std::optional<double>(0.0);
    if (azimuth && elevation && attribute && *attribute >= 0 && *attribute <= 255 &&
        *attribute == static_cast<double>(static_cast<int>(*attribute))) {
      return std::make_unique<types::ScanPattern::PointCommand>(static_cast<float>(*azimuth),
                                                                static_cast<float>(*elevation),
                                                                static_cast<std::uint8_t>(*attribute));
    }
    if (!azimuth || !elevation) {
      return nullptr;
    }
  }
  error = "--pattern: bad command \"" + item +
          "\" (use point:AZ:EL[:ATTR] with ATTR 0 to 255, snap or minlines:N)";
  return nullptr;
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
  std::string reason;
  const bool ok = getter.read(sensor, fields, reason);
  printer.result(sensor.id, getter.operation, ok, fields, reason);
  return ok;
}

bool readScanSettings(const Sensor& sensor, types::DesiredScanSettings& settings, Printer& printer) {
  std::string reason;
  const bool ok = callWithReason([&] { return sensor.control->getDesiredScanSettings(settings); }, reason);
  if (!ok) {
    printer.result(sensor.id, "getDesiredScanSettings", false, {}, reason);
  }
  return ok;
}

bool setScanSettings(const Sensor& sensor, const types::DesiredScanSettings& settings, Printer& printer) {
  return runSetter(sensor, "setDesiredScanSettings", &ISensorControl::IClientA::setDesiredScanSettings,
                   settings, printer);
}

bool setScanDatum(const Sensor& sensor, const types::ScanDatum& datum, Printer& printer) {
  return runSetter(sensor, "setScanDatum", &ISensorControl::IClientA::setScanDatum, datum, printer);
}

bool setScanPattern(const Sensor& sensor, const types::ScanPattern& pattern, Printer& printer) {
  return runSetter(sensor, "setScanPattern", &ISensorControl::IClientA::setScanPattern, pattern, printer);
}

bool setSystemMode(const Sensor& sensor, types::SystemModeCommand command, Printer& printer) {
  return runSetter(sensor, "setSystemMode", &ISensorControl::IClientA::setSystemMode, command, printer);
}

bool setDestination(const Sensor& sensor, const types::DatapathDestinationInfo& destination,
                    Printer& printer) {
  return runSetter(sensor, "setDatapathDestinationInfo",
                   &ISensorControl::IClientA::setDatapathDestinationInfo, destination, printer);
}

bool parseScanPattern(const std::string& text, types::ScanPattern& pattern, std::string& error) {
  pattern.commands.clear();
  for (const auto& item : split(text, ',')) {
    auto command = parseCommand(item, error);
    if (!command) {
      return false;
    }
    pattern.commands.push_back(std::move(command));
  }
  if (pattern.commands.size() > MAX_PATTERN_COMMANDS) {
    error = "--pattern: " + std::to_string(pattern.commands.size()) + " commands, at most " +
            std::to_string(MAX_PATTERN_COMMANDS) + " fit into one scan pattern";
    return false;
  }
  return true;
}

}  // namespace kov::tools::veskctl
