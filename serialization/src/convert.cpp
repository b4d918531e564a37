// Conversion of the scan settings, scan datum, heartbeat, software version and data-path records.

#include <algorithm>
#include <codecvt>
#include <cstdint>
#include <locale>
#include <string>

#include "angles.hpp"
#include "enumeration_tables.hpp"
#include "common/log/log.hpp"
#include "networking/byte_order.hpp"
#include "networking/utils.hpp"
#include "serialization/convert.hpp"

namespace kov::drivers::lidar::vesk::serialization {

namespace {

using kov::platform::networking::byte_order::floatToHostByteOrder;
using kov::platform::networking::byte_order::floatToNetworkByteOrder;
using kov::platform::networking::byte_order::toHostByteOrder;
using kov::platform::networking::byte_order::toNetworkByteOrder;

constexpr float MIN_FRAME_RATE = 1.0F;
constexpr float MAX_FRAME_RATE = 30.0F;

/// Code points of a UTF-8 text, decoded by the standard UTF-8 facet (largest code point U+10FFFF).
/// Throws std::range_error("wstring_convert::from_bytes") on a malformed sequence; an incomplete
/// sequence at the very end is dropped.
std::wstring decodeUtf8(const std::string& text) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  std::wstring_convert<std::codecvt_utf8<wchar_t>> decoder;
  return decoder.from_bytes(text);
#pragma GCC diagnostic pop
}

/// Appends the field's text (up to its first NUL, or all 64 bytes) to text as UTF-8.
bool iso88591toUTF8(const Iso88591Field& field, std::string& text) {
  const auto end = std::find(field.begin(), field.end(), std::uint8_t{0});
  text.reserve(text.size() + 2 * static_cast<std::size_t>(end - field.begin()));
  for (auto it = field.begin(); it != end; ++it) {
    const std::uint8_t byte = *it;
    if (byte < 0x80) {
      text.push_back(static_cast<char>(byte));
    } else {
      text.push_back(static_cast<char>(0xC0 | (byte >> 6)));
      text.push_back(static_cast<char>(0x80 | (byte & 0x3F)));
    }
  }
  return true;
}

/// Replaces field with text in ISO 8859-1, NUL-padded. Fails, with the field untouched, when a
/// character lies above U+00FF; fails, keeping the first 63 characters, when there are 63 or more.
bool utf8toIso88591(const std::string& text, Iso88591Field& field) {
  const std::wstring codePoints = decodeUtf8(text);
  std::string bytes;
  bytes.reserve(codePoints.size());
  for (const wchar_t codePoint : codePoints) {
    if (static_cast<std::uint32_t>(codePoint) > 0xFF) {
      KOV_LOG(ERROR, "src/convert") << "string \"" << text
                                    << "\" contains characters which cannot be encoded in ISO 8859-1";
      return false;
    }
    bytes.push_back(static_cast<char>(codePoint));
  }
  // One byte always stays for the terminating NUL.
  const std::size_t stored = std::min(bytes.size(), field.size() - 1);
  field.fill(0);
  std::transform(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(stored), field.begin(),
                 [](char c) { return static_cast<std::uint8_t>(c); });
  if (bytes.size() >= field.size()) {
    KOV_LOG(ERROR, "src/convert") << "string too long, would be truncated to \"" << bytes.substr(0, stored)
                                  << "\"";
    return false;
  }
  return true;
}

}  // namespace

template <>
bool convert<types::DesiredScanSettings, ScanSettings>(const types::DesiredScanSettings& source,
                                                       ScanSettings& target) {
  // Written this way round so that NaN is refused too.
  if (!(source.frameRate >= MIN_FRAME_RATE && source.frameRate <= MAX_FRAME_RATE)) {
    KOV_LOG(ERROR, "src/convert") << "Scan settings desired frame rate = " << source.frameRate
                                  << " Hz: out of range [" << MIN_FRAME_RATE << ";" << MAX_FRAME_RATE << "]";
    return false;
  }
  target.frameRate = floatToNetworkByteOrder(source.frameRate);
  return convertSymbol(source.horizontalInterlaceMode, target.horizontalInterlaceMode) &&
         convertSymbol(source.controlLine, target.controlLineIndex) && convertSymbol(source.fillMode, target.fillMode);
}

template <>
bool convert<ScanSettings, types::DesiredScanSettings>(const ScanSettings& source,
                                                       types::DesiredScanSettings& target) {
  target.frameRate = floatToHostByteOrder(source.frameRate);
  return convertSymbol(source.horizontalInterlaceMode, target.horizontalInterlaceMode) &&
         convertSymbol(source.controlLineIndex, target.controlLine) && convertSymbol(source.fillMode, target.fillMode);
}

