// Every typed-to-wire convert with hostile values: any float bit pattern (NaN, infinities, huge and
// tiny values), enumeration values outside their symbols, arbitrary bytes as UTF-8 texts and address
// texts, scan patterns of any length with foreign and empty commands. The wire target starts filled
// with input bytes, so every check of "left as it was" compares against bytes the conversion had no
// reason to produce. Expected bytes follow the record layouts and tables, written out here by hand.
#include <arpa/inet.h>

#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include "serialization/convert.hpp"
#include "support/fuzz_input.hpp"

namespace {

namespace types = kov::drivers::lidar::vesk::types;
namespace wire = kov::drivers::lidar::vesk::serialization;
using kov::fuzz::bitsOf;
using kov::fuzz::floatOfBits;
using kov::fuzz::FuzzInput;
using kov::fuzz::putBigEndian32;

const float DEGREES_TO_RADIANS = floatOfBits(0x3C8EFA35);
const float ELEVATION_MIN = floatOfBits(0xBEA0D97C);  // -18 degrees in radians
const float ELEVATION_MAX = floatOfBits(0x3E32B8C2);  // +10 degrees
const float AZIMUTH_MIN = floatOfBits(0xBFC90FDB);    // -90 degrees
const float AZIMUTH_MAX = floatOfBits(0x3FC90FDB);    // +90 degrees

/// An enumeration value: mostly near the symbols, sometimes any 32-bit value.
template <typename Enum>
Enum anyEnum(FuzzInput& input) {
  const std::uint8_t pick = input.byte();
  return static_cast<Enum>((pick & 0x80U) != 0 ? input.u32() : pick % 10U);
}

template <typename Enum>
std::uint32_t valueOf(Enum value) {
  return static_cast<std::uint32_t>(value);
}

/// Typed value to wire byte; -1 when the table has no symbol for it.
int interlaceByte(std::uint32_t value) {
  constexpr int BYTES[] = {0, 2, 3, 4, 8};
  return value < 5 ? BYTES[value] : -1;
}
int zeroOrOne(std::uint32_t value) {
  return value <= 1 ? static_cast<int>(value) : -1;
}
int systemModeCommandByte(std::uint32_t value) {
  return value <= 2 ? static_cast<int>(value) : -1;
}
int systemModeStatusByte(std::uint32_t value) {
  constexpr int BYTES[] = {-1, 13, 7, 14};
  return value < 4 ? BYTES[value] : -1;
}
int scanPatternStatusByte(std::uint32_t value) {
  return (value == 1 || value == 2) ? static_cast<int>(value) - 1 : -1;
}

/// A wire record prefilled from the input, with a copy of its bytes to compare against.
template <typename Wire>
struct Target {
  explicit Target(FuzzInput& input) {
    input.fill(&record, sizeof(record));
    std::memcpy(before, &record, sizeof(record));
  }
  const std::uint8_t* bytes() const { return reinterpret_cast<const std::uint8_t*>(&record); }
  bool unchanged(std::size_t from = 0, std::size_t to = sizeof(Wire)) const {
    return std::memcmp(bytes() + from, before + from, to - from) == 0;
  }
  bool holdsFloat(std::size_t offset, float value) const {
    std::uint8_t expected[4];
    putBigEndian32(expected, bitsOf(value));
    return std::memcmp(bytes() + offset, expected, 4) == 0;
  }
  Wire record;
  std::uint8_t before[sizeof(Wire)];
};

void desiredScanSettings(FuzzInput& input) {
  const types::DesiredScanSettings source{
      input.anyFloat(), anyEnum<types::ScanHorizontalInterlaceMode>(input),
      anyEnum<types::ScanControlLine>(input), anyEnum<types::ScanFillMode>(input)};
  Target<wire::ScanSettings> target(input);
  const bool ok = wire::convert(source, target.record);
  if (!(source.frameRate >= 1.0F && source.frameRate <= 30.0F)) {
    KOV_FUZZ_CHECK(!ok && target.unchanged());
    return;
  }
  KOV_FUZZ_CHECK(target.holdsFloat(0, source.frameRate));
  const int expected[3] = {interlaceByte(valueOf(source.horizontalInterlaceMode)),
                           zeroOrOne(valueOf(source.controlLine)), zeroOrOne(valueOf(source.fillMode))};
  bool failed = false;
  for (std::size_t field = 0; field < 3; ++field) {
    failed = failed || expected[field] < 0;
    const std::size_t offset = 4 + field;
    KOV_FUZZ_CHECK(failed ? target.unchanged(offset, offset + 1) : target.bytes()[offset] == expected[field]);
  }
  KOV_FUZZ_CHECK(ok == !failed);
}

void achievedScanSettings(FuzzInput& input) {
  const types::AchievedScanSettings source{input.anyFloat(), input.anyFloat()};
  Target<wire::ScanSettingsStatus> target(input);
  KOV_FUZZ_CHECK(wire::convert(source, target.record));
  KOV_FUZZ_CHECK(target.holdsFloat(0, source.value1) && target.holdsFloat(4, source.value2));
}

void scanDatum(FuzzInput& input) {
  const types::ScanDatum source{input.anyFloat()};
  Target<wire::ScanDatum> target(input);
  const bool ok = wire::convert(source, target.record);
  const float radians = source.elevation * DEGREES_TO_RADIANS;
  const bool inRange = radians >= ELEVATION_MIN && radians <= ELEVATION_MAX;
  KOV_FUZZ_CHECK(ok == inRange);
  KOV_FUZZ_CHECK(ok ? target.holdsFloat(0, radians) : target.unchanged());
}

/// A one-byte enumeration record: written by `table`, or refused with the byte untouched.
template <typename Typed, typename Wire>
void oneByte(FuzzInput& input, int (*table)(std::uint32_t)) {
  const auto source = anyEnum<Typed>(input);
  Target<Wire> target(input);
  const bool ok = wire::convert(source, target.record);
  const int expected = table(valueOf(source));
  KOV_FUZZ_CHECK(ok == (expected >= 0));
  KOV_FUZZ_CHECK(ok ? target.bytes()[0] == expected : target.unchanged());
}

void heartbeat(FuzzInput& input) {
  const std::uint8_t flags = input.byte();
  types::SensorHealthStatus source{input.anyFloat(), input.anyFloat(), input.anyFloat(),
                                   anyEnum<types::SystemModeStatus>(input)};
  bool* flagFields[5] = {&source.flag1, &source.flag2, &source.flag3, &source.flag4, &source.flag5};
  for (unsigned flag = 0; flag < 5; ++flag) {
    *flagFields[flag] = ((flags >> flag) & 1U) != 0;
  }
  Target<wire::SystemHeartbeatAppRecord> target(input);
  const bool ok = wire::convert(source, target.record);
  const int status = systemModeStatusByte(valueOf(source.mode));
  KOV_FUZZ_CHECK(ok == (status >= 0));
  KOV_FUZZ_CHECK(ok ? target.bytes()[0] == status : target.unchanged(0, 1));
  for (unsigned flag = 0; flag < 5; ++flag) {  // written as 0 or 1 in every case
    KOV_FUZZ_CHECK(target.bytes()[1 + flag] == ((flags >> flag) & 1U));
  }
  KOV_FUZZ_CHECK(target.holdsFloat(6, source.value1) && target.holdsFloat(10, source.value2) &&
                 target.holdsFloat(14, source.value3));
  KOV_FUZZ_CHECK(target.unchanged(18, 22));  // reserved
}

/// The ISO 8859-1 bytes of a UTF-8 text made of ASCII and two-byte characters up to U+00FF; false for
/// any other text (which this check then leaves alone).
bool latin1Of(const std::string& text, std::string& bytes) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto lead = static_cast<std::uint8_t>(text[i]);
    if (lead < 0x80) {
      bytes += static_cast<char>(lead);
      continue;
    }
    if ((lead != 0xC2 && lead != 0xC3) || i + 1 == text.size()) {
      return false;
    }
    const auto next = static_cast<std::uint8_t>(text[++i]);
    if ((next & 0xC0U) != 0x80) {
      return false;
    }
    bytes += static_cast<char>(((lead & 0x1FU) << 6U) | (next & 0x3FU));
  }
  return true;
}

