// The SOME/IP-SD payload codec fed with arbitrary payloads. Checked on success: the flags are the
// first byte, there is one entry per 16 bytes of the entries array, each entry's type and ids equal
// the bytes at their offsets (written out here by hand), an entry holds no more options than its two
// runs count, and encoding the parsed message and parsing that again gives the same entries, which
// encode to the same bytes once more. On failure the message holds no entries.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "someip/sd_message.hpp"
#include "support/fuzz_input.hpp"

namespace {

namespace someip = kov::platform::networking::someip;
using someip::SdEntry;
using someip::SdMessage;
using someip::SdParseError;

std::uint16_t big16(const std::uint8_t* p) {
  return static_cast<std::uint16_t>((p[0] << 8U) | p[1]);
}

bool sameEntry(const SdEntry& a, const SdEntry& b) {
  return a.type == b.type && a.serviceId == b.serviceId && a.instanceId == b.instanceId &&
         a.majorVersion == b.majorVersion && a.ttl == b.ttl && a.minorVersion == b.minorVersion &&
         a.eventgroupId == b.eventgroupId && a.counter == b.counter && a.options == b.options;
}

bool sameMessage(const SdMessage& a, const SdMessage& b) {
  return a.flags == b.flags && a.entries.size() == b.entries.size() &&
         std::equal(a.entries.begin(), a.entries.end(), b.entries.begin(), sameEntry);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  SdMessage message;
  message.entries.resize(1);
  if (someip::parseSdPayload(data, size, message) != SdParseError::NONE) {
    KOV_FUZZ_CHECK(message.entries.empty());
    return 0;
  }
  KOV_FUZZ_CHECK(size >= 12 && message.flags == data[0]);
  const std::uint32_t entriesLength = kov::fuzz::bigEndian32(data + 4);
  KOV_FUZZ_CHECK(entriesLength % 16 == 0 && message.entries.size() == entriesLength / 16);
  for (std::size_t i = 0; i < message.entries.size(); ++i) {
    const std::uint8_t* p = data + 8 + 16 * i;
    const SdEntry& entry = message.entries[i];
    KOV_FUZZ_CHECK(static_cast<std::uint8_t>(entry.type) == p[0]);
    KOV_FUZZ_CHECK(p[0] == 0x00 || p[0] == 0x01 || p[0] == 0x06 || p[0] == 0x07);
    KOV_FUZZ_CHECK(entry.serviceId == big16(p + 4) && entry.instanceId == big16(p + 6));
    KOV_FUZZ_CHECK(entry.majorVersion == p[8] && entry.ttl == (kov::fuzz::bigEndian32(p + 8) & 0xFFFFFFU));
    if (p[0] <= 0x01) {
      KOV_FUZZ_CHECK(entry.minorVersion == kov::fuzz::bigEndian32(p + 12));
    } else {
      KOV_FUZZ_CHECK(entry.counter == (p[13] & 0x0F) && entry.eventgroupId == big16(p + 14));
    }
    KOV_FUZZ_CHECK(entry.options.size() <= static_cast<std::size_t>((p[3] >> 4U) + (p[3] & 0x0FU)));
  }

  // The encoder's output is always accepted. It keeps every option when the message holds at most 255
  // in all (past that a run may start beyond the last index an entry can name).
  const std::vector<std::uint8_t> encoded = someip::encodeSdPayload(message);
  SdMessage again;
  KOV_FUZZ_CHECK(someip::parseSdPayload(encoded.data(), encoded.size(), again) == SdParseError::NONE);
  std::size_t options = 0;
  for (const SdEntry& entry : message.entries) {
    options += entry.options.size();
  }
  if (options <= 255) {
    KOV_FUZZ_CHECK(sameMessage(again, message));
    KOV_FUZZ_CHECK(someip::encodeSdPayload(again) == encoded);
  }
  return 0;
}
