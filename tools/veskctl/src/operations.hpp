#pragma once

#include <functional>
#include <string>
#include <vector>

#include "printer.hpp"
#include "record_fields.hpp"
#include "session.hpp"

namespace kov::tools::veskctl {

/// One getter of the sensor: its short name on the command line, the library's operation and a reader
/// that fills the fields of the value read.
struct Getter {
  std::string key;
  std::string operation;
  std::function<bool(const Sensor&, Fields&, std::string&)> read;  ///< fields, or the reason it failed
};

/// Every getter of the sensor, in the order veskctl shows them.
const std::vector<Getter>& getters();

/// Runs one getter and prints its outcome; returns it.
bool runGetter(const Getter& getter, const Sensor& sensor, Printer& printer);

/// Reads the desired scan settings (the base that `set` changes); prints only a failure.
bool readScanSettings(const Sensor& sensor, types::DesiredScanSettings& settings, Printer& printer);

// Setters: each calls the library once, prints the outcome with the value sent, and returns it.
bool setScanSettings(const Sensor& sensor, const types::DesiredScanSettings& settings, Printer& printer);
bool setScanDatum(const Sensor& sensor, const types::ScanDatum& datum, Printer& printer);
bool setScanPattern(const Sensor& sensor, const types::ScanPattern& pattern, Printer& printer);
bool setSystemMode(const Sensor& sensor, types::SystemModeCommand command, Printer& printer);
bool setDestination(const Sensor& sensor, const types::DatapathDestinationInfo& destination,
                    Printer& printer);

/// How many commands one scan pattern record holds.
constexpr std::size_t MAX_PATTERN_COMMANDS = 88;

/// Parses "point:AZ:EL[:ATTR],snap,minlines:N" into a pattern, checking the point angles against the
/// sensor's ranges; false with `error` set on bad input.
bool parseScanPattern(const std::string& text, types::ScanPattern& pattern, std::string& error);

}  // namespace kov::tools::veskctl