/// Random bytes, or (when the input asks for it) a text made of characters U+0001..U+00FF.
std::string anyText(FuzzInput& input) {
  if ((input.byte() & 1U) == 0) {
    return input.text(80);
  }
  std::string text;
  for (std::size_t length = input.byte() % 70U; length > 0; --length) {
    const std::uint8_t character = input.byte() | 1U;
    if (character < 0x80) {
      text += static_cast<char>(character);
    } else {
      text += static_cast<char>(0xC0 | (character >> 6U));
      text += static_cast<char>(0x80 | (character & 0x3FU));
    }
  }
  return text;
}

void softwareVersion(FuzzInput& input) {
  const types::SensorSoftwareVersion source{anyText(input), anyText(input), anyText(input), anyText(input)};
  Target<wire::SoftwareApplicationInfo> target(input);
  bool ok = false;
  try {
    ok = wire::convert(source, target.record);
  } catch (const std::range_error&) {
    return;  // malformed UTF-8: the decoder's documented way out
  }
  if (!ok) {
    return;
  }
  const wire::Iso88591Field* fields[4] = {&target.record.text1, &target.record.text2, &target.record.text3,
                                          &target.record.text4};
  const std::string* texts[4] = {&source.text1, &source.text2, &source.text3, &source.text4};
  for (int field = 0; field < 4; ++field) {
    // A written field holds the text's characters as bytes (at most 63 of them) and zeros after them.
    std::string expected;
    if (!latin1Of(*texts[field], expected)) {
      continue;
    }
    KOV_FUZZ_CHECK(expected.size() <= 63);
    expected.resize(64, '\0');
    KOV_FUZZ_CHECK(std::memcmp(fields[field]->data(), expected.data(), 64) == 0);
  }
}

