// The SOME/IP-SD payload codec fed with arbitrary payloads. The bytes are read once more here, by hand
// from the SD layout: the options array is walked by its length fields, and each entry is expected to
// be delivered exactly when its type is known and both option runs lie inside the options array. Checked
// on success: the flags are the first byte; the delivered entries and the issues follow the entries
// array in order; each delivered entry's type, ids and IPv4 options equal the bytes at their offsets;
// an entry naming an IPv4 option of a length other than 9 is kept and recorded as such, once. Encoding
// the parsed message and parsing that again gives the same entries and no issue, which encode to the
// same bytes once more. On failure the message holds no entries and no issues.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "someip/sd_message.hpp"
#include "support/fuzz_input.hpp"

namespace {

namespace someip = kov::platform::networking::someip;
using someip::SdEntry;
using someip::SdIssue;
using someip::SdMessage;
using someip::SdOption;
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

bool sameIssue(const SdIssue& a, const SdIssue& b) {
  return a.kind == b.kind && a.entry == b.entry;
}

/// One option of the options array as its bytes say: an IPv4 endpoint or multicast option of length 9
/// (`usable`), one of another length (`wrongLength`), or any other type (neither).
struct WireOption {
  bool usable{false};
  bool wrongLength{false};
  SdOption option;
};

/// Walks the options array; false when a length field reaches past it.
bool walkOptions(const std::uint8_t* p, std::size_t size, std::vector<WireOption>& options) {
  for (std::size_t at = 0; at < size;) {
    if (size - at < 3 || big16(p + at) + 3U > size - at) {
      return false;
    }
    const std::uint16_t length = big16(p + at);
    WireOption o;
    if (p[at + 2] == 0x04 || p[at + 2] == 0x14) {
      o.usable = length == 9;
      o.wrongLength = length != 9;
      if (o.usable) {
        o.option.type = static_cast<someip::SdOptionType>(p[at + 2]);
        o.option.address = kov::fuzz::bigEndian32(p + at + 4);
        o.option.protocol = p[at + 9];
        o.option.port = big16(p + at + 10);
      }
    }
    options.push_back(o);
    at += length + 3U;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  SdMessage message;
  message.entries.resize(1);
  message.issues.push_back({SdParseError::UNKNOWN_ENTRY_TYPE, 0});
  if (someip::parseSdPayload(data, size, message) != SdParseError::NONE) {
    KOV_FUZZ_CHECK(message.entries.empty() && message.issues.empty());
    return 0;
  }
  KOV_FUZZ_CHECK(size >= 12 && message.flags == data[0]);
  const std::uint32_t entriesLength = kov::fuzz::bigEndian32(data + 4);
  KOV_FUZZ_CHECK(entriesLength % 16 == 0 && entriesLength <= size - 12);
  const std::uint8_t* optionsArray = data + 8 + entriesLength;
  const std::uint32_t optionsLength = kov::fuzz::bigEndian32(optionsArray);
  KOV_FUZZ_CHECK(optionsLength <= size - 12 - entriesLength);
  std::vector<WireOption> wireOptions;
  KOV_FUZZ_CHECK(walkOptions(optionsArray + 4, optionsLength, wireOptions));

  std::vector<SdIssue> issues;
  std::size_t delivered = 0;
  for (std::size_t i = 0; i < entriesLength / 16; ++i) {
    const std::uint8_t* p = data + 8 + 16 * i;
    const std::size_t runs[2][2] = {{p[1], std::size_t{p[3]} >> 4U}, {p[2], std::size_t{p[3]} & 0x0FU}};
    if (p[0] != 0x00 && p[0] != 0x01 && p[0] != 0x06 && p[0] != 0x07) {
      issues.push_back({SdParseError::UNKNOWN_ENTRY_TYPE, i});
      continue;
    }
    if ((runs[0][1] != 0 && runs[0][0] + runs[0][1] > wireOptions.size()) ||
        (runs[1][1] != 0 && runs[1][0] + runs[1][1] > wireOptions.size())) {
      issues.push_back({SdParseError::OPTION_INDEX_OUT_OF_RANGE, i});
      continue;
    }
    KOV_FUZZ_CHECK(delivered < message.entries.size());
    const SdEntry& entry = message.entries[delivered++];
    KOV_FUZZ_CHECK(static_cast<std::uint8_t>(entry.type) == p[0]);
    KOV_FUZZ_CHECK(entry.serviceId == big16(p + 4) && entry.instanceId == big16(p + 6));
    KOV_FUZZ_CHECK(entry.majorVersion == p[8] && entry.ttl == (kov::fuzz::bigEndian32(p + 8) & 0xFFFFFFU));
    if (p[0] <= 0x01) {
      KOV_FUZZ_CHECK(entry.minorVersion == kov::fuzz::bigEndian32(p + 12));
    } else {
      KOV_FUZZ_CHECK(entry.counter == (p[13] & 0x0F) && entry.eventgroupId == big16(p + 14));
    }
    std::vector<SdOption> expected;
    bool wrongLength = false;
    for (const auto& run : runs) {
      for (std::size_t k = run[0]; k < run[0] + run[1]; ++k) {
        if (wireOptions[k].usable) {
          expected.push_back(wireOptions[k].option);
        }
        wrongLength = wrongLength || wireOptions[k].wrongLength;
      }
    }
    KOV_FUZZ_CHECK(entry.options == expected);
    if (wrongLength) {
      issues.push_back({SdParseError::OPTION_LENGTH_WRONG, i});
    }
  }
  KOV_FUZZ_CHECK(delivered == message.entries.size());
  KOV_FUZZ_CHECK(issues.size() == message.issues.size() &&
                 std::equal(issues.begin(), issues.end(), message.issues.begin(), sameIssue));

  // The encoder's output is always accepted whole. It keeps every option when the message holds at
  // most 255 in all (past that a run may start beyond the last index an entry can name).
  const std::vector<std::uint8_t> encoded = someip::encodeSdPayload(message);
  SdMessage again;
  KOV_FUZZ_CHECK(someip::parseSdPayload(encoded.data(), encoded.size(), again) == SdParseError::NONE);
  KOV_FUZZ_CHECK(again.issues.empty());
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
