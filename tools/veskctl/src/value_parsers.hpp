#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "serialization/types/records.hpp"

namespace kov::tools::veskctl {

namespace types = kov::drivers::lidar::vesk::types;

/// A number range that a command-line value must fall in, with the words that describe it in messages.
struct ValueRange {
  double min;
  double max;
  const char* what;  ///< "a frame rate"
  const char* unit;  ///< "Hz"
};

// The ranges veskctl checks before it calls the library. The sensor's own limits are those that the
// record conversion enforces; the durations are what a person would sensibly wait.
constexpr ValueRange FRAME_RATE_RANGE{1.0, 30.0, "a frame rate", "Hz"};
constexpr ValueRange DATUM_RANGE{-18.0, 10.0, "an elevation", "degrees"};
constexpr ValueRange AZIMUTH_RANGE{-90.0, 90.0, "an azimuth", "degrees"};
constexpr ValueRange DISCOVERY_SECONDS_RANGE{0.1, 600.0, "a duration", "seconds"};
constexpr ValueRange WATCH_SECONDS_RANGE{0.1, 3600.0, "a duration", "seconds"};
constexpr ValueRange CALL_TIMEOUT_SECONDS_RANGE{0.01, 600.0, "a duration", "seconds"};

/// A plain decimal number ("20", "-5.5", "1e3" is not one): optional sign, digits, optional fraction.
std::optional<double> parseDecimal(const std::string& text);

/// `text` as a decimal number within `range`; otherwise nothing, with `error` naming the option, the
/// value and the range ("--frame-rate 0.5: expected a frame rate from 1 to 30 Hz").
std::optional<double> parseInRange(const std::string& option, const std::string& text,
                                   const ValueRange& range, std::string& error);

/// A dotted quad of four decimal octets 0..255 ("10.1.2.3"); nothing for anything else.
std::optional<std::string> parseDottedQuad(const std::string& text);

/// A decimal port 1..65535; nothing for anything else.
std::optional<std::uint16_t> parsePort(const std::string& text);

/// "A.B.C.D:PORT" as a dotted quad and a decimal port; false with `error` set on bad input.
bool parseDestination(const std::string& text, types::DatapathDestinationInfo& destination,
                      std::string& error);

/// A sensor id as veskctl prints it ("0x10", hexadecimal) or in decimal ("16"); 0xFFFF (the wildcard)
/// and anything that is not a number are refused.
std::optional<std::uint16_t> parseSensorId(const std::string& text);

/// The hexadecimal reading of a sensor id given in decimal digits ("10" -> 0x10), for a hint when the
/// decimal reading matches no sensor; nothing when `text` is not plain decimal digits.
std::optional<std::uint16_t> hexReadingOf(const std::string& text);

}  // namespace kov::tools::veskctl