template <>
bool convert<types::AchievedScanSettings, ScanSettingsStatus>(const types::AchievedScanSettings& source,
                                                              ScanSettingsStatus& target) {
  target.value1 = floatToNetworkByteOrder(source.value1);
  target.value2 = floatToNetworkByteOrder(source.value2);
  return true;
}

template <>
bool convert<ScanSettingsStatus, types::AchievedScanSettings>(const ScanSettingsStatus& source,
                                                              types::AchievedScanSettings& target) {
  target.value1 = floatToHostByteOrder(source.value1);
  target.value2 = floatToHostByteOrder(source.value2);
  return true;
}

template <>
bool convert<types::ScanDatum, ScanDatum>(const types::ScanDatum& source, ScanDatum& target) {
  const float radians = angles::toRadians(source.elevation);
  if (!angles::isElevationInRange(radians)) {
    KOV_LOG(ERROR, "src/convert") << "Scan datum elevation = " << source.elevation
                                  << " degrees: out of range [" << angles::MIN_ELEVATION_DEGREES << ";"
                                  << angles::MAX_ELEVATION_DEGREES << "]";
    return false;
  }
  target.elevation = floatToNetworkByteOrder(radians);
  return true;
}

template <>
bool convert<ScanDatum, types::ScanDatum>(const ScanDatum& source, types::ScanDatum& target) {
  target.elevation = angles::toDegrees(floatToHostByteOrder(source.elevation));
  return true;
}

template <>
bool convert<types::SensorHealthStatus, SystemHeartbeatAppRecord>(const types::SensorHealthStatus& source,
                                                                  SystemHeartbeatAppRecord& target) {
  // A status without wire symbol does not stop the rest of the record.
  target.value1 = floatToNetworkByteOrder(source.value1);
  target.value2 = floatToNetworkByteOrder(source.value2);
  target.value3 = floatToNetworkByteOrder(source.value3);
  const bool statusConverted = convertSymbol(source.mode, target.status);
  target.flag1 = source.flag1 ? 1 : 0;
  target.flag2 = source.flag2 ? 1 : 0;
  target.flag3 = source.flag3 ? 1 : 0;
  target.flag4 = source.flag4 ? 1 : 0;
  target.flag5 = source.flag5 ? 1 : 0;
  return statusConverted;
}

template <>
bool convert<SystemHeartbeatAppRecord, types::SensorHealthStatus>(const SystemHeartbeatAppRecord& source,
                                                                  types::SensorHealthStatus& target) {
  // A status byte without symbol does not stop the rest of the record.
  const bool statusConverted = convertSymbol(source.status, target.mode);
  target.flag1 = source.flag1 != 0;
  target.flag2 = source.flag2 != 0;
  target.flag3 = source.flag3 != 0;
  target.flag4 = source.flag4 != 0;
  target.flag5 = source.flag5 != 0;
  target.value1 = floatToHostByteOrder(source.value1);
  target.value2 = floatToHostByteOrder(source.value2);
  target.value3 = floatToHostByteOrder(source.value3);
  return statusConverted;
}

template <>
bool convert<types::SensorSoftwareVersion, SoftwareApplicationInfo>(
    const types::SensorSoftwareVersion& source, SoftwareApplicationInfo& target) {
  return utf8toIso88591(source.text1, target.text1) && utf8toIso88591(source.text2, target.text2) &&
         utf8toIso88591(source.text3, target.text3) && utf8toIso88591(source.text4, target.text4);
}

template <>
bool convert<SoftwareApplicationInfo, types::SensorSoftwareVersion>(const SoftwareApplicationInfo& source,
                                                                    types::SensorSoftwareVersion& target) {
  iso88591toUTF8(source.text1, target.text1);
  iso88591toUTF8(source.text2, target.text2);
  iso88591toUTF8(source.text3, target.text3);
  iso88591toUTF8(source.text4, target.text4);
  return true;
}

template <>
bool convert<types::DatapathDestinationInfo, DatapathDestinationInfo>(
    const types::DatapathDestinationInfo& source, DatapathDestinationInfo& target) {
  std::uint32_t address = 0;
  if (!kov::platform::networking::stringToIPAddress(source.ipAddress, address)) {
    return false;  // the parser has logged why
  }
  target.port = toNetworkByteOrder(source.port);
  target.ipAddress = address;
  return true;
}

template <>
bool convert<DatapathDestinationInfo, types::DatapathDestinationInfo>(
    const DatapathDestinationInfo& source, types::DatapathDestinationInfo& target) {
  target.ipAddress = kov::platform::networking::ipAddressToString(source.ipAddress);
  target.port = toHostByteOrder(source.port);
  return true;
}

}  // namespace kov::drivers::lidar::vesk::serialization
