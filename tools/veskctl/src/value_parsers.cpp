#include "value_parsers.hpp"

#include <cstdlib>
#include <sstream>
#include <vector>

namespace kov::tools::veskctl {

namespace {

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

bool allDigits(const std::string& text) {
  if (text.empty()) {
    return false;
  }
  for (const char c : text) {
    if (!isDigit(c)) {
      return false;
    }
  }
  return true;
}

/// Decimal digits without a sign, at most `maxDigits` of them, as a number.
std::optional<unsigned long> parseUnsigned(const std::string& text, std::size_t maxDigits) {
  if (!allDigits(text) || text.size() > maxDigits) {
    return std::nullopt;
  }
  return std::strtoul(text.c_str(), nullptr, 10);
}

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::string::size_type start = 0;
  for (auto at = text.find(separator); at != std::string::npos; at = text.find(separator, start)) {
    parts.push_back(text.substr(start, at - start));
    start = at + 1;
  }
  parts.push_back(text.substr(start));
  return parts;
}

std::string shown(double value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

}  // namespace

std::optional<double> parseDecimal(const std::string& text) {
  // Long enough for any sensible value, short enough that nothing overflows to inf.
  constexpr std::size_t MAX_LENGTH = 32;
  std::size_t at = (!text.empty() && (text[0] == '-' || text[0] == '+')) ? 1 : 0;
  std::size_t digits = 0;
  while (at < text.size() && isDigit(text[at])) {
    ++at;
    ++digits;
  }
  if (at < text.size() && text[at] == '.') {
    ++at;
    while (at < text.size() && isDigit(text[at])) {
      ++at;
      ++digits;
    }
  }
  if (digits == 0 || at != text.size() || text.size() > MAX_LENGTH) {
    return std::nullopt;
  }
  return std::strtod(text.c_str(), nullptr);
}

std::optional<double> parseInRange(const std::string& option, const std::string& text,
                                   const ValueRange& range, std::string& error) {
  const auto value = parseDecimal(text);
  if (value && *value >= range.min && *value <= range.max) {
    return value;
  }
  error = option + " " + text + ": expected " + range.what + " from " + shown(range.min) + " to " +
          shown(range.max) + " " + range.unit;
  return std::nullopt;
}

std::optional<std::string> parseDottedQuad(const std::string& text) {
  const auto octets = split(text, '.');
  if (octets.size() != 4) {
    return std::nullopt;
  }
  for (const auto& octet : octets) {
    const auto value = parseUnsigned(octet, 3);
    if (!value || *value > 255) {
      return std::nullopt;
    }
  }
  return text;
}

std::optional<std::uint16_t> parsePort(const std::string& text) {
  const auto value = parseUnsigned(text, 5);
  if (!value || *value < 1 || *value > 65535) {
    return std::nullopt;
  }
  return static_cast<std::uint16_t>(*value);
}

bool parseDestination(const std::string& text, types::DatapathDestinationInfo& destination,
                      std::string& error) {
  const auto colon = text.find(':');
  const auto address = parseDottedQuad(text.substr(0, colon));
  const auto port = colon == std::string::npos ? std::nullopt : parsePort(text.substr(colon + 1));
  if (!address || !port) {
    error = "--destination " + text +
            ": expected A.B.C.D:PORT, four decimal octets from 0 to 255 and a decimal port from 1 to 65535";
    return false;
  }
  destination.ipAddress = *address;
  destination.port = *port;
  return true;
}

std::optional<std::uint16_t> parseSensorId(const std::string& text) {
  std::optional<unsigned long> value;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    const std::string digits = text.substr(2);
    if (digits.size() <= 4 && digits.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos) {
      value = std::strtoul(digits.c_str(), nullptr, 16);
    }
  } else {
    value = parseUnsigned(text, 5);
  }
  if (!value || *value >= 0xFFFF) {
    return std::nullopt;
  }
  return static_cast<std::uint16_t>(*value);
}

std::optional<std::uint16_t> hexReadingOf(const std::string& text) {
  if (!allDigits(text) || text.size() > 4) {
    return std::nullopt;
  }
  const auto value = std::strtoul(text.c_str(), nullptr, 16);
  return value < 0xFFFF ? std::optional<std::uint16_t>(static_cast<std::uint16_t>(value)) : std::nullopt;
}

}  // namespace kov::tools::veskctl
