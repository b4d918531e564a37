// Every wire-to-typed convert of a fixed-size record, fed with arbitrary bytes. The first input byte
// picks the record, the following bytes are the record (zeros past the input's end) and then the values
// the typed target holds before the conversion. Checked against the enumeration tables and byte
// layouts of the records, written out here by hand: the result, every written field, and that a
// refused conversion leaves exactly the documented part of the target as it was.
#include <cstdio>
#include <string>

#include "serialization/convert.hpp"
#include "support/fuzz_input.hpp"

namespace {

namespace types = kov::drivers::lidar::vesk::types;
namespace wire = kov::drivers::lidar::vesk::serialization;
using kov::fuzz::bigEndian32;
using kov::fuzz::floatOfBits;
using kov::fuzz::FuzzInput;
using kov::fuzz::sameFloat;

constexpr float RADIANS_TO_DEGREES = 57.29578F;  // float bits 0x42652EE1

/// Wire byte to typed value; -1 when the table has no symbol for the byte.
int interlaceOf(std::uint8_t byte) {
  switch (byte) {
    case 0:
      return 0;
    case 2:
      return 1;
    case 3:
      return 2;
    case 4:
      return 3;
    case 8:
      return 4;
    default:
      return -1;
  }
}
int zeroOrOne(std::uint8_t byte) {
  return byte <= 1 ? byte : -1;
}
int systemModeStatusOf(std::uint8_t byte) {
  if (byte == 7) {
    return 2;
  }
  if (byte == 14) {
    return 3;
  }
  return byte <= 13 ? 1 : -1;
}

template <typename Wire>
Wire wireRecord(FuzzInput& input) {
  Wire record;
  input.fill(&record, sizeof(record));
  return record;
}

template <typename Enum>
Enum anyEnum(FuzzInput& input) {
  return static_cast<Enum>(input.u32());
}

template <typename Enum>
std::uint32_t valueOf(Enum value) {
  return static_cast<std::uint32_t>(value);
}

void scanSettings(FuzzInput& input) {
  const auto source = wireRecord<wire::ScanSettings>(input);
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(&source);
  const types::DesiredScanSettings before{
      input.anyFloat(), anyEnum<types::ScanHorizontalInterlaceMode>(input),
      anyEnum<types::ScanControlLine>(input), anyEnum<types::ScanFillMode>(input)};
  types::DesiredScanSettings target = before;
  const bool ok = wire::convert(source, target);

  KOV_FUZZ_CHECK(sameFloat(target.frameRate, floatOfBits(bigEndian32(bytes))));  // taken unchecked
  const int expected[3] = {interlaceOf(bytes[4]), zeroOrOne(bytes[5]), zeroOrOne(bytes[6])};
  const std::uint32_t written[3] = {valueOf(target.horizontalInterlaceMode), valueOf(target.controlLine),
                                    valueOf(target.fillMode)};
  const std::uint32_t old[3] = {valueOf(before.horizontalInterlaceMode), valueOf(before.controlLine),
                                valueOf(before.fillMode)};
  bool failed = false;
  for (int field = 0; field < 3; ++field) {
    failed = failed || expected[field] < 0;
    // Up to the first field without a symbol each is converted; from it on each keeps its old value.
    KOV_FUZZ_CHECK(written[field] == (failed ? old[field] : static_cast<std::uint32_t>(expected[field])));
  }
  KOV_FUZZ_CHECK(ok == !failed);
}

void achievedScanSettings(FuzzInput& input) {
  const auto source = wireRecord<wire::ScanSettingsStatus>(input);
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(&source);
  types::AchievedScanSettings target{input.anyFloat(), input.anyFloat()};
  KOV_FUZZ_CHECK(wire::convert(source, target));
  KOV_FUZZ_CHECK(sameFloat(target.value1, floatOfBits(bigEndian32(bytes))));
  KOV_FUZZ_CHECK(sameFloat(target.value2, floatOfBits(bigEndian32(bytes + 4))));
}

void scanDatum(FuzzInput& input) {
  const auto source = wireRecord<wire::ScanDatum>(input);
  types::ScanDatum target{input.anyFloat()};
  KOV_FUZZ_CHECK(wire::convert(source, target));
  const float radians = floatOfBits(bigEndian32(reinterpret_cast<const std::uint8_t*>(&source)));
  KOV_FUZZ_CHECK(sameFloat(target.elevation, radians * RADIANS_TO_DEGREES));
}

/// A one-byte enumeration record: converted by `table`, or refused with the target untouched.
template <typename Wire, typename Typed>
void oneByte(FuzzInput& input, int (*table)(std::uint8_t)) {
  const auto source = wireRecord<Wire>(input);
  const auto byte = static_cast<std::uint8_t>(source);
  const auto before = anyEnum<Typed>(input);
  Typed target = before;
  const bool ok = wire::convert(source, target);
  const int expected = table(byte);
  KOV_FUZZ_CHECK(ok == (expected >= 0));
  KOV_FUZZ_CHECK(valueOf(target) == (ok ? static_cast<std::uint32_t>(expected) : valueOf(before)));
}

int systemModeCommandOf(std::uint8_t byte) {
  return byte <= 2 ? byte : -1;
}
int scanPatternStatusOf(std::uint8_t byte) {
  return byte <= 1 ? byte + 1 : -1;
}

void heartbeat(FuzzInput& input) {
  const auto source = wireRecord<wire::SystemHeartbeatAppRecord>(input);
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(&source);
  const auto mode = anyEnum<types::SystemModeStatus>(input);
  types::SensorHealthStatus target{
      input.anyFloat(), input.anyFloat(), input.anyFloat(), mode, true, false, true, false, true};
  const bool ok = wire::convert(source, target);
  const int expected = systemModeStatusOf(bytes[0]);
  KOV_FUZZ_CHECK(ok == (expected >= 0));
  KOV_FUZZ_CHECK(valueOf(target.mode) == (ok ? static_cast<std::uint32_t>(expected) : valueOf(mode)));
  // Flags and values are read whatever the status byte holds.
  const bool flags[5] = {target.flag1, target.flag2, target.flag3, target.flag4, target.flag5};
  for (int flag = 0; flag < 5; ++flag) {
    KOV_FUZZ_CHECK(flags[flag] == (bytes[1 + flag] != 0));
  }
  KOV_FUZZ_CHECK(sameFloat(target.value1, floatOfBits(bigEndian32(bytes + 6))));
  KOV_FUZZ_CHECK(sameFloat(target.value2, floatOfBits(bigEndian32(bytes + 10))));
  KOV_FUZZ_CHECK(sameFloat(target.value3, floatOfBits(bigEndian32(bytes + 14))));
}

/// ISO 8859-1 bytes up to the first zero (at most `size`) as UTF-8.
std::string latin1ToUtf8(const std::uint8_t* field, std::size_t size) {
  std::string text;
  for (std::size_t i = 0; i < size && field[i] != 0; ++i) {
    if (field[i] < 0x80) {
      text += static_cast<char>(field[i]);
    } else {
      text += static_cast<char>(0xC0 | (field[i] >> 6U));
      text += static_cast<char>(0x80 | (field[i] & 0x3FU));
    }
  }
  return text;
}

void softwareVersion(FuzzInput& input) {
  const auto source = wireRecord<wire::SoftwareApplicationInfo>(input);
  // The texts are appended to what the target holds.
  types::SensorSoftwareVersion target{input.text(8), input.text(8), input.text(8), input.text(8)};
  const types::SensorSoftwareVersion before = target;
  KOV_FUZZ_CHECK(wire::convert(source, target));
  const wire::Iso88591Field* fields[4] = {&source.text1, &source.text2, &source.text3, &source.text4};
  const std::string* texts[4] = {&target.text1, &target.text2, &target.text3, &target.text4};
  const std::string* old[4] = {&before.text1, &before.text2, &before.text3, &before.text4};
  for (int field = 0; field < 4; ++field) {
    KOV_FUZZ_CHECK(*texts[field] == *old[field] + latin1ToUtf8(fields[field]->data(), fields[field]->size()));
  }
}

void datapathDestination(FuzzInput& input) {
  const auto source = wireRecord<wire::DatapathDestinationInfo>(input);
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(&source);
  types::DatapathDestinationInfo target{input.text(20), static_cast<std::uint16_t>(input.u32())};
  KOV_FUZZ_CHECK(wire::convert(source, target));
  char address[16];
  std::snprintf(address, sizeof(address), "%u.%u.%u.%u", bytes[2], bytes[3], bytes[4], bytes[5]);
  KOV_FUZZ_CHECK(target.ipAddress == address);
  KOV_FUZZ_CHECK(target.port == ((bytes[0] << 8U) | bytes[1]));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  kov::fuzz::silenceLogging();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzInput input(data, size);
  switch (input.byte() % 9) {
    case 0:
      scanSettings(input);
      break;
    case 1:
      achievedScanSettings(input);
      break;
    case 2:
      scanDatum(input);
      break;
    case 3:
      oneByte<wire::SystemModeCommand, types::SystemModeCommand>(input, systemModeCommandOf);
      break;
    case 4:
      oneByte<wire::SystemModeStatus, types::SystemModeStatus>(input, systemModeStatusOf);
      break;
    case 5:
      oneByte<wire::ScanPatternError, types::ScanPatternCommandStatus>(input, scanPatternStatusOf);
      break;
    case 6:
      heartbeat(input);
      break;
    case 7:
      softwareVersion(input);
      break;
    default:
      datapathDestination(input);
      break;
  }
  return 0;
}