void datapathDestination(FuzzInput& input) {
  const auto port = static_cast<std::uint16_t>(input.u32());
  types::DatapathDestinationInfo source{input.text(24), port};
  if ((input.byte() & 1U) != 0) {  // a well-formed address now and then
    source.ipAddress = std::to_string(input.byte()) + "." + std::to_string(input.byte()) + "." +
                       std::to_string(input.byte()) + "." + std::to_string(input.byte());
  }
  Target<wire::DatapathDestinationInfo> target(input);
  if (!wire::convert(source, target.record)) {
    KOV_FUZZ_CHECK(target.unchanged());
    return;
  }
  KOV_FUZZ_CHECK(target.bytes()[0] == (port >> 8U) && target.bytes()[1] == (port & 0xFFU));
  in_addr parsed{};
  if (inet_pton(AF_INET, source.ipAddress.c_str(), &parsed) == 1) {  // dotted quads read the same way
    KOV_FUZZ_CHECK(std::memcmp(target.bytes() + 2, &parsed, 4) == 0);
  }
}

/// A command of a class the codec does not know.
struct ForeignCommand : types::ScanPattern::ICommand {
  std::unique_ptr<ICommand> clone() const override { return std::make_unique<ForeignCommand>(*this); }
  std::uint8_t getId() const override { return 0; }
};

void scanPattern(FuzzInput& input) {
  types::ScanPattern source;
  const std::size_t count = input.byte() % 96U;
  for (std::size_t i = 0; i < count; ++i) {
    switch (input.byte() % 8U) {
      case 0:
        source.commands.push_back(nullptr);
        break;
      case 1:
        source.commands.push_back(std::make_unique<ForeignCommand>());
        break;
      case 2:
      case 3:
        source.commands.push_back(std::make_unique<types::ScanPattern::SnapCommand>());
        break;
      case 4:
        source.commands.push_back(std::make_unique<types::ScanPattern::MinLinesCommand>(input.anyFloat()));
        break;
      default: {
        const float azimuth = input.anyFloat();
        const float elevation = input.anyFloat();
        source.commands.push_back(
            std::make_unique<types::ScanPattern::PointCommand>(azimuth, elevation, input.byte()));
        break;
      }
    }
  }
  Target<wire::ScanPattern> target(input);
  const bool ok = wire::convert(source, target.record);
  if (count > 88) {
    KOV_FUZZ_CHECK(!ok && target.unchanged());
    return;
  }
  // Expected slots, built from the slot layout: type, payload length 12, payload, zero padding.
  std::uint8_t expected[1320] = {};
  std::size_t encoded = 0;
  for (; encoded < count; ++encoded) {
    std::uint8_t* slot = expected + 15 * encoded;
    const auto* command = source.commands[encoded].get();
    if (const auto* point = dynamic_cast<const types::ScanPattern::PointCommand*>(command)) {
      const float azimuth = point->azimuth * DEGREES_TO_RADIANS;
      const float elevation = point->elevation * DEGREES_TO_RADIANS;
      if (!(azimuth >= AZIMUTH_MIN && azimuth <= AZIMUTH_MAX && elevation >= ELEVATION_MIN &&
            elevation <= ELEVATION_MAX)) {
        break;
      }
      slot[0] = 1;
      putBigEndian32(slot + 3, bitsOf(azimuth));
      putBigEndian32(slot + 7, bitsOf(elevation));
      slot[11] = point->attribute;
    } else if (dynamic_cast<const types::ScanPattern::SnapCommand*>(command) != nullptr) {
      slot[0] = 2;
    } else if (const auto* minLines = dynamic_cast<const types::ScanPattern::MinLinesCommand*>(command)) {
      slot[0] = 3;
      putBigEndian32(slot + 3, bitsOf(minLines->minLines));
    } else {
      break;  // empty or foreign
    }
    slot[2] = 12;
  }
  KOV_FUZZ_CHECK(ok == (encoded == count));
  // The command area is zeroed, then holds the slots encoded before any failure.
  KOV_FUZZ_CHECK(std::memcmp(target.bytes() + 2, expected, sizeof(expected)) == 0);
  if (ok) {
    KOV_FUZZ_CHECK(target.bytes()[0] == ((15 * count) >> 8U) && target.bytes()[1] == ((15 * count) & 0xFFU));
  } else {
    KOV_FUZZ_CHECK(target.unchanged(0, 2));
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  kov::fuzz::silenceLogging();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzInput input(data, size);
  switch (input.byte() % 10) {
    case 0:
      desiredScanSettings(input);
      break;
    case 1:
      achievedScanSettings(input);
      break;
    case 2:
      scanDatum(input);
      break;
    case 3:
      oneByte<types::SystemModeCommand, wire::SystemModeCommand>(input, systemModeCommandByte);
      break;
    case 4:
      oneByte<types::SystemModeStatus, wire::SystemModeStatus>(input, systemModeStatusByte);
      break;
    case 5:
      oneByte<types::ScanPatternCommandStatus, wire::ScanPatternError>(input, scanPatternStatusByte);
      break;
    case 6:
      heartbeat(input);
      break;
    case 7:
      softwareVersion(input);
      break;
    case 8:
      datapathDestination(input);
      break;
    default:
      scanPattern(input);
      break;
  }
  return 0;
}
