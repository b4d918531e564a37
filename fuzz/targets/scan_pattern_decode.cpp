// The scan pattern decode over arbitrary 1322-byte records (the input, zero-padded or cut). The size
// field is steered towards multiples of 15 now and then so that the slots get decoded. Checked by hand
// against the record layout: refused sizes leave the target untouched, every decoded command matches
// its slot, and an unknown type byte leaves exactly the commands before it. A decoded pattern whose
// points are in range encodes again into the same size and slot types, with every unused byte zero.
#include <cstring>
#include <memory>

#include "serialization/convert.hpp"
#include "support/fuzz_input.hpp"

namespace {

namespace types = kov::drivers::lidar::vesk::types;
namespace wire = kov::drivers::lidar::vesk::serialization;
using kov::fuzz::bigEndian32;
using kov::fuzz::floatOfBits;
using kov::fuzz::FuzzInput;
using kov::fuzz::sameFloat;

constexpr float RADIANS_TO_DEGREES = 57.29578F;

/// Whether `command` is what slot `slot` (15 bytes) decodes to.
bool decodedFrom(const types::ScanPattern::ICommand* command, const std::uint8_t* slot) {
  switch (slot[0]) {
    case 1: {
      const auto* point = dynamic_cast<const types::ScanPattern::PointCommand*>(command);
      return point != nullptr &&
             sameFloat(point->azimuth, floatOfBits(bigEndian32(slot + 3)) * RADIANS_TO_DEGREES) &&
             sameFloat(point->elevation, floatOfBits(bigEndian32(slot + 7)) * RADIANS_TO_DEGREES) &&
             point->attribute == slot[11];
    }
    case 2:
      return dynamic_cast<const types::ScanPattern::SnapCommand*>(command) != nullptr;
    case 3: {
      const auto* minLines = dynamic_cast<const types::ScanPattern::MinLinesCommand*>(command);
      return minLines != nullptr && sameFloat(minLines->minLines, floatOfBits(bigEndian32(slot + 3)));
    }
    default:
      return false;
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  kov::fuzz::silenceLogging();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzInput input(data, size);
  const std::uint8_t mode = input.byte();
  auto source = std::make_unique<wire::ScanPattern>();
  auto* bytes = reinterpret_cast<std::uint8_t*>(source.get());
  input.fill(bytes, sizeof(wire::ScanPattern));
  if ((mode & 1U) != 0) {  // a valid size: 15 times 0 to 88 commands
    const unsigned commandBytes = 15U * (bytes[0] % 89U);
    bytes[0] = static_cast<std::uint8_t>(commandBytes >> 8U);
    bytes[1] = static_cast<std::uint8_t>(commandBytes);
  }
  const unsigned commandBytes = (unsigned{bytes[0]} << 8U) | bytes[1];

  // The target starts with one command of its own, which a refused size must leave in place.
  types::ScanPattern target;
  target.commands.push_back(std::make_unique<types::ScanPattern::MinLinesCommand>(4.0F));
  const auto* kept = target.commands.front().get();
  const bool ok = wire::convert(*source, target);
  if (commandBytes > 1320 || commandBytes % 15 != 0) {
    KOV_FUZZ_CHECK(!ok && target.commands.size() == 1 && target.commands.front().get() == kept);
    return 0;
  }
  std::size_t valid = 0;
  while (valid < commandBytes / 15 && bytes[2 + 15 * valid] >= 1 && bytes[2 + 15 * valid] <= 3) {
    ++valid;
  }
  KOV_FUZZ_CHECK(ok == (valid == commandBytes / 15));
  KOV_FUZZ_CHECK(target.commands.size() == valid);
  for (std::size_t i = 0; i < valid; ++i) {
    KOV_FUZZ_CHECK(decodedFrom(target.commands[i].get(), bytes + 2 + 15 * i));
  }
  if (!ok) {
    return 0;
  }

  // Encoding the decoded pattern again (refused only for a point out of range) gives the same size,
  // the same type bytes and minimum-lines values, and zeros where the source slot had stray bytes.
  auto encoded = std::make_unique<wire::ScanPattern>();
  if (wire::convert(target, *encoded)) {
    const auto* again = reinterpret_cast<const std::uint8_t*>(encoded.get());
    KOV_FUZZ_CHECK(std::memcmp(again, bytes, 2) == 0);
    for (std::size_t i = 0; i < valid; ++i) {
      const std::uint8_t* slot = again + 2 + 15 * i;
      const std::uint8_t* original = bytes + 2 + 15 * i;
      KOV_FUZZ_CHECK(slot[0] == original[0] && slot[1] == 0 && slot[2] == 12);
      // Bytes from `zeroFrom` on are zero: after the attribute, the minimum lines, or the slot header.
      std::size_t zeroFrom = 3;
      if (original[0] == 1) {
        KOV_FUZZ_CHECK(slot[11] == original[11]);
        zeroFrom = 12;
      } else if (original[0] == 3) {
        KOV_FUZZ_CHECK(std::memcmp(slot + 3, original + 3, 4) == 0);
        zeroFrom = 7;
      }
      for (std::size_t byte = zeroFrom; byte < 15; ++byte) {
        KOV_FUZZ_CHECK(slot[byte] == 0);
      }
    }
    for (std::size_t byte = 2 + 15 * valid; byte < sizeof(wire::ScanPattern); ++byte) {
      KOV_FUZZ_CHECK(again[byte] == 0);
    }
  }
  return 0;
}
